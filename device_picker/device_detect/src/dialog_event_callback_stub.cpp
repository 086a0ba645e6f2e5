#include "dialog_event_callback_stub.h"

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "string_convert.h"
#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

int32_t DialogEventCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                 MessageOption& option)
{
    const std::u16string token = data.ReadInterfaceToken();
    if (token != IDialogEventCallback::GetDescriptor()) {
        SYNT_LOGI(DEVICE_DETECT_LABEL, "receive wrong interface token = %{public}s, expect %{public}s",
                  Str16ToStr8(token).c_str(), Str16ToStr8(IDialogEventCallback::GetDescriptor()).c_str());
        return DD_ERR_WRONG_TOKEN;
    }
    switch (code) {
        case ToCode(SingleEventCallbackCode::ON_EVENT):
            return OnDialogEventReply(data.ReadString());
        default:
            SYNT_LOGE(DEVICE_DETECT_LABEL, "revice unknown code, code is %{public}d", static_cast<int32_t>(code));
            return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
}

int32_t DialogEventCallbackStub::OnDialogEventReply(MessageParcel& data, MessageParcel& /* reply */,
                                                    MessageOption& /* option */)
{
    return OnDialogEventReply(data.ReadString());
}

int32_t DialogEventCallbackStub::OnDialogEventReply(const std::string& /* info */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "enter");
    return DD_OK;
}

}  // namespace Syntavo
}  // namespace Tavik
