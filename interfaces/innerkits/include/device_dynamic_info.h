// DeviceDynamicInfo: one key and value pair of a remote device's dynamic
// information. Fixed at construction: there are no setters.
//
// Wire layout: key (string), value (string).
#ifndef SYNTAVO_DEVICE_DYNAMIC_INFO_H
#define SYNTAVO_DEVICE_DYNAMIC_INFO_H

#include <string>
#include <utility>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceDynamicInfo : public Parcelable {
public:
    DeviceDynamicInfo(std::string key = "", std::string value = "");
    DeviceDynamicInfo(const DeviceDynamicInfo&) = default;
    DeviceDynamicInfo& operator=(const DeviceDynamicInfo&) = default;
    ~DeviceDynamicInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null only when the allocation fails.
    static sptr<DeviceDynamicInfo> Unmarshalling(Parcel& parcel);

    std::string GetKey() const { return key_; }
    std::string GetValue() const { return value_; }

private:
    std::string key_;
    std::string value_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_DYNAMIC_INFO_H
