// Parcel reads and writes: round trips of every item in both read forms,
// short parcels, the allocation bound on hostile counts, and the capacity
// limit with its rollback. Malformed byte sequences are covered by the
// platform_vectors table and the fuzzers.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "message_parcel.h"
#include "platform_test_util.h"

namespace Tavik {
namespace {

using Test::AllocationWatch;
using Test::CompactHex;
using Test::EveryWrite;
using Test::NamedWrite;
using Test::ParseWords;
using Test::TestRecord;
using Test::ToHex;

constexpr int32_t kMarker = 0x5a5a5a5a;

// One item with one value, type-erased so every item runs through the same checks.
struct ItemCase {
    std::string name;
    std::function<bool(Parcel&)> write;
    std::function<bool(Parcel&)> valueReadsBack;  // empty: no value form (vectors)
    std::function<bool(Parcel&)> valueIsEmpty;    // empty: the value is itself the empty one
    std::function<bool(Parcel&)> checkedReadsBack;
    std::function<bool(Parcel&)> checkedFailsUntouched;
};

template <typename T>
struct ItemOps {
    std::function<bool(Parcel&, const T&)> write;
    std::function<T(Parcel&)> readValue;
    std::function<bool(Parcel&, T&)> readChecked;
};

// `sentinel` differs from the value and from T{}, so a failed read that touched its output is noticed.
template <typename T>
ItemCase MakeItem(std::string name, T value, T sentinel, ItemOps<T> ops)
{
    ItemCase c{std::move(name),
               [value, ops](Parcel& p) { return ops.write(p, value); },
               nullptr,
               nullptr,
               [value, sentinel, ops](Parcel& p) {
                   T out = sentinel;
                   return ops.readChecked(p, out) && out == value;
               },
               [sentinel, ops](Parcel& p) {
                   T out = sentinel;
                   return !ops.readChecked(p, out) && out == sentinel;
               }};
    if (ops.readValue) {
        c.valueReadsBack = [value, ops](Parcel& p) { return ops.readValue(p) == value; };
        if (!(value == T{})) {
            c.valueIsEmpty = [ops](Parcel& p) { return ops.readValue(p) == T{}; };
        }
    }
    return c;
}

#define ITEM_OPS(T, W, R)                                                              \
    ItemOps<T>                                                                         \
    {                                                                                  \
        [](Parcel& p, const T& v) { return p.W(v); }, [](Parcel& p) { return p.R(); }, \
            [](Parcel& p, T& v) { return p.R(v); }                                     \
    }
#define VECTOR_OPS(T, W, R)                                                 \
    ItemOps<std::vector<T>>                                                 \
    {                                                                       \
        [](Parcel& p, const std::vector<T>& v) { return p.W(v); }, nullptr, \
            [](Parcel& p, std::vector<T>& v) { return p.R(&v); }            \
    }

std::vector<ItemCase> AllItems()
{
    return {
        MakeItem<bool>("bool true", true, false, ITEM_OPS(bool, WriteBool, ReadBool)),
        MakeItem<int32_t>("int32 min", INT32_MIN, 7, ITEM_OPS(int32_t, WriteInt32, ReadInt32)),
        MakeItem<uint32_t>("uint32 max", UINT32_MAX, 7, ITEM_OPS(uint32_t, WriteUint32, ReadUint32)),
        MakeItem<int64_t>("int64 0x0123456789abcdef", 0x0123456789abcdef, 7, ITEM_OPS(int64_t, WriteInt64, ReadInt64)),
        MakeItem<uint64_t>("uint64 max", UINT64_MAX, 7, ITEM_OPS(uint64_t, WriteUint64, ReadUint64)),
        MakeItem<std::string>("string abcd", "abcd", "sentinel", ITEM_OPS(std::string, WriteString, ReadString)),
        MakeItem<std::string>("string abcde", "abcde", "sentinel", ITEM_OPS(std::string, WriteString, ReadString)),
        MakeItem<std::string>("string with NULs", std::string("\0x\0", 3), "sentinel",
                              ITEM_OPS(std::string, WriteString, ReadString)),
        MakeItem<std::string>("string 1000 bytes", std::string(1000, 'z'), "sentinel",
                              ITEM_OPS(std::string, WriteString, ReadString)),
        MakeItem<std::string>("string empty", "", "sentinel", ITEM_OPS(std::string, WriteString, ReadString)),
        MakeItem<std::u16string>("u16string AB", u"AB", u"sentinel",
                                 ITEM_OPS(std::u16string, WriteString16, ReadString16)),
        MakeItem<std::u16string>("u16string non-ASCII", u"\u00e9\u65e5\U0001F600", u"sentinel",
                                 ITEM_OPS(std::u16string, WriteString16, ReadString16)),
        MakeItem<std::u16string>("u16string empty", u"", u"sentinel",
                                 ITEM_OPS(std::u16string, WriteString16, ReadString16)),
        MakeItem<std::vector<std::string>>("string vector", {"a", "", "abcde"}, {"sentinel"},
                                           VECTOR_OPS(std::string, WriteStringVector, ReadStringVector)),
        MakeItem<std::vector<std::string>>("string vector empty", {}, {"sentinel"},
                                           VECTOR_OPS(std::string, WriteStringVector, ReadStringVector)),
        MakeItem<std::vector<uint32_t>>("uint32 vector", {0, 1, UINT32_MAX}, {7},
                                        VECTOR_OPS(uint32_t, WriteUInt32Vector, ReadUInt32Vector)),
        MakeItem<std::vector<int32_t>>("int32 vector", {INT32_MIN, -1, 0, INT32_MAX}, {7},
                                       VECTOR_OPS(int32_t, WriteInt32Vector, ReadInt32Vector)),
    };
}

// Written twice then a marker: the value form reads the first copy, the
// checked form the second, each ending exactly where its write ended.
TEST(ParcelTest, BothReadFormsReadBackWhatWasWritten)
{
    for (const ItemCase& item : AllItems()) {
        Parcel parcel;
        ASSERT_TRUE(item.write(parcel)) << item.name;
        size_t first = parcel.GetWritePosition();
        ASSERT_TRUE(item.write(parcel) && parcel.WriteInt32(kMarker)) << item.name;
        if (item.valueReadsBack) {
            EXPECT_TRUE(item.valueReadsBack(parcel)) << "value form misread: " << item.name;
        } else {
            ASSERT_TRUE(parcel.SkipBytes(first)) << item.name;
        }
        EXPECT_EQ(parcel.GetReadPosition(), first) << "value form ends elsewhere: " << item.name;
        EXPECT_TRUE(item.checkedReadsBack(parcel)) << "checked form misread: " << item.name;
        EXPECT_EQ(parcel.GetReadPosition(), 2 * first) << "checked form ends elsewhere: " << item.name;
        EXPECT_EQ(parcel.ReadInt32(), kMarker) << item.name;
    }
}

// Every prefix that cuts into the item's content is short (prefixes that only
// drop trailing padding are not: the last item may lack it). The value form
// gives the empty value; the checked form fails, leaving output and position.
TEST(ParcelTest, ShortParcelFailsWithoutTouchingOutputOrPosition)
{
    for (const ItemCase& item : AllItems()) {
        Parcel full;
        ASSERT_TRUE(full.WriteInt32(kMarker) && item.write(full)) << item.name;
        size_t size = full.GetDataSize() - 4;
        for (size_t len = 0; len < size; ++len) {
            if (len % 4 != 0 && len + 3 >= size) {
                continue;
            }
            std::string where = item.name + " cut to " + std::to_string(len);
            Parcel cut;
            ASSERT_TRUE(cut.ParseFrom(full.GetData(), 4 + len));
            ASSERT_EQ(cut.ReadInt32(), kMarker);
            EXPECT_TRUE(item.checkedFailsUntouched(cut)) << where;
            EXPECT_EQ(cut.GetReadPosition(), 4u) << "read position moved: " << where;
            if (item.valueIsEmpty) {
                EXPECT_TRUE(item.valueIsEmpty(cut)) << where;
            }
        }
    }
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteUInt32Vector({1, 2}));
    EXPECT_FALSE(parcel.ReadStringVector(nullptr) || parcel.ReadUInt32Vector(nullptr) ||
                 parcel.ReadInt32Vector(nullptr));
    EXPECT_EQ(parcel.GetReadPosition(), 0u);
}

TEST(ParcelTest, StrongParcelableRoundTripKeepsNoReference)
{
    bool destroyed = false;
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteStrongParcelable(sptr<Parcelable>(new TestRecord(-3, "name", 17, &destroyed))));
    EXPECT_TRUE(destroyed) << "the parcel holds bytes, not the object";
    ASSERT_TRUE(parcel.WriteStrongParcelable(nullptr));
    sptr<TestRecord> present = parcel.ReadStrongParcelable<TestRecord>();
    ASSERT_NE(present, nullptr);
    EXPECT_EQ(present->id_, -3);
    EXPECT_EQ(present->name_, "name");
    EXPECT_EQ(present->kind_, 17u);
    EXPECT_EQ(parcel.ReadStrongParcelable<TestRecord>(), nullptr) << "presence 0 must read as null";
    EXPECT_EQ(parcel.GetReadPosition(), parcel.GetWritePosition());
}

