#include "service_publish_callback_stub.h"

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "string_convert.h"
#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

int32_t ServicePublishCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                    MessageOption& option)
{
    const std::u16string token = data.ReadInterfaceToken();
    if (token != IServicePublishCallback::GetDescriptor()) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "receive wrong interface token = %{public}s, expect %{public}s",
                  Str16ToStr8(token).c_str(), Str16ToStr8(IServicePublishCallback::GetDescriptor()).c_str());
        return DD_ERR_WRONG_TOKEN;
    }
    switch (code) {
        case ToCode(SingleEventCallbackCode::ON_EVENT):
            return OnPublishEvent(data, reply, option);
        default:
            SYNT_LOGE(DEVICE_DETECT_LABEL, "revice unknown code, code is %{public}d", static_cast<int32_t>(code));
            return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
}

int32_t ServicePublishCallbackStub::OnPublishEvent(MessageParcel& data, MessageParcel& /* reply */,
                                                   MessageOption& /* option */)
{
    sptr<RequestResultInfo> info = data.ReadStrongParcelable<RequestResultInfo>();
    if (info == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "OnDeviceEvent: received info is nullptr");
        return DD_ERR_READ_FAILED;
    }
    return OnPublishEvent(info);
}

int32_t ServicePublishCallbackStub::OnPublishEvent(sptr<RequestResultInfo> /* info */)
{
    return DD_OK;
}

}  // namespace Syntavo
}  // namespace Tavik
