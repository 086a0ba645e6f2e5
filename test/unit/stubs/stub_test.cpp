// The six callback stubs. The shape they share (token check, dispatch by
// code, unknown codes, refused bodies, default handlers, a reply left empty)
// runs over one table row per stub; the recording handlers of test/common
// show which handler ran. Then what is particular to single stubs.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "device_changed_callback_stub.h"
#include "device_detect_callback_stub.h"
#include "dialog_event_callback_stub.h"
#include "ipc_status.h"
#include "log_lines.h"
#include "message_option.h"
#include "message_parcel.h"
#include "recording_callbacks.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_publish_callback_stub.h"
#include "string_convert.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::AllLines;
using Tavik::Test::CallbackJournal;
using Tavik::Test::CheckPrefixes;
using Tavik::Test::DeviceChangedRecorder;
using Tavik::Test::DeviceDetectRecorder;
using Tavik::Test::DialogEventRecorder;
using Tavik::Test::RecordedCallback;
using Tavik::Test::ServiceChangedRecorder;
using Tavik::Test::ServiceDeliverRecorder;
using Tavik::Test::ServicePublishRecorder;

// Handlers return kResult, which the stub must pass back unchanged.
constexpr int32_t kResult = 77;

// What the recording handlers saw: one line per call, and the records of
// the last service-changed and device-detect calls.
struct Journal {
    Journal()
    {
        log->SetObserver([this](const RecordedCallback& call) {
            if (call.services != nullptr) {
                serviceInfos = *call.services;
            }
            if (call.detected != nullptr) {
                keptDevice = call.detected;
            }
        });
    }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;
    std::vector<std::string> Calls() { return log->Lines(); }

    std::shared_ptr<CallbackJournal> log = std::make_shared<CallbackJournal>(kResult);
    std::vector<DeviceServiceInfo> serviceInfos;
    sptr<DeviceInfo> keptDevice;
};

// Writes what follows the token of a request; null writes nothing.
using BodyWriter = std::function<void(MessageParcel&)>;

// Records go through their own Marshalling: their layout is pinned where the
// records are tested, here only what the stubs do with them matters.
void WriteDevice(MessageParcel& data, const std::string& udid)
{
    DeviceInfo info(udid, "net-" + udid, "name-" + udid, 14);
    data.WriteParcelable(&info);
}

DeviceServiceInfo ServiceInfo(const std::string& name)
{
    return DeviceServiceInfo(name, 14, "hash-" + name, "id-" + name, {"rule"}, "net-" + name, "mac-" + name, "extra");
}

// How an entry of ServiceInfo(name) shows in the handler's line.
std::string Entry(const std::string& name)
{
    return " id-" + name + ",net-" + name + ",14,mac-" + name + "[rule,]";
}

std::vector<uint8_t> Encode(const Parcelable& record)
{
    Parcel parcel;
    record.Marshalling(parcel);
    return {parcel.GetData(), parcel.GetData() + parcel.GetDataSize()};
}

BodyWriter Device(const std::string& udid)
{
    return [udid](MessageParcel& d) { WriteDevice(d, udid); };
}

BodyWriter Text(std::string value)
{
    return [value](MessageParcel& d) { d.WriteString(value); };
}

BodyWriter Int32s(std::vector<int32_t> values)
{
    return [values](MessageParcel& d) {
        for (int32_t value : values) {
            d.WriteInt32(value);
        }
    };
}

// An event and `count`, then the entries; an empty name writes an absent one.
BodyWriter ServiceEvent(int32_t event, uint32_t count, std::vector<std::string> entries)
{
    return [=](MessageParcel& d) {
        d.WriteInt32(event);
        d.WriteUint32(count);
        for (const std::string& name : entries) {
            DeviceServiceInfo info = ServiceInfo(name);
            d.WriteParcelable(name.empty() ? nullptr : &info);
        }
    };
}

struct Outcome {
    int32_t result;
    size_t replySize;
};

