// The shape all six stubs share: token check, dispatch by code, unknown
// codes, absent records, default handlers, and a reply left empty. One table
// row per stub; a recording subclass per stub shows which handler ran.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "device_changed_callback_stub.h"
#include "device_detect_callback_stub.h"
#include "dialog_event_callback_stub.h"
#include "ipc_status.h"
#include "log_lines.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_publish_callback_stub.h"
#include "stub_test_support.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::AllLines;
using Tavik::Test::CheckPrefixes;

struct EventCase {
    uint32_t code;
    BodyWriter body;
    // What the recording handler saw.
    std::string handled;
    // Lines of the default handler.
    std::vector<std::string> defaultLines;
};

struct AbsentCase {
    uint32_t code;
    BodyWriter body;
    std::string line;
};

struct StubCase {
    std::string name;
    std::u16string descriptor;
    std::string file;
    // Level letter of the wrong-token line.
    std::string wrongTokenLevel;
    std::function<sptr<IPCObjectStub>(Journal&)> recording;
    std::function<sptr<IPCObjectStub>()> plain;
    std::vector<EventCase> events;
    std::vector<uint32_t> unknownCodes;
    std::vector<AbsentCase> absent;
};

const std::vector<StubCase>& Cases()
{
    static const std::vector<StubCase> cases = {
        {"DeviceChangedCallbackStub",
         u"Tavik.Syntavo.IDeviceStateChangedCallback",
         "device_changed_callback_stub",
         "I",
         [](Journal& j) { return sptr<IPCObjectStub>(new RecordingDeviceChanged(j)); },
         [] { return sptr<IPCObjectStub>(new DeviceChangedCallbackStub()); },
         {{0,
           [](MessageParcel& d) { WriteDevice(d, "u0"); },
           "OnDeviceOnline u0",
           {"I OnDeviceOnline# OnDeviceOnline enter"}},
          {1,
           [](MessageParcel& d) { WriteDevice(d, "u1"); },
           "OnDeviceOffline u1",
           {"I OnDeviceOffline# OnDeviceOffline enter"}},
          {3,
           [](MessageParcel& d) { WriteDevice(d, "u3"); },
           "OnDeviceReady u3",
           {"I OnDeviceReady# OnDeviceReady enter"}}},
         {2, 4, 0xFFFFFFFFu},
         {{0, nullptr, "OnDeviceOnline# OnDeviceEvent: received deviceInfo is nullptr"},
          {1, [](MessageParcel& d) { d.WriteInt32(0); },
           "OnDeviceOffline# OnDeviceEvent: received deviceInfo is nullptr"},
          {3, [](MessageParcel& d) { d.WriteInt32(0); },
           "OnDeviceReady# OnDeviceEvent: received deviceInfo is nullptr"}}},
        {"ServiceChangedCallbackStub",
         u"Tavik.Syntavo.IServiceChangedCallback",
         "service_changed_callback_stub",
         "I",
         [](Journal& j) { return sptr<IPCObjectStub>(new RecordingServiceChanged(j)); },
         [] { return sptr<IPCObjectStub>(new ServiceChangedCallbackStub()); },
         {{0,
           [](MessageParcel& d) {
               d.WriteInt32(4);
               d.WriteUint32(1);
               WriteDeviceService(d, "s1");
           },
           "OnDeviceEvent 4 [s1]",
           {"I OnDeviceEvent# deviceNum: 1", "I OnDeviceEvent# OnDeviceEvent enter"}}},
         {1, 3},
         {}},
        {"DeviceDetectCallbackStub",
         u"Tavik.Syntavo.IDeviceDetectCallback",
         "device_detect_callback_stub",
         "I",
         [](Journal& j) { return sptr<IPCObjectStub>(new RecordingDeviceDetect(j)); },
         [] { return sptr<IPCObjectStub>(new DeviceDetectCallbackStub()); },
         {{0,
           [](MessageParcel& d) {
               d.WriteInt32(5);
               WriteDevice(d, "u5");
           },
           "OnDeviceEvent 5 u5",
           {"I OnDeviceEvent# OnDeviceEvent enter"}}},
         {1, 0x7FFFFFFFu},
         {{0,
           [](MessageParcel& d) {
               d.WriteInt32(5);
               d.WriteInt32(0);
           },
           "OnDeviceEvent# OnDeviceEvent: received deviceInfo is nullptr"}}},
        {"ServiceDeliverCallbackStub",
         u"Tavik.Syntavo.IServiceDeliverCallback",
         "service_deliver_callback_stub",
         "I",
         [](Journal& j) { return sptr<IPCObjectStub>(new RecordingServiceDeliver(j)); },
         [] { return sptr<IPCObjectStub>(new ServiceDeliverCallbackStub()); },
         {{0,
           [](MessageParcel& d) { d.WriteString("parcel 12"); },
           "OnDeliver parcel 12",
           {"I OnDeliver# OnDeliver enter"}},
          {0, nullptr, "OnDeliver ", {"I OnDeliver# OnDeliver enter"}}},
         {1},
         {}},
        {"DialogEventCallbackStub",
         u"Tavik.Syntavo.IDialogEventCallback",
         "dialog_event_callback_stub",
         "I",
         [](Journal& j) { return sptr<IPCObjectStub>(new RecordingDialogEvent(j)); },
         [] { return sptr<IPCObjectStub>(new DialogEventCallbackStub()); },
         {{0,
           [](MessageParcel& d) { d.WriteString("{\"ok\":1}"); },
           "OnDialogEventReply {\"ok\":1}",
           {"I OnDialogEventReply# enter"}},
          {0, nullptr, "OnDialogEventReply ", {"I OnDialogEventReply# enter"}}},
         {1},
         {}},
        {"ServicePublishCallbackStub",
         u"Tavik.Syntavo.IServicePublishCallback",
         "service_publish_callback_stub",
         "E",
         [](Journal& j) { return sptr<IPCObjectStub>(new RecordingServicePublish(j)); },
         [] { return sptr<IPCObjectStub>(new ServicePublishCallbackStub()); },
         {{0,
           [](MessageParcel& d) {
               d.WriteInt32(1);
               d.WriteUint32(7);
               d.WriteUint32(0);
           },
           "OnPublishEvent 7/0",
           {}}},
         {1},
         {{0, nullptr, "OnPublishEvent# OnDeviceEvent: received info is nullptr"}}},
    };
    return cases;
}

