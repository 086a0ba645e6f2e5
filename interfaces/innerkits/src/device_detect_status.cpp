#include "device_detect_status.h"
#include "device_detect_request_code.h"

namespace Tavik {
namespace Syntavo {

const char* DeviceDetectStatusToString(int32_t status)
{
    switch (status) {
        case DD_OK:
            return "DD_OK";
        case DD_FAILED:
            return "DD_FAILED";
        case DD_ERR_READ_FAILED:
            return "DD_ERR_READ_FAILED";
        case DD_ERR_WRITE_TOKEN_FAILED:
            return "DD_ERR_WRITE_TOKEN_FAILED";
        case DD_ERR_WRITE_ARG_FAILED:
            return "DD_ERR_WRITE_ARG_FAILED";
        case DD_ERR_SEND_REQUEST_FAILED:
            return "DD_ERR_SEND_REQUEST_FAILED";
        case DD_ERR_WRONG_TOKEN:
            return "DD_ERR_WRONG_TOKEN";
        case DD_ERR_WRITE_OBJECT_FAILED:
            return "DD_ERR_WRITE_OBJECT_FAILED";
        case DD_ERR_RECORD_MISSING:
            return "DD_ERR_RECORD_MISSING";
        case DD_ERR_WRITE_PARAM_FAILED:
            return "DD_ERR_WRITE_PARAM_FAILED";
        case DD_ERR_READ_REPLY_FAILED:
            return "DD_ERR_READ_REPLY_FAILED";
        case DD_ERR_DEVICE_NUM_EXCEEDED:
            return "DD_ERR_DEVICE_NUM_EXCEEDED";
        case DD_ERR_RESULT_COUNT_MISMATCH:
            return "DD_ERR_RESULT_COUNT_MISMATCH";
        default:
            return nullptr;
    }
}

const char* DeviceDetectRequestCodeToString(uint32_t code)
{
    switch (static_cast<DeviceDetectRequestCode>(code)) {
        case DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST:
            return "GET_TRUSTED_DEVICE_LIST";
        case DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER:
            return "GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER";
        case DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER:
            return "GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER";
        case DeviceDetectRequestCode::REGISTER_DEV_CHANGED_CALLBACK:
            return "REGISTER_DEV_CHANGED_CALLBACK";
        case DeviceDetectRequestCode::UNREGISTER_DEV_CHANGED_CALLBACK:
            return "UNREGISTER_DEV_CHANGED_CALLBACK";
        case DeviceDetectRequestCode::REGISTER_CALLBACK_WITH_SERVICE_FILTER:
            return "REGISTER_CALLBACK_WITH_SERVICE_FILTER";
        case DeviceDetectRequestCode::UNREGISTER_SERVICE_FILTER_LISTENER:
            return "UNREGISTER_SERVICE_FILTER_LISTENER";
        case DeviceDetectRequestCode::REGISTER_SERVICE_CHANGED_CALLBACK:
            return "REGISTER_SERVICE_CHANGED_CALLBACK";
        case DeviceDetectRequestCode::UNREGISTER_SERVICE_CHANGED_CALLBACK:
            return "UNREGISTER_SERVICE_CHANGED_CALLBACK";
        case DeviceDetectRequestCode::GET_LOCAL_DEVICE_INFO:
            return "GET_LOCAL_DEVICE_INFO";
        case DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER:
            return "GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER";
        case DeviceDetectRequestCode::GET_REMOTE_DEVICE_DYNAMIC_INFO:
            return "GET_REMOTE_DEVICE_DYNAMIC_INFO";
        case DeviceDetectRequestCode::QUERY_DEVICE_CONFIG_INFO:
            return "QUERY_DEVICE_CONFIG_INFO";
        case DeviceDetectRequestCode::REGISTER_SERVICE_DELIVER_CALLBACK:
            return "REGISTER_SERVICE_DELIVER_CALLBACK";
        case DeviceDetectRequestCode::SET_DIALOG_EVENT_CALLBACK:
            return "SET_DIALOG_EVENT_CALLBACK";
        case DeviceDetectRequestCode::NOTIFY_APP_DIALOG_EVENT:
            return "NOTIFY_APP_DIALOG_EVENT";
        case DeviceDetectRequestCode::REQUEST_SERVICE:
            return "REQUEST_SERVICE";
        case DeviceDetectRequestCode::UN_REQUEST_SERVICE:
            return "UN_REQUEST_SERVICE";
        case DeviceDetectRequestCode::GET_DEVICE_SWITCH:
            return "GET_DEVICE_SWITCH";
        case DeviceDetectRequestCode::REGISTER_KEY_MOUSE_CALLBACK:
            return "REGISTER_KEY_MOUSE_CALLBACK";
        case DeviceDetectRequestCode::UNREGISTER_KEY_MOUSE_CALLBACK:
            return "UNREGISTER_KEY_MOUSE_CALLBACK";
        case DeviceDetectRequestCode::UPDATE_KEY_MOUSE_EDGE_SWITCH:
            return "UPDATE_KEY_MOUSE_EDGE_SWITCH";
        case DeviceDetectRequestCode::GET_IS_SAME_DEVICE_ACCOUNT:
            return "GET_IS_SAME_DEVICE_ACCOUNT";
        case DeviceDetectRequestCode::GET_BIND_KEYMOUSE_SERVICE_REQ:
            return "GET_BIND_KEYMOUSE_SERVICE_REQ";
        case DeviceDetectRequestCode::GET_IS_NEXT_TYPE_DEVICE:
            return "GET_IS_NEXT_TYPE_DEVICE";
    }
    return nullptr;
}

}  // namespace Syntavo
}  // namespace Tavik
