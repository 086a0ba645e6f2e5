// The service answering every request code, driven through the real
// DeviceDetectProxy against the embedded service of the built-in world.
#include <algorithm>
#include <functional>
#include <list>
#include <tuple>

#include <nlohmann/json.hpp>

#include "control_client.h"
#include "service_filter.h"
#include "service_test_util.h"
#include "sim_status.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

std::vector<std::string> Udids(const std::vector<DeviceInfo>& devices)
{
    std::vector<std::string> udids;
    for (const DeviceInfo& device : devices) {
        udids.push_back(device.GetDeviceUdid());
    }
    return udids;
}

std::vector<std::string> OnlineUdids()
{
    return {"udid-tv-0001", "udid-pad-0001", "udid-watch-0001", "udid-pc-0001", "udid-display-0001"};
}

class ServiceProxyTest : public EmbeddedServiceTest {
protected:
    // What the control interface reports, as `sim registrations` shows it.
    nlohmann::json Registrations()
    {
        return nlohmann::json::parse(ControlClient(service_.Object()).GetRegistrations().json);
    }
};

// The service keeps the encoded list between calls: every kind of change of
// the world must show in the next call, each after a call that filled it.
TEST_F(ServiceProxyTest, TrustedListHoldsTheOnlineDevicesAndFollowsEveryWorldChange)
{
    std::vector<DeviceInfo> devices;
    ASSERT_EQ(proxy_->GetTrustedDeviceList("pkg", devices), 0);
    EXPECT_EQ(Udids(devices), OnlineUdids());
    EXPECT_EQ(devices[0].GetDeviceNetworkId(), "net-tv-0001");
    EXPECT_EQ(devices[0].GetDeviceName(), "Living Room TV");
    EXPECT_EQ(devices[0].GetDeviceType(), 156u);

    Device phone;
    phone.udid = "udid-phone-0009";
    phone.networkId = "net-phone-0009";
    phone.type = 14;
    phone.state = DeviceState::ONLINE;
    World small;
    small.devices = {phone};
    const struct {
        const char* change;
        std::function<int32_t()> apply;
        std::vector<std::string> expected;
    } steps[] = {
        {"device added",
         [&] { return Sim().AddDevice(phone, detail_); },
         {"udid-tv-0001", "udid-pad-0001", "udid-watch-0001", "udid-pc-0001", "udid-display-0001", phone.udid}},
        {"device removed",
         [&] { return Sim().RemoveDevice("udid-tv-0001", detail_); },
         {"udid-pad-0001", "udid-watch-0001", "udid-pc-0001", "udid-display-0001", phone.udid}},
        {"states changed",
         [&] {
             return Sim().SetDeviceState("net-car-0001", DeviceState::ONLINE, detail_) +
                    Sim().SetDeviceState("udid-pc-0001", DeviceState::OFFLINE, detail_);
         },
         {"udid-pad-0001", "udid-car-0001", "udid-watch-0001", "udid-display-0001", phone.udid}},
        {"world loaded", [&] { return Sim().LoadWorld(small, detail_); }, {phone.udid}},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.change);
        std::vector<DeviceInfo> before;
        ASSERT_EQ(proxy_->GetTrustedDeviceList("pkg", before), 0);
        ASSERT_EQ(step.apply(), SIM_OK) << detail_;
        std::vector<DeviceInfo> after;
        ASSERT_EQ(proxy_->GetTrustedDeviceList("pkg", after), 0);
        EXPECT_EQ(Udids(after), step.expected);
    }
}

