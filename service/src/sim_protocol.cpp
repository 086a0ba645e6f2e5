#include "sim_protocol.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

const char* ControlCodeToString(uint32_t code)
{
    switch (static_cast<ControlCode>(code)) {
        case ControlCode::SET_DEVICE_STATE:
            return "SET_DEVICE_STATE";
        case ControlCode::ADD_DEVICE:
            return "ADD_DEVICE";
        case ControlCode::REMOVE_DEVICE:
            return "REMOVE_DEVICE";
        case ControlCode::SET_DYNAMIC_INFO:
            return "SET_DYNAMIC_INFO";
        case ControlCode::NOTIFY_SERVICE_CHANGE:
            return "NOTIFY_SERVICE_CHANGE";
        case ControlCode::DELIVER:
            return "DELIVER";
        case ControlCode::PUBLISH_RESULT:
            return "PUBLISH_RESULT";
        case ControlCode::DIALOG_REPLY:
            return "DIALOG_REPLY";
        case ControlCode::DETECT_EVENT:
            return "DETECT_EVENT";
        case ControlCode::GET_WORLD:
            return "GET_WORLD";
        case ControlCode::LOAD_WORLD:
            return "LOAD_WORLD";
        case ControlCode::GET_REGISTRATIONS:
            return "GET_REGISTRATIONS";
        case ControlCode::STEP:
            return "STEP";
        case ControlCode::DUMP:
            return "DUMP";
    }
    return nullptr;
}

const char* DeviceStateToString(DeviceState state)
{
    switch (state) {
        case DeviceState::OFFLINE:
            return "offline";
        case DeviceState::ONLINE:
            return "online";
        case DeviceState::READY:
            return "ready";
    }
    return "unknown";
}

bool ParseDeviceState(const std::string& text, DeviceState& state)
{
    for (DeviceState candidate : {DeviceState::OFFLINE, DeviceState::ONLINE, DeviceState::READY}) {
        if (text == DeviceStateToString(candidate)) {
            state = candidate;
            return true;
        }
    }
    return false;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
