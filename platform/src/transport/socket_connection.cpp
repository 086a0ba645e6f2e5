#include "transport/socket_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "ipc_status.h"
#include "message_option.h"
#include "message_parcel.h"
#include "transport/calling_scope.h"
#include "transport/runtime_dir.h"
#include "transport/socket_proxy.h"
#include "transport/transport_log.h"

namespace Tavik {
namespace Transport {

namespace {

// Bytes asked of the kernel per read; a frame larger than this grows the
// buffer to exactly its size, which CheckHeader has bounded.
constexpr size_t READ_CHUNK = 64 * 1024;
// Replies and releases are written by IPC threads that no caller waits on;
// a peer that takes no bytes for this long is cut off.
constexpr auto BACKGROUND_WRITE_TIMEOUT = std::chrono::seconds(10);

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

}  // namespace

// A caller blocked in Transact. Lives on the caller's stack; every field is
// guarded by mu_.
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
    // A call made with TransactAsync: nobody waits, `done` is posted to an
    // IPC thread when the call ends, and `reply` points at ownReply.
    IRemoteObject::ReplyHandler onDone;
    MessageParcel ownReply;
};

// A transaction from the peer, decoded and waiting for a thread.
struct Connection::IncomingCall {
    sptr<IRemoteObject> target;
    uint64_t callId = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
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
    // Objects whose last reference may go: released outside the role.
    std::vector<sptr<IRemoteObject>> graveyard;

    bool HasOwnWork() const { return inlineCall != nullptr || drainOneWay; }
};

std::shared_ptr<Connection> Connection::Create(int fd, const sptr<IRemoteObject>& root, std::string name)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        TRANSPORT_LOGE("fcntl failed for %{public}s: %{public}s", name.c_str(), std::strerror(errno));
        close(fd);
        return nullptr;
    }
    std::shared_ptr<Connection> connection(new (std::nothrow) Connection(fd, std::move(name)));
    if (connection == nullptr) {
        close(fd);
        return nullptr;
    }
    if (root != nullptr) {
        connection->exports_[ROOT_OBJECT_ID] = Export{root, 0};
        connection->exportIds_[root.GetRefPtr()] = ROOT_OBJECT_ID;
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
        connection->armed_ = true;
    }
    if (!runtime.Register(connection->key_, connection, fd)) {
        connection->closed_ = true;
        return nullptr;
    }
    TRANSPORT_LOGD("connection %{public}s open", connection->name_.c_str());
    return connection;
}

Connection::Connection(int fd, std::string name) : fd_(fd), name_(std::move(name)), in_(READ_CHUNK) {}

Connection::~Connection()
{
    close(fd_);
}

// --- calls ------------------------------------------------------------------

