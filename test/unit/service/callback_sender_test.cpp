// What the service sends to each callback: the interface token, the code and
// the layout, checked on the raw parcel.
#include <functional>

#include "callback_sender.h"
#include "device_detect_descriptors.h"
#include "ipc_object_stub.h"
#include "service_test_util.h"
#include "sim_status.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

// Keeps the token, the code, the option and a copy of the bytes after the
// token of the last request it received.
class RawRecorder : public IPCObjectStub {
public:
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel&, MessageOption& option) override
    {
        token = Str16ToStr8(data.ReadInterfaceToken());
        this->code = code;
        flags = option.GetFlags();
        body.FlushBuffer();
        body.ParseFrom(data.GetData() + data.GetReadPosition(), data.GetReadableBytes());
        return 42;
    }
    std::string token;
    uint32_t code = 99;
    int flags = -1;
    MessageParcel body;
};

TEST(CallbackSenderTest, EachCallbackCarriesItsTokenCodeAndLayout)
{
    DeviceInfo car("udid-car", "net-car", "Car", 131);
    DeviceServiceInfo service("TV", 156, "hash", "udid-tv", {"cast"}, "net-tv", "mac", "extra");
    struct Case {
        const char* what;
        std::function<int32_t(const sptr<IRemoteObject>&)> send;
        std::string token;
        uint32_t code;
        std::function<bool(MessageParcel&)> check;
    };
    auto readDevice = [](MessageParcel& body, const char* udid) {
        sptr<DeviceInfo> device = body.ReadStrongParcelable<DeviceInfo>();
        return device != nullptr && device->GetDeviceUdid() == udid && device->GetDeviceType() == 131;
    };
    const Case cases[] = {
        {"offline",
         [&](const sptr<IRemoteObject>& t) {
             return SendDeviceChanged(t, DeviceChangedCallbackCode::ON_DEVICE_OFFLINE, car);
         },
         "Tavik.Syntavo.IDeviceStateChangedCallback", 1, [&](MessageParcel& b) { return readDevice(b, "udid-car"); }},
        {"ready",
         [&](const sptr<IRemoteObject>& t) {
             return SendDeviceChanged(t, DeviceChangedCallbackCode::ON_DEVICE_READY, car);
         },
         "Tavik.Syntavo.IDeviceStateChangedCallback", 3, [&](MessageParcel& b) { return readDevice(b, "udid-car"); }},
        {"services",
         [&](const sptr<IRemoteObject>& t) {
             return SendServiceChanged(t, -4, {service, service});
         },
         "Tavik.Syntavo.IServiceChangedCallback", 0,
         [](MessageParcel& b) {
             int32_t event = 0;
             uint32_t count = 0;
             if (!b.ReadInt32(event) || event != -4 || !b.ReadUint32(count) || count != 2) {
                 return false;
             }
             for (uint32_t i = 0; i < count; ++i) {
                 sptr<DeviceServiceInfo> info = b.ReadStrongParcelable<DeviceServiceInfo>();
                 if (info == nullptr || info->GetServiceRuleList() != std::vector<std::string>{"cast"}) {
                     return false;
                 }
             }
             return true;
         }},
        {"detect", [&](const sptr<IRemoteObject>& t) { return SendDetectEvent(t, 2, car); },
         "Tavik.Syntavo.IDeviceDetectCallback", 0,
         [&](MessageParcel& b) { return b.ReadInt32() == 2 && readDevice(b, "udid-car"); }},
        {"deliver", [](const sptr<IRemoteObject>& t) { return SendDeliver(t, "parcel"); },
         "Tavik.Syntavo.IServiceDeliverCallback", 0, [](MessageParcel& b) { return b.ReadString() == "parcel"; }},
        {"dialog", [](const sptr<IRemoteObject>& t) { return SendDialogReply(t, "yes"); },
         "Tavik.Syntavo.IDialogEventCallback", 0, [](MessageParcel& b) { return b.ReadString() == "yes"; }},
        {"publish", [](const sptr<IRemoteObject>& t) { return SendPublishEvent(t, RequestResultInfo(7, 3)); },
         "Tavik.Syntavo.IServicePublishCallback", 0,
         [](MessageParcel& b) {
             sptr<RequestResultInfo> info = b.ReadStrongParcelable<RequestResultInfo>();
             return info != nullptr && info->GetEventCode() == 7 && info->GetResultCode() == 3;
         }},
    };
    for (const Case& c : cases) {
        sptr<RawRecorder> recorder = sptr<RawRecorder>::MakeSptr();
        EXPECT_EQ(c.send(recorder), 42) << c.what << ": the handler's result is the send's result";
        EXPECT_EQ(recorder->token, c.token) << c.what;
        EXPECT_EQ(recorder->code, c.code) << c.what;
        EXPECT_EQ(recorder->flags, MessageOption::TF_SYNC) << c.what;
        EXPECT_TRUE(c.check(recorder->body)) << c.what;
        EXPECT_EQ(recorder->body.GetReadableBytes(), 0u) << c.what << ": more than the layout";
    }
    // The library's stubs decoding what is sent is seen end to end by the
    // embedded service's tests.
    EXPECT_EQ(SendDialogReply(nullptr, "x"), SIM_ERR_NULL_CALLBACK);
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