TEST_F(ServiceProxyTest, ServiceFilterSelectsByServiceNameAndTypeName)
{
    struct Case {
        std::string service;
        std::vector<std::string> types;
        std::vector<std::string> expected;
    };
    // The filter's own matching has its tests with the records; here the
    // device's services and type must reach it, for online devices only.
    const Case cases[] = {
        {"castService", {}, {"udid-tv-0001", "udid-pc-0001", "udid-display-0001"}},
        {"castService", {"TV", "PC"}, {"udid-tv-0001", "udid-pc-0001"}},
        {"navigation", {}, {}},  // the car offers it but is offline
    };
    for (const Case& c : cases) {
        std::vector<DeviceInfo> devices;
        ASSERT_EQ(proxy_->GetTrustedDeviceListWithServiceFilter(sptr<ServiceFilter>::MakeSptr(c.service, c.types),
                                                                "pkg", devices),
                  0);
        EXPECT_EQ(Udids(devices), c.expected) << "service \"" << c.service << "\"";
    }
}

TEST_F(ServiceProxyTest, AbilityFilterListReturnsEachDeviceWithTheAbilitiesThatPassed)
{
    auto files = sptr<AbilityFilter>::MakeSptr("com.tavik.files");
    auto page = sptr<AbilityFilter>::MakeSptr("", "page", "", 156, 0);  // pages on TVs
    std::vector<sptr<AbilityFilter>> filters{files, page};
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> result;
    ASSERT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);

    std::vector<std::string> seen;
    for (const auto& entry : result) {
        for (const sptr<AbilityFilter>& ability : std::get<1>(entry)) {
            ASSERT_NE(ability, nullptr);
            seen.push_back(std::get<0>(entry).GetDeviceUdid() + " " + ability->GetBundleName() + " " +
                           ability->GetAction() + " " + std::to_string(ability->GetDeviceType()) + " " +
                           std::to_string(ability->GetAccountType()));
        }
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"udid-tv-0001 com.tavik.media play 156 1",
                                              "udid-pad-0001 com.tavik.files sync 17 1",
                                              "udid-pc-0001 com.tavik.files sync 12 1"}));

    // An empty filter list selects nothing; an all-empty filter every online device.
    std::vector<sptr<AbilityFilter>> none;
    result.clear();
    ASSERT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(none, result), 0);
    EXPECT_TRUE(result.empty());
    std::vector<sptr<AbilityFilter>> any{sptr<AbilityFilter>::MakeSptr()};
    ASSERT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(any, result), 0);
    EXPECT_EQ(result.size(), OnlineUdids().size());
}

TEST_F(ServiceProxyTest, DeviceFilterUsesBothListsAndOpensADetectSession)
{
    auto detect = sptr<DeviceDetectRecorder>::MakeSptr();
    std::vector<DeviceInfo> devices;
    // PAD 17, WATCH 109, CAR 131; same account only.
    auto filter = sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{17, 109, 131}, std::vector<uint32_t>{1});
    ASSERT_EQ(proxy_->GetTrustedDeviceListWithDeviceFilter(filter, devices, detect), 0);
    EXPECT_EQ(Udids(devices), (std::vector<std::string>{"udid-pad-0001", "udid-watch-0001"}));

    // The car's account type is 2: it passes no session whose account list is {1}.
    Sim().SetDeviceState("udid-car-0001", DeviceState::ONLINE, detail_);
    Sim().SetDeviceState("udid-watch-0001", DeviceState::OFFLINE, detail_);
    EXPECT_EQ(detect->Lines(), (std::vector<std::string>{"detect 2 udid-watch-0001"}));
    EXPECT_EQ(Sim().Registrations().detectSessions, 1u);
}

