#include "device_detect_callback_stub.h"

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "string_convert.h"
#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

int32_t DeviceDetectCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                  MessageOption& option)
{
    const std::u16string token = data.ReadInterfaceToken();
    if (token != IDeviceDetectCallback::GetDescriptor()) {
        SYNT_LOGI(DEVICE_DETECT_LABEL, "receive wrong interface token = %{public}s, expect %{public}s",
                  Str16ToStr8(token).c_str(), Str16ToStr8(IDeviceDetectCallback::GetDescriptor()).c_str());
        return DD_ERR_WRONG_TOKEN;
    }
    switch (code) {
        case ToCode(SingleEventCallbackCode::ON_EVENT):
            return OnDeviceEvent(data, reply, option);
        default:
            SYNT_LOGE(DEVICE_DETECT_LABEL, "revice unknown code, code is %{public}d", static_cast<int32_t>(code));
            return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
}

int32_t DeviceDetectCallbackStub::OnDeviceEvent(MessageParcel& data, MessageParcel& /* reply */,
                                                MessageOption& /* option */)
{
    // A missing event reads as 0; only the record is required.
    int32_t event = data.ReadInt32();
    sptr<DeviceInfo> deviceInfo = data.ReadStrongParcelable<DeviceInfo>();
    if (deviceInfo == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "OnDeviceEvent: received deviceInfo is nullptr");
        return DD_ERR_READ_FAILED;
    }
    return OnDeviceEvent(event, deviceInfo);
}

int32_t DeviceDetectCallbackStub::OnDeviceEvent(int32_t /* event */, sptr<DeviceInfo> /* deviceInfo */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "OnDeviceEvent enter");
    return DD_OK;
}

}  // namespace Syntavo
}  // namespace Tavik
