// One fill function and one check function per record: the fill builds a
// record whose every field holds a distinct value (odd lengths, an empty
// string, bytes past 0x7f, a NUL inside a string), and the check asserts
// that a record holds exactly those values.
#ifndef DD_TEST_RECORD_SAMPLES_H
#define DD_TEST_RECORD_SAMPLES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_dynamic_info.h"
#include "log_matchers.h"
#include "parcel.h"
#include "publish_event_info.h"
#include "service_publish_info.h"
#include "wire_bytes.h"

namespace DdTest {

using namespace Tavik;
using namespace Tavik::Syntavo;

// Log labels and file names as the records' lines carry them.
constexpr uint32_t CLIENT_DOMAIN = 0xD004612;
constexpr const char* CLIENT_TAG = "SYNTClient";
constexpr uint32_t INFO_COLLECTION_DOMAIN = 0xD00461B;
constexpr const char* INFO_COLLECTION_TAG = "SYNTInfoCollection";

inline ExpectedLine ClientLine(LogLevel level, const std::string& file, const std::string& function,
                               const std::string& text)
{
    return ExpectedLine{level, CLIENT_DOMAIN, CLIENT_TAG, file, function, text};
}

inline ExpectedLine AbilityFilterFileLine(LogLevel level, const std::string& function, const std::string& text)
{
    return ClientLine(level, "ability_filter", function, text);
}

using Tavik::Test::Bytes;
using Tavik::Test::CompactHex;
using Tavik::Test::Encode;
using Tavik::Test::ToHex;

inline const std::string& EmbeddedNul()
{
    static const std::string value("x\0y", 3);
    return value;
}

inline sptr<DeviceInfo> FillDeviceInfo()
{
    return new DeviceInfo("udid-0123456789", "net-abcdef", "Living room TV", 156);
}

inline void CheckDeviceInfo(DeviceInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetDeviceUdid(), i.GetDeviceNetworkId(), i.GetDeviceName(), i.GetDeviceType()),
              std::make_tuple("udid-0123456789", "net-abcdef", "Living room TV", 156u));
}

inline sptr<DeviceServiceInfo> FillDeviceServiceInfo()
{
    return new DeviceServiceInfo("Kitchen pad", 17, "hash#1", "dev-id-9876", {"rule-a", "", "r\xc3\xa9gle"},
                                 "network-42", "AA:BB:CC:DD:EE:FF", EmbeddedNul());
}

inline void CheckDeviceServiceInfo(DeviceServiceInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetDeviceName(), i.GetDeviceType(), i.GetDeviceHashId(), i.GetDeviceId()),
              std::make_tuple("Kitchen pad", 17u, "hash#1", "dev-id-9876"));
    EXPECT_EQ(i.GetServiceRuleList(), (std::vector<std::string>{"rule-a", "", "r\xc3\xa9gle"}));
    EXPECT_EQ(std::make_tuple(i.GetNetworkId(), i.GetBrMac(), i.GetExtraInfo()),
              std::make_tuple("network-42", "AA:BB:CC:DD:EE:FF", EmbeddedNul()));
}

inline sptr<LocalInfo> FillLocalInfo()
{
    return new LocalInfo("MainAbility", "com.example.app", "local-device-id", "entry", 14);
}

inline void CheckLocalInfo(LocalInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetLocalAbilityName(), i.GetLocalBundleName(), i.GetLocalDeviceId(),
                              i.GetLocalModuleName(), i.GetLocalDeviceType()),
              std::make_tuple("MainAbility", "com.example.app", "local-device-id", "entry", 14u));
}

inline sptr<AbilityFilter> FillAbilityFilter()
{
    sptr<AbilityFilter> filter = new AbilityFilter("com.example.bundle", "page", "desc", 12, 3);
    filter->SetAction("action.view");
    return filter;
}

inline void CheckAbilityFilter(AbilityFilter& f)
{
    EXPECT_EQ(std::make_tuple(f.GetBundleName(), f.GetAbilityType(), f.GetAbilityDescription(), f.GetDeviceType(),
                              f.GetAccountType(), f.GetAction()),
              std::make_tuple("com.example.bundle", "page", "desc", 12u, 3u, "action.view"));
}

inline sptr<DeviceFilter> FillDeviceFilter()
{
    return new DeviceFilter({14, 17, 0xFFFFFFFF}, {0, 7});
}

// The lists have no getters; the match operations and the bytes show them.
inline void CheckDeviceFilter(DeviceFilter& f)
{
    EXPECT_TRUE(f.isDeviceTypeMatch(14) && f.isDeviceTypeMatch(17) && f.isDeviceTypeMatch(0xFFFFFFFF));
    EXPECT_TRUE(f.isAccountTypeMatch(0) && f.isAccountTypeMatch(7));
    EXPECT_FALSE(f.isDeviceTypeMatch(0) || f.isAccountTypeMatch(14));
    EXPECT_EQ(Encode(f), Encode(*FillDeviceFilter()));
}

inline sptr<ServiceFilter> FillServiceFilter()
{
    return new ServiceFilter("cast", {"PHONE", "PAD", ""});
}

