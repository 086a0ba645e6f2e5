// Every request code through the proxy: what the request holds after the
// token, the option, the decoded result and every line the call logs. Rows
// with a body check pin the wire; the others pin reply decoding.
#include <set>

#include <gtest/gtest.h>

#include "log_lines.h"
#include "proxy_test_support.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::AllLines;
using Tavik::Test::CheckPrefixes;
using Tavik::Test::FakeRemoteObject;

using BodyCheck = std::function<void(MessageParcel& request, const CallArgs& args)>;

struct RequestCase {
    std::string name;
    std::string call;
    // 0: the call must send nothing.
    uint32_t code;
    // Checks the items after the token; null for rows that only vary the
    // reply.
    BodyCheck body;
    ReplyWriter reply;
    std::string result;
    std::vector<std::string> lines;
};

const BodyCheck kNothing = [](MessageParcel&, const CallArgs&) {};

void DeviceListReply(MessageParcel& r)
{
    r.WriteUint32(2);
    WriteDevice(r, "u1", 14);
    WriteDevice(r, "u2", 17);
}

const std::vector<RequestCase>& Cases()
{
    static const std::vector<RequestCase> cases = {
        // --- trusted device lists ---
        {"plain list",
         "GetTrustedDeviceList",
         1,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kStr); },
         DeviceListReply,
         "0 [keep|||0, u1|n-u1|d-u1|14, u2|n-u2|d-u2|17]",
         {"I GetTrustedDeviceList# GetTrustedDeviceList", "I GetTrustedDeviceList# GetTrustedDeviceList deviceNum:2",
          "I GetTrustedDeviceList# GetTrustedDeviceList end"}},
        {"plain list, empty",
         "GetTrustedDeviceList",
         1,
         nullptr,
         [](MessageParcel& r) { r.WriteUint32(0); },
         "0 [keep|||0]",
         {"I GetTrustedDeviceList# GetTrustedDeviceList", "I GetTrustedDeviceList# GetTrustedDeviceList deviceNum:0",
          "I GetTrustedDeviceList# GetTrustedDeviceList end"}},
        {"plain list, middle record absent",
         "GetTrustedDeviceList",
         1,
         nullptr,
         [](MessageParcel& r) {
             r.WriteUint32(3);
             WriteDevice(r, "u1", 14);
             WriteAbsent(r);
             WriteDevice(r, "u3", 9);
         },
         "0 [keep|||0, u1|n-u1|d-u1|14, u3|n-u3|d-u3|9]",
         {"I GetTrustedDeviceList# GetTrustedDeviceList", "I GetTrustedDeviceList# GetTrustedDeviceList deviceNum:3",
          "E GetTrustedDeviceList# GetTrustedDeviceList ReadStrongParcelable nullptr",
          "I GetTrustedDeviceList# GetTrustedDeviceList end"}},
        {"plain list, reply ends early",
         "GetTrustedDeviceList",
         1,
         nullptr,
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteDevice(r, "u1", 14);
         },
         "0 [keep|||0, u1|n-u1|d-u1|14]",
         {"I GetTrustedDeviceList# GetTrustedDeviceList", "I GetTrustedDeviceList# GetTrustedDeviceList deviceNum:2",
          "E GetTrustedDeviceList# GetTrustedDeviceList ReadStrongParcelable nullptr",
          "I GetTrustedDeviceList# GetTrustedDeviceList end"}},
        {"callback overload",
         "GetTrustedDeviceList(callback)",
         0,
         nullptr,
         DeviceListReply,
         "0 [keep|||0]",
         {"W GetTrustedDeviceList# GetTrustedDeviceList"}},
        {"ability filter list",
         "GetTrustedDeviceListWithAbilityFilter",
         4,
         [](MessageParcel& r, const CallArgs& a) {
             EXPECT_EQ(r.ReadUint32(), 2u);
             ExpectAbilityFilter(r, *a.abilityFilterList[0]);
             ExpectAbilityFilter(r, *a.abilityFilterList[1]);
         },
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteDevice(r, "u1", 14);
             r.WriteUint32(0);
             WriteDevice(r, "u2", 17);
             r.WriteUint32(2);
             WriteAbilityFilter(r, "b1");
             WriteAbsent(r);
         },
         "0 [keep|||0[], u1|n-u1|d-u1|14[], u2|n-u2|d-u2|17[b1, null]]",
         {"I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceListWithAbilityFilter",
          "I WriteAbilityFilterList# abilityFilterList length:2",
          "I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList deviceNum:2"}},
        {"ability filter list, absent device",
         "GetTrustedDeviceListWithAbilityFilter",
         4,
         nullptr,
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteAbsent(r);
             WriteDevice(r, "u2", 17);
             r.WriteUint32(1);
             WriteAbilityFilter(r, "b2");
         },
         "0 [keep|||0[], u2|n-u2|d-u2|17[b2]]",
         {"I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceListWithAbilityFilter",
          "I WriteAbilityFilterList# abilityFilterList length:2",
          "I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList deviceNum:2",
          "E GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList ReadStrongParcelable nullptr"}},
        {"ability filter list, count above limit",
         "GetTrustedDeviceListWithAbilityFilter",
         4,
         nullptr,
         [](MessageParcel& r) { r.WriteUint32(1025); },
         "-1 [keep|||0[]]",
         {"I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceListWithAbilityFilter",
          "I WriteAbilityFilterList# abilityFilterList length:2"}},
        {"ability filter list, reply ends after a device",
         "GetTrustedDeviceListWithAbilityFilter",
         4,
         nullptr,
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteDevice(r, "u1", 14);
             r.WriteUint32(0);
             WriteDevice(r, "u2", 17);
         },
         "-1 [keep|||0[], u1|n-u1|d-u1|14[]]",
         {"I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceListWithAbilityFilter",
          "I WriteAbilityFilterList# abilityFilterList length:2",
          "I GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList deviceNum:2",
          "E GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList ReadUint32 failed"}},
        {"single ability filter overload",
         "GetTrustedDeviceListWithAbilityFilter(single)",
         0,
         nullptr,
         DeviceListReply,
         "0 [keep|||0]",
         {"W GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceListWithAbilityFilter"}},
        {"service filter",
         "GetTrustedDeviceListWithServiceFilter",
         6,
         [](MessageParcel& r, const CallArgs&) {
             EXPECT_EQ(r.ReadInt32(), 1);
             ExpectString(r, "svc");
             std::vector<std::string> types;
             EXPECT_TRUE(r.ReadStringVector(&types));
             EXPECT_EQ(types, (std::vector<std::string>{"PHONE", "PAD"}));
             ExpectString(r, kStr);
         },
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteAbsent(r);
             WriteDevice(r, "u2", 17);
         },
         "0 [keep|||0, u2|n-u2|d-u2|17]",
         {"I GetTrustedDeviceListWithServiceFilter# GetTrustedDeviceListWithServiceFilter",
          "I GetTrustedDeviceListWithServiceFilter# GetTrustedDeviceList deviceNum:2",
          "E GetTrustedDeviceListWithServiceFilter# GetTrustedDeviceList ReadStrongParcelable nullptr",
          "I GetTrustedDeviceListWithServiceFilter# GetTrustedDeviceList end"}},
        {"device filter",
         "GetTrustedDeviceListWithDeviceFilter",
         14,
         [](MessageParcel& r, const CallArgs& a) {
             EXPECT_EQ(r.ReadInt32(), 1);
             std::vector<uint32_t> deviceTypes;
             std::vector<uint32_t> accountTypes;
             EXPECT_TRUE(r.ReadUInt32Vector(&deviceTypes));
             EXPECT_TRUE(r.ReadUInt32Vector(&accountTypes));
             EXPECT_EQ(deviceTypes, (std::vector<uint32_t>{14, 17}));
             EXPECT_EQ(accountTypes, (std::vector<uint32_t>{1, 2}));
             ExpectObject(r, a.detectCallback);
         },
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteDevice(r, "u1", 14);
             WriteAbsent(r);
         },
         "0 [keep|||0, u1|n-u1|d-u1|14]",
         {"I GetTrustedDeviceListWithDeviceFilter# GetTrustedDeviceListWithDeviceFilter with callback enter",
          "I GetTrustedDeviceListWithDeviceFilter# deviceNum:2",
          "E GetTrustedDeviceListWithDeviceFilter# ReadStrongParcelable nullptr"}},

        // --- listeners and callbacks ---
        {"register with ability filter",
         "RegisterDevChangedCallback",
         7,
         [](MessageParcel& r, const CallArgs& a) {
             ExpectAbilityFilter(r, *a.abilityFilter);
             ExpectString(r, kStr);
             ExpectObject(r, a.devChangedCallback);
         },
         [](MessageParcel& r) {
             r.WriteInt32(0);
             r.WriteUint32(42);
         },
         "(0, 42)",
         {"I RegisterDevChangedCallback# RegisterDevChangedCallback start",
          "I RegisterDevChangedCallback# RegisterDevChangedCallback end"}},
        {"register, service refuses",
         "RegisterDevChangedCallback",
         7,
         nullptr,
         [](MessageParcel& r) {
             r.WriteInt32(-5);
             r.WriteUint32(0xFFFFFFFFu);
         },
         "(-5, 4294967295)",
         {"I RegisterDevChangedCallback# RegisterDevChangedCallback start",
          "I RegisterDevChangedCallback# RegisterDevChangedCallback end"}},
        {"unregister device listener",
         "UnregisterDevChangedCallback",
         8,
         [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), static_cast<int32_t>(0x80000005u)); },
         [](MessageParcel& r) { r.WriteInt32(3); },
         "3",
         {"I UnregisterDevChangedCallback# UnregisterDevChangedCallback start",
          "I UnregisterDevChangedCallback# UnregisterDevChangedCallback end"}},
        {"register with service filter",
         "RegisterCallbackWithServiceFilter",
         9,
         [](MessageParcel& r, const CallArgs& a) {
             EXPECT_EQ(r.ReadInt32(), 1);
             ExpectString(r, "svc");
             std::vector<std::string> types;
             EXPECT_TRUE(r.ReadStringVector(&types));
             ExpectString(r, kStr);
             ExpectObject(r, a.devChangedCallback);
         },
         [](MessageParcel& r) {
             r.WriteInt32(7);
             r.WriteUint32(43);
         },
         "(7, 43)",
         {"I RegisterCallbackWithServiceFilter# RegisterCallbackWithServiceFilter start",
          "I RegisterCallbackWithServiceFilter# RegisterCallbackWithServiceFilter end"}},
        {"unregister service filter listener",
         "UnregisterServiceFilterListener",
         10,
         [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadUint32(), 0x80000005u); },
         [](MessageParcel& r) { r.WriteInt32(0); },
         "0",
         {"I UnregisterServiceFilterListener# UnregisterServiceFilterListener start",
          "I UnregisterServiceFilterListener# UnregisterServiceFilterListener end"}},
        {"register service change callback",
         "RegisterServiceChangedCallback",
         11,
         [](MessageParcel& r, const CallArgs& a) { ExpectObject(r, a.serviceChangedCallback); },
         [](MessageParcel& r) { r.WriteInt32(-2); },
         "-2",
         {"I RegisterServiceChangedCallback# start", "I RegisterServiceChangedCallback# end"}},
        {"unregister service change callback",
         "UnregisterServiceChangedCallback",
         12,
         kNothing,
         [](MessageParcel& r) { r.WriteInt32(1); },
         "1",
         {"I UnregisterServiceChangedCallback# start", "I UnregisterServiceChangedCallback# end"}},

        // --- device information ---
        {"local device",
         "GetLocalDeviceInfo",
         13,
         kNothing,
         [](MessageParcel& r) { WriteDevice(r, "me", 14); },
         "0 me|n-me|d-me|14",
         {"I GetLocalDeviceInfo# GetLocalDeviceInfo", "I GetLocalDeviceInfo# GetLocalDeviceInfo end"}},
        {"dynamic info",
         "GetRemoteDeviceDynamicInfo",
         15,
         [](MessageParcel& r, const CallArgs& a) {
             ExpectString(r, kDeviceId);
             std::vector<std::string> keys;
             EXPECT_TRUE(r.ReadStringVector(&keys));
             EXPECT_EQ(keys, a.keyList);
         },
         [](MessageParcel& r) {
             r.WriteUint32(2);
             WriteDynamicInfo(r, "battery", "80");
             WriteDynamicInfo(r, "wifi", "on");
         },
         "0 [keep=1, battery=80, wifi=on]",
         {"I GetRemoteDeviceDynamicInfo# GetRemoteDeviceDynamicInfo", "I GetRemoteDeviceDynamicInfo# resultListLen:2",
          "I GetRemoteDeviceDynamicInfo# GetRemoteDeviceDynamicInfo end"}},
        {"config info",
         "QueryDeviceConfigInfo",
         16,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kConfigQuery); },
         WriteConfigInfo,
         "0 m1|{}|name|17|1",
         {"I QueryDeviceConfigInfo# QueryDeviceConfigInfo", "I QueryDeviceConfigInfo# QueryDeviceConfigInfo end"}},
        {"device switch",
         "GetDeviceSwitch",
         22,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kDeviceId); },
         [](MessageParcel& r) { r.WriteInt32(1008); },
         "1008",
         {"I GetDeviceSwitch# GetDeviceSwitch with deviceId enter", "I GetDeviceSwitch# deviceStatus:1008"}},
        {"same account",
         "GetIsSameDeviceAccount",
         26,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kNetworkId); },
         [](MessageParcel& r) { r.WriteBool(true); },
         "true",
         {"I GetIsSameDeviceAccount# GetIsSameDeviceAccount with deviceId enter",
          "I GetIsSameDeviceAccount# DeviceAccount:1"}},
        {"not same account",
         "GetIsSameDeviceAccount",
         26,
         nullptr,
         [](MessageParcel& r) { r.WriteBool(false); },
         "false",
         {"I GetIsSameDeviceAccount# GetIsSameDeviceAccount with deviceId enter",
          "I GetIsSameDeviceAccount# DeviceAccount:0"}},
        {"bind key-mouse service",
         "GetBindKeymouseServiceReq",
         27,
         [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), 1); },
         [](MessageParcel& r) { r.WriteInt32(99); },
         "void",
         {"I GetBindKeymouseServiceReq# GetBindKeymouseServiceReq"}},
        {"next type device",
         "GetIsNextTypeDevice",
         28,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kNetworkId); },
         [](MessageParcel& r) { r.WriteBool(true); },
         "true",
         {"I GetIsNextTypeDevice# GetIsNextTypeDevice with deviceId enter",
          "I GetIsNextTypeDevice# IsNextTypeDevice:1"}},

        // --- services, dialogs, key-mouse ---
        {"deliver callback",
         "RegisterServiceDeliverCallback",
         17,
         [](MessageParcel& r, const CallArgs& a) {
             ExpectString(r, "-7");
             ExpectObject(r, a.deliverCallback);
         },
         [](MessageParcel& r) { r.WriteInt32(9); },
         "9",
         {"I RegisterServiceDeliverCallback# RegisterServiceDeliverCallback",
          "I RegisterServiceDeliverCallback# RegisterServiceDeliverCallback end"}},
        {"deliver callback, empty reply",
         "RegisterServiceDeliverCallback",
         17,
         nullptr,
         nullptr,
         "0",
         {"I RegisterServiceDeliverCallback# RegisterServiceDeliverCallback",
          "I RegisterServiceDeliverCallback# RegisterServiceDeliverCallback end"}},
        {"dialog callback",
         "SetDialogEventCallback",
         18,
         [](MessageParcel& r, const CallArgs& a) { ExpectObject(r, a.dialogCallback); },
         [](MessageParcel& r) { r.WriteInt32(-1); },
         "0",
         {"I SetDialogEventCallback# SetDialogEventCallback",
          "E SetDialogEventCallback# SetDialogEventCallback callback is null? : 0",
          "I SetDialogEventCallback# SetDialogEventCallback end"}},
        {"dialog event",
         "NotifyAppDialogEvent",
         19,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kDialogEvent); },
         [](MessageParcel& r) { r.WriteInt32(-1); },
         "0",
         {"I NotifyAppDialogEvent# enter", "I NotifyAppDialogEvent# end"}},
        {"request service",
         "RequestService",
         20,
         [](MessageParcel& r, const CallArgs& a) {
             ExpectString(r, kPkgName);
             ExpectObject(r, a.publishCallback);
         },
         [](MessageParcel& r) { r.WriteInt32(11); },
         "11",
         {"I RequestService# enter, pkgName:com.example.pkg"}},
        {"request service, empty reply",
         "RequestService",
         20,
         nullptr,
         nullptr,
         "0",
         {"I RequestService# enter, pkgName:com.example.pkg"}},
        {"withdraw service request",
         "UnRequestService",
         21,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kPkgName); },
         [](MessageParcel& r) { r.WriteInt32(12); },
         "12",
         {"I UnRequestService# enter, pkgName:com.example.pkg"}},
        {"key-mouse callback",
         "RegisterKeyMouseCallback",
         23,
         [](MessageParcel& r, const CallArgs& a) {
             ExpectString(r, kCallerId);
             ExpectObject(r, a.keyMouseCallback);
         },
         [](MessageParcel& r) { r.WriteInt32(6); },
         "6",
         {"I RegisterKeyMouseCallback# RegisterKeyMouseCallback start",
          "I RegisterKeyMouseCallback# RegisterKeyMouseCallback end"}},
        {"key-mouse unregister",
         "UnregisterKeyMouseCallback",
         24,
         [](MessageParcel& r, const CallArgs&) { ExpectString(r, kCallerId); },
         [](MessageParcel& r) { r.WriteInt32(7); },
         "7",
         {"I UnregisterKeyMouseCallback# UnregisterKeyMouseCallback start",
          "I UnregisterKeyMouseCallback# UnregisterKeyMouseCallback end"}},
        {"key-mouse edge switch",
         "UpdateKeyMouseEdgeSwitch",
         25,
         [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), 1); },
         [](MessageParcel& r) { r.WriteInt32(8); },
         "8",
         {"I UpdateKeyMouseEdgeSwitch# UpdateKeyMouseEdgeSwitch start",
          "I UpdateKeyMouseEdgeSwitch# UpdateKeyMouseEdgeSwitch end"}},
    };
    return cases;
}

