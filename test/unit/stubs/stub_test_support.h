// Shared by the stub tests: a journal that recording subclasses write their
// handler calls into, request builders, and one way to deliver a request.
#ifndef SYNTAVO_TEST_STUB_TEST_SUPPORT_H
#define SYNTAVO_TEST_STUB_TEST_SUPPORT_H

#include <functional>
#include <string>
#include <vector>

#include "device_changed_callback_stub.h"
#include "device_detect_callback_stub.h"
#include "dialog_event_callback_stub.h"
#include "ipc_object_stub.h"
#include "message_option.h"
#include "message_parcel.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_publish_callback_stub.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Test {

// What the recording handlers saw, one rendered line per call. Handlers
// return kResult, which the stub must pass back unchanged.
struct Journal {
    static constexpr int32_t kResult = 77;
    std::vector<std::string> calls;
    std::vector<DeviceServiceInfo> serviceInfos;
    sptr<DeviceInfo> keptDevice;
};

class RecordingDeviceChanged : public DeviceChangedCallbackStub {
public:
    explicit RecordingDeviceChanged(Journal& journal) : journal_(journal) {}
    int32_t OnDeviceOnline(DeviceInfo& info) override { return Note("OnDeviceOnline " + info.GetDeviceUdid()); }
    int32_t OnDeviceOffline(DeviceInfo& info) override { return Note("OnDeviceOffline " + info.GetDeviceUdid()); }
    int32_t OnDeviceReady(DeviceInfo& info) override { return Note("OnDeviceReady " + info.GetDeviceUdid()); }

private:
    int32_t Note(const std::string& call)
    {
        journal_.calls.push_back(call);
        return Journal::kResult;
    }
    Journal& journal_;
};

class RecordingServiceChanged : public ServiceChangedCallbackStub {
public:
    explicit RecordingServiceChanged(Journal& journal, uint32_t maxDeviceNum = DEFAULT_MAX_DEVICE_NUM)
        : ServiceChangedCallbackStub(maxDeviceNum), journal_(journal)
    {
    }
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        std::string names;
        for (const DeviceServiceInfo& info : infos) {
            names += (names.empty() ? "" : ", ") + info.GetDeviceName();
        }
        journal_.calls.push_back("OnDeviceEvent " + std::to_string(event) + " [" + names + "]");
        journal_.serviceInfos = std::move(infos);
        return Journal::kResult;
    }

private:
    Journal& journal_;
};

class RecordingDeviceDetect : public DeviceDetectCallbackStub {
public:
    explicit RecordingDeviceDetect(Journal& journal) : journal_(journal) {}
    int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> info) override
    {
        journal_.calls.push_back("OnDeviceEvent " + std::to_string(event) + " " + info->GetDeviceUdid());
        journal_.keptDevice = info;
        return Journal::kResult;
    }

private:
    Journal& journal_;
};

class RecordingServiceDeliver : public ServiceDeliverCallbackStub {
public:
    explicit RecordingServiceDeliver(Journal& journal) : journal_(journal) {}
    int32_t OnDeliver(const std::string& info) override
    {
        journal_.calls.push_back("OnDeliver " + info);
        return Journal::kResult;
    }

private:
    Journal& journal_;
};

class RecordingDialogEvent : public DialogEventCallbackStub {
public:
    explicit RecordingDialogEvent(Journal& journal) : journal_(journal) {}
    int32_t OnDialogEventReply(const std::string& info) override
    {
        journal_.calls.push_back("OnDialogEventReply " + info);
        return Journal::kResult;
    }

private:
    Journal& journal_;
};

class RecordingServicePublish : public ServicePublishCallbackStub {
public:
    explicit RecordingServicePublish(Journal& journal) : journal_(journal) {}
    int32_t OnPublishEvent(sptr<RequestResultInfo> info) override
    {
        journal_.calls.push_back("OnPublishEvent " + std::to_string(info->GetEventCode()) + "/" +
                                 std::to_string(info->GetResultCode()));
        return Journal::kResult;
    }

private:
    Journal& journal_;
};

// Writes what follows the token of a request; null writes nothing.
using BodyWriter = std::function<void(MessageParcel&)>;

// A DeviceInfo in strong-parcelable form, field by field.
inline void WriteDevice(MessageParcel& data, const std::string& udid)
{
    data.WriteInt32(1);
    data.WriteString(udid);
    data.WriteString("net-" + udid);
    data.WriteString("name-" + udid);
    data.WriteUint32(14);
}

// A DeviceServiceInfo in strong-parcelable form, field by field.
inline void WriteDeviceService(MessageParcel& data, const std::string& name)
{
    data.WriteInt32(1);
    data.WriteString(name);
    data.WriteUint32(14);
    data.WriteString("hash-" + name);
    data.WriteString("id-" + name);
    data.WriteStringVector({"rule"});
    data.WriteString("net-" + name);
    data.WriteString("mac-" + name);
    data.WriteString("extra");
}

struct Outcome {
    int32_t result;
    size_t replySize;
};

// Delivers token + body with `code` the way a transport does, through the
// stub's OnRemoteRequest.
inline Outcome Send(IPCObjectStub& stub, uint32_t code, const std::u16string& token, const BodyWriter& body)
{
    MessageParcel data;
    data.WriteInterfaceToken(token);
    if (body) {
        body(data);
    }
    MessageParcel reply;
    MessageOption option;
    int32_t result = stub.OnRemoteRequest(code, data, reply, option);
    return {result, reply.GetDataSize() + reply.GetObjectCount()};
}

}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_TEST_STUB_TEST_SUPPORT_H
