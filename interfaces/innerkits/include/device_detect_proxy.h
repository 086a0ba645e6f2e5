// DeviceDetectProxy: the process-wide client of the device-detect service.
//
// GetInstance() looks the service up on first use and caches one proxy; the
// cache is dropped by CleanupInstance() and when the service process dies,
// and the next GetInstance() looks the service up anew. A proxy already
// handed out stays a valid object after that (its holders keep it alive);
// its requests then fail at the send step.
//
// Every request method sends exactly one synchronous request and decodes the
// reply into its output arguments, to which it only appends. Each failed step
// logs one ERROR line and returns the method's failure value for that step;
// the values differ per method and are part of the interface. The request
// methods take no lock and keep no state, so any number of threads may call
// them on one proxy; each blocks in the send until the reply arrives.
#ifndef SYNTAVO_DEVICE_DETECT_PROXY_H
#define SYNTAVO_DEVICE_DETECT_PROXY_H

#include <cstdint>
#include <list>
#include <memory>
#include <shared_mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "ability_filter.h"
#include "device_changed_callback_stub.h"
#include "device_config_info.h"
#include "device_detect_callback_stub.h"
#include "device_dynamic_info.h"
#include "dialog_event_callback_stub.h"
#include "i_device_detect.h"
#include "iremote_broker.h"
#include "iremote_proxy.h"
#include "message_parcel.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_publish_callback_stub.h"

namespace Tavik {
namespace Syntavo {

class DeviceDetectProxy : public IRemoteProxy<IDeviceDetect> {
public:
    // Called by the broker registry (through iface_cast); tests may build one
    // directly around a fake remote object.
    explicit DeviceDetectProxy(const sptr<IRemoteObject>& impl);
    ~DeviceDetectProxy() override;

    // The cached proxy, or a new one bound to the service looked up under
    // SYNTAVO_DEVICE_DETECT_SA_ID; null when the service cannot be reached.
    static sptr<DeviceDetectProxy> GetInstance();
    // Drops the cache; pointers already handed out stay valid.
    static void CleanupInstance();

    // --- trusted device lists (0 on success) ------------------------------
    // -1 on every failure. Appends the devices; a missing record is skipped.
    int32_t GetTrustedDeviceList(const std::string& str, std::vector<DeviceInfo>& deviceList) override;
    // Sends nothing and returns 0.
    int32_t GetTrustedDeviceList(const std::string& str, sptr<IDeviceChangedCallback> callback,
                                 std::vector<DeviceInfo>& deviceList) override;
    // Sends nothing and returns 0.
    int32_t GetTrustedDeviceListWithAbilityFilter(sptr<AbilityFilter> abilityFilter, const std::string& str,
                                                  std::vector<DeviceInfo>& deviceList,
                                                  std::shared_ptr<IDeviceChangedCallback> callback) override;
    // -1 on every failure. Appends one (device, its filters) entry per device;
    // an absent filter stands in the inner list as null.
    int32_t GetTrustedDeviceListWithAbilityFilter(
        std::vector<sptr<AbilityFilter>>& abilityFilterList,
        std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>>& deviceList) override;
    // 1006, 1007, 1021, 1008, 1022, 1023 on failure.
    int32_t GetTrustedDeviceListWithServiceFilter(sptr<ServiceFilter> serviceFilter, const std::string& str,
                                                  std::vector<DeviceInfo>& deviceList) override;
    // 1006, 1007, 1011, 1008, 1001, -1 on failure.
    int32_t GetTrustedDeviceListWithDeviceFilter(sptr<DeviceFilter> deviceFilter, std::vector<DeviceInfo>& deviceList,
                                                 sptr<DeviceDetectCallbackStub> callback);
    // Writes the count (at most 1024) and the filters; false on any failure.
    bool WriteAbilityFilterList(MessageParcel& data, std::vector<sptr<AbilityFilter>>& abilityFilterList);