// Delivers token + body with `code` the way a transport does.
Outcome Send(IPCObjectStub& stub, uint32_t code, const std::u16string& token, const BodyWriter& body)
{
    MessageParcel data;
    data.WriteInterfaceToken(token);
    if (body) {
        body(data);
    }
    MessageParcel reply;
    MessageOption option;
    int32_t result = stub.OnRemoteRequest(code, data, reply, option);
    return {result, reply.GetDataSize() + reply.GetObjectCount()};
}

struct EventCase {
    uint32_t code;
    BodyWriter body;
    // What the recording handler saw.
    std::string handled;
    // Lines of the default handler.
    std::vector<std::string> defaultLines;
};

// A body the stub refuses with 1001 before any handler runs.
struct RefusedCase {
    uint32_t code;
    BodyWriter body;
    std::string errorLine;
};

struct StubCase {
    std::u16string descriptor;
    // The stub's source file, also the row's name.
    std::string file;
    // Level letter of the wrong-token line.
    std::string wrongTokenLevel;
    std::function<sptr<IPCObjectStub>(Journal&)> recording;
    std::function<sptr<IPCObjectStub>()> plain;
    std::vector<EventCase> events;
    std::vector<uint32_t> unknownCodes;
    std::vector<RefusedCase> refused;
};

template <typename Recorder, typename Plain>
StubCase Stub(std::u16string descriptor, std::string file, std::string wrongTokenLevel, std::vector<EventCase> events,
              std::vector<uint32_t> unknownCodes, std::vector<RefusedCase> refused)
{
    return {std::move(descriptor),
            std::move(file),
            std::move(wrongTokenLevel),
            [](Journal& j) { return sptr<IPCObjectStub>(new Recorder(j.log)); },
            [] { return sptr<IPCObjectStub>(new Plain()); },
            std::move(events),
            std::move(unknownCodes),
            std::move(refused)};
}

const std::vector<StubCase>& Cases()
{
    static const std::vector<StubCase> cases = {
        Stub<DeviceChangedRecorder, DeviceChangedCallbackStub>(
            u"Tavik.Syntavo.IDeviceStateChangedCallback", "device_changed_callback_stub", "I",
            {{0, Device("u0"), "online u0 net-u0 name-u0 14", {"I OnDeviceOnline# OnDeviceOnline enter"}},
             {1, Device("u1"), "offline u1 net-u1 name-u1 14", {"I OnDeviceOffline# OnDeviceOffline enter"}},
             {3, Device("u3"), "ready u3 net-u3 name-u3 14", {"I OnDeviceReady# OnDeviceReady enter"}},
             // A truncated record still decodes (its fields read as empty);
             // only an absent record is refused.
             {3,
              [](MessageParcel& d) {
                  d.WriteInt32(1);
                  d.WriteString("short");
              },
              "ready short   0",
              {"I OnDeviceReady# OnDeviceReady enter"}}},
            {2, 4, 0xFFFFFFFFu},
            {{0, nullptr, "OnDeviceOnline# OnDeviceEvent: received deviceInfo is nullptr"},
             {1, Int32s({0}), "OnDeviceOffline# OnDeviceEvent: received deviceInfo is nullptr"},
             {3, Int32s({0}), "OnDeviceReady# OnDeviceEvent: received deviceInfo is nullptr"}}),
        Stub<ServiceChangedRecorder, ServiceChangedCallbackStub>(
            u"Tavik.Syntavo.IServiceChangedCallback", "service_changed_callback_stub", "I",
            {{0,
              ServiceEvent(4, 1, {"s1"}),
              "services 4" + Entry("s1"),
              {"I OnDeviceEvent# deviceNum: 1", "I OnDeviceEvent# OnDeviceEvent enter"}}},
            {1, 3},
            {{0, nullptr, "OnDeviceEvent# ReadInt32 failed"}, {0, Int32s({3}), "OnDeviceEvent# ReadUint32 failed"}}),
        Stub<DeviceDetectRecorder, DeviceDetectCallbackStub>(
            u"Tavik.Syntavo.IDeviceDetectCallback", "device_detect_callback_stub", "I",
            {{0,
              [](MessageParcel& d) {
                  d.WriteInt32(5);
                  WriteDevice(d, "u5");
              },
              "detect 5 u5",
              {"I OnDeviceEvent# OnDeviceEvent enter"}}},
            {1, 0x7FFFFFFFu}, {{0, Int32s({5, 0}), "OnDeviceEvent# OnDeviceEvent: received deviceInfo is nullptr"}}),
        Stub<ServiceDeliverRecorder, ServiceDeliverCallbackStub>(
            u"Tavik.Syntavo.IServiceDeliverCallback", "service_deliver_callback_stub", "I",
            {{0, Text("parcel 12"), "deliver parcel 12", {"I OnDeliver# OnDeliver enter"}},
             {0, nullptr, "deliver ", {"I OnDeliver# OnDeliver enter"}}},
            {1}, {}),
        Stub<DialogEventRecorder, DialogEventCallbackStub>(
            u"Tavik.Syntavo.IDialogEventCallback", "dialog_event_callback_stub", "I",
            {{0, Text("{\"ok\":1}"), "dialog {\"ok\":1}", {"I OnDialogEventReply# enter"}},
             {0, nullptr, "dialog ", {"I OnDialogEventReply# enter"}}},
            {1}, {}),
        Stub<ServicePublishRecorder, ServicePublishCallbackStub>(
            u"Tavik.Syntavo.IServicePublishCallback", "service_publish_callback_stub", "E",
            {{0,
              [](MessageParcel& d) {
                  RequestResultInfo info(7, 0);
                  d.WriteParcelable(&info);
              },
              "publish 7 0",
              {}}},
            {1}, {{0, nullptr, "OnPublishEvent# OnDeviceEvent: received info is nullptr"}}),
    };
    return cases;
}

