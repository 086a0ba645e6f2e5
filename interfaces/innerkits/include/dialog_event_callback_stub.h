// DialogEventCallbackStub: the receiving end of IDialogEventCallback.
//
// Handed to the service by DeviceDetectProxy::SetDialogEventCallback. Calls
// arrive on platform IPC threads; the stub keeps no state and takes no lock.
// Owned by sptr.
#ifndef SYNTAVO_DIALOG_EVENT_CALLBACK_STUB_H
#define SYNTAVO_DIALOG_EVENT_CALLBACK_STUB_H

#include <string>

#include "i_dialog_event_callback.h"
#include "iremote_stub.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {

class DialogEventCallbackStub : public IRemoteStub<IDialogEventCallback> {
public:
    DialogEventCallbackStub() = default;
    ~DialogEventCallbackStub() override = default;

    // 1010 for a wrong interface token; the handler's result for code 0; the
    // platform's result for any other code.
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    // Decoder: one string (empty when the request holds none), then the
    // handler. There is no decoding failure.
    int32_t OnDialogEventReply(MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // Handler. The default logs its entry and returns 0.
    int32_t OnDialogEventReply(const std::string& info) override;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DIALOG_EVENT_CALLBACK_STUB_H
