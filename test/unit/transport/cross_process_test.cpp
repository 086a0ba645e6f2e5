// A client in this process and a TestService in a helper process.
#include <signal.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <numeric>
#include <thread>

#include <unistd.h>

#include "ipc_status.h"
#include "peer_identity.h"
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

int32_t RemoteExportCount(const sptr<IRemoteObject>& remote)
{
    MessageParcel reply;
    EXPECT_EQ(Call(remote, EXPORT_COUNT, 0, reply), IPC_OK);
    return reply.ReadInt32();
}

TEST_F(CrossProcessTest, CallReachesThePeerProcessAndLookupsShareOneConnection)
{
    // Earlier tests of this process may leave connections closing.
    const size_t before = GetTransportStats().connections;
    sptr<IRemoteObject> first = StartServer();
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->IsProxyObject());
    int32_t answer = 0;
    int32_t pid = 0;
    EXPECT_EQ(Echo(first, 42, &answer, &pid), IPC_OK);
    EXPECT_EQ(answer, 42);
    EXPECT_EQ(pid, helper_.Pid());

    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(manager->GetSystemAbility(id_).GetRefPtr(), first.GetRefPtr());
    EXPECT_EQ(GetTransportStats().connections, before + 1);

    // An in-process object added under the id wins over the socket.
    sptr<IRemoteObject> local(new TestService());
    ASSERT_EQ(manager->AddSystemAbility(id_, local), IPC_OK);
    EXPECT_EQ(manager->GetSystemAbility(id_).GetRefPtr(), local.GetRefPtr());
    ASSERT_EQ(manager->RemoveSystemAbility(id_), IPC_OK);
    EXPECT_EQ(manager->GetSystemAbility(id_).GetRefPtr(), first.GetRefPtr());
}

TEST_F(CrossProcessTest, CallbackRunsOnAnIpcThreadAndMayCallThePeerWhileThePeerWaitsForIt)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    // Without a server the callback answers v * 10; with one it answers
    // the server's ECHO(v + 1), called from inside the server's call to it
    // while this thread still waits for CALL_BACK.
    for (bool nested : {false, true}) {
        SCOPED_TRACE(nested ? "calling back into the peer" : "plain");
        sptr<CallbackStub> callback(new CallbackStub(nested ? remote : nullptr));
        MessageParcel reply;
        ASSERT_EQ(Call(remote, CALL_BACK, 7, reply, MessageOption::TF_WAIT_TIME, callback), IPC_OK);
        EXPECT_EQ(reply.ReadInt32(), IPC_OK);
        EXPECT_EQ(reply.ReadInt32(), nested ? 8 : 70);
        EXPECT_EQ(callback->Calls(), 1);
        EXPECT_NE(callback->LastThread(), std::this_thread::get_id());
    }
}

