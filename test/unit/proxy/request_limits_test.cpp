// Limits and decoding of list replies: the 1024-entry bounds on both sides
// of the wire, records decoded behind what the caller's vector held, and the
// lines a decoded record writes.
#include <cstdint>

#include <gtest/gtest.h>

#include "log_lines.h"
#include "proxy_test_support.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::FakeRemoteObject;
using Tavik::Test::LinesAt;
using Tavik::Test::LogLine;
using Tavik::Test::ParseLogLines;

constexpr uint32_t CLIENT_DOMAIN = 0xD004612;

class RequestLimitsTest : public ::testing::Test {
protected:
    // The request as sent, read past its token.
    MessageParcel SentBody()
    {
        MessageParcel request = remote_->LastRequest().ToParcel();
        request.ReadInterfaceToken();
        return request;
    }

    sptr<FakeRemoteObject> remote_ = new FakeRemoteObject();
    sptr<DeviceDetectProxy> proxy_ = new DeviceDetectProxy(remote_);
};

TEST_F(RequestLimitsTest, RepliesOf1024DevicesAreReadInFull)
{
    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(1024);
        for (uint32_t i = 0; i < 1024; ++i) {
            WriteDevice(r, "u" + std::to_string(i), i);
        }
    }));
    std::vector<DeviceInfo> plain;
    std::vector<DeviceInfo> byService;
    std::vector<DeviceInfo> byDevice;
    EXPECT_EQ(proxy_->GetTrustedDeviceList("", plain), 0);
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithServiceFilter(new ServiceFilter(), "", byService), 0);
    EXPECT_EQ(
        proxy_->GetTrustedDeviceListWithDeviceFilter(new DeviceFilter(), byDevice, new DeviceDetectCallbackStub()), 0);
    for (const auto* list : {&plain, &byService, &byDevice}) {
        ASSERT_EQ(list->size(), 1024u);
        EXPECT_EQ(Render(list->front()), "u0|n-u0|d-u0|0");
        EXPECT_EQ(Render(list->back()), "u1023|n-u1023|d-u1023|1023");
    }

    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(1024);
        for (uint32_t i = 0; i < 1024; ++i) {
            WriteDevice(r, "u" + std::to_string(i), i);
            r.WriteUint32(1);
            WriteAbilityFilter(r, "b" + std::to_string(i));
        }
    }));
    std::vector<sptr<AbilityFilter>> filters;
    DeviceFilters result;
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);
    ASSERT_EQ(result.size(), 1024u);
    EXPECT_EQ(std::get<0>(result.back()).GetDeviceUdid(), "u1023");
    ASSERT_EQ(std::get<1>(result.back()).size(), 1u);
    EXPECT_EQ(std::get<1>(result.back()).front()->GetBundleName(), "b1023");
}

TEST_F(RequestLimitsTest, AbilityFilterListsTake1024FiltersAndNever1025)
{
    std::vector<sptr<AbilityFilter>> filters(1024);
    for (auto& filter : filters) {
        filter = new AbilityFilter("b");
    }
    MessageParcel full;
    EXPECT_TRUE(proxy_->WriteAbilityFilterList(full, filters));
    EXPECT_EQ(full.ReadUint32(), 1024u);
    for (int i = 0; i < 1024; ++i) {
        ASSERT_NE(full.ReadStrongParcelable<AbilityFilter>(), nullptr) << "filter " << i;
    }
    EXPECT_EQ(full.GetReadableBytes(), 0u);

    filters.push_back(new AbilityFilter("one too many"));
    LogCapture log;
    MessageParcel refused;
    EXPECT_FALSE(proxy_->WriteAbilityFilterList(refused, filters));
    EXPECT_EQ(refused.GetDataSize(), 0u);
    EXPECT_EQ(LinesAt(log, LOG_ERROR), std::vector<std::string>{"WriteAbilityFilterList# listLength exceed maximum"});

    log.Clear();
    DeviceFilters result;
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), -1);
    EXPECT_EQ(remote_->RequestCount(), 0u);
    EXPECT_TRUE(result.empty());
    EXPECT_EQ(LinesAt(log, LOG_ERROR),
              (std::vector<std::string>{"WriteAbilityFilterList# listLength exceed maximum",
                                        "GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList "
                                        "WriteStrongParcelable failed"}));
}

