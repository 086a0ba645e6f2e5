// One stream connection to a peer process: the session (private to the
// transport).
//
// A connection has three parts, one file each:
//   - ByteChannel (byte_channel.h): the socket, its input buffer and its
//     bounded outgoing queue; raw bytes, no frames;
//   - ObjectTables (object_tables.h): the wire state, which objects each
//     side may name;
//   - Connection (here): the session. The calls this process waits for
//     (synchronous and asynchronous), the transactions the peer sent and who
//     runs them, the read role, the socket's epoll interest, and the end.
//
// Lifetime: a Connection is owned by shared pointers: the IPC runtime's
// while the socket is open, every SocketProxy of the peer's objects, and
// every task or caller working on it. Nothing the connection holds owns it
// back once it is closed: Close() empties every table and queue whose
// entries can hold a proxy of the peer (pending calls, waiting transactions,
// exported objects), and the one-way calls still queued run and go. A closed
// connection is destroyed as soon as its last task and proxy let it go.
//
// Reading the socket ("the read role"): at most one thread reads at a time,
// and which one depends on who is waiting:
//   - a thread blocked in Transact for its reply takes the role when it is
//     free, and reads until its own reply has come; replies of other callers
//     it passes to them, transactions it hands to the IPC threads;
//   - while no caller wants it, the socket is armed in the runtime's epoll
//     set, and the IPC thread that gets the event reads. It keeps the first
//     transaction it finds and runs it itself after giving the role back, so
//     a plain call costs no thread hand-off on either side.
//
// Running the peer's transactions: at most MAX_RUNNING_TRANSACTIONS
// synchronous ones at once; more wait in syncWaiting_, and the thread that
// finishes one takes the next. One-way ones run one at a time, in arrival
// order. While the connection is at these limits the IPC threads stop
// reading it (unless an asynchronous call of ours waits for a reply on it),
// so a flooding peer slows down only itself; the thread that frees a slot
// starts reading again.
//
// Writing: every frame goes through the channel, which never waits. While
// the channel holds queued bytes the connection's epoll interest includes
// EPOLLOUT, and the IPC thread woken by it flushes them.
//
// Locks: mu_ guards the session state below. The object tables and the
// channel's output have leaf locks of their own, never held while mu_ is
// taken; user code (stubs, reply handlers, death recipients, the last
// reference of an object) never runs under any of them.
#ifndef TAVIK_PLATFORM_TRANSPORT_SOCKET_CONNECTION_H
#define TAVIK_PLATFORM_TRANSPORT_SOCKET_CONNECTION_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "iremote_object.h"
#include "peer_identity.h"
#include "socket_transport.h"
#include "transport/byte_channel.h"
#include "transport/frame.h"
#include "transport/ipc_runtime.h"
#include "transport/object_tables.h"
#include "transport_limits.h"

namespace Tavik {

class MessageParcel;
class MessageOption;

namespace Transport {

class SocketProxy;

class Connection : public Pollable, public std::enable_shared_from_this<Connection> {
public:
    using Clock = std::chrono::steady_clock;

    // Takes the connected socket (made non-blocking here) and registers it
    // with the IPC runtime. `root` answers object id 0: the published object
    // on a server connection, null on a client connection.
    // `systemAbilityId` is the ability served or reached (-1: none). Null
    // (and the socket closed) on failure.
    static std::shared_ptr<Connection> Create(int fd, const sptr<IRemoteObject>& root, std::string name,
                                              int32_t systemAbilityId = -1);
    ~Connection() override;

    // Sends one transaction to the peer's object `target` and, unless the
    // option says TF_ASYNC, waits at most the option's wait time for the
    // reply. Returns the peer's status, or an IpcStatus of its own.
    int32_t Transact(uint32_t target, uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option);
    // Sends one transaction that expects a reply; `done` runs once, on an IPC
    // thread, with the outcome (IRemoteObject::SendRequestAsync).
    void TransactAsync(uint32_t target, uint32_t code, MessageParcel& data, MessageOption& option,
                       IRemoteObject::ReplyHandler done);

    // The proxy for the peer's object 0 (on a client connection, the
    // ability it connected to).
    sptr<IRemoteObject> GetRootProxy();

    // Ends the connection: pending calls fail with IPC_ERR_DEAD_OBJECT,
    // exported objects are dropped, and the proxies of the peer's objects
    // call their death recipients on an IPC thread. Idempotent; `reason` is
    // logged and kept with the connection's history.
    void Close(const char* reason);
    bool IsClosed() const { return closed_.load(); }
    const std::string& GetName() const { return name_; }
    // The peer process, from the socket's credentials; connectionId is the
    // connection's runtime key.
    const PeerIdentity& GetPeer() const { return peer_; }

    // Called by ~SocketProxy.
    void OnProxyDestroyed(uint32_t id, const SocketProxy* proxy);

    void OnReady(uint32_t events) override;