TEST(ParcelTest, BufferSkipRewindAndMove)
{
    Parcel parcel;
    ASSERT_TRUE(parcel.WriteBuffer("\x01\x02\x03\x04\x05", 5) && parcel.WriteInt32(kMarker));
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
    EXPECT_EQ(parcel.GetReadPosition(), 8u) << "the read position is clamped to the data";
    EXPECT_FALSE(parcel.RewindWrite(9));
    ASSERT_TRUE(parcel.WriteInt32(1));
    EXPECT_EQ(ToHex(parcel), CompactHex("01020304 05000000 01000000"));

    Parcel moved(std::move(parcel));
    EXPECT_EQ(moved.GetReadPosition(), 8u) << "a move keeps the position";
    Parcel assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.ReadInt32(), 1);
    assigned.FlushBuffer();
    EXPECT_EQ(assigned.GetDataSize(), 0u);
    EXPECT_EQ(assigned.GetReadPosition(), 0u);
}

// --- hostile counts -----------------------------------------------------------

// Counts and lengths that promise more than the 64 bytes present must fail
// before anything large is allocated.
TEST(ParcelTest, HostileCountsFailWithoutLargeAllocation)
{
    struct Case {
        const char* name;
        uint32_t first;  // the count or length; 15 filler words follow
        uint32_t filler;
        std::function<bool(Parcel&)> fails;
    };
    std::vector<std::string> strings;
    std::vector<uint32_t> uints;
    std::vector<int32_t> ints;
    auto stringVector = [&strings](Parcel& p) { return !p.ReadStringVector(&strings); };
    auto uint32Vector = [&uints](Parcel& p) { return !p.ReadUInt32Vector(&uints); };
    auto int32Vector = [&ints](Parcel& p) { return !p.ReadInt32Vector(&ints); };
    auto string = [](Parcel& p) { return p.ReadString().empty(); };
    auto string16 = [](Parcel& p) { return p.ReadString16().empty(); };
    const Case cases[] = {
        {"string vector of 2^31-1", 0x7fffffff, 0x01010101, stringVector},
        {"string vector of 16 empty strings in 15 words", 16, 0, stringVector},
        {"uint32 vector of 2^31-1", 0x7fffffff, 0x01010101, uint32Vector},
        {"uint32 vector whose byte size wraps to 4", 0x40000001, 0x01010101, uint32Vector},
        {"int32 vector of 2^31-1", 0x7fffffff, 0x01010101, int32Vector},
        {"string of 2^31-1 (NUL overflows int32)", 0x7fffffff, 0x01010101, string},
        {"string of 2^31-3 (padding overflows int32)", 0x7ffffffd, 0x01010101, string},
        {"u16string of 2^30 (bytes overflow int32)", 0x40000000, 0x01010101, string16},
        {"u16string of 2^31-1 (bytes wrap)", 0x7fffffff, 0x01010101, string16},
    };
    for (const Case& c : cases) {
        std::vector<uint32_t> words(16, c.filler);
        words[0] = c.first;
        Parcel parcel;
        ASSERT_TRUE(ParseWords(parcel, words));
        AllocationWatch::Reset();
        EXPECT_TRUE(c.fails(parcel)) << c.name;
        EXPECT_LT(AllocationWatch::Largest(), 4096u) << c.name;
    }
    // The watch must see large requests, the platform library's included, or the above proves nothing.
    std::vector<uint8_t> big(64 * 1024);
    Parcel parcel;
    AllocationWatch::Reset();
    ASSERT_TRUE(parcel.ParseFrom(big.data(), big.size()));
    EXPECT_GE(AllocationWatch::Largest(), big.size());
}

