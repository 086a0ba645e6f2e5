// DeviceFilter: two lists of accepted codes, device types and account types.
//
// Wire layout: device types (uint32 vector), account types (uint32 vector).
// Unlike most records, reading fails (null) when either list cannot be read.
// The lists have no accessors; they are reached through the constructor,
// the wire and the two match operations.
#ifndef SYNTAVO_DEVICE_FILTER_H
#define SYNTAVO_DEVICE_FILTER_H

#include <cstdint>
#include <vector>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceFilter : public Parcelable {
public:
    DeviceFilter(std::vector<uint32_t> deviceTypes = {}, std::vector<uint32_t> accountTypes = {});
    DeviceFilter(const DeviceFilter&) = default;
    DeviceFilter& operator=(const DeviceFilter&) = default;
    ~DeviceFilter() override;

    bool Marshalling(Parcel& parcel) const override;
    static sptr<DeviceFilter> Unmarshalling(Parcel& parcel);

    // True when the code is in the list; an empty list matches nothing.
    bool isDeviceTypeMatch(uint32_t deviceType);
    bool isAccountTypeMatch(uint32_t accountType);

private:
    std::vector<uint32_t> deviceTypes_;
    std::vector<uint32_t> accountTypes_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_FILTER_H
