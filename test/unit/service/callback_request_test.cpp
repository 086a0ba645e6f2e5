// What the service sends to each callback: the interface token, the code and
// the layout, checked on the raw parcel.
#include <functional>

#include "callback_request.h"
#include "device_detect_descriptors.h"
#include "service_test_util.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

TEST(CallbackRequestTest, EachCallbackCarriesItsTokenCodeAndLayout)
{
    DeviceInfo car("udid-car", "net-car", "Car", 131);
    DeviceServiceInfo service("TV", 156, "hash", "udid-tv", {"cast"}, "net-tv", "mac", "extra");
    struct Case {
        const char* what;
        std::function<EncodedCallback()> encode;
        std::string token;
        uint32_t code;
        std::function<bool(MessageParcel&)> check;
    };
    auto readDevice = [](MessageParcel& body, const char* udid) {
        sptr<DeviceInfo> device = body.ReadStrongParcelable<DeviceInfo>();
        return device != nullptr && device->GetDeviceUdid() == udid && device->GetDeviceType() == 131;
    };
    const Case cases[] = {
        {"offline", [&] { return EncodeDeviceChanged(DeviceChangedCallbackCode::ON_DEVICE_OFFLINE, car); },
         "Tavik.Syntavo.IDeviceStateChangedCallback", 1, [&](MessageParcel& b) { return readDevice(b, "udid-car"); }},
        {"ready", [&] { return EncodeDeviceChanged(DeviceChangedCallbackCode::ON_DEVICE_READY, car); },
         "Tavik.Syntavo.IDeviceStateChangedCallback", 3, [&](MessageParcel& b) { return readDevice(b, "udid-car"); }},
        {"services",
         [&] {
             return EncodeServiceChanged(-4, {service, service});
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
        {"detect", [&] { return EncodeDetectEvent(2, car); }, "Tavik.Syntavo.IDeviceDetectCallback", 0,
         [&](MessageParcel& b) { return b.ReadInt32() == 2 && readDevice(b, "udid-car"); }},
        {"deliver", [] { return EncodeDeliver("parcel"); }, "Tavik.Syntavo.IServiceDeliverCallback", 0,
         [](MessageParcel& b) { return b.ReadString() == "parcel"; }},
        {"dialog", [] { return EncodeDialogReply("yes"); }, "Tavik.Syntavo.IDialogEventCallback", 0,
         [](MessageParcel& b) { return b.ReadString() == "yes"; }},
        {"publish", [] { return EncodePublishEvent(RequestResultInfo(7, 3)); }, "Tavik.Syntavo.IServicePublishCallback",
         0,
         [](MessageParcel& b) {
             sptr<RequestResultInfo> info = b.ReadStrongParcelable<RequestResultInfo>();
             return info != nullptr && info->GetEventCode() == 7 && info->GetResultCode() == 3;
         }},
    };
    for (const Case& c : cases) {
        EncodedCallback encoded = c.encode();
        ASSERT_NE(encoded.data, nullptr) << c.what;
        MessageParcel body;
        body.ParseFrom(encoded.data->GetData(), encoded.data->GetDataSize());
        EXPECT_EQ(Str16ToStr8(body.ReadInterfaceToken()), c.token) << c.what;
        EXPECT_EQ(Str16ToStr8(encoded.descriptor), c.token) << c.what;
        EXPECT_EQ(encoded.code, c.code) << c.what;
        EXPECT_TRUE(c.check(body)) << c.what;
        EXPECT_EQ(body.GetReadableBytes(), 0u) << c.what << ": more than the layout";
    }
    // The library's stubs decoding what is sent is seen end to end by the
    // embedded service's tests. A layout over the parcel limit is no request.
    EXPECT_EQ(EncodeDeliver(std::string(2 * 1024 * 1024, 'x')).data, nullptr);
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