// Sizes near SIZE_MAX must not wrap when rounded up to the word.
TEST(ParcelTest, HugeBufferSizesDoNotWrap)
{
    Parcel parcel;
    ASSERT_TRUE(ParseWords(parcel, {1, 2, 3, 4}));
    const char small[8] = {};
    for (size_t size : {SIZE_MAX, SIZE_MAX - 2, SIZE_MAX - 3, SIZE_MAX - 4}) {
        EXPECT_EQ(parcel.ReadBuffer(size), nullptr) << size;
        EXPECT_FALSE(parcel.SkipBytes(size)) << size;
        EXPECT_FALSE(parcel.RewindRead(size)) << size;
        EXPECT_FALSE(parcel.RewindWrite(size)) << size;
        EXPECT_FALSE(parcel.WriteBuffer(small, size)) << size;
        EXPECT_EQ(parcel.GetReadPosition(), 0u) << size;
        EXPECT_EQ(parcel.GetDataSize(), 16u) << size;
    }
}

// --- capacity -------------------------------------------------------------------

TEST(ParcelTest, CapacityIsOneMebibyteByDefaultAndSettable)
{
    Parcel parcel;
    EXPECT_EQ(parcel.GetMaxCapacity(), size_t{1024 * 1024});
    std::vector<uint8_t> block(1024 * 1024 - 4, 0xab);
    ASSERT_TRUE(parcel.WriteBuffer(block.data(), block.size()));
    EXPECT_TRUE(parcel.WriteInt32(1)) << "the last word fits exactly";
    EXPECT_FALSE(parcel.WriteBool(true));
    EXPECT_EQ(parcel.GetDataSize(), size_t{1024 * 1024});

    Parcel other;
    block.resize(1024 * 1024 + 1);
    EXPECT_FALSE(other.WriteBuffer(block.data(), block.size()));
    EXPECT_FALSE(other.ParseFrom(block.data(), block.size()));
    EXPECT_EQ(other.GetDataSize(), 0u);

    ASSERT_TRUE(other.WriteInt64(1));
    EXPECT_FALSE(other.SetMaxCapacity(4)) << "below the data already held";
    EXPECT_EQ(other.GetMaxCapacity(), Parcel::DEFAULT_MAX_CAPACITY);
    EXPECT_TRUE(other.SetMaxCapacity(8));
    EXPECT_FALSE(other.WriteBool(false));
    other.FlushBuffer();
    EXPECT_EQ(other.GetMaxCapacity(), 8u) << "flushing keeps the cap";
    const uint8_t twelve[12] = {};
    EXPECT_FALSE(other.ParseFrom(twelve, sizeof(twelve)));
    EXPECT_TRUE(other.ParseFrom(twelve, 8));
}

