#include "transport/socket_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <new>

#include "ipc_status.h"
#include "log_rate_limiter.h"
#include "message_option.h"
#include "message_parcel.h"
#include "transport/calling_scope.h"
#include "transport/runtime_dir.h"
#include "transport/socket_proxy.h"
#include "transport/transport_log.h"

namespace Tavik {
namespace Transport {

namespace {

constexpr uint32_t READ_EVENTS = EPOLLIN | EPOLLRDHUP;
constexpr size_t CLOSED_HISTORY = 16;

int RemainingMilliseconds(Connection::Clock::time_point deadline)
{
    if (deadline == Connection::Clock::time_point::max()) {
        return -1;
    }
    auto now = Connection::Clock::now();
    if (now >= deadline) {
        return 0;
    }
    auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count() + 1;
    return remaining > INT_MAX ? INT_MAX : static_cast<int>(remaining);
}

// Counters and the recently closed connections of the whole process.
// Immortal, like the IPC runtime: connections may close during static
// destruction.
struct History {
    std::mutex mutex;
    TransportCounters counters;
    std::deque<ClosedConnectionInfo> closed;
};

History& GetHistory()
{
    static auto* history = new History();
    return *history;
}

// The process's frame observer. The flag spares the common case (nobody
// observes) the lock.
std::atomic<bool> g_observing{false};
std::mutex g_observerMutex;
std::shared_ptr<const FrameObserver> g_observer;

std::shared_ptr<const FrameObserver> CurrentObserver()
{
    if (!g_observing.load(std::memory_order_relaxed)) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(g_observerMutex);
    return g_observer;
}

void CountMalformed(FrameError error)
{
    History& history = GetHistory();
    std::lock_guard<std::mutex> lock(history.mutex);
    ++history.counters.malformed[FrameErrorToString(error)];
}

void CountClosedAtLimit(const char* limit)
{
    History& history = GetHistory();
    std::lock_guard<std::mutex> lock(history.mutex);
    ++history.counters.closedAtLimit[limit];
}

}  // namespace

void CountAccepted()
{
    History& history = GetHistory();
    std::lock_guard<std::mutex> lock(history.mutex);
    ++history.counters.accepted;
}

void CountRefused()
{
    History& history = GetHistory();
    std::lock_guard<std::mutex> lock(history.mutex);
    ++history.counters.refused;
}

bool AllowPeerLine(int32_t pid)
{
    // This process's own connections are no stranger's flood.
    if (pid == getpid()) {
        return true;
    }
    // Immortal: IPC threads may still log while static destructors run.
    static auto* limiter = new LogRateLimiter(LogRateLimiter::Options{
        std::chrono::seconds(LOG_WINDOW_SECONDS), static_cast<uint32_t>(LOG_BURST), 1024});
    std::vector<LogRateLimiter::Summary> due;
    bool allowed = limiter->Allow(static_cast<uint32_t>(pid), pid, due);
    for (const LogRateLimiter::Summary& summary : due) {
        TRANSPORT_LOGW("suppressed %{public}llu lines caused by pid %{public}lld in %{public}d s",
                       static_cast<unsigned long long>(summary.suppressed), static_cast<long long>(summary.note),
                       LOG_WINDOW_SECONDS);
    }
    return allowed;
}

// A caller of Transact (on its stack, `onDone` empty) or of TransactAsync
// (owned by asyncCalls_ until it ends). Every field is guarded by mu_.
struct Connection::PendingCall {
    uint64_t id = 0;
    std::condition_variable cv;
    bool done = false;
    // IPC_OK when the reply arrived, else why the call ended.
    int32_t transportStatus = IPC_OK;
    int32_t remoteStatus = IPC_OK;
    // The caller's reply parcel: the reader copies the reply's data straight
    // from its input buffer into it (the caller is blocked until done).
    MessageParcel* reply = nullptr;
    // Bytes of a reply that the reply parcel refused, else 0.
    size_t refusedSize = 0;
    std::vector<sptr<IRemoteObject>> objects;
    // An asynchronous call: nobody waits; the handler is posted to an IPC
    // thread when the call ends, and `reply` points at ownReply.
    IRemoteObject::ReplyHandler onDone;
    MessageParcel ownReply;
};

// A transaction from the peer, decoded and waiting for a thread.
struct Connection::IncomingCall {
    sptr<IRemoteObject> target;
    uint64_t callId = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
    size_t bytes = 0;
    // The request, with its object table, as the target will read it.
    MessageParcel data;
};

// What one stint of holding the read role produced.
struct Connection::ReadState {
    // The caller reading for its own reply; null for an IPC thread.
    PendingCall* self = nullptr;
    bool selfDone = false;
    // An IPC thread's own work, run after it gave the role back.
    std::shared_ptr<IncomingCall> inlineCall;
    bool drainOneWay = false;
    // An IPC thread stops at the connection's limits.
    bool paused = false;
    // Objects whose last reference may go: released outside the role.
    std::vector<sptr<IRemoteObject>> graveyard;

