// Every request code through the proxy: what the request holds after the
// token, the option, the decoded result and every line the call logs. Rows
// with a body check pin the wire; the others pin reply decoding.
#include <set>

#include <gtest/gtest.h>

#include "device_detect_request_code.h"
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
    // Level letter and line; a line without "# " is logged by the call's own
    // function.
    std::vector<std::string> lines;
};

RequestCase Row(std::string name, std::string call, uint32_t code, BodyCheck body, ReplyWriter reply,
                std::string result, std::vector<std::string> lines)
{
    return {std::move(name),   std::move(call), code, std::move(body), std::move(reply),
            std::move(result), std::move(lines)};
}

const BodyCheck kNothing = [](MessageParcel&, const CallArgs&) {};

const ReplyWriter DeviceListReply = DeviceList(2, {{"u1", 14}, {"u2", 17}});

ReplyWriter Int32Reply(int32_t value)
{
    return [value](MessageParcel& r) { r.WriteInt32(value); };
}

ReplyWriter BoolReply(bool value)
{
    return [value](MessageParcel& r) { r.WriteBool(value); };
}

ReplyWriter RegisterReply(int32_t status, uint32_t listenerId)
{
    return [=](MessageParcel& r) {
        r.WriteInt32(status);
        r.WriteUint32(listenerId);
    };
}

BodyCheck Strings(std::vector<std::string> expected)
{
    return [expected](MessageParcel& r, const CallArgs&) {
        for (const std::string& s : expected) {
            ExpectString(r, s);
        }
    };
}

const std::vector<std::string> kListLines = {"I GetTrustedDeviceList", "I GetTrustedDeviceList deviceNum:2",
                                             "I GetTrustedDeviceList end"};
const std::vector<std::string> kFilterListLines = {"I GetTrustedDeviceListWithAbilityFilter",
                                                   "I WriteAbilityFilterList# abilityFilterList length:2",
                                                   "I GetTrustedDeviceList deviceNum:2"};

