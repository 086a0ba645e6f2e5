#include "proxy_test_support.h"

#include <map>
#include <sstream>

#include <gtest/gtest.h>

namespace Tavik {
namespace Syntavo {
namespace Test {

const std::string kStr = "query-str";
const std::string kDeviceId = "device-1";
const std::string kNetworkId = "network-7";
const std::string kConfigQuery = "model";
const std::string kDialogEvent = "{\"event\":1}";
const std::string kPkgName = "com.example.pkg";
const std::string kCallerId = "caller-9";
// Top bit set: the id must travel as the same 32 bits.
const uint32_t kListenerId = 0x80000005u;
const int kDeliverCode = -7;

CallArgs::CallArgs(bool nullCallbacks)
    : abilityFilter(new AbilityFilter("com.example.app", "page", "a page", 14, 2)),
      serviceFilter(new ServiceFilter("svc", {"PHONE", "PAD"})),
      deviceFilter(new DeviceFilter({14, 17}, {1, 2})),
      keyList({"battery", "wifi"}),
      localDevice("keep"),
      configInfo("keep")
{
    abilityFilter->SetAction("view");
    abilityFilterList = {new AbilityFilter("first", "t1", "d1", 14, 1), new AbilityFilter("second", "t2", "d2", 17, 2)};
    if (!nullCallbacks) {
        devChangedCallback = new DeviceChangedCallbackStub();
        serviceChangedCallback = new ServiceChangedCallbackStub();
        detectCallback = new DeviceDetectCallbackStub();
        deliverCallback = new ServiceDeliverCallbackStub();
        dialogCallback = new DialogEventCallbackStub();
        publishCallback = new ServicePublishCallbackStub();
        keyMouseCallback = new Tavik::Test::FakeRemoteObject();
    }
    deviceList.emplace_back("keep");
    filteredList.emplace_back(DeviceInfo("keep"), std::list<sptr<AbilityFilter>>());
    dynamicInfos.emplace_back("keep", "1");
}

namespace {

template <typename Container, typename Fn>
std::string RenderList(const Container& list, Fn render)
{
    std::string out = "[";
    for (const auto& item : list) {
        out += (out.size() > 1 ? ", " : "") + render(item);
    }
    return out + "]";
}

}  // namespace

std::string Render(const DeviceInfo& info)
{
    return info.GetDeviceUdid() + "|" + info.GetDeviceNetworkId() + "|" + info.GetDeviceName() + "|" +
           std::to_string(info.GetDeviceType());
}

std::string Render(const std::vector<DeviceInfo>& list)
{
    return RenderList(list, [](const DeviceInfo& info) { return Render(info); });
}

std::string Render(const std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>>& list)
{
    return RenderList(list, [](const auto& entry) {
        return Render(std::get<0>(entry)) + RenderList(std::get<1>(entry), [](const sptr<AbilityFilter>& filter) {
                   return filter == nullptr ? std::string("null") : filter->GetBundleName();
               });
    });
}

std::string Render(const std::vector<DeviceDynamicInfo>& list)
{
    return RenderList(list, [](const DeviceDynamicInfo& info) { return info.GetKey() + "=" + info.GetValue(); });
}

std::string Render(const DeviceConfigInfo& info)
{
    return info.GetModelId() + "|" + info.GetOriginJson() + "|" + info.GetDeviceName() + "|" +
           std::to_string(info.GetDeviceType()) + "|" + std::to_string(info.GetSupportFoldScreen());
}

std::string Render(const std::pair<int32_t, uint32_t>& result)
{
    return "(" + std::to_string(result.first) + ", " + std::to_string(result.second) + ")";
}

std::string Render(bool value)
{
    return value ? "true" : "false";
}

namespace {

const std::map<std::string, Call>& Calls()
{
    static const std::map<std::string, Call> calls = {
        {"GetTrustedDeviceList",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetTrustedDeviceList(kStr, a.deviceList);
             return std::to_string(rc) + " " + Render(a.deviceList);
         }},
        {"GetTrustedDeviceList(callback)",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc =
                 p.GetTrustedDeviceList(kStr, sptr<IDeviceChangedCallback>(a.devChangedCallback), a.deviceList);
             return std::to_string(rc) + " " + Render(a.deviceList);
         }},
        {"GetTrustedDeviceListWithAbilityFilter",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetTrustedDeviceListWithAbilityFilter(a.abilityFilterList, a.filteredList);
             return std::to_string(rc) + " " + Render(a.filteredList);
         }},
        {"GetTrustedDeviceListWithAbilityFilter(single)",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetTrustedDeviceListWithAbilityFilter(a.abilityFilter, kStr, a.deviceList, nullptr);
             return std::to_string(rc) + " " + Render(a.deviceList);
         }},
        {"GetTrustedDeviceListWithServiceFilter",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetTrustedDeviceListWithServiceFilter(a.serviceFilter, kStr, a.deviceList);
             return std::to_string(rc) + " " + Render(a.deviceList);
         }},
        {"GetTrustedDeviceListWithDeviceFilter",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetTrustedDeviceListWithDeviceFilter(a.deviceFilter, a.deviceList, a.detectCallback);
             return std::to_string(rc) + " " + Render(a.deviceList);
         }},
        {"RegisterDevChangedCallback",
         [](DeviceDetectProxy& p, CallArgs& a) {
             return Render(p.RegisterDevChangedCallback(a.abilityFilter, kStr, a.devChangedCallback));
         }},
        {"RegisterCallbackWithServiceFilter",
         [](DeviceDetectProxy& p, CallArgs& a) {
             return Render(p.RegisterCallbackWithServiceFilter(a.serviceFilter, kStr, a.devChangedCallback));
         }},
        {"UnregisterDevChangedCallback",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.UnregisterDevChangedCallback(kListenerId)); }},
        {"UnregisterServiceFilterListener",
         [](DeviceDetectProxy& p, CallArgs&) {
             return std::to_string(p.UnregisterServiceFilterListener(kListenerId));
         }},
        {"RegisterServiceChangedCallback",
         [](DeviceDetectProxy& p, CallArgs& a) {
             return std::to_string(p.RegisterServiceChangedCallback(a.serviceChangedCallback));
         }},
        {"UnregisterServiceChangedCallback",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.UnregisterServiceChangedCallback()); }},
        {"GetLocalDeviceInfo",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetLocalDeviceInfo(a.localDevice);
             return std::to_string(rc) + " " + Render(a.localDevice);
         }},
        {"GetRemoteDeviceDynamicInfo",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.GetRemoteDeviceDynamicInfo(kDeviceId, a.keyList, a.dynamicInfos);
             return std::to_string(rc) + " " + Render(a.dynamicInfos);
         }},
        {"QueryDeviceConfigInfo",
         [](DeviceDetectProxy& p, CallArgs& a) {
             int32_t rc = p.QueryDeviceConfigInfo(kConfigQuery, a.configInfo);
             return std::to_string(rc) + " " + Render(a.configInfo);
         }},
        {"RegisterServiceDeliverCallback",
         [](DeviceDetectProxy& p, CallArgs& a) {
             return std::to_string(p.RegisterServiceDeliverCallback(kDeliverCode, a.deliverCallback));
         }},
        {"SetDialogEventCallback",
         [](DeviceDetectProxy& p, CallArgs& a) { return std::to_string(p.SetDialogEventCallback(a.dialogCallback)); }},
        {"NotifyAppDialogEvent",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.NotifyAppDialogEvent(kDialogEvent)); }},
        {"RequestService", [](DeviceDetectProxy& p,
                              CallArgs& a) { return std::to_string(p.RequestService(kPkgName, a.publishCallback)); }},
        {"UnRequestService",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.UnRequestService(kPkgName)); }},
        {"GetDeviceSwitch",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.GetDeviceSwitch(kDeviceId)); }},
        {"RegisterKeyMouseCallback",
         [](DeviceDetectProxy& p, CallArgs& a) {
             return std::to_string(p.RegisterKeyMouseCallback(kCallerId, a.keyMouseCallback));
         }},
        {"UnregisterKeyMouseCallback",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.UnregisterKeyMouseCallback(kCallerId)); }},
        {"UpdateKeyMouseEdgeSwitch",
         [](DeviceDetectProxy& p, CallArgs&) { return std::to_string(p.UpdateKeyMouseEdgeSwitch(true)); }},
        {"GetIsSameDeviceAccount",
         [](DeviceDetectProxy& p, CallArgs&) {
             std::string networkId = kNetworkId;
             bool same = p.GetIsSameDeviceAccount(networkId);
             EXPECT_EQ(networkId, kNetworkId);
             return Render(same);
         }},
        {"GetBindKeymouseServiceReq",
         [](DeviceDetectProxy& p, CallArgs&) {
             p.GetBindKeymouseServiceReq(true);
             return std::string("void");
         }},
        {"GetIsNextTypeDevice",
         [](DeviceDetectProxy& p, CallArgs&) {
             std::string networkId = kNetworkId;
             bool next = p.GetIsNextTypeDevice(networkId);
             EXPECT_EQ(networkId, kNetworkId);
             return Render(next);
         }},
    };
    return calls;
}

}  // namespace

