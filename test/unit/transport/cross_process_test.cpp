// A client in this process and a TestService in a helper process.
#include <signal.h>

#include <gtest/gtest.h>

#include <thread>

#include "ipc_status.h"
#include "socket_transport.h"
#include "system_ability_manager.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

using Transport::GetTransportStats;

class CrossProcessTest : public ::testing::Test {
protected:
    sptr<IRemoteObject> StartServer()
    {
        if (!helper_.Start("serve", id_)) {
            ADD_FAILURE() << "helper did not start";
            return nullptr;
        }
        return ConnectSystemAbility(id_);
    }

    ScopedRuntimeDir dir_;
    const int32_t id_ = NextSystemAbilityId();
    HelperProcess helper_;
};

int32_t Echo(const sptr<IRemoteObject>& remote, int32_t value, int32_t* answer, int32_t* pid = nullptr,
             int waitSeconds = MessageOption::TF_WAIT_TIME)
{
    MessageParcel data;
    MessageParcel reply;
    MessageOption option = SyncOption(waitSeconds);
    data.WriteInt32(value);
    int32_t status = remote->SendRequest(ECHO, data, reply, option);
    *answer = reply.ReadInt32();
    if (pid != nullptr) {
        *pid = reply.ReadInt32();
    }
    return status;
}

int32_t SendWithObject(const sptr<IRemoteObject>& remote, uint32_t code, const sptr<IRemoteObject>& object,
                       int32_t value, MessageParcel& reply)
{
    MessageParcel data;
    MessageOption option = SyncOption();
    data.WriteRemoteObject(object);
    data.WriteInt32(value);
    return remote->SendRequest(code, data, reply, option);
}

int32_t SendCode(const sptr<IRemoteObject>& remote, uint32_t code, MessageParcel& reply)
{
    MessageParcel data;
    MessageOption option = SyncOption();
    return remote->SendRequest(code, data, reply, option);
}

int32_t RemoteExportCount(const sptr<IRemoteObject>& remote)
{
    MessageParcel reply;
    EXPECT_EQ(SendCode(remote, EXPORT_COUNT, reply), IPC_OK);
    return reply.ReadInt32();
}

TEST_F(CrossProcessTest, CallGetsTheReplyOfThePeerProcess)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    EXPECT_TRUE(remote->IsProxyObject());
    EXPECT_FALSE(remote->IsObjectDead());

    int32_t answer = 0;
    int32_t pid = 0;
    EXPECT_EQ(Echo(remote, 42, &answer, &pid), IPC_OK);
    EXPECT_EQ(answer, 42);
    EXPECT_EQ(pid, helper_.Pid());

    // The stub's own status travels back unchanged.
    MessageParcel reply;
    EXPECT_EQ(SendCode(remote, 999, reply), IPC_ERR_UNKNOWN_TRANSACTION);
}

TEST_F(CrossProcessTest, LookupsShareOneConnection)
{
    sptr<IRemoteObject> first = StartServer();
    ASSERT_NE(first, nullptr);
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    ASSERT_NE(manager, nullptr);
    sptr<IRemoteObject> second = manager->GetSystemAbility(id_);
    EXPECT_EQ(second.GetRefPtr(), first.GetRefPtr());
    EXPECT_EQ(GetTransportStats().connections, 1u);

    // An in-process object added under the id wins over the socket.
    sptr<IRemoteObject> local(new TestService());
    ASSERT_EQ(manager->AddSystemAbility(id_, local), IPC_OK);
    EXPECT_EQ(manager->GetSystemAbility(id_).GetRefPtr(), local.GetRefPtr());
    ASSERT_EQ(manager->RemoveSystemAbility(id_), IPC_OK);
    EXPECT_EQ(manager->GetSystemAbility(id_).GetRefPtr(), first.GetRefPtr());

    // Nothing published, nothing added: null.
    EXPECT_EQ(manager->GetSystemAbility(NextSystemAbilityId()), nullptr);
}

TEST_F(CrossProcessTest, CallbackRunsOnAnIpcThreadWhileTheCallerWaits)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    sptr<CallbackStub> callback(new CallbackStub());

    MessageParcel reply;
    ASSERT_EQ(SendWithObject(remote, CALL_BACK, callback, 7, reply), IPC_OK);
    EXPECT_EQ(reply.ReadInt32(), IPC_OK);
    EXPECT_EQ(reply.ReadInt32(), 70);
    EXPECT_EQ(callback->Calls(), 1);
    EXPECT_NE(callback->LastThread(), std::this_thread::get_id());
}