// Under every capacity that cannot hold the whole item, the write fails and
// leaves exactly what was there, composites included; raising the cap then
// lets the same write produce its full bytes.
TEST(ParcelTest, WriteOverCapacityRollsBack)
{
    for (const NamedWrite& c : EveryWrite()) {
        MessageParcel sizing;
        ASSERT_TRUE(sizing.WriteInt32(kMarker) && c.write(sizing)) << c.name;
        for (size_t cap = 4; cap < sizing.GetDataSize(); cap += 4) {
            MessageParcel parcel;
            ASSERT_TRUE(parcel.SetMaxCapacity(cap) && parcel.WriteInt32(kMarker));
            EXPECT_FALSE(c.write(parcel)) << c.name << " with capacity " << cap;
            EXPECT_EQ(ToHex(parcel), "5a5a5a5a") << "not rolled back: " << c.name << " with capacity " << cap;
            EXPECT_EQ(parcel.GetObjectCount(), 0u) << "object kept: " << c.name << " with capacity " << cap;
            ASSERT_TRUE(parcel.SetMaxCapacity(Parcel::DEFAULT_MAX_CAPACITY));
            EXPECT_TRUE(c.write(parcel)) << c.name << " after raising " << cap;
            EXPECT_EQ(ToHex(parcel), ToHex(sizing)) << c.name << " after raising " << cap;
        }
    }
}

}  // namespace
}  // namespace Tavik