// An object crosses as one export however often it is sent, in either
// direction, and the side that drops its proxy releases the other's export.
TEST_F(CrossProcessTest, ObjectsCrossOnceEitherWayAndDroppingTheProxyReleasesTheExport)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    bool destroyed = false;
    sptr<CallbackStub> callback(new CallbackStub(nullptr, &destroyed));
    MessageParcel reply;
    for (int32_t held = 1; held <= 2; ++held) {
        ASSERT_EQ(Call(remote, HOLD, 0, reply, MessageOption::TF_WAIT_TIME, callback), IPC_OK);
        EXPECT_EQ(reply.ReadInt32(), held);
    }
    EXPECT_EQ(GetTransportStats().exportedObjects, 1u);
    ASSERT_EQ(Call(remote, DROP, 0, reply), IPC_OK);
    // The release travels in front of DROP's reply.
    EXPECT_EQ(GetTransportStats().exportedObjects, 0u);
    callback = nullptr;
    EXPECT_TRUE(destroyed);

    {
        MessageParcel firstReply;
        MessageParcel secondReply;
        ASSERT_EQ(Call(remote, GET_OBJECT, 0, firstReply), IPC_OK);
        ASSERT_EQ(Call(remote, GET_OBJECT, 0, secondReply), IPC_OK);
        sptr<IRemoteObject> first = firstReply.ReadRemoteObject();
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(first.GetRefPtr(), secondReply.ReadRemoteObject().GetRefPtr());
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
    ASSERT_EQ(Call(remote, GET_OBJECT, 0, objectReply), IPC_OK);
    sptr<IRemoteObject> other = objectReply.ReadRemoteObject();
    ASSERT_NE(other, nullptr);

    sptr<DeathCounter> death(new DeathCounter());
    sptr<DeathCounter> otherDeath(new DeathCounter());
    ASSERT_TRUE(remote->AddDeathRecipient(death));
    ASSERT_TRUE(other->AddDeathRecipient(otherDeath));

    int32_t blockedStatus = IPC_OK;
    std::thread caller([&] {
        MessageParcel reply;
        blockedStatus = Call(remote, BLOCK, 0, reply);
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
    EXPECT_EQ(Echo(remote, 1), IPC_ERR_DEAD_OBJECT);
    EXPECT_EQ(ConnectSystemAbility(id_), nullptr);

    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(death->Count(), 1);
    EXPECT_EQ(otherDeath->Count(), 1);
    EXPECT_EQ(late->Count(), 0);
}

TEST_F(CrossProcessTest, StoppedPeerTimesOutAndTheConnectionSurvives)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    sptr<DeathCounter> death(new DeathCounter());
    ASSERT_TRUE(remote->AddDeathRecipient(death));

    helper_.Signal(SIGSTOP);
    EXPECT_EQ(Echo(remote, 1, nullptr, nullptr, 1), IPC_ERR_TIMED_OUT);
    EXPECT_EQ(GetTransportStats().pendingCalls, 0u);
    helper_.Signal(SIGCONT);

    // The late reply to the first call is dropped quietly; the connection
    // goes on.
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 2, &answer), IPC_OK);
    EXPECT_EQ(answer, 2);
    EXPECT_FALSE(remote->IsObjectDead());
    EXPECT_EQ(death->Count(), 0);
}

// An asynchronous call holds no thread while it waits: a stopped peer keeps
// its entries, not the IPC threads, and each call ends exactly once, with
// the answer or with the connection.
TEST_F(CrossProcessTest, AsyncCallsHoldNoThreadAndEndWithTheAnswerOrTheConnection)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    // Who is calling, seen from both ends.
    MessageParcel caller;
    ASSERT_EQ(Call(remote, CALLER, 0, caller), IPC_OK);
    EXPECT_EQ(caller.ReadInt32(), static_cast<int32_t>(getpid()));
    EXPECT_EQ(caller.ReadInt32(), static_cast<int32_t>(geteuid()));
    EXPECT_EQ(caller.ReadInt32(), 1);
    EXPECT_EQ(GetObjectPeer(remote).pid, helper_.Pid());
    EXPECT_EQ(GetCallingIdentity().connectionId, 0u);

    std::mutex mutex;
    std::vector<int32_t> outcomes;
    auto record = [&](int32_t status, MessageParcel& reply) {
        std::lock_guard<std::mutex> lock(mutex);
        outcomes.push_back(status == IPC_OK ? reply.ReadInt32() : status);
    };
    auto outcomeCount = [&] {
        std::lock_guard<std::mutex> lock(mutex);
        return outcomes.size();
    };
    helper_.Signal(SIGSTOP);
    const int count = 3 * static_cast<int>(Transport::MAX_IPC_THREADS);
    for (int i = 0; i < count; ++i) {
        MessageParcel data;
        data.WriteInt32(i);
        MessageOption option;
        remote->SendRequestAsync(ECHO, data, option, record);
    }
    EXPECT_EQ(GetTransportStats().pendingCalls, static_cast<size_t>(count));
    std::atomic<bool> ran{false};
    ASSERT_TRUE(Transport::IpcRuntime::Get().Post([&ran] { ran = true; }));
    EXPECT_TRUE(WaitUntil([&] { return ran.load(); }, std::chrono::seconds(5))) << "the IPC threads are all waiting";
    EXPECT_EQ(outcomeCount(), 0u);
    helper_.Signal(SIGCONT);
    ASSERT_TRUE(WaitUntil([&] { return outcomeCount() == static_cast<size_t>(count); }));
    std::vector<int32_t> expected(static_cast<size_t>(count));
    std::iota(expected.begin(), expected.end(), 0);
    std::sort(outcomes.begin(), outcomes.end());
    EXPECT_EQ(outcomes, expected);

    // Giving up on the peer ends what still waits, once, and tells the
    // proxies' recipients.
    outcomes.clear();
    sptr<DeathCounter> death(new DeathCounter());
    ASSERT_TRUE(remote->AddDeathRecipient(death));
    MessageParcel data;
    MessageOption option;
    remote->SendRequestAsync(BLOCK, data, option, record);
    uint64_t id = GetObjectPeer(remote).connectionId;
    EXPECT_TRUE(DisconnectPeer(id, "the test gives up"));
    EXPECT_FALSE(DisconnectPeer(id, "again"));
    ASSERT_TRUE(WaitUntil([&] { return outcomeCount() == 1 && death->Count() == 1; }));
    EXPECT_EQ(outcomes, std::vector<int32_t>{IPC_ERR_DEAD_OBJECT});
    remote->SendRequestAsync(ECHO, data, option, record);
    EXPECT_EQ(outcomeCount(), 2u) << "a call on a closed connection ends at once";
}

