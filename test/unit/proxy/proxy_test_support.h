// Shared by the proxy tests: the arguments every call uses, the calls
// themselves (each renders its outcome as one string, so tables compare
// results of any shape), reply writers and request readers that follow the
// wire layouts field by field.
#ifndef SYNTAVO_TEST_PROXY_TEST_SUPPORT_H
#define SYNTAVO_TEST_PROXY_TEST_SUPPORT_H

#include <functional>
#include <string>
#include <vector>

#include "device_detect_proxy.h"
#include "fake_remote_object.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {
namespace Test {

// The arguments of one call. Outputs start with one sentinel entry ("keep")
// so that a result shows both what was appended and that nothing was
// cleared or overwritten.
struct CallArgs {
    explicit CallArgs(bool nullCallbacks = false);

    sptr<AbilityFilter> abilityFilter;
    sptr<ServiceFilter> serviceFilter;
    sptr<DeviceFilter> deviceFilter;
    sptr<DeviceChangedCallbackStub> devChangedCallback;
    sptr<ServiceChangedCallbackStub> serviceChangedCallback;
    sptr<DeviceDetectCallbackStub> detectCallback;
    sptr<ServiceDeliverCallbackStub> deliverCallback;
    sptr<DialogEventCallbackStub> dialogCallback;
    sptr<ServicePublishCallbackStub> publishCallback;
    sptr<IRemoteObject> keyMouseCallback;
    std::vector<sptr<AbilityFilter>> abilityFilterList;
    std::vector<std::string> keyList;

    std::vector<DeviceInfo> deviceList;
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> filteredList;
    DeviceInfo localDevice;
    std::vector<DeviceDynamicInfo> dynamicInfos;
    DeviceConfigInfo configInfo;
};

// Argument values (the body checks compare against them).
extern const std::string kStr;
extern const std::string kDeviceId;
extern const std::string kNetworkId;
extern const std::string kConfigQuery;
extern const std::string kDialogEvent;
extern const std::string kPkgName;
extern const std::string kCallerId;
extern const uint32_t kListenerId;
extern const int kDeliverCode;

using Call = std::function<std::string(DeviceDetectProxy&, CallArgs&)>;
// The call registered under a name such as "GetDeviceSwitch"; overloads
// carry a suffix ("GetTrustedDeviceList(callback)"). Fails the test for an
// unknown name.
Call CallByName(const std::string& name);
// "GetTrustedDeviceList(callback)" -> "GetTrustedDeviceList".
std::string FunctionOf(const std::string& name);

// Renderings: "udid|net|name|type", "key=value", "model|json|name|type|fold",
// "[a, b]", a filter by its bundle name or "null".
std::string Render(const DeviceInfo& info);
std::string Render(const std::vector<DeviceInfo>& list);

// --- reply writers: strong-parcelable records field by field ---------------
using ReplyWriter = std::function<void(MessageParcel&)>;
void WriteDevice(MessageParcel& parcel, const std::string& id, uint32_t type);
void WriteAbsent(MessageParcel& parcel);
void WriteAbilityFilter(MessageParcel& parcel, const std::string& bundle);
void WriteDynamicInfo(MessageParcel& parcel, const std::string& key, const std::string& value);
void WriteConfigInfo(MessageParcel& parcel);
// A reply built by `writer`.
MessageParcel BuildParcel(const ReplyWriter& writer);

// --- request readers (gtest expectations inside) ---------------------------
void ExpectString(MessageParcel& request, const std::string& expected);
void ExpectAbilityFilter(MessageParcel& request, const AbilityFilter& expected);
void ExpectObject(MessageParcel& request, const sptr<IRemoteObject>& expected);

}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_TEST_PROXY_TEST_SUPPORT_H
