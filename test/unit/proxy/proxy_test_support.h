// Shared by the proxy tests: the arguments every call uses, the calls
// themselves (each renders its outcome as one string, so tables compare
// results of any shape) and reply writers.
#ifndef SYNTAVO_TEST_PROXY_TEST_SUPPORT_H
#define SYNTAVO_TEST_PROXY_TEST_SUPPORT_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "device_detect_proxy.h"
#include "fake_remote_object.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {
namespace Test {

inline const std::string kStr = "query-str";
inline const std::string kDeviceId = "device-1";
inline const std::string kNetworkId = "network-7";
inline const std::string kConfigQuery = "model";
inline const std::string kDialogEvent = "{\"event\":1}";
inline const std::string kPkgName = "com.example.pkg";
inline const std::string kCallerId = "caller-9";
// Top bit set: the id must travel as the same 32 bits.
constexpr uint32_t kListenerId = 0x80000005u;
constexpr int kDeliverCode = -7;

using DeviceFilters = std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>>;

// The arguments of one call. Outputs start with one sentinel entry ("keep")
// so that a result shows both what was appended and that nothing was
// cleared or overwritten.
struct CallArgs {
    explicit CallArgs(bool nullCallbacks = false)
    {
        abilityFilter->SetAction("view");
        if (!nullCallbacks) {
            devChangedCallback = new DeviceChangedCallbackStub();
            serviceChangedCallback = new ServiceChangedCallbackStub();
            detectCallback = new DeviceDetectCallbackStub();
            deliverCallback = new ServiceDeliverCallbackStub();
            dialogCallback = new DialogEventCallbackStub();
            publishCallback = new ServicePublishCallbackStub();
            keyMouseCallback = new Tavik::Test::FakeRemoteObject();
        }
        filteredList.emplace_back(DeviceInfo("keep"), std::list<sptr<AbilityFilter>>());
    }

    sptr<AbilityFilter> abilityFilter = new AbilityFilter("com.example.app", "page", "a page", 14, 2);
    sptr<ServiceFilter> serviceFilter = new ServiceFilter("svc", {"PHONE", "PAD"});
    sptr<DeviceFilter> deviceFilter = new DeviceFilter({14, 17}, {1, 2});
    sptr<DeviceChangedCallbackStub> devChangedCallback;
    sptr<ServiceChangedCallbackStub> serviceChangedCallback;
    sptr<DeviceDetectCallbackStub> detectCallback;
    sptr<ServiceDeliverCallbackStub> deliverCallback;
    sptr<DialogEventCallbackStub> dialogCallback;
    sptr<ServicePublishCallbackStub> publishCallback;
    sptr<IRemoteObject> keyMouseCallback;
    std::vector<sptr<AbilityFilter>> abilityFilterList = {new AbilityFilter("first", "t1", "d1", 14, 1),
                                                          new AbilityFilter("second", "t2", "d2", 17, 2)};
    std::vector<std::string> keyList = {"battery", "wifi"};