int32_t Connection::Transact(uint32_t target, uint32_t code, MessageParcel& data, MessageParcel& reply,
                             MessageOption& option)
{
    if (closed_) {
        return IPC_ERR_DEAD_OBJECT;
    }
    size_t size = data.GetDataSize();
    if (size > MAX_FRAME_DATA || data.GetObjectCount() > MAX_FRAME_OBJECTS) {
        TRANSPORT_LOGW("request of %{public}zu bytes and %{public}zu objects exceeds the frame limit", size,
                       data.GetObjectCount());
        return IPC_ERR_TOO_LARGE;
    }
    if (size % 4 != 0) {
        TRANSPORT_LOGW("request size %{public}zu is not a multiple of 4", size);
        return IPC_ERR_INVALID_DATA;
    }
    bool oneWay = (option.GetFlags() & MessageOption::TF_ASYNC) != 0;
    int waitSeconds = option.GetWaitTime() > 0 ? option.GetWaitTime() : MessageOption::TF_WAIT_TIME;
    Clock::time_point deadline = Clock::now() + std::chrono::seconds(waitSeconds);

    std::vector<ObjectEntry> entries;
    if (!ExportObjects(data.GetObjects(), entries)) {
        return closed_ ? IPC_ERR_DEAD_OBJECT : IPC_ERR_INVALID_DATA;
    }
    FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
    header.target = target;
    header.code = code;
    header.flags = oneWay ? MessageOption::TF_ASYNC : 0;
    header.objectCount = static_cast<uint16_t>(entries.size());
    header.length = static_cast<uint32_t>(size + entries.size() * sizeof(ObjectEntry));

    PendingCall call;
    call.reply = &reply;
    if (!oneWay) {
        std::lock_guard<std::mutex> lock(mu_);
        if (!closed_) {
            call.id = nextCallId_++;
            header.callId = call.id;
            pending_[call.id] = &call;
        }
    }
    bool nothingWritten = false;
    int32_t status = IPC_ERR_DEAD_OBJECT;
    if (oneWay || call.id != 0) {
        status = WriteFrame(&header, data.GetData(), size, entries, deadline, &nothingWritten);
    }
    if (status != IPC_OK) {
        if (!oneWay) {
            std::lock_guard<std::mutex> lock(mu_);
            pending_.erase(call.id);
        }
        if (nothingWritten) {
            Unexport(entries);
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
    auto fail = [&done](int32_t status) {
        MessageParcel empty;
        if (done) {
            done(status, empty);
        }
    };
    size_t size = data.GetDataSize();
    if (closed_) {
        return fail(IPC_ERR_DEAD_OBJECT);
    }
    if ((option.GetFlags() & MessageOption::TF_ASYNC) != 0 || size % 4 != 0) {
        return fail(IPC_ERR_INVALID_DATA);
    }
    if (size > MAX_FRAME_DATA || data.GetObjectCount() > MAX_FRAME_OBJECTS) {
        TRANSPORT_LOGW("request of %{public}zu bytes and %{public}zu objects exceeds the frame limit", size,
                       data.GetObjectCount());
        return fail(IPC_ERR_TOO_LARGE);
    }
    std::vector<ObjectEntry> entries;
    if (!ExportObjects(data.GetObjects(), entries)) {
        return fail(closed_ ? IPC_ERR_DEAD_OBJECT : IPC_ERR_INVALID_DATA);
    }
    auto call = std::make_shared<PendingCall>();
    call->reply = &call->ownReply;
    call->onDone = std::move(done);
    FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
    header.target = target;
    header.code = code;
    header.objectCount = static_cast<uint16_t>(entries.size());
    header.length = static_cast<uint32_t>(size + entries.size() * sizeof(ObjectEntry));
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (!closed_) {
            call->id = nextCallId_++;
            header.callId = call->id;
            pending_[call->id] = call.get();
            asyncCalls_[call->id] = call;
        }
    }
    if (call->id == 0) {
        Unexport(entries);
        return fail(IPC_ERR_DEAD_OBJECT);
    }
    bool nothingWritten = false;
    int32_t status = WriteFrame(&header, data.GetData(), size, entries,
                                Clock::now() + std::chrono::seconds(MessageOption::TF_WAIT_TIME), &nothingWritten);
    if (status != IPC_OK) {
        if (nothingWritten) {
            Unexport(entries);
        }
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
        // Close() may have taken the call already and posted its completion.
        if (mine != nullptr) {
            fail(status);
        }
    }
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
    IpcRuntime::Get().Post([owned]() {
        owned->reply->SetObjects(std::move(owned->objects));
        int32_t status = owned->transportStatus != IPC_OK ? owned->transportStatus
                         : owned->refusedSize != 0       ? IPC_ERR_TOO_LARGE
                                                         : owned->remoteStatus;
        if (owned->onDone) {
            owned->onDone(status, *owned->reply);
        }
    });
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
    abandoned_.insert(callId);
    abandonedOrder_.push_back(callId);
    if (abandonedOrder_.size() > MAX_ABANDONED_CALLS) {
        abandoned_.erase(abandonedOrder_.front());
        abandonedOrder_.pop_front();
    }
}

void Connection::Dispatch(const std::shared_ptr<IncomingCall>& call)
{
    auto self = shared_from_this();
    if (!IpcRuntime::Get().Post([self, call]() { self->RunIncoming(*call); })) {
        TRANSPORT_LOGE("no IPC thread for a call on %{public}s", name_.c_str());
        FinishIncoming();
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
    FinishIncoming();
}

void Connection::DrainOneWay()
{
    // One-way calls of a connection run one after another, in the order they
    // arrived.
    for (;;) {
        std::shared_ptr<IncomingCall> call;
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (oneWayQueue_.empty()) {
                oneWayRunning_ = false;
                return;
            }
            call = std::move(oneWayQueue_.front());
            oneWayQueue_.pop_front();
        }
        RunIncoming(*call);
    }
}

void Connection::FinishIncoming()
{
    std::lock_guard<std::mutex> lock(mu_);
    --incoming_;
    if (throttled_ && incoming_ < SOFT_INCOMING_LIMIT) {
        throttled_ = false;
        HandOffReadingLocked();
    }
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
    } else if (!ExportObjects(reply.GetObjects(), entries)) {
        if (closed_) {
            return;
        }
        header.code = static_cast<uint32_t>(IPC_ERR_INVALID_DATA);
        size = 0;
    }
    header.objectCount = static_cast<uint16_t>(entries.size());
    header.length = static_cast<uint32_t>(size + entries.size() * sizeof(ObjectEntry));
    bool nothingWritten = false;
    if (WriteFrame(&header, data, size, entries, Clock::now() + BACKGROUND_WRITE_TIMEOUT, &nothingWritten) != IPC_OK &&
        nothingWritten) {
        Unexport(entries);
    }
}