// Sends to the stub's recording subclass a request it must refuse: the
// result, no handler, an empty reply and exactly `lines`, all from the
// stub's own file.
void ExpectRefused(const StubCase& c, uint32_t code, const std::u16string& token, const BodyWriter& body,
                   int32_t result, const std::vector<std::string>& lines)
{
    Journal journal;
    sptr<IPCObjectStub> stub = c.recording(journal);
    LogCapture log;
    Outcome outcome = Send(*stub, code, token, body);
    EXPECT_EQ(outcome.result, result);
    EXPECT_TRUE(journal.Calls().empty());
    EXPECT_EQ(outcome.replySize, 0u);
    EXPECT_EQ(AllLines(log), lines);
    EXPECT_EQ(CheckPrefixes(log, c.file), "");
}

TEST(StubDispatchTest, EventsReachTheirHandlerOrTheDefaultOneAndTheReplyStaysEmpty)
{
    for (const StubCase& c : Cases()) {
        for (const EventCase& e : c.events) {
            SCOPED_TRACE(c.file + ", code " + std::to_string(e.code) + ", " + e.handled);
            Journal journal;
            sptr<IPCObjectStub> recording = c.recording(journal);
            Outcome outcome = Send(*recording, e.code, c.descriptor, e.body);
            EXPECT_EQ(outcome.result, kResult);
            EXPECT_EQ(journal.Calls(), std::vector<std::string>{e.handled});
            EXPECT_EQ(outcome.replySize, 0u);

            sptr<IPCObjectStub> plain = c.plain();
            LogCapture log;
            outcome = Send(*plain, e.code, c.descriptor, e.body);
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
            SCOPED_TRACE(c.file + " given \"" + shown + "\"");
            ExpectRefused(c, c.events.front().code, token, c.events.front().body, 1010,
                          {c.wrongTokenLevel + " OnRemoteRequest# receive wrong interface token = " + shown +
                           ", expect " + Str16ToStr8(c.descriptor)});
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
            SCOPED_TRACE(c.file + ", code " + std::to_string(code));
            ExpectRefused(
                c, code, c.descriptor, c.events.front().body, baseResult,
                {"E OnRemoteRequest# revice unknown code, code is " + std::to_string(static_cast<int32_t>(code))});
        }
    }
}

