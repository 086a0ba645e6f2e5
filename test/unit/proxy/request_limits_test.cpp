// Limits and accumulation: the 1024-entry bounds on both sides of the wire,
// and outputs that are appended to, never cleared.
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

class RequestLimitsTest : public ::testing::Test {
protected:
    sptr<FakeRemoteObject> remote_ = new FakeRemoteObject();
    sptr<DeviceDetectProxy> proxy_ = new DeviceDetectProxy(remote_);
};

void WriteDevices(MessageParcel& reply, uint32_t count)
{
    reply.WriteUint32(count);
    for (uint32_t i = 0; i < count; ++i) {
        WriteDevice(reply, "u" + std::to_string(i), i);
    }
}

TEST_F(RequestLimitsTest, ListRepliesOf1024DevicesAreReadInFull)
{
    remote_->SetReply(BuildParcel([](MessageParcel& r) { WriteDevices(r, 1024); }));
    std::vector<DeviceInfo> plain;
    std::vector<DeviceInfo> byService;
    std::vector<DeviceInfo> byDevice;
    sptr<DeviceDetectCallbackStub> callback = new DeviceDetectCallbackStub();

    EXPECT_EQ(proxy_->GetTrustedDeviceList("", plain), 0);
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithServiceFilter(new ServiceFilter(), "", byService), 0);
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithDeviceFilter(new DeviceFilter(), byDevice, callback), 0);

    for (const auto* list : {&plain, &byService, &byDevice}) {
        ASSERT_EQ(list->size(), 1024u);
        EXPECT_EQ(Render(list->front()), "u0|n-u0|d-u0|0");
        EXPECT_EQ(Render(list->back()), "u1023|n-u1023|d-u1023|1023");
    }
}

TEST_F(RequestLimitsTest, AbilityFilterReplyOf1024DevicesIsReadInFull)
{
    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(1024);
        for (uint32_t i = 0; i < 1024; ++i) {
            WriteDevice(r, "u" + std::to_string(i), i);
            r.WriteUint32(1);
            WriteAbilityFilter(r, "b" + std::to_string(i));
        }
    }));
    std::vector<sptr<AbilityFilter>> filters;
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> result;

    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);
    ASSERT_EQ(result.size(), 1024u);
    EXPECT_EQ(std::get<0>(result.back()).GetDeviceUdid(), "u1023");
    ASSERT_EQ(std::get<1>(result.back()).size(), 1u);
    EXPECT_EQ(std::get<1>(result.back()).front()->GetBundleName(), "b1023");
}

TEST_F(RequestLimitsTest, WriteAbilityFilterListTakes1024FiltersAndRefuses1025)
{
    std::vector<sptr<AbilityFilter>> filters(1024);
    for (auto& filter : filters) {
        filter = new AbilityFilter("b");
    }
    MessageParcel full;
    EXPECT_TRUE(proxy_->WriteAbilityFilterList(full, filters));
    EXPECT_EQ(full.ReadUint32(), 1024u);
    for (int i = 0; i < 1024; ++i) {
        sptr<AbilityFilter> read = full.ReadStrongParcelable<AbilityFilter>();
        ASSERT_NE(read, nullptr) << "filter " << i;
    }
    EXPECT_EQ(full.GetReadableBytes(), 0u);

    filters.push_back(new AbilityFilter("one too many"));
    LogCapture log;
    MessageParcel refused;
    EXPECT_FALSE(proxy_->WriteAbilityFilterList(refused, filters));
    EXPECT_EQ(refused.GetDataSize(), 0u);
    EXPECT_EQ(LinesAt(log, LOG_ERROR), std::vector<std::string>{"WriteAbilityFilterList# listLength exceed maximum"});
}

TEST_F(RequestLimitsTest, TooManyAbilityFiltersAreNeverSent)
{
    std::vector<sptr<AbilityFilter>> filters(1025, sptr<AbilityFilter>(new AbilityFilter()));
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> result;
    LogCapture log;

    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), -1);
    EXPECT_EQ(remote_->RequestCount(), 0u);
    EXPECT_TRUE(result.empty());
    EXPECT_EQ(LinesAt(log, LOG_ERROR),
              (std::vector<std::string>{"WriteAbilityFilterList# listLength exceed maximum",
                                        "GetTrustedDeviceListWithAbilityFilter# GetTrustedDeviceList "
                                        "WriteStrongParcelable failed"}));
}

