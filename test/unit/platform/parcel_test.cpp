// Parcel reads and writes: round trips of every item in both read forms,
// short parcels, hostile lengths and counts, and the capacity limit.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "parcel.h"
#include "platform_test_util.h"

namespace Tavik {
namespace {

using Test::AllocationWatch;
using Test::CompactHex;
using Test::ParseWords;
using Test::TestRecord;
using Test::ToHex;

// One item type with one value, type-erased so that every item can run
// through the same round-trip and short-parcel checks.
struct ItemCase {
    std::string name;
    std::function<bool(Parcel&)> write;
    // Value form; true when it returned the written value. Empty when the item
    // has no value form (vectors).
    std::function<bool(Parcel&)> readValue;
    // Value form on a short parcel; true when it returned 0 or empty.
    std::function<bool(Parcel&)> readValueIsEmpty;
    // Checked form; true when it succeeded and produced the written value.
    std::function<bool(Parcel&)> readChecked;
    // Checked form on a short parcel; true when it failed and left its output
    // holding the sentinel it was given.
    std::function<bool(Parcel&)> readCheckedFailsUntouched;
};

template <typename T>
struct ItemOps {
    std::function<bool(Parcel&, const T&)> write;
    std::function<T(Parcel&)> readValue;  // may be empty
    std::function<bool(Parcel&, T&)> readChecked;
};

// `sentinel` differs from both the value and the empty value, so an output
// that a failed read touched is noticed.
template <typename T>
ItemCase MakeItem(std::string name, T value, T sentinel, ItemOps<T> ops)
{
    ItemCase c;
    c.name = std::move(name);
    c.write = [value, ops](Parcel& p) { return ops.write(p, value); };
    if (ops.readValue) {
        c.readValue = [value, ops](Parcel& p) { return ops.readValue(p) == value; };
        c.readValueIsEmpty = [ops](Parcel& p) { return ops.readValue(p) == T{}; };
    }
    c.readChecked = [value, sentinel, ops](Parcel& p) {
        T out = sentinel;
        return ops.readChecked(p, out) && out == value;
    };
    c.readCheckedFailsUntouched = [sentinel, ops](Parcel& p) {
        T out = sentinel;
        return !ops.readChecked(p, out) && out == sentinel;
    };
    return c;
}

const ItemOps<bool> kBool{[](Parcel& p, const bool& v) { return p.WriteBool(v); },
                          [](Parcel& p) { return p.ReadBool(); }, [](Parcel& p, bool& v) { return p.ReadBool(v); }};
const ItemOps<int32_t> kInt32{[](Parcel& p, const int32_t& v) { return p.WriteInt32(v); },
                              [](Parcel& p) { return p.ReadInt32(); },
                              [](Parcel& p, int32_t& v) { return p.ReadInt32(v); }};
const ItemOps<uint32_t> kUint32{[](Parcel& p, const uint32_t& v) { return p.WriteUint32(v); },
                                [](Parcel& p) { return p.ReadUint32(); },
                                [](Parcel& p, uint32_t& v) { return p.ReadUint32(v); }};
const ItemOps<int64_t> kInt64{[](Parcel& p, const int64_t& v) { return p.WriteInt64(v); },
                              [](Parcel& p) { return p.ReadInt64(); },
                              [](Parcel& p, int64_t& v) { return p.ReadInt64(v); }};
const ItemOps<uint64_t> kUint64{[](Parcel& p, const uint64_t& v) { return p.WriteUint64(v); },
                                [](Parcel& p) { return p.ReadUint64(); },
                                [](Parcel& p, uint64_t& v) { return p.ReadUint64(v); }};
const ItemOps<std::string> kString{[](Parcel& p, const std::string& v) { return p.WriteString(v); },
                                   [](Parcel& p) { return p.ReadString(); },
                                   [](Parcel& p, std::string& v) { return p.ReadString(v); }};
const ItemOps<std::u16string> kString16{[](Parcel& p, const std::u16string& v) { return p.WriteString16(v); },
                                        [](Parcel& p) { return p.ReadString16(); },
                                        [](Parcel& p, std::u16string& v) { return p.ReadString16(v); }};
const ItemOps<std::vector<std::string>> kStringVector{
    [](Parcel& p, const std::vector<std::string>& v) { return p.WriteStringVector(v); }, nullptr,
    [](Parcel& p, std::vector<std::string>& v) { return p.ReadStringVector(&v); }};
const ItemOps<std::vector<uint32_t>> kUint32Vector{
    [](Parcel& p, const std::vector<uint32_t>& v) { return p.WriteUInt32Vector(v); }, nullptr,
    [](Parcel& p, std::vector<uint32_t>& v) { return p.ReadUInt32Vector(&v); }};
const ItemOps<std::vector<int32_t>> kInt32Vector{
    [](Parcel& p, const std::vector<int32_t>& v) { return p.WriteInt32Vector(v); }, nullptr,
    [](Parcel& p, std::vector<int32_t>& v) { return p.ReadInt32Vector(&v); }};

std::vector<ItemCase> AllItems()
{
    std::vector<ItemCase> items = {
        MakeItem<bool>("bool true", true, false, kBool),
        MakeItem<int32_t>("int32 min", INT32_MIN, 7, kInt32),
        MakeItem<int32_t>("int32 -1", -1, 7, kInt32),
        MakeItem<int32_t>("int32 max", INT32_MAX, 7, kInt32),
        MakeItem<uint32_t>("uint32 max", UINT32_MAX, 7, kUint32),
        MakeItem<uint32_t>("uint32 1", 1, 7, kUint32),
        MakeItem<int64_t>("int64 min", INT64_MIN, 7, kInt64),
        MakeItem<int64_t>("int64 0x0123456789abcdef", 0x0123456789abcdef, 7, kInt64),
        MakeItem<uint64_t>("uint64 max", UINT64_MAX, 7, kUint64),
        MakeItem<std::string>("string a", "a", "sentinel", kString),
        MakeItem<std::string>("string abcd", "abcd", "sentinel", kString),
        MakeItem<std::string>("string abcde", "abcde", "sentinel", kString),
        MakeItem<std::string>("string with NULs", std::string("\0x\0", 3), "sentinel", kString),
        MakeItem<std::string>("string 1000 bytes", std::string(1000, 'z'), "sentinel", kString),
        MakeItem<std::u16string>("u16string A", u"A", u"sentinel", kString16),
        MakeItem<std::u16string>("u16string AB", u"AB", u"sentinel", kString16),
        MakeItem<std::u16string>("u16string non-ASCII", u"\u00e9\u65e5\U0001F600", u"sentinel", kString16),
        MakeItem<std::vector<std::string>>("string vector", {"a", "", "abcde"}, {"sentinel"}, kStringVector),
        MakeItem<std::vector<uint32_t>>("uint32 vector", {0, 1, UINT32_MAX}, {7}, kUint32Vector),
        MakeItem<std::vector<int32_t>>("int32 vector", {INT32_MIN, -1, 0, INT32_MAX}, {7}, kInt32Vector),
    };
    // The empty value round-trips too, but cannot be told from "short".
    ItemCase emptyString = MakeItem<std::string>("string empty", "", "sentinel", kString);
    emptyString.readValueIsEmpty = nullptr;
    items.push_back(emptyString);
    ItemCase emptyString16 = MakeItem<std::u16string>("u16string empty", u"", u"sentinel", kString16);
    emptyString16.readValueIsEmpty = nullptr;
    items.push_back(emptyString16);
    ItemCase emptyVector = MakeItem<std::vector<std::string>>("string vector empty", {}, {"sentinel"}, kStringVector);
    items.push_back(emptyVector);
    return items;
}

constexpr int32_t kMarker = 0x5a5a5a5a;

TEST(ParcelRoundTripTest, ValueFormReadsBackWhatWasWritten)
{
    for (const ItemCase& item : AllItems()) {
        if (!item.readValue) {
            continue;
        }
        Parcel parcel;
        ASSERT_TRUE(item.write(parcel)) << item.name;
        size_t end = parcel.GetWritePosition();
        ASSERT_TRUE(parcel.WriteInt32(kMarker)) << item.name;
        EXPECT_TRUE(item.readValue(parcel)) << "value form misread: " << item.name;
        EXPECT_EQ(parcel.GetReadPosition(), end) << "read position differs from write position: " << item.name;
        EXPECT_EQ(parcel.ReadInt32(), kMarker) << "next item misplaced: " << item.name;
        EXPECT_EQ(parcel.GetReadableBytes(), 0u) << item.name;
    }
}

TEST(ParcelRoundTripTest, CheckedFormReadsBackWhatWasWritten)
{
    for (const ItemCase& item : AllItems()) {
        Parcel parcel;
        ASSERT_TRUE(item.write(parcel)) << item.name;
        size_t end = parcel.GetWritePosition();
        ASSERT_TRUE(parcel.WriteInt32(kMarker)) << item.name;
        EXPECT_TRUE(item.readChecked(parcel)) << "checked form misread: " << item.name;
        EXPECT_EQ(parcel.GetReadPosition(), end) << "read position differs from write position: " << item.name;
        EXPECT_EQ(parcel.ReadInt32(), kMarker) << "next item misplaced: " << item.name;
    }
}

// Every prefix that cuts into the item's content is short. (Prefixes that
// only drop trailing padding are left out: whether padding must be present
// at the very end of the data is not part of the contract.)
std::vector<size_t> ShortLengths(size_t size)
{
    std::vector<size_t> lengths;
    for (size_t len = 0; len < size; ++len) {
        if (len % 4 == 0 || len + 3 < size) {
            lengths.push_back(len);
        }
    }
    return lengths;
}

TEST(ParcelShortReadTest, ValueFormReturnsEmptyOnShortParcel)
{
    for (const ItemCase& item : AllItems()) {
        if (!item.readValueIsEmpty) {
            continue;
        }
        Parcel full;
        ASSERT_TRUE(item.write(full)) << item.name;
        for (size_t len : ShortLengths(full.GetDataSize())) {
            Parcel cut;
            ASSERT_TRUE(cut.ParseFrom(full.GetData(), len));
            EXPECT_TRUE(item.readValueIsEmpty(cut)) << item.name << " cut to " << len << " bytes";
        }
    }
}

TEST(ParcelShortReadTest, CheckedFormFailsAndLeavesOutputAndPosition)
{
    for (const ItemCase& item : AllItems()) {
        Parcel full;
        ASSERT_TRUE(full.WriteInt32(kMarker));
        ASSERT_TRUE(item.write(full)) << item.name;
        for (size_t len : ShortLengths(full.GetDataSize() - 4)) {
            Parcel cut;
            ASSERT_TRUE(cut.ParseFrom(full.GetData(), 4 + len));
            ASSERT_EQ(cut.ReadInt32(), kMarker);
            EXPECT_TRUE(item.readCheckedFailsUntouched(cut)) << item.name << " cut to " << len << " bytes";
            EXPECT_EQ(cut.GetReadPosition(), 4u) << "read position moved: " << item.name << " cut to " << len;
        }
    }
}

TEST(ParcelShortReadTest, VectorReadsRefuseNullOutput)
{
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteUInt32Vector({1, 2}));
    EXPECT_FALSE(parcel.ReadStringVector(nullptr));
    EXPECT_FALSE(parcel.ReadUInt32Vector(nullptr));
    EXPECT_FALSE(parcel.ReadInt32Vector(nullptr));
    EXPECT_EQ(parcel.GetReadPosition(), 0u);
}

TEST(ParcelRoundTripTest, StrongParcelableRoundTrip)
{
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteStrongParcelable(sptr<Parcelable>(new TestRecord(-3, "name", 17))));
    ASSERT_TRUE(parcel.WriteStrongParcelable(nullptr));
    sptr<TestRecord> present = parcel.ReadStrongParcelable<TestRecord>();
    ASSERT_NE(present, nullptr);
    EXPECT_EQ(present->id_, -3);
    EXPECT_EQ(present->name_, "name");
    EXPECT_EQ(present->kind_, 17u);
    EXPECT_EQ(parcel.ReadStrongParcelable<TestRecord>(), nullptr) << "presence 0 must read as null";
    EXPECT_EQ(parcel.GetReadPosition(), parcel.GetWritePosition());
    EXPECT_EQ(parcel.ReadStrongParcelable<TestRecord>(), nullptr) << "an empty parcel reads as null";
}