TEST_F(ServiceProxyTest, AbilityListenerGetsEventsOfMatchingDevicesUntilRemoved)
{
    auto all = sptr<DeviceChangedRecorder>::MakeSptr();
    auto maps = sptr<DeviceChangedRecorder>::MakeSptr();
    std::pair<int32_t, uint32_t> first = proxy_->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "a", all);
    std::pair<int32_t, uint32_t> second =
        proxy_->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr("com.tavik.maps"), "b", maps);
    ASSERT_EQ(first.first, 0);
    ASSERT_EQ(second.first, 0);
    EXPECT_NE(first.second, second.second);

    Sim().SetDeviceState("udid-car-0001", DeviceState::READY, detail_);  // offline -> ready: online, then ready
    Sim().SetDeviceState("udid-tv-0001", DeviceState::OFFLINE, detail_);
    Sim().SetDeviceState("udid-pad-0001", DeviceState::ONLINE, detail_);  // no change, no event
    EXPECT_EQ(all->Lines(), (std::vector<std::string>{"online udid-car-0001 net-car-0001 Family Car 131",
                                                      "ready udid-car-0001 net-car-0001 Family Car 131",
                                                      "offline udid-tv-0001 net-tv-0001 Living Room TV 156"}));
    EXPECT_EQ(maps->Lines(), (std::vector<std::string>{"online udid-car-0001 net-car-0001 Family Car 131",
                                                       "ready udid-car-0001 net-car-0001 Family Car 131"}));

    EXPECT_EQ(proxy_->UnregisterDevChangedCallback(first.second), 0);
    EXPECT_EQ(proxy_->UnregisterDevChangedCallback(first.second), SIM_ERR_NO_SUCH_LISTENER);
    // An ability-filter id is not a service-filter listener.
    EXPECT_EQ(proxy_->UnregisterServiceFilterListener(second.second), SIM_ERR_NO_SUCH_LISTENER);
    Sim().SetDeviceState("udid-car-0001", DeviceState::OFFLINE, detail_);
    EXPECT_EQ(all->Lines().size(), 3u);
    EXPECT_EQ(maps->Lines().back(), "offline udid-car-0001 net-car-0001 Family Car 131");
}

TEST_F(ServiceProxyTest, ServiceFilterListenerMatchesThroughTheFilter)
{
    auto recorder = sptr<DeviceChangedRecorder>::MakeSptr();
    auto filter = sptr<ServiceFilter>::MakeSptr("fileShare", std::vector<std::string>{"2IN1", "PAD"});
    std::pair<int32_t, uint32_t> registered = proxy_->RegisterCallbackWithServiceFilter(filter, "x", recorder);
    ASSERT_EQ(registered.first, 0);

    Sim().SetDeviceState("udid-laptop-0001", DeviceState::ONLINE, detail_);  // 2IN1 with fileShare
    Sim().SetDeviceState("udid-pc-0001", DeviceState::OFFLINE, detail_);     // fileShare, but a PC
    Sim().SetDeviceState("udid-pad-0001", DeviceState::OFFLINE, detail_);
    EXPECT_EQ(recorder->Lines(), (std::vector<std::string>{"online udid-laptop-0001 net-laptop-0001 Travel Laptop 2607",
                                                           "offline udid-pad-0001 net-pad-0001 Work Tablet 17"}));

    EXPECT_EQ(proxy_->UnregisterDevChangedCallback(registered.second), SIM_ERR_NO_SUCH_LISTENER);
    EXPECT_EQ(proxy_->UnregisterServiceFilterListener(registered.second), 0);
    EXPECT_EQ(Sim().Registrations().serviceFilterListeners, 0u);
}

TEST_F(ServiceProxyTest, ServiceChangedCallbackGetsTheDevicesServiceRecords)
{
    auto recorder = sptr<ServiceChangedRecorder>::MakeSptr();
    ASSERT_EQ(proxy_->RegisterServiceChangedCallback(recorder), 0);
    Sim().SetDeviceState("udid-car-0001", DeviceState::ONLINE, detail_);
    ASSERT_EQ(Sim().NotifyServiceChange(3, {"udid-tv-0001", "net-pad-0001"}, detail_), SIM_OK);

    // The car has no rules: its services stand in.
    const std::vector<std::string> expected{"services 1 udid-car-0001,net-car-0001,131,02:00:00:00:00:01[navigation,]",
                                            "services 3 udid-tv-0001,net-tv-0001,156,02:00:00:00:00:06[cast:allow,] "
                                            "udid-pad-0001,net-pad-0001,17,02:00:00:00:00:07[fileShare,keyMouse,]"};
    EXPECT_EQ(recorder->Lines(), expected);
    ASSERT_EQ(proxy_->UnregisterServiceChangedCallback(), 0);
    Sim().SetDeviceState("udid-car-0001", DeviceState::OFFLINE, detail_);
    EXPECT_EQ(recorder->Lines(), expected);
}