// --- reading ----------------------------------------------------------------

void Connection::TakeRoleLocked()
{
    roleTaken_ = true;
    // A caller reads with poll(); an armed socket would also wake an IPC
    // thread for every reply.
    if (armed_) {
        IpcRuntime::Get().Disarm(key_, fd_);
        armed_ = false;
    }
}

void Connection::ReleaseRole()
{
    std::lock_guard<std::mutex> lock(mu_);
    roleTaken_ = false;
    HandOffReadingLocked();
}

void Connection::HandOffReadingLocked()
{
    if (closed_ || roleTaken_) {
        return;
    }
    if (!waiters_.empty()) {
        waiters_.front()->cv.notify_one();
        return;
    }
    if (incoming_ >= SOFT_INCOMING_LIMIT) {
        throttled_ = true;
        return;
    }
    if (!armed_) {
        armed_ = IpcRuntime::Get().Arm(key_, fd_);
    }
}

void Connection::OnReady(uint32_t /* events */)
{
    {
        std::lock_guard<std::mutex> lock(mu_);
        armed_ = false;
        if (closed_ || roleTaken_) {
            // A caller reads; it re-arms when it is done.
            return;
        }
        roleTaken_ = true;
    }
    ReadState state;
    Lead(state, Clock::time_point::max());
    state.graveyard.clear();
    if (state.inlineCall != nullptr) {
        RunIncoming(*state.inlineCall);
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
            TRANSPORT_LOGW("malformed frame from %{public}s: %{public}s", name_.c_str(), FrameErrorToString(error));
            closeReason = FrameErrorToString(error);
            break;
        }
        if (state.selfDone || state.HasOwnWork()) {
            break;
        }
        if (state.self != nullptr) {
            int timeout = RemainingMilliseconds(deadline);
            if (timeout == 0) {
                break;
            }
            pollfd pfd{fd_, POLLIN, 0};
            int ready = poll(&pfd, 1, timeout);
            if (ready == 0) {
                continue;  // the deadline check above ends the stint
            }
            if (ready < 0 && errno != EINTR) {
                closeReason = "poll failed";
                break;
            }
        }
        ssize_t count = ReadSome();
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
        closeReason = "read failed";
        break;
    }
    if (closeReason != nullptr) {
        Close(closeReason);
    }
    ReleaseRole();
}

ssize_t Connection::ReadSome()
{
    if (in_.size() - inEnd_ < READ_CHUNK / 4) {
        if (inStart_ > 0) {
            std::memmove(in_.data(), in_.data() + inStart_, inEnd_ - inStart_);
            inEnd_ -= inStart_;
            inStart_ = 0;
        }
        if (in_.size() - inEnd_ < READ_CHUNK / 4) {
            in_.resize(inEnd_ + READ_CHUNK);
        }
    }
    ssize_t count = recv(fd_, in_.data() + inEnd_, in_.size() - inEnd_, MSG_DONTWAIT);
    if (count > 0) {
        inEnd_ += static_cast<size_t>(count);
    }
    return count;
}

