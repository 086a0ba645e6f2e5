// The simulated world: the local device and the trusted devices, as plain
// values. A World is loaded from JSON (world_json.h) or built in
// (DefaultWorld), then owned by a Simulator, which changes it under its lock.
#ifndef SYNTAVO_SIM_WORLD_H
#define SYNTAVO_SIM_WORLD_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sim_protocol.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

// One ability a device offers; matched field by field against the
// AbilityFilter of a query or a listener.
struct Ability {
    std::string bundleName;
    std::string abilityType;
    std::string description;
    std::string action;
};

struct DeviceConfig {
    std::string modelId;
    // Sent to clients as it stands; the world file may give it as a JSON
    // value (serialised here) or as a string.
    std::string json;
    uint32_t supportFoldScreen = 0;
};

struct Device {
    std::string udid;
    std::string networkId;
    std::string name;
    uint32_t type = 0;         // device type code (PHONE = 14, PAD = 17, ...)
    uint32_t accountType = 0;  // the simulator's convention: 0 none, 1 same account, 2 other account
    DeviceState state = DeviceState::OFFLINE;
    bool sameAccount = false;           // answer to GetIsSameDeviceAccount
    bool nextType = false;              // answer to GetIsNextTypeDevice
    int32_t switchStatus = 0;           // answer to GetDeviceSwitch
    std::vector<std::string> services;  // service names, matched by ServiceFilter
    std::vector<Ability> abilities;
    std::map<std::string, std::string> dynamicInfo;
    DeviceConfig config;
    // Extra fields of the DeviceServiceInfo records of service-changed events.
    std::string hashId;
    std::string brMac;
    std::string extraInfo;
    std::vector<std::string> serviceRules;

    bool IsOnline() const { return state != DeviceState::OFFLINE; }
};

struct LocalDevice {
    std::string udid;
    std::string networkId;
    std::string name;
    uint32_t type = 0;
};

struct World {
    LocalDevice local;
    std::vector<Device> devices;
    // Text sent to dialog callbacks when an application notifies a dialog
    // event; "{event}" in it is replaced by the event's text.
    std::string dialogReply = "{\"event\":{event},\"reply\":\"confirm\"}";
};

// Eight trusted devices of different types (pad, TV, car, watch, PC, 2-in-1,
// smart display, camera), five of them online, around a local phone.
World DefaultWorld();

// Index of the device whose udid or network id is `id`; -1 when none.
int FindDevice(const World& world, const std::string& id);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_WORLD_H
