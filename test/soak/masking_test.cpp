// Device identifiers reach no log line unmasked: every line the client
// library logs at DEBUG in this process and every line devicedetectd logs at
// DEBUG, over a run that makes all of them name devices, failures included.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <sstream>

#include <nlohmann/json.hpp>

#include "daemon_fixture.h"
#include "device_config_info.h"
#include "device_detect_callback_stub.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "dialog_event_callback_stub.h"
#include "picker_result.h"
#include "service_changed_callback_stub.h"
#include "service_filter.h"
#include "service_publish_callback_stub.h"
#include "sim_status.h"
#include "tralog.h"

namespace DeviceDetectSoak {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;
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

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool Contains(const std::vector<std::string>& lines, const std::string& text)
{
    return std::any_of(lines.begin(), lines.end(),
                       [&text](const std::string& line) { return line.find(text) != std::string::npos; });
}

// The record write-failure lines ("failed:udid_:...") print the network id
// in full by their fixed format, the udid masked; that is the one place a
// full network id may stand.
bool NetworkIdAllowed(const std::string& line)
{
    return line.find("failed:udid_:") != std::string::npos;
}

// Lines (shortened) that name an identifier in full.
std::vector<std::string> Unmasked(const std::vector<std::string>& lines, const std::vector<Ids>& devices)
{
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        for (const Ids& ids : devices) {
            bool udid = line.find(ids.udid) != std::string::npos;
            bool networkId = line.find(ids.networkId) != std::string::npos && !NetworkIdAllowed(line);
            if (udid || networkId) {
                found.push_back((udid ? ids.udid : ids.networkId) + " in: " + line.substr(0, 300));
            }
        }
    }
    return found;
}

class Listener : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo&) override { return Count(); }
    int32_t OnDeviceOffline(DeviceInfo&) override { return Count(); }
    int32_t OnDeviceReady(DeviceInfo&) override { return Count(); }
    int Events() const { return events_; }

private:
    int32_t Count()
    {
        ++events_;
        return 0;
    }
    std::atomic<int> events_{0};
};

class ServiceEvents : public ServiceChangedCallbackStub {
public:
    int32_t OnDeviceEvent(int32_t, std::vector<DeviceServiceInfo> infos) override
    {
        records_ += static_cast<int>(infos.size());
        return 0;
    }
    int Records() const { return records_; }

private:
    std::atomic<int> records_{0};
};

class MaskingTest : public DaemonTest {
protected:
    void BeforeDaemon() override
    {
        json world = {
            {"local",
             {{"udid", LOCAL.udid}, {"networkId", LOCAL.networkId}, {"name", "Mask Phone"}, {"type", "PHONE"}}},
            {"devices", json::array()}};
        json tv = Device(TV, "Mask TV", "TV", "online");
        tv["services"] = {"castService"};
        tv["sameAccount"] = true;
        tv["dynamicInfo"] = {{"volume", "20"}};
        tv["config"] = {{"modelId", "TV-M"}};
        world["devices"].push_back(tv);
        world["devices"].push_back(Device(WATCH, "Mask Watch", "WATCH", "offline"));
        world["devices"].push_back(Device(BIG1, "Mask Big 1", "PC", "offline"));
        world["devices"].push_back(Device(BIG2, "Mask Big 2", "PC", "offline"));
        worldFile_ = RuntimeDir() + "/mask-world.json";
        FILE* file = fopen(worldFile_.c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::string text = world.dump();
        fwrite(text.data(), 1, text.size(), file);
        fclose(file);
    }
    std::vector<std::string> DaemonArgs() override { return {"--world", worldFile_, "--log-level", "debug"}; }

    std::string worldFile_;
};

TEST_F(MaskingTest, NoIdentifierReachesALogLineUnmasked)
{
    LogCapture capture;  // this process's lines, down to DEBUG
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    Sim::ControlClient control = Control();

    // Registrations that make the service send records back.
    auto listener = sptr<Listener>::MakeSptr();
    auto services = sptr<ServiceEvents>::MakeSptr();
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

    EXPECT_GE(listener->Events(), 6);
    EXPECT_GE(services->Records(), 3);
    ASSERT_EQ(proxy->UnregisterServiceChangedCallback(), 0);
    DeviceDetectProxy::CleanupInstance();
    proxy = nullptr;
    ASSERT_EQ(daemon_->Stop(SIGTERM), 0);

    std::vector<std::string> clientLines = capture.Messages();
    std::vector<std::string> serviceLines = SplitLines(daemon_->Output());
    const std::vector<Ids> all{LOCAL, TV, WATCH, ADDED, BIG1, BIG2, GHOST};
    EXPECT_EQ(Unmasked(clientLines, all), std::vector<std::string>{});
    EXPECT_EQ(Unmasked(serviceLines, all), std::vector<std::string>{});

    // The run did log the identifiers, masked, on both sides, and went
    // through the record-writing failure.
    EXPECT_TRUE(Contains(clientLines, PickerResult::StringToAnonymous(WATCH.networkId)));
    EXPECT_TRUE(Contains(clientLines, PickerResult::StringToAnonymous(LOCAL.networkId)));
    EXPECT_TRUE(Contains(serviceLines, PickerResult::StringToAnonymous(WATCH.udid)));
    EXPECT_TRUE(Contains(serviceLines, PickerResult::StringToAnonymous(ADDED.udid)));
    EXPECT_TRUE(Contains(serviceLines, "failed:udid_:" + PickerResult::StringToAnonymous(BIG2.udid)));
    EXPECT_TRUE(Contains(serviceLines, " DEBUG "));
}

}  // namespace
}  // namespace DeviceDetectSoak
