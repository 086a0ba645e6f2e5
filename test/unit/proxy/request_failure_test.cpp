// Every failing step of every request: the value returned, the ERROR lines
// (function and text) and whether anything was sent. Write failures come
// from the parcel seam: Writes(n) lets the first n writes of the call
// succeed, so Writes(0) refuses the token and Writes(k) the k-th argument.
#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include "device_detect_status.h"
#include "ipc_status.h"
#include "log_lines.h"
#include "parcel_test_seam.h"
#include "proxy_test_support.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::CheckPrefixes;
using Tavik::Test::FakeRemoteObject;
using Tavik::Test::LinesAt;

struct Fault {
    int allowedWrites = -1;
    bool failSend = false;
    bool nullCallbacks = false;
    // The reply of the service; empty when null.
    ReplyWriter reply;
    // A proxy around no object at all: it fails where a dead service would.
    bool noRemote = false;
};

Fault Writes(int n)
{
    return {n, false, false, nullptr};
}
const Fault kSendFails = {-1, true, false, nullptr};
const Fault kNullCallback = {-1, false, true, nullptr};
const Fault kEmptyReply;
const Fault kNoRemote = {-1, false, false, nullptr, true};
Fault Reply(ReplyWriter writer)
{
    return {-1, false, false, std::move(writer)};
}

struct FailureCase {
    std::string call;
    Fault fault;
    std::string result;
    // ERROR lines in order; a text without "# " is logged by the call's own
    // function.
    std::vector<std::string> errors;
};

FailureCase Fail(std::string call, Fault fault, std::string result, std::vector<std::string> errors)
{
    return {std::move(call), std::move(fault), std::move(result), std::move(errors)};
}

const ReplyWriter kStatusOnly = [](MessageParcel& r) { r.WriteInt32(0); };
const ReplyWriter kCount1025 = [](MessageParcel& r) { r.WriteUint32(1025); };
const ReplyWriter kAbsentRecord = [](MessageParcel& r) { r.WriteInt32(0); };

