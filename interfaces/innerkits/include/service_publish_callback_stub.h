// ServicePublishCallbackStub: the receiving end of IServicePublishCallback.
//
// Handed to the service by DeviceDetectProxy::RequestService. Calls arrive on
// platform IPC threads; the stub keeps no state and takes no lock. Owned by
// sptr.
#ifndef SYNTAVO_SERVICE_PUBLISH_CALLBACK_STUB_H
#define SYNTAVO_SERVICE_PUBLISH_CALLBACK_STUB_H

#include "i_service_publish_callback.h"
#include "iremote_stub.h"
#include "message_option.h"
#include "message_parcel.h"
#include "publish_event_info.h"

namespace Tavik {
namespace Syntavo {

class ServicePublishCallbackStub : public IRemoteStub<IServicePublishCallback> {
public:
    ServicePublishCallbackStub() = default;
    ~ServicePublishCallbackStub() override = default;

    // 1010 for a wrong interface token (logged at ERROR here, unlike the
    // other stubs); the decoder's result for code 0; the platform's result
    // for any other code.
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    // Decoder: a RequestResultInfo in strong-parcelable form; 1001 when no
    // record arrived.
    int32_t OnPublishEvent(MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // Handler. The default returns 0 and logs nothing.
    int32_t OnPublishEvent(sptr<RequestResultInfo> info) override;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SERVICE_PUBLISH_CALLBACK_STUB_H