    bool HasOwnWork() const { return inlineCall != nullptr || drainOneWay; }
};

std::shared_ptr<Connection> Connection::Create(int fd, const sptr<IRemoteObject>& root, std::string name,
                                               int32_t systemAbilityId)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        TRANSPORT_LOGE("fcntl failed for %{public}s: %{public}s", name.c_str(), std::strerror(errno));
        close(fd);
        return nullptr;
    }
    std::shared_ptr<Connection> connection(new (std::nothrow)
                                               Connection(fd, root, std::move(name), systemAbilityId));
    if (connection == nullptr) {
        close(fd);
        return nullptr;
    }
    IpcRuntime& runtime = IpcRuntime::Get();
    connection->key_ = runtime.ReserveKey();
    PeerCredentials credentials;
    if (GetPeerCredentials(fd, credentials)) {
        connection->peer_.pid = credentials.pid;
        connection->peer_.uid = credentials.uid;
    }
    connection->peer_.connectionId = connection->key_;
    {
        std::lock_guard<std::mutex> lock(connection->mu_);
        connection->armedEvents_ = READ_EVENTS;
    }
    if (!runtime.Register(connection->key_, connection, fd, READ_EVENTS)) {
        connection->closed_ = true;
        connection->channel_.CloseOutput();
        return nullptr;
    }
    TRANSPORT_LOGD("connection %{public}s open", connection->name_.c_str());
    return connection;
}

Connection::Connection(int fd, const sptr<IRemoteObject>& root, std::string name, int32_t systemAbilityId)
    : channel_(fd),
      tables_(this, root),
      name_(std::move(name)),
      systemAbilityId_(systemAbilityId),
      incoming_(root != nullptr),
      since_(std::chrono::system_clock::now())
{
}

Connection::~Connection() = default;

// --- calls ------------------------------------------------------------------

bool Connection::StartCall(const std::shared_ptr<PendingCall>& owned, PendingCall& call, uint32_t target,
                           uint32_t code, MessageParcel& data, bool oneWay, int32_t* status)
{
    *status = IPC_ERR_DEAD_OBJECT;
    if (closed_) {
        return false;
    }
    size_t size = data.GetDataSize();
    if (size > MAX_FRAME_DATA || data.GetObjectCount() > MAX_FRAME_OBJECTS) {
        TRANSPORT_LOGW("request of %{public}zu bytes and %{public}zu objects exceeds the frame limit", size,
                       data.GetObjectCount());
        *status = IPC_ERR_TOO_LARGE;
        return false;
    }
    if (size % 4 != 0) {
        TRANSPORT_LOGW("request size %{public}zu is not a multiple of 4", size);
        *status = IPC_ERR_INVALID_DATA;
        return false;
    }
    std::vector<ObjectEntry> entries;
    if (!tables_.Export(data.GetObjects(), entries)) {
        *status = closed_ ? IPC_ERR_DEAD_OBJECT : IPC_ERR_INVALID_DATA;
        return false;
    }
    FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
    header.target = target;
    header.code = code;
    header.flags = oneWay ? MessageOption::TF_ASYNC : 0;
    header.objectCount = static_cast<uint16_t>(entries.size());
    header.length = static_cast<uint32_t>(size + entries.size() * sizeof(ObjectEntry));
    if (!oneWay) {
        std::lock_guard<std::mutex> lock(mu_);
        if (closed_) {
            return false;
        }
        call.id = nextCallId_++;
        header.callId = call.id;
        pending_[call.id] = &call;
        if (owned != nullptr) {
            asyncCalls_[call.id] = owned;
            // The reply has to be read even if the peer's transactions
            // stopped the IPC threads from reading.
            MaybeResumeLocked();
        }
    }
    // A failed send closes the connection, which drops the exports and fails
    // the call registered above.
    *status = SendFrame(header, data.GetData(), size, entries);
    return *status == IPC_OK;
}

