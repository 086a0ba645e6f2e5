#include "device_config_info.h"

#include <new>
#include <utility>

#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

DeviceConfigInfo::DeviceConfigInfo(std::string modelId, std::string originJson, std::string deviceName,
                                   uint32_t deviceType, uint32_t supportFoldScreen)
    : modelId_(std::move(modelId)),
      originJson_(std::move(originJson)),
      deviceName_(std::move(deviceName)),
      deviceType_(deviceType),
      supportFoldScreen_(supportFoldScreen)
{
}

DeviceConfigInfo::~DeviceConfigInfo() = default;

bool DeviceConfigInfo::Marshalling(Parcel& parcel) const
{
    bool written = parcel.WriteString(modelId_) && parcel.WriteString(originJson_) && parcel.WriteString(deviceName_) &&
                   parcel.WriteUint32(deviceType_) && parcel.WriteUint32(supportFoldScreen_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL, "failed: modelId_:%{public}s", modelId_.c_str());
        return false;
    }
    return true;
}

sptr<DeviceConfigInfo> DeviceConfigInfo::Unmarshalling(Parcel& parcel)
{
    std::string modelId = parcel.ReadString();
    std::string originJson = parcel.ReadString();
    std::string deviceName = parcel.ReadString();
    uint32_t deviceType = parcel.ReadUint32();
    uint32_t supportFoldScreen = parcel.ReadUint32();
    sptr<DeviceConfigInfo> info = new (std::nothrow)
        DeviceConfigInfo(modelId, std::move(originJson), std::move(deviceName), deviceType, supportFoldScreen);
    if (info == nullptr) {
        SYNT_LOGE(CLIENT_LABEL, "new DeviceConfigInfo failed, modelId_:%{public}s", modelId.c_str());
        return nullptr;
    }
    return info;
}

}  // namespace Syntavo
}  // namespace Tavik
