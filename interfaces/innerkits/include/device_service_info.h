// DeviceServiceInfo: one device together with the services it offers.
//
// Wire layout: device name (string), device type (uint32), hash id, device
// id (strings), service rules (string vector), network id, BR MAC, extra
// info (strings). The rule and extra strings are carried through unread.
#ifndef SYNTAVO_DEVICE_SERVICE_INFO_H
#define SYNTAVO_DEVICE_SERVICE_INFO_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceServiceInfo : public Parcelable {
public:
    DeviceServiceInfo(std::string deviceName = "", uint32_t deviceType = 0, std::string deviceHashId = "",
                      std::string deviceId = "", std::vector<std::string> serviceRuleList = {},
                      std::string networkId = "", std::string brMac = "", std::string extraInfo = "");
    DeviceServiceInfo(const DeviceServiceInfo&) = default;
    DeviceServiceInfo& operator=(const DeviceServiceInfo&) = default;
    ~DeviceServiceInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // An unreadable rule list does not fail the read; null only when the
    // allocation fails.
    static sptr<DeviceServiceInfo> Unmarshalling(Parcel& parcel);

    std::string GetDeviceName() const { return deviceName_; }
    void SetDeviceName(std::string deviceName) { deviceName_ = std::move(deviceName); }
    uint32_t GetDeviceType() const { return deviceType_; }
    void SetDeviceType(uint32_t deviceType) { deviceType_ = deviceType; }
    std::string GetDeviceHashId() const { return deviceHashId_; }
    void SetDeviceHashId(std::string deviceHashId) { deviceHashId_ = std::move(deviceHashId); }
    std::string GetDeviceId() const { return deviceId_; }
    void SetDeviceId(std::string deviceId) { deviceId_ = std::move(deviceId); }
    std::vector<std::string> GetServiceRuleList() const { return serviceRuleList_; }
    void SetServiceRuleList(std::vector<std::string> serviceRuleList) { serviceRuleList_ = std::move(serviceRuleList); }
    std::string GetNetworkId() const { return networkId_; }
    void SetNetworkId(std::string networkId) { networkId_ = std::move(networkId); }
    std::string GetBrMac() const { return brMac_; }
    void SetBrMac(std::string brMac) { brMac_ = std::move(brMac); }
    std::string GetExtraInfo() const { return extraInfo_; }
    void SetExtraInfo(std::string extraInfo) { extraInfo_ = std::move(extraInfo); }

private:
    std::string deviceName_;
    uint32_t deviceType_;
    std::string deviceHashId_;
    std::string deviceId_;
    std::vector<std::string> serviceRuleList_;
    std::string networkId_;
    std::string brMac_;
    std::string extraInfo_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_SERVICE_INFO_H
