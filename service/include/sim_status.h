// Status values of the reference service (devicedetectd and the embedded
// simulator).
//
// They travel in two places: as the int32 status of a reply whose layout has
// one (registrations, removals, service requests, key-mouse requests, every
// control request), and as the result of OnRemoteRequest for a request whose
// reply has no status field (the caller then sees its SendRequest fail). They
// start at 3000 so that they never collide with the client library's own
// values (1001..1023, 2202, -1) or with the platform's negative IPC values.
#ifndef SYNTAVO_SIM_STATUS_H
#define SYNTAVO_SIM_STATUS_H

#include <cstdint>

namespace Tavik {
namespace Syntavo {
namespace Sim {

enum SimStatus : int32_t {
    // The request was carried out.
    SIM_OK = 0,
    // A request argument was missing or could not be decoded (an absent
    // filter record, a truncated string, a count past the limit, a
    // deliver code that is not a decimal number, ...).
    SIM_ERR_INVALID_ARGUMENT = 3001,
    // No device of the world has the given udid or network id.
    SIM_ERR_NO_SUCH_DEVICE = 3002,
    // No listener with that id is registered through this request's kind
    // (an ability-filter id given to the service-filter removal, say).
    SIM_ERR_NO_SUCH_LISTENER = 3003,
    // The request's remote object was missing.
    SIM_ERR_NULL_CALLBACK = 3004,
    // The registration table is full (see MAX_REGISTRATIONS).
    SIM_ERR_TOO_MANY_REGISTRATIONS = 3005,
    // Nothing was registered under the given package name or caller id.
    SIM_ERR_NOT_REGISTERED = 3006,
    // A device with the same udid or network id is already in the world.
    SIM_ERR_DEVICE_EXISTS = 3007,
    // The interface token matched neither the service's nor the control
    // interface's descriptor.
    SIM_ERR_WRONG_TOKEN = 3008,
    // The reply could not be written (it would exceed the parcel's limit).
    SIM_ERR_REPLY_WRITE_FAILED = 3009,
    // A world or device description is not valid JSON or breaks the schema;
    // the reply's detail text names the field.
    SIM_ERR_BAD_WORLD = 3010,
    // The world already holds the maximum number of devices (1024, the
    // largest list a client accepts).
    SIM_ERR_WORLD_FULL = 3011,
    // A step was asked for, but no scenario is waiting in step mode, or its
    // last step has been played.
    SIM_ERR_NO_SCENARIO = 3012,
    // A scenario step's condition ("until") did not hold within its timeout.
    SIM_ERR_CONDITION_TIMEOUT = 3013,
};

// "SIM_ERR_NO_SUCH_DEVICE" and so on; null for any other value.
const char* SimStatusToString(int32_t status);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_STATUS_H