void Connection::ReserveInput(size_t frameSize)
{
    if (in_.size() - inStart_ >= frameSize) {
        return;
    }
    std::memmove(in_.data(), in_.data() + inStart_, inEnd_ - inStart_);
    inEnd_ -= inStart_;
    inStart_ = 0;
    if (in_.size() < frameSize) {
        // Exactly the frame: growing by resize alone would round up to twice
        // the old size.
        in_.reserve(frameSize);
        in_.resize(frameSize);
    }
}

FrameError Connection::ProcessBuffered(ReadState& state)
{
    while (inEnd_ - inStart_ >= sizeof(FrameHeader)) {
        FrameHeader header;
        std::memcpy(&header, in_.data() + inStart_, sizeof(header));
        FrameError error = CheckHeader(header);
        if (error != FrameError::NONE) {
            return error;
        }
        size_t frameSize = sizeof(FrameHeader) + header.length;
        if (inEnd_ - inStart_ < frameSize) {
            ReserveInput(frameSize);
            break;
        }
        error = ProcessFrame(header, in_.data() + inStart_ + sizeof(FrameHeader), state);
        if (error != FrameError::NONE) {
            return error;
        }
        inStart_ += frameSize;
    }
    if (inStart_ == inEnd_) {
        inStart_ = 0;
        inEnd_ = 0;
        // Give back what a large frame made the buffer grow to.
        if (in_.size() > 4 * READ_CHUNK) {
            in_.resize(READ_CHUNK);
            in_.shrink_to_fit();
        }
    }
    return FrameError::NONE;
}

