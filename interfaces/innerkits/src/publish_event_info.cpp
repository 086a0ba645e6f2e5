#include "publish_event_info.h"

#include <new>

#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

RequestResultInfo::RequestResultInfo(uint32_t eventCode, uint32_t resultCode)
    : eventCode_(eventCode), resultCode_(resultCode)
{
    SYNT_LOGI(CLIENT_LABEL, "create:eventCode = %{public}d, resultCode = %{public}d", eventCode_, resultCode_);
}

RequestResultInfo::~RequestResultInfo() = default;

bool RequestResultInfo::Marshalling(Parcel& parcel) const
{
    if (!parcel.WriteUint32(eventCode_)) {
        SYNT_LOGE(CLIENT_LABEL, "write eventCode failed, eventCode:%{public}u", eventCode_);
        return false;
    }
    if (!parcel.WriteUint32(resultCode_)) {
        SYNT_LOGE(CLIENT_LABEL, "write resultCode failed, resultCode:%{public}u", resultCode_);
        return false;
    }
    return true;
}

sptr<RequestResultInfo> RequestResultInfo::Unmarshalling(Parcel& parcel)
{
    uint32_t eventCode = parcel.ReadUint32();
    uint32_t resultCode = parcel.ReadUint32();
    sptr<RequestResultInfo> info = new (std::nothrow) RequestResultInfo(eventCode, resultCode);
    if (info == nullptr) {
        SYNT_LOGE(CLIENT_LABEL, "Unmarshalling failed, eventCode:%{public}d, resultCode:%{public}d", eventCode,
                  resultCode);
        return nullptr;
    }
    return info;
}

}  // namespace Syntavo
}  // namespace Tavik