TEST_F(ServiceProxyTest, DeviceInformationQueries)
{
    DeviceInfo local;
    ASSERT_EQ(proxy_->GetLocalDeviceInfo(local), 0);
    EXPECT_EQ(local.GetDeviceUdid(), "udid-local-phone-0001");
    EXPECT_EQ(local.GetDeviceType(), 14u);

    std::vector<DeviceDynamicInfo> infos;
    ASSERT_EQ(proxy_->GetRemoteDeviceDynamicInfo("net-pad-0001", {"charging", "nope", "battery"}, infos), 0);
    ASSERT_EQ(infos.size(), 3u);
    EXPECT_EQ(infos[0].GetKey() + "=" + infos[0].GetValue(), "charging=false");
    EXPECT_EQ(infos[1].GetKey() + "=" + infos[1].GetValue(), "nope=");
    EXPECT_EQ(infos[2].GetKey() + "=" + infos[2].GetValue(), "battery=72");
    // An unknown device fails the call itself: the reply layout has no status.
    EXPECT_EQ(proxy_->GetRemoteDeviceDynamicInfo("ghost", {"battery"}, infos), 1008);

    ASSERT_EQ(Sim().SetDynamicInfo("udid-pad-0001", "battery", "15", detail_), SIM_OK);
    infos.clear();
    ASSERT_EQ(proxy_->GetRemoteDeviceDynamicInfo("udid-pad-0001", {"battery"}, infos), 0);
    EXPECT_EQ(infos[0].GetValue(), "15");

    DeviceConfigInfo config;
    ASSERT_EQ(proxy_->QueryDeviceConfigInfo("udid-laptop-0001", config), 0);
    EXPECT_EQ(config.GetModelId(), "2IN1-13");
    EXPECT_EQ(config.GetOriginJson(), "{\"hinge\":360}");
    EXPECT_EQ(config.GetDeviceName(), "Travel Laptop");
    EXPECT_EQ(config.GetDeviceType(), 2607u);
    EXPECT_EQ(config.GetSupportFoldScreen(), 1u);
    EXPECT_EQ(proxy_->QueryDeviceConfigInfo("ghost", config), 1001);  // sent as an absent record
    EXPECT_EQ(config.GetModelId(), "2IN1-13");

    EXPECT_EQ(proxy_->GetDeviceSwitch("udid-tv-0001"), 1);
    EXPECT_EQ(proxy_->GetDeviceSwitch("udid-car-0001"), 0);
    EXPECT_EQ(proxy_->GetDeviceSwitch("ghost"), SIM_ERR_NO_SUCH_DEVICE);

    struct Answer {
        std::string id;
        bool sameAccount;
        bool nextType;
    };
    for (Answer answer : {Answer{"net-pc-0001", true, true}, Answer{"net-display-0001", false, false},
                          Answer{"udid-laptop-0001", true, true}, Answer{"ghost", false, false}}) {
        EXPECT_EQ(proxy_->GetIsSameDeviceAccount(answer.id), answer.sameAccount) << answer.id;
        EXPECT_EQ(proxy_->GetIsNextTypeDevice(answer.id), answer.nextType) << answer.id;
    }
}

TEST_F(ServiceProxyTest, DeliveriesReachTheCallbacksOfTheirCode)
{
    auto five = sptr<ServiceDeliverRecorder>::MakeSptr();
    auto minusSeven = sptr<ServiceDeliverRecorder>::MakeSptr();
    ASSERT_EQ(proxy_->RegisterServiceDeliverCallback(5, five), 0);
    ASSERT_EQ(proxy_->RegisterServiceDeliverCallback(-7, minusSeven), 0);
    Sim().Deliver(false, -7, "for -7", detail_);
    Sim().Deliver(true, 0, "for all", detail_);
    EXPECT_EQ(five->Lines(), (std::vector<std::string>{"deliver for all"}));
    EXPECT_EQ(minusSeven->Lines(), (std::vector<std::string>{"deliver for -7", "deliver for all"}));
    EXPECT_EQ(Registrations()["deliverCodes"], nlohmann::json::array({5, -7}));
}

