// Fixtures of the service tests: an embedded service published in process,
// handlers that record what the service sends, and a fake client object
// that can die.
#ifndef DD_TEST_SERVICE_TEST_UTIL_H
#define DD_TEST_SERVICE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <utility>
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
};

struct DeviceEvent {
    std::string handler;
    std::string udid;
    std::string networkId;
    std::string name;
    uint32_t type;
};

class DeviceRecorder : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Note("online", device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Note("offline", device); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Note("ready", device); }

    std::vector<DeviceEvent> Events()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }
    // "online udid-car-0001", ... in arrival order.
    std::vector<std::string> Summary()
    {
        std::vector<std::string> lines;
        for (const DeviceEvent& event : Events()) {
            lines.push_back(event.handler + " " + event.udid);
        }
        return lines;
    }

private:
    int32_t Note(const char* handler, const DeviceInfo& device)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back({handler, device.GetDeviceUdid(), device.GetDeviceNetworkId(), device.GetDeviceName(),
                           device.GetDeviceType()});
        return 0;
    }
    std::mutex mutex_;
    std::vector<DeviceEvent> events_;
};

class ServiceRecorder : public ServiceChangedCallbackStub {
public:
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.emplace_back(event, std::move(infos));
        return 0;
    }
    std::vector<std::pair<int32_t, std::vector<DeviceServiceInfo>>> Events()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

private:
    std::mutex mutex_;
    std::vector<std::pair<int32_t, std::vector<DeviceServiceInfo>>> events_;
};

class DetectRecorder : public DeviceDetectCallbackStub {
public:
    int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> device) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(std::to_string(event) + " " + device->GetDeviceUdid());
        return 0;
    }
    std::vector<std::string> Events()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> events_;
};

// Deliveries and dialog replies: one string per event.
template <typename Base>
class StringRecorder : public Base {
public:
    std::vector<std::string> Events()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

protected:
    int32_t Note(const std::string& info)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(info);
        return 0;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> events_;
};

class DeliverRecorder : public StringRecorder<ServiceDeliverCallbackStub> {
public:
    int32_t OnDeliver(const std::string& info) override { return Note(info); }
};

class DialogRecorder : public StringRecorder<DialogEventCallbackStub> {
public:
    int32_t OnDialogEventReply(const std::string& info) override { return Note(info); }
};

class PublishRecorder : public ServicePublishCallbackStub {
public:
    int32_t OnPublishEvent(sptr<RequestResultInfo> info) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.emplace_back(info->GetEventCode(), info->GetResultCode());
        return 0;
    }
    std::vector<std::pair<uint32_t, uint32_t>> Events()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

private:
    std::mutex mutex_;
    std::vector<std::pair<uint32_t, uint32_t>> events_;
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
        for (auto it = recipients_.begin(); it != recipients_.end(); ++it) {
            if (*it == recipient) {
                recipients_.erase(it);
                return true;
            }
        }
        return false;
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
