// IServiceDeliverCallback: deliveries, one string each.
#ifndef SYNTAVO_I_SERVICE_DELIVER_CALLBACK_H
#define SYNTAVO_I_SERVICE_DELIVER_CALLBACK_H

#include <cstdint>
#include <string>

#include "device_detect_descriptors.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class IServiceDeliverCallback : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::SERVICE_DELIVER_CALLBACK);

    ~IServiceDeliverCallback() override = default;

    virtual int32_t OnDeliver(const std::string& info) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_SERVICE_DELIVER_CALLBACK_H