TEST(StubDispatchTest, EventsReachTheirHandlerAndTheReplyStaysEmpty)
{
    for (const StubCase& c : Cases()) {
        for (const EventCase& e : c.events) {
            SCOPED_TRACE(c.name + ", code " + std::to_string(e.code) + ", " + e.handled);
            Journal journal;
            sptr<IPCObjectStub> stub = c.recording(journal);
            Outcome outcome = Send(*stub, e.code, c.descriptor, e.body);
            EXPECT_EQ(outcome.result, Journal::kResult);
            EXPECT_EQ(journal.calls, std::vector<std::string>{e.handled});
            EXPECT_EQ(outcome.replySize, 0u);
        }
    }
}

TEST(StubDispatchTest, DefaultHandlersReturnZeroWithTheirLine)
{
    for (const StubCase& c : Cases()) {
        for (const EventCase& e : c.events) {
            SCOPED_TRACE(c.name + ", code " + std::to_string(e.code));
            sptr<IPCObjectStub> stub = c.plain();
            LogCapture log;
            Outcome outcome = Send(*stub, e.code, c.descriptor, e.body);
            EXPECT_EQ(outcome.result, 0);
            EXPECT_EQ(AllLines(log), e.defaultLines);
            EXPECT_EQ(CheckPrefixes(log, c.file), "");
            EXPECT_EQ(outcome.replySize, 0u);
        }
    }
}

TEST(StubDispatchTest, WrongTokensAreRefusedBeforeAnythingElseIsRead)
{
    for (const StubCase& c : Cases()) {
        std::vector<std::u16string> tokens = {
            u"",
            c.descriptor.substr(0, c.descriptor.size() - 1),
            c.descriptor + u"x",
            u"tavik" + c.descriptor.substr(5),
            // The class name, which is not the device-changed descriptor.
            u"Tavik.Syntavo.IDeviceChangedCallback",
        };
        for (const StubCase& other : Cases()) {
            if (other.descriptor != c.descriptor) {
                tokens.push_back(other.descriptor);
            }
        }
        for (const std::u16string& token : tokens) {
            std::string shown = Str16ToStr8(token);
            SCOPED_TRACE(c.name + " given \"" + shown + "\"");
            Journal journal;
            sptr<IPCObjectStub> stub = c.recording(journal);
            LogCapture log;
            Outcome outcome = Send(*stub, c.events.front().code, token, c.events.front().body);
            EXPECT_EQ(outcome.result, 1010);
            EXPECT_TRUE(journal.calls.empty());
            EXPECT_EQ(outcome.replySize, 0u);
            EXPECT_EQ(AllLines(log), std::vector<std::string>{c.wrongTokenLevel +
                                                              " OnRemoteRequest# receive wrong "
                                                              "interface token = " +
                                                              shown + ", expect " + Str16ToStr8(c.descriptor)});
            EXPECT_EQ(CheckPrefixes(log, c.file), "");
        }
    }
}

TEST(StubDispatchTest, UnknownCodesGoToTheBaseClass)
{
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    const int32_t baseResult = IPCObjectStub().OnRemoteRequest(2, data, reply, option);
    ASSERT_EQ(baseResult, IPC_ERR_UNKNOWN_TRANSACTION);

    for (const StubCase& c : Cases()) {
        for (uint32_t code : c.unknownCodes) {
            SCOPED_TRACE(c.name + ", code " + std::to_string(code));
            Journal journal;
            sptr<IPCObjectStub> stub = c.recording(journal);
            LogCapture log;
            Outcome outcome = Send(*stub, code, c.descriptor, c.events.front().body);
            EXPECT_EQ(outcome.result, baseResult);
            EXPECT_TRUE(journal.calls.empty());
            EXPECT_EQ(outcome.replySize, 0u);
            EXPECT_EQ(AllLines(log), std::vector<std::string>{"E OnRemoteRequest# revice unknown code, code is " +
                                                              std::to_string(static_cast<int32_t>(code))});
        }
    }
}

TEST(StubDispatchTest, AbsentRecordsFailWithoutCallingTheHandler)
{
    for (const StubCase& c : Cases()) {
        for (const AbsentCase& a : c.absent) {
            SCOPED_TRACE(c.name + ", code " + std::to_string(a.code));
            Journal journal;
            sptr<IPCObjectStub> stub = c.recording(journal);
            LogCapture log;
            Outcome outcome = Send(*stub, a.code, c.descriptor, a.body);
            EXPECT_EQ(outcome.result, 1001);
            EXPECT_TRUE(journal.calls.empty());
            EXPECT_EQ(outcome.replySize, 0u);
            EXPECT_EQ(AllLines(log), std::vector<std::string>{"E " + a.line});
            EXPECT_EQ(CheckPrefixes(log, c.file), "");
        }
    }
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
