// Every limit the socket transport enforces on a peer, in one place: its
// value, its unit, why it has that value, and what happens to a peer that
// reaches it. A peer may be slow, frozen or hostile; these bounds are what
// it can cost this process. docs/transport.md explains each one, and
// `devicedetect dump` prints this table from a running service.
#ifndef TAVIK_PLATFORM_TRANSPORT_LIMITS_H
#define TAVIK_PLATFORM_TRANSPORT_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace Tavik {
namespace Transport {

// Parcel data of one frame: a parcel's default capacity, so anything a
// parcel accepts can be sent. Over it, a sender fails the request locally
// (IPC_ERR_TOO_LARGE); a received frame that announces more is malformed and
// ends its connection before a byte of it is allocated.
constexpr size_t MAX_FRAME_DATA = 1024 * 1024;
// Remote objects in one frame; same consequences as MAX_FRAME_DATA.
constexpr size_t MAX_FRAME_OBJECTS = 64;

// Bytes waiting to be written to one peer (replies, callbacks, releases)
// because it does not read. Four of the largest frames fit, so a peer that
// reads slowly is never cut off by one large reply. A frame that would
// pass it closes the connection as if the peer had died (pending calls
// fail, death recipients fire once), with one WARN line naming the pid.
constexpr size_t MAX_OUTGOING_BYTES = 4 * (MAX_FRAME_DATA + 64 * 1024);

// Synchronous transactions of one connection that run at once. While a
// connection is at this limit, or has transactions waiting for a slot, the
// IPC threads do not read its socket: the back-pressure lands on that peer
// alone, and the other connections keep the rest of the IPC threads.
constexpr size_t MAX_RUNNING_TRANSACTIONS = 4;
// One-way transactions of one connection waiting for their turn (they run
// one at a time, in order); at this many the socket is not read either.
constexpr size_t MAX_QUEUED_ONE_WAY = 16;
// Transactions one connection may have waiting while a caller of this
// process reads the socket for its own reply (a caller must read past them
// to find it), and the bytes they may hold. Over either, the peer is cut
// off: its frame is malformed (OVERLOAD) and the connection ends.
constexpr size_t HARD_INCOMING_LIMIT = 1024;
constexpr size_t MAX_QUEUED_INCOMING_BYTES = 8 * 1024 * 1024;

// Call ids of timed-out calls whose late replies are dropped quietly; a
// reply to an older one counts as malformed.
constexpr size_t MAX_ABANDONED_CALLS = 1024;

// IPC threads of a process: they read sockets and run incoming
// transactions. A connection can hold at most MAX_RUNNING_TRANSACTIONS + 1
// of them (the +1 runs its one-way calls).
constexpr size_t MAX_IPC_THREADS = 8;

// Connections waiting to be accepted by a published ability.
constexpr int LISTEN_BACKLOG = 64;
// Seconds a client waits to connect to a server whose backlog is full.
constexpr int CONNECT_TIMEOUT_SECONDS = 8;

// Log lines a peer can cause in bulk (refused connections of one published
// ability) are limited to this many per window; the rest are counted and
// summarised in one line when the window ends.
constexpr size_t LOG_BURST = 5;
constexpr int LOG_WINDOW_SECONDS = 10;

struct LimitInfo {
    const char* name;
    uint64_t value;
    const char* unit;
    // What happens to a peer that reaches the limit.
    const char* consequence;
};

// The table above, for tools that show it.
const LimitInfo* GetTransportLimits(size_t& count);

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_LIMITS_H