TEST_F(CrossProcessTest, ExitWaitsForTheTaskInProgress)
{
    HelperProcess exiting;
    ASSERT_TRUE(exiting.Start("exit-while-working", id_));
    EXPECT_EQ(exiting.Wait(), 7) << "exit destroyed the process's objects under a running task";
}

TEST_F(CrossProcessTest, OneWayCallsAreNotAwaitedAndRunInOrder)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    // More than the receiver queues before it pauses reading.
    constexpr int COUNT = 3 * static_cast<int>(Transport::MAX_QUEUED_ONE_WAY);
    std::vector<int32_t> expected;
    for (int i = 0; i < COUNT; ++i) {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option(MessageOption::TF_ASYNC);
        data.WriteInt32(i);
        ASSERT_EQ(remote->SendRequest(RECORD, data, reply, option), IPC_OK);
        EXPECT_EQ(reply.GetDataSize(), 0u);
        expected.push_back(i);
    }
    MessageParcel reply;
    ASSERT_EQ(Call(remote, GET_RECORDED, COUNT, reply), IPC_OK);
    std::vector<int32_t> recorded;
    ASSERT_TRUE(reply.ReadInt32Vector(&recorded));
    EXPECT_EQ(recorded, expected);
}

TEST_F(CrossProcessTest, RequestsUpToTheFrameLimitGoThrough)
{
    sptr<IRemoteObject> remote = StartServer();
    ASSERT_NE(remote, nullptr);
    constexpr size_t MIB = 1024 * 1024;
    sptr<IRemoteObject> callback(new CallbackStub());
    auto send = [&](size_t fill, size_t objects, MessageParcel& reply) {
        std::vector<uint8_t> filler(fill, 0x5A);
        MessageParcel data;
        MessageOption option(MessageOption::TF_SYNC, MessageOption::TF_WAIT_TIME);
        EXPECT_TRUE(data.SetMaxCapacity(2 * MIB) && data.WriteInt32(77) && data.WriteBuffer(filler.data(), fill));
        for (size_t i = 0; i < objects; ++i) {
            EXPECT_TRUE(data.WriteRemoteObject(callback));
        }
        return remote->SendRequest(ECHO, data, reply, option);
    };
    MessageParcel reply;
    ASSERT_EQ(send(MIB - 4, 0, reply), IPC_OK);
    EXPECT_EQ(reply.ReadInt32(), 77);
    EXPECT_EQ(send(MIB, 0, reply), IPC_ERR_TOO_LARGE);
    EXPECT_EQ(send(4, Transport::MAX_FRAME_OBJECTS + 1, reply), IPC_ERR_TOO_LARGE);
    // Refused requests never reach the wire, so the connection is intact.
    EXPECT_EQ(Echo(remote, 9), IPC_OK);
    EXPECT_EQ(GetTransportStats().exportedObjects, 0u);
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