// The parcelable written is not retained: the parcel holds bytes, not the object.
TEST(ParcelRoundTripTest, WritingAParcelableKeepsNoReference)
{
    bool destroyed = false;
    Parcel parcel;
    {
        sptr<Parcelable> record(new TestRecord(1, "x", 2, &destroyed));
        ASSERT_TRUE(parcel.WriteStrongParcelable(record));
    }
    EXPECT_TRUE(destroyed);
}

TEST(ParcelBufferTest, BufferSkipAndRewind)
{
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteBuffer("\x01\x02\x03\x04\x05", 5));
    ASSERT_TRUE(parcel.WriteInt32(kMarker));
    const uint8_t* bytes = parcel.ReadBuffer(5);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(ToHex(bytes, 5), "0102030405");
    EXPECT_EQ(parcel.GetReadPosition(), 8u) << "a buffer read skips its padding";
    EXPECT_EQ(parcel.ReadBuffer(5), nullptr);
    EXPECT_EQ(parcel.GetReadPosition(), 8u);

    ASSERT_TRUE(parcel.RewindRead(0));
    ASSERT_TRUE(parcel.SkipBytes(5));
    EXPECT_EQ(parcel.GetReadPosition(), 8u) << "a skip rounds up to the word";
    EXPECT_EQ(parcel.ReadInt32(), kMarker);
    EXPECT_FALSE(parcel.SkipBytes(1));
    EXPECT_FALSE(parcel.RewindRead(13));
    EXPECT_EQ(parcel.GetReadPosition(), 12u);

    ASSERT_TRUE(parcel.RewindWrite(8));
    EXPECT_EQ(parcel.GetDataSize(), 8u);
    EXPECT_EQ(parcel.GetReadPosition(), 8u) << "the read position is clamped to the data";
    EXPECT_FALSE(parcel.RewindWrite(9));
    ASSERT_TRUE(parcel.WriteInt32(1));
    EXPECT_EQ(ToHex(parcel), CompactHex("01020304 05000000 01000000"));

    parcel.FlushBuffer();
    EXPECT_EQ(parcel.GetDataSize(), 0u);
    EXPECT_EQ(parcel.GetReadPosition(), 0u);
}