const std::vector<FailureCase>& Cases()
{
    static const std::vector<FailureCase> cases = {
        Fail("GetTrustedDeviceList", Writes(0), "-1 [keep|||0]", {"GetTrustedDeviceList WriteInterfaceToken failed"}),
        Fail("GetTrustedDeviceList", Writes(1), "-1 [keep|||0]", {"GetTrustedDeviceList WriteString failed"}),
        Fail("GetTrustedDeviceList", kSendFails, "-1 [keep|||0]", {"GetTrustedDeviceList SendRequest failed"}),
        Fail("GetTrustedDeviceList", kNoRemote, "-1 [keep|||0]", {"GetTrustedDeviceList SendRequest failed"}),
        Fail("GetTrustedDeviceList", kEmptyReply, "-1 [keep|||0]", {"GetTrustedDeviceList ReadUint32 failed"}),
        Fail("GetTrustedDeviceList", Reply(kCount1025), "-1 [keep|||0]", {"Devicenum exceed maximum"}),
        Fail("GetTrustedDeviceListWithAbilityFilter", Writes(0), "-1 [keep|||0[]]",
             {"GetTrustedDeviceList WriteInterfaceToken failed"}),
        Fail("GetTrustedDeviceListWithAbilityFilter", Writes(1), "-1 [keep|||0[]]",
             {"WriteAbilityFilterList# GetTrustedDeviceList WriteUint32 failed",
              "GetTrustedDeviceList WriteStrongParcelable failed"}),
        Fail("GetTrustedDeviceListWithAbilityFilter", Writes(3), "-1 [keep|||0[]]",
             {"WriteAbilityFilterList# GetTrustedDeviceList WriteStrongParcelable failed",
              "GetTrustedDeviceList WriteStrongParcelable failed"}),
        Fail("GetTrustedDeviceListWithAbilityFilter", kSendFails, "-1 [keep|||0[]]",
             {"GetTrustedDeviceList SendRequest failed"}),
        Fail("GetTrustedDeviceListWithAbilityFilter", kEmptyReply, "-1 [keep|||0[]]",
             {"GetTrustedDeviceList ReadUint32 failed"}),
        Fail("GetTrustedDeviceListWithAbilityFilter", Reply([](MessageParcel& r) {
                 r.WriteUint32(1);
                 WriteDevice(r, "u1", 14);
                 r.WriteUint32(0xFFFFFFFFu);
             }),
             "-1 [keep|||0[]]", {"GetTrustedDeviceList abilityFilterNum:4294967295 exceeds the reply"}),
        Fail("GetTrustedDeviceListWithServiceFilter", Writes(0), "1006 [keep|||0]",
             {"GetTrustedDeviceList WriteInterfaceToken failed"}),
        Fail("GetTrustedDeviceListWithServiceFilter", Writes(1), "1007 [keep|||0]",
             {"GetTrustedDeviceList WriteStrongParcelable failed"}),
        Fail("GetTrustedDeviceListWithServiceFilter", Writes(2), "1021 [keep|||0]",
             {"GetTrustedDeviceList WriteString failed"}),
        Fail("GetTrustedDeviceListWithServiceFilter", kSendFails, "1008 [keep|||0]",
             {"GetTrustedDeviceList SendRequest failed"}),
        Fail("GetTrustedDeviceListWithServiceFilter", kEmptyReply, "1022 [keep|||0]",
             {"GetTrustedDeviceList ReadUint32 failed"}),
        Fail("GetTrustedDeviceListWithServiceFilter", Reply(kCount1025), "1023 [keep|||0]",
             {"DeviceNum exceed maximum"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", Writes(0), "1006 [keep|||0]", {"WriteInterfaceToken failed"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", Writes(1), "1007 [keep|||0]", {"WriteStrongParcelable failed"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", Writes(2), "1011 [keep|||0]", {"WriteRemoteObject failed"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", kNullCallback, "1011 [keep|||0]", {"WriteRemoteObject failed"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", kSendFails, "1008 [keep|||0]", {"SendRequest failed"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", kEmptyReply, "1001 [keep|||0]", {"ReadUint32 failed"}),
        Fail("GetTrustedDeviceListWithDeviceFilter", Reply(kCount1025), "-1 [keep|||0]", {"Devicenum exceed maximum"}),
        Fail("RegisterDevChangedCallback", Writes(0), "(1006, 0)", {"WriteInterfaceToken failed"}),
        Fail("RegisterDevChangedCallback", Writes(1), "(1007, 0)", {"WriteStrongParcelable failed"}),
        Fail("RegisterDevChangedCallback", Writes(2), "(1021, 0)", {"WriteString failed"}),
        Fail("RegisterDevChangedCallback", Writes(3), "(1011, 0)", {"WriteRemoteObject failed"}),
        Fail("RegisterDevChangedCallback", kNullCallback, "(1011, 0)", {"WriteRemoteObject failed"}),
        Fail("RegisterDevChangedCallback", kSendFails, "(1008, 0)", {"SendRequest failed"}),
        Fail("RegisterDevChangedCallback", kEmptyReply, "(1022, 0)", {"ReadInt32 failed"}),
        Fail("RegisterDevChangedCallback", Reply(kStatusOnly), "(1022, 0)", {"ReadUint32 failed"}),
        Fail("RegisterCallbackWithServiceFilter", Writes(0), "(1006, 0)", {"WriteInterfaceToken failed"}),
        Fail("RegisterCallbackWithServiceFilter", Writes(1), "(1007, 0)", {"WriteStrongParcelable failed"}),
        Fail("RegisterCallbackWithServiceFilter", Writes(2), "(1021, 0)", {"WriteString failed"}),
        Fail("RegisterCallbackWithServiceFilter", Writes(3), "(1011, 0)", {"WriteRemoteObject failed"}),
        Fail("RegisterCallbackWithServiceFilter", kNullCallback, "(1011, 0)", {"WriteRemoteObject failed"}),
        Fail("RegisterCallbackWithServiceFilter", kSendFails, "(1008, 0)", {"SendRequest failed"}),
        Fail("RegisterCallbackWithServiceFilter", kEmptyReply, "(1022, 0)", {"ReadInt32 failed"}),
        Fail("RegisterCallbackWithServiceFilter", Reply(kStatusOnly), "(1022, 0)", {"ReadUint32 failed"}),
        Fail("UnregisterDevChangedCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("UnregisterDevChangedCallback", Writes(1), "1021", {"WriteInt32 failed"}),
        Fail("UnregisterDevChangedCallback", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UnregisterDevChangedCallback", kEmptyReply, "1007", {"ReadInt32 failed"}),
        Fail("UnregisterServiceFilterListener", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("UnregisterServiceFilterListener", Writes(1), "1021", {"WriteInt32 failed"}),
        Fail("UnregisterServiceFilterListener", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UnregisterServiceFilterListener", kEmptyReply, "1007", {"ReadInt32 failed"}),
        Fail("RegisterServiceChangedCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("RegisterServiceChangedCallback", Writes(1), "1011", {"WriteRemoteObject failed"}),
        Fail("RegisterServiceChangedCallback", kNullCallback, "1011", {"WriteRemoteObject failed"}),
        Fail("RegisterServiceChangedCallback", kSendFails, "1008", {"SendRequest failed"}),
        Fail("RegisterServiceChangedCallback", kEmptyReply, "1022", {"ReadInt32 failed"}),
        Fail("UnregisterServiceChangedCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("UnregisterServiceChangedCallback", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UnregisterServiceChangedCallback", kEmptyReply, "1007", {"ReadInt32 failed"}),
        Fail("GetDeviceSwitch", Writes(0), "1006", {"GetDeviceSwitch failed"}),
        Fail("GetDeviceSwitch", Writes(1), "1007", {"WriteDeciveId failed"}),
        Fail("GetDeviceSwitch", kSendFails, "1008", {"SendRequest failed"}),
        Fail("GetDeviceSwitch", kEmptyReply, "1001", {"ReadUint32 failed"}),
        Fail("GetIsSameDeviceAccount", Writes(0), "false", {"GetIsSameDeviceAccount failed"}),
        Fail("GetIsSameDeviceAccount", Writes(1), "false", {"WriteNetworkId failed"}),
        Fail("GetIsSameDeviceAccount", kSendFails, "false", {"SendRequest failed"}),
        Fail("GetIsSameDeviceAccount", kEmptyReply, "false", {"Readint32 failed"}),
        Fail("GetIsNextTypeDevice", Writes(0), "false", {"GetIsNextTypeDevice failed"}),
        Fail("GetIsNextTypeDevice", Writes(1), "false", {"WriteNetworkId failed"}),
        Fail("GetIsNextTypeDevice", kSendFails, "false", {"SendRequest failed"}),
        Fail("GetIsNextTypeDevice", kEmptyReply, "false", {"ReadUint32 failed"}),
        Fail("GetBindKeymouseServiceReq", Writes(0), "void", {"BindKeymouseService failed"}),
        Fail("GetBindKeymouseServiceReq", Writes(1), "void", {"WriteBindKeymouseService failed"}),
        Fail("GetBindKeymouseServiceReq", kSendFails, "void", {"SendRequest failed"}),
        Fail("GetLocalDeviceInfo", Writes(0), "1006 keep|||0", {"GetLocalDeviceInfo WriteInterfaceToken failed"}),
        Fail("GetLocalDeviceInfo", kSendFails, "1008 keep|||0", {"GetLocalDeviceInfo SendRequest failed"}),
        Fail("GetLocalDeviceInfo", kEmptyReply, "1001 keep|||0", {}),
        Fail("GetLocalDeviceInfo", Reply(kAbsentRecord), "1001 keep|||0", {}),
        Fail("GetRemoteDeviceDynamicInfo", Writes(0), "1006 [keep=1]",
             {"GetRemoteDeviceDynamicInfo WriteInterfaceToken failed"}),
        Fail("GetRemoteDeviceDynamicInfo", Writes(1), "1011 [keep=1]", {"WriteString failed"}),
        Fail("GetRemoteDeviceDynamicInfo", Writes(2), "1011 [keep=1]", {"WriteStringVector failed"}),
        Fail("GetRemoteDeviceDynamicInfo", kSendFails, "1008 [keep=1]",
             {"GetRemoteDeviceDynamicInfo SendRequest failed"}),
        Fail("GetRemoteDeviceDynamicInfo", kEmptyReply, "1001 [keep=1]", {"ReadUint32 failed"}),
        Fail("GetRemoteDeviceDynamicInfo", Reply([](MessageParcel& r) {
                 r.WriteUint32(3);
                 WriteDynamicInfo(r, "battery", "80");
                 WriteDynamicInfo(r, "wifi", "on");
                 WriteDynamicInfo(r, "extra", "x");
             }),
             "2202 [keep=1]", {"resultListLen is not the same as keyListLen"}),
        Fail("GetRemoteDeviceDynamicInfo", Reply([](MessageParcel& r) {
                 r.WriteUint32(2);
                 WriteDynamicInfo(r, "battery", "80");
                 WriteAbsent(r);
             }),
             "1019 [keep=1, battery=80]", {"ReadStrongParcelable nullptr"}),
        Fail("QueryDeviceConfigInfo", Writes(0), "1006 keep|||0|0",
             {"QueryDeviceConfigInfo WriteInterfaceToken failed"}),
        Fail("QueryDeviceConfigInfo", Writes(1), "1007 keep|||0|0", {"QueryDeviceConfigInfo WriteString failed"}),
        Fail("QueryDeviceConfigInfo", kSendFails, "1008 keep|||0|0", {"QueryDeviceConfigInfo SendRequest failed"}),
        Fail("QueryDeviceConfigInfo", kEmptyReply, "1001 keep|||0|0", {}),
        Fail("QueryDeviceConfigInfo", Reply(kAbsentRecord), "1001 keep|||0|0", {}),
        Fail("RegisterServiceDeliverCallback", Writes(0), "1006",
             {"RegisterServiceDeliverCallback WriteInterfaceToken failed"}),
        Fail("RegisterServiceDeliverCallback", Writes(1), "1007",
             {"RegisterServiceDeliverCallback WriteString failed"}),
        Fail("RegisterServiceDeliverCallback", Writes(2), "1007",
             {"RegisterServiceDeliverCallback WriteRemoteObject failed"}),
        Fail("RegisterServiceDeliverCallback", kNullCallback, "1007",
             {"RegisterServiceDeliverCallback WriteRemoteObject failed"}),
        Fail("RegisterServiceDeliverCallback", kSendFails, "1008",
             {"RegisterServiceDeliverCallback SendRequest failed"}),
        Fail("SetDialogEventCallback", Writes(0), "-1", {"SetDialogEventCallback WriteInterfaceToken failed"}),
        Fail("SetDialogEventCallback", Writes(1), "-1",
             {"SetDialogEventCallback callback is null? : 0", "SetDialogEventCallback WriteRemoteObject failed"}),
        Fail("SetDialogEventCallback", kNullCallback, "-1",
             {"SetDialogEventCallback callback is null? : 1", "SetDialogEventCallback WriteRemoteObject failed"}),
        Fail("SetDialogEventCallback", kSendFails, "-1",
             {"SetDialogEventCallback callback is null? : 0", "SetDialogEventCallback SendRequest failed"}),
        Fail("NotifyAppDialogEvent", Writes(0), "-1", {"WriteInterfaceToken failed"}),
        Fail("NotifyAppDialogEvent", Writes(1), "-1", {"WriteString failed"}),
        Fail("NotifyAppDialogEvent", kSendFails, "-1", {"SendRequest failed"}),
        Fail("RequestService", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("RequestService", Writes(1), "1011", {"WriteString failed"}),
        Fail("RequestService", Writes(2), "1011", {"WriteRemoteObject failed"}),
        Fail("RequestService", kNullCallback, "1011", {"WriteRemoteObject failed"}),
        Fail("RequestService", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UnRequestService", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("UnRequestService", Writes(1), "1011", {"WriteString failed"}),
        Fail("UnRequestService", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UnRequestService", kNoRemote, "1008", {"SendRequest failed"}),
        Fail("UnRequestService", kEmptyReply, "0", {}),
        Fail("RegisterKeyMouseCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("RegisterKeyMouseCallback", Writes(1), "1021", {"WriteString failed"}),
        Fail("RegisterKeyMouseCallback", Writes(2), "1021", {"WriteRemoteObject failed"}),
        Fail("RegisterKeyMouseCallback", kNullCallback, "1021", {"WriteRemoteObject failed"}),
        Fail("RegisterKeyMouseCallback", kSendFails, "1008", {"SendRequest failed"}),
        Fail("RegisterKeyMouseCallback", kEmptyReply, "1022", {"ReadInt32 failed"}),
        Fail("UnregisterKeyMouseCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("UnregisterKeyMouseCallback", Writes(1), "1021", {"WriteString failed"}),
        Fail("UnregisterKeyMouseCallback", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UnregisterKeyMouseCallback", kEmptyReply, "1022", {"ReadInt32 failed"}),
        Fail("UpdateKeyMouseEdgeSwitch", Writes(0), "1006", {"WriteInterfaceToken failed"}),
        Fail("UpdateKeyMouseEdgeSwitch", Writes(1), "1021", {"WriteBool failed"}),
        Fail("UpdateKeyMouseEdgeSwitch", kSendFails, "1008", {"SendRequest failed"}),
        Fail("UpdateKeyMouseEdgeSwitch", kEmptyReply, "1022", {"ReadInt32 failed"}),
    };
    return cases;
}

std::string Describe(const FailureCase& c)
{
    std::string fault = c.fault.allowedWrites >= 0 ? "writes allowed: " + std::to_string(c.fault.allowedWrites)
                        : c.fault.failSend         ? "send fails"
                        : c.fault.nullCallbacks    ? "null callback"
                        : c.fault.noRemote         ? "no remote"
                        : c.fault.reply            ? "scripted reply"
                                                   : "empty reply";
    return c.call + ", " + fault;
}

TEST(RequestFailureTest, EachStepFailsWithItsValueAndLine)
{
    for (const FailureCase& c : Cases()) {
        SCOPED_TRACE(Describe(c));
        sptr<FakeRemoteObject> remote = new FakeRemoteObject();
        remote->SetReply(BuildParcel(c.fault.reply));
        if (c.fault.failSend) {
            remote->SetSendStatus(IPC_ERR_DEAD_OBJECT);
        }
        sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(c.fault.noRemote ? nullptr : remote);
        CallArgs args(c.fault.nullCallbacks);
        Call call = CallByName(c.call);
        LogCapture log;

        std::string result;
        if (c.fault.allowedWrites >= 0) {
            ParcelTestSeam::ScopedWriteFailure refuse(c.fault.allowedWrites);
            result = call(*proxy, args);
        } else {
            result = call(*proxy, args);
        }

        EXPECT_EQ(result, c.result);
        std::vector<std::string> errors;
        for (const std::string& text : c.errors) {
            errors.push_back(text.find("# ") == std::string::npos ? FunctionOf(c.call) + "# " + text : text);
        }
        EXPECT_EQ(LinesAt(log, LOG_ERROR), errors);
        EXPECT_EQ(CheckPrefixes(log, "device_detect_proxy"), "");
        // Nothing leaves the process once a write has failed, nor without a remote.
        bool unsent = c.fault.allowedWrites >= 0 || c.fault.nullCallbacks || c.fault.noRemote;
        EXPECT_EQ(remote->RequestCount(), unsent ? 0u : 1u);
    }
}

// The seam counts one write per outermost call, so the Writes(k) rows only
// prove anything if the call really makes that many writes: with one write
// more allowed than a call's highest row, the call must use up the budget
// and send.
TEST(RequestFailureTest, WriteBudgetsMatchTheRequestShape)
{
    std::map<std::string, int> writes;
    for (const FailureCase& c : Cases()) {
        writes[c.call] = std::max(writes[c.call], c.fault.allowedWrites + 1);
    }
    for (const auto& [name, budget] : writes) {
        SCOPED_TRACE(name);
        sptr<FakeRemoteObject> remote = new FakeRemoteObject();
        sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
        CallArgs args;
        LogCapture quiet;
        {
            ParcelTestSeam::ScopedWriteFailure limit(budget);
            CallByName(name)(*proxy, args);
            EXPECT_EQ(ParcelTestSeam::RemainingWrites(), 0);
        }
        EXPECT_EQ(remote->RequestCount(), 1u);
    }
}

TEST(RequestFailureTest, EveryStatusValueHasItsOwnName)
{
    const std::vector<std::pair<int32_t, std::string>> named = {
        {0, "DD_OK"},
        {-1, "DD_FAILED"},
        {1001, "DD_ERR_READ_FAILED"},
        {1006, "DD_ERR_WRITE_TOKEN_FAILED"},
        {1007, "DD_ERR_WRITE_ARG_FAILED"},
        {1008, "DD_ERR_SEND_REQUEST_FAILED"},
        {1010, "DD_ERR_WRONG_TOKEN"},
        {1011, "DD_ERR_WRITE_OBJECT_FAILED"},
        {1019, "DD_ERR_RECORD_MISSING"},
        {1021, "DD_ERR_WRITE_PARAM_FAILED"},
        {1022, "DD_ERR_READ_REPLY_FAILED"},
        {1023, "DD_ERR_DEVICE_NUM_EXCEEDED"},
        {2202, "DD_ERR_RESULT_COUNT_MISMATCH"},
    };
    for (const auto& [value, name] : named) {
        const char* text = DeviceDetectStatusToString(value);
        ASSERT_NE(text, nullptr) << value;
        EXPECT_EQ(text, name);
    }
    for (int32_t other : {1, -2, 1009, 2201, 2203}) {
        EXPECT_EQ(DeviceDetectStatusToString(other), nullptr) << other;
    }
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
