// The write-failure seam: how many writes one operation costs, and that the
// budget belongs to the calling thread.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "message_parcel.h"
#include "parcel_test_seam.h"
#include "platform_test_util.h"

namespace Tavik {
namespace {

using ParcelTestSeam::FailWritesAfter;
using ParcelTestSeam::RemainingWrites;
using ParcelTestSeam::ResetWriteFailures;
using ParcelTestSeam::ScopedWriteFailure;
using Test::EveryWrite;
using Test::NamedWrite;
using Test::TestRecord;
using Test::ToHex;

class ParcelSeamTest : public testing::Test {
protected:
    void TearDown() override { ResetWriteFailures(); }
};

// Every public write operation costs exactly one write, however many items it
// puts on the wire; a refused one leaves neither bytes nor objects behind.
TEST_F(ParcelSeamTest, EachOperationIsOneWrite)
{
    for (const NamedWrite& op : EveryWrite()) {
        MessageParcel parcel;
        FailWritesAfter(0);
        EXPECT_FALSE(op.write(parcel)) << "zero budget accepted: " << op.name;
        EXPECT_EQ(parcel.GetDataSize() + parcel.GetObjectCount(), 0u) << op.name;
        FailWritesAfter(1);
        EXPECT_TRUE(op.write(parcel)) << "first write refused: " << op.name;
        EXPECT_EQ(RemainingWrites(), 0) << "cost more than one write: " << op.name;
        size_t size = parcel.GetDataSize();
        size_t objects = parcel.GetObjectCount();
        EXPECT_FALSE(op.write(parcel)) << "write past the budget accepted: " << op.name;
        EXPECT_EQ(parcel.GetDataSize(), size) << "refused write left bytes: " << op.name;
        EXPECT_EQ(parcel.GetObjectCount(), objects) << "refused write left an object: " << op.name;
    }
}

TEST_F(ParcelSeamTest, BudgetCountsWritesOnlyAndEndsWithItsScope)
{
    Parcel parcel;
    EXPECT_EQ(RemainingWrites(), -1) << "unlimited by default";
    {
        ScopedWriteFailure three(3);
        EXPECT_TRUE(parcel.WriteInt32(1) && parcel.WriteString("x") && parcel.WriteBool(true));
        EXPECT_FALSE(parcel.WriteInt32(4));
        EXPECT_EQ(RemainingWrites(), 0);
        EXPECT_EQ(parcel.GetDataSize(), 16u);
        FailWritesAfter(1);
        EXPECT_EQ(parcel.ReadInt32(), 1);
        EXPECT_EQ(parcel.ReadString(), "x");
        EXPECT_EQ(RemainingWrites(), 1) << "reads are not writes";
    }
    EXPECT_EQ(RemainingWrites(), -1);
    EXPECT_TRUE(parcel.WriteInt32(6));
}

// Called directly, a record's Marshalling is not one write: each field write
// is outermost and costs one, and the fields before the refusal stay.
TEST_F(ParcelSeamTest, DirectMarshallingCountsEachField)
{
    static const char* const prefixes[] = {"", "07000000", "070000000200000061620000",
                                           "07000000020000006162000009000000"};
    TestRecord record(7, "ab", 9);
    for (int budget = 0; budget <= 3; ++budget) {
        Parcel parcel;
        FailWritesAfter(budget);
        EXPECT_EQ(record.Marshalling(parcel), budget == 3) << "budget " << budget;
        EXPECT_EQ(RemainingWrites(), 0) << "budget " << budget;
        EXPECT_EQ(ToHex(parcel), prefixes[budget]) << "budget " << budget;
    }
}

TEST_F(ParcelSeamTest, BudgetIsPerThread)
{
    FailWritesAfter(0);
    int otherRemaining = 0;
    bool otherWrote = false;
    std::thread other([&] {
        Parcel parcel;
        otherRemaining = RemainingWrites();
        otherWrote = parcel.WriteInt32(1) && parcel.WriteString("s");
        FailWritesAfter(5);  // must not reach the test's thread either
    });
    other.join();
    EXPECT_EQ(otherRemaining, -1);
    EXPECT_TRUE(otherWrote);
    EXPECT_EQ(RemainingWrites(), 0);
    Parcel parcel;
    EXPECT_FALSE(parcel.WriteInt32(1));
}

}  // namespace
}  // namespace Tavik
