// Fixtures of the service tests: an embedded service published in process,
// and handlers that record what the service sends.
#ifndef DD_TEST_SERVICE_TEST_UTIL_H
#define DD_TEST_SERVICE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "device_detect_proxy.h"
#include "embedded_service.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {

// The built-in world, published as system ability 70635 for the test.
class EmbeddedServiceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(service_.Publish());
        proxy_ = DeviceDetectProxy::GetInstance();
        ASSERT_NE(proxy_, nullptr);
    }
    void TearDown() override
    {
        proxy_ = nullptr;
        service_.Unpublish();
    }

    Simulator& Sim() { return *service_.GetSimulator(); }

    EmbeddedService service_;
    sptr<DeviceDetectProxy> proxy_;
    std::string detail_;
};

// Stubs that note each callback as one line, in arrival order.
template <typename Stub>
class Recorder : public Stub {
public:
    std::vector<std::string> Events()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

protected:
    int32_t Note(const std::string& line)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(line);
        return 0;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> events_;
};

// "online udid-car-0001"
class DeviceRecorder : public Recorder<DeviceChangedCallbackStub> {
public:
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Note("online " + device.GetDeviceUdid()); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Note("offline " + device.GetDeviceUdid()); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Note("ready " + device.GetDeviceUdid()); }
};

// "3 udid-tv-0001,net-tv-0001,156,mac[cast:allow,] ..."
class ServiceRecorder : public Recorder<ServiceChangedCallbackStub> {
public:
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        std::string line = std::to_string(event);
        for (const DeviceServiceInfo& info : infos) {
            line += " " + info.GetDeviceId() + "," + info.GetNetworkId() + "," + std::to_string(info.GetDeviceType()) +
                    "," + info.GetBrMac() + "[";
            for (const std::string& rule : info.GetServiceRuleList()) {
                line += rule + ",";
            }
            line += "]";
        }
        return Note(line);
    }
};

// "2 udid-watch-0001"
class DetectRecorder : public Recorder<DeviceDetectCallbackStub> {
public:
    int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> device) override
    {
        return Note(std::to_string(event) + " " + device->GetDeviceUdid());
    }
};

class DeliverRecorder : public Recorder<ServiceDeliverCallbackStub> {
public:
    int32_t OnDeliver(const std::string& info) override { return Note(info); }
};

class DialogRecorder : public Recorder<DialogEventCallbackStub> {
public:
    int32_t OnDialogEventReply(const std::string& info) override { return Note(info); }
};

// "<event code> <result code>"
class PublishRecorder : public Recorder<ServicePublishCallbackStub> {
public:
    int32_t OnPublishEvent(sptr<RequestResultInfo> info) override
    {
        return Note(std::to_string(info->GetEventCode()) + " " + std::to_string(info->GetResultCode()));
    }
};

}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // DD_TEST_SERVICE_TEST_UTIL_H
