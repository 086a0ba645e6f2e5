// Peers that do not play along, against a TestService published in this
// process, while a well-behaved client of the same service keeps calling:
// whatever one peer does, the other's calls are answered, and the
// misbehaving peer alone is held back or cut off. And what a connection
// costs in memory, and that it gives it back.
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "ipc_status.h"
#include "socket_transport.h"
#include "tralog.h"
#include "transport/frame.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/allocator_interface.h>
#else
#include <malloc.h>
#endif

namespace Tavik {
namespace TransportTest {
namespace {

size_t HeapInUse()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

std::vector<uint8_t> Transaction(uint64_t callId, uint32_t code, int32_t value)
{
    Transport::FrameHeader header = Transport::MakeHeader(Transport::FrameKind::TRANSACTION);
    header.length = sizeof(value);
    header.callId = callId;
    header.code = code;
    std::vector<uint8_t> frame(sizeof(header) + sizeof(value));
    std::memcpy(frame.data(), &header, sizeof(header));
    std::memcpy(frame.data() + sizeof(header), &value, sizeof(value));
    return frame;
}

// The open connection with the id; false once it is gone.
bool FindConnection(uint64_t id, ConnectionInfo& found)
{
    for (const ConnectionInfo& info : GetConnections()) {
        if (info.id == id) {
            found = info;
            return true;
        }
    }
    return false;
}

// The id of the connection a peer opened after `known` was taken.
uint64_t NewConnection(const std::vector<ConnectionInfo>& known)
{
    uint64_t id = 0;
    WaitUntil([&] {
        for (const ConnectionInfo& info : GetConnections()) {
            bool old = std::any_of(known.begin(), known.end(), [&](const ConnectionInfo& k) { return k.id == info.id; });
            if (info.incoming && !old) {
                id = info.id;
                return true;
            }
        }
        return false;
    });
    return id;
}

struct Misbehaviour {
    const char* name;
    uint32_t code;
    int32_t value;
    int count;
    // The service gives up on the peer (its unread replies pass the
    // outgoing limit); otherwise every call is answered in the end.
    bool cutOff;
};

void PrintTo(const Misbehaviour& row, std::ostream* out)
{
    *out << row.name;
}

const Misbehaviour MISBEHAVIOURS[] = {
    {"never reads its large replies", BIG_REPLY, 1000 * 1000, 12, true},
    {"floods small calls and reads no answer", ECHO, 7, 2000, false},
    {"keeps more calls running than it has slots", SLOW, 1, 24, false},
};

class MisbehavingPeerTest : public PublishedServiceTest, public ::testing::WithParamInterface<Misbehaviour> {};

TEST_P(MisbehavingPeerTest, CostsOtherClientsNothing)
{
    const Misbehaviour& row = GetParam();
    sptr<IRemoteObject> healthy = ConnectSystemAbility(id_);
    ASSERT_NE(healthy, nullptr);
    ASSERT_EQ(Echo(healthy, 1), IPC_OK);
    TransportCounters before = GetTransportCounters();
    LogCapture log;

    std::vector<ConnectionInfo> known = GetConnections();
    int fd = RawSocket(GetSystemAbilitySocketPath(id_), false);
    ASSERT_GE(fd, 0);
    uint64_t peerId = NewConnection(known);
    ASSERT_NE(peerId, 0u);
    std::atomic<bool> sent{false};
    std::thread flooder([&] {
        for (int i = 1; i <= row.count && RawSend(fd, Transaction(i, row.code, row.value).data(), 36); ++i) {
        }
        sent = true;
    });
    // The healthy client calls throughout; the peer never has more than
    // its slots' worth of calls running.
    int calls = 0;
    int failed = 0;
    size_t mostRunning = 0;
    ConnectionInfo peer;
    bool settled = false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!settled && std::chrono::steady_clock::now() < deadline) {
        ++calls;
        failed += Echo(healthy, calls) == IPC_OK ? 0 : 1;
        bool present = FindConnection(peerId, peer);
        if (present) {
            mostRunning = std::max(mostRunning, peer.transactionsRunning);
        }
        settled = sent && (row.cutOff ? !present : peer.transactionsRunning + peer.transactionsWaiting == 0);
    }
    flooder.join();
    EXPECT_TRUE(settled);
    EXPECT_EQ(failed, 0) << "of " << calls << " calls of the healthy client";
    EXPECT_LE(mostRunning, Transport::MAX_RUNNING_TRANSACTIONS);

