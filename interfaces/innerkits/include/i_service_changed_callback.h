// IServiceChangedCallback: lists of devices whose services changed.
#ifndef SYNTAVO_I_SERVICE_CHANGED_CALLBACK_H
#define SYNTAVO_I_SERVICE_CHANGED_CALLBACK_H

#include <cstdint>
#include <vector>

#include "device_detect_descriptors.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class DeviceServiceInfo;

class IServiceChangedCallback : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::SERVICE_CHANGED_CALLBACK);

    ~IServiceChangedCallback() override = default;

    // The event number is the service's; it is passed on uninterpreted.
    virtual int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> deviceServiceInfos) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_SERVICE_CHANGED_CALLBACK_H