Call CallByName(const std::string& name)
{
    auto it = Calls().find(name);
    if (it == Calls().end()) {
        ADD_FAILURE() << "no call named " << name;
        return [](DeviceDetectProxy&, CallArgs&) { return std::string("<no such call>"); };
    }
    return it->second;
}

std::string FunctionOf(const std::string& name)
{
    return name.substr(0, name.find('('));
}

void WriteDevice(MessageParcel& parcel, const std::string& id, uint32_t type)
{
    parcel.WriteInt32(1);
    parcel.WriteString(id);
    parcel.WriteString("n-" + id);
    parcel.WriteString("d-" + id);
    parcel.WriteUint32(type);
}

void WriteAbsent(MessageParcel& parcel)
{
    parcel.WriteInt32(0);
}

void WriteAbilityFilter(MessageParcel& parcel, const std::string& bundle)
{
    parcel.WriteInt32(1);
    parcel.WriteString(bundle);
    parcel.WriteString("type");
    parcel.WriteString("description");
    parcel.WriteUint32(14);
    parcel.WriteUint32(1);
    parcel.WriteString("action");
}

void WriteDynamicInfo(MessageParcel& parcel, const std::string& key, const std::string& value)
{
    parcel.WriteInt32(1);
    parcel.WriteString(key);
    parcel.WriteString(value);
}