TEST(RequestTableTest, EveryCodeHasAWireRow)
{
    std::set<uint32_t> codes;
    for (const RequestCase& c : Cases()) {
        if (c.body) {
            codes.insert(c.code);
        }
    }
    codes.erase(0);
    std::set<uint32_t> expected = {1,  4,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                                   17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28};
    EXPECT_EQ(codes, expected);
}

TEST(RequestTableTest, RequestsRepliesAndLines)
{
    for (const RequestCase& c : Cases()) {
        SCOPED_TRACE(c.name);
        sptr<FakeRemoteObject> remote = new FakeRemoteObject();
        remote->SetReply(BuildParcel(c.reply));
        sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
        CallArgs args;
        LogCapture log;

        EXPECT_EQ(CallByName(c.call)(*proxy, args), c.result);
        EXPECT_EQ(AllLines(log), c.lines);
        EXPECT_EQ(CheckPrefixes(log, "device_detect_proxy"), "");

        if (c.code == 0) {
            EXPECT_EQ(remote->RequestCount(), 0u);
            continue;
        }
        ASSERT_EQ(remote->RequestCount(), 1u);
        Tavik::Test::RecordedRequest sent = remote->LastRequest();
        EXPECT_EQ(sent.code, c.code);
        EXPECT_EQ(sent.flags, 0);
        EXPECT_EQ(sent.waitTime, 8);
        if (c.body) {
            MessageParcel request = sent.ToParcel();
            EXPECT_EQ(request.ReadInterfaceToken(), u"Tavik.Syntavo.IDeviceDetect");
            c.body(request, args);
            EXPECT_EQ(request.GetReadableBytes(), 0u) << "the request holds more than the expected items";
        }
    }
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