// A null filter is the platform's to write: presence 0, no check here.
TEST_F(RequestLimitsTest, EmptyAndNullFiltersAreWritten)
{
    std::vector<sptr<AbilityFilter>> filters;
    DeviceFilters result;
    remote_->SetReply(BuildParcel(DeviceList(0, {})));
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);
    MessageParcel empty = SentBody();
    EXPECT_EQ(empty.ReadUint32(), 0u);
    EXPECT_EQ(empty.GetReadableBytes(), 0u);

    filters.push_back(nullptr);
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);
    MessageParcel withNull = SentBody();
    EXPECT_EQ(withNull.ReadUint32(), 1u);
    EXPECT_EQ(withNull.ReadInt32(), 0);
    EXPECT_EQ(withNull.GetReadableBytes(), 0u);

    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteInt32(0);
        r.WriteUint32(1);
    }));
    EXPECT_EQ(proxy_->RegisterDevChangedCallback(nullptr, "x", new DeviceChangedCallbackStub()), std::make_pair(0, 1u));
    EXPECT_EQ(SentBody().ReadInt32(), 0) << "a null filter travels as an absent record";
}

TEST_F(RequestLimitsTest, DynamicInfoWithoutKeysExpectsNoRecords)
{
    remote_->SetReply(BuildParcel([](MessageParcel& r) { r.WriteUint32(0); }));
    std::vector<DeviceDynamicInfo> infos;
    EXPECT_EQ(proxy_->GetRemoteDeviceDynamicInfo("id", {}, infos), 0);
    EXPECT_TRUE(infos.empty());

    remote_->SetReply(BuildParcel([](MessageParcel& r) { r.WriteUint32(1); }));
    LogCapture log;
    EXPECT_EQ(proxy_->GetRemoteDeviceDynamicInfo("id", {}, infos), 2202);
    EXPECT_EQ(LinesAt(log, LOG_ERROR),
              std::vector<std::string>{"GetRemoteDeviceDynamicInfo# resultListLen is not the same as keyListLen"});
}

TEST_F(RequestLimitsTest, DeliverCodeTravelsAsDecimalText)
{
    sptr<ServiceDeliverCallbackStub> callback = new ServiceDeliverCallbackStub();
    for (const auto& [code, text] : std::vector<std::pair<int, std::string>>{
             {0, "0"}, {-7, "-7"}, {42, "42"}, {INT32_MIN, "-2147483648"}, {INT32_MAX, "2147483647"}}) {
        proxy_->RegisterServiceDeliverCallback(code, callback);
        EXPECT_EQ(SentBody().ReadString(), text);
    }
}

// Device lists are decoded straight into the caller's vector. The log must
// show what reading each record onto the heap and appending a copy showed:
// per present record its creation and the decoded record's destruction,
// exactly (file and line included) as building and dropping that record
// writes them. Their texts are the records' own business.
TEST_F(RequestLimitsTest, EachRecordLogsItsCreationAndTheDecodedCopysDestruction)
{
    auto clientLines = [](const LogCapture& capture) {
        std::vector<std::string> lines;
        for (const LogLine& line : ParseLogLines(capture)) {
            if (line.domain == CLIENT_DOMAIN && line.level == LOG_INFO) {
                lines.push_back(line.file + ":" + std::to_string(line.line) + " " + line.Short());
            }
        }
        return lines;
    };
    std::vector<std::string> expected;
    {
        LogCapture capture;
        DeviceInfo("udid-a-0001", "n-udid-a-0001", "d-udid-a-0001", 14);
        DeviceInfo("udid-b-0002", "n-udid-b-0002", "d-udid-b-0002", 156);
        expected = clientLines(capture);
        ASSERT_EQ(expected.size(), 4u);
    }
    remote_->SetReply(BuildParcel(DeviceList(3, {{"udid-a-0001", 14}, {}, {"udid-b-0002", 156}})));
    LogCapture capture;
    std::vector<DeviceInfo> devices;
    ASSERT_EQ(proxy_->GetTrustedDeviceList("", devices), 0);

    EXPECT_EQ(Render(devices),
              "[udid-a-0001|n-udid-a-0001|d-udid-a-0001|14, udid-b-0002|n-udid-b-0002|d-udid-b-0002|156]");
    EXPECT_EQ(clientLines(capture), expected);
    EXPECT_EQ(LinesAt(capture, LOG_ERROR),
              std::vector<std::string>{"GetTrustedDeviceList# GetTrustedDeviceList ReadStrongParcelable nullptr"});

    // The records handed out are ordinary values: destroying them logs as
    // destroying any DeviceInfo does.
    capture.Clear();
    devices.clear();
    EXPECT_EQ(clientLines(capture), (std::vector<std::string>{expected[1], expected[3]}));
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