TEST(ParcelBufferTest, MoveTransfersDataAndPosition)
{
    Parcel source;
    ASSERT_TRUE(source.WriteInt32(1));
    ASSERT_TRUE(source.WriteString("two"));
    ASSERT_EQ(source.ReadInt32(), 1);
    Parcel moved(std::move(source));
    EXPECT_EQ(moved.ReadString(), "two");
    Parcel assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.GetDataSize(), 12u);
    EXPECT_EQ(assigned.GetReadPosition(), 12u);
}

TEST(ParcelReadRulesTest, BoolIsAnyNonZeroInt32)
{
    Parcel parcel;
    ASSERT_TRUE(ParseWords(parcel, {2, 0x80000000, 0}));
    EXPECT_TRUE(parcel.ReadBool());
    bool value = false;
    EXPECT_TRUE(parcel.ReadBool(value));
    EXPECT_TRUE(value);
    EXPECT_FALSE(parcel.ReadBool());
}

TEST(ParcelReadRulesTest, StringNeedsItsTerminator)
{
    Parcel parcel;
    ASSERT_TRUE(ParseWords(parcel, {1, 0x00006261}));  // length 1, then 'a' 'b': no NUL after 'a'
    std::string out = "kept";
    EXPECT_FALSE(parcel.ReadString(out));
    EXPECT_EQ(out, "kept");
    Parcel wide;
    ASSERT_TRUE(ParseWords(wide, {1, 0x00420041}));  // length 1, then u'A' u'B'
    std::u16string out16 = u"kept";
    EXPECT_FALSE(wide.ReadString16(out16));
    EXPECT_EQ(out16, u"kept");
}

