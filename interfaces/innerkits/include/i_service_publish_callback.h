// IServicePublishCallback: results of service requests.
#ifndef SYNTAVO_I_SERVICE_PUBLISH_CALLBACK_H
#define SYNTAVO_I_SERVICE_PUBLISH_CALLBACK_H

#include <cstdint>

#include "device_detect_descriptors.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class RequestResultInfo;

class IServicePublishCallback : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::SERVICE_PUBLISH_CALLBACK);

    ~IServicePublishCallback() override = default;

    virtual int32_t OnPublishEvent(sptr<RequestResultInfo> info) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_SERVICE_PUBLISH_CALLBACK_H
