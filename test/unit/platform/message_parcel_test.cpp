// MessageParcel: remote objects through the table. The token's bytes are
// golden entries; token reads and bad object indices are rows of platform_vectors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ipc_object_stub.h"
#include "message_parcel.h"
#include "platform_test_util.h"

namespace Tavik {
namespace {

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

// A null object and a full table (1024 objects) are refused without leaving
// bytes or objects behind; an index past the capacity is a row of the
// capacity rollback test.
TEST(MessageParcelTest, RefusedObjectWritesAddNothing)
{
    MessageParcel parcel;
    EXPECT_FALSE(parcel.WriteRemoteObject(nullptr));
    EXPECT_EQ(parcel.GetDataSize() + parcel.GetObjectCount(), 0u);

    sptr<IRemoteObject> stub(new IPCObjectStub(u"s"));
    MessageParcel full;
    for (int i = 0; i < 1024; ++i) {
        ASSERT_TRUE(full.WriteRemoteObject(stub)) << i;
    }
    EXPECT_FALSE(full.WriteRemoteObject(stub));
    EXPECT_EQ(full.GetObjectCount(), 1024u);
    EXPECT_EQ(full.GetDataSize(), 1024u * 4);
}

// What a transport does: the bytes and the table arrive separately; each
// index names its slot, so objects read back in their order.
TEST(MessageParcelTest, ObjectsTravelBesideTheData)
{
    sptr<IRemoteObject> a(new IPCObjectStub(u"a"));
    sptr<IRemoteObject> b(new IPCObjectStub(u"b"));
    MessageParcel sent;
    ASSERT_TRUE(sent.WriteRemoteObject(b) && sent.WriteInt32(9) && sent.WriteRemoteObject(a) &&
                sent.WriteRemoteObject(b));
    ASSERT_EQ(sent.GetObjects(), (std::vector<sptr<IRemoteObject>>{b, a, b}));

    MessageParcel received;
    ASSERT_TRUE(received.ParseFrom(sent.GetData(), sent.GetDataSize()));
    EXPECT_EQ(received.ReadRemoteObject(), nullptr) << "no table yet";
    received.SetObjects(sent.GetObjects());
    ASSERT_TRUE(received.RewindRead(0));
    MessageParcel moved(std::move(received));
    EXPECT_EQ(moved.ReadRemoteObject(), b);
    EXPECT_EQ(moved.ReadInt32(), 9);
    EXPECT_EQ(moved.ReadRemoteObject(), a);
    EXPECT_EQ(moved.ReadRemoteObject(), b) << "a move keeps the table";
    EXPECT_EQ(moved.ReadRemoteObject(), nullptr) << "no index left";
}

// The table holds its objects strongly: as long as the parcel, and no longer.
TEST(MessageParcelTest, TableKeepsObjectsAlive)
{
    bool destroyed = false;
    {
        MessageParcel parcel;
        ASSERT_TRUE(parcel.WriteRemoteObject(sptr<IRemoteObject>(new FlaggedStub(u"f", &destroyed))));
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