// The last item may come without its padding; the read stops at the end.
TEST(ParcelReadRulesTest, LastItemMayLackPadding)
{
    const uint8_t bytes[] = {0x01, 0x00, 0x00, 0x00, 'a', 0x00};
    Parcel parcel;
    ASSERT_TRUE(parcel.ParseFrom(bytes, sizeof(bytes)));
    EXPECT_EQ(parcel.ReadString(), "a");
    EXPECT_EQ(parcel.GetReadPosition(), sizeof(bytes));
}

// --- hostile input ----------------------------------------------------------

// Any read of a 64-byte parcel may allocate at most a few small blocks.
constexpr size_t kSmallAllocation = 4096;

struct HostileCase {
    const char* name;
    std::vector<uint32_t> words;        // the whole parcel, word by word
    std::function<bool(Parcel&)> read;  // true when the read (correctly) failed
};

std::vector<uint32_t> Announce(uint32_t first, uint32_t filler = 0x01010101)
{
    std::vector<uint32_t> words(16, filler);  // 64 bytes
    words[0] = first;
    return words;
}

const std::vector<HostileCase>& HostileCases()
{
    auto stringVectorFails = [](Parcel& p) {
        std::vector<std::string> out{"kept"};
        return !p.ReadStringVector(&out) && out == std::vector<std::string>{"kept"};
    };
    auto uint32VectorFails = [](Parcel& p) {
        std::vector<uint32_t> out{7};
        return !p.ReadUInt32Vector(&out) && out == std::vector<uint32_t>{7};
    };
    auto int32VectorFails = [](Parcel& p) {
        std::vector<int32_t> out{7};
        return !p.ReadInt32Vector(&out) && out == std::vector<int32_t>{7};
    };
    auto stringFails = [](Parcel& p) {
        std::string out = "kept";
        return !p.ReadString(out) && out == "kept";
    };
    auto stringValueEmpty = [](Parcel& p) { return p.ReadString().empty(); };
    auto string16Fails = [](Parcel& p) {
        std::u16string out = u"kept";
        return !p.ReadString16(out) && out == u"kept";
    };
    auto string16ValueEmpty = [](Parcel& p) { return p.ReadString16().empty(); };

    static const std::vector<HostileCase> cases = {
        {"string vector announcing 2^31-1 entries", Announce(0x7fffffff), stringVectorFails},
        {"string vector announcing 2^31 entries (negative)", Announce(0x80000000), stringVectorFails},
        {"string vector announcing 16 entries of 15", Announce(16, 0), stringVectorFails},
        {"string vector count -1", Announce(0xffffffff), stringVectorFails},
        {"uint32 vector announcing 2^31-1 entries", Announce(0x7fffffff), uint32VectorFails},
        {"uint32 vector announcing 2^31 entries (negative)", Announce(0x80000000), uint32VectorFails},
        {"uint32 vector whose byte size wraps to 4", Announce(0x40000001), uint32VectorFails},
        {"uint32 vector announcing 16 entries of 15", Announce(16), uint32VectorFails},
        {"int32 vector announcing 2^31-1 entries", Announce(0x7fffffff), int32VectorFails},
        {"int32 vector whose byte size wraps to 4", Announce(0x40000001), int32VectorFails},
        {"int32 vector count -1", Announce(0xffffffff), int32VectorFails},
        {"string longer than the data", Announce(1000), stringFails},
        {"string longer than the data, value form", Announce(1000), stringValueEmpty},
        {"string filling the data without its NUL", Announce(60), stringFails},
        {"string length -1", Announce(0xffffffff), stringFails},
        {"string length -2", Announce(0xfffffffe), stringFails},
        {"string length INT32_MIN", Announce(0x80000000), stringFails},
        {"string length INT32_MIN, value form", Announce(0x80000000), stringValueEmpty},
        {"string length 2^31-1 (NUL overflows int32)", Announce(0x7fffffff), stringFails},
        {"string length 2^31-3 (padding overflows int32)", Announce(0x7ffffffd), stringFails},
        {"string length 2^31-4", Announce(0x7ffffffc), stringFails},
        {"u16string longer than the data", Announce(1000), string16Fails},
        {"u16string longer than the data, value form", Announce(1000), string16ValueEmpty},
        {"u16string of 30 units without its NUL", Announce(30), string16Fails},
        {"u16string length -1", Announce(0xffffffff), string16Fails},
        {"u16string length INT32_MIN", Announce(0x80000000), string16Fails},
        {"u16string length 2^30 (bytes overflow int32)", Announce(0x40000000), string16Fails},
        {"u16string length 2^31-1 (bytes wrap)", Announce(0x7fffffff), string16Fails},
        {"u16string length 2^31-1, value form", Announce(0x7fffffff), string16ValueEmpty},
    };
    return cases;
}