int32_t Connection::Transact(uint32_t target, uint32_t code, MessageParcel& data, MessageParcel& reply,
                             MessageOption& option)
{
    bool oneWay = (option.GetFlags() & MessageOption::TF_ASYNC) != 0;
    int waitSeconds = option.GetWaitTime() > 0 ? option.GetWaitTime() : MessageOption::TF_WAIT_TIME;
    Clock::time_point deadline = Clock::now() + std::chrono::seconds(waitSeconds);
    PendingCall call;
    call.reply = &reply;
    int32_t status = IPC_OK;
    if (!StartCall(nullptr, call, target, code, data, oneWay, &status)) {
        if (call.id != 0) {
            std::lock_guard<std::mutex> lock(mu_);
            pending_.erase(call.id);
        }
        return status;
    }
    if (oneWay) {
        return IPC_OK;
    }
    status = AwaitReply(call, deadline);
    if (status != IPC_OK) {
        return status;
    }
    if (call.refusedSize != 0) {
        TRANSPORT_LOGW("reply of %{public}zu bytes exceeds the reply parcel's capacity", call.refusedSize);
        return IPC_ERR_TOO_LARGE;
    }
    reply.SetObjects(std::move(call.objects));
    return call.remoteStatus;
}

void Connection::TransactAsync(uint32_t target, uint32_t code, MessageParcel& data, MessageOption& option,
                               IRemoteObject::ReplyHandler done)
{
    auto call = std::make_shared<PendingCall>();
    call->reply = &call->ownReply;
    call->onDone = std::move(done);
    int32_t status = IPC_ERR_INVALID_DATA;
    bool oneWay = (option.GetFlags() & MessageOption::TF_ASYNC) != 0;
    if (!oneWay && StartCall(call, *call, target, code, data, false, &status)) {
        return;
    }
    // Not started, or started and ended by the close its failure caused (the
    // close posted the handler then).
    std::shared_ptr<PendingCall> mine;
    {
        std::lock_guard<std::mutex> lock(mu_);
        pending_.erase(call->id);
        auto it = asyncCalls_.find(call->id);
        if (it != asyncCalls_.end()) {
            mine = std::move(it->second);
            asyncCalls_.erase(it);
        }
    }
    if ((mine != nullptr || call->id == 0) && call->onDone) {
        MessageParcel empty;
        call->onDone(status, empty);
    }
}

int32_t Connection::AwaitReply(PendingCall& call, Clock::time_point deadline)
{
    std::unique_lock<std::mutex> lock(mu_);
    int32_t result = IPC_OK;
    for (;;) {
        if (call.done) {
            result = call.transportStatus;
            break;
        }
        if (closed_) {
            result = IPC_ERR_DEAD_OBJECT;
            break;
        }
        if (Clock::now() >= deadline) {
            result = IPC_ERR_TIMED_OUT;
            break;
        }
        if (!roleTaken_) {
            TakeRoleLocked();
            lock.unlock();
            {
                ReadState state;
                state.self = &call;
                Lead(state, deadline);
                // state.graveyard goes here, with no lock held.
            }
            lock.lock();
            continue;
        }
        waiters_.push_back(&call);
        call.cv.wait_until(lock, deadline);
        waiters_.erase(std::find(waiters_.begin(), waiters_.end(), &call));
    }
    pending_.erase(call.id);
    if (result == IPC_ERR_TIMED_OUT) {
        RememberAbandonedLocked(call.id);
        TRANSPORT_LOGW("call %{public}llu on %{public}s timed out", static_cast<unsigned long long>(call.id),
                       name_.c_str());
    }
    // The role may have been offered to this caller just as it left.
    HandOffReadingLocked();
    return result;
}

void Connection::RememberAbandonedLocked(uint64_t callId)
{
    if (abandonedOrder_.empty()) {
        abandonedOrder_.assign(MAX_ABANDONED_CALLS, 0);
    }
    uint64_t& slot = abandonedOrder_[abandonedNext_];
    if (slot != 0) {
        abandoned_.erase(slot);
    }
    slot = callId;
    abandoned_.insert(callId);
    abandonedNext_ = (abandonedNext_ + 1) % MAX_ABANDONED_CALLS;
}

void Connection::CompleteAsyncLocked(PendingCall* call)
{
    auto it = asyncCalls_.find(call->id);
    if (it == asyncCalls_.end()) {
        return;
    }
    std::shared_ptr<PendingCall> owned = std::move(it->second);
    asyncCalls_.erase(it);
    // The handler is user code: it runs on an IPC thread, with no lock held.
    auto run = [owned]() {
        owned->reply->SetObjects(std::move(owned->objects));
        int32_t status = owned->transportStatus != IPC_OK ? owned->transportStatus
                         : owned->refusedSize != 0       ? IPC_ERR_TOO_LARGE
                                                         : owned->remoteStatus;
        if (owned->onDone) {
            owned->onDone(status, *owned->reply);
        }
    };
    if (!IpcRuntime::Get().Post(run)) {
        TRANSPORT_LOGE("no IPC thread for the reply handler of a call on %{public}s", name_.c_str());
    }
}

size_t Connection::PendingCallCount() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return pending_.size();
}

// --- the peer's transactions ------------------------------------------------

