// The simulator's own protocol: the control interface that changes the
// world, the device states, and the event numbers that the service puts into
// the callbacks it sends (the client library passes them through without
// interpreting them). docs/simulator.md describes each request.
#ifndef SYNTAVO_SIM_PROTOCOL_H
#define SYNTAVO_SIM_PROTOCOL_H

#include <cstdint>
#include <string>

namespace Tavik {
namespace Syntavo {
namespace Sim {

// Interface token of control requests. They go to the same remote object as
// the service's requests (system ability 70635); the token tells them apart.
constexpr const char16_t* CONTROL_DESCRIPTOR = u"Tavik.Syntavo.IDeviceDetectControl";

// Control request codes. Every reply starts with int32 status and a string
// detail (a human-readable sentence); GET_WORLD, GET_REGISTRATIONS and DUMP add one
// JSON string. Request layouts, after the token:
enum class ControlCode : uint32_t {
    SET_DEVICE_STATE = 1,       // string deviceId, int32 DeviceState
    ADD_DEVICE = 2,             // string device JSON (one entry of "devices")
    REMOVE_DEVICE = 3,          // string deviceId
    SET_DYNAMIC_INFO = 4,       // string deviceId, string key, string value
    NOTIFY_SERVICE_CHANGE = 5,  // int32 event, string vector deviceIds (empty: every online device)
    DELIVER = 6,                // bool all codes, int32 deliverCode, string info
    PUBLISH_RESULT = 7,         // string pkgName (empty: every request), uint32 eventCode, uint32 resultCode
    DIALOG_REPLY = 8,           // string reply
    DETECT_EVENT = 9,           // string deviceId, int32 event
    GET_WORLD = 10,             // nothing; reply adds the world as JSON
    LOAD_WORLD = 11,            // string world JSON; replaces devices, keeps registrations
    GET_REGISTRATIONS = 12,     // nothing; reply adds the registrations as JSON
    STEP = 13,                  // nothing; plays the next step of a scenario in step mode
    DUMP = 14,                  // nothing; reply adds the service's state as JSON (docs/dump.md)
};

constexpr uint32_t ToCode(ControlCode code)
{
    return static_cast<uint32_t>(code);
}
// "SET_DEVICE_STATE" and so on; null for an unknown code.
const char* ControlCodeToString(uint32_t code);

// A trusted device is listed (and matched by listeners) while it is online
// or ready; ready implies online.
enum class DeviceState : int32_t {
    OFFLINE = 0,
    ONLINE = 1,
    READY = 2,
};
// "offline", "online", "ready"; "unknown" otherwise.
const char* DeviceStateToString(DeviceState state);
// Accepts the three names above; false for anything else.
bool ParseDeviceState(const std::string& text, DeviceState& state);

// Event numbers of the service-changed callback.
enum class ServiceChangeEvent : int32_t {
    DEVICE_ONLINE = 1,     // the listed devices came online with their services
    DEVICE_OFFLINE = 2,    // the listed devices went offline
    SERVICES_CHANGED = 3,  // a control request announced a change
};

// Event numbers of the device-detect callback.
enum class DetectEvent : int32_t {
    FOUND = 1,  // a device that passes the session's filter came online
    LOST = 2,   // such a device went offline
};

// Event codes of the publish callback's RequestResultInfo; the result code
// is 0 for success.
enum class PublishEvent : uint32_t {
    REQUESTED = 1,  // RequestService was accepted
    WITHDRAWN = 2,  // UnRequestService removed the request
};

// Upper bound of every registration table (listeners, callbacks, requests).
constexpr size_t MAX_REGISTRATIONS = 256;
// The largest device list a client accepts, hence the largest world.
constexpr size_t MAX_DEVICES = 1024;
// The largest number of filters or keys a request may carry.
constexpr uint32_t MAX_REQUEST_ITEMS = 1024;

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_PROTOCOL_H
