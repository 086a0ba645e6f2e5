#include "record_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

DeviceInfo ToDeviceInfo(const Device& device)
{
    return DeviceInfo(device.udid, device.networkId, device.name, device.type);
}

DeviceInfo ToDeviceInfo(const LocalDevice& local)
{
    return DeviceInfo(local.udid, local.networkId, local.name, local.type);
}

DeviceServiceInfo ToDeviceServiceInfo(const Device& device)
{
    // A watcher wants to see what the device offers: without rules of its
    // own, the service names stand in the rule list.
    const std::vector<std::string>& rules = device.serviceRules.empty() ? device.services : device.serviceRules;
    return DeviceServiceInfo(device.name, device.type, device.hashId, device.udid, rules, device.networkId,
                             device.brMac, device.extraInfo);
}

sptr<AbilityFilter> ToAbilityFilter(const Device& device, const Ability& ability)
{
    sptr<AbilityFilter> filter = sptr<AbilityFilter>::MakeSptr(ability.bundleName, ability.abilityType,
                                                               ability.description, device.type, device.accountType);
    if (filter != nullptr) {
        filter->SetAction(ability.action);
    }
    return filter;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
