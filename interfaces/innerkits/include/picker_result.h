// PickerResult: the outcome of the device picker, and the home of the log
// anonymiser StringToAnonymous.
//
// Wire layout: ability filter, device info, local info, each as a strong
// parcelable (int32 presence, then the record). Reading requires all three.
//
// A PickerResult shares its members: a copy holds the same three records,
// not copies of them. The member accessors are not synchronised; fill a
// result on one thread before sharing it.
#ifndef SYNTAVO_PICKER_RESULT_H
#define SYNTAVO_PICKER_RESULT_H

#include <string>
#include <utility>

#include "ability_filter.h"
#include "device_info.h"
#include "local_info.h"
#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class PickerResult : public Parcelable {
public:
    PickerResult();
    PickerResult(const PickerResult&) = default;
    PickerResult& operator=(const PickerResult&) = default;
    ~PickerResult() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null when the allocation fails or when any member is absent or
    // unreadable.
    static sptr<PickerResult> Unmarshalling(Parcel& parcel);

    sptr<AbilityFilter> GetAbilityFilter() { return abilityFilter_; }
    void SetAbilityFilter(sptr<AbilityFilter> abilityFilter) { abilityFilter_ = std::move(abilityFilter); }
    sptr<DeviceInfo> GetDeviceInfo() { return deviceInfo_; }
    void SetDeviceInfo(sptr<DeviceInfo> deviceInfo) { deviceInfo_ = std::move(deviceInfo); }
    sptr<LocalInfo> GetLocalDeviceInfo() { return localInfo_; }
    void SetLocalDeviceInfo(sptr<LocalInfo> localInfo) { localInfo_ = std::move(localInfo); }

    // Masks an identifier for the log: the first three bytes, "****", the
    // last three bytes (ten bytes, head and tail overlapping for inputs of 3
    // to 5 bytes); "****" alone for inputs shorter than three bytes. Works
    // on bytes, so a multi-byte character at either end is cut.
    static std::string StringToAnonymous(const std::string& str);

private:
    sptr<AbilityFilter> abilityFilter_;
    sptr<DeviceInfo> deviceInfo_;
    sptr<LocalInfo> localInfo_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_PICKER_RESULT_H