TEST_F(RequestLimitsTest, EmptyAndNullFiltersAreWritten)
{
    std::vector<sptr<AbilityFilter>> filters;
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> result;
    remote_->SetReply(BuildParcel([](MessageParcel& r) { r.WriteUint32(0); }));

    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);
    MessageParcel empty = remote_->LastRequest().ToParcel();
    empty.ReadInterfaceToken();
    EXPECT_EQ(empty.ReadUint32(), 0u);
    EXPECT_EQ(empty.GetReadableBytes(), 0u);

    // A null filter is the platform's to write: presence 0, no check here.
    filters.push_back(nullptr);
    EXPECT_EQ(proxy_->GetTrustedDeviceListWithAbilityFilter(filters, result), 0);
    MessageParcel withNull = remote_->LastRequest().ToParcel();
    withNull.ReadInterfaceToken();
    EXPECT_EQ(withNull.ReadUint32(), 1u);
    EXPECT_EQ(withNull.ReadInt32(), 0);
    EXPECT_EQ(withNull.GetReadableBytes(), 0u);
}

TEST_F(RequestLimitsTest, NullFiltersAreHandedToTheWrite)
{
    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteInt32(0);
        r.WriteUint32(1);
    }));
    sptr<DeviceChangedCallbackStub> callback = new DeviceChangedCallbackStub();

    EXPECT_EQ(proxy_->RegisterDevChangedCallback(nullptr, "x", callback), std::make_pair(0, 1u));
    MessageParcel request = remote_->LastRequest().ToParcel();
    request.ReadInterfaceToken();
    EXPECT_EQ(request.ReadInt32(), 0) << "a null filter travels as an absent record";
}

TEST_F(RequestLimitsTest, RepeatedCallsAppendToTheSameOutputs)
{
    remote_->SetReply(BuildParcel([](MessageParcel& r) { WriteDevices(r, 2); }));
    std::vector<DeviceInfo> devices;
    EXPECT_EQ(proxy_->GetTrustedDeviceList("", devices), 0);
    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(1);
        WriteDevice(r, "second", 9);
    }));
    EXPECT_EQ(proxy_->GetTrustedDeviceList("", devices), 0);
    EXPECT_EQ(Render(devices), "[u0|n-u0|d-u0|0, u1|n-u1|d-u1|1, second|n-second|d-second|9]");

    remote_->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(1);
        WriteDynamicInfo(r, "k", "v");
    }));
    std::vector<DeviceDynamicInfo> infos;
    EXPECT_EQ(proxy_->GetRemoteDeviceDynamicInfo("id", {"k"}, infos), 0);
    EXPECT_EQ(proxy_->GetRemoteDeviceDynamicInfo("id", {"k"}, infos), 0);
    EXPECT_EQ(infos.size(), 2u);
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
        MessageParcel request = remote_->LastRequest().ToParcel();
        request.ReadInterfaceToken();
        EXPECT_EQ(request.ReadString(), text);
    }
}

TEST_F(RequestLimitsTest, DialogCallbackLogsItsNullCheckAndStillSends)
{
    LogCapture log;
    EXPECT_EQ(proxy_->SetDialogEventCallback(new DialogEventCallbackStub()), 0);
    EXPECT_EQ(remote_->RequestCount(), 1u);
    EXPECT_EQ(LinesAt(log, LOG_ERROR),
              std::vector<std::string>{"SetDialogEventCallback# SetDialogEventCallback callback is null? : 0"});
}

// A proxy around no object at all cannot send; it fails where a dead service
// would, with the method's own value.
TEST(RequestWithoutRemoteTest, FailsAtTheSendStep)
{
    sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(nullptr);
    std::vector<DeviceInfo> devices;
    LogCapture log;
    EXPECT_EQ(proxy->GetTrustedDeviceList("", devices), -1);
    EXPECT_EQ(proxy->UnRequestService("pkg"), 1008);
    EXPECT_EQ(LinesAt(log, LOG_ERROR), (std::vector<std::string>{"GetTrustedDeviceList# GetTrustedDeviceList "
                                                                 "SendRequest failed",
                                                                 "UnRequestService# SendRequest failed"}));
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
