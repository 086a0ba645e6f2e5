// AbilityFilter: the ability a caller looks for when it narrows a trusted
// device query or a device-change registration.
//
// Wire layout: bundle name, ability type, ability description (strings),
// device type, account type (uint32), action (string). The action travels
// last although the constructor does not take it; it is set with SetAction.
//
// This header also brings in the other records implemented next to
// AbilityFilter (see the end of the file), so that including it gives all
// seven.
#ifndef SYNTAVO_ABILITY_FILTER_H
#define SYNTAVO_ABILITY_FILTER_H

#include <cstdint>
#include <string>
#include <utility>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class AbilityFilter : public Parcelable {
public:
    AbilityFilter(std::string bundleName = "", std::string abilityType = "", std::string abilityDescription = "",
                  uint32_t deviceType = 0, uint32_t accountType = 0);
    AbilityFilter(const AbilityFilter&) = default;
    AbilityFilter& operator=(const AbilityFilter&) = default;
    ~AbilityFilter() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null only when the allocation fails.
    static sptr<AbilityFilter> Unmarshalling(Parcel& parcel);

    std::string GetBundleName() const { return bundleName_; }
    void SetBundleName(std::string bundleName) { bundleName_ = std::move(bundleName); }
    std::string GetAbilityType() const { return abilityType_; }
    void SetAbilityType(std::string abilityType) { abilityType_ = std::move(abilityType); }
    std::string GetAbilityDescription() const { return abilityDescription_; }
    void SetAbilityDescription(std::string abilityDescription) { abilityDescription_ = std::move(abilityDescription); }
    uint32_t GetDeviceType() const { return deviceType_; }
    void SetDeviceType(uint32_t deviceType) { deviceType_ = deviceType; }
    uint32_t GetAccountType() const { return accountType_; }
    void SetAccountType(uint32_t accountType) { accountType_ = accountType; }
    std::string GetAction() const { return action_; }
    void SetAction(std::string action) { action_ = std::move(action); }

private:
    std::string bundleName_;
    std::string abilityType_;
    std::string abilityDescription_;
    uint32_t deviceType_;
    uint32_t accountType_;
    std::string action_;
};

}  // namespace Syntavo
}  // namespace Tavik

#include "device_filter.h"
#include "device_info.h"
#include "device_service_info.h"
#include "local_info.h"
#include "picker_result.h"
#include "service_filter.h"

#endif  // SYNTAVO_ABILITY_FILTER_H
