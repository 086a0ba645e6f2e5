// Every failing step of every request: the value returned, the ERROR lines
// (function and text) and whether anything was sent. Write failures come
// from the parcel seam: Writes(n) lets the first n writes of the call
// succeed, so Writes(0) refuses the token and Writes(k) the k-th argument.
#include <gtest/gtest.h>

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
};

Fault Writes(int n)
{
    Fault fault;
    fault.allowedWrites = n;
    return fault;
}
Fault SendFails()
{
    Fault fault;
    fault.failSend = true;
    return fault;
}
Fault NullCallback()
{
    Fault fault;
    fault.nullCallbacks = true;
    return fault;
}
Fault Reply(ReplyWriter writer)
{
    Fault fault;
    fault.reply = std::move(writer);
    return fault;
}
const Fault kEmptyReply;

struct FailureCase {
    std::string call;
    Fault fault;
    std::string result;
    // ERROR lines in order; a text without "# " is logged by the call's own
    // function.
    std::vector<std::string> errors;
};

const ReplyWriter kStatusOnly = [](MessageParcel& r) { r.WriteInt32(0); };
const ReplyWriter kCount1025 = [](MessageParcel& r) { r.WriteUint32(1025); };
const ReplyWriter kAbsentRecord = [](MessageParcel& r) { r.WriteInt32(0); };

