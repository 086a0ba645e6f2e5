#include "control_client.h"

#include <functional>

#include "ipc_status.h"
#include "message_option.h"
#include "message_parcel.h"
#include "sim_status.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

ControlResult Call(const sptr<IRemoteObject>& service, ControlCode code,
                   const std::function<bool(MessageParcel&)>& body, bool withJson = false)
{
    ControlResult result;
    if (service == nullptr) {
        result.status = IPC_ERR_NOT_CONNECTED;
        result.detail = "no service object";
        return result;
    }
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    if (!data.WriteInterfaceToken(CONTROL_DESCRIPTOR) || !body(data)) {
        result.status = SIM_ERR_INVALID_ARGUMENT;
        result.detail = "the request is too large to send";
        return result;
    }
    int32_t sent = service->SendRequest(ToCode(code), data, reply, option);
    if (sent != 0) {
        result.status = sent;
        const char* name = SimStatusToString(sent);
        result.detail =
            std::string("the control request failed: ") + (name != nullptr ? name : IpcStatusToString(sent));
        return result;
    }
    if (!reply.ReadInt32(result.status) || !reply.ReadString(result.detail) ||
        (withJson && result.status == SIM_OK && !reply.ReadString(result.json))) {
        result.status = IPC_ERR_INVALID_DATA;
        result.detail = "the service's reply cannot be read";
    }
    return result;
}

}  // namespace

ControlResult ControlClient::SetDeviceState(const std::string& id, DeviceState state)
{
    return Call(service_, ControlCode::SET_DEVICE_STATE, [&](MessageParcel& data) {
        return data.WriteString(id) && data.WriteInt32(static_cast<int32_t>(state));
    });
}

ControlResult ControlClient::AddDevice(const std::string& deviceJson)
{
    return Call(service_, ControlCode::ADD_DEVICE, [&](MessageParcel& data) { return data.WriteString(deviceJson); });
}

ControlResult ControlClient::RemoveDevice(const std::string& id)
{
    return Call(service_, ControlCode::REMOVE_DEVICE, [&](MessageParcel& data) { return data.WriteString(id); });
}

ControlResult ControlClient::SetDynamicInfo(const std::string& id, const std::string& key, const std::string& value)
{
    return Call(service_, ControlCode::SET_DYNAMIC_INFO, [&](MessageParcel& data) {
        return data.WriteString(id) && data.WriteString(key) && data.WriteString(value);
    });
}

ControlResult ControlClient::NotifyServiceChange(int32_t event, const std::vector<std::string>& ids)
{
    return Call(service_, ControlCode::NOTIFY_SERVICE_CHANGE,
                [&](MessageParcel& data) { return data.WriteInt32(event) && data.WriteStringVector(ids); });
}

ControlResult ControlClient::Deliver(bool allCodes, int32_t deliverCode, const std::string& info)
{
    return Call(service_, ControlCode::DELIVER, [&](MessageParcel& data) {
        return data.WriteBool(allCodes) && data.WriteInt32(deliverCode) && data.WriteString(info);
    });
}

ControlResult ControlClient::PublishResult(const std::string& pkgName, uint32_t eventCode, uint32_t resultCode)
{
    return Call(service_, ControlCode::PUBLISH_RESULT, [&](MessageParcel& data) {
        return data.WriteString(pkgName) && data.WriteUint32(eventCode) && data.WriteUint32(resultCode);
    });
}

ControlResult ControlClient::DialogReply(const std::string& reply)
{
    return Call(service_, ControlCode::DIALOG_REPLY, [&](MessageParcel& data) { return data.WriteString(reply); });
}

ControlResult ControlClient::DetectEvent(const std::string& id, int32_t event)
{
    return Call(service_, ControlCode::DETECT_EVENT,
                [&](MessageParcel& data) { return data.WriteString(id) && data.WriteInt32(event); });
}

ControlResult ControlClient::GetWorld()
{
    return Call(
        service_, ControlCode::GET_WORLD, [](MessageParcel&) { return true; }, true);
}

ControlResult ControlClient::LoadWorld(const std::string& worldJson)
{
    return Call(service_, ControlCode::LOAD_WORLD, [&](MessageParcel& data) { return data.WriteString(worldJson); });
}

ControlResult ControlClient::GetRegistrations()
{
    return Call(
        service_, ControlCode::GET_REGISTRATIONS, [](MessageParcel&) { return true; }, true);
}

ControlResult ControlClient::Dump()
{
    return Call(
        service_, ControlCode::DUMP, [](MessageParcel&) { return true; }, true);
}

ControlResult ControlClient::Step()
{
    return Call(service_, ControlCode::STEP, [](MessageParcel&) { return true; });
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