void WriteConfigInfo(MessageParcel& parcel)
{
    parcel.WriteInt32(1);
    parcel.WriteString("m1");
    parcel.WriteString("{}");
    parcel.WriteString("name");
    parcel.WriteUint32(17);
    parcel.WriteUint32(1);
}

MessageParcel BuildParcel(const ReplyWriter& writer)
{
    MessageParcel parcel;
    if (writer) {
        writer(parcel);
    }
    return parcel;
}

void ExpectString(MessageParcel& request, const std::string& expected)
{
    std::string value;
    ASSERT_TRUE(request.ReadString(value)) << "expected the string " << expected;
    EXPECT_EQ(value, expected);
}

void ExpectAbilityFilter(MessageParcel& request, const AbilityFilter& expected)
{
    EXPECT_EQ(request.ReadInt32(), 1) << "presence of an AbilityFilter";
    ExpectString(request, expected.GetBundleName());
    ExpectString(request, expected.GetAbilityType());
    ExpectString(request, expected.GetAbilityDescription());
    EXPECT_EQ(request.ReadUint32(), expected.GetDeviceType());
    EXPECT_EQ(request.ReadUint32(), expected.GetAccountType());
    ExpectString(request, expected.GetAction());
}

void ExpectObject(MessageParcel& request, const sptr<IRemoteObject>& expected)
{
    sptr<IRemoteObject> object = request.ReadRemoteObject();
    ASSERT_NE(object, nullptr) << "expected a remote object";
    EXPECT_EQ(object.GetRefPtr(), expected.GetRefPtr());
}

}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