TEST(ParcelHostileInputTest, FailsWithoutLargeAllocation)
{
    for (const HostileCase& c : HostileCases()) {
        Parcel parcel;
        ASSERT_TRUE(ParseWords(parcel, c.words));
        AllocationWatch::Reset();
        bool failedCleanly = c.read(parcel);
        size_t largest = AllocationWatch::Largest();
        EXPECT_TRUE(failedCleanly) << c.name;
        EXPECT_LT(largest, kSmallAllocation) << "a read allocated " << largest << " bytes: " << c.name;
    }
}

// The checked reads leave the position where it was, so a caller can try
// another reading of the same bytes.
TEST(ParcelHostileInputTest, FailedCheckedReadsKeepPosition)
{
    Parcel parcel;
    ASSERT_TRUE(ParseWords(parcel, {7, 0x7fffffff, 0x61616161}));
    ASSERT_EQ(parcel.ReadInt32(), 7);
    std::string s;
    std::u16string s16;
    std::vector<std::string> sv;
    std::vector<uint32_t> uv;
    EXPECT_FALSE(parcel.ReadString(s));
    EXPECT_FALSE(parcel.ReadString16(s16));
    EXPECT_FALSE(parcel.ReadStringVector(&sv));
    EXPECT_FALSE(parcel.ReadUInt32Vector(&uv));
    EXPECT_EQ(parcel.GetReadPosition(), 4u);
    EXPECT_EQ(parcel.ReadUint32(), 0x7fffffffu);
}

