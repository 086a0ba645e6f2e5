// The world file: parsing with a message that names the offending field
// (for example "devices[2].type: unknown device type name \"FOO\""), and
// writing back. docs/simulator.md has the schema.
#ifndef SYNTAVO_SIM_WORLD_JSON_H
#define SYNTAVO_SIM_WORLD_JSON_H

#include <cstdint>
#include <string>
#include <vector>

#include "world.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

// On failure `world` is unchanged and `error` names the field and the fault.
bool ParseWorld(const std::string& text, World& world, std::string& error);
// Reads a whole file into `text`; on failure `error` says which file.
bool ReadTextFile(const std::string& path, std::string& text, std::string& error);
// Reads a whole file; the error then also says when the file cannot be read.
bool LoadWorldFile(const std::string& path, World& world, std::string& error);
// One entry of "devices"; `error` names fields relative to the entry.
bool ParseDevice(const std::string& text, Device& device, std::string& error);

std::string WorldToJson(const World& world, int indent = 2);
std::string DeviceToJson(const Device& device, int indent = -1);

// "PHONE" for 14 and so on (the table of ServiceFilter::ConvertDeviceType,
// read through it); the decimal code for codes outside the table.
std::string DeviceTypeName(uint32_t type);
// Accepts a name of the table or a decimal code.
bool ParseDeviceType(const std::string& text, uint32_t& type);
// The codes that have a name, in the table's order.
const std::vector<uint32_t>& KnownDeviceTypes();

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_WORLD_JSON_H
