#include "service_changed_callback_stub.h"

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "string_convert.h"
#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

ServiceChangedCallbackStub::ServiceChangedCallbackStub(uint32_t maxDeviceNum) : maxDeviceNum_(maxDeviceNum) {}

int32_t ServiceChangedCallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                    MessageOption& option)
{
    const std::u16string token = data.ReadInterfaceToken();
    if (token != IServiceChangedCallback::GetDescriptor()) {
        SYNT_LOGI(DEVICE_DETECT_LABEL, "receive wrong interface token = %{public}s, expect %{public}s",
                  Str16ToStr8(token).c_str(), Str16ToStr8(IServiceChangedCallback::GetDescriptor()).c_str());
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

int32_t ServiceChangedCallbackStub::OnDeviceEvent(MessageParcel& data, MessageParcel& /* reply */,
                                                  MessageOption& /* option */)
{
    int32_t event = 0;
    if (!data.ReadInt32(event)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_READ_FAILED;
    }
    uint32_t deviceNum = 0;
    if (!data.ReadUint32(deviceNum)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadUint32 failed");
        return DD_ERR_READ_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "deviceNum: %{public}d", static_cast<int32_t>(deviceNum));
    // Before anything is read or reserved for the entries: an inflated count
    // costs one line and no allocation.
    if (deviceNum > maxDeviceNum_) {
        return DD_ERR_READ_FAILED;
    }
    std::vector<DeviceServiceInfo> deviceServiceInfos;
    for (uint32_t i = 0; i < deviceNum; ++i) {
        // A missing entry is skipped, not fatal; a parcel that runs out reads
        // as missing entries.
        sptr<DeviceServiceInfo> deviceServiceInfo = data.ReadStrongParcelable<DeviceServiceInfo>();
        if (deviceServiceInfo == nullptr) {
            SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadStrongParcelable nullptr");
            continue;
        }
        deviceServiceInfos.push_back(*deviceServiceInfo);
    }
    return OnDeviceEvent(event, deviceServiceInfos);
}

int32_t ServiceChangedCallbackStub::OnDeviceEvent(int32_t /* event */,
                                                  std::vector<DeviceServiceInfo> /* deviceServiceInfos */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "OnDeviceEvent enter");
    return DD_OK;
}

}  // namespace Syntavo
}  // namespace Tavik
