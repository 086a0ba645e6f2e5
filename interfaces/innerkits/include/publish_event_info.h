// RequestResultInfo: the outcome of a publish-related request, delivered by
// the publish callback. The codes are the service's; they are carried
// through uninterpreted.
//
// Wire layout: event code (uint32), result code (uint32).
#ifndef SYNTAVO_PUBLISH_EVENT_INFO_H
#define SYNTAVO_PUBLISH_EVENT_INFO_H

#include <cstdint>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class RequestResultInfo : public Parcelable {
public:
    RequestResultInfo(uint32_t eventCode = 0, uint32_t resultCode = 0);
    RequestResultInfo(const RequestResultInfo&) = default;
    RequestResultInfo& operator=(const RequestResultInfo&) = default;
    ~RequestResultInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null only when the allocation fails.
    static sptr<RequestResultInfo> Unmarshalling(Parcel& parcel);

    uint32_t GetEventCode() const { return eventCode_; }
    void SetEventCode(uint32_t eventCode) { eventCode_ = eventCode; }
    uint32_t GetResultCode() const { return resultCode_; }
    void SetResultCode(uint32_t resultCode) { resultCode_ = resultCode; }

private:
    uint32_t eventCode_;
    uint32_t resultCode_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_PUBLISH_EVENT_INFO_H