FrameError Connection::AcceptLocked(const std::shared_ptr<IncomingCall>& call, bool& runNow, bool& startDrain)
{
    runNow = false;
    startDrain = false;
    if (syncWaiting_.size() + oneWayQueue_.size() >= HARD_INCOMING_LIMIT ||
        queuedIncomingBytes_ + call->bytes > MAX_QUEUED_INCOMING_BYTES) {
        return FrameError::OVERLOAD;
    }
    if (call->callId == 0) {
        oneWayQueue_.push_back(call);
        queuedIncomingBytes_ += call->bytes;
        startDrain = !oneWayRunning_;
        oneWayRunning_ = true;
    } else if (running_ < MAX_RUNNING_TRANSACTIONS) {
        ++running_;
        runNow = true;
    } else {
        syncWaiting_.push_back(call);
        queuedIncomingBytes_ += call->bytes;
    }
    return FrameError::NONE;
}

void Connection::RunSync(std::shared_ptr<IncomingCall> call)
{
    // The thread that finishes a transaction takes the next waiting one, so
    // the connection never has more than its slots' worth of threads.
    while (call != nullptr) {
        RunIncoming(*call);
        call = nullptr;
        std::lock_guard<std::mutex> lock(mu_);
        if (!syncWaiting_.empty() && !closed_) {
            call = std::move(syncWaiting_.front());
            syncWaiting_.pop_front();
            queuedIncomingBytes_ -= call->bytes;
        } else {
            --running_;
            MaybeResumeLocked();
        }
    }
}

void Connection::DrainOneWay()
{
    // One-way calls of a connection run one after another, in the order they
    // arrived; those queued when the connection closed still run (a peer may
    // well send its last request and hang up).
    for (;;) {
        std::shared_ptr<IncomingCall> call;
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (oneWayQueue_.empty()) {
                oneWayRunning_ = false;
                MaybeResumeLocked();
                return;
            }
            call = std::move(oneWayQueue_.front());
            oneWayQueue_.pop_front();
            queuedIncomingBytes_ -= call->bytes;
        }
        RunIncoming(*call);
    }
}

void Connection::RunIncoming(IncomingCall& call)
{
    MessageParcel& data = call.data;
    MessageParcel reply;
    MessageOption option(static_cast<int>(call.flags));
    int32_t status = IPC_OK;
    {
        CallingScope caller(peer_);
        status = call.target->SendRequest(call.code, data, reply, option);
    }
    // Drop the request's proxies before replying, so that their releases
    // travel in front of the reply.
    data.ClearObjects();
    call.target = nullptr;
    if (call.callId != 0) {
        SendReply(call.callId, status, reply);
    }
}

// --- reading ----------------------------------------------------------------

bool Connection::PausedLocked() const
{
    bool atLimits = running_ >= MAX_RUNNING_TRANSACTIONS || !syncWaiting_.empty() ||
                    oneWayQueue_.size() >= MAX_QUEUED_ONE_WAY ||
                    channel_.PendingOutputBytes() > PAUSE_READING_OUTGOING_BYTES;
    return atLimits && asyncCalls_.empty();
}

void Connection::UpdateArmLocked()
{
    uint32_t wanted = 0;
    if (!closed_) {
        if (!roleTaken_ && waiters_.empty() && !readingPaused_) {
            wanted |= READ_EVENTS;
        }
        if (channel_.HasPendingOutput()) {
            wanted |= EPOLLOUT;
        }
    }
    if (wanted != armedEvents_ && !closed_) {
        IpcRuntime::Get().Arm(key_, channel_.Fd(), wanted);
        armedEvents_ = wanted;
    }
}

void Connection::TakeRoleLocked()
{
    roleTaken_ = true;
    // A caller reads with poll(); an armed socket would also wake an IPC
    // thread for every reply.
    UpdateArmLocked();
}

void Connection::ReleaseRole(bool framesLeft)
{
    std::lock_guard<std::mutex> lock(mu_);
    roleTaken_ = false;
    HandOffReadingLocked(framesLeft);
}

void Connection::HandOffReadingLocked(bool framesLeft)
{
    if (closed_ || roleTaken_) {
        return;
    }
    if (!waiters_.empty()) {
        waiters_.front()->cv.notify_one();
        return;
    }
    if (PausedLocked()) {
        readingPaused_ = true;
        UpdateArmLocked();
        return;
    }
    readingPaused_ = false;
    // Frames already read wait in the buffer, and no epoll event comes for
    // bytes already read: a task takes them.
    auto self = shared_from_this();
    if (framesLeft && IpcRuntime::Get().Post([self]() { self->LeadFromIpcThread(); })) {
        return;
    }
    UpdateArmLocked();
}