    ConnectionInfo Info() const;
    // The root object is not counted.
    size_t ExportCount() const { return tables_.ExportCount(); }
    size_t ImportCount() const { return tables_.ImportCount(); }
    size_t PendingCallCount() const;

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    struct PendingCall;
    struct IncomingCall;
    struct ReadState;

private:
    Connection(int fd, const sptr<IRemoteObject>& root, std::string name, int32_t systemAbilityId);

    // --- reading (the read role) ---
    void TakeRoleLocked();
    // `framesLeft`: the holder stopped at the limits with bytes in the buffer.
    void ReleaseRole(bool framesLeft = false);
    // Passes the read role on when it is free: to a waiting caller, else to
    // the epoll set (unless the limits stop reading), or to a task when
    // frames already read wait in the buffer.
    void HandOffReadingLocked(bool framesLeft = false);
    // An IPC thread takes the role if it is free and reads.
    void LeadFromIpcThread();
    void Lead(ReadState& state, Clock::time_point deadline);
    FrameError ProcessBuffered(ReadState& state);
    FrameError ProcessFrame(const FrameHeader& header, const uint8_t* body, ReadState& state);
    // True while the IPC threads should leave the socket alone.
    bool PausedLocked() const;
    // After a transaction finished: reading stopped by the limits starts again.
    void MaybeResumeLocked();
    // Brings the socket's epoll interest in line with the state: EPOLLIN
    // while an IPC thread should read, EPOLLOUT while output is queued.
    void UpdateArmLocked();

    // --- calls ---
    // Registers a call and writes its frame; false when it failed (the
    // status is then in *status).
    bool StartCall(const std::shared_ptr<PendingCall>& owned, PendingCall& call, uint32_t target, uint32_t code,
                   MessageParcel& data, bool oneWay, int32_t* status);
    int32_t AwaitReply(PendingCall& call, Clock::time_point deadline);
    void RememberAbandonedLocked(uint64_t callId);
    // Hands an asynchronous call that ended to an IPC task that runs its
    // handler.
    void CompleteAsyncLocked(PendingCall* call);

    // --- the peer's transactions ---
    FrameError AcceptLocked(const std::shared_ptr<IncomingCall>& call, bool& runNow, bool& startDrain);
    void RunSync(std::shared_ptr<IncomingCall> call);
    void DrainOneWay();
    void RunIncoming(IncomingCall& call);

    // --- writing ---
    // Sends a whole frame (header, data, object entries) through the
    // channel: IPC_OK once written or queued, IPC_ERR_DEAD_OBJECT when the
    // connection is (now) closed.
    int32_t SendFrame(const FrameHeader& header, const uint8_t* data, size_t size,
                      const std::vector<ObjectEntry>& entries);
    void SendReply(uint64_t callId, int32_t status, MessageParcel& reply);
    // Hands the frame to the process's frame observer, if there is one.
    void Observe(bool received, const FrameEvent::Piece* pieces, size_t count);
    void Flush();

    ByteChannel channel_;
    ObjectTables tables_;
    const std::string name_;
    const int32_t systemAbilityId_;
    const bool incoming_;
    const std::chrono::system_clock::time_point since_;
    uint64_t key_ = 0;
    PeerIdentity peer_;
    std::atomic<bool> closed_{false};

    mutable std::mutex mu_;
    // read role and epoll interest
    bool roleTaken_ = false;
    // The IPC threads stopped reading because of the limits; the thread that
    // frees a slot starts them again.
    bool readingPaused_ = false;
    uint32_t armedEvents_ = 0;
    std::vector<PendingCall*> waiters_;
    // calls
    std::unordered_map<uint64_t, PendingCall*> pending_;
    // Owners of the asynchronous calls in pending_.
    std::unordered_map<uint64_t, std::shared_ptr<PendingCall>> asyncCalls_;
    uint64_t nextCallId_ = 1;
    std::unordered_set<uint64_t> abandoned_;
    // Ring of the abandoned ids in the order they were abandoned; allocated
    // by the first time-out.
    std::vector<uint64_t> abandonedOrder_;
    size_t abandonedNext_ = 0;
    // the peer's transactions
    size_t running_ = 0;
    std::list<std::shared_ptr<IncomingCall>> syncWaiting_;
    std::list<std::shared_ptr<IncomingCall>> oneWayQueue_;
    bool oneWayRunning_ = false;
    size_t queuedIncomingBytes_ = 0;
};

// Sums over every open connection of this process.
struct TransportStats {
    size_t connections = 0;
    size_t exportedObjects = 0;
    size_t importedObjects = 0;
    size_t pendingCalls = 0;
    size_t ipcThreads = 0;
};
TransportStats GetTransportStats();

// Bookkeeping of the counters and the recently closed connections.
void CountAccepted();
void CountRefused();

// Whether one more line a peer caused (a refused connection, a malformed
// frame) may be logged: each pid gets LOG_BURST lines per LOG_WINDOW_SECONDS,
// since a peer can repeat either as fast as it can connect; this process's
// own connections are not limited. Logs the due summaries of suppressed
// lines first.
bool AllowPeerLine(int32_t pid);

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_SOCKET_CONNECTION_H
