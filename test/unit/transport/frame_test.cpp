// The frame header on its own: its bytes on the wire and the rules a header
// must pass before any of its body is read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "message_option.h"
#include "transport/frame.h"

namespace Tavik {
namespace Transport {
namespace {

template <typename T>
std::string Hex(const T& value)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    std::string text;
    char digits[4];
    for (size_t i = 0; i < sizeof(T); ++i) {
        std::snprintf(digits, sizeof(digits), "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

TEST(FrameTest, WireBytes)
{
    struct Case {
        const char* name;
        std::function<std::string()> write;
        const char* hex;
    };
    const Case cases[] = {
        {"transaction",
         [] {
             FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
             header.length = 0x10 + 2 * sizeof(ObjectEntry);
             header.callId = 0x0102030405060708ULL;
             header.target = 0x11223344;
             header.code = 25;
             header.objectCount = 2;
             return Hex(header);
         },
         // length   magic v  k  callId           target   code     flags    objs rsvd
         "20000000 5456 01 01 0807060504030201 44332211 19000000 00000000 0200 0000"},
        {"one-way transaction",
         [] {
             FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
             header.flags = MessageOption::TF_ASYNC;
             return Hex(header);
         },
         "00000000 5456 01 01 0000000000000000 00000000 00000000 01000000 0000 0000"},
        {"reply with a negative status",
         [] {
             FrameHeader header = MakeHeader(FrameKind::REPLY);
             header.callId = 9;
             header.code = static_cast<uint32_t>(-32);
             return Hex(header);
         },
         "00000000 5456 01 02 0900000000000000 00000000 e0ffffff 00000000 0000 0000"},
        {"release",
         [] {
             FrameHeader header = MakeHeader(FrameKind::RELEASE);
             header.target = 7;
             header.code = 3;
             return Hex(header);
         },
         "00000000 5456 01 03 0000000000000000 07000000 03000000 00000000 0000 0000"},
        {"object entry",
         [] {
             ObjectEntry entry{};
             entry.id = 0x01020304;
             entry.owner = static_cast<uint8_t>(ObjectOwner::RECEIVER);
             return Hex(entry);
         },
         "04030201 01 000000"},
    };
    for (const auto& testCase : cases) {
        std::string expected = testCase.hex;
        expected.erase(std::remove(expected.begin(), expected.end(), ' '), expected.end());
        EXPECT_EQ(testCase.write(), expected) << testCase.name;
    }
}

FrameHeader Transaction()
{
    FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
    header.callId = 1;
    header.length = 8;
    return header;
}

TEST(FrameTest, HeaderChecks)
{
    struct Case {
        const char* name;
        std::function<void(FrameHeader&)> change;
        FrameError expected;
    };
    const Case cases[] = {
        {"plain transaction", [](FrameHeader&) {}, FrameError::NONE},
        {"data of exactly 1 MiB", [](FrameHeader& h) { h.length = MAX_FRAME_DATA; }, FrameError::NONE},
        {"1 MiB of data and the most objects",
         [](FrameHeader& h) {
             h.objectCount = MAX_FRAME_OBJECTS;
             h.length = MAX_FRAME_LENGTH;
         },
         FrameError::NONE},
        {"data of 1 MiB + 1", [](FrameHeader& h) { h.length = MAX_FRAME_DATA + 1; }, FrameError::TOO_LARGE},
        {"data of 1 MiB + 4", [](FrameHeader& h) { h.length = MAX_FRAME_DATA + 4; }, FrameError::TOO_LARGE},
        {"largest length field", [](FrameHeader& h) { h.length = 0xFFFFFFFF; }, FrameError::TOO_LARGE},
        {"one object too many",
         [](FrameHeader& h) {
             h.objectCount = MAX_FRAME_OBJECTS + 1;
             h.length = h.objectCount * sizeof(ObjectEntry);
         },
         FrameError::TOO_MANY_OBJECTS},
        {"length short of the objects",
         [](FrameHeader& h) {
             h.objectCount = 2;
             h.length = 15;
         },
         FrameError::BAD_LENGTH},
        {"odd data size", [](FrameHeader& h) { h.length = 6; }, FrameError::BAD_LENGTH},
        {"magic", [](FrameHeader& h) { h.magic[0] = 't'; }, FrameError::BAD_MAGIC},
        {"version", [](FrameHeader& h) { h.version = 0; }, FrameError::BAD_VERSION},
        {"kind 0", [](FrameHeader& h) { h.kind = 0; }, FrameError::BAD_KIND},
        {"kind 4", [](FrameHeader& h) { h.kind = 4; }, FrameError::BAD_KIND},
        {"reserved", [](FrameHeader& h) { h.reserved = 0x100; }, FrameError::RESERVED_NOT_ZERO},
        {"sync transaction without call id", [](FrameHeader& h) { h.callId = 0; }, FrameError::BAD_FIELDS},
        {"one-way transaction",
         [](FrameHeader& h) {
             h.callId = 0;
             h.flags = MessageOption::TF_ASYNC;
         },
         FrameError::NONE},
        {"one-way transaction with call id", [](FrameHeader& h) { h.flags = MessageOption::TF_ASYNC; },
         FrameError::BAD_FIELDS},
        {"unknown flag", [](FrameHeader& h) { h.flags = 0x2; }, FrameError::BAD_FIELDS},
        {"reply", [](FrameHeader& h) { h.kind = static_cast<uint8_t>(FrameKind::REPLY); }, FrameError::NONE},
        {"reply without call id",
         [](FrameHeader& h) {
             h.kind = static_cast<uint8_t>(FrameKind::REPLY);
             h.callId = 0;
         },
         FrameError::BAD_FIELDS},
        {"reply with a target",
         [](FrameHeader& h) {
             h.kind = static_cast<uint8_t>(FrameKind::REPLY);
             h.target = 3;
         },
         FrameError::BAD_FIELDS},
        {"release",
         [](FrameHeader& h) {
             h = MakeHeader(FrameKind::RELEASE);
             h.target = 3;
             h.code = 2;
         },
         FrameError::NONE},
        {"release of nothing",
         [](FrameHeader& h) {
             h = MakeHeader(FrameKind::RELEASE);
             h.target = 3;
         },
         FrameError::BAD_FIELDS},
        {"release of the root",
         [](FrameHeader& h) {
             h = MakeHeader(FrameKind::RELEASE);
             h.code = 1;
         },
         FrameError::BAD_FIELDS},
        {"release with a body",
         [](FrameHeader& h) {
             h = MakeHeader(FrameKind::RELEASE);
             h.target = 3;
             h.code = 1;
             h.length = 4;
         },
         FrameError::BAD_FIELDS},
    };
    for (const auto& testCase : cases) {
        FrameHeader header = Transaction();
        testCase.change(header);
        EXPECT_EQ(CheckHeader(header), testCase.expected)
            << testCase.name << ": got " << FrameErrorToString(CheckHeader(header));
    }
}

TEST(FrameTest, ObjectEntryChecks)
{
    ObjectEntry entry{};
    EXPECT_EQ(CheckObjectEntry(entry), FrameError::NONE);
    entry.owner = static_cast<uint8_t>(ObjectOwner::RECEIVER);
    EXPECT_EQ(CheckObjectEntry(entry), FrameError::NONE);
    entry.owner = 2;
    EXPECT_EQ(CheckObjectEntry(entry), FrameError::BAD_OBJECT_ENTRY);
    entry.owner = 0;
    entry.reserved[2] = 1;
    EXPECT_EQ(CheckObjectEntry(entry), FrameError::RESERVED_NOT_ZERO);
}

}  // namespace
}  // namespace Transport
}  // namespace Tavik
