// IDeviceDetect: the device-detect service interface, as seen by its
// clients. DeviceDetectProxy implements it; the slot order below is part of
// the interface and must not change. The service is published under
// SYNTAVO_DEVICE_DETECT_SA_ID, which comes with this header.
#ifndef SYNTAVO_I_DEVICE_DETECT_H
#define SYNTAVO_I_DEVICE_DETECT_H

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class AbilityFilter;
class DeviceConfigInfo;
class DeviceDynamicInfo;
class DeviceInfo;
class IDeviceChangedCallback;
class ServiceFilter;

class IDeviceDetect : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::DEVICE_DETECT);

    ~IDeviceDetect() override = default;

    virtual int32_t GetTrustedDeviceList(const std::string& str, std::vector<DeviceInfo>& deviceList) = 0;
    virtual int32_t GetTrustedDeviceList(const std::string& str, sptr<IDeviceChangedCallback> callback,
                                         std::vector<DeviceInfo>& deviceList) = 0;
    virtual int32_t GetTrustedDeviceListWithAbilityFilter(sptr<AbilityFilter> abilityFilter, const std::string& str,
                                                          std::vector<DeviceInfo>& deviceList,
                                                          std::shared_ptr<IDeviceChangedCallback> callback) = 0;
    virtual int32_t GetTrustedDeviceListWithAbilityFilter(
        std::vector<sptr<AbilityFilter>>& abilityFilterList,
        std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>>& deviceList) = 0;
    virtual int32_t GetTrustedDeviceListWithServiceFilter(sptr<ServiceFilter> serviceFilter, const std::string& str,
                                                          std::vector<DeviceInfo>& deviceList) = 0;
    virtual int32_t GetLocalDeviceInfo(DeviceInfo& deviceInfo) = 0;
    virtual int32_t GetRemoteDeviceDynamicInfo(const std::string& remoteDeviceId,
                                               const std::vector<std::string>& keyList,
                                               std::vector<DeviceDynamicInfo>& resultList) = 0;
    virtual int32_t QueryDeviceConfigInfo(const std::string& configQuery, DeviceConfigInfo& deviceConfigInfo) = 0;
    virtual int32_t UnRequestService(const std::string& pkgName) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_DEVICE_DETECT_H
