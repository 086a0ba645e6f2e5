// Device identifiers reach no log line unmasked: every line the client
// library logs at DEBUG in this process and every line devicedetectd logs at
// DEBUG, over a run that makes all of them name devices, failures included.
#include <signal.h>

#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "device_config_info.h"
#include "device_detect_callback_stub.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "picker_result.h"
#include "service_filter.h"
#include "service_publish_callback_stub.h"
#include "sim_status.h"
#include "soak_util.h"
#include "tralog.h"

namespace DeviceDetectSoak {
namespace {

using nlohmann::json;

struct Ids {
    std::string udid;
    std::string networkId;
};

const Ids LOCAL{"udid-mask-local-4c1e", "net-mask-local-9d2f"};
const Ids TV{"udid-mask-tv-7f3a", "net-mask-tv-2b8c"};
const Ids WATCH{"udid-mask-watch-5e6d", "net-mask-watch-1a9b"};
const Ids ADDED{"udid-mask-added-6a6a", "net-mask-added-7b7b"};
// Two devices whose udids together overflow a reply (1 MiB): listing them
// fails inside the service's record writing. Long udids rather than long
// names, because every record line prints the name in full and the udid
// masked.
constexpr size_t BIG_UDID_BYTES = 600 * 1024;
const Ids BIG1{"udid-mask-big1-" + std::string(BIG_UDID_BYTES, '1'), "net-mask-big1-0d0d"};
const Ids BIG2{"udid-mask-big2-" + std::string(BIG_UDID_BYTES, '2'), "net-mask-big2-0f0f"};
const Ids GHOST{"udid-mask-ghost-3e3e", "net-mask-ghost-8f8f"};
constexpr uint32_t WATCH_TYPE = 109;

json Device(const Ids& ids, const std::string& name, const std::string& type, const std::string& state)
{
    return {{"udid", ids.udid}, {"networkId", ids.networkId}, {"name", name},     {"type", type},
            {"state", state},   {"accountType", 1},           {"switchStatus", 1}};
}

// Lines (shortened) that name an identifier in full. The record
// write-failure lines ("failed:udid_:...") print the network id in full by
// their fixed format, the udid masked; that is the one place a full network
// id may stand.
std::vector<std::string> Unmasked(const std::string& text, const std::vector<Ids>& devices)
{
    std::vector<std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        for (const Ids& ids : devices) {
            bool udid = line.find(ids.udid) != std::string::npos;
            if (udid ||
                (line.find(ids.networkId) != std::string::npos && line.find("failed:udid_:") == std::string::npos)) {
                found.push_back((udid ? ids.udid : ids.networkId) + " in: " + line.substr(0, 300));
            }
        }
    }
    return found;
}

class MaskingTest : public DaemonTest {
protected:
    std::vector<std::string> DaemonArgs() override
    {
        json tv = Device(TV, "Mask TV", "TV", "online");
        tv["services"] = {"castService"};
        tv["sameAccount"] = true;
        tv["dynamicInfo"] = {{"volume", "20"}};
        tv["config"] = {{"modelId", "TV-M"}};
        json world = {
            {"local",
             {{"udid", LOCAL.udid}, {"networkId", LOCAL.networkId}, {"name", "Mask Phone"}, {"type", "PHONE"}}},
            {"devices",
             json::array({tv, Device(WATCH, "Mask Watch", "WATCH", "offline"),
                          Device(BIG1, "Mask Big 1", "PC", "offline"), Device(BIG2, "Mask Big 2", "PC", "offline")})}};
        std::string file = RuntimeDir() + "/mask-world.json";
        std::ofstream(file) << world.dump();
        return {"--world", file, "--log-level", "debug"};
    }
};

TEST_F(MaskingTest, NoIdentifierReachesALogLineUnmasked)
{
    LogCapture capture;  // this process's lines, down to DEBUG
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    Sim::ControlClient control = Control();

    // Registrations that make the service send records back.
    Counter deviceEvents{0};
    Counter serviceRecords{0};
    auto listener = sptr<DeviceCounter>::MakeSptr(deviceEvents);
    auto services = sptr<ServiceCounter>::MakeSptr(serviceRecords);
    ASSERT_EQ(proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "mask", listener).first, 0);
    ASSERT_EQ(proxy->RegisterServiceChangedCallback(services), 0);
    std::vector<DeviceInfo> devices;
    auto watchFilter = sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{WATCH_TYPE}, std::vector<uint32_t>{1});
    ASSERT_EQ(
        proxy->GetTrustedDeviceListWithDeviceFilter(watchFilter, devices, sptr<DeviceDetectCallbackStub>::MakeSptr()),
        0);

    // Queries that carry identifiers out and records back.
    devices.clear();
    EXPECT_EQ(proxy->GetTrustedDeviceList("mask", devices), 0);
    EXPECT_EQ(devices.size(), 1u);
    DeviceInfo local;
    EXPECT_EQ(proxy->GetLocalDeviceInfo(local), 0);
    EXPECT_EQ(local.GetDeviceNetworkId(), LOCAL.networkId);
    devices.clear();
    EXPECT_EQ(proxy->GetTrustedDeviceListWithServiceFilter(
                  sptr<ServiceFilter>::MakeSptr("castService", std::vector<std::string>{"TV"}), "mask", devices),
              0);
    EXPECT_EQ(proxy->GetDeviceSwitch(TV.udid), 1);
    std::vector<DeviceDynamicInfo> infos;
    EXPECT_EQ(proxy->GetRemoteDeviceDynamicInfo(TV.networkId, {"volume"}, infos), 0);
    DeviceConfigInfo config;
    EXPECT_EQ(proxy->QueryDeviceConfigInfo(TV.udid, config), 0);
    std::string tvNetwork = TV.networkId;
    EXPECT_TRUE(proxy->GetIsSameDeviceAccount(tvNetwork));
    proxy->GetIsNextTypeDevice(tvNetwork);
    EXPECT_EQ(proxy->RequestService("com.mask", sptr<ServicePublishCallbackStub>::MakeSptr()), 0);
    EXPECT_EQ(proxy->UnRequestService("com.mask"), 0);

    // The same with identifiers the service does not know: every failure path.
    EXPECT_EQ(proxy->GetDeviceSwitch(GHOST.udid), Sim::SIM_ERR_NO_SUCH_DEVICE);
    infos.clear();
    EXPECT_NE(proxy->GetRemoteDeviceDynamicInfo(GHOST.udid, {"volume"}, infos), 0);
    DeviceConfigInfo none;
    proxy->QueryDeviceConfigInfo(GHOST.networkId, none);
    std::string ghostNetwork = GHOST.networkId;
    EXPECT_FALSE(proxy->GetIsSameDeviceAccount(ghostNetwork));
    EXPECT_FALSE(proxy->GetIsNextTypeDevice(ghostNetwork));
    EXPECT_EQ(control.SetDeviceState(GHOST.udid, Sim::DeviceState::ONLINE).status, Sim::SIM_ERR_NO_SUCH_DEVICE);
    EXPECT_EQ(control.NotifyServiceChange(3, {GHOST.networkId}).status, Sim::SIM_ERR_NO_SUCH_DEVICE);

    // World changes: device events, service events and detect events, each
    // with the device's records.
    EXPECT_EQ(control.SetDeviceState(WATCH.networkId, Sim::DeviceState::ONLINE).status, Sim::SIM_OK);
    EXPECT_EQ(control.SetDeviceState(WATCH.udid, Sim::DeviceState::READY).status, Sim::SIM_OK);
    EXPECT_EQ(control.DetectEvent(WATCH.udid, 1).status, Sim::SIM_OK);
    EXPECT_EQ(control.NotifyServiceChange(3, {TV.udid, WATCH.udid}).status, Sim::SIM_OK);
    EXPECT_EQ(control.SetDeviceState(WATCH.udid, Sim::DeviceState::OFFLINE).status, Sim::SIM_OK);
    json added = Device(ADDED, "Mask Added", "PAD", "online");
    EXPECT_EQ(control.AddDevice(added.dump()).status, Sim::SIM_OK);
    EXPECT_EQ(control.SetDynamicInfo(ADDED.udid, "power", "on").status, Sim::SIM_OK);
    EXPECT_EQ(control.RemoveDevice(ADDED.networkId).status, Sim::SIM_OK);

    // Records too large for one reply: the service's record writing fails,
    // and so does the client's call.
    EXPECT_EQ(control.SetDeviceState(BIG1.networkId, Sim::DeviceState::ONLINE).status, Sim::SIM_OK);
    EXPECT_EQ(control.SetDeviceState(BIG2.networkId, Sim::DeviceState::ONLINE).status, Sim::SIM_OK);
    devices.clear();
    EXPECT_NE(proxy->GetTrustedDeviceList("mask", devices), 0);
    EXPECT_EQ(control.NotifyServiceChange(3, {BIG1.networkId, BIG2.networkId}).status, Sim::SIM_OK);
    EXPECT_EQ(control.SetDeviceState(BIG1.networkId, Sim::DeviceState::OFFLINE).status, Sim::SIM_OK);

    EXPECT_GE(deviceEvents, 6u);
    EXPECT_GE(serviceRecords, 3u);
    ASSERT_EQ(proxy->UnregisterServiceChangedCallback(), 0);
    DeviceDetectProxy::CleanupInstance();
    proxy = nullptr;
    ASSERT_EQ(daemon_->Stop(SIGTERM), 0);

    std::string client;
    for (const std::string& message : capture.Messages()) {
        client += message + "\n";
    }
    std::string service = daemon_->Output();
    const std::vector<Ids> all{LOCAL, TV, WATCH, ADDED, BIG1, BIG2, GHOST};
    EXPECT_EQ(Unmasked(client, all), std::vector<std::string>{});
    EXPECT_EQ(Unmasked(service, all), std::vector<std::string>{});

    // The run did log the identifiers, masked, on both sides, and went
    // through the record-writing failure.
    for (const std::string& masked :
         {PickerResult::StringToAnonymous(WATCH.networkId), PickerResult::StringToAnonymous(LOCAL.networkId)}) {
        EXPECT_NE(client.find(masked), std::string::npos) << masked;
    }
    for (const std::string& masked :
         {PickerResult::StringToAnonymous(WATCH.udid), PickerResult::StringToAnonymous(ADDED.udid),
          "failed:udid_:" + PickerResult::StringToAnonymous(BIG2.udid), std::string(" DEBUG ")}) {
        EXPECT_NE(service.find(masked), std::string::npos) << masked;
    }
}

}  // namespace
}  // namespace DeviceDetectSoak
