// Peers that do not play along, against a TestService published in this
// process, while a well-behaved client of the same service keeps calling:
// whatever one peer does, the other's calls are answered, and the
// misbehaving peer alone is held back or cut off. And what a connection
// costs in memory, and that it gives it back; and what the transport shows
// of itself to a monitor.
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "ipc_status.h"
#include "socket_transport.h"
#include "tralog.h"
#include "transport/frame.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizers' allocator replaces malloc's statistics; gcc ships the
// runtime but not this declaration.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
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

// A transaction frame with an int32 as its data; with `object`, the data
// starts with an object of the sender's (its id 5).
std::vector<uint8_t> Transaction(uint64_t callId, uint32_t code, int32_t value, bool object = false)
{
    std::vector<uint32_t> words;
    if (object) {
        words.push_back(0);  // index 0 of the object table
    }
    words.push_back(static_cast<uint32_t>(value));
    Transport::ObjectEntry entry{5, static_cast<uint8_t>(Transport::ObjectOwner::SENDER), {0, 0, 0}};
    Transport::FrameHeader header = Transport::MakeHeader(Transport::FrameKind::TRANSACTION);
    header.objectCount = object ? 1 : 0;
    header.length = static_cast<uint32_t>(words.size() * 4 + header.objectCount * sizeof(entry));
    header.callId = callId;
    header.code = code;
    std::vector<uint8_t> frame(sizeof(header) + header.length);
    std::memcpy(frame.data(), &header, sizeof(header));
    std::memcpy(frame.data() + sizeof(header), words.data(), words.size() * 4);
    if (object) {
        std::memcpy(frame.data() + sizeof(header) + words.size() * 4, &entry, sizeof(entry));
    }
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
    // The calls carry an object of the peer's.
    bool object;
    // The service gives up on the peer (its unread replies pass the
    // outgoing limit); otherwise the peer is held back while it does not
    // read, and every call is answered in the end.
    bool cutOff;
};

void PrintTo(const Misbehaviour& row, std::ostream* out)
{
    *out << row.name;
}

const Misbehaviour MISBEHAVIOURS[] = {
    {"leaves its large answers unread", BIG_REPLY, 1000 * 1000, 12, false, false},
    {"floods small calls and reads no answer", ECHO, 7, 2000, false, false},
    {"keeps more calls running than it has slots", SLOW, 1, 24, false, false},
    {"never reads the calls sent to it", PUSH, 40, 1, true, true},
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
    // All at once: the service reads them before its replies pile up.
    std::thread flooder([&] {
        std::vector<uint8_t> all;
        for (int i = 1; i <= row.count; ++i) {
            std::vector<uint8_t> frame = Transaction(i, row.code, row.value, row.object);
            all.insert(all.end(), frame.begin(), frame.end());
        }
        RawSend(fd, all.data(), all.size());
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
    // Opens COUNT connections that make one call each (so that each has
    // read something); returns the heap they hold once all are open.
    auto open = [&](std::vector<int>& fds, size_t before) -> size_t {
        for (int i = 0; i < COUNT; ++i) {
            int fd = RawSocket(GetSystemAbilitySocketPath(id_), false);
            std::vector<uint8_t> reply(40);
            if (fd < 0 || !RawSend(fd, Transaction(1, ECHO, i).data(), 36) ||
                recv(fd, reply.data(), reply.size(), MSG_WAITALL) != 40) {
                ADD_FAILURE() << "connection " << i;
                return 0;
            }
            fds.push_back(fd);
        }
        EXPECT_TRUE(WaitUntil([&] { return GetConnections().size() == baseline + COUNT; }));
        return HeapInUse() - before;
    };
    // A first round pays for what stays once (IPC threads started under
    // the load, the runtime's tables grown to the count).
    size_t before = HeapInUse();
    for (int round = 0; round < 2; ++round) {
        std::vector<int> fds;
        size_t held = open(fds, before);
        EXPECT_LT(held / COUNT, 8u * 1024) << "bytes of heap per idle connection";
        for (int fd : fds) {
            close(fd);
        }
        // The last connections may still be on their way out on IPC threads.
        size_t kept = 0;
        bool returned = WaitUntil([&] {
            size_t now = HeapInUse();
            kept = now > before ? now - before : 0;
            return GetConnections().size() == baseline && (round == 0 || kept < 64u * 1024);
        });
        EXPECT_TRUE(returned) << kept << " bytes kept after the connections closed";
        before = HeapInUse();
    }
}

// Both ends of one call, seen by the process's frame observer: the request
// written by the client and read by the service, the reply the other way.
TEST_F(PublishedServiceTest, TheFrameObserverSeesEveryFrameAsOnTheWire)
{
    sptr<IRemoteObject> remote = ConnectSystemAbility(id_);
    ASSERT_NE(remote, nullptr);
    std::mutex mutex;
    std::vector<std::string> seen;
    SetFrameObserver([&](const FrameEvent& frame) {
        std::vector<uint8_t> bytes;
        for (size_t i = 0; i < frame.pieceCount; ++i) {
            bytes.insert(bytes.end(), frame.pieces[i].data, frame.pieces[i].data + frame.pieces[i].size);
        }
        Transport::FrameHeader header{};
        std::memcpy(&header, bytes.data(), sizeof(header));
        int32_t first = 0;
        std::memcpy(&first, bytes.data() + sizeof(header), sizeof(first));
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(std::string(frame.incomingConnection ? "service " : "client ") +
                       (frame.received ? "read " : "wrote ") + std::to_string(header.kind) + " " +
                       std::to_string(header.code) + " " + std::to_string(first) + " " +
                       std::to_string(bytes.size() == sizeof(header) + header.length));
    });
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 42, &answer), IPC_OK);
    SetFrameObserver(nullptr);
    EXPECT_EQ(Echo(remote, 43, &answer), IPC_OK);
    std::lock_guard<std::mutex> lock(mutex);
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"client read 2 0 42 1", "client wrote 1 1 42 1", "service read 1 1 42 1",
                                              "service wrote 2 0 42 1"}));
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
