#include "sim_status.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

const char* SimStatusToString(int32_t status)
{
    switch (status) {
        case SIM_OK:
            return "SIM_OK";
        case SIM_ERR_INVALID_ARGUMENT:
            return "SIM_ERR_INVALID_ARGUMENT";
        case SIM_ERR_NO_SUCH_DEVICE:
            return "SIM_ERR_NO_SUCH_DEVICE";
        case SIM_ERR_NO_SUCH_LISTENER:
            return "SIM_ERR_NO_SUCH_LISTENER";
        case SIM_ERR_NULL_CALLBACK:
            return "SIM_ERR_NULL_CALLBACK";
        case SIM_ERR_TOO_MANY_REGISTRATIONS:
            return "SIM_ERR_TOO_MANY_REGISTRATIONS";
        case SIM_ERR_NOT_REGISTERED:
            return "SIM_ERR_NOT_REGISTERED";
        case SIM_ERR_DEVICE_EXISTS:
            return "SIM_ERR_DEVICE_EXISTS";
        case SIM_ERR_WRONG_TOKEN:
            return "SIM_ERR_WRONG_TOKEN";
        case SIM_ERR_REPLY_WRITE_FAILED:
            return "SIM_ERR_REPLY_WRITE_FAILED";
        case SIM_ERR_BAD_WORLD:
            return "SIM_ERR_BAD_WORLD";
        case SIM_ERR_WORLD_FULL:
            return "SIM_ERR_WORLD_FULL";
        case SIM_ERR_NO_SCENARIO:
            return "SIM_ERR_NO_SCENARIO";
        case SIM_ERR_CONDITION_TIMEOUT:
            return "SIM_ERR_CONDITION_TIMEOUT";
        default:
            return nullptr;
    }
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
