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

// Request readers, one per item; Body() checks them in order.
BodyCheck Str(std::string expected)
{
    return [expected](MessageParcel& r, const CallArgs&) {
        std::string value;
        ASSERT_TRUE(r.ReadString(value)) << "expected the string " << expected;
        EXPECT_EQ(value, expected);
    };
}

BodyCheck I32(int32_t expected)
{
    return [expected](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadInt32(), expected); };
}

BodyCheck U32(uint32_t expected)
{
    return [expected](MessageParcel& r, const CallArgs&) { EXPECT_EQ(r.ReadUint32(), expected); };
}

BodyCheck StrVec(std::vector<std::string> expected)
{
    return [expected](MessageParcel& r, const CallArgs&) {
        std::vector<std::string> values;
        EXPECT_TRUE(r.ReadStringVector(&values));
        EXPECT_EQ(values, expected);
    };
}

// The argument's object itself, not a copy.
template <typename T>
BodyCheck Obj(sptr<T> CallArgs::*member)
{
    return [member](MessageParcel& r, const CallArgs& a) {
        sptr<IRemoteObject> object = r.ReadRemoteObject();
        ASSERT_NE(object, nullptr) << "expected a remote object";
        EXPECT_EQ(object.GetRefPtr(), static_cast<IRemoteObject*>((a.*member).GetRefPtr()));
    };
}

// A record, byte for byte as its own Marshalling writes it.
void ExpectRecord(MessageParcel& r, const Parcelable& record)
{
    MessageParcel expected;
    expected.WriteParcelable(&record);
    const size_t size = expected.GetDataSize();
    const uint8_t* sent = r.ReadBuffer(size);
    ASSERT_NE(sent, nullptr) << "expected a record";
    EXPECT_EQ(std::vector<uint8_t>(sent, sent + size),
              std::vector<uint8_t>(expected.GetData(), expected.GetData() + size));
}

template <typename T>
BodyCheck Rec(sptr<T> CallArgs::*member)
{
    return [member](MessageParcel& r, const CallArgs& a) { ExpectRecord(r, *(a.*member)); };
}

BodyCheck Filter(size_t index)
{
    return [index](MessageParcel& r, const CallArgs& a) { ExpectRecord(r, *a.abilityFilterList[index]); };
}

BodyCheck Body(std::vector<BodyCheck> items)
{
    return [items](MessageParcel& r, const CallArgs& a) {
        for (const BodyCheck& item : items) {
            item(r, a);
        }
    };
}

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

const std::vector<std::string> kListLines = {"I GetTrustedDeviceList", "I GetTrustedDeviceList deviceNum:2",
                                             "I GetTrustedDeviceList end"};
const std::vector<std::string> kFilterListLines = {"I GetTrustedDeviceListWithAbilityFilter",
                                                   "I WriteAbilityFilterList# abilityFilterList length:2",
                                                   "I GetTrustedDeviceList deviceNum:2"};