// Sizes near SIZE_MAX must not wrap when rounded up to the word.
TEST(ParcelHostileInputTest, HugeBufferSizesDoNotWrap)
{
    Parcel parcel;
    ASSERT_TRUE(ParseWords(parcel, {1, 2, 3, 4}));
    for (size_t size : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 3, SIZE_MAX - 4}) {
        EXPECT_EQ(parcel.ReadBuffer(size), nullptr) << size;
        EXPECT_FALSE(parcel.SkipBytes(size)) << size;
        EXPECT_EQ(parcel.GetReadPosition(), 0u) << size;
        EXPECT_FALSE(parcel.RewindRead(size)) << size;
        EXPECT_FALSE(parcel.RewindWrite(size)) << size;
    }
    const char small[8] = {};
    for (size_t size : {SIZE_MAX, SIZE_MAX - 2, SIZE_MAX - 3}) {
        EXPECT_FALSE(parcel.WriteBuffer(small, size)) << size;
        EXPECT_EQ(parcel.GetDataSize(), 16u) << size;
    }
}

// The watch must see large requests, the platform library's included, or
// the test above proves nothing.
TEST(ParcelHostileInputTest, AllocationWatchSeesLargeRequests)
{
    std::vector<uint8_t> big(64 * 1024);
    Parcel parcel;
    AllocationWatch::Reset();
    ASSERT_TRUE(parcel.ParseFrom(big.data(), big.size()));
    EXPECT_GE(AllocationWatch::Largest(), big.size());
}

// --- capacity ---------------------------------------------------------------

TEST(ParcelCapacityTest, DefaultIsOneMebibyte)
{
    Parcel parcel;
    EXPECT_EQ(parcel.GetMaxCapacity(), size_t{1024 * 1024});
    std::vector<uint8_t> block(1024 * 1024 - 4, 0xab);
    ASSERT_TRUE(parcel.WriteBuffer(block.data(), block.size()));
    EXPECT_TRUE(parcel.WriteInt32(1)) << "the last word fits exactly";
    EXPECT_FALSE(parcel.WriteBool(true));
    EXPECT_EQ(parcel.GetDataSize(), size_t{1024 * 1024});

    Parcel other;
    std::vector<uint8_t> tooBig(1024 * 1024 + 1);
    EXPECT_FALSE(other.WriteBuffer(tooBig.data(), tooBig.size()));
    EXPECT_FALSE(other.ParseFrom(tooBig.data(), tooBig.size()));
    EXPECT_EQ(other.GetDataSize(), 0u);
}

