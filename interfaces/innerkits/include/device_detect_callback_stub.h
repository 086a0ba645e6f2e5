// DeviceDetectCallbackStub: the receiving end of IDeviceDetectCallback.
//
// Handed to the service by DeviceDetectProxy::GetTrustedDeviceListWithDeviceFilter.
// Calls arrive on platform IPC threads; the stub keeps no state and takes no
// lock. Owned by sptr.
#ifndef SYNTAVO_DEVICE_DETECT_CALLBACK_STUB_H
#define SYNTAVO_DEVICE_DETECT_CALLBACK_STUB_H

#include "device_info.h"
#include "i_device_detect_callback.h"
#include "iremote_stub.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceDetectCallbackStub : public IRemoteStub<IDeviceDetectCallback> {
public:
    DeviceDetectCallbackStub() = default;
    ~DeviceDetectCallbackStub() override = default;

    // 1010 for a wrong interface token; the decoder's result for code 0; the
    // platform's result for any other code.
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    // Decoder: int32 event, then a DeviceInfo in strong-parcelable form;
    // 1001 when no record arrived.
    int32_t OnDeviceEvent(MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // Handler. The handler may keep the record by keeping the pointer. The
    // default logs its entry and returns 0.
    int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> deviceInfo) override;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_DETECT_CALLBACK_STUB_H