TEST_F(CrossProcessTest, CallbackMayCallThePeerWhileThePeerWaitsForIt)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    // The callback calls the server's ECHO(v + 1) from inside the server's
    // call to it, while this thread is still waiting for CALL_BACK.
    sptr<CallbackStub> callback(new CallbackStub(remote));

    MessageParcel reply;
    ASSERT_EQ(SendWithObject(remote, CALL_BACK, callback, 7, reply), IPC_OK);
    EXPECT_EQ(reply.ReadInt32(), IPC_OK);
    EXPECT_EQ(reply.ReadInt32(), 8);
    EXPECT_EQ(callback->Calls(), 1);
}

TEST_F(CrossProcessTest, ConcurrentCallersEachGetTheirOwnReply)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    constexpr int THREADS = 4;
    constexpr int CALLS = 50;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < CALLS; ++i) {
                int32_t value = t * 1000 + i;
                int32_t answer = -1;
                if (Echo(remote, value, &answer) != IPC_OK || answer != value) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(GetTransportStats().pendingCalls, 0u);
}

TEST_F(CrossProcessTest, PeerDroppingItsProxyReleasesOurExport)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    bool destroyed = false;
    sptr<CallbackStub> callback(new CallbackStub(nullptr, &destroyed));
    {
        MessageParcel first;
        MessageParcel second;
        ASSERT_EQ(SendWithObject(remote, HOLD, callback, 0, first), IPC_OK);
        ASSERT_EQ(SendWithObject(remote, HOLD, callback, 0, second), IPC_OK);
        EXPECT_EQ(second.ReadInt32(), 2);
    }
    // One object sent twice is one export.
    EXPECT_EQ(GetTransportStats().exportedObjects, 1u);

    MessageParcel reply;
    ASSERT_EQ(SendCode(remote, DROP, reply), IPC_OK);
    // The release travels in front of DROP's reply.
    EXPECT_EQ(GetTransportStats().exportedObjects, 0u);
    callback = nullptr;
    EXPECT_TRUE(destroyed);
}

TEST_F(CrossProcessTest, SameIdYieldsSameProxyAndDroppingItReleasesThePeersExport)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    {
        MessageParcel firstReply;
        MessageParcel secondReply;
        ASSERT_EQ(SendCode(remote, GET_OBJECT, firstReply), IPC_OK);
        ASSERT_EQ(SendCode(remote, GET_OBJECT, secondReply), IPC_OK);
        sptr<IRemoteObject> first = firstReply.ReadRemoteObject();
        sptr<IRemoteObject> second = secondReply.ReadRemoteObject();
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(first.GetRefPtr(), second.GetRefPtr());
        EXPECT_TRUE(first->IsProxyObject());
        EXPECT_EQ(GetTransportStats().importedObjects, 1u);
        EXPECT_EQ(RemoteExportCount(remote), 1);

        // The proxy answers for the peer's object.
        int32_t answer = 0;
        EXPECT_EQ(Echo(first, 3, &answer), IPC_OK);
        EXPECT_EQ(answer, 30);
    }
    EXPECT_EQ(GetTransportStats().importedObjects, 0u);
    // Our release goes out in front of the next request.
    EXPECT_EQ(RemoteExportCount(remote), 0);
}

TEST_F(CrossProcessTest, KilledPeerFailsPendingCallsAndNotifiesEachProxyOnce)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    MessageParcel objectReply;
    ASSERT_EQ(SendCode(remote, GET_OBJECT, objectReply), IPC_OK);
    sptr<IRemoteObject> other = objectReply.ReadRemoteObject();
    ASSERT_NE(other, nullptr);

    sptr<DeathCounter> death(new DeathCounter());
    sptr<DeathCounter> otherDeath(new DeathCounter());
    ASSERT_TRUE(remote->AddDeathRecipient(death));
    ASSERT_TRUE(other->AddDeathRecipient(otherDeath));

    int32_t blockedStatus = IPC_OK;
    std::thread caller([&] {
        MessageParcel reply;
        blockedStatus = SendCode(remote, BLOCK, reply);
    });
    ASSERT_TRUE(WaitUntil([] { return GetTransportStats().pendingCalls == 1; }));
    helper_.Kill();
    caller.join();
    EXPECT_EQ(blockedStatus, IPC_ERR_DEAD_OBJECT);

    ASSERT_TRUE(WaitUntil([&] { return death->Count() > 0 && otherDeath->Count() > 0; }));
    EXPECT_TRUE(remote->IsObjectDead());
    EXPECT_EQ(death->LastObject(), remote.GetRefPtr());
    EXPECT_EQ(otherDeath->LastObject(), other.GetRefPtr());

    sptr<DeathCounter> late(new DeathCounter());
    EXPECT_FALSE(remote->AddDeathRecipient(late));
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 1, &answer), IPC_ERR_DEAD_OBJECT);
    EXPECT_EQ(ConnectSystemAbility(id_), nullptr);

    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(death->Count(), 1);
    EXPECT_EQ(otherDeath->Count(), 1);
    EXPECT_EQ(late->Count(), 0);
}