FrameError Connection::ProcessFrame(const FrameHeader& header, const uint8_t* body, ReadState& state)
{
    size_t dataSize = FrameDataSize(header);
    const auto* entryBytes = body + dataSize;
    std::vector<ObjectEntry> entries(header.objectCount);
    if (header.objectCount > 0) {
        std::memcpy(entries.data(), entryBytes, entries.size() * sizeof(ObjectEntry));
    }
    switch (static_cast<FrameKind>(header.kind)) {
        case FrameKind::TRANSACTION: {
            auto call = std::make_shared<IncomingCall>();
            {
                std::lock_guard<std::mutex> lock(mu_);
                auto it = exports_.find(header.target);
                if (it == exports_.end()) {
                    return FrameError::UNKNOWN_OBJECT;
                }
                call->target = it->second.object;
            }
            std::vector<sptr<IRemoteObject>> objects;
            FrameError error = ImportObjects(entries.data(), entries.size(), objects);
            if (error != FrameError::NONE) {
                return error;
            }
            call->callId = header.callId;
            call->code = header.code;
            call->flags = header.flags;
            // CheckHeader bounded the size by the frame limit, which is a
            // parcel's default capacity, so this copy cannot be refused.
            call->data.ParseFrom(body, dataSize);
            call->data.SetObjects(std::move(objects));
            bool oneWay = header.callId == 0;
            bool startDrain = false;
            {
                std::lock_guard<std::mutex> lock(mu_);
                if (incoming_ >= HARD_INCOMING_LIMIT) {
                    return FrameError::OVERLOAD;
                }
                ++incoming_;
                if (oneWay) {
                    oneWayQueue_.push_back(std::move(call));
                    startDrain = !oneWayRunning_;
                    oneWayRunning_ = true;
                }
            }
            // An IPC thread keeps its first piece of work; a caller, or an
            // IPC thread that already has work, hands it on.
            bool keep = state.self == nullptr && !state.HasOwnWork();
            if (oneWay) {
                if (startDrain && keep) {
                    state.drainOneWay = true;
                } else if (startDrain) {
                    auto self = shared_from_this();
                    IpcRuntime::Get().Post([self]() { self->DrainOneWay(); });
                }
            } else if (keep) {
                state.inlineCall = std::move(call);
            } else {
                Dispatch(call);
            }
            return FrameError::NONE;
        }
        case FrameKind::REPLY: {
            std::vector<sptr<IRemoteObject>> objects;
            FrameError error = ImportObjects(entries.data(), entries.size(), objects);
            if (error != FrameError::NONE) {
                return error;
            }
            std::lock_guard<std::mutex> lock(mu_);
            auto it = pending_.find(header.callId);
            if (it == pending_.end()) {
                if (abandoned_.erase(header.callId) == 0) {
                    return FrameError::UNEXPECTED_REPLY;
                }
                // A late reply to a call that timed out.
                for (auto& object : objects) {
                    state.graveyard.push_back(std::move(object));
                }
                return FrameError::NONE;
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
        case FrameKind::RELEASE: {
            std::lock_guard<std::mutex> lock(mu_);
            auto it = exports_.find(header.target);
            if (it == exports_.end() || header.code > it->second.sentReferences) {
                return FrameError::UNKNOWN_OBJECT;
            }
            it->second.sentReferences -= header.code;
            if (it->second.sentReferences == 0) {
                exportIds_.erase(it->second.object.GetRefPtr());
                state.graveyard.push_back(std::move(it->second.object));
                exports_.erase(it);
            }
            return FrameError::NONE;
        }
    }
    return FrameError::BAD_KIND;
}

// --- objects ----------------------------------------------------------------

bool Connection::ExportObjects(const std::vector<sptr<IRemoteObject>>& objects, std::vector<ObjectEntry>& entries)
{
    for (const auto& object : objects) {
        if (object == nullptr) {
            TRANSPORT_LOGW("null entry in a parcel's object table");
            return false;
        }
    }
    entries.clear();
    entries.reserve(objects.size());
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) {
        return false;
    }
    for (const auto& object : objects) {
        ObjectEntry entry{};
        auto* proxy = dynamic_cast<SocketProxy*>(object.GetRefPtr());
        if (proxy != nullptr && proxy->GetConnection().get() == this) {
            entry.owner = static_cast<uint8_t>(ObjectOwner::RECEIVER);
            entry.id = proxy->GetId();
        } else {
            entry.owner = static_cast<uint8_t>(ObjectOwner::SENDER);
            entry.id = ExportLocked(object);
        }
        entries.push_back(entry);
    }
    return true;
}

uint32_t Connection::ExportLocked(const sptr<IRemoteObject>& object)
{
    auto known = exportIds_.find(object.GetRefPtr());
    if (known != exportIds_.end()) {
        if (known->second != ROOT_OBJECT_ID) {
            ++exports_[known->second].sentReferences;
        }
        return known->second;
    }
    uint32_t id = 0;
    do {
        id = nextExportId_++;
    } while (id == ROOT_OBJECT_ID || exports_.count(id) != 0);
    exports_[id] = Export{object, 1};
    exportIds_[object.GetRefPtr()] = id;
    return id;
}

void Connection::Unexport(const std::vector<ObjectEntry>& entries)
{
    std::vector<sptr<IRemoteObject>> dropped;
    std::lock_guard<std::mutex> lock(mu_);
    for (const auto& entry : entries) {
        if (entry.owner != static_cast<uint8_t>(ObjectOwner::SENDER) || entry.id == ROOT_OBJECT_ID) {
            continue;
        }
        auto it = exports_.find(entry.id);
        if (it == exports_.end()) {
            continue;
        }
        if (--it->second.sentReferences == 0) {
            exportIds_.erase(it->second.object.GetRefPtr());
            dropped.push_back(std::move(it->second.object));
            exports_.erase(it);
        }
    }
}

FrameError Connection::ImportObjects(const ObjectEntry* entries, size_t count,
                                     std::vector<sptr<IRemoteObject>>& objects)
{
    objects.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        FrameError error = CheckObjectEntry(entries[i]);
        if (error != FrameError::NONE) {
            return error;
        }
    }
    for (size_t i = 0; i < count; ++i) {
        if (entries[i].owner == static_cast<uint8_t>(ObjectOwner::RECEIVER)) {
            std::lock_guard<std::mutex> lock(mu_);
            auto it = exports_.find(entries[i].id);
            if (it == exports_.end()) {
                return FrameError::UNKNOWN_OBJECT;
            }
            objects.push_back(it->second.object);
        } else {
            sptr<IRemoteObject> proxy = ImportProxy(entries[i].id);
            if (proxy == nullptr) {
                return FrameError::OVERLOAD;
            }
            objects.push_back(std::move(proxy));
        }
    }
    return FrameError::NONE;
}

