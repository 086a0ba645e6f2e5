// Fixtures of the service tests: an embedded service published in process,
// handlers that record what the service sends, and a fake client object
// that can die.
#ifndef DD_TEST_SERVICE_TEST_UTIL_H
#define DD_TEST_SERVICE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "device_detect_proxy.h"
#include "embedded_service.h"
#include "ipc_status.h"
#include "message_option.h"
#include "message_parcel.h"

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

// A client object in another process, as the service sees it: a proxy that
// takes death recipients and calls them when told to die.
class FakeClient : public IRemoteObject {
public:
    explicit FakeClient(bool alive = true) : alive_(alive) {}

    int32_t SendRequest(uint32_t code, MessageParcel&, MessageParcel&, MessageOption&) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        codes_.push_back(code);
        return alive_ ? 0 : IPC_ERR_DEAD_OBJECT;
    }
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!alive_) {
            return false;
        }
        recipients_.push_back(recipient);
        return true;
    }
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = std::find(recipients_.begin(), recipients_.end(), recipient);
        if (it == recipients_.end()) {
            return false;
        }
        recipients_.erase(it);
        return true;
    }
    bool IsProxyObject() const override { return true; }

    void Die()
    {
        std::vector<sptr<DeathRecipient>> recipients;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            alive_ = false;
            recipients.swap(recipients_);
        }
        for (const sptr<DeathRecipient>& recipient : recipients) {
            recipient->OnRemoteDied(wptr<IRemoteObject>(this));
        }
    }
    size_t RecipientCount()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return recipients_.size();
    }
    std::vector<uint32_t> Codes()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return codes_;
    }

private:
    std::mutex mutex_;
    bool alive_;
    std::vector<sptr<DeathRecipient>> recipients_;
    std::vector<uint32_t> codes_;
};

}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // DD_TEST_SERVICE_TEST_UTIL_H
