// The records' log lines: construction, destruction, marshalling, refused
// writes and failed allocations, each with its exact text and masking.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "parcel_test_seam.h"
#include "record_samples.h"

// Makes the next nothrow allocations on this thread fail. The records
// allocate themselves with new (std::nothrow), so this reaches exactly their
// allocation-failure path; every other allocation still goes through the
// ordinary operator new, so sanitizer bookkeeping stays matched.
namespace {
thread_local int g_failNothrowNew = 0;
}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    if (g_failNothrowNew > 0) {
        --g_failNothrowNew;
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

namespace DdTest {
namespace {

class FailNextNothrowNew {
public:
    FailNextNothrowNew() { g_failNothrowNew = 1; }
    ~FailNextNothrowNew() { g_failNothrowNew = 0; }
    FailNextNothrowNew(const FailNextNothrowNew&) = delete;
    FailNextNothrowNew& operator=(const FailNextNothrowNew&) = delete;
};

struct LifecycleCase {
    std::string name;
    std::function<void()> live;  // builds a record and lets it go
    std::vector<std::string> lines;
    std::string file;
    uint32_t domain = CLIENT_DOMAIN;
    std::string tag = CLIENT_TAG;
};

TEST(RecordLogTest, ConstructionAndDestructionLines)
{
    const std::vector<LifecycleCase> cases = {
        {"DeviceInfo",
         [] { DeviceInfo("udid-0123456789", "net-abcdef", "TV", 156); },
         {"DeviceInfo# create:device = net****def, deviceName= TV, deviceType = 156",
          "~DeviceInfo# destory:device = net****def, deviceName= TV, deviceType = 156"},
         "ability_filter"},
        {"DeviceServiceInfo",
         [] { DeviceServiceInfo("Pad", 17, "h", "dev-id-9876", {}, "ab"); },
         {"DeviceServiceInfo# create:device = ****, deviceName= Pad, deviceType = 17",
          "~DeviceServiceInfo# destory:device = ****, deviceName= Pad, deviceType = 17"},
         "ability_filter"},
        {"LocalInfo: ability name masked only on creation",
         [] { FillLocalInfo(); },
         {"LocalInfo# localAbilityName=Mai****ity, localBundleName=com.example.app,localDeviceId=loc****-id, "
          "localModuleName=entry, localDeviceType=14",
          "~LocalInfo# destory:localAbilityName = MainAbility, localBundleName = com.example.app, "
          "localDeviceId = loc****-id, localModuleName=entry, localDeviceType = 14"},
         "ability_filter"},
        {"AbilityFilter",
         [] { AbilityFilter("com.b", "page", "desc", 12, 3); },
         {"AbilityFilter# bundleName = com.b, abilityType = page, description = desc,deviceType = 12, "
          "accountType = 3",
          "~AbilityFilter# destory=page, description=desc, deviceType=12, accountType=3"},
         "ability_filter"},
        {"PickerResult: fresh",
         [] { PickerResult(); },
         {"PickerResult# create: abilityFilter_ = 1, deviceInfo_= 1 ",
          "~PickerResult# destory: abilityFilter_ = 1, deviceInfo_= 1 "},
         "ability_filter"},
        {"DeviceDynamicInfo: the same text twice",
         [] { DeviceDynamicInfo("battery", "87%"); },
         {"DeviceDynamicInfo# key=battery, value=87%", "~DeviceDynamicInfo# key=battery, value=87%"},
         "device_dynamic_info",
         INFO_COLLECTION_DOMAIN,
         INFO_COLLECTION_TAG},
        {"RequestResultInfo: creation only",
         [] { RequestResultInfo(7, 0); },
         {"RequestResultInfo# create:eventCode = 7, resultCode = 0"},
         "publish_event_info"},
        {"ServicePublishInfo: creation only",
         [] { ServicePublishInfo(5, 6, 1); },
         {"ServicePublishInfo# new ServicePublishInfo: publishId:5 serviceCode:6 publishMode:1"},
         "service_publish_info"},
        {"silent records",
         [] {
             DeviceFilter({1}, {2});
             ServiceFilter("s", {"PAD"});
             DeviceConfigInfo("m", "{}", "n", 1, 0);
         },
         {},
         ""},
    };
    for (const LifecycleCase& c : cases) {
        LogCapture capture;
        c.live();
        EXPECT_TRUE(LoggedSequence(capture, c.lines)) << c.name;
        // Every line in the record's domain (nothing else was logged) and at info.
        EXPECT_EQ(Tavik::Test::LinesAt(capture, LOG_INFO, c.domain), c.lines) << c.name;
        EXPECT_EQ(Tavik::Test::CheckPrefixes(capture, c.file, c.domain, c.tag), "") << c.name;
    }
}

TEST(RecordLogTest, MarshallingSuccessLines)
{
    struct Case {
        std::string name;
        std::vector<sptr<Parcelable>> records;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {"DeviceInfo: both identifiers masked",
         {FillDeviceInfo()},
         {"Marshalling# success:udid_:udi****789, networkId_:net****def, deviceName_:Living room TV, "
          "deviceType:156"}},
        {"DeviceInfo: short identifiers are masks alone",
         {new DeviceInfo("ab", "", "n", 0)},
         {"Marshalling# success:udid_:****, networkId_:****, deviceName_:n, deviceType:0"}},
        {"DeviceServiceInfo: the device id is labelled udid",
         {FillDeviceServiceInfo()},
         {"Marshalling# success:udid_:dev****876, networkId_:net****-42, deviceName_:Kitchen pad, deviceType:17"}},
        {"LocalInfo: only the device id masked",
         {FillLocalInfo()},
         {"Marshalling# localAbilityName_:MainAbility, localBundleName_:com.example.app, "
          "localDeviceId_:loc****-id, localModuleName_:entry, localDeviceType_:14"}},
        {"DeviceDynamicInfo", {new DeviceDynamicInfo("k", "v")}, {"Marshalling# success key=k, value=v"}},
        {"silent on success",
         {FillAbilityFilter(), FillDeviceFilter(), FillServiceFilter(), FillDeviceConfigInfo(), FillRequestResultInfo(),
          FillServicePublishInfo(), new PickerResult()},
         {}},
    };
    for (const Case& c : cases) {
        Parcel parcel;
        LogCapture capture;
        for (const auto& record : c.records) {
            EXPECT_TRUE(record->Marshalling(parcel)) << c.name;
        }
        EXPECT_TRUE(LoggedSequence(capture, c.lines)) << c.name;
        for (const auto& record : capture.Records()) {
            EXPECT_EQ(record.level, LOG_INFO) << c.name;
        }
    }
}

ExpectedLine ErrorLine(const std::string& file, const std::string& function, const std::string& text)
{
    return ClientLine(LOG_ERROR, file, function, text);
}

ExpectedLine DynamicErrorLine(const std::string& function, const std::string& text)
{
    return ExpectedLine{LOG_ERROR, INFO_COLLECTION_DOMAIN, INFO_COLLECTION_TAG, "device_dynamic_info", function, text};
}

// The ERROR line of each record when the write of field `failed` (0-based) is refused.
ExpectedLine MarshallingFailureLine(const std::string& record, int failed)
{
    const std::string af = "ability_filter";
    const std::map<std::string, std::string> texts = {
        {"DeviceInfo", "failed:udid_:udi****789, networkId_:net-abcdef, deviceName_:Living room TV, deviceType:156"},
        {"DeviceServiceInfo", "failed:udid_:dev****876, networkId_:network-42, deviceName_:Kitchen pad, deviceType:17"},
        {"LocalInfo",
         "failed:localAbilityName_:MainAbility, localBundleName_:com.example.app, localDeviceId_:loc****-id, "
         "localModuleName_:entry, localDeviceType_:14"},
        {"AbilityFilter",
         "failed: bundleName: com.example.bundle, abilityType: page, abilityDescription: desc,deviceType:12, , "
         "accountType:3"},
        {"DeviceFilter", "write failed, dt:3 at:2"},
        {"ServiceFilter", "write ServiceFilter failed: serviceName_ = cast"},
        {"PickerResult", "write PickerResult failed: abilityFilter_ = 0, deviceInfo_= 0 localInfo_= 0"},
    };
    if (record == "DeviceDynamicInfo") {
        return DynamicErrorLine("Marshalling", "failed key=battery, value=87%");
    }
    if (record == "DeviceConfigInfo") {
        return ErrorLine("device_config_info", "Marshalling", "failed: modelId_:model-X1");
    }
    if (record == "RequestResultInfo") {
        return ErrorLine(
            "publish_event_info", "Marshalling",
            failed == 0 ? "write eventCode failed, eventCode:7" : "write resultCode failed, resultCode:2147483649");
    }
    if (record == "ServicePublishInfo") {
        return ErrorLine("service_publish_info", "Marshalling", "failed: publishId:-1");
    }
    return ErrorLine(af, "Marshalling", texts.at(record));
}

// Refusing each field's write in turn: Marshalling returns false after one
// ERROR line, its own and last, and leaves a growing prefix of the full
// encoding; allowing every field's write lets it succeed silently.
TEST(RecordLogTest, RefusedWriteStopsMarshallingWithOneErrorLine)
{
    std::vector<RecordCase> cases = AllRecords();
    RecordCase fresh = cases[6];
    fresh.name = "PickerResult: fresh";
    fresh.fill = [] { return sptr<Parcelable>(new PickerResult()); };
    cases.push_back(fresh);
    for (const RecordCase& c : cases) {
        sptr<Parcelable> record = c.fill();
        std::vector<uint8_t> full = Encode(*record);
        size_t previousSize = 0;
        for (int allowed = 0; allowed <= c.fieldCount; ++allowed) {
            std::string where = c.name + ", writes allowed: " + std::to_string(allowed);
            Parcel parcel;
            LogCapture capture;
            bool ok;
            {
                ParcelTestSeam::ScopedWriteFailure failure(allowed);
                ok = record->Marshalling(parcel);
            }
            std::vector<uint8_t> written = Bytes(parcel);
            auto lines = capture.Records();
            size_t errors =
                std::count_if(lines.begin(), lines.end(), [](const LogRecord& r) { return r.level == LOG_ERROR; });
            if (allowed == c.fieldCount) {
                EXPECT_TRUE(ok && written == full && errors == 0) << where;
                continue;
            }
            ExpectedLine expected = MarshallingFailureLine(c.name == fresh.name ? "PickerResult" : c.name, allowed);
            if (c.name == fresh.name) {
                expected.text = "write PickerResult failed: abilityFilter_ = 1, deviceInfo_= 1 localInfo_= 1";
            }
            EXPECT_FALSE(ok) << where;
            EXPECT_EQ(errors, 1u) << where;
            ASSERT_FALSE(lines.empty()) << where;
            EXPECT_TRUE(Matches(lines.back(), expected)) << where << DescribeRecords(lines);
            ASSERT_LE(written.size(), full.size()) << where;
            EXPECT_TRUE(std::equal(written.begin(), written.end(), full.begin())) << where;
            EXPECT_TRUE(allowed == 0 ? written.empty() : written.size() > previousSize) << where;
            previousSize = written.size();
        }
    }
}

TEST(RecordLogTest, ReadingLogsTheConstructorLinesWithTheValuesRead)
{
    Parcel parcel;
    {
        LogCapture quiet;
        FillAbilityFilter()->Marshalling(parcel);
        FillDeviceDynamicInfo()->Marshalling(parcel);
    }
    LogCapture capture;
    sptr<AbilityFilter> filter = AbilityFilter::Unmarshalling(parcel);
    sptr<DeviceDynamicInfo> dynamic = DeviceDynamicInfo::Unmarshalling(parcel);
    Parcel empty;
    sptr<DeviceInfo> device = DeviceInfo::Unmarshalling(empty);
    EXPECT_TRUE(LoggedSequence(
        capture, {"AbilityFilter# bundleName = com.example.bundle, abilityType = page, description = desc,"
                  "deviceType = 12, accountType = 3",
                  "DeviceDynamicInfo# key=battery, value=87%",
                  "DeviceInfo# create:device = ****, deviceName= , deviceType = 0"}));

    capture.Clear();
    sptr<PickerResult> written = FillPickerResult();
    Parcel pickerParcel;
    written->Marshalling(pickerParcel);
    capture.Clear();
    sptr<PickerResult> read = PickerResult::Unmarshalling(pickerParcel);
    ASSERT_NE(read, nullptr);
    EXPECT_TRUE(LoggedSequence(
        capture,
        {"PickerResult# create: abilityFilter_ = 1, deviceInfo_= 1 ",
         "AbilityFilter# bundleName = com.example.bundle, abilityType = page, description = desc,deviceType = 12, "
         "accountType = 3",
         "DeviceInfo# create:device = net****def, deviceName= Living room TV, deviceType = 156",
         "LocalInfo# localAbilityName=Mai****ity, localBundleName=com.example.app,localDeviceId=loc****-id, "
         "localModuleName=entry, localDeviceType=14"}));
    capture.Clear();
    read = nullptr;
    EXPECT_TRUE(CountText(capture.Records(), "~PickerResult", "destory: abilityFilter_ = 0, deviceInfo_= 0 ") == 1)
        << DescribeRecords(capture.Records());
}

// The records allocate with new (std::nothrow); a failed allocation gives null
// and one ERROR line (DeviceFilter: none). PickerResult allocates before it
// reads, so it reads nothing.
TEST(RecordLogTest, FailedAllocationGivesNullAndOneErrorLine)
{
    const std::string af = "ability_filter";
    const std::map<std::string, std::vector<ExpectedLine>> lines = {
        {"DeviceInfo",
         {ErrorLine(af, "Unmarshalling",
                    "new DeviceInfo failed, udid:udi****789, networkId:net-abcdef, deviceName:Living room TV,"
                    "deviceType:156")}},
        {"DeviceServiceInfo",
         {ErrorLine(af, "Unmarshalling",
                    "new DeviceServiceInfo failed, udid:dev****876, networkId:network-42, deviceName:Kitchen pad,"
                    "deviceType:17")}},
        {"LocalInfo",
         {ErrorLine(af, "Unmarshalling",
                    "new LocalInfo failed, localAbilityName:MainAbility, localBundleName:com.example.app, "
                    "localDeviceId:loc****-id, localModuleNam:entry, localDeviceType:14")}},
        {"AbilityFilter",
         {ErrorLine(af, "Unmarshalling",
                    "new AbilityFilter failed, bundleName = com.example.bundle, abilityType:page, "
                    "abilityDescription:desc,deviceType:12, accountType:3")}},
        {"DeviceFilter", {}},
        {"ServiceFilter", {ErrorLine(af, "Unmarshalling", "new ServiceFilter failed")}},
        {"PickerResult", {ErrorLine(af, "Unmarshalling", "new PickerResult failed")}},
        {"DeviceDynamicInfo",
         {DynamicErrorLine("Unmarshalling", "new DeviceDynamicInfo failed, key=battery, value=87%")}},
        {"DeviceConfigInfo",
         {ErrorLine("device_config_info", "Unmarshalling", "new DeviceConfigInfo failed, modelId_:model-X1")}},
        {"RequestResultInfo",
         {ErrorLine("publish_event_info", "Unmarshalling",
                    "Unmarshalling failed, eventCode:7, resultCode:-2147483647")}},
        {"ServicePublishInfo",
         {ErrorLine("service_publish_info", "Unmarshalling", "new ServicePublishInfo failed, publishId:-1")}},
    };
    for (const RecordCase& c : AllRecords()) {
        Parcel parcel;
        {
            LogCapture quiet;
            ASSERT_TRUE(c.fill()->Marshalling(parcel)) << c.name;
        }
        LogCapture capture;
        sptr<Parcelable> read;
        {
            FailNextNothrowNew failure;
            read = c.read(parcel);
        }
        EXPECT_EQ(read, nullptr) << c.name;
        const std::vector<ExpectedLine>& expected = lines.at(c.name);
        EXPECT_EQ(capture.Records().size(), expected.size()) << c.name << DescribeRecords(capture.Records());
        for (const ExpectedLine& line : expected) {
            EXPECT_TRUE(Logged(capture, line)) << c.name;
        }
        if (c.name == "PickerResult") {
            EXPECT_EQ(parcel.GetReadPosition(), 0u);
        }
    }
}

}  // namespace
}  // namespace DdTest
