// DeviceConfigInfo: a remote device's configuration.
//
// Wire layout: model id, origin JSON, device name (strings), device type,
// fold-screen support (uint32). The JSON text is neither parsed nor checked
// here; it is carried through as the service delivers it.
#ifndef SYNTAVO_DEVICE_CONFIG_INFO_H
#define SYNTAVO_DEVICE_CONFIG_INFO_H

#include <cstdint>
#include <string>
#include <utility>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class DeviceConfigInfo : public Parcelable {
public:
    DeviceConfigInfo(std::string modelId = "", std::string originJson = "", std::string deviceName = "",
                     uint32_t deviceType = 0, uint32_t supportFoldScreen = 0);
    DeviceConfigInfo(const DeviceConfigInfo&) = default;
    DeviceConfigInfo& operator=(const DeviceConfigInfo&) = default;
    ~DeviceConfigInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null only when the allocation fails.
    static sptr<DeviceConfigInfo> Unmarshalling(Parcel& parcel);

    std::string GetModelId() const { return modelId_; }
    void SetModelId(std::string modelId) { modelId_ = std::move(modelId); }
    std::string GetOriginJson() const { return originJson_; }
    void SetOriginJson(std::string originJson) { originJson_ = std::move(originJson); }
    std::string GetDeviceName() const { return deviceName_; }
    void SetDeviceName(std::string deviceName) { deviceName_ = std::move(deviceName); }
    uint32_t GetDeviceType() const { return deviceType_; }
    void SetDeviceType(uint32_t deviceType) { deviceType_ = deviceType; }
    uint32_t GetSupportFoldScreen() const { return supportFoldScreen_; }
    void SetSupportFoldScreen(uint32_t supportFoldScreen) { supportFoldScreen_ = supportFoldScreen; }

private:
    std::string modelId_;
    std::string originJson_;
    std::string deviceName_;
    uint32_t deviceType_;
    uint32_t supportFoldScreen_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_CONFIG_INFO_H
