// `devicedetect demo`: the whole story against a service embedded in this
// process, no daemon needed.
#include <iostream>
#include <list>
#include <memory>
#include <mutex>
#include <tuple>

#include "cli_common.h"
#include "control_client.h"
#include "device_detect_request_code.h"
#include "embedded_service.h"
#include "service_filter.h"
#include "world_json.h"

namespace DeviceDetectCli {

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

// The application's handler: records and prints what the service sends.
class DemoListener : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Note("OnDeviceOnline", device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Note("OnDeviceOffline", device); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Note("OnDeviceReady", device); }

    size_t Count()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }

private:
    int32_t Note(const char* handler, const DeviceInfo& device)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        std::cout << "    handler " << handler << ": " << device.GetDeviceName() << " ("
                  << TypeName(device.GetDeviceType()) << ", " << device.GetDeviceUdid() << ")\n";
        return 0;
    }

    std::mutex mutex_;
    size_t count_ = 0;
};

class Demo {
public:
    int Run()
    {
        std::cout << "devicedetect demo: a device-detect service embedded in this process\n";

        Step("Start the service in process (system ability " + std::to_string(SYNTAVO_DEVICE_DETECT_SA_ID) + ")");
        if (!service_.Publish()) {
            return Failed("publishing the embedded service", -1);
        }
        proxy_ = DeviceDetectProxy::GetInstance();
        if (proxy_ == nullptr) {
            return Failed("DeviceDetectProxy::GetInstance", -1);
        }
        DeviceInfo local;
        int32_t status = proxy_->GetLocalDeviceInfo(local);
        if (status != 0) {
            return Failed("GetLocalDeviceInfo", status);
        }
        std::cout << "    this device: " << local.GetDeviceName() << " (" << TypeName(local.GetDeviceType()) << ", "
                  << local.GetDeviceUdid() << ")\n";

        Step("Trusted devices online (GetTrustedDeviceList)");
        std::vector<DeviceInfo> devices;
        if ((status = proxy_->GetTrustedDeviceList("demo", devices)) != 0) {
            return Failed("GetTrustedDeviceList", status);
        }
        PrintDevices(std::cout, devices, "    ");

        Step("Devices offering \"castService\" that are a TV or a PC (GetTrustedDeviceListWithServiceFilter)");
        devices.clear();
        auto castFilter = sptr<ServiceFilter>::MakeSptr("castService", std::vector<std::string>{"TV", "PC"});
        if ((status = proxy_->GetTrustedDeviceListWithServiceFilter(castFilter, "demo", devices)) != 0) {
            return Failed("GetTrustedDeviceListWithServiceFilter", status);
        }
        PrintDevices(std::cout, devices, "    ");

        Step("Devices with an ability of bundle com.tavik.files (GetTrustedDeviceListWithAbilityFilter)");
        std::vector<sptr<AbilityFilter>> filters{sptr<AbilityFilter>::MakeSptr("com.tavik.files")};
        std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> withAbilities;
        if ((status = proxy_->GetTrustedDeviceListWithAbilityFilter(filters, withAbilities)) != 0) {
            return Failed("GetTrustedDeviceListWithAbilityFilter", status);
        }
        for (const auto& entry : withAbilities) {
            for (const sptr<AbilityFilter>& ability : std::get<1>(entry)) {
                std::cout << "    " << std::get<0>(entry).GetDeviceName() << ": " << ability->GetBundleName() << " / "
                          << ability->GetAbilityType() << " / " << ability->GetAbilityDescription() << "\n";
            }
        }

        Step("Same-account pads and watches (GetTrustedDeviceListWithDeviceFilter)");
        devices.clear();
        uint32_t pad = 0;
        uint32_t watch = 0;
        Sim::ParseDeviceType("PAD", pad);
        Sim::ParseDeviceType("WATCH", watch);
        auto deviceFilter = sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{pad, watch}, std::vector<uint32_t>{1});
        if ((status = proxy_->GetTrustedDeviceListWithDeviceFilter(deviceFilter, devices,
                                                                   sptr<DeviceDetectCallbackStub>::MakeSptr())) != 0) {
            return Failed("GetTrustedDeviceListWithDeviceFilter", status);
        }
        PrintDevices(std::cout, devices, "    ");