const std::vector<RequestCase>& Cases()
{
    static const std::vector<RequestCase> cases = {
        // --- trusted device lists ---
        Row("plain list", "GetTrustedDeviceList", 1, Strings({kStr}), DeviceListReply,
            "0 [keep|||0, u1|n-u1|d-u1|14, u2|n-u2|d-u2|17]", kListLines),
        Row("plain list, empty", "GetTrustedDeviceList", 1, nullptr, DeviceList(0, {}), "0 [keep|||0]",
            {"I GetTrustedDeviceList", "I GetTrustedDeviceList deviceNum:0", "I GetTrustedDeviceList end"}),
        Row("plain list, middle record absent", "GetTrustedDeviceList", 1, nullptr,
            DeviceList(3, {{"u1", 14}, {}, {"u3", 9}}), "0 [keep|||0, u1|n-u1|d-u1|14, u3|n-u3|d-u3|9]",
            {"I GetTrustedDeviceList", "I GetTrustedDeviceList deviceNum:3",
             "E GetTrustedDeviceList ReadStrongParcelable nullptr", "I GetTrustedDeviceList end"}),
        Row("plain list, reply ends early", "GetTrustedDeviceList", 1, nullptr, DeviceList(2, {{"u1", 14}}),
            "0 [keep|||0, u1|n-u1|d-u1|14]",
            {"I GetTrustedDeviceList", "I GetTrustedDeviceList deviceNum:2",
             "E GetTrustedDeviceList ReadStrongParcelable nullptr", "I GetTrustedDeviceList end"}),
        Row("callback overload", "GetTrustedDeviceList(callback)", 0, nullptr, DeviceListReply, "0 [keep|||0]",
            {"W GetTrustedDeviceList"}),
        Row(
            "ability filter list", "GetTrustedDeviceListWithAbilityFilter", 4,
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
            "0 [keep|||0[], u1|n-u1|d-u1|14[], u2|n-u2|d-u2|17[b1, null]]", kFilterListLines),
        Row("ability filter list, absent device", "GetTrustedDeviceListWithAbilityFilter", 4, nullptr,
            [](MessageParcel& r) {
                r.WriteUint32(2);
                WriteAbsent(r);
                WriteDevice(r, "u2", 17);
                r.WriteUint32(1);
                WriteAbilityFilter(r, "b2");
            },
            "0 [keep|||0[], u2|n-u2|d-u2|17[b2]]",
            {kFilterListLines[0], kFilterListLines[1], kFilterListLines[2],
             "E GetTrustedDeviceList ReadStrongParcelable nullptr"}),
        Row("ability filter list, count above limit", "GetTrustedDeviceListWithAbilityFilter", 4, nullptr,
            [](MessageParcel& r) { r.WriteUint32(1025); }, "-1 [keep|||0[]]",
            {kFilterListLines[0], kFilterListLines[1]}),
        Row("ability filter list, reply ends after a device", "GetTrustedDeviceListWithAbilityFilter", 4, nullptr,
            [](MessageParcel& r) {
                r.WriteUint32(2);
                WriteDevice(r, "u1", 14);
                r.WriteUint32(0);
                WriteDevice(r, "u2", 17);
            },
            "-1 [keep|||0[], u1|n-u1|d-u1|14[]]",
            {kFilterListLines[0], kFilterListLines[1], kFilterListLines[2],
             "E GetTrustedDeviceList ReadUint32 failed"}),
        Row("single ability filter overload", "GetTrustedDeviceListWithAbilityFilter(single)", 0, nullptr,
            DeviceListReply, "0 [keep|||0]", {"W GetTrustedDeviceListWithAbilityFilter"}),
        Row("service filter", "GetTrustedDeviceListWithServiceFilter", 6,
            [](MessageParcel& r, const CallArgs&) {
                EXPECT_EQ(r.ReadInt32(), 1);
                ExpectString(r, "svc");
                std::vector<std::string> types;
                EXPECT_TRUE(r.ReadStringVector(&types));
                EXPECT_EQ(types, (std::vector<std::string>{"PHONE", "PAD"}));
                ExpectString(r, kStr);
            },
            DeviceList(2, {{}, {"u2", 17}}), "0 [keep|||0, u2|n-u2|d-u2|17]",
            {"I GetTrustedDeviceListWithServiceFilter", "I GetTrustedDeviceList deviceNum:2",
             "E GetTrustedDeviceList ReadStrongParcelable nullptr", "I GetTrustedDeviceList end"}),
        Row("device filter", "GetTrustedDeviceListWithDeviceFilter", 14,
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
            DeviceList(2, {{"u1", 14}, {}}), "0 [keep|||0, u1|n-u1|d-u1|14]",
            {"I GetTrustedDeviceListWithDeviceFilter with callback enter", "I deviceNum:2",
             "E ReadStrongParcelable nullptr"}),

        // --- listeners and callbacks ---
        Row("register with ability filter", "RegisterDevChangedCallback", 7,
            [](MessageParcel& r, const CallArgs& a) {
                ExpectAbilityFilter(r, *a.abilityFilter);
                ExpectString(r, kStr);
                ExpectObject(r, a.devChangedCallback);
            },
            RegisterReply(0, 42), "(0, 42)",
            {"I RegisterDevChangedCallback start", "I RegisterDevChangedCallback end"}),
        Row("register, service refuses", "RegisterDevChangedCallback", 7, nullptr, RegisterReply(-5, 0xFFFFFFFFu),
            "(-5, 4294967295)", {"I RegisterDevChangedCallback start", "I RegisterDevChangedCallback end"}),
        Row("unregister device listener", "UnregisterDevChangedCallback", 8,
            [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), static_cast<int32_t>(0x80000005u)); },
            Int32Reply(3), "3", {"I UnregisterDevChangedCallback start", "I UnregisterDevChangedCallback end"}),
        Row("register with service filter", "RegisterCallbackWithServiceFilter", 9,
            [](MessageParcel& r, const CallArgs& a) {
                EXPECT_EQ(r.ReadInt32(), 1);
                ExpectString(r, "svc");
                std::vector<std::string> types;
                EXPECT_TRUE(r.ReadStringVector(&types));
                ExpectString(r, kStr);
                ExpectObject(r, a.devChangedCallback);
            },
            RegisterReply(7, 43), "(7, 43)",
            {"I RegisterCallbackWithServiceFilter start", "I RegisterCallbackWithServiceFilter end"}),
        Row("unregister service filter listener", "UnregisterServiceFilterListener", 10,
            [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadUint32(), 0x80000005u); }, Int32Reply(0), "0",
            {"I UnregisterServiceFilterListener start", "I UnregisterServiceFilterListener end"}),
        Row("register service change callback", "RegisterServiceChangedCallback", 11,
            [](MessageParcel& r, const CallArgs& a) { ExpectObject(r, a.serviceChangedCallback); }, Int32Reply(-2),
            "-2", {"I start", "I end"}),
        Row("unregister service change callback", "UnregisterServiceChangedCallback", 12, kNothing, Int32Reply(1), "1",
            {"I start", "I end"}),

        // --- device information ---
        Row("local device", "GetLocalDeviceInfo", 13, kNothing, [](MessageParcel& r) { WriteDevice(r, "me", 14); },
            "0 me|n-me|d-me|14", {"I GetLocalDeviceInfo", "I GetLocalDeviceInfo end"}),
        Row(
            "dynamic info", "GetRemoteDeviceDynamicInfo", 15,
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
            {"I GetRemoteDeviceDynamicInfo", "I resultListLen:2", "I GetRemoteDeviceDynamicInfo end"}),
        Row("config info", "QueryDeviceConfigInfo", 16, Strings({kConfigQuery}),
            [](MessageParcel& r) {
                r.WriteInt32(1);
                r.WriteString("m1");
                r.WriteString("{}");
                r.WriteString("name");
                r.WriteUint32(17);
                r.WriteUint32(1);
            },
            "0 m1|{}|name|17|1", {"I QueryDeviceConfigInfo", "I QueryDeviceConfigInfo end"}),
        Row("device switch", "GetDeviceSwitch", 22, Strings({kDeviceId}), Int32Reply(1008), "1008",
            {"I GetDeviceSwitch with deviceId enter", "I deviceStatus:1008"}),
        Row("same account", "GetIsSameDeviceAccount", 26, Strings({kNetworkId}), BoolReply(true), "true",
            {"I GetIsSameDeviceAccount with deviceId enter", "I DeviceAccount:1"}),
        Row("not same account", "GetIsSameDeviceAccount", 26, nullptr, BoolReply(false), "false",
            {"I GetIsSameDeviceAccount with deviceId enter", "I DeviceAccount:0"}),
        Row("bind key-mouse service", "GetBindKeymouseServiceReq", 27,
            [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), 1); }, Int32Reply(99), "void",
            {"I GetBindKeymouseServiceReq"}),
        Row("next type device", "GetIsNextTypeDevice", 28, Strings({kNetworkId}), BoolReply(true), "true",
            {"I GetIsNextTypeDevice with deviceId enter", "I IsNextTypeDevice:1"}),

        // --- services, dialogs, key-mouse ---
        Row("deliver callback", "RegisterServiceDeliverCallback", 17,
            [](MessageParcel& r, const CallArgs& a) {
                ExpectString(r, "-7");
                ExpectObject(r, a.deliverCallback);
            },
            Int32Reply(9), "9", {"I RegisterServiceDeliverCallback", "I RegisterServiceDeliverCallback end"}),
        Row("deliver callback, empty reply", "RegisterServiceDeliverCallback", 17, nullptr, nullptr, "0",
            {"I RegisterServiceDeliverCallback", "I RegisterServiceDeliverCallback end"}),
        Row("dialog callback", "SetDialogEventCallback", 18,
            [](MessageParcel& r, const CallArgs& a) { ExpectObject(r, a.dialogCallback); }, Int32Reply(-1), "0",
            {"I SetDialogEventCallback", "E SetDialogEventCallback callback is null? : 0",
             "I SetDialogEventCallback end"}),
        Row("dialog event", "NotifyAppDialogEvent", 19, Strings({kDialogEvent}), Int32Reply(-1), "0",
            {"I enter", "I end"}),
        Row("request service", "RequestService", 20,
            [](MessageParcel& r, const CallArgs& a) {
                ExpectString(r, kPkgName);
                ExpectObject(r, a.publishCallback);
            },
            Int32Reply(11), "11", {"I enter, pkgName:com.example.pkg"}),
        Row("request service, empty reply", "RequestService", 20, nullptr, nullptr, "0",
            {"I enter, pkgName:com.example.pkg"}),
        Row("withdraw service request", "UnRequestService", 21, Strings({kPkgName}), Int32Reply(12), "12",
            {"I enter, pkgName:com.example.pkg"}),
        Row("key-mouse callback", "RegisterKeyMouseCallback", 23,
            [](MessageParcel& r, const CallArgs& a) {
                ExpectString(r, kCallerId);
                ExpectObject(r, a.keyMouseCallback);
            },
            Int32Reply(6), "6", {"I RegisterKeyMouseCallback start", "I RegisterKeyMouseCallback end"}),
        Row("key-mouse unregister", "UnregisterKeyMouseCallback", 24, Strings({kCallerId}), Int32Reply(7), "7",
            {"I UnregisterKeyMouseCallback start", "I UnregisterKeyMouseCallback end"}),
        Row("key-mouse edge switch", "UpdateKeyMouseEdgeSwitch", 25,
            [](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), 1); }, Int32Reply(8), "8",
            {"I UpdateKeyMouseEdgeSwitch start", "I UpdateKeyMouseEdgeSwitch end"}),
    };
    return cases;
}

