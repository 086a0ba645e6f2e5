// ServiceFilter: accepts the devices that offer a named service and are of
// one of the listed device types.
//
// Wire layout: service name (string), device type names (string vector).
// An empty service name accepts every device, and so does an empty type
// list. Types are compared by name: ConvertDeviceType turns a device's code
// into the name the list holds.
#ifndef SYNTAVO_SERVICE_FILTER_H
#define SYNTAVO_SERVICE_FILTER_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "device_info.h"
#include "parcel.h"

namespace Tavik {
namespace Syntavo {

class ServiceFilter : public Parcelable {
public:
    ServiceFilter(std::string serviceName = "", std::vector<std::string> deviceType = {});
    ServiceFilter(const ServiceFilter&) = default;
    ServiceFilter& operator=(const ServiceFilter&) = default;
    ~ServiceFilter() override;

    bool Marshalling(Parcel& parcel) const override;
    // A list that cannot be read does not fail the read; null only when the
    // allocation fails.
    static sptr<ServiceFilter> Unmarshalling(Parcel& parcel);

    std::string GetServiceName() const { return serviceName_; }
    void SetServiceName(std::string serviceName) { serviceName_ = std::move(serviceName); }
    std::vector<std::string> GetDeviceType() const { return deviceType_; }
    void SetDeviceType(std::vector<std::string> deviceType) { deviceType_ = std::move(deviceType); }

    // Service name first, then device type. remoteServiceNames may be null:
    // that passes only a filter without a service name.
    bool IsMatch(std::shared_ptr<std::vector<std::string>> remoteServiceNames, const DeviceInfo& deviceInfo);
    bool IsMatchServiceName(std::shared_ptr<std::vector<std::string>> remoteServiceNames);
    bool IsMatchDeviceType(const DeviceInfo& deviceInfo);

    // "PHONE", "PAD", ...; the empty string for a code outside the table.
    static std::string ConvertDeviceType(uint32_t deviceType);

private:
    std::string serviceName_;
    std::vector<std::string> deviceType_;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SERVICE_FILTER_H