const std::vector<RequestCase>& Cases()
{
    static const std::vector<RequestCase> cases = {
        // --- trusted device lists ---
        Row("plain list", "GetTrustedDeviceList", 1, Body({Str(kStr)}), DeviceListReply,
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
            "ability filter list", "GetTrustedDeviceListWithAbilityFilter", 4, Body({U32(2), Filter(0), Filter(1)}),
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
            Body({Rec(&CallArgs::serviceFilter), Str(kStr)}), DeviceList(2, {{}, {"u2", 17}}),
            "0 [keep|||0, u2|n-u2|d-u2|17]",
            {"I GetTrustedDeviceListWithServiceFilter", "I GetTrustedDeviceList deviceNum:2",
             "E GetTrustedDeviceList ReadStrongParcelable nullptr", "I GetTrustedDeviceList end"}),
        Row("device filter", "GetTrustedDeviceListWithDeviceFilter", 14,
            Body({Rec(&CallArgs::deviceFilter), Obj(&CallArgs::detectCallback)}), DeviceList(2, {{"u1", 14}, {}}),
            "0 [keep|||0, u1|n-u1|d-u1|14]",
            {"I GetTrustedDeviceListWithDeviceFilter with callback enter", "I deviceNum:2",
             "E ReadStrongParcelable nullptr"}),

        // --- listeners and callbacks ---
        Row("register with ability filter", "RegisterDevChangedCallback", 7,
            Body({Rec(&CallArgs::abilityFilter), Str(kStr), Obj(&CallArgs::devChangedCallback)}), RegisterReply(0, 42),
            "(0, 42)", {"I RegisterDevChangedCallback start", "I RegisterDevChangedCallback end"}),
        Row("register, service refuses", "RegisterDevChangedCallback", 7, nullptr, RegisterReply(-5, 0xFFFFFFFFu),
            "(-5, 4294967295)", {"I RegisterDevChangedCallback start", "I RegisterDevChangedCallback end"}),
        Row("unregister device listener", "UnregisterDevChangedCallback", 8,
            Body({I32(static_cast<int32_t>(0x80000005u))}), Int32Reply(3), "3",
            {"I UnregisterDevChangedCallback start", "I UnregisterDevChangedCallback end"}),
        Row("register with service filter", "RegisterCallbackWithServiceFilter", 9,
            Body({Rec(&CallArgs::serviceFilter), Str(kStr), Obj(&CallArgs::devChangedCallback)}), RegisterReply(7, 43),
            "(7, 43)", {"I RegisterCallbackWithServiceFilter start", "I RegisterCallbackWithServiceFilter end"}),
        Row("unregister service filter listener", "UnregisterServiceFilterListener", 10, Body({U32(0x80000005u)}),
            Int32Reply(0), "0", {"I UnregisterServiceFilterListener start", "I UnregisterServiceFilterListener end"}),
        Row("register service change callback", "RegisterServiceChangedCallback", 11,
            Body({Obj(&CallArgs::serviceChangedCallback)}), Int32Reply(-2), "-2", {"I start", "I end"}),
        Row("unregister service change callback", "UnregisterServiceChangedCallback", 12, Body({}), Int32Reply(1), "1",
            {"I start", "I end"}),

        // --- device information ---
        Row("local device", "GetLocalDeviceInfo", 13, Body({}), [](MessageParcel& r) { WriteDevice(r, "me", 14); },
            "0 me|n-me|d-me|14", {"I GetLocalDeviceInfo", "I GetLocalDeviceInfo end"}),
        Row("dynamic info", "GetRemoteDeviceDynamicInfo", 15, Body({Str(kDeviceId), StrVec({"battery", "wifi"})}),
            [](MessageParcel& r) {
                r.WriteUint32(2);
                WriteDynamicInfo(r, "battery", "80");
                WriteDynamicInfo(r, "wifi", "on");
            },
            "0 [keep=1, battery=80, wifi=on]",
            {"I GetRemoteDeviceDynamicInfo", "I resultListLen:2", "I GetRemoteDeviceDynamicInfo end"}),
        Row("config info", "QueryDeviceConfigInfo", 16, Body({Str(kConfigQuery)}),
            [](MessageParcel& r) {
                DeviceConfigInfo info("m1", "{}", "name", 17, 1);
                r.WriteParcelable(&info);
            },
            "0 m1|{}|name|17|1", {"I QueryDeviceConfigInfo", "I QueryDeviceConfigInfo end"}),
        Row("device switch", "GetDeviceSwitch", 22, Body({Str(kDeviceId)}), Int32Reply(1008), "1008",
            {"I GetDeviceSwitch with deviceId enter", "I deviceStatus:1008"}),
        Row("same account", "GetIsSameDeviceAccount", 26, Body({Str(kNetworkId)}), BoolReply(true), "true",
            {"I GetIsSameDeviceAccount with deviceId enter", "I DeviceAccount:1"}),
        Row("not same account", "GetIsSameDeviceAccount", 26, nullptr, BoolReply(false), "false",
            {"I GetIsSameDeviceAccount with deviceId enter", "I DeviceAccount:0"}),
        Row("bind key-mouse service", "GetBindKeymouseServiceReq", 27, Body({I32(1)}), Int32Reply(99), "void",
            {"I GetBindKeymouseServiceReq"}),
        Row("next type device", "GetIsNextTypeDevice", 28, Body({Str(kNetworkId)}), BoolReply(true), "true",
            {"I GetIsNextTypeDevice with deviceId enter", "I IsNextTypeDevice:1"}),

        // --- services, dialogs, key-mouse ---
        Row("deliver callback", "RegisterServiceDeliverCallback", 17,
            Body({Str("-7"), Obj(&CallArgs::deliverCallback)}), Int32Reply(9), "9",
            {"I RegisterServiceDeliverCallback", "I RegisterServiceDeliverCallback end"}),
        Row("deliver callback, empty reply", "RegisterServiceDeliverCallback", 17, nullptr, nullptr, "0",
            {"I RegisterServiceDeliverCallback", "I RegisterServiceDeliverCallback end"}),
        Row("dialog callback", "SetDialogEventCallback", 18, Body({Obj(&CallArgs::dialogCallback)}), Int32Reply(-1),
            "0",
            {"I SetDialogEventCallback", "E SetDialogEventCallback callback is null? : 0",
             "I SetDialogEventCallback end"}),
        Row("dialog event", "NotifyAppDialogEvent", 19, Body({Str(kDialogEvent)}), Int32Reply(-1), "0",
            {"I enter", "I end"}),
        Row("request service", "RequestService", 20, Body({Str(kPkgName), Obj(&CallArgs::publishCallback)}),
            Int32Reply(11), "11", {"I enter, pkgName:com.example.pkg"}),
        Row("request service, empty reply", "RequestService", 20, nullptr, nullptr, "0",
            {"I enter, pkgName:com.example.pkg"}),
        Row("withdraw service request", "UnRequestService", 21, Body({Str(kPkgName)}), Int32Reply(12), "12",
            {"I enter, pkgName:com.example.pkg"}),
        Row("key-mouse callback", "RegisterKeyMouseCallback", 23,
            Body({Str(kCallerId), Obj(&CallArgs::keyMouseCallback)}), Int32Reply(6), "6",
            {"I RegisterKeyMouseCallback start", "I RegisterKeyMouseCallback end"}),
        Row("key-mouse unregister", "UnregisterKeyMouseCallback", 24, Body({Str(kCallerId)}), Int32Reply(7), "7",
            {"I UnregisterKeyMouseCallback start", "I UnregisterKeyMouseCallback end"}),
        Row("key-mouse edge switch", "UpdateKeyMouseEdgeSwitch", 25, Body({I32(1)}), Int32Reply(8), "8",
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