// Every request code the library names has a row that pins its request, and
// no row uses a code without a name.
TEST(RequestTableTest, EveryNamedCodeHasAWireRow)
{
    std::set<uint32_t> named;
    std::set<std::string> names;
    for (uint32_t code = 0; code <= 30; ++code) {
        if (const char* name = DeviceDetectRequestCodeToString(code)) {
            named.insert(code);
            names.insert(name);
        }
    }
    EXPECT_EQ(names.size(), named.size()) << "two codes share a name";
    EXPECT_STREQ(DeviceDetectRequestCodeToString(1), "GET_TRUSTED_DEVICE_LIST");
    EXPECT_STREQ(DeviceDetectRequestCodeToString(28), "GET_IS_NEXT_TYPE_DEVICE");
    EXPECT_EQ(DeviceDetectRequestCodeToString(0xFFFFFFFFu), nullptr);

    std::set<uint32_t> pinned;
    for (const RequestCase& c : Cases()) {
        if (c.body) {
            pinned.insert(c.code);
        }
    }
    EXPECT_EQ(pinned, named);
    EXPECT_EQ(named.size(), 25u);
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
        std::vector<std::string> lines;
        for (const std::string& line : c.lines) {
            bool own = line.find("# ") == std::string::npos;
            lines.push_back(own ? line.substr(0, 2) + FunctionOf(c.call) + "# " + line.substr(2) : line);
        }
        EXPECT_EQ(AllLines(log), lines);
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
