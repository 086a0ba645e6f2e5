// DeviceDynamicInfo logs under the info-collection label, not the client
// one: its lines belong with the dynamic-information queries.
#include "device_dynamic_info.h"

#include <new>
#include <utility>

#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {

DeviceDynamicInfo::DeviceDynamicInfo(std::string key, std::string value)
    : key_(std::move(key)), value_(std::move(value))
{
    SYNT_LOGI(INFO_COLLECTION_LABEL, "key=%{public}s, value=%{public}s", key_.c_str(), value_.c_str());
}

// Same text as the constructor's line; the function name in the prefix
// tells the two apart.
DeviceDynamicInfo::~DeviceDynamicInfo()
{
    SYNT_LOGI(INFO_COLLECTION_LABEL, "key=%{public}s, value=%{public}s", key_.c_str(), value_.c_str());
}

bool DeviceDynamicInfo::Marshalling(Parcel& parcel) const
{
    if (!parcel.WriteString(key_) || !parcel.WriteString(value_)) {
        SYNT_LOGE(INFO_COLLECTION_LABEL, "failed key=%{public}s, value=%{public}s", key_.c_str(), value_.c_str());
        return false;
    }
    SYNT_LOGI(INFO_COLLECTION_LABEL, "success key=%{public}s, value=%{public}s", key_.c_str(), value_.c_str());
    return true;
}

sptr<DeviceDynamicInfo> DeviceDynamicInfo::Unmarshalling(Parcel& parcel)
{
    std::string key = parcel.ReadString();
    std::string value = parcel.ReadString();
    sptr<DeviceDynamicInfo> info = new (std::nothrow) DeviceDynamicInfo(key, value);
    if (info == nullptr) {
        SYNT_LOGE(INFO_COLLECTION_LABEL, "new DeviceDynamicInfo failed, key=%{public}s, value=%{public}s", key.c_str(),
                  value.c_str());
        return nullptr;
    }
    return info;
}

}  // namespace Syntavo
}  // namespace Tavik
