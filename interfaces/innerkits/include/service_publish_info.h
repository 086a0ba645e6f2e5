// ServicePublishInfo: one service publication, and the process-wide source
// of fresh publish ids.
//
// Wire layout: publish id, service code, publish mode (uint32 each).
#ifndef SYNTAVO_SERVICE_PUBLISH_INFO_H
#define SYNTAVO_SERVICE_PUBLISH_INFO_H

#include <atomic>
#include <cstdint>

#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class ServicePublishInfo : public Parcelable {
public:
    ServicePublishInfo(uint32_t publishId = 0, uint32_t serviceCode = 0, uint32_t publishMode = 0);
    ServicePublishInfo(const ServicePublishInfo&) = default;
    ServicePublishInfo& operator=(const ServicePublishInfo&) = default;
    ~ServicePublishInfo() override;

    bool Marshalling(Parcel& parcel) const override;
    // Null only when the allocation fails.
    static sptr<ServicePublishInfo> Unmarshalling(Parcel& parcel);

    // 0, 1, 2, ... from load, wrapping to 0 after 4294967295. Safe to call
    // from several threads: each caller gets a distinct value (until the
    // counter wraps). Ids are neither checked for use nor persisted.
    static uint32_t GenerateNewPublishId();

    uint32_t GetPublishId() const { return publishId_; }
    void SetPublishId(uint32_t publishId) { publishId_ = publishId; }
    uint32_t GetServiceCode() const { return serviceCode_; }
    void SetServiceCode(uint32_t serviceCode) { serviceCode_ = serviceCode; }
    uint32_t GetServicePublishMode() const { return publishMode_; }
    void SetServicePublishMode(uint32_t publishMode) { publishMode_ = publishMode; }

private:
    static std::atomic<uint32_t> nextPublishId_;

    uint32_t publishId_;
    uint32_t serviceCode_;
    uint32_t publishMode_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SERVICE_PUBLISH_INFO_H