TEST(StubDispatchTest, AbsentRecordsAndMissingItemsFailWithoutCallingTheHandler)
{
    for (const StubCase& c : Cases()) {
        for (const RefusedCase& r : c.refused) {
            SCOPED_TRACE(c.file + ", code " + std::to_string(r.code) + ", " + r.errorLine);
            ExpectRefused(c, r.code, c.descriptor, r.body, 1001, {"E " + r.errorLine});
        }
    }
}

const std::u16string kServiceChanged = u"Tavik.Syntavo.IServiceChangedCallback";

TEST(ServiceChangedStubTest, ListsDecodeInOrderAndSkipMissingEntries)
{
    struct Row {
        std::string name;
        BodyWriter body;
        std::string handled;
        int nullLines;
    };
    const std::vector<Row> rows = {
        {"empty list", ServiceEvent(2, 0, {}), "services 2", 0},
        {"middle entry absent", ServiceEvent(1, 3, {"a", "", "c"}), "services 1" + Entry("a") + Entry("c"), 1},
        {"parcel ends early", ServiceEvent(1, 3, {"a"}), "services 1" + Entry("a"), 2},
        {"negative event", ServiceEvent(-9, 1, {"a"}), "services -9" + Entry("a"), 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Journal journal;
        sptr<ServiceChangedRecorder> stub = new ServiceChangedRecorder(journal.log);
        LogCapture log;
        EXPECT_EQ(Send(*stub, 0, kServiceChanged, row.body).result, kResult);
        EXPECT_EQ(journal.Calls(), std::vector<std::string>{row.handled});
        EXPECT_EQ(log.Count("ReadStrongParcelable nullptr"), static_cast<size_t>(row.nullLines));
        for (const DeviceServiceInfo& info : journal.serviceInfos) {
            EXPECT_EQ(Encode(info), Encode(ServiceInfo(info.GetDeviceName()))) << "the records reach the handler whole";
        }
    }
}

TEST(ServiceChangedStubTest, CountsAboveTheLimitAreRefusedBeforeReading)
{
    struct Row {
        // None: the stub's default limit.
        std::optional<uint32_t> limit;
        uint32_t count;
        bool accepted;
    };
    const std::vector<Row> rows = {
        {3, 3, true}, {3, 4, false}, {{}, 1024, true}, {{}, 1025, false}, {{}, 0xFFFFFFFFu, false},
        {0, 0, true}, {0, 1, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("limit " + (row.limit ? std::to_string(*row.limit) : "default") + ", count " +
                     std::to_string(row.count));
        Journal journal;
        sptr<ServiceChangedRecorder> stub = row.limit ? new ServiceChangedRecorder(journal.log, "", *row.limit)
                                                      : new ServiceChangedRecorder(journal.log);
        std::vector<std::string> entries(std::min<uint32_t>(row.count, 1025), "e");
        LogCapture log;
        int32_t result = Send(*stub, 0, kServiceChanged, ServiceEvent(1, row.count, entries)).result;
        if (row.accepted) {
            EXPECT_EQ(result, kResult);
            ASSERT_EQ(journal.Calls().size(), 1u);
            EXPECT_EQ(journal.serviceInfos.size(), row.count);
        } else {
            EXPECT_EQ(result, 1001);
            EXPECT_TRUE(journal.Calls().empty());
            // The count line and nothing after it: no entry was read.
            EXPECT_EQ(AllLines(log), std::vector<std::string>{"I OnDeviceEvent# deviceNum: " +
                                                              std::to_string(static_cast<int32_t>(row.count))});
        }
    }
}

// The record outlives the stub that decoded it.
TEST(DeviceDetectStubTest, HandlerMayKeepTheRecord)
{
    Journal journal;
    sptr<DeviceDetectRecorder> stub = new DeviceDetectRecorder(journal.log);
    Send(*stub, 0, u"Tavik.Syntavo.IDeviceDetectCallback", [](MessageParcel& d) {
        d.WriteInt32(-2);
        WriteDevice(d, "kept");
    });
    stub = nullptr;
    EXPECT_EQ(journal.Calls(), std::vector<std::string>{"detect -2 kept"});
    ASSERT_NE(journal.keptDevice, nullptr);
    EXPECT_EQ(journal.keptDevice->GetDeviceNetworkId(), "net-kept");
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
