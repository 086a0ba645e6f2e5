// DeviceInfo: one device as the service reports it.
//
// Wire layout: udid (string), network id (string), device name (string),
// device type (uint32). Records are values: a copy shares nothing with its
// source and starts with its own reference counts.
#ifndef SYNTAVO_DEVICE_INFO_H
#define SYNTAVO_DEVICE_INFO_H

#include <cstdint>
#include <string>
#include <utility>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceInfo : public Parcelable {
public:
    DeviceInfo(std::string udid = "", std::string networkId = "", std::string deviceName = "", uint32_t deviceType = 0);
    DeviceInfo(const DeviceInfo&) = default;
    DeviceInfo& operator=(const DeviceInfo&) = default;
    ~DeviceInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // Never fails on a short parcel (missing fields read as empty or 0); null
    // only when the allocation fails.
    static sptr<DeviceInfo> Unmarshalling(Parcel& parcel);

    std::string GetDeviceUdid() const { return udid_; }
    void SetDeviceUdid(std::string udid) { udid_ = std::move(udid); }
    std::string GetDeviceNetworkId() const { return networkId_; }
    void SetDeviceNetworkId(std::string networkId) { networkId_ = std::move(networkId); }
    std::string GetDeviceName() const { return deviceName_; }
    void SetDeviceName(std::string deviceName) { deviceName_ = std::move(deviceName); }
    uint32_t GetDeviceType() const { return deviceType_; }
    void SetDeviceType(uint32_t deviceType) { deviceType_ = deviceType; }

private:
    std::string udid_;
    std::string networkId_;
    std::string deviceName_;
    uint32_t deviceType_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_INFO_H