inline void CheckServiceFilter(ServiceFilter& f)
{
    EXPECT_EQ(f.GetServiceName(), "cast");
    EXPECT_EQ(f.GetDeviceType(), (std::vector<std::string>{"PHONE", "PAD", ""}));
}

inline sptr<PickerResult> FillPickerResult()
{
    sptr<PickerResult> result = new PickerResult();
    result->SetAbilityFilter(FillAbilityFilter());
    result->SetDeviceInfo(FillDeviceInfo());
    result->SetLocalDeviceInfo(FillLocalInfo());
    return result;
}

inline void CheckPickerResult(PickerResult& result)
{
    ASSERT_NE(result.GetAbilityFilter(), nullptr);
    ASSERT_NE(result.GetDeviceInfo(), nullptr);
    ASSERT_NE(result.GetLocalDeviceInfo(), nullptr);
    CheckAbilityFilter(*result.GetAbilityFilter());
    CheckDeviceInfo(*result.GetDeviceInfo());
    CheckLocalInfo(*result.GetLocalDeviceInfo());
}

inline sptr<DeviceDynamicInfo> FillDeviceDynamicInfo()
{
    return new DeviceDynamicInfo("battery", "87%");
}

inline void CheckDeviceDynamicInfo(DeviceDynamicInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetKey(), i.GetValue()), std::make_tuple("battery", "87%"));
}

// The JSON is deliberately broken: it is carried, not parsed.
inline sptr<DeviceConfigInfo> FillDeviceConfigInfo()
{
    return new DeviceConfigInfo("model-X1", "{\"fold\": tru", "Fold phone", 14, 1);
}

inline void CheckDeviceConfigInfo(DeviceConfigInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetModelId(), i.GetOriginJson(), i.GetDeviceName(), i.GetDeviceType(),
                              i.GetSupportFoldScreen()),
              std::make_tuple("model-X1", "{\"fold\": tru", "Fold phone", 14u, 1u));
}

inline sptr<RequestResultInfo> FillRequestResultInfo()
{
    return new RequestResultInfo(7, 0x80000001);
}

inline void CheckRequestResultInfo(RequestResultInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetEventCode(), i.GetResultCode()), std::make_tuple(7u, 0x80000001u));
}

inline sptr<ServicePublishInfo> FillServicePublishInfo()
{
    return new ServicePublishInfo(0xFFFFFFFF, 2, 3);
}

inline void CheckServicePublishInfo(ServicePublishInfo& i)
{
    EXPECT_EQ(std::make_tuple(i.GetPublishId(), i.GetServiceCode(), i.GetServicePublishMode()),
              std::make_tuple(0xFFFFFFFFu, 2u, 3u));
}

// One row per record for the generic tests.
struct RecordCase {
    std::string name;
    std::function<sptr<Parcelable>()> fill;
    std::function<sptr<Parcelable>(Parcel&)> read;
    std::function<void(Parcelable&)> check;
    std::function<sptr<Parcelable>()> makeEmpty;
    // One parcel write per field when Marshalling is called directly.
    int fieldCount;
    // Whether Unmarshalling of a short parcel still yields a record.
    bool toleratesShortParcel;
};

template <typename T>
RecordCase MakeCase(const std::string& name, sptr<T> (*fill)(), void (*check)(T&), int fieldCount,
                    bool toleratesShortParcel = true)
{
    return RecordCase{name,
                      [fill] { return sptr<Parcelable>(fill()); },
                      [](Parcel& parcel) { return sptr<Parcelable>(T::Unmarshalling(parcel)); },
                      [check](Parcelable& record) { check(dynamic_cast<T&>(record)); },
                      [] { return sptr<Parcelable>(new T()); },
                      fieldCount,
                      toleratesShortParcel};
}

inline std::vector<RecordCase> AllRecords()
{
    return {
        MakeCase("DeviceInfo", FillDeviceInfo, CheckDeviceInfo, 4),
        MakeCase("DeviceServiceInfo", FillDeviceServiceInfo, CheckDeviceServiceInfo, 8),
        MakeCase("LocalInfo", FillLocalInfo, CheckLocalInfo, 5),
        MakeCase("AbilityFilter", FillAbilityFilter, CheckAbilityFilter, 6),
        MakeCase("DeviceFilter", FillDeviceFilter, CheckDeviceFilter, 2, false),
        MakeCase("ServiceFilter", FillServiceFilter, CheckServiceFilter, 2),
        MakeCase("PickerResult", FillPickerResult, CheckPickerResult, 3, false),
        MakeCase("DeviceDynamicInfo", FillDeviceDynamicInfo, CheckDeviceDynamicInfo, 2),
        MakeCase("DeviceConfigInfo", FillDeviceConfigInfo, CheckDeviceConfigInfo, 5),
        MakeCase("RequestResultInfo", FillRequestResultInfo, CheckRequestResultInfo, 2),
        MakeCase("ServicePublishInfo", FillServicePublishInfo, CheckServicePublishInfo, 3),
    };
}

}  // namespace DdTest

#endif  // DD_TEST_RECORD_SAMPLES_H
