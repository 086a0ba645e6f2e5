// World values to the client library's records.
#ifndef SYNTAVO_SIM_RECORD_CONVERT_H
#define SYNTAVO_SIM_RECORD_CONVERT_H

#include "ability_filter.h"
#include "device_info.h"
#include "device_service_info.h"
#include "world.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

DeviceInfo ToDeviceInfo(const Device& device);
DeviceInfo ToDeviceInfo(const LocalDevice& local);
DeviceServiceInfo ToDeviceServiceInfo(const Device& device);
// The ability as the filter record a client receives: the device's own type
// and account type in the numeric fields.
sptr<AbilityFilter> ToAbilityFilter(const Device& device, const Ability& ability);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_RECORD_CONVERT_H
