#include "control_stub.h"

#include "peer_identity.h"
#include "peer_log.h"
#include "service_dump.h"
#include "sim_log.h"
#include "sim_protocol.h"
#include "sim_status.h"
#include "simulator.h"
#include "string_convert.h"
#include "world_json.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

int32_t Reply(MessageParcel& reply, int32_t status, const std::string& detail)
{
    return reply.WriteInt32(status) && reply.WriteString(detail) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

int32_t BadRequest(MessageParcel& reply, const char* what)
{
    return Reply(reply, SIM_ERR_INVALID_ARGUMENT, std::string("cannot read the request: ") + what);
}

}  // namespace

DeviceDetectControlStub::DeviceDetectControlStub(std::shared_ptr<Simulator> simulator)
    : IPCObjectStub(CONTROL_DESCRIPTOR), simulator_(std::move(simulator))
{
}

DeviceDetectControlStub::~DeviceDetectControlStub() = default;

int32_t DeviceDetectControlStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                 MessageOption& option)
{
    std::u16string token = data.ReadInterfaceToken();
    if (token != CONTROL_DESCRIPTOR) {
        SIM_PEER_LOG(GetCallingIdentity(), SIM_LOGE, "wrong control interface token \"%{public}s\"",
                     Str16ToStr8(token).c_str());
        return SIM_ERR_WRONG_TOKEN;
    }
    const char* name = ControlCodeToString(code);
    SIM_LOGI("control request %{public}u %{public}s", code, name != nullptr ? name : "(unknown)");
    std::string detail;
    std::string id;
    switch (static_cast<ControlCode>(code)) {
        case ControlCode::SET_DEVICE_STATE: {
            int32_t state = 0;
            if (!data.ReadString(id) || !data.ReadInt32(state)) {
                return BadRequest(reply, "device id, state");
            }
            if (state < static_cast<int32_t>(DeviceState::OFFLINE) ||
                state > static_cast<int32_t>(DeviceState::READY)) {
                return Reply(reply, SIM_ERR_INVALID_ARGUMENT, "state " + std::to_string(state) + " is not 0, 1 or 2");
            }
            int32_t status = simulator_->SetDeviceState(id, static_cast<DeviceState>(state), detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::ADD_DEVICE: {
            std::string text;
            if (!data.ReadString(text)) {
                return BadRequest(reply, "device JSON");
            }
            Device device;
            std::string error;
            if (!ParseDevice(text, device, error)) {
                return Reply(reply, SIM_ERR_BAD_WORLD, error);
            }
            int32_t status = simulator_->AddDevice(device, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::REMOVE_DEVICE: {
            if (!data.ReadString(id)) {
                return BadRequest(reply, "device id");
            }
            int32_t status = simulator_->RemoveDevice(id, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::SET_DYNAMIC_INFO: {
            std::string key;
            std::string value;
            if (!data.ReadString(id) || !data.ReadString(key) || !data.ReadString(value)) {
                return BadRequest(reply, "device id, key, value");
            }
            int32_t status = simulator_->SetDynamicInfo(id, key, value, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::NOTIFY_SERVICE_CHANGE: {
            int32_t event = 0;
            std::vector<std::string> ids;
            if (!data.ReadInt32(event) || !data.ReadStringVector(&ids) || ids.size() > MAX_DEVICES) {
                return BadRequest(reply, "event, device ids");
            }
            int32_t status = simulator_->NotifyServiceChange(event, ids, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::DELIVER: {
            bool allCodes = false;
            int32_t deliverCode = 0;
            std::string info;
            if (!data.ReadBool(allCodes) || !data.ReadInt32(deliverCode) || !data.ReadString(info)) {
                return BadRequest(reply, "all-codes flag, deliver code, info");
            }
            int32_t status = simulator_->Deliver(allCodes, deliverCode, info, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::PUBLISH_RESULT: {
            std::string pkgName;
            uint32_t eventCode = 0;
            uint32_t resultCode = 0;
            if (!data.ReadString(pkgName) || !data.ReadUint32(eventCode) || !data.ReadUint32(resultCode)) {
                return BadRequest(reply, "package name, event code, result code");
            }
            int32_t status = simulator_->PublishResult(pkgName, eventCode, resultCode, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::DIALOG_REPLY: {
            std::string text;
            if (!data.ReadString(text)) {
                return BadRequest(reply, "reply");
            }
            int32_t status = simulator_->DialogReply(text, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::DETECT_EVENT: {
            int32_t event = 0;
            if (!data.ReadString(id) || !data.ReadInt32(event)) {
                return BadRequest(reply, "device id, event");
            }
            int32_t status = simulator_->SendDetectEvent(id, event, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::GET_WORLD: {
            World world = simulator_->Snapshot();
            std::string text = WorldToJson(world);
            int32_t result = Reply(reply, SIM_OK, std::to_string(world.devices.size()) + " devices");
            return result == SIM_OK && reply.WriteString(text) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
        }
        case ControlCode::LOAD_WORLD: {
            std::string text;
            if (!data.ReadString(text)) {
                return BadRequest(reply, "world JSON");
            }
            World world;
            std::string error;
            if (!ParseWorld(text, world, error)) {
                return Reply(reply, SIM_ERR_BAD_WORLD, error);
            }
            int32_t status = simulator_->LoadWorld(world, detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::GET_REGISTRATIONS: {
            std::string text = simulator_->RegistrationsJson();
            int32_t result = Reply(reply, SIM_OK, "registrations");
            return result == SIM_OK && reply.WriteString(text) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
        }
        case ControlCode::STEP: {
            int32_t status = simulator_->Step(detail);
            return Reply(reply, status, detail);
        }
        case ControlCode::DUMP: {
            std::string text = ServiceDumpJson(*simulator_);
            int32_t result = Reply(reply, SIM_OK, "dump");
            return result == SIM_OK && reply.WriteString(text) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
        }
    }
    SIM_PEER_LOG(GetCallingIdentity(), SIM_LOGE, "unknown control code %{public}u", code);
    return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
