// IDeviceChangedCallback: device online, offline and ready events for a
// listener registered with an ability or service filter. Its descriptor is
// "Tavik.Syntavo.IDeviceStateChangedCallback", not formed from the class name.
#ifndef SYNTAVO_I_DEVICE_CHANGED_CALLBACK_H
#define SYNTAVO_I_DEVICE_CHANGED_CALLBACK_H

#include <cstdint>

#include "device_detect_descriptors.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class DeviceInfo;

class IDeviceChangedCallback : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::DEVICE_CHANGED_CALLBACK);

    ~IDeviceChangedCallback() override = default;

    virtual int32_t OnDeviceOnline(DeviceInfo& deviceInfo) = 0;
    virtual int32_t OnDeviceOffline(DeviceInfo& deviceInfo) = 0;
    virtual int32_t OnDeviceReady(DeviceInfo& deviceInfo) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_DEVICE_CHANGED_CALLBACK_H
