#include "service_publish_info.h"

#include <new>

#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

// Constant-initialised, so it holds 0 before any other static initialiser
// can call GenerateNewPublishId.
std::atomic<uint32_t> ServicePublishInfo::nextPublishId_{0};

ServicePublishInfo::ServicePublishInfo(uint32_t publishId, uint32_t serviceCode, uint32_t publishMode)
    : publishId_(publishId), serviceCode_(serviceCode), publishMode_(publishMode)
{
    SYNT_LOGI(CLIENT_LABEL,
              "new ServicePublishInfo: publishId:%{public}d serviceCode:%{public}d publishMode:%{public}d", publishId_,
              serviceCode_, publishMode_);
}

ServicePublishInfo::~ServicePublishInfo() = default;

bool ServicePublishInfo::Marshalling(Parcel& parcel) const
{
    bool written =
        parcel.WriteUint32(publishId_) && parcel.WriteUint32(serviceCode_) && parcel.WriteUint32(publishMode_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL, "failed: publishId:%{public}d", publishId_);
        return false;
    }
    return true;
}

sptr<ServicePublishInfo> ServicePublishInfo::Unmarshalling(Parcel& parcel)
{
    uint32_t publishId = parcel.ReadUint32();
    uint32_t serviceCode = parcel.ReadUint32();
    uint32_t publishMode = parcel.ReadUint32();
    sptr<ServicePublishInfo> info = new (std::nothrow) ServicePublishInfo(publishId, serviceCode, publishMode);
    if (info == nullptr) {
        SYNT_LOGE(CLIENT_LABEL, "new ServicePublishInfo failed, publishId:%{public}d", publishId);
        return nullptr;
    }
    return info;
}

uint32_t ServicePublishInfo::GenerateNewPublishId()
{
    // Unsigned arithmetic: 4294967295 is followed by 0. Relaxed is enough,
    // the counter orders nothing but itself.
    return nextPublishId_.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace Syntavo
}  // namespace Tavik
