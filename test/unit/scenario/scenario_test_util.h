// Fixtures of the scenario tests: an application stand-in that registers
// every kind of callback with the embedded service and writes what arrives
// into one ordered log (and, on request, into a ScenarioRecorder).
#ifndef DD_TEST_SCENARIO_TEST_UTIL_H
#define DD_TEST_SCENARIO_TEST_UTIL_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device_detect_proxy.h"
#include "scenario.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {

class CallbackLog {
public:
    void Add(const std::string& line)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
    }
    std::vector<std::string> Lines()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    // Feeds the recorder too, with a step time that only grows.
    void Record(const std::function<void(ScenarioRecorder&, uint64_t)>& feed)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (recorder_ != nullptr) {
            feed(*recorder_, ++clock_);
        }
    }
    void StartRecording(const World& world)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        recorder_ = std::make_unique<ScenarioRecorder>(world);
    }
    Scenario Recorded()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return recorder_->Result();
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
    std::unique_ptr<ScenarioRecorder> recorder_;
    uint64_t clock_ = 0;
};

class DeviceHandler : public DeviceChangedCallbackStub {
public:
    DeviceHandler(std::shared_ptr<CallbackLog> log, std::string tag) : log_(std::move(log)), tag_(std::move(tag)) {}
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Note("online", device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Note("offline", device); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Note("ready", device); }

private:
    int32_t Note(const char* what, const DeviceInfo& device)
    {
        log_->Add(tag_ + " " + what + " " + device.GetDeviceUdid() + " " + device.GetDeviceNetworkId() + " " +
                  device.GetDeviceName() + " " + std::to_string(device.GetDeviceType()));
        log_->Record([&](ScenarioRecorder& recorder, uint64_t at) {
            recorder.OnDevice(at, what, device.GetDeviceUdid(), device.GetDeviceNetworkId(), device.GetDeviceName(),
                              device.GetDeviceType());
        });
        return 0;
    }
    std::shared_ptr<CallbackLog> log_;
    std::string tag_;
};

class ServiceHandler : public ServiceChangedCallbackStub {
public:
    explicit ServiceHandler(std::shared_ptr<CallbackLog> log) : log_(std::move(log)) {}
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        std::string line = "services " + std::to_string(event);
        std::vector<ScenarioRecorder::ServiceDevice> devices;
        for (const DeviceServiceInfo& info : infos) {
            line += " " + info.GetDeviceId() + "[";
            for (const std::string& rule : info.GetServiceRuleList()) {
                line += rule + ",";
            }
            line += "]";
            devices.push_back({info.GetDeviceId(), info.GetServiceRuleList(), info.GetDeviceHashId(), info.GetBrMac(),
                               info.GetExtraInfo()});
        }
        log_->Add(line);
        log_->Record([&](ScenarioRecorder& recorder, uint64_t at) { recorder.OnServices(at, event, devices); });
        return 0;
    }

private:
    std::shared_ptr<CallbackLog> log_;
};

class DeliverHandler : public ServiceDeliverCallbackStub {
public:
    DeliverHandler(std::shared_ptr<CallbackLog> log, int32_t code) : log_(std::move(log)), code_(code) {}
    int32_t OnDeliver(const std::string& info) override
    {
        log_->Add("deliver " + std::to_string(code_) + " " + info);
        log_->Record([&](ScenarioRecorder& recorder, uint64_t at) { recorder.OnDeliver(at, code_, info); });
        return 0;
    }

private:
    std::shared_ptr<CallbackLog> log_;
    int32_t code_;
};

class DialogHandler : public DialogEventCallbackStub {
public:
    explicit DialogHandler(std::shared_ptr<CallbackLog> log) : log_(std::move(log)) {}
    int32_t OnDialogEventReply(const std::string& info) override
    {
        log_->Add("dialog " + info);
        log_->Record([&](ScenarioRecorder& recorder, uint64_t at) { recorder.OnDialogReply(at, info); });
        return 0;
    }

private:
    std::shared_ptr<CallbackLog> log_;
};

class DetectHandler : public DeviceDetectCallbackStub {
public:
    explicit DetectHandler(std::shared_ptr<CallbackLog> log) : log_(std::move(log)) {}
    int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> device) override
    {
        log_->Add("detect " + std::to_string(event) + " " + device->GetDeviceUdid());
        return 0;
    }

private:
    std::shared_ptr<CallbackLog> log_;
};

class PublishHandler : public ServicePublishCallbackStub {
public:
    explicit PublishHandler(std::shared_ptr<CallbackLog> log) : log_(std::move(log)) {}
    int32_t OnPublishEvent(sptr<RequestResultInfo> info) override
    {
        log_->Add("publish " + std::to_string(info->GetEventCode()) + " " + std::to_string(info->GetResultCode()));
        return 0;
    }

private:
    std::shared_ptr<CallbackLog> log_;
};

}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // DD_TEST_SCENARIO_TEST_UTIL_H