        Step("Register a device-change listener for every device (RegisterDevChangedCallback)");
        auto listener = sptr<DemoListener>::MakeSptr();
        std::pair<int32_t, uint32_t> registered =
            proxy_->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "demo", listener);
        if (registered.first != 0) {
            return Failed("RegisterDevChangedCallback", registered.first);
        }
        std::cout << "    listener id " << registered.second << "\n";

        Step("The family car comes online and is ready (what `devicedetect sim online/ready` does)");
        Sim::ControlClient control(service_.Object());
        for (Sim::DeviceState state : {Sim::DeviceState::ONLINE, Sim::DeviceState::READY}) {
            Sim::ControlResult result = control.SetDeviceState("udid-car-0001", state);
            if (result.status != 0) {
                return Failed("sim " + std::string(Sim::DeviceStateToString(state)), result.status);
            }
            std::cout << "    " << result.detail << "\n";
        }
        if (listener->Count() != 2) {
            std::cerr << "devicedetect demo: the handler saw " << listener->Count() << " events, expected 2\n";
            return EXIT_REQUEST_FAILED;
        }

        Step("Dynamic information of the car (GetRemoteDeviceDynamicInfo fuel, speed)");
        std::vector<DeviceDynamicInfo> infos;
        if ((status = proxy_->GetRemoteDeviceDynamicInfo("net-car-0001", {"fuel", "speed"}, infos)) != 0) {
            return Failed("GetRemoteDeviceDynamicInfo", status);
        }
        for (const DeviceDynamicInfo& info : infos) {
            std::cout << "    " << info.GetKey() << " = " << (info.GetValue().empty() ? "(none)" : info.GetValue())
                      << "\n";
        }

        Step("Configuration of the car (QueryDeviceConfigInfo)");
        DeviceConfigInfo config;
        if ((status = proxy_->QueryDeviceConfigInfo("udid-car-0001", config)) != 0) {
            return Failed("QueryDeviceConfigInfo", status);
        }
        std::cout << "    model " << config.GetModelId() << ", " << config.GetDeviceName() << " ("
                  << TypeName(config.GetDeviceType()) << "), fold screen " << config.GetSupportFoldScreen() << ", json "
                  << config.GetOriginJson() << "\n";

        Step("Remove the listener (UnregisterDevChangedCallback), then the car goes offline");
        if ((status = proxy_->UnregisterDevChangedCallback(registered.second)) != 0) {
            return Failed("UnregisterDevChangedCallback", status);
        }
        std::cout << "    listener " << registered.second << " removed\n";
        Sim::ControlResult result = control.SetDeviceState("udid-car-0001", Sim::DeviceState::OFFLINE);
        std::cout << "    " << result.detail << "\n";
        if (listener->Count() != 2) {
            std::cerr << "devicedetect demo: a removed listener still received an event\n";
            return EXIT_REQUEST_FAILED;
        }

        std::cout << "\nDone. Against the daemon: start `devicedetectd`, then `devicedetect list`,\n"
                  << "`devicedetect watch` and `devicedetect sim online udid-car-0001` in other terminals.\n";
        return EXIT_OK;
    }

private:
    void Step(const std::string& title) { std::cout << "\n" << ++step_ << ". " << title << "\n"; }

    int Failed(const std::string& what, int32_t status)
    {
        std::cerr << "devicedetect demo: " << what << " failed: " << StatusName(status) << " (" << status << ")\n";
        return EXIT_REQUEST_FAILED;
    }

    Sim::EmbeddedService service_;
    sptr<DeviceDetectProxy> proxy_;
    int step_ = 0;
};

}  // namespace

void AddDemoCommand(CLI::App& app, Context& ctx)
{
    CLI::App* demo = app.add_subcommand("demo", "Walk through the library against a service embedded in this process");
    demo->fallthrough();
    demo->callback([&ctx] {
        ctx.action = [] {
            Demo demo;
            return demo.Run();
        };
    });
}

}  // namespace DeviceDetectCli
