// MessageParcel: the interface token and remote objects through the table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ipc_object_stub.h"
#include "message_parcel.h"
#include "platform_test_util.h"

namespace Tavik {
namespace {

using Test::ParseWords;

class FlaggedStub : public IPCObjectStub {
public:
    FlaggedStub(std::u16string descriptor, bool* destroyed)
        : IPCObjectStub(std::move(descriptor)), destroyed_(destroyed)
    {
    }
    ~FlaggedStub() override { *destroyed_ = true; }

private:
    bool* destroyed_;
};

TEST(MessageParcelTokenTest, RoundTrip)
{
    MessageParcel parcel;
    ASSERT_TRUE(parcel.WriteInterfaceToken(u"Tavik.Test.IFoo"));
    ASSERT_TRUE(parcel.WriteInt32(5));
    EXPECT_EQ(parcel.ReadInterfaceToken(), u"Tavik.Test.IFoo");
    EXPECT_EQ(parcel.ReadInt32(), 5) << "the token ends on a word";
}

TEST(MessageParcelTokenTest, UnreadableTokenIsEmpty)
{
    struct Case {
        const char* name;
        std::vector<uint32_t> words;
    };
    const std::vector<Case> cases = {
        {"empty parcel", {}},
        {"length only", {4}},
        {"ten units announced, two present", {10, 0x00420041}},
        {"length -1", {0xffffffff, 0, 0}},
        {"length 2^31-1", {0x7fffffff, 0x00420041}},
    };
    for (const Case& c : cases) {
        MessageParcel parcel;
        ASSERT_TRUE(ParseWords(parcel, c.words));
        EXPECT_EQ(parcel.ReadInterfaceToken(), u"") << c.name;
    }
}

// A token written by someone else reads back as what it is, so the stub's
// comparison sees the mismatch; a plain string is not mistaken for a token.
TEST(MessageParcelTokenTest, WrongTokenReadsAsWritten)
{
    MessageParcel parcel;
    ASSERT_TRUE(parcel.WriteInterfaceToken(u"Tavik.Test.IOther"));
    EXPECT_NE(parcel.ReadInterfaceToken(), u"Tavik.Test.IFoo");

    MessageParcel narrow;
    ASSERT_TRUE(narrow.WriteString("Tavik.Test.IFoo"));
    EXPECT_NE(narrow.ReadInterfaceToken(), u"Tavik.Test.IFoo");
}

TEST(MessageParcelObjectTest, NullObjectIsRefused)
{
    MessageParcel parcel;
    EXPECT_FALSE(parcel.WriteRemoteObject(nullptr));
    EXPECT_EQ(parcel.GetDataSize(), 0u);
    EXPECT_EQ(parcel.GetObjectCount(), 0u);
}

// An index that does not fit leaves no object behind in the table either.
TEST(MessageParcelObjectTest, RefusedWriteAddsNoObject)
{
    MessageParcel parcel;
    ASSERT_TRUE(parcel.WriteInt32(1));
    ASSERT_TRUE(parcel.SetMaxCapacity(4));
    EXPECT_FALSE(parcel.WriteRemoteObject(sptr<IRemoteObject>(new IPCObjectStub(u"a"))));
    EXPECT_EQ(parcel.GetObjectCount(), 0u);
    EXPECT_EQ(parcel.GetDataSize(), 4u);
}

TEST(MessageParcelObjectTest, TableIsBounded)
{
    sptr<IRemoteObject> stub(new IPCObjectStub(u"s"));
    MessageParcel parcel;
    for (int i = 0; i < 1024; ++i) {
        ASSERT_TRUE(parcel.WriteRemoteObject(stub)) << i;
    }
    EXPECT_FALSE(parcel.WriteRemoteObject(stub));
    EXPECT_EQ(parcel.GetObjectCount(), 1024u);
    EXPECT_EQ(parcel.GetDataSize(), 1024u * 4);
}

TEST(MessageParcelObjectTest, ObjectsReadBackInOrder)
{
    sptr<IRemoteObject> a(new IPCObjectStub(u"a"));
    sptr<IRemoteObject> b(new IPCObjectStub(u"b"));
    MessageParcel parcel;
    ASSERT_TRUE(parcel.WriteRemoteObject(a));
    ASSERT_TRUE(parcel.WriteInt32(9));
    ASSERT_TRUE(parcel.WriteRemoteObject(b));
    EXPECT_EQ(parcel.ReadRemoteObject(), a);
    EXPECT_EQ(parcel.ReadInt32(), 9);
    EXPECT_EQ(parcel.ReadRemoteObject(), b);
    EXPECT_EQ(parcel.GetReadPosition(), parcel.GetWritePosition());
    EXPECT_EQ(parcel.ReadRemoteObject(), nullptr) << "no index left";
}

// What a transport does: the bytes and the rebuilt table arrive separately.
TEST(MessageParcelObjectTest, TableTravelsBesideTheData)
{
    sptr<IRemoteObject> a(new IPCObjectStub(u"a"));
    MessageParcel sent;
    ASSERT_TRUE(sent.WriteRemoteObject(a));
    MessageParcel received;
    ASSERT_TRUE(received.ParseFrom(sent.GetData(), sent.GetDataSize()));
    EXPECT_EQ(received.ReadRemoteObject(), nullptr) << "no table yet";
    received.SetObjects(sent.GetObjects());
    ASSERT_TRUE(received.RewindRead(0));
    EXPECT_EQ(received.ReadRemoteObject(), a);

    MessageParcel moved(std::move(received));
    ASSERT_TRUE(moved.RewindRead(0));
    EXPECT_EQ(moved.ReadRemoteObject(), a) << "a move keeps the table";
}

TEST(MessageParcelObjectTest, BadIndexYieldsNull)
{
    for (uint32_t index : {1u, 2u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        MessageParcel parcel;
        ASSERT_TRUE(ParseWords(parcel, {index}));
        parcel.SetObjects({sptr<IRemoteObject>(new IPCObjectStub(u"only"))});
        EXPECT_EQ(parcel.ReadRemoteObject(), nullptr) << "index " << index;
    }
}

// The table holds its objects strongly: a stub written into a request lives
// as long as the request, and no longer.
TEST(MessageParcelObjectTest, TableKeepsObjectsAlive)
{
    bool destroyed = false;
    {
        MessageParcel parcel;
        ASSERT_TRUE(parcel.WriteRemoteObject(sptr<IRemoteObject>(new FlaggedStub(u"f", &destroyed))));
        EXPECT_FALSE(destroyed);
        EXPECT_NE(parcel.ReadRemoteObject(), nullptr);
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);

    destroyed = false;
    MessageParcel parcel;
    ASSERT_TRUE(parcel.WriteRemoteObject(sptr<IRemoteObject>(new FlaggedStub(u"g", &destroyed))));
    parcel.ClearObjects();
    EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace Tavik