void Connection::MaybeResumeLocked()
{
    if (!readingPaused_ || PausedLocked() || closed_) {
        return;
    }
    readingPaused_ = false;
    if (roleTaken_) {
        return;  // the role holder hands off when it is done
    }
    if (!waiters_.empty()) {
        waiters_.front()->cv.notify_one();
        return;
    }
    // The input buffer may already hold the frames that paused reading, and
    // no epoll event comes for bytes already read: a task reads them.
    auto self = shared_from_this();
    if (!IpcRuntime::Get().Post([self]() { self->LeadFromIpcThread(); })) {
        UpdateArmLocked();
    }
}

void Connection::OnReady(uint32_t events)
{
    {
        std::lock_guard<std::mutex> lock(mu_);
        armedEvents_ = 0;
    }
    if ((events & (EPOLLOUT | EPOLLERR | EPOLLHUP)) != 0 && channel_.HasPendingOutput()) {
        Flush();
    }
    if ((events & (EPOLLIN | EPOLLRDHUP | EPOLLERR | EPOLLHUP)) != 0) {
        LeadFromIpcThread();
        return;
    }
    std::lock_guard<std::mutex> lock(mu_);
    UpdateArmLocked();
}

void Connection::LeadFromIpcThread()
{
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (closed_ || roleTaken_ || !waiters_.empty() || readingPaused_) {
            // Whoever holds or gets the role, or frees a slot, reads.
            UpdateArmLocked();
            return;
        }
        roleTaken_ = true;
        UpdateArmLocked();
    }
    ReadState state;
    Lead(state, Clock::time_point::max());
    state.graveyard.clear();
    if (state.inlineCall != nullptr) {
        RunSync(std::move(state.inlineCall));
    } else if (state.drainOneWay) {
        DrainOneWay();
    }
}

void Connection::Lead(ReadState& state, Clock::time_point deadline)
{
    const char* closeReason = nullptr;
    for (;;) {
        FrameError error = ProcessBuffered(state);
        if (error != FrameError::NONE) {
            // A close on another thread (the peer hung up while we wrote to
            // it, DisconnectPeer, a limit) empties the object tables under
            // the frames still buffered: then their targets are gone, and
            // the frames are not to blame.
            bool closedMeanwhile;
            {
                std::lock_guard<std::mutex> lock(mu_);
                closedMeanwhile = closed_;
            }
            if (!closedMeanwhile) {
                if (AllowPeerLine(peer_.pid)) {
                    TRANSPORT_LOGW("malformed frame from %{public}s: %{public}s", name_.c_str(),
                                   FrameErrorToString(error));
                }
                CountMalformed(error);
                closeReason = FrameErrorToString(error);
            }
            break;
        }
        if (state.selfDone || state.HasOwnWork() || state.paused) {
            break;
        }
        if (state.self != nullptr) {
            int timeout = RemainingMilliseconds(deadline);
            if (timeout == 0) {
                break;
            }
            pollfd pfd{channel_.Fd(), POLLIN, 0};
            int ready = poll(&pfd, 1, timeout);
            if (ready == 0) {
                continue;  // the deadline check above ends the stint
            }
            if (ready < 0 && errno != EINTR) {
                closeReason = "poll failed";
                break;
            }
        }
        ssize_t count = channel_.ReadSome();
        if (count > 0) {
            continue;
        }
        if (count == 0) {
            closeReason = "peer closed the connection";
            break;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (state.self == nullptr) {
                break;  // drained; the socket is re-armed below
            }
            continue;
        }
        closeReason = errno == ENOMEM ? "out of memory for a frame" : "read failed";
        break;
    }
    if (closeReason != nullptr) {
        Close(closeReason);
    }
    ReleaseRole(state.paused && channel_.BufferedSize() > 0);
}

FrameError Connection::ProcessBuffered(ReadState& state)
{
    while (!state.paused && channel_.BufferedSize() >= sizeof(FrameHeader)) {
        FrameHeader header;
        std::memcpy(&header, channel_.Buffered(), sizeof(header));
        FrameError error = CheckHeader(header);
        if (error != FrameError::NONE) {
            return error;
        }
        size_t frameSize = sizeof(FrameHeader) + header.length;
        if (channel_.BufferedSize() < frameSize) {
            if (!channel_.ReserveFrame(frameSize)) {
                return FrameError::OVERLOAD;
            }
            break;
        }
        FrameEvent::Piece whole{channel_.Buffered(), frameSize};
        Observe(true, &whole, 1);
        error = ProcessFrame(header, channel_.Buffered() + sizeof(FrameHeader), state);
        if (error != FrameError::NONE) {
            return error;
        }
        channel_.Consume(frameSize);
    }
    return FrameError::NONE;
}

