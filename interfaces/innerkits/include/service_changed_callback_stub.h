// ServiceChangedCallbackStub: the receiving end of IServiceChangedCallback.
//
// Registered through DeviceDetectProxy::RegisterServiceChangedCallback. The
// service's calls arrive on platform IPC threads; the stub takes no lock and
// its one member, the entry limit, is fixed at construction. Owned by sptr.
#ifndef SYNTAVO_SERVICE_CHANGED_CALLBACK_STUB_H
#define SYNTAVO_SERVICE_CHANGED_CALLBACK_STUB_H

#include <vector>

#include "device_service_info.h"
#include "i_service_changed_callback.h"
#include "iremote_stub.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {

class ServiceChangedCallbackStub : public IRemoteStub<IServiceChangedCallback> {
public:
    // The proxy's own device lists stop at the same number.
    static constexpr uint32_t DEFAULT_MAX_DEVICE_NUM = 1024;

    // An event announcing more than maxDeviceNum entries is refused before
    // anything is read or allocated for them.
    explicit ServiceChangedCallbackStub(uint32_t maxDeviceNum = DEFAULT_MAX_DEVICE_NUM);
    ~ServiceChangedCallbackStub() override = default;

    // 1010 for a wrong interface token; the decoder's result for code 0; the
    // platform's result for any other code.
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    // Decoder: int32 event, uint32 count, then count DeviceServiceInfo
    // records in strong-parcelable form. Missing records are skipped; 1001
    // when the event or the count cannot be read or the count is too large.
    int32_t OnDeviceEvent(MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // Handler. The default logs its entry and returns 0.
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> deviceServiceInfos) override;

    uint32_t GetMaxDeviceNum() const { return maxDeviceNum_; }

private:
    const uint32_t maxDeviceNum_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SERVICE_CHANGED_CALLBACK_STUB_H
