// One stream connection to a peer process (private to the transport).
//
// Lifetime: a Connection is owned by shared pointers: the IPC runtime's while
// the socket is open, every SocketProxy of the peer's objects, and every task
// or caller working on it. Close() ends the socket side at once; the object
// (and the file descriptor) goes when the last owner lets go, so no thread
// ever reads from a descriptor number that was reused.
//
// Reading the socket ("the read role"): at most one thread reads at a time,
// and which one depends on who is waiting:
//   - a thread blocked in Transact for its reply takes the role when it is
//     free, and reads until its own reply has come; replies of other callers
//     it passes to them, transactions it hands to the IPC threads;
//   - while no caller wants it, the socket is armed in the runtime's epoll
//     set, and the IPC thread that gets the event reads. It keeps the first
//     synchronous transaction it finds and runs it itself after giving the
//     role back, so a plain call costs no thread hand-off on either side.
// Giving the role back passes it to a waiting caller, else re-arms the
// socket.
//
// Objects: stubs (and proxies of other connections) written into a parcel
// are exported under an id with a count of references sent; the peer counts
// the references it received per id and returns them all in one release
// frame when its last proxy for the id goes. An id whose count falls to zero
// leaves the table, dropping the exported object.
//
// Locks, always taken in this order and never while calling user code:
// writeMu_ (whole frames), then mu_ (everything else), importMu_ (the proxy
// table; never held together with mu_).
#ifndef TAVIK_PLATFORM_TRANSPORT_SOCKET_CONNECTION_H
#define TAVIK_PLATFORM_TRANSPORT_SOCKET_CONNECTION_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "iremote_object.h"
#include "peer_identity.h"
#include "transport/frame.h"
#include "transport/ipc_runtime.h"

namespace Tavik {

class MessageParcel;
class MessageOption;

namespace Transport {

class SocketProxy;

// Incoming transactions one connection may have queued or running. Above
// the soft limit the IPC threads stop reading from the peer until some
// finish; above the hard limit (reached only through callers reading their
// replies) the peer is cut off.
constexpr size_t SOFT_INCOMING_LIMIT = 64;
constexpr size_t HARD_INCOMING_LIMIT = 1024;
// Call ids of timed-out calls whose late replies are dropped quietly.
constexpr size_t MAX_ABANDONED_CALLS = 1024;

class Connection : public Pollable, public std::enable_shared_from_this<Connection> {
public:
    using Clock = std::chrono::steady_clock;

    // Takes the connected socket (made non-blocking here) and registers it
    // with the IPC runtime. `root` answers object id 0: the published object
    // on a server connection, null on a client connection. Null (and the
    // socket closed) on failure.
    static std::shared_ptr<Connection> Create(int fd, const sptr<IRemoteObject>& root, std::string name);
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
    // call their death recipients on an IPC thread. Idempotent.
    void Close(const char* reason);
    bool IsClosed() const { return closed_.load(); }
    const std::string& GetName() const { return name_; }
    // The peer process, from the socket's credentials; connectionId is the
    // connection's runtime key.
    const PeerIdentity& GetPeer() const { return peer_; }

    // Called by ~SocketProxy.
    void OnProxyDestroyed(uint32_t id, const SocketProxy* proxy);

    void OnReady(uint32_t events) override;

    // For statistics and tests. The root object is not counted.
    size_t ExportCount() const;
    size_t ImportCount() const;
    size_t PendingCallCount() const;

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    struct PendingCall;
    struct IncomingCall;
    struct ReadState;

private:
    Connection(int fd, std::string name);

    // --- reading (the read role) ---
    void TakeRoleLocked();
    void ReleaseRole();
    // Passes the read role on when it is free: to a waiting caller, else to
    // the epoll set (unless throttled).
    void HandOffReadingLocked();
    void Lead(ReadState& state, Clock::time_point deadline);
    FrameError ProcessBuffered(ReadState& state);
    FrameError ProcessFrame(const FrameHeader& header, const uint8_t* body, ReadState& state);
    ssize_t ReadSome();
    void ReserveInput(size_t frameSize);

    // --- objects ---
    bool ExportObjects(const std::vector<sptr<IRemoteObject>>& objects, std::vector<ObjectEntry>& entries);
    uint32_t ExportLocked(const sptr<IRemoteObject>& object);
    void Unexport(const std::vector<ObjectEntry>& entries);
    FrameError ImportObjects(const ObjectEntry* entries, size_t count, std::vector<sptr<IRemoteObject>>& objects);
    sptr<IRemoteObject> ImportProxy(uint32_t id);
    void QueueRelease(uint32_t id, uint64_t references);
    void FlushReleases();

    // --- calls ---
    int32_t AwaitReply(PendingCall& call, Clock::time_point deadline);
    void RememberAbandonedLocked(uint64_t callId);
    // Hands an asynchronous call that ended to an IPC task that runs its
    // handler.
    void CompleteAsyncLocked(PendingCall* call);
    void Dispatch(const std::shared_ptr<IncomingCall>& call);
    void RunIncoming(IncomingCall& call);
    void DrainOneWay();
    void FinishIncoming();
    void SendReply(uint64_t callId, int32_t status, MessageParcel& reply);

    // --- writing ---
    // Writes the queued releases and then (if header is not null) one frame,
    // whole, or fails. Sets *nothingWritten when the peer got no byte. A
    // stalled write of anything but a transaction closes the connection.
    int32_t WriteFrame(const FrameHeader* header, const uint8_t* data, size_t size,
                       const std::vector<ObjectEntry>& entries, Clock::time_point deadline, bool* nothingWritten);

    const int fd_;
    const std::string name_;
    uint64_t key_ = 0;
    PeerIdentity peer_;
    std::atomic<bool> closed_{false};

    std::mutex writeMu_;

    mutable std::mutex mu_;
    bool roleTaken_ = false;
    bool armed_ = false;
    bool throttled_ = false;
    std::vector<PendingCall*> waiters_;
    std::unordered_map<uint64_t, PendingCall*> pending_;
    // Owners of the asynchronous calls in pending_.
    std::unordered_map<uint64_t, std::shared_ptr<PendingCall>> asyncCalls_;
    uint64_t nextCallId_ = 1;
    std::unordered_set<uint64_t> abandoned_;
    std::deque<uint64_t> abandonedOrder_;
    struct Export {
        sptr<IRemoteObject> object;
        uint64_t sentReferences;
    };
    std::unordered_map<uint32_t, Export> exports_;
    std::unordered_map<const IRemoteObject*, uint32_t> exportIds_;
    uint32_t nextExportId_ = 1;
    size_t incoming_ = 0;
    std::deque<std::shared_ptr<IncomingCall>> oneWayQueue_;
    bool oneWayRunning_ = false;
    std::vector<FrameHeader> pendingReleases_;
    bool releaseFlushPosted_ = false;

    mutable std::mutex importMu_;
    struct Import {
        wptr<SocketProxy> proxy;
        // Identity of the proxy the entry belongs to; compared, never
        // dereferenced.
        const SocketProxy* raw;
        uint64_t receivedReferences;
    };
    std::unordered_map<uint32_t, Import> imports_;

    // Input buffer: touched only by the thread holding the read role.
    std::vector<uint8_t> in_;
    size_t inStart_ = 0;
    size_t inEnd_ = 0;
};

struct TransportStats {
    size_t connections = 0;
    size_t exportedObjects = 0;
    size_t importedObjects = 0;
    size_t pendingCalls = 0;
    size_t ipcThreads = 0;
};

// Sums over every open connection of this process.
TransportStats GetTransportStats();

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_SOCKET_CONNECTION_H