TEST_F(ServiceProxyTest, DialogEventIsAnsweredThroughTheDialogCallback)
{
    auto dialog = sptr<DialogEventRecorder>::MakeSptr();
    ASSERT_EQ(proxy_->SetDialogEventCallback(dialog), 0);
    ASSERT_EQ(proxy_->NotifyAppDialogEvent("open \"x\""), 0);
    EXPECT_EQ(dialog->Lines(),
              (std::vector<std::string>{"dialog {\"event\":\"open \\\"x\\\"\",\"reply\":\"confirm\"}"}));
    Sim().DialogReply("plain", detail_);
    EXPECT_EQ(dialog->Lines().back(), "dialog plain");
}

TEST_F(ServiceProxyTest, ServiceRequestsPublishTheirResults)
{
    auto publish = sptr<ServicePublishRecorder>::MakeSptr();
    ASSERT_EQ(proxy_->RequestService("com.example", publish), 0);
    EXPECT_EQ(Sim().PublishResult("com.other", 9, 0, detail_), SIM_ERR_NOT_REGISTERED);
    EXPECT_EQ(Sim().PublishResult("com.example", 9, 4, detail_), SIM_OK);
    EXPECT_EQ(proxy_->UnRequestService("com.example"), 0);
    EXPECT_EQ(proxy_->UnRequestService("com.example"), SIM_ERR_NOT_REGISTERED);
    EXPECT_EQ(publish->Lines(), (std::vector<std::string>{"publish 1 0", "publish 9 4", "publish 2 0"}));
    EXPECT_EQ(proxy_->RequestService("", publish), SIM_ERR_INVALID_ARGUMENT);
}

TEST_F(ServiceProxyTest, KeyMouseRequestsChangeTheServiceState)
{
    sptr<IRemoteObject> callback(new IPCObjectStub(u"test.KeyMouse"));
    EXPECT_EQ(proxy_->RegisterKeyMouseCallback("caller", callback), 0);
    EXPECT_EQ(Sim().Registrations().keyMouseCallbacks, 1u);
    EXPECT_EQ(proxy_->UnregisterKeyMouseCallback("other"), SIM_ERR_NOT_REGISTERED);
    EXPECT_EQ(proxy_->UnregisterKeyMouseCallback("caller"), 0);
    EXPECT_EQ(Sim().Registrations().keyMouseCallbacks, 0u);

    EXPECT_EQ(proxy_->UpdateKeyMouseEdgeSwitch(true), 0);
    EXPECT_TRUE(Sim().KeyMouseEdgeSwitch());
    EXPECT_EQ(proxy_->UpdateKeyMouseEdgeSwitch(false), 0);
    EXPECT_FALSE(Sim().KeyMouseEdgeSwitch());
    proxy_->GetBindKeymouseServiceReq(true);
    EXPECT_TRUE(Sim().BindKeymouseService());
    EXPECT_EQ(Registrations()["keyMouseEdgeSwitch"], false);
    EXPECT_EQ(Registrations()["bindKeymouseService"], true);
}

TEST_F(ServiceProxyTest, UnpublishTellsTheProxyTheServiceIsGone)
{
    sptr<DeviceDetectProxy> held = proxy_;
    service_.Unpublish();
    // The cache was emptied and nothing else serves 70635 in process (nor,
    // with a private runtime dir, over a socket).
    std::vector<DeviceInfo> devices;
    EXPECT_EQ(held->GetTrustedDeviceList("", devices), 0);  // the object itself still answers
    EXPECT_NE(DeviceDetectProxy::GetInstance(), held);
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
