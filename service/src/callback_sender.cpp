#include "callback_sender.h"

#include "device_detect_descriptors.h"
#include "device_detect_status.h"
#include "device_info.h"
#include "device_service_info.h"
#include "ipc_status.h"
#include "message_option.h"
#include "message_parcel.h"
#include "publish_event_info.h"
#include "sim_log.h"
#include "sim_protocol.h"
#include "sim_status.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

// Writes the token, lets `body` write the layout, sends `code`.
template <typename Body>
int32_t Send(const sptr<IRemoteObject>& target, const char16_t* descriptor, uint32_t code, Body body)
{
    if (target == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    MessageParcel data;
    MessageParcel reply;
    MessageOption option(MessageOption::TF_SYNC, CALLBACK_WAIT_SECONDS);
    if (!data.WriteInterfaceToken(descriptor) || !body(data)) {
        SIM_LOGE("cannot write callback %{public}s code %{public}u", Str16ToStr8(descriptor).c_str(), code);
        return SIM_ERR_REPLY_WRITE_FAILED;
    }
    int32_t result = target->SendRequest(code, data, reply, option);
    if (result != 0) {
        // A client stub's own status (1001, 1010, ...) or the transport's.
        const char* name = DeviceDetectStatusToString(result);
        name = name != nullptr ? name : IpcStatusToString(result);
        SIM_LOGW("callback %{public}s code %{public}u returned %{public}d (%{public}s)",
                 Str16ToStr8(descriptor).c_str(), code, result, name);
    }
    return result;
}

}  // namespace

int32_t SendDeviceChanged(const sptr<IRemoteObject>& target, DeviceChangedCallbackCode code, const DeviceInfo& device)
{
    return Send(target, Descriptor::DEVICE_CHANGED_CALLBACK, ToCode(code),
                [&](MessageParcel& data) { return data.WriteParcelable(&device); });
}

int32_t SendServiceChanged(const sptr<IRemoteObject>& target, int32_t event,
                           const std::vector<DeviceServiceInfo>& services)
{
    return Send(target, Descriptor::SERVICE_CHANGED_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                [&](MessageParcel& data) {
                    if (!data.WriteInt32(event) || !data.WriteUint32(static_cast<uint32_t>(services.size()))) {
                        return false;
                    }
                    for (const DeviceServiceInfo& service : services) {
                        if (!data.WriteParcelable(&service)) {
                            return false;
                        }
                    }
                    return true;
                });
}

int32_t SendDetectEvent(const sptr<IRemoteObject>& target, int32_t event, const DeviceInfo& device)
{
    return Send(target, Descriptor::DEVICE_DETECT_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                [&](MessageParcel& data) { return data.WriteInt32(event) && data.WriteParcelable(&device); });
}

int32_t SendDeliver(const sptr<IRemoteObject>& target, const std::string& info)
{
    return Send(target, Descriptor::SERVICE_DELIVER_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                [&](MessageParcel& data) { return data.WriteString(info); });
}

int32_t SendDialogReply(const sptr<IRemoteObject>& target, const std::string& info)
{
    return Send(target, Descriptor::DIALOG_EVENT_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                [&](MessageParcel& data) { return data.WriteString(info); });
}

int32_t SendPublishEvent(const sptr<IRemoteObject>& target, const RequestResultInfo& info)
{
    return Send(target, Descriptor::SERVICE_PUBLISH_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                [&](MessageParcel& data) { return data.WriteParcelable(&info); });
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