    TransportCounters after = GetTransportCounters();
    const std::string limit = "MAX_OUTGOING_BYTES";
    EXPECT_EQ(after.closedAtLimit[limit] - before.closedAtLimit[limit], row.cutOff ? 1u : 0u);
    EXPECT_EQ(log.Count("pid " + std::to_string(getpid()) + " does not read"), row.cutOff ? 1u : 0u);
    if (!row.cutOff) {
        // Nothing the peer was owed is lost: every call has its reply.
        std::vector<uint64_t> answered;
        std::vector<uint64_t> expected;
        for (int i = 1; i <= row.count; ++i) {
            Transport::FrameHeader header{};
            ASSERT_EQ(recv(fd, &header, sizeof(header), MSG_WAITALL), static_cast<ssize_t>(sizeof(header)));
            std::vector<uint8_t> body(header.length);
            ASSERT_EQ(recv(fd, body.data(), body.size(), MSG_WAITALL), static_cast<ssize_t>(body.size()));
            answered.push_back(header.callId);
            expected.push_back(static_cast<uint64_t>(i));
        }
        std::sort(answered.begin(), answered.end());
        EXPECT_EQ(answered, expected);
    } else {
        ASSERT_FALSE(GetRecentlyClosed().empty());
        EXPECT_EQ(GetRecentlyClosed().back().reason, "outgoing queue over its limit");
    }
    close(fd);
}

INSTANTIATE_TEST_SUITE_P(Peers, MisbehavingPeerTest, ::testing::ValuesIn(MISBEHAVIOURS));

TEST_F(PublishedServiceTest, AnIdleConnectionCostsAFewKibAndGivesThemBack)
{
    constexpr int COUNT = 200;
    const size_t baseline = GetConnections().size();
    // Threads and the first connection's one-time costs come first.
    {
        int warm = RawSocket(GetSystemAbilitySocketPath(id_), false);
        ASSERT_TRUE(RawSend(warm, Transaction(1, ECHO, 1).data(), 36));
        std::vector<uint8_t> reply(40);
        ASSERT_EQ(recv(warm, reply.data(), reply.size(), MSG_WAITALL), 40);
        close(warm);
        ASSERT_TRUE(WaitUntil([&] { return GetConnections().size() == baseline; }));
    }
    size_t before = HeapInUse();
    std::vector<int> fds;
    for (int i = 0; i < COUNT; ++i) {
        int fd = RawSocket(GetSystemAbilitySocketPath(id_), false);
        ASSERT_GE(fd, 0);
        fds.push_back(fd);
        // One call each, so that every connection has read something.
        ASSERT_TRUE(RawSend(fd, Transaction(1, ECHO, i).data(), 36));
        std::vector<uint8_t> reply(40);
        ASSERT_EQ(recv(fd, reply.data(), reply.size(), MSG_WAITALL), 40);
    }
    ASSERT_TRUE(WaitUntil([&] { return GetConnections().size() == baseline + COUNT; }));
    size_t perConnection = (HeapInUse() - before) / COUNT;
    EXPECT_LT(perConnection, 8u * 1024) << "bytes of heap per idle connection";
    for (int fd : fds) {
        close(fd);
    }
    // The last connections may still be on their way out on IPC threads.
    size_t kept = 0;
    EXPECT_TRUE(WaitUntil([&] {
        size_t now = HeapInUse();
        kept = now > before ? now - before : 0;
        return GetConnections().size() == baseline && kept < 64u * 1024;
    })) << kept << " bytes kept after every connection closed";
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
