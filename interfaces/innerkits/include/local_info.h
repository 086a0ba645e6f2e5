// LocalInfo: the local side of a device pick (ability, bundle, device id,
// module, device type).
//
// Wire layout: ability name, bundle name, device id, module name (strings),
// device type (uint32).
#ifndef SYNTAVO_LOCAL_INFO_H
#define SYNTAVO_LOCAL_INFO_H

#include <cstdint>
#include <string>
#include <utility>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class LocalInfo : public Parcelable {
public:
    LocalInfo(std::string localAbilityName = "", std::string localBundleName = "", std::string localDeviceId = "",
              std::string localModuleName = "", uint32_t localDeviceType = 0);
    LocalInfo(const LocalInfo&) = default;
    LocalInfo& operator=(const LocalInfo&) = default;
    ~LocalInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null only when the allocation fails.
    static sptr<LocalInfo> Unmarshalling(Parcel& parcel);

    std::string GetLocalAbilityName() const { return localAbilityName_; }
    void SetLocalAbilityName(std::string name) { localAbilityName_ = std::move(name); }
    std::string GetLocalBundleName() const { return localBundleName_; }
    void SetLocalBundleName(std::string name) { localBundleName_ = std::move(name); }
    std::string GetLocalDeviceId() const { return localDeviceId_; }
    void SetLocalDeviceId(std::string deviceId) { localDeviceId_ = std::move(deviceId); }
    std::string GetLocalModuleName() const { return localModuleName_; }
    void SetLocalModuleName(std::string name) { localModuleName_ = std::move(name); }
    uint32_t GetLocalDeviceType() const { return localDeviceType_; }
    void SetLocalDeviceType(uint32_t deviceType) { localDeviceType_ = deviceType; }

private:
    std::string localAbilityName_;
    std::string localBundleName_;
    std::string localDeviceId_;
    std::string localModuleName_;
    uint32_t localDeviceType_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_LOCAL_INFO_H
