#include "device_changed_callback_stub.h"

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "string_convert.h"
#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

int32_t DeviceChangedCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                   MessageOption& option)
{
    const std::u16string token = data.ReadInterfaceToken();
    if (token != IDeviceChangedCallback::GetDescriptor()) {
        SYNT_LOGI(DEVICE_DETECT_LABEL, "receive wrong interface token = %{public}s, expect %{public}s",
                  Str16ToStr8(token).c_str(), Str16ToStr8(IDeviceChangedCallback::GetDescriptor()).c_str());
        return DD_ERR_WRONG_TOKEN;
    }
    switch (code) {
        case ToCode(DeviceChangedCallbackCode::ON_DEVICE_ONLINE):
            return OnDeviceOnline(data, reply, option);
        case ToCode(DeviceChangedCallbackCode::ON_DEVICE_OFFLINE):
            return OnDeviceOffline(data, reply, option);
        case ToCode(DeviceChangedCallbackCode::ON_DEVICE_READY):
            return OnDeviceReady(data, reply, option);
        default:
            SYNT_LOGE(DEVICE_DETECT_LABEL, "revice unknown code, code is %{public}d", static_cast<int32_t>(code));
            return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
}

// The three decoders differ only in the handler they call; the log prefix
// names the decoder, so each keeps its own line.
int32_t DeviceChangedCallbackStub::OnDeviceOnline(MessageParcel& data, MessageParcel& /* reply */,
                                                  MessageOption& /* option */)
{
    sptr<DeviceInfo> deviceInfo = data.ReadStrongParcelable<DeviceInfo>();
    if (deviceInfo == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "OnDeviceEvent: received deviceInfo is nullptr");
        return DD_ERR_READ_FAILED;
    }
    return OnDeviceOnline(*deviceInfo);
}

int32_t DeviceChangedCallbackStub::OnDeviceOffline(MessageParcel& data, MessageParcel& /* reply */,
                                                   MessageOption& /* option */)
{
    sptr<DeviceInfo> deviceInfo = data.ReadStrongParcelable<DeviceInfo>();
    if (deviceInfo == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "OnDeviceEvent: received deviceInfo is nullptr");
        return DD_ERR_READ_FAILED;
    }
    return OnDeviceOffline(*deviceInfo);
}

int32_t DeviceChangedCallbackStub::OnDeviceReady(MessageParcel& data, MessageParcel& /* reply */,
                                                 MessageOption& /* option */)
{
    sptr<DeviceInfo> deviceInfo = data.ReadStrongParcelable<DeviceInfo>();
    if (deviceInfo == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "OnDeviceEvent: received deviceInfo is nullptr");
        return DD_ERR_READ_FAILED;
    }
    return OnDeviceReady(*deviceInfo);
}

int32_t DeviceChangedCallbackStub::OnDeviceOnline(DeviceInfo& /* deviceInfo */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "OnDeviceOnline enter");
    return DD_OK;
}

int32_t DeviceChangedCallbackStub::OnDeviceOffline(DeviceInfo& /* deviceInfo */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "OnDeviceOffline enter");
    return DD_OK;
}

int32_t DeviceChangedCallbackStub::OnDeviceReady(DeviceInfo& /* deviceInfo */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "OnDeviceReady enter");
    return DD_OK;
}

}  // namespace Syntavo
}  // namespace Tavik
