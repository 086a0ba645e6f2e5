// UTF-8 <-> UTF-16 conversion: well-formed text both ways, and ill-formed
// input of either kind yielding the empty string rather than a partial one.
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "string_convert.h"

namespace Tavik {
namespace {

std::u16string Units(std::initializer_list<char16_t> units)
{
    return std::u16string(units);
}

TEST(StringConvertTest, WellFormedRoundTrips)
{
    struct Case {
        const char* name;
        std::string utf8;
        std::u16string utf16;
    };
    const std::vector<Case> cases = {
        {"empty", "", u""},
        {"ASCII", "Tavik.Syntavo.IDeviceDetect", u"Tavik.Syntavo.IDeviceDetect"},
        {"embedded NUL", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
        {"U+007F, last one-byte", "\x7f", Units({0x007f})},
        {"U+0080, first two-byte", "\xc2\x80", Units({0x0080})},
        {"e acute", "caf\xc3\xa9", u"caf\u00e9"},
        {"U+07FF, last two-byte", "\xdf\xbf", Units({0x07ff})},
        {"U+0800, first three-byte", "\xe0\xa0\x80", Units({0x0800})},
        {"CJK", "\xe6\x97\xa5\xe6\x9c\xac", u"\u65e5\u672c"},
        {"U+D7FF, below the surrogates", "\xed\x9f\xbf", Units({0xd7ff})},
        {"U+E000, above the surrogates", "\xee\x80\x80", Units({0xe000})},
        {"U+FFFF", "\xef\xbf\xbf", Units({0xffff})},
        {"U+10000, first pair", "\xf0\x90\x80\x80", Units({0xd800, 0xdc00})},
        {"U+1F600", "\xf0\x9f\x98\x80", Units({0xd83d, 0xde00})},
        {"U+10FFFF, last pair", "\xf4\x8f\xbf\xbf", Units({0xdbff, 0xdfff})},
        {"mixed", "a\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80z", Units({'a', 0x00e9, 0x65e5, 0xd83d, 0xde00, 'z'})},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Str8ToStr16(c.utf8), c.utf16) << c.name;
        EXPECT_EQ(Str16ToStr8(c.utf16), c.utf8) << c.name;
        EXPECT_EQ(Str16ToStr8(Str8ToStr16(c.utf8)), c.utf8) << c.name;
    }
}

TEST(StringConvertTest, IllFormedUtf16YieldsEmpty)
{
    struct Case {
        const char* name;
        std::u16string utf16;
    };
    const std::vector<Case> cases = {
        {"lone high surrogate", Units({0xd800})},
        {"lone low surrogate", Units({0xdc00})},
        {"high then ASCII", Units({0xd83d, 'a'})},
        {"pair reversed", Units({0xde00, 0xd83d})},
        {"two highs", Units({0xd83d, 0xd83d, 0xde00})},
        {"valid text then a lone high at the end", Units({'a', 'b', 0xdbff})},
        {"valid pair then a lone low", Units({0xd83d, 0xde00, 0xdfff})},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Str16ToStr8(c.utf16), "") << c.name;
    }
}

TEST(StringConvertTest, IllFormedUtf8YieldsEmpty)
{
    struct Case {
        const char* name;
        std::string utf8;
    };
    const std::vector<Case> cases = {
        {"lone continuation byte", "\x80"},
        {"truncated two-byte", "\xc3"},
        {"truncated at the end of valid text", "abc\xe6\x97"},
        {"two-byte lead then ASCII",
         "\xc3"
         "a"},
        {"overlong slash (two bytes)", "\xc0\xaf"},
        {"overlong NUL", "\xc0\x80"},
        {"overlong three-byte", "\xe0\x80\xaf"},
        {"overlong four-byte", "\xf0\x80\x80\xaf"},
        {"encoded high surrogate", "\xed\xa0\x80"},
        {"encoded low surrogate", "\xed\xbf\xbf"},
        {"above U+10FFFF", "\xf4\x90\x80\x80"},
        {"lead byte F5", "\xf5\x80\x80\x80"},
        {"five-byte form", "\xf8\x88\x80\x80\x80"},
        {"byte FF", "\xff"},
        {"byte FE", "ok\xfe"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Str8ToStr16(c.utf8), u"") << c.name;
    }
}

}  // namespace
}  // namespace Tavik