sptr<IRemoteObject> Connection::ImportProxy(uint32_t id)
{
    sptr<SocketProxy> proxy;
    std::lock_guard<std::mutex> lock(importMu_);
    uint64_t counted = id == ROOT_OBJECT_ID ? 0 : 1;
    auto it = imports_.find(id);
    if (it != imports_.end()) {
        proxy = it->second.proxy.promote();
        if (proxy == nullptr) {
            // The previous proxy is on its way out; its references carry
            // over to the new one, whose destructor releases them all.
            proxy = new (std::nothrow) SocketProxy(shared_from_this(), id);
            if (proxy == nullptr) {
                return nullptr;
            }
            it->second.proxy = proxy;
            it->second.raw = proxy.GetRefPtr();
        }
        it->second.receivedReferences += counted;
        return proxy;
    }
    proxy = new (std::nothrow) SocketProxy(shared_from_this(), id);
    if (proxy == nullptr) {
        return nullptr;
    }
    imports_[id] = Import{proxy, proxy.GetRefPtr(), counted};
    return proxy;
}

sptr<IRemoteObject> Connection::GetRootProxy()
{
    return ImportProxy(ROOT_OBJECT_ID);
}

void Connection::OnProxyDestroyed(uint32_t id, const SocketProxy* proxy)
{
    uint64_t references = 0;
    {
        std::lock_guard<std::mutex> lock(importMu_);
        auto it = imports_.find(id);
        if (it == imports_.end() || it->second.raw != proxy) {
            return;
        }
        references = it->second.receivedReferences;
        imports_.erase(it);
    }
    if (references > 0) {
        QueueRelease(id, references);
    }
}

void Connection::QueueRelease(uint32_t id, uint64_t references)
{
    bool post = false;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (closed_) {
            return;
        }
        while (references > 0) {
            uint32_t part = static_cast<uint32_t>(std::min<uint64_t>(references, UINT32_MAX));
            FrameHeader header = MakeHeader(FrameKind::RELEASE);
            header.target = id;
            header.code = part;
            pendingReleases_.push_back(header);
            references -= part;
        }
        post = !releaseFlushPosted_;
        releaseFlushPosted_ = true;
    }
    // Any frame written before the task runs takes the releases along.
    if (post) {
        auto self = shared_from_this();
        IpcRuntime::Get().Post([self]() { self->FlushReleases(); });
    }
}

void Connection::FlushReleases()
{
    {
        std::lock_guard<std::mutex> lock(mu_);
        releaseFlushPosted_ = false;
    }
    bool nothingWritten = false;
    WriteFrame(nullptr, nullptr, 0, {}, Clock::now() + BACKGROUND_WRITE_TIMEOUT, &nothingWritten);
}

// --- writing ----------------------------------------------------------------