FrameError Connection::ProcessFrame(const FrameHeader& header, const uint8_t* body, ReadState& state)
{
    size_t dataSize = FrameDataSize(header);
    ObjectEntry entries[MAX_FRAME_OBJECTS];
    if (header.objectCount > 0) {
        std::memcpy(entries, body + dataSize, header.objectCount * sizeof(ObjectEntry));
    }
    switch (static_cast<FrameKind>(header.kind)) {
        case FrameKind::TRANSACTION: {
            auto call = std::make_shared<IncomingCall>();
            FrameError error = tables_.FindTarget(header.target, call->target);
            if (error != FrameError::NONE) {
                return error;
            }
            std::vector<sptr<IRemoteObject>> objects;
            error = tables_.Import(shared_from_this(), entries, header.objectCount, objects);
            if (error != FrameError::NONE) {
                for (auto& object : objects) {
                    state.graveyard.push_back(std::move(object));
                }
                return error;
            }
            call->callId = header.callId;
            call->code = header.code;
            call->flags = header.flags;
            call->bytes = sizeof(FrameHeader) + header.length;
            // CheckHeader bounded the size by the frame limit, which is a
            // parcel's default capacity, so this copy cannot be refused.
            call->data.ParseFrom(body, dataSize);
            call->data.SetObjects(std::move(objects));
            bool runNow = false;
            bool startDrain = false;
            {
                std::lock_guard<std::mutex> lock(mu_);
                if (closed_) {
                    return FrameError::NONE;
                }
                error = AcceptLocked(call, runNow, startDrain);
                if (error != FrameError::NONE) {
                    return error;
                }
                // An IPC thread leaves the rest for later once the
                // connection is at its limits; a caller reads on for its
                // reply.
                state.paused = state.self == nullptr && PausedLocked();
            }
            // An IPC thread keeps its first piece of work; a caller, or an
            // IPC thread that already has work, hands it on.
            bool keep = state.self == nullptr && !state.HasOwnWork();
            auto self = shared_from_this();
            if (startDrain) {
                if (keep) {
                    state.drainOneWay = true;
                } else if (!IpcRuntime::Get().Post([self]() { self->DrainOneWay(); })) {
                    TRANSPORT_LOGE("no IPC thread for one-way calls on %{public}s", name_.c_str());
                }
            } else if (runNow) {
                if (keep) {
                    state.inlineCall = std::move(call);
                } else if (!IpcRuntime::Get().Post([self, call]() { self->RunSync(call); })) {
                    TRANSPORT_LOGE("no IPC thread for a call on %{public}s", name_.c_str());
                    std::lock_guard<std::mutex> lock(mu_);
                    --running_;
                }
            }
            return FrameError::NONE;
        }
        case FrameKind::REPLY: {
            std::vector<sptr<IRemoteObject>> objects;
            FrameError error = tables_.Import(shared_from_this(), entries, header.objectCount, objects);
            if (error != FrameError::NONE) {
                for (auto& object : objects) {
                    state.graveyard.push_back(std::move(object));
                }
                return error;
            }
            std::lock_guard<std::mutex> lock(mu_);
            auto it = pending_.find(header.callId);
            if (it == pending_.end()) {
                // The objects go after the lock, in the graveyard.
                for (auto& object : objects) {
                    state.graveyard.push_back(std::move(object));
                }
                if (abandoned_.erase(header.callId) == 0) {
                    return FrameError::UNEXPECTED_REPLY;
                }
                return FrameError::NONE;  // a late reply to a call that timed out
            }
            PendingCall* call = it->second;
            pending_.erase(it);
            call->remoteStatus = static_cast<int32_t>(header.code);
            // The objects are handed over by the caller itself: replacing a
            // parcel's table may drop proxies, which must not happen under mu_.
            if (!call->reply->ParseFrom(body, dataSize)) {
                call->refusedSize = dataSize;
            }
            call->objects = std::move(objects);
            call->done = true;
            if (call->onDone) {
                CompleteAsyncLocked(call);
            } else if (call == state.self) {
                state.selfDone = true;
            } else {
                call->cv.notify_one();
            }
            return FrameError::NONE;
        }
        case FrameKind::RELEASE:
            return tables_.Release(header.target, header.code, state.graveyard);
    }
    return FrameError::BAD_KIND;
}

// --- objects ----------------------------------------------------------------

sptr<IRemoteObject> Connection::GetRootProxy()
{
    return tables_.ImportProxy(shared_from_this(), ROOT_OBJECT_ID);
}

void Connection::OnProxyDestroyed(uint32_t id, const SocketProxy* proxy)
{
    uint64_t references = tables_.ForgetProxy(id, proxy);
    while (references > 0 && !closed_) {
        uint32_t part = static_cast<uint32_t>(std::min<uint64_t>(references, UINT32_MAX));
        FrameHeader header = MakeHeader(FrameKind::RELEASE);
        header.target = id;
        header.code = part;
        SendFrame(header, nullptr, 0, {});
        references -= part;
    }
}

