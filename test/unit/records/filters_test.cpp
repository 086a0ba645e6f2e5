// Matching of DeviceFilter and ServiceFilter, the device type names, and the
// log anonymiser.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "record_samples.h"

namespace DdTest {
namespace {

TEST(AnonymiserTest, MasksAllButThreeBytesAtEachEnd)
{
    struct Case {
        std::string input;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"", "****"},
        {"a", "****"},
        {"ab", "****"},
        {"abc", "abc****abc"},
        {"abcd", "abc****bcd"},
        {"0123456789", "012****789"},
        // Bytes, not characters: the two-byte e-acute is cut at both ends.
        {"\xc3\xa9\xc3\xa9\xc3\xa9", "\xc3\xa9\xc3****\xa9\xc3\xa9"},
        {std::string("a\0bc\0d", 6), std::string("a\0b****c\0d", 10)},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PickerResult::StringToAnonymous(c.input), c.expected) << "input of " << c.input.size() << " bytes";
    }
}

TEST(DeviceFilterTest, MatchesOnlyListedCodes)
{
    struct Case {
        std::vector<uint32_t> list;
        uint32_t probe;
        bool expected;
    };
    const std::vector<Case> cases = {
        {{}, 0, false},          {{17, 14}, 14, true}, {{17, 156}, 14, false},
        {{14}, 14 + 256, false}, {{0}, 0, true},       {{0xFFFFFFFF}, 0xFFFFFFFF, true},
        {{5, 5, 5}, 5, true},
    };
    for (const Case& c : cases) {
        DeviceFilter byDevice(c.list, {});
        DeviceFilter byAccount({}, c.list);
        EXPECT_EQ(byDevice.isDeviceTypeMatch(c.probe), c.expected) << "device type " << c.probe;
        EXPECT_EQ(byAccount.isAccountTypeMatch(c.probe), c.expected) << "account type " << c.probe;
        // Each operation looks at its own list only.
        EXPECT_FALSE(byDevice.isAccountTypeMatch(c.probe)) << "account type " << c.probe;
        EXPECT_FALSE(byAccount.isDeviceTypeMatch(c.probe)) << "device type " << c.probe;
    }
}

TEST(ServiceFilterTest, ConvertDeviceTypeNamesTheTenKnownCodes)
{
    struct Case {
        uint32_t code;
        std::string name;
    };
    const std::vector<Case> cases = {
        {0, "UNKNOWN"},        {14, "PHONE"}, {17, "PAD"},
        {156, "TV"},           {131, "CAR"},  {109, "WATCH"},
        {8, "WiFiCamera"},     {12, "PC"},    {2562, "SMART_DISPLAY"},
        {2607, "2IN1"},        {1, ""},       {0xFFFFFFFF, ""},
        {0xA2F + 0x10000, ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ServiceFilter::ConvertDeviceType(c.code), c.name) << "code " << c.code;
    }
}

using Names = std::shared_ptr<std::vector<std::string>>;

Names MakeNames(std::vector<std::string> names)
{
    return std::make_shared<std::vector<std::string>>(std::move(names));
}

struct MatchCase {
    std::string name;
    std::string serviceName;
    std::vector<std::string> types;
    Names remoteNames;
    uint32_t deviceType;
    bool expected;
    std::vector<std::string> lines;
};

TEST(ServiceFilterTest, IsMatchChecksServiceNameThenDeviceType)
{
    const std::string name = "IsMatchServiceName# filter serviceName: ";
    const std::string size = "IsMatchServiceName# get remote serviceNames size:";
    const std::string types = "IsMatchDeviceType# filter deviceTypes size: ";
    const std::string byName = "IsMatch# filtered by service name";
    const std::string byType = "IsMatch# filtered by device type";
    // clang-format off
    const std::vector<MatchCase> cases = {
        {"empty filter passes even without remote names", "", {}, nullptr, 14, true,
         {name, types + "0, get remote device type:14"}},
        {"required name without remote names", "cast", {"PHONE"}, nullptr, 14, false,
         {name + "cast", "IsMatchServiceName# GetRemoteServiceNames nullptr", byName}},
        {"required name, empty remote list", "cast", {}, MakeNames({}), 14, false,
         {name + "cast", size + "0", byName}},
        {"required name found last", "cast", {}, MakeNames({"video", "cast"}), 14, true,
         {name + "cast", size + "2", types + "0, get remote device type:14"}},
        {"names differ in case or length", "cast", {}, MakeNames({"Cast", "cast "}), 14, false,
         {name + "cast", size + "2", byName}},
        {"PAD passes PHONE or PAD", "", {"PHONE", "PAD"}, nullptr, 17, true,
         {name, types + "2, get remote device type:17"}},
        {"TV fails PHONE or PAD", "", {"PHONE", "PAD"}, nullptr, 156, false,
         {name, types + "2, get remote device type:156", byType}},
        {"type names compare with case", "", {"WIFICAMERA"}, nullptr, 8, false,
         {name, types + "1, get remote device type:8", byType}},
        {"unknown code fails a list without an empty name", "", {"UNKNOWN", "PHONE"}, nullptr, 1, false,
         {name, types + "2, get remote device type:1", byType}},
        {"unknown code passes a list with an empty name", "", {"PHONE", ""}, nullptr, 1, true,
         {name, types + "2, get remote device type:1"}},
        {"a known code does not pass an empty name", "", {""}, nullptr, 14, false,
         {name, types + "1, get remote device type:14", byType}},
    };
    // clang-format on
    for (const MatchCase& c : cases) {
        ServiceFilter filter(c.serviceName, c.types);
        DeviceInfo device("udid", "net", "name", c.deviceType);
        LogCapture capture;
        EXPECT_EQ(filter.IsMatch(c.remoteNames, device), c.expected) << c.name;
        EXPECT_TRUE(LoggedSequence(capture, c.lines)) << c.name;
        for (const auto& record : capture.Records()) {
            EXPECT_EQ(record.level, LOG_INFO) << c.name;
            EXPECT_EQ(record.domain, CLIENT_DOMAIN) << c.name;
        }
    }
}

}  // namespace
}  // namespace DdTest