    // --- listeners and callbacks -------------------------------------------
    // (service status, listener id) or (local failure, 0): 1006, 1007, 1021,
    // 1011, 1008, 1022.
    std::pair<int32_t, uint32_t> RegisterDevChangedCallback(sptr<AbilityFilter> abilityFilter, const std::string& str,
                                                            sptr<DeviceChangedCallbackStub> callback);
    std::pair<int32_t, uint32_t> RegisterCallbackWithServiceFilter(sptr<ServiceFilter> serviceFilter,
                                                                   const std::string& str,
                                                                   sptr<DeviceChangedCallbackStub> callback);
    // Service status, or 1006, 1021, 1008, 1007.
    int32_t UnregisterDevChangedCallback(uint32_t listenerId);
    int32_t UnregisterServiceFilterListener(uint32_t listenerId);
    // Service status, or 1006, 1011, 1008, 1022.
    int32_t RegisterServiceChangedCallback(sptr<ServiceChangedCallbackStub> callback);
    // Service status, or 1006, 1008, 1007.
    int32_t UnregisterServiceChangedCallback();

    // --- device information ------------------------------------------------
    // The service's device status, or 1006, 1007, 1008, 1001 (the two share
    // one value space).
    int32_t GetDeviceSwitch(std::string deviceId);
    // The service's answer; false on every failure.
    bool GetIsSameDeviceAccount(std::string& networkId);
    bool GetIsNextTypeDevice(std::string& networkId);
    // Reports no failure and reads no answer.
    void GetBindKeymouseServiceReq(bool bindKeymouseService);
    // 0, or 1006, 1008, 1001. The output is assigned only on success.
    int32_t GetLocalDeviceInfo(DeviceInfo& deviceInfo) override;
    // 0, or 1006, 1011, 1008, 1001, 2202, 1019. Appends one record per key.
    int32_t GetRemoteDeviceDynamicInfo(const std::string& remoteDeviceId, const std::vector<std::string>& keyList,
                                       std::vector<DeviceDynamicInfo>& resultList) override;
    // 0, or 1006, 1007, 1008, 1001. The output is assigned only on success.
    int32_t QueryDeviceConfigInfo(const std::string& configQuery, DeviceConfigInfo& deviceConfigInfo) override;

    // --- services, dialogs, key-mouse -------------------------------------
    // The reply's int32 (0 when it holds none), or 1006, 1007, 1008.
    int32_t RegisterServiceDeliverCallback(int deliverCode, sptr<ServiceDeliverCallbackStub> callback);
    // 0 or -1; the reply is not read.
    int32_t SetDialogEventCallback(sptr<DialogEventCallbackStub> callback);
    int32_t NotifyAppDialogEvent(const std::string& dialogEvent);
    // The reply's int32 (0 when it holds none), or 1006, 1011, 1008.
    int32_t RequestService(const std::string& pkgName, sptr<ServicePublishCallbackStub> callback);
    int32_t UnRequestService(const std::string& pkgName) override;
    // Service status, or 1006, 1021, 1008, 1022.
    int32_t RegisterKeyMouseCallback(const std::string& callerId, sptr<IRemoteObject> callback);
    int32_t UnregisterKeyMouseCallback(const std::string& callerId);
    int32_t UpdateKeyMouseEdgeSwitch(bool edgeSwitchOn);

private:
    // Initialised in this order when the library is loaded and destroyed in
    // the reverse order when it is unloaded.
    static BrokerDelegator<DeviceDetectProxy> delegator_;
    // Guards instance_ and nothing else: shared for a cache hit, exclusive for
    // the lookup, CleanupInstance and the death notice.
    static std::shared_mutex mutex_;
    static sptr<DeviceDetectProxy> instance_;
};

// Attached to the service's remote object by GetInstance(); held by that
// object from then on. Empties the proxy cache when the service dies.
class DeviceDetectProxyDeathRecipient : public IRemoteObject::DeathRecipient {
public:
    DeviceDetectProxyDeathRecipient() = default;
    ~DeviceDetectProxyDeathRecipient() override = default;

    void OnRemoteDied(const wptr<IRemoteObject>& remote) override;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_DETECT_PROXY_H