// --- writing ----------------------------------------------------------------

int32_t Connection::SendFrame(const FrameHeader& header, const uint8_t* data, size_t size,
                              const std::vector<ObjectEntry>& entries)
{
    iovec pieces[3];
    size_t count = 0;
    pieces[count++] = {const_cast<FrameHeader*>(&header), sizeof(FrameHeader)};
    if (size > 0) {
        pieces[count++] = {const_cast<uint8_t*>(data), size};
    }
    if (!entries.empty()) {
        pieces[count++] = {const_cast<ObjectEntry*>(entries.data()), entries.size() * sizeof(ObjectEntry)};
    }
    FrameEvent::Piece observed[3];
    for (size_t i = 0; i < count; ++i) {
        observed[i] = {static_cast<const uint8_t*>(pieces[i].iov_base), pieces[i].iov_len};
    }
    Observe(false, observed, count);
    switch (channel_.Send(pieces, count)) {
        case ByteChannel::SendResult::SENT:
            return IPC_OK;
        case ByteChannel::SendResult::QUEUED: {
            std::lock_guard<std::mutex> lock(mu_);
            UpdateArmLocked();
            return IPC_OK;
        }
        case ByteChannel::SendResult::OVER_LIMIT:
            TRANSPORT_LOGW("%{public}s: pid %{public}d does not read; its outgoing queue passed %{public}zu bytes",
                           name_.c_str(), static_cast<int>(peer_.pid), MAX_OUTGOING_BYTES);
            CountClosedAtLimit("MAX_OUTGOING_BYTES");
            Close("outgoing queue over its limit");
            return IPC_ERR_DEAD_OBJECT;
        case ByteChannel::SendResult::FAILED:
            Close("write failed");
            return IPC_ERR_DEAD_OBJECT;
        case ByteChannel::SendResult::CLOSED:
            break;
    }
    return IPC_ERR_DEAD_OBJECT;
}

void Connection::Observe(bool received, const FrameEvent::Piece* pieces, size_t count)
{
    std::shared_ptr<const FrameObserver> observer = CurrentObserver();
    if (observer == nullptr) {
        return;
    }
    FrameEvent event;
    event.connectionId = peer_.connectionId;
    event.pid = peer_.pid;
    event.systemAbilityId = systemAbilityId_;
    event.incomingConnection = incoming_;
    event.received = received;
    event.time = std::chrono::system_clock::now();
    event.pieceCount = std::min<size_t>(count, 3);
    std::copy(pieces, pieces + event.pieceCount, event.pieces);
    (*observer)(event);
}

void Connection::SendReply(uint64_t callId, int32_t status, MessageParcel& reply)
{
    FrameHeader header = MakeHeader(FrameKind::REPLY);
    header.callId = callId;
    header.code = static_cast<uint32_t>(status);
    const uint8_t* data = reply.GetData();
    size_t size = reply.GetDataSize();
    std::vector<ObjectEntry> entries;
    if (size > MAX_FRAME_DATA || reply.GetObjectCount() > MAX_FRAME_OBJECTS || size % 4 != 0) {
        TRANSPORT_LOGW("reply of %{public}zu bytes and %{public}zu objects cannot be sent", size,
                       reply.GetObjectCount());
        header.code = static_cast<uint32_t>(IPC_ERR_TOO_LARGE);
        size = 0;
    } else if (!tables_.Export(reply.GetObjects(), entries)) {
        if (closed_) {
            return;
        }
        header.code = static_cast<uint32_t>(IPC_ERR_INVALID_DATA);
        size = 0;
    }
    header.objectCount = static_cast<uint16_t>(entries.size());
    header.length = static_cast<uint32_t>(size + entries.size() * sizeof(ObjectEntry));
    SendFrame(header, data, size, entries);
}

void Connection::Flush()
{
    if (channel_.Flush() == ByteChannel::FlushResult::FAILED) {
        Close("write failed");
        return;
    }
    // The peer took some of its backlog: it may be read again.
    std::lock_guard<std::mutex> lock(mu_);
    MaybeResumeLocked();
}

// --- closing ----------------------------------------------------------------