    std::vector<DeviceInfo> deviceList = {DeviceInfo("keep")};
    DeviceFilters filteredList;
    DeviceInfo localDevice{"keep"};
    std::vector<DeviceDynamicInfo> dynamicInfos = {DeviceDynamicInfo("keep", "1")};
    DeviceConfigInfo configInfo{"keep"};
};

// Renderings: "udid|net|name|type", "key=value", "model|json|name|type|fold",
// "[a, b]", a filter by its bundle name or "null".
template <typename Container, typename Fn>
std::string RenderList(const Container& list, Fn render)
{
    std::string out = "[";
    for (const auto& item : list) {
        out += (out.size() > 1 ? ", " : "") + render(item);
    }
    return out + "]";
}

inline std::string Render(const DeviceInfo& info)
{
    return info.GetDeviceUdid() + "|" + info.GetDeviceNetworkId() + "|" + info.GetDeviceName() + "|" +
           std::to_string(info.GetDeviceType());
}

inline std::string Render(const std::vector<DeviceInfo>& list)
{
    return RenderList(list, [](const DeviceInfo& info) { return Render(info); });
}

inline std::string Render(const DeviceFilters& list)
{
    return RenderList(list, [](const auto& entry) {
        return Render(std::get<0>(entry)) + RenderList(std::get<1>(entry), [](const sptr<AbilityFilter>& filter) {
                   return filter == nullptr ? std::string("null") : filter->GetBundleName();
               });
    });
}

inline std::string Render(const std::vector<DeviceDynamicInfo>& list)
{
    return RenderList(list, [](const DeviceDynamicInfo& info) { return info.GetKey() + "=" + info.GetValue(); });
}

inline std::string Render(const DeviceConfigInfo& info)
{
    return info.GetModelId() + "|" + info.GetOriginJson() + "|" + info.GetDeviceName() + "|" +
           std::to_string(info.GetDeviceType()) + "|" + std::to_string(info.GetSupportFoldScreen());
}

inline std::string Show(int32_t rc)
{
    return std::to_string(rc);
}
inline std::string Show(bool value)
{
    return value ? "true" : "false";
}
inline std::string Show(const std::pair<int32_t, uint32_t>& result)
{
    return "(" + std::to_string(result.first) + ", " + std::to_string(result.second) + ")";
}
// The status and the output, rendered after the call has filled it.
template <typename Output>
std::string Show(int32_t rc, const Output& output)
{
    return std::to_string(rc) + " " + Render(output);
}

using Call = std::function<std::string(DeviceDetectProxy&, CallArgs&)>;
using P = DeviceDetectProxy;

// The network id goes by reference and must come back unchanged.
inline bool ByNetworkId(P& p, bool (P::*query)(std::string&))
{
    std::string networkId = kNetworkId;
    bool result = (p.*query)(networkId);
    EXPECT_EQ(networkId, kNetworkId);
    return result;
}

// The call registered under a name such as "GetDeviceSwitch"; overloads
// carry a suffix ("GetTrustedDeviceList(callback)"). Fails the test for an
// unknown name.
inline Call CallByName(const std::string& name)
{
// One entry: the name and the expression whose outcome Show renders.
#define DD_CALL(name, ...)                                                         \
    {                                                                              \
        name, [](P& p, [[maybe_unused]] CallArgs& a) { return Show(__VA_ARGS__); } \
    }
    static const std::map<std::string, Call> calls = {
        DD_CALL("GetTrustedDeviceList", p.GetTrustedDeviceList(kStr, a.deviceList), a.deviceList),
        DD_CALL("GetTrustedDeviceList(callback)",
                p.GetTrustedDeviceList(kStr, sptr<IDeviceChangedCallback>(a.devChangedCallback), a.deviceList),
                a.deviceList),
        DD_CALL("GetTrustedDeviceListWithAbilityFilter",
                p.GetTrustedDeviceListWithAbilityFilter(a.abilityFilterList, a.filteredList), a.filteredList),
        DD_CALL("GetTrustedDeviceListWithAbilityFilter(single)",
                p.GetTrustedDeviceListWithAbilityFilter(a.abilityFilter, kStr, a.deviceList, nullptr), a.deviceList),
        DD_CALL("GetTrustedDeviceListWithServiceFilter",
                p.GetTrustedDeviceListWithServiceFilter(a.serviceFilter, kStr, a.deviceList), a.deviceList),
        DD_CALL("GetTrustedDeviceListWithDeviceFilter",
                p.GetTrustedDeviceListWithDeviceFilter(a.deviceFilter, a.deviceList, a.detectCallback), a.deviceList),
        DD_CALL("RegisterDevChangedCallback",
                p.RegisterDevChangedCallback(a.abilityFilter, kStr, a.devChangedCallback)),
        DD_CALL("RegisterCallbackWithServiceFilter",
                p.RegisterCallbackWithServiceFilter(a.serviceFilter, kStr, a.devChangedCallback)),
        DD_CALL("UnregisterDevChangedCallback", p.UnregisterDevChangedCallback(kListenerId)),
        DD_CALL("UnregisterServiceFilterListener", p.UnregisterServiceFilterListener(kListenerId)),
        DD_CALL("RegisterServiceChangedCallback", p.RegisterServiceChangedCallback(a.serviceChangedCallback)),
        DD_CALL("UnregisterServiceChangedCallback", p.UnregisterServiceChangedCallback()),
        DD_CALL("GetLocalDeviceInfo", p.GetLocalDeviceInfo(a.localDevice), a.localDevice),
        DD_CALL("GetRemoteDeviceDynamicInfo", p.GetRemoteDeviceDynamicInfo(kDeviceId, a.keyList, a.dynamicInfos),
                a.dynamicInfos),
        DD_CALL("QueryDeviceConfigInfo", p.QueryDeviceConfigInfo(kConfigQuery, a.configInfo), a.configInfo),
        DD_CALL("RegisterServiceDeliverCallback", p.RegisterServiceDeliverCallback(kDeliverCode, a.deliverCallback)),
        DD_CALL("SetDialogEventCallback", p.SetDialogEventCallback(a.dialogCallback)),
        DD_CALL("NotifyAppDialogEvent", p.NotifyAppDialogEvent(kDialogEvent)),
        DD_CALL("RequestService", p.RequestService(kPkgName, a.publishCallback)),
        DD_CALL("UnRequestService", p.UnRequestService(kPkgName)),
        DD_CALL("GetDeviceSwitch", p.GetDeviceSwitch(kDeviceId)),
        DD_CALL("RegisterKeyMouseCallback", p.RegisterKeyMouseCallback(kCallerId, a.keyMouseCallback)),
        DD_CALL("UnregisterKeyMouseCallback", p.UnregisterKeyMouseCallback(kCallerId)),
        DD_CALL("UpdateKeyMouseEdgeSwitch", p.UpdateKeyMouseEdgeSwitch(true)),
        DD_CALL("GetIsSameDeviceAccount", ByNetworkId(p, &P::GetIsSameDeviceAccount)),
        DD_CALL("GetIsNextTypeDevice", ByNetworkId(p, &P::GetIsNextTypeDevice)),
        {"GetBindKeymouseServiceReq",
         [](P& p, CallArgs&) {
             p.GetBindKeymouseServiceReq(true);
             return std::string("void");
         }},
    };
#undef DD_CALL
    auto it = calls.find(name);
    if (it == calls.end()) {
        ADD_FAILURE() << "no call named " << name;
        return [](P&, CallArgs&) { return std::string("<no such call>"); };
    }
    return it->second;
}

// "GetTrustedDeviceList(callback)" -> "GetTrustedDeviceList".
inline std::string FunctionOf(const std::string& name)
{
    return name.substr(0, name.find('('));
}

// --- reply writers ----------------------------------------------------------
// Records go through their own Marshalling: their layout is pinned where the
// records are tested; here only what the proxy does with them matters.
using ReplyWriter = std::function<void(MessageParcel&)>;

inline void WriteDevice(MessageParcel& parcel, const std::string& id, uint32_t type)
{
    DeviceInfo info(id, "n-" + id, "d-" + id, type);
    parcel.WriteParcelable(&info);
}

inline void WriteAbsent(MessageParcel& parcel)
{
    parcel.WriteInt32(0);
}

inline void WriteAbilityFilter(MessageParcel& parcel, const std::string& bundle)
{
    AbilityFilter filter(bundle, "type", "description", 14, 1);
    parcel.WriteParcelable(&filter);
}

inline void WriteDynamicInfo(MessageParcel& parcel, const std::string& key, const std::string& value)
{
    DeviceDynamicInfo info(key, value);
    parcel.WriteParcelable(&info);
}

// A device-list reply: the count, then each record; an empty id writes an
// absent record. The count may promise more records than follow.
inline ReplyWriter DeviceList(uint32_t count, std::vector<std::pair<std::string, uint32_t>> devices)
{
    return [=](MessageParcel& parcel) {
        parcel.WriteUint32(count);
        for (const auto& [id, type] : devices) {
            id.empty() ? WriteAbsent(parcel) : WriteDevice(parcel, id, type);
        }
    };
}

inline MessageParcel BuildParcel(const ReplyWriter& writer)
{
    MessageParcel parcel;
    if (writer) {
        writer(parcel);
    }
    return parcel;
}

}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_TEST_PROXY_TEST_SUPPORT_H