int32_t Connection::WriteFrame(const FrameHeader* header, const uint8_t* data, size_t size,
                               const std::vector<ObjectEntry>& entries, Clock::time_point deadline,
                               bool* nothingWritten)
{
    // Only a caller's own request has a caller to tell about a time-out.
    bool background = header == nullptr || header->kind != static_cast<uint8_t>(FrameKind::TRANSACTION);
    *nothingWritten = true;
    const char* closeReason = nullptr;
    int32_t status = IPC_OK;
    {
        std::lock_guard<std::mutex> writeLock(writeMu_);
        std::vector<FrameHeader> releases;
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (closed_) {
                return IPC_ERR_DEAD_OBJECT;
            }
            releases.swap(pendingReleases_);
        }
        iovec iov[4];
        int iovCount = 0;
        if (!releases.empty()) {
            iov[iovCount++] = {releases.data(), releases.size() * sizeof(FrameHeader)};
        }
        if (header != nullptr) {
            iov[iovCount++] = {const_cast<FrameHeader*>(header), sizeof(FrameHeader)};
            if (size > 0) {
                iov[iovCount++] = {const_cast<uint8_t*>(data), size};
            }
            if (!entries.empty()) {
                iov[iovCount++] = {const_cast<ObjectEntry*>(entries.data()), entries.size() * sizeof(ObjectEntry)};
            }
        }
        if (iovCount == 0) {
            return IPC_OK;
        }
        msghdr message{};
        message.msg_iov = iov;
        message.msg_iovlen = static_cast<size_t>(iovCount);
        while (message.msg_iovlen > 0) {
            ssize_t written = sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (written > 0) {
                *nothingWritten = false;
                auto remaining = static_cast<size_t>(written);
                while (message.msg_iovlen > 0 && remaining >= message.msg_iov->iov_len) {
                    remaining -= message.msg_iov->iov_len;
                    ++message.msg_iov;
                    --message.msg_iovlen;
                }
                if (message.msg_iovlen > 0) {
                    message.msg_iov->iov_base = static_cast<uint8_t*>(message.msg_iov->iov_base) + remaining;
                    message.msg_iov->iov_len -= remaining;
                }
                continue;
            }
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                int timeout = RemainingMilliseconds(deadline);
                if (timeout != 0) {
                    pollfd pfd{fd_, POLLOUT, 0};
                    int ready = poll(&pfd, 1, timeout);
                    if (ready > 0 || (ready < 0 && errno == EINTR)) {
                        continue;
                    }
                }
                status = IPC_ERR_TIMED_OUT;
                // Half a frame in the stream cannot be taken back; and a
                // peer that takes no reply or release for this long is stuck.
                if (!*nothingWritten) {
                    closeReason = "write timed out in the middle of a frame";
                } else if (background) {
                    closeReason = "peer takes no data";
                }
                break;
            }
            status = IPC_ERR_DEAD_OBJECT;
            closeReason = "write failed";
            break;
        }
        if (*nothingWritten && status != IPC_OK && !releases.empty()) {
            std::lock_guard<std::mutex> lock(mu_);
            pendingReleases_.insert(pendingReleases_.begin(), releases.begin(), releases.end());
        }
    }
    if (closeReason != nullptr) {
        Close(closeReason);
    }
    return status;
}

// --- closing ----------------------------------------------------------------

void Connection::Close(const char* reason)
{
    std::vector<sptr<IRemoteObject>> dropped;
    std::vector<sptr<SocketProxy>> proxies;
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
        for (auto& entry : exports_) {
            dropped.push_back(std::move(entry.second.object));
        }
        exports_.clear();
        exportIds_.clear();
        pendingReleases_.clear();
        abandoned_.clear();
        abandonedOrder_.clear();
        // Queued one-way calls still run: a peer may well send its last
        // request and hang up.
    }
    {
        std::lock_guard<std::mutex> lock(importMu_);
        for (auto& entry : imports_) {
            sptr<SocketProxy> proxy = entry.second.proxy.promote();
            if (proxy != nullptr) {
                proxies.push_back(std::move(proxy));
            }
        }
        imports_.clear();
    }
    // Wakes a caller blocked in poll() on the socket; the descriptor itself
    // is closed by the destructor.
    shutdown(fd_, SHUT_RDWR);
    IpcRuntime::Get().Unregister(key_, fd_);
    TRANSPORT_LOGI("connection %{public}s closed: %{public}s", name_.c_str(), reason);
    if (!proxies.empty()) {
        IpcRuntime::Get().Post([proxies]() {
            for (const auto& proxy : proxies) {
                proxy->NotifyDeath();
            }
        });
    }
    // `dropped` goes here, outside every lock: dropping an exported stub
    // runs its destructor.
}

// --- statistics -------------------------------------------------------------

size_t Connection::ExportCount() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return exports_.size() - exports_.count(ROOT_OBJECT_ID);
}

size_t Connection::ImportCount() const
{
    std::lock_guard<std::mutex> lock(importMu_);
    return imports_.size() - imports_.count(ROOT_OBJECT_ID);
}

size_t Connection::PendingCallCount() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return pending_.size();
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
}  // namespace Tavik
