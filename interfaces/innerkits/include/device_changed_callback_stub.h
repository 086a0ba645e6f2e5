// DeviceChangedCallbackStub: the receiving end of IDeviceChangedCallback.
//
// An application derives from it, overrides the handlers it cares about and
// registers an instance through DeviceDetectProxy::RegisterDevChangedCallback
// or RegisterCallbackWithServiceFilter. The service's calls then arrive on
// platform IPC threads; the stub keeps no state and takes no lock, so a
// handler protects whatever it shares itself. Owned by sptr; the platform
// holds a reference for as long as the object is exported to the service.
#ifndef SYNTAVO_DEVICE_CHANGED_CALLBACK_STUB_H
#define SYNTAVO_DEVICE_CHANGED_CALLBACK_STUB_H

#include "device_info.h"
#include "i_device_changed_callback.h"
#include "iremote_stub.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceChangedCallbackStub : public IRemoteStub<IDeviceChangedCallback> {
public:
    DeviceChangedCallbackStub() = default;
    ~DeviceChangedCallbackStub() override = default;

    // 1010 for a wrong interface token; the decoder's result for codes 0, 1
    // and 3; the platform's result for any other code.
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    // Decoders: read a DeviceInfo in strong-parcelable form from data and
    // call the handler of the same name; 1001 when no record arrived.
    int32_t OnDeviceOnline(MessageParcel& data, MessageParcel& reply, MessageOption& option);
    int32_t OnDeviceOffline(MessageParcel& data, MessageParcel& reply, MessageOption& option);
    int32_t OnDeviceReady(MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // Handlers. The record lives only for the call: copy it to keep it. The
    // defaults log their entry and return 0.
    int32_t OnDeviceOnline(DeviceInfo& deviceInfo) override;
    int32_t OnDeviceOffline(DeviceInfo& deviceInfo) override;
    int32_t OnDeviceReady(DeviceInfo& deviceInfo) override;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_CHANGED_CALLBACK_STUB_H