TEST_F(CrossProcessTest, RestartedServiceIsFoundAgain)
{
    sptr<IRemoteObject> old = StartServer();
    ASSERT_NE(old, nullptr);
    helper_.Kill();
    ASSERT_TRUE(WaitUntil([&] { return old->IsObjectDead(); }));

    // The dead server left its socket and lock file behind.
    HelperProcess successor;
    ASSERT_TRUE(successor.Start("serve", id_));
    sptr<IRemoteObject> fresh = ConnectSystemAbility(id_);
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(fresh.GetRefPtr(), old.GetRefPtr());
    int32_t answer = 0;
    int32_t pid = 0;
    EXPECT_EQ(Echo(fresh, 5, &answer, &pid), IPC_OK);
    EXPECT_EQ(pid, successor.Pid());
}

TEST_F(CrossProcessTest, StoppedPeerTimesOutAndTheConnectionSurvives)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    sptr<DeathCounter> death(new DeathCounter());
    ASSERT_TRUE(remote->AddDeathRecipient(death));

    helper_.Signal(SIGSTOP);
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 1, &answer, nullptr, 1), IPC_ERR_TIMED_OUT);
    EXPECT_EQ(GetTransportStats().pendingCalls, 0u);
    helper_.Signal(SIGCONT);

    // The late reply to the first call is dropped quietly; the connection
    // goes on.
    EXPECT_EQ(Echo(remote, 2, &answer), IPC_OK);
    EXPECT_EQ(answer, 2);
    EXPECT_FALSE(remote->IsObjectDead());
    EXPECT_EQ(death->Count(), 0);
}

TEST_F(CrossProcessTest, OneWayCallsAreNotAwaitedAndRunInOrder)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    // More than the receiver queues before it pauses reading.
    constexpr int COUNT = 3 * static_cast<int>(Transport::SOFT_INCOMING_LIMIT);
    for (int i = 0; i < COUNT; ++i) {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option(MessageOption::TF_ASYNC);
        data.WriteInt32(i);
        ASSERT_EQ(remote->SendRequest(RECORD, data, reply, option), IPC_OK);
        EXPECT_EQ(reply.GetDataSize(), 0u);
    }
    MessageParcel data;
    MessageParcel reply;
    MessageOption option = SyncOption();
    data.WriteInt32(COUNT);
    ASSERT_EQ(remote->SendRequest(GET_RECORDED, data, reply, option), IPC_OK);
    std::vector<int32_t> recorded;
    ASSERT_TRUE(reply.ReadInt32Vector(&recorded));
    std::vector<int32_t> expected;
    for (int i = 0; i < COUNT; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(recorded, expected);
}

TEST_F(CrossProcessTest, RequestsUpToTheFrameLimitGoThrough)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    constexpr size_t MIB = 1024 * 1024;
    {
        std::vector<uint8_t> filler(MIB - 4, 0x5A);
        MessageParcel data;
        MessageParcel reply;
        MessageOption option = SyncOption();
        ASSERT_TRUE(data.WriteInt32(77));
        ASSERT_TRUE(data.WriteBuffer(filler.data(), filler.size()));
        ASSERT_EQ(data.GetDataSize(), MIB);
        ASSERT_EQ(remote->SendRequest(ECHO, data, reply, option), IPC_OK);
        EXPECT_EQ(reply.ReadInt32(), 77);
    }
    {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option = SyncOption();
        ASSERT_TRUE(data.SetMaxCapacity(2 * MIB));
        std::vector<uint8_t> filler(MIB, 0x5A);
        ASSERT_TRUE(data.WriteInt32(77));
        ASSERT_TRUE(data.WriteBuffer(filler.data(), filler.size()));
        EXPECT_EQ(remote->SendRequest(ECHO, data, reply, option), IPC_ERR_TOO_LARGE);
    }
    {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option = SyncOption();
        sptr<IRemoteObject> callback(new CallbackStub());
        for (size_t i = 0; i <= Transport::MAX_FRAME_OBJECTS; ++i) {
            ASSERT_TRUE(data.WriteRemoteObject(callback));
        }
        EXPECT_EQ(remote->SendRequest(ECHO, data, reply, option), IPC_ERR_TOO_LARGE);
    }
    // Refused requests never reach the wire, so the connection is intact.
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 9, &answer), IPC_OK);
    EXPECT_EQ(GetTransportStats().exportedObjects, 0u);
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
