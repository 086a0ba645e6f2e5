// IDeviceDetectCallback: detection events for a trusted-device query made
// with a device filter.
#ifndef SYNTAVO_I_DEVICE_DETECT_CALLBACK_H
#define SYNTAVO_I_DEVICE_DETECT_CALLBACK_H

#include <cstdint>

#include "device_detect_descriptors.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class DeviceInfo;

class IDeviceDetectCallback : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::DEVICE_DETECT_CALLBACK);

    ~IDeviceDetectCallback() override = default;

    // The event number is the service's; it is passed on uninterpreted.
    virtual int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> deviceInfo) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_DEVICE_DETECT_CALLBACK_H
