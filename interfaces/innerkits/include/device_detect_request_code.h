// Request codes of the device-detect service interface. The numbers are the
// wire; codes 2, 3 and 5 are not sent by any method.
#ifndef SYNTAVO_DEVICE_DETECT_REQUEST_CODE_H
#define SYNTAVO_DEVICE_DETECT_REQUEST_CODE_H

#include <cstdint>

namespace Tavik {
namespace Syntavo {

// The system ability id under which the service is published.
constexpr int32_t SYNTAVO_DEVICE_DETECT_SA_ID = 70635;

enum class DeviceDetectRequestCode : uint32_t {
    GET_TRUSTED_DEVICE_LIST = 1,
    GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER = 4,
    GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER = 6,
    REGISTER_DEV_CHANGED_CALLBACK = 7,
    UNREGISTER_DEV_CHANGED_CALLBACK = 8,
    REGISTER_CALLBACK_WITH_SERVICE_FILTER = 9,
    UNREGISTER_SERVICE_FILTER_LISTENER = 10,
    REGISTER_SERVICE_CHANGED_CALLBACK = 11,
    UNREGISTER_SERVICE_CHANGED_CALLBACK = 12,
    GET_LOCAL_DEVICE_INFO = 13,
    GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER = 14,
    GET_REMOTE_DEVICE_DYNAMIC_INFO = 15,
    QUERY_DEVICE_CONFIG_INFO = 16,
    REGISTER_SERVICE_DELIVER_CALLBACK = 17,
    SET_DIALOG_EVENT_CALLBACK = 18,
    NOTIFY_APP_DIALOG_EVENT = 19,
    REQUEST_SERVICE = 20,
    UN_REQUEST_SERVICE = 21,
    GET_DEVICE_SWITCH = 22,
    REGISTER_KEY_MOUSE_CALLBACK = 23,
    UNREGISTER_KEY_MOUSE_CALLBACK = 24,
    UPDATE_KEY_MOUSE_EDGE_SWITCH = 25,
    GET_IS_SAME_DEVICE_ACCOUNT = 26,
    GET_BIND_KEYMOUSE_SERVICE_REQ = 27,
    GET_IS_NEXT_TYPE_DEVICE = 28,
};

// Codes of the six callback interfaces (the service sends them).
enum class DeviceChangedCallbackCode : uint32_t {
    ON_DEVICE_ONLINE = 0,
    ON_DEVICE_OFFLINE = 1,
    ON_DEVICE_READY = 3,
};
enum class SingleEventCallbackCode : uint32_t {
    // The one code of the service-changed, detect, deliver, dialog and
    // publish callbacks.
    ON_EVENT = 0,
};

constexpr uint32_t ToCode(DeviceDetectRequestCode code)
{
    return static_cast<uint32_t>(code);
}
constexpr uint32_t ToCode(DeviceChangedCallbackCode code)
{
    return static_cast<uint32_t>(code);
}
constexpr uint32_t ToCode(SingleEventCallbackCode code)
{
    return static_cast<uint32_t>(code);
}

// "GET_TRUSTED_DEVICE_LIST" and so on; null for an unknown code.
const char* DeviceDetectRequestCodeToString(uint32_t code);

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_DETECT_REQUEST_CODE_H