const std::vector<FailureCase>& Cases()
{
    static const std::vector<FailureCase> cases = {
        {"GetTrustedDeviceList", Writes(0), "-1 [keep|||0]", {"GetTrustedDeviceList WriteInterfaceToken failed"}},
        {"GetTrustedDeviceList", Writes(1), "-1 [keep|||0]", {"GetTrustedDeviceList WriteString failed"}},
        {"GetTrustedDeviceList", SendFails(), "-1 [keep|||0]", {"GetTrustedDeviceList SendRequest failed"}},
        {"GetTrustedDeviceList", kEmptyReply, "-1 [keep|||0]", {"GetTrustedDeviceList ReadUint32 failed"}},
        {"GetTrustedDeviceList", Reply(kCount1025), "-1 [keep|||0]", {"Devicenum exceed maximum"}},

        {"GetTrustedDeviceListWithAbilityFilter",
         Writes(0),
         "-1 [keep|||0[]]",
         {"GetTrustedDeviceList WriteInterfaceToken failed"}},
        {"GetTrustedDeviceListWithAbilityFilter",
         Writes(1),
         "-1 [keep|||0[]]",
         {"WriteAbilityFilterList# GetTrustedDeviceList WriteUint32 failed",
          "GetTrustedDeviceList WriteStrongParcelable failed"}},
        {"GetTrustedDeviceListWithAbilityFilter",
         Writes(3),
         "-1 [keep|||0[]]",
         {"WriteAbilityFilterList# GetTrustedDeviceList WriteStrongParcelable failed",
          "GetTrustedDeviceList WriteStrongParcelable failed"}},
        {"GetTrustedDeviceListWithAbilityFilter",
         SendFails(),
         "-1 [keep|||0[]]",
         {"GetTrustedDeviceList SendRequest failed"}},
        {"GetTrustedDeviceListWithAbilityFilter",
         kEmptyReply,
         "-1 [keep|||0[]]",
         {"GetTrustedDeviceList ReadUint32 failed"}},
        {"GetTrustedDeviceListWithAbilityFilter", Reply(kCount1025), "-1 [keep|||0[]]", {}},
        {"GetTrustedDeviceListWithAbilityFilter",
         Reply([](MessageParcel& r) {
             r.WriteUint32(1);
             WriteDevice(r, "u1", 14);
             r.WriteUint32(0xFFFFFFFFu);
         }),
         "-1 [keep|||0[]]",
         {"GetTrustedDeviceList abilityFilterNum:4294967295 exceeds the reply"}},

        {"GetTrustedDeviceListWithServiceFilter",
         Writes(0),
         "1006 [keep|||0]",
         {"GetTrustedDeviceList WriteInterfaceToken failed"}},
        {"GetTrustedDeviceListWithServiceFilter",
         Writes(1),
         "1007 [keep|||0]",
         {"GetTrustedDeviceList WriteStrongParcelable failed"}},
        {"GetTrustedDeviceListWithServiceFilter",
         Writes(2),
         "1021 [keep|||0]",
         {"GetTrustedDeviceList WriteString failed"}},
        {"GetTrustedDeviceListWithServiceFilter",
         SendFails(),
         "1008 [keep|||0]",
         {"GetTrustedDeviceList SendRequest failed"}},
        {"GetTrustedDeviceListWithServiceFilter",
         kEmptyReply,
         "1022 [keep|||0]",
         {"GetTrustedDeviceList ReadUint32 failed"}},
        {"GetTrustedDeviceListWithServiceFilter", Reply(kCount1025), "1023 [keep|||0]", {"DeviceNum exceed maximum"}},

        {"GetTrustedDeviceListWithDeviceFilter", Writes(0), "1006 [keep|||0]", {"WriteInterfaceToken failed"}},
        {"GetTrustedDeviceListWithDeviceFilter", Writes(1), "1007 [keep|||0]", {"WriteStrongParcelable failed"}},
        {"GetTrustedDeviceListWithDeviceFilter", Writes(2), "1011 [keep|||0]", {"WriteRemoteObject failed"}},
        {"GetTrustedDeviceListWithDeviceFilter", NullCallback(), "1011 [keep|||0]", {"WriteRemoteObject failed"}},
        {"GetTrustedDeviceListWithDeviceFilter", SendFails(), "1008 [keep|||0]", {"SendRequest failed"}},
        {"GetTrustedDeviceListWithDeviceFilter", kEmptyReply, "1001 [keep|||0]", {"ReadUint32 failed"}},
        {"GetTrustedDeviceListWithDeviceFilter", Reply(kCount1025), "-1 [keep|||0]", {"Devicenum exceed maximum"}},

        {"RegisterDevChangedCallback", Writes(0), "(1006, 0)", {"WriteInterfaceToken failed"}},
        {"RegisterDevChangedCallback", Writes(1), "(1007, 0)", {"WriteStrongParcelable failed"}},
        {"RegisterDevChangedCallback", Writes(2), "(1021, 0)", {"WriteString failed"}},
        {"RegisterDevChangedCallback", Writes(3), "(1011, 0)", {"WriteRemoteObject failed"}},
        {"RegisterDevChangedCallback", NullCallback(), "(1011, 0)", {"WriteRemoteObject failed"}},
        {"RegisterDevChangedCallback", SendFails(), "(1008, 0)", {"SendRequest failed"}},
        {"RegisterDevChangedCallback", kEmptyReply, "(1022, 0)", {"ReadInt32 failed"}},
        {"RegisterDevChangedCallback", Reply(kStatusOnly), "(1022, 0)", {"ReadUint32 failed"}},

        {"RegisterCallbackWithServiceFilter", Writes(0), "(1006, 0)", {"WriteInterfaceToken failed"}},
        {"RegisterCallbackWithServiceFilter", Writes(1), "(1007, 0)", {"WriteStrongParcelable failed"}},
        {"RegisterCallbackWithServiceFilter", Writes(2), "(1021, 0)", {"WriteString failed"}},
        {"RegisterCallbackWithServiceFilter", Writes(3), "(1011, 0)", {"WriteRemoteObject failed"}},
        {"RegisterCallbackWithServiceFilter", NullCallback(), "(1011, 0)", {"WriteRemoteObject failed"}},
        {"RegisterCallbackWithServiceFilter", SendFails(), "(1008, 0)", {"SendRequest failed"}},
        {"RegisterCallbackWithServiceFilter", kEmptyReply, "(1022, 0)", {"ReadInt32 failed"}},
        {"RegisterCallbackWithServiceFilter", Reply(kStatusOnly), "(1022, 0)", {"ReadUint32 failed"}},

        {"UnregisterDevChangedCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"UnregisterDevChangedCallback", Writes(1), "1021", {"WriteInt32 failed"}},
        {"UnregisterDevChangedCallback", SendFails(), "1008", {"SendRequest failed"}},
        {"UnregisterDevChangedCallback", kEmptyReply, "1007", {"ReadInt32 failed"}},

        {"UnregisterServiceFilterListener", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"UnregisterServiceFilterListener", Writes(1), "1021", {"WriteInt32 failed"}},
        {"UnregisterServiceFilterListener", SendFails(), "1008", {"SendRequest failed"}},
        {"UnregisterServiceFilterListener", kEmptyReply, "1007", {"ReadInt32 failed"}},

        {"RegisterServiceChangedCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"RegisterServiceChangedCallback", Writes(1), "1011", {"WriteRemoteObject failed"}},
        {"RegisterServiceChangedCallback", NullCallback(), "1011", {"WriteRemoteObject failed"}},
        {"RegisterServiceChangedCallback", SendFails(), "1008", {"SendRequest failed"}},
        {"RegisterServiceChangedCallback", kEmptyReply, "1022", {"ReadInt32 failed"}},

        {"UnregisterServiceChangedCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"UnregisterServiceChangedCallback", SendFails(), "1008", {"SendRequest failed"}},
        {"UnregisterServiceChangedCallback", kEmptyReply, "1007", {"ReadInt32 failed"}},

        {"GetDeviceSwitch", Writes(0), "1006", {"GetDeviceSwitch failed"}},
        {"GetDeviceSwitch", Writes(1), "1007", {"WriteDeciveId failed"}},
        {"GetDeviceSwitch", SendFails(), "1008", {"SendRequest failed"}},
        {"GetDeviceSwitch", kEmptyReply, "1001", {"ReadUint32 failed"}},

        {"GetIsSameDeviceAccount", Writes(0), "false", {"GetIsSameDeviceAccount failed"}},
        {"GetIsSameDeviceAccount", Writes(1), "false", {"WriteNetworkId failed"}},
        {"GetIsSameDeviceAccount", SendFails(), "false", {"SendRequest failed"}},
        {"GetIsSameDeviceAccount", kEmptyReply, "false", {"Readint32 failed"}},

        {"GetIsNextTypeDevice", Writes(0), "false", {"GetIsNextTypeDevice failed"}},
        {"GetIsNextTypeDevice", Writes(1), "false", {"WriteNetworkId failed"}},
        {"GetIsNextTypeDevice", SendFails(), "false", {"SendRequest failed"}},
        {"GetIsNextTypeDevice", kEmptyReply, "false", {"ReadUint32 failed"}},

        {"GetBindKeymouseServiceReq", Writes(0), "void", {"BindKeymouseService failed"}},
        {"GetBindKeymouseServiceReq", Writes(1), "void", {"WriteBindKeymouseService failed"}},
        {"GetBindKeymouseServiceReq", SendFails(), "void", {"SendRequest failed"}},

        {"GetLocalDeviceInfo", Writes(0), "1006 keep|||0", {"GetLocalDeviceInfo WriteInterfaceToken failed"}},
        {"GetLocalDeviceInfo", SendFails(), "1008 keep|||0", {"GetLocalDeviceInfo SendRequest failed"}},
        {"GetLocalDeviceInfo", kEmptyReply, "1001 keep|||0", {}},
        {"GetLocalDeviceInfo", Reply(kAbsentRecord), "1001 keep|||0", {}},

        {"GetRemoteDeviceDynamicInfo",
         Writes(0),
         "1006 [keep=1]",
         {"GetRemoteDeviceDynamicInfo WriteInterfaceToken failed"}},
        {"GetRemoteDeviceDynamicInfo", Writes(1), "1011 [keep=1]", {"WriteString failed"}},
        {"GetRemoteDeviceDynamicInfo", Writes(2), "1011 [keep=1]", {"WriteStringVector failed"}},
        {"GetRemoteDeviceDynamicInfo", SendFails(), "1008 [keep=1]", {"GetRemoteDeviceDynamicInfo SendRequest failed"}},
        {"GetRemoteDeviceDynamicInfo", kEmptyReply, "1001 [keep=1]", {"ReadUint32 failed"}},
        {"GetRemoteDeviceDynamicInfo",
         Reply([](MessageParcel& r) {
             r.WriteUint32(3);
             WriteDynamicInfo(r, "battery", "80");
             WriteDynamicInfo(r, "wifi", "on");
             WriteDynamicInfo(r, "extra", "x");
         }),
         "2202 [keep=1]",
         {"resultListLen is not the same as keyListLen"}},
        {"GetRemoteDeviceDynamicInfo",
         Reply([](MessageParcel& r) {
             r.WriteUint32(2);
             WriteDynamicInfo(r, "battery", "80");
             WriteAbsent(r);
         }),
         "1019 [keep=1, battery=80]",
         {"ReadStrongParcelable nullptr"}},

        {"QueryDeviceConfigInfo", Writes(0), "1006 keep|||0|0", {"QueryDeviceConfigInfo WriteInterfaceToken failed"}},
        {"QueryDeviceConfigInfo", Writes(1), "1007 keep|||0|0", {"QueryDeviceConfigInfo WriteString failed"}},
        {"QueryDeviceConfigInfo", SendFails(), "1008 keep|||0|0", {"QueryDeviceConfigInfo SendRequest failed"}},
        {"QueryDeviceConfigInfo", kEmptyReply, "1001 keep|||0|0", {}},
        {"QueryDeviceConfigInfo", Reply(kAbsentRecord), "1001 keep|||0|0", {}},

        {"RegisterServiceDeliverCallback",
         Writes(0),
         "1006",
         {"RegisterServiceDeliverCallback WriteInterfaceToken failed"}},
        {"RegisterServiceDeliverCallback", Writes(1), "1007", {"RegisterServiceDeliverCallback WriteString failed"}},
        {"RegisterServiceDeliverCallback",
         Writes(2),
         "1007",
         {"RegisterServiceDeliverCallback WriteRemoteObject failed"}},
        {"RegisterServiceDeliverCallback",
         NullCallback(),
         "1007",
         {"RegisterServiceDeliverCallback WriteRemoteObject failed"}},
        {"RegisterServiceDeliverCallback", SendFails(), "1008", {"RegisterServiceDeliverCallback SendRequest failed"}},

        {"SetDialogEventCallback", Writes(0), "-1", {"SetDialogEventCallback WriteInterfaceToken failed"}},
        {"SetDialogEventCallback",
         Writes(1),
         "-1",
         {"SetDialogEventCallback callback is null? : 0", "SetDialogEventCallback WriteRemoteObject failed"}},
        {"SetDialogEventCallback",
         NullCallback(),
         "-1",
         {"SetDialogEventCallback callback is null? : 1", "SetDialogEventCallback WriteRemoteObject failed"}},
        {"SetDialogEventCallback",
         SendFails(),
         "-1",
         {"SetDialogEventCallback callback is null? : 0", "SetDialogEventCallback SendRequest failed"}},

        {"NotifyAppDialogEvent", Writes(0), "-1", {"WriteInterfaceToken failed"}},
        {"NotifyAppDialogEvent", Writes(1), "-1", {"WriteString failed"}},
        {"NotifyAppDialogEvent", SendFails(), "-1", {"SendRequest failed"}},

        {"RequestService", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"RequestService", Writes(1), "1011", {"WriteString failed"}},
        {"RequestService", Writes(2), "1011", {"WriteRemoteObject failed"}},
        {"RequestService", NullCallback(), "1011", {"WriteRemoteObject failed"}},
        {"RequestService", SendFails(), "1008", {"SendRequest failed"}},

        {"UnRequestService", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"UnRequestService", Writes(1), "1011", {"WriteString failed"}},
        {"UnRequestService", SendFails(), "1008", {"SendRequest failed"}},
        {"UnRequestService", kEmptyReply, "0", {}},

        {"RegisterKeyMouseCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"RegisterKeyMouseCallback", Writes(1), "1021", {"WriteString failed"}},
        {"RegisterKeyMouseCallback", Writes(2), "1021", {"WriteRemoteObject failed"}},
        {"RegisterKeyMouseCallback", NullCallback(), "1021", {"WriteRemoteObject failed"}},
        {"RegisterKeyMouseCallback", SendFails(), "1008", {"SendRequest failed"}},
        {"RegisterKeyMouseCallback", kEmptyReply, "1022", {"ReadInt32 failed"}},

        {"UnregisterKeyMouseCallback", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"UnregisterKeyMouseCallback", Writes(1), "1021", {"WriteString failed"}},
        {"UnregisterKeyMouseCallback", SendFails(), "1008", {"SendRequest failed"}},
        {"UnregisterKeyMouseCallback", kEmptyReply, "1022", {"ReadInt32 failed"}},

        {"UpdateKeyMouseEdgeSwitch", Writes(0), "1006", {"WriteInterfaceToken failed"}},
        {"UpdateKeyMouseEdgeSwitch", Writes(1), "1021", {"WriteBool failed"}},
        {"UpdateKeyMouseEdgeSwitch", SendFails(), "1008", {"SendRequest failed"}},
        {"UpdateKeyMouseEdgeSwitch", kEmptyReply, "1022", {"ReadInt32 failed"}},
    };
    return cases;
}

std::string Describe(const FailureCase& c)
{
    std::string fault = c.fault.allowedWrites >= 0 ? "writes allowed: " + std::to_string(c.fault.allowedWrites)
                        : c.fault.failSend         ? "send fails"
                        : c.fault.nullCallbacks    ? "null callback"
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
        sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
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
        // Nothing leaves the process once a write has failed.
        bool writeFailed = c.fault.allowedWrites >= 0 || c.fault.nullCallbacks;
        EXPECT_EQ(remote->RequestCount(), writeFailed ? 0u : 1u);
    }
}

// The seam counts one write per outermost call, so these rows only prove
// anything if the call really makes that many writes: with one write more
// allowed than the row's index, the same step must succeed.
TEST(RequestFailureTest, WriteBudgetsMatchTheRequestShape)
{
    struct Shape {
        std::string call;
        int writes;
    };
    const std::vector<Shape> shapes = {
        {"GetTrustedDeviceList", 2},
        {"GetTrustedDeviceListWithAbilityFilter", 4},
        {"GetTrustedDeviceListWithServiceFilter", 3},
        {"GetTrustedDeviceListWithDeviceFilter", 3},
        {"RegisterDevChangedCallback", 4},
        {"RegisterCallbackWithServiceFilter", 4},
        {"UnregisterDevChangedCallback", 2},
        {"RegisterServiceChangedCallback", 2},
        {"UnregisterServiceChangedCallback", 1},
        {"GetLocalDeviceInfo", 1},
        {"GetRemoteDeviceDynamicInfo", 3},
        {"RegisterServiceDeliverCallback", 3},
        {"SetDialogEventCallback", 2},
        {"RequestService", 3},
        {"RegisterKeyMouseCallback", 3},
        {"UpdateKeyMouseEdgeSwitch", 2},
    };
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.call);
        sptr<FakeRemoteObject> remote = new FakeRemoteObject();
        sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
        CallArgs args;
        LogCapture quiet;
        {
            ParcelTestSeam::ScopedWriteFailure budget(shape.writes);
            CallByName(shape.call)(*proxy, args);
            EXPECT_EQ(ParcelTestSeam::RemainingWrites(), 0);
        }
        EXPECT_EQ(remote->RequestCount(), 1u);
    }
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