// Each entry needs more than the 8 bytes that remain under a 16-byte cap.
TEST(ParcelCapacityTest, WriteOverCapacityWritesNothing)
{
    struct Case {
        const char* name;
        std::function<bool(Parcel&)> write;
    };
    const std::vector<Case> cases = {
        {"string of 8", [](Parcel& p) { return p.WriteString("abcdefgh"); }},
        {"string of 4 (NUL does not fit)", [](Parcel& p) { return p.WriteString("abcd"); }},
        {"u16string of 4", [](Parcel& p) { return p.WriteString16(u"abcd"); }},
        {"buffer of 9", [](Parcel& p) { return p.WriteBuffer("123456789", 9); }},
        {"string vector of 2",
         [](Parcel& p) {
             return p.WriteStringVector({"a", "b"});
         }},
        {"uint32 vector of 2",
         [](Parcel& p) {
             return p.WriteUInt32Vector({1, 2});
         }},
        {"int32 vector of 2",
         [](Parcel& p) {
             return p.WriteInt32Vector({1, 2});
         }},
        {"strong parcelable", [](Parcel& p) { return p.WriteStrongParcelable(new TestRecord(1, "", 2)); }},
        {"parcelable pointer",
         [](Parcel& p) {
             TestRecord record(1, "", 2);
             return p.WriteParcelable(&record);
         }},
    };
    for (const Case& c : cases) {
        Parcel parcel;
        ASSERT_TRUE(parcel.SetMaxCapacity(16));
        ASSERT_TRUE(parcel.WriteInt32(-1));
        ASSERT_TRUE(parcel.WriteInt32(-2));
        std::string before = ToHex(parcel);
        EXPECT_FALSE(c.write(parcel)) << c.name;
        EXPECT_EQ(ToHex(parcel), before) << "a refused write left bytes behind: " << c.name;
        EXPECT_TRUE(parcel.WriteInt64(3)) << "the parcel stays usable: " << c.name;
        EXPECT_EQ(parcel.GetDataSize(), 16u) << c.name;
    }
}

// A composite whose first parts fit but whose later parts do not is rolled
// back to where it started, for every cut point.
TEST(ParcelCapacityTest, CompositeWritesRollBack)
{
    struct Case {
        const char* name;
        std::function<bool(Parcel&)> write;
    };
    const std::vector<Case> cases = {
        {"string vector",
         [](Parcel& p) {
             return p.WriteStringVector({"aaaa", "bbbb", "cccc"});
         }},
        {"uint32 vector",
         [](Parcel& p) {
             return p.WriteUInt32Vector({1, 2, 3, 4, 5});
         }},
        {"int32 vector",
         [](Parcel& p) {
             return p.WriteInt32Vector({-1, -2, -3, -4, -5});
         }},
        {"strong parcelable", [](Parcel& p) { return p.WriteStrongParcelable(new TestRecord(5, "abcdefg", 6)); }},
    };
    for (const Case& c : cases) {
        Parcel sizing;
        ASSERT_TRUE(c.write(sizing)) << c.name;
        for (size_t cap = 4; cap < 4 + sizing.GetDataSize(); cap += 4) {
            Parcel parcel;
            ASSERT_TRUE(parcel.SetMaxCapacity(cap));
            ASSERT_TRUE(parcel.WriteInt32(kMarker));
            EXPECT_FALSE(c.write(parcel)) << c.name << " with capacity " << cap;
            EXPECT_EQ(parcel.GetDataSize(), 4u) << "not rolled back: " << c.name << " with capacity " << cap;
            EXPECT_EQ(ToHex(parcel), "5a5a5a5a") << c.name;
        }
    }
}

TEST(ParcelCapacityTest, SetMaxCapacity)
{
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteInt64(1));
    EXPECT_FALSE(parcel.SetMaxCapacity(4)) << "below the data already held";
    EXPECT_EQ(parcel.GetMaxCapacity(), Parcel::DEFAULT_MAX_CAPACITY);
    EXPECT_TRUE(parcel.SetMaxCapacity(8));
    EXPECT_EQ(parcel.GetMaxCapacity(), 8u);
    EXPECT_FALSE(parcel.WriteBool(false));
    EXPECT_EQ(parcel.GetDataSize(), 8u);

    parcel.FlushBuffer();
    EXPECT_EQ(parcel.GetMaxCapacity(), 8u) << "flushing keeps the cap";
    const uint8_t twelve[12] = {};
    EXPECT_FALSE(parcel.ParseFrom(twelve, sizeof(twelve)));
    EXPECT_TRUE(parcel.ParseFrom(twelve, 8));

    EXPECT_TRUE(parcel.SetMaxCapacity(64)) << "the cap can be raised again";
    EXPECT_TRUE(parcel.WriteInt32(1));
}

}  // namespace
}  // namespace Tavik