void Connection::Close(const char* reason)
{
    if (closed_) {
        return;
    }
    ClosedConnectionInfo closed;
    closed.connection = Info();
    std::vector<sptr<IRemoteObject>> dropped;
    std::vector<sptr<SocketProxy>> proxies;
    std::list<std::shared_ptr<IncomingCall>> waiting;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (closed_) {
            return;
        }
        closed_ = true;
        for (auto& entry : pending_) {
            entry.second->done = true;
            entry.second->transportStatus = IPC_ERR_DEAD_OBJECT;
            if (entry.second->onDone) {
                CompleteAsyncLocked(entry.second);
            } else {
                entry.second->cv.notify_one();
            }
        }
        pending_.clear();
        for (PendingCall* waiter : waiters_) {
            waiter->cv.notify_one();
        }
        // Nobody is left to answer: waiting synchronous transactions go.
        waiting.swap(syncWaiting_);
        for (const auto& call : waiting) {
            queuedIncomingBytes_ -= call->bytes;
        }
        abandoned_.clear();
        abandonedOrder_.clear();
        abandonedOrder_.shrink_to_fit();
    }
    // Recorded before the connection leaves the runtime's set, so that whoever
    // sees it gone finds why.
    {
        closed.closedAt = std::chrono::system_clock::now();
        closed.reason = reason;
        History& history = GetHistory();
        std::lock_guard<std::mutex> lock(history.mutex);
        ++history.counters.closed;
        history.closed.push_back(std::move(closed));
        if (history.closed.size() > CLOSED_HISTORY) {
            history.closed.pop_front();
        }
    }
    channel_.CloseOutput();
    tables_.Close(dropped, proxies);
    // Wakes a caller blocked in poll() on the socket; the descriptor itself
    // is closed by the channel's destructor.
    shutdown(channel_.Fd(), SHUT_RDWR);
    IpcRuntime::Get().Unregister(key_, channel_.Fd());
    TRANSPORT_LOGI("connection %{public}s closed: %{public}s", name_.c_str(), reason);
    if (!proxies.empty()) {
        IpcRuntime::Get().Post([proxies]() {
            for (const auto& proxy : proxies) {
                proxy->NotifyDeath();
            }
        });
    }
    // `dropped` and `waiting` go here, outside every lock: dropping an
    // exported stub runs its destructor, and a request's proxies send
    // nothing on a closed connection.
}

// --- statistics -------------------------------------------------------------

ConnectionInfo Connection::Info() const
{
    ConnectionInfo info;
    info.id = peer_.connectionId;
    info.pid = peer_.pid;
    info.uid = peer_.uid;
    info.systemAbilityId = systemAbilityId_;
    info.incoming = incoming_;
    info.since = since_;
    {
        std::lock_guard<std::mutex> lock(mu_);
        info.transactionsRunning = running_;
        info.transactionsWaiting = syncWaiting_.size() + oneWayQueue_.size();
        info.pendingCalls = pending_.size();
    }
    info.outgoingBytes = channel_.PendingOutputBytes();
    info.exportedObjects = tables_.ExportCount();
    info.importedObjects = tables_.ImportCount();
    return info;
}

TransportStats GetTransportStats()
{
    TransportStats stats;
    for (const auto& pollable : IpcRuntime::Get().Snapshot()) {
        auto connection = std::dynamic_pointer_cast<Connection>(pollable);
        if (connection == nullptr) {
            continue;
        }
        ++stats.connections;
        stats.exportedObjects += connection->ExportCount();
        stats.importedObjects += connection->ImportCount();
        stats.pendingCalls += connection->PendingCallCount();
    }
    stats.ipcThreads = IpcRuntime::Get().ThreadCount();
    return stats;
}

}  // namespace Transport

void SetFrameObserver(FrameObserver observer)
{
    std::shared_ptr<const FrameObserver> installed;
    if (observer) {
        installed = std::make_shared<const FrameObserver>(std::move(observer));
    }
    std::lock_guard<std::mutex> lock(Transport::g_observerMutex);
    Transport::g_observer.swap(installed);
    Transport::g_observing.store(Transport::g_observer != nullptr, std::memory_order_relaxed);
    // The previous observer goes here, after the lock; a thread that copied
    // it a moment ago keeps it alive until its call returns.
}

std::vector<ConnectionInfo> GetConnections()
{
    std::vector<ConnectionInfo> result;
    for (const auto& pollable : Transport::IpcRuntime::Get().Snapshot()) {
        auto connection = std::dynamic_pointer_cast<Transport::Connection>(pollable);
        // A connection that is closing stays listed until its end is in the
        // history: whoever no longer finds it there finds why it ended.
        if (connection != nullptr) {
            result.push_back(connection->Info());
        }
    }
    std::sort(result.begin(), result.end(),
              [](const ConnectionInfo& a, const ConnectionInfo& b) { return a.id < b.id; });
    return result;
}

std::vector<ClosedConnectionInfo> GetRecentlyClosed()
{
    Transport::History& history = Transport::GetHistory();
    std::lock_guard<std::mutex> lock(history.mutex);
    return std::vector<ClosedConnectionInfo>(history.closed.begin(), history.closed.end());
}

TransportCounters GetTransportCounters()
{
    Transport::History& history = Transport::GetHistory();
    std::lock_guard<std::mutex> lock(history.mutex);
    return history.counters;
}

}  // namespace Tavik
