// Names for logs and test messages: every status value and request code has
// one, and nothing else does.
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "device_detect_request_code.h"
#include "device_detect_status.h"

namespace Tavik {
namespace Syntavo {
namespace {

TEST(StatusNamesTest, EveryStatusValueHasItsOwnName)
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

TEST(StatusNamesTest, EveryRequestCodeHasADistinctName)
{
    const std::set<uint32_t> codes = {1,  4,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                                      17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28};
    std::set<std::string> names;
    for (uint32_t code = 0; code <= 30; ++code) {
        const char* name = DeviceDetectRequestCodeToString(code);
        EXPECT_EQ(name != nullptr, codes.count(code) == 1) << code;
        if (name != nullptr) {
            names.insert(name);
        }
    }
    EXPECT_EQ(names.size(), codes.size());
    EXPECT_STREQ(DeviceDetectRequestCodeToString(1), "GET_TRUSTED_DEVICE_LIST");
    EXPECT_STREQ(DeviceDetectRequestCodeToString(28), "GET_IS_NEXT_TYPE_DEVICE");
    EXPECT_EQ(DeviceDetectRequestCodeToString(0xFFFFFFFFu), nullptr);
}

}  // namespace
}  // namespace Syntavo
}  // namespace Tavik
