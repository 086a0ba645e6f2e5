// What is particular to single stubs: the service-change list and its
// limit, records handed on to handlers, and the decoders called directly.
#include <gtest/gtest.h>

#include "log_lines.h"
#include "stub_test_support.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::AllLines;

constexpr uint32_t kEvent = 0;
const std::u16string kServiceChanged = u"Tavik.Syntavo.IServiceChangedCallback";

BodyWriter ServiceEvent(int32_t event, uint32_t count, std::vector<std::string> entries)
{
    return [=](MessageParcel& d) {
        d.WriteInt32(event);
        d.WriteUint32(count);
        for (const std::string& name : entries) {
            if (name.empty()) {
                d.WriteInt32(0);
            } else {
                WriteDeviceService(d, name);
            }
        }
    };
}

TEST(ServiceChangedStubTest, ListsDecodeInOrderAndSkipMissingEntries)
{
    struct Row {
        std::string name;
        BodyWriter body;
        std::string handled;
        int nullLines;
    };
    const std::vector<Row> rows = {
        {"empty list", ServiceEvent(2, 0, {}), "OnDeviceEvent 2 []", 0},
        {"middle entry absent", ServiceEvent(1, 3, {"a", "", "c"}), "OnDeviceEvent 1 [a, c]", 1},
        {"parcel ends early", ServiceEvent(1, 3, {"a"}), "OnDeviceEvent 1 [a]", 2},
        {"negative event", ServiceEvent(-9, 1, {"a"}), "OnDeviceEvent -9 [a]", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Journal journal;
        sptr<RecordingServiceChanged> stub = new RecordingServiceChanged(journal);
        LogCapture log;
        EXPECT_EQ(Send(*stub, kEvent, kServiceChanged, row.body).result, Journal::kResult);
        EXPECT_EQ(journal.calls, std::vector<std::string>{row.handled});
        EXPECT_EQ(log.Count("ReadStrongParcelable nullptr"), static_cast<size_t>(row.nullLines));
    }
}

TEST(ServiceChangedStubTest, DecodedEntriesKeepEveryField)
{
    Journal journal;
    sptr<RecordingServiceChanged> stub = new RecordingServiceChanged(journal);
    Send(*stub, kEvent, kServiceChanged, ServiceEvent(1, 1, {"tv"}));
    ASSERT_EQ(journal.serviceInfos.size(), 1u);
    const DeviceServiceInfo& info = journal.serviceInfos[0];
    EXPECT_EQ(info.GetDeviceType(), 14u);
    EXPECT_EQ(info.GetDeviceHashId(), "hash-tv");
    EXPECT_EQ(info.GetDeviceId(), "id-tv");
    EXPECT_EQ(info.GetServiceRuleList(), std::vector<std::string>{"rule"});
    EXPECT_EQ(info.GetNetworkId(), "net-tv");
    EXPECT_EQ(info.GetBrMac(), "mac-tv");
    EXPECT_EQ(info.GetExtraInfo(), "extra");
}

TEST(ServiceChangedStubTest, CountsAboveTheLimitAreRefusedBeforeReading)
{
    struct Row {
        uint32_t limit;
        uint32_t count;
        bool accepted;
    };
    const std::vector<Row> rows = {
        {3, 3, true}, {3, 4, false}, {1024, 1024, true}, {1024, 1025, false}, {1024, 0xFFFFFFFFu, false},
        {0, 0, true}, {0, 1, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("limit " + std::to_string(row.limit) + ", count " + std::to_string(row.count));
        Journal journal;
        sptr<RecordingServiceChanged> stub = new RecordingServiceChanged(journal, row.limit);
        std::vector<std::string> entries(std::min<uint32_t>(row.count, 1025), "e");
        LogCapture log;
        int32_t result = Send(*stub, kEvent, kServiceChanged, ServiceEvent(1, row.count, entries)).result;
        if (row.accepted) {
            EXPECT_EQ(result, Journal::kResult);
            ASSERT_EQ(journal.calls.size(), 1u);
            EXPECT_EQ(journal.serviceInfos.size(), row.count);
        } else {
            EXPECT_EQ(result, 1001);
            EXPECT_TRUE(journal.calls.empty());
            // The count line and nothing after it: no entry was read.
            EXPECT_EQ(AllLines(log), std::vector<std::string>{"I OnDeviceEvent# deviceNum: " +
                                                              std::to_string(static_cast<int32_t>(row.count))});
        }
    }
}

TEST(ServiceChangedStubTest, DefaultLimitIs1024)
{
    EXPECT_EQ(ServiceChangedCallbackStub().GetMaxDeviceNum(), 1024u);
    EXPECT_EQ(ServiceChangedCallbackStub(7).GetMaxDeviceNum(), 7u);
}

TEST(ServiceChangedStubTest, MissingEventOrCountFails)
{
    struct Row {
        std::string name;
        BodyWriter body;
        std::string line;
    };
    const std::vector<Row> rows = {
        {"nothing after the token", nullptr, "E OnDeviceEvent# ReadInt32 failed"},
        {"event only", [](MessageParcel& d) { d.WriteInt32(3); }, "E OnDeviceEvent# ReadUint32 failed"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Journal journal;
        sptr<RecordingServiceChanged> stub = new RecordingServiceChanged(journal);
        LogCapture log;
        EXPECT_EQ(Send(*stub, kEvent, kServiceChanged, row.body).result, 1001);
        EXPECT_TRUE(journal.calls.empty());
        EXPECT_EQ(AllLines(log), std::vector<std::string>{row.line});
    }
}

TEST(DeviceDetectStubTest, HandlerMayKeepTheRecord)
{
    Journal journal;
    sptr<RecordingDeviceDetect> stub = new RecordingDeviceDetect(journal);
    Send(*stub, kEvent, u"Tavik.Syntavo.IDeviceDetectCallback", [](MessageParcel& d) {
        d.WriteInt32(-2);
        WriteDevice(d, "kept");
    });
    EXPECT_EQ(journal.calls, std::vector<std::string>{"OnDeviceEvent -2 kept"});
    ASSERT_NE(journal.keptDevice, nullptr);
    EXPECT_EQ(journal.keptDevice->GetDeviceNetworkId(), "net-kept");
}

// A truncated record still decodes (its fields read as empty), so the
// handler runs; only an absent record is refused.
TEST(DeviceChangedStubTest, TruncatedRecordStillReachesTheHandler)
{
    Journal journal;
    sptr<RecordingDeviceChanged> stub = new RecordingDeviceChanged(journal);
    Outcome outcome = Send(*stub, 3, u"Tavik.Syntavo.IDeviceStateChangedCallback", [](MessageParcel& d) {
        d.WriteInt32(1);
        d.WriteString("short");
    });
    EXPECT_EQ(outcome.result, Journal::kResult);
    EXPECT_EQ(journal.calls, std::vector<std::string>{"OnDeviceReady short"});
}

TEST(StubDecoderTest, DecodersReadOnlyWhatFollowsTheToken)
{
    MessageParcel reply;
    MessageOption option;
    Journal journal;
    {
        sptr<RecordingServiceDeliver> stub = new RecordingServiceDeliver(journal);
        MessageParcel data;
        data.WriteString("direct");
        EXPECT_EQ(stub->ServiceDeliverCallbackStub::OnDeliver(data, reply, option), Journal::kResult);
    }
    {
        sptr<RecordingDialogEvent> stub = new RecordingDialogEvent(journal);
        MessageParcel data;
        EXPECT_EQ(stub->DialogEventCallbackStub::OnDialogEventReply(data, reply, option), Journal::kResult);
    }
    {
        sptr<RecordingServicePublish> stub = new RecordingServicePublish(journal);
        MessageParcel data;
        data.WriteInt32(1);
        data.WriteUint32(3);
        data.WriteUint32(9);
        EXPECT_EQ(stub->ServicePublishCallbackStub::OnPublishEvent(data, reply, option), Journal::kResult);
    }
    {
        sptr<RecordingDeviceChanged> stub = new RecordingDeviceChanged(journal);
        MessageParcel data;
        WriteDevice(data, "d");
        EXPECT_EQ(stub->DeviceChangedCallbackStub::OnDeviceOffline(data, reply, option), Journal::kResult);
    }
    EXPECT_EQ(journal.calls, (std::vector<std::string>{"OnDeliver direct", "OnDialogEventReply ", "OnPublishEvent 3/9",
                                                       "OnDeviceOffline d"}));
    EXPECT_EQ(reply.GetDataSize(), 0u);
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
