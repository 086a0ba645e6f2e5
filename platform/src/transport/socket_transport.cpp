#include "socket_transport.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "message_option.h"
#include "transport/ability_watch.h"
#include "transport/ipc_runtime.h"
#include "transport/runtime_dir.h"
#include "transport/socket_connection.h"
#include "transport/socket_transport_internal.h"
#include "transport/transport_log.h"

namespace Tavik {

namespace {

using Transport::Connection;
using Transport::IpcRuntime;

// Accepts the connections of one published ability.
class Listener : public Transport::Pollable {
public:
    Listener(int fd, sptr<IRemoteObject> object, int32_t systemAbilityId)
        : fd_(fd), object_(std::move(object)), systemAbilityId_(systemAbilityId)
    {
    }
    ~Listener() override { close(fd_); }

    void SetKey(uint64_t key) { key_ = key; }

    void Stop()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopped_ = true;
        }
        IpcRuntime::Get().Unregister(key_, fd_);
    }

    void OnReady(uint32_t /* events */) override
    {
        for (;;) {
            int fd = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (fd < 0) {
                if (errno == EINTR || errno == ECONNABORTED) {
                    continue;
                }
                if (errno == EMFILE || errno == ENFILE) {
                    TRANSPORT_LOGE("accept on sa %{public}d failed: %{public}s", systemAbilityId_,
                                   std::strerror(errno));
                    // The pending connection keeps the socket readable; do
                    // not spin on it while descriptors are short.
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
                    TRANSPORT_LOGE("accept on sa %{public}d failed: %{public}s", systemAbilityId_,
                                   std::strerror(errno));
                }
                break;
            }
            Accept(fd);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        if (!stopped_) {
            IpcRuntime::Get().Arm(key_, fd_, EPOLLIN);
        }
    }

private:
    void Accept(int fd)
    {
        Transport::PeerCredentials peer;
        if (!Transport::GetPeerCredentials(fd, peer)) {
            // Without credentials there is no pid to key the line by: such
            // peers share the lines of key 0.
            if (Transport::AllowPeerLine(0)) {
                TRANSPORT_LOGW("no credentials for a peer of sa %{public}d: %{public}s", systemAbilityId_,
                               std::strerror(errno));
            }
            Transport::CountRefused();
            close(fd);
            return;
        }
        if (!Transport::IsTrustedPeer(peer.uid)) {
            if (Transport::AllowPeerLine(peer.pid)) {
                TRANSPORT_LOGW("refused pid %{public}d uid %{public}u on sa %{public}d", static_cast<int>(peer.pid),
                               static_cast<unsigned>(peer.uid), systemAbilityId_);
            }
            Transport::CountRefused();
            close(fd);
            return;
        }
        std::string name = "sa " + std::to_string(systemAbilityId_) + " <- pid " + std::to_string(peer.pid);
        Transport::CountAccepted();
        Connection::Create(fd, object_, std::move(name), systemAbilityId_);
    }

    const int fd_;
    const sptr<IRemoteObject> object_;
    const int32_t systemAbilityId_;
    uint64_t key_ = 0;
    std::mutex mutex_;
    bool stopped_ = false;
};

struct Publication {
    std::shared_ptr<Listener> listener;
    int lockFd = -1;
    std::string socketPath;
    std::string lockPath;
    // False for a socket passed by a supervisor, whose path outlives us.
    bool ownsSocket = true;
};

struct TransportState {
    std::mutex publishMutex;
    std::unordered_map<int32_t, Publication> publications;
    std::mutex connectMutex;
    std::unordered_map<int32_t, std::weak_ptr<Connection>> clients;
};

TransportState& State()
{
    // Immortal, like the IPC runtime it works with.
    static auto* state = new TransportState();
    return *state;
}

// Takes the per-id lock file, held for as long as the id is published. The
// kernel drops the lock when the process dies, so a crashed server's
// leftovers never block its successor.
int AcquirePublishLock(const std::string& lockPath, PublishStatus& status)
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        int fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) {
            TRANSPORT_LOGE("cannot open %{public}s: %{public}s", lockPath.c_str(), std::strerror(errno));
            status = PublishStatus::SOCKET_ERROR;
            return -1;
        }
        if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
            int error = errno;
            close(fd);
            status = error == EWOULDBLOCK ? PublishStatus::ALREADY_PUBLISHED : PublishStatus::SOCKET_ERROR;
            return -1;
        }
        // An unpublishing server unlinks the file it held; a lock on the
        // unlinked file would exclude nobody.
        struct stat held {};
        struct stat named {};
        if (fstat(fd, &held) == 0 && stat(lockPath.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
            held.st_dev == named.st_dev) {
            return fd;
        }
        close(fd);
    }
    status = PublishStatus::SOCKET_ERROR;
    return -1;
}

// True when something accepts connections on the path.
bool ServerAnswers(const sockaddr_un& address, socklen_t length)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return false;
    }
    int result = connect(fd, reinterpret_cast<const sockaddr*>(&address), length);
    // EAGAIN: a live listener whose backlog is full.
    bool answers = result == 0 || errno == EAGAIN;
    close(fd);
    return answers;
}

}  // namespace

const char* PublishStatusToString(PublishStatus status)
{
    switch (status) {
        case PublishStatus::OK:
            return "OK";
        case PublishStatus::INVALID_ARGUMENT:
            return "INVALID_ARGUMENT";
        case PublishStatus::RUNTIME_DIR_UNUSABLE:
            return "RUNTIME_DIR_UNUSABLE";
        case PublishStatus::ALREADY_PUBLISHED:
            return "ALREADY_PUBLISHED";
        case PublishStatus::SOCKET_ERROR:
            return "SOCKET_ERROR";
        case PublishStatus::SOCKET_MISMATCH:
            return "SOCKET_MISMATCH";
    }
    return "UNKNOWN";
}

std::string GetRuntimeDirectory()
{
    return Transport::ResolveRuntimeDirectory();
}

std::string GetSystemAbilitySocketPath(int32_t systemAbilityId)
{
    return Transport::SocketPathIn(Transport::ResolveRuntimeDirectory(), systemAbilityId);
}

namespace {

// The part both publish paths share, run under the publish mutex: the
// argument checks, the runtime directory and the lock file. On OK the
// publication holds its paths and its lock, and `address` the socket's.
PublishStatus BeginPublication(TransportState& state, int32_t systemAbilityId, const sptr<IRemoteObject>& object,
                               Publication& publication, sockaddr_un& address, socklen_t& length)
{
    if (object == nullptr || systemAbilityId < 0) {
        TRANSPORT_LOGE("cannot publish sa %{public}d: no object or a negative id", systemAbilityId);
        return PublishStatus::INVALID_ARGUMENT;
    }
    if (state.publications.count(systemAbilityId) != 0) {
        TRANSPORT_LOGE("sa %{public}d is already published by this process", systemAbilityId);
        return PublishStatus::ALREADY_PUBLISHED;
    }
    std::string dir = Transport::ResolveRuntimeDirectory();
    publication.socketPath = Transport::SocketPathIn(dir, systemAbilityId);
    publication.lockPath = Transport::LockPathIn(dir, systemAbilityId);
    if (!Transport::MakeSocketAddress(publication.socketPath, address, length)) {
        TRANSPORT_LOGE("socket path %{public}s is too long", publication.socketPath.c_str());
        return PublishStatus::RUNTIME_DIR_UNUSABLE;
    }
    if (!Transport::PrepareRuntimeDirectory(dir)) {
        return PublishStatus::RUNTIME_DIR_UNUSABLE;
    }
    PublishStatus status = PublishStatus::OK;
    publication.lockFd = AcquirePublishLock(publication.lockPath, status);
    if (publication.lockFd < 0) {
        TRANSPORT_LOGE("cannot publish sa %{public}d: %{public}s", systemAbilityId, PublishStatusToString(status));
        return status;
    }
    return PublishStatus::OK;
}

// Hands the listening socket `fd` to the IPC threads and records the
// publication. On failure the socket is closed and the lock released.
PublishStatus FinishPublication(TransportState& state, int32_t systemAbilityId, const sptr<IRemoteObject>& object,
                                int fd, Publication& publication)
{
    publication.listener = std::make_shared<Listener>(fd, object, systemAbilityId);
    uint64_t key = IpcRuntime::Get().ReserveKey();
    publication.listener->SetKey(key);
    if (!IpcRuntime::Get().Register(key, publication.listener, fd, EPOLLIN)) {
        if (publication.ownsSocket) {
            unlink(publication.socketPath.c_str());
        }
        close(publication.lockFd);
        Transport::NotePublished(systemAbilityId, false);
        return PublishStatus::SOCKET_ERROR;
    }
    TRANSPORT_LOGI("sa %{public}d published at %{public}s%{public}s", systemAbilityId, publication.socketPath.c_str(),
                   publication.ownsSocket ? "" : " (socket passed by the supervisor)");
    state.publications[systemAbilityId] = std::move(publication);
    Transport::NotePublished(systemAbilityId, true);
    return PublishStatus::OK;
}

// Why `fd` cannot serve at `path`, or empty when it can: it must be a
// listening Unix stream socket whose bound name is `path`, and `path` a
// socket of this user's.
std::string CheckPassedSocket(int fd, const std::string& path)
{
    int type = 0;
    int domain = 0;
    int listening = 0;
    socklen_t size = sizeof(int);
    if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) != 0) {
        return errno == ENOTSOCK ? "not a socket" : std::string("unusable: ") + std::strerror(errno);
    }
    size = sizeof(int);
    if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 || domain != AF_UNIX) {
        return "not a Unix socket";
    }
    if (type != SOCK_STREAM) {
        return "not a stream socket";
    }
    size = sizeof(int);
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) != 0 || listening == 0) {
        return "not listening";
    }
    sockaddr_un bound{};
    socklen_t boundLength = sizeof(bound);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &boundLength) != 0 ||
        boundLength <= offsetof(sockaddr_un, sun_path) || bound.sun_path[0] == '\0') {
        return "not bound to a path";
    }
    size_t nameLength = boundLength - offsetof(sockaddr_un, sun_path);
    std::string name(bound.sun_path, strnlen(bound.sun_path, nameLength));
    if (name != path) {
        // The bound name is the supervisor's configuration, not a peer's.
        return "bound to " + name;
    }
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) {
        return "no longer at its path";
    }
    if (info.st_uid != geteuid()) {
        return "owned by uid " + std::to_string(info.st_uid);
    }
    return "";
}

}  // namespace

PublishStatus PublishSystemAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& object)
{
    TransportState& state = State();
    std::lock_guard<std::mutex> lock(state.publishMutex);
    Publication publication;
    sockaddr_un address{};
    socklen_t length = 0;
    PublishStatus status = BeginPublication(state, systemAbilityId, object, publication, address, length);
    if (status != PublishStatus::OK) {
        return status;
    }
    auto fail = [&publication, systemAbilityId](PublishStatus result) {
        close(publication.lockFd);
        Transport::NotePublished(systemAbilityId, false);
        return result;
    };
    if (ServerAnswers(address, length)) {
        TRANSPORT_LOGE("cannot publish sa %{public}d: a server already answers on %{public}s", systemAbilityId,
                       publication.socketPath.c_str());
        return fail(PublishStatus::ALREADY_PUBLISHED);
    }
    // Bound under a staging name and renamed once it listens: whoever sees
    // the socket appear (a subscriber's inotify watch) can connect at once.
    // The rename replaces what a dead server left at the path.
    std::string dir = publication.socketPath.substr(0, publication.socketPath.rfind('/'));
    std::string staging = Transport::StagingSocketPathIn(dir, systemAbilityId);
    Transport::NotePublishing(systemAbilityId);
    sockaddr_un stagingAddress{};
    socklen_t stagingLength = 0;
    Transport::MakeSocketAddress(staging, stagingAddress, stagingLength);
    unlink(staging.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        TRANSPORT_LOGE("socket failed: %{public}s", std::strerror(errno));
        return fail(PublishStatus::SOCKET_ERROR);
    }
    if (bind(fd, reinterpret_cast<const sockaddr*>(&stagingAddress), stagingLength) != 0 ||
        chmod(staging.c_str(), 0600) != 0 || listen(fd, Transport::LISTEN_BACKLOG) != 0 ||
        rename(staging.c_str(), publication.socketPath.c_str()) != 0) {
        TRANSPORT_LOGE("cannot listen on %{public}s: %{public}s", publication.socketPath.c_str(), std::strerror(errno));
        close(fd);
        unlink(staging.c_str());
        return fail(PublishStatus::SOCKET_ERROR);
    }
    return FinishPublication(state, systemAbilityId, object, fd, publication);
}

PublishStatus PublishSystemAbilityOnSocket(int32_t systemAbilityId, const sptr<IRemoteObject>& object, int listenFd)
{
    if (listenFd < 0) {
        TRANSPORT_LOGE("cannot publish sa %{public}d: no socket", systemAbilityId);
        return PublishStatus::INVALID_ARGUMENT;
    }
    TransportState& state = State();
    std::lock_guard<std::mutex> lock(state.publishMutex);
    Publication publication;
    publication.ownsSocket = false;
    sockaddr_un address{};
    socklen_t length = 0;
    PublishStatus status = BeginPublication(state, systemAbilityId, object, publication, address, length);
    if (status != PublishStatus::OK) {
        close(listenFd);
        return status;
    }
    // No probe for a live server here: the lock says there is none, and a
    // probe would only reach our own socket.
    std::string why = CheckPassedSocket(listenFd, publication.socketPath);
    int flags = fcntl(listenFd, F_GETFL);
    if (why.empty() &&
        (flags < 0 || fcntl(listenFd, F_SETFL, flags | O_NONBLOCK) != 0 || fcntl(listenFd, F_SETFD, FD_CLOEXEC) != 0 ||
         chmod(publication.socketPath.c_str(), 0600) != 0)) {
        why = std::string("unusable: ") + std::strerror(errno);
    }
    if (!why.empty()) {
        TRANSPORT_LOGE(
            "cannot publish sa %{public}d on the passed socket (fd %{public}d), which must be a listening Unix "
            "stream socket at %{public}s: it is %{public}s",
            systemAbilityId, listenFd, publication.socketPath.c_str(), why.c_str());
        close(listenFd);
        close(publication.lockFd);
        return PublishStatus::SOCKET_MISMATCH;
    }
    Transport::NotePublishing(systemAbilityId);
    return FinishPublication(state, systemAbilityId, object, listenFd, publication);
}

bool UnpublishSystemAbility(int32_t systemAbilityId)
{
    Publication publication;
    {
        TransportState& state = State();
        std::lock_guard<std::mutex> lock(state.publishMutex);
        auto it = state.publications.find(systemAbilityId);
        if (it == state.publications.end()) {
            TRANSPORT_LOGW("sa %{public}d is not published by this process", systemAbilityId);
            return false;
        }
        publication = std::move(it->second);
        state.publications.erase(it);
        publication.listener->Stop();
        if (publication.ownsSocket) {
            unlink(publication.socketPath.c_str());
        }
        // Unlinked while still locked, so a successor that opened the old
        // file notices and opens the new one.
        unlink(publication.lockPath.c_str());
        close(publication.lockFd);
    }
    {
        // A lookup made in this process while it served the id connected to
        // itself; later lookups must not find that connection to a
        // publication that has ended (its holders keep it while they like).
        TransportState& state = State();
        std::lock_guard<std::mutex> lock(state.connectMutex);
        auto known = state.clients.find(systemAbilityId);
        std::shared_ptr<Connection> connection = known != state.clients.end() ? known->second.lock() : nullptr;
        if (connection != nullptr && connection->GetPeer().pid == getpid()) {
            state.clients.erase(known);
        }
    }
    TRANSPORT_LOGI("sa %{public}d unpublished", systemAbilityId);
    Transport::NotePublished(systemAbilityId, false);
    return true;
}

bool DisconnectPeer(uint64_t connectionId, const char* reason)
{
    for (const auto& pollable : IpcRuntime::Get().Snapshot()) {
        auto connection = std::dynamic_pointer_cast<Connection>(pollable);
        if (connection != nullptr && connection->GetPeer().connectionId == connectionId) {
            TRANSPORT_LOGW("disconnecting %{public}s: %{public}s", connection->GetName().c_str(), reason);
            connection->Close(reason);
            return true;
        }
    }
    return false;
}

namespace {

// `wait`: a blocking connect, which waits (at most the send time-out) while
// the server's backlog is full; else a non-blocking one, which gives up.
sptr<IRemoteObject> Connect(int32_t systemAbilityId, bool wait)
{
    if (systemAbilityId < 0) {
        return nullptr;
    }
    TransportState& state = State();
    std::lock_guard<std::mutex> lock(state.connectMutex);
    auto known = state.clients.find(systemAbilityId);
    if (known != state.clients.end()) {
        std::shared_ptr<Connection> connection = known->second.lock();
        if (connection != nullptr && !connection->IsClosed()) {
            return connection->GetRootProxy();
        }
        state.clients.erase(known);
    }
    std::string path = GetSystemAbilitySocketPath(systemAbilityId);
    sockaddr_un address{};
    socklen_t length = 0;
    if (!Transport::MakeSocketAddress(path, address, length)) {
        TRANSPORT_LOGW("socket path %{public}s is too long", path.c_str());
        return nullptr;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (wait ? 0 : SOCK_NONBLOCK), 0);
    if (fd < 0) {
        TRANSPORT_LOGE("socket failed: %{public}s", std::strerror(errno));
        return nullptr;
    }
    // A server that stopped accepting fills its backlog; do not wait for it
    // longer than for any reply.
    timeval timeout{Transport::CONNECT_TIMEOUT_SECONDS, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        // No socket, or nobody behind it: the ability is simply not running,
        // and the caller reports that in its own words.
        if (errno != ENOENT && errno != ECONNREFUSED && (wait || errno != EAGAIN)) {
            TRANSPORT_LOGW("cannot connect to sa %{public}d at %{public}s: %{public}s", systemAbilityId, path.c_str(),
                           std::strerror(errno));
        }
        close(fd);
        return nullptr;
    }
    Transport::PeerCredentials peer;
    if (!Transport::GetPeerCredentials(fd, peer) || !Transport::IsTrustedPeer(peer.uid)) {
        TRANSPORT_LOGW("refused the server of sa %{public}d (pid %{public}d uid %{public}u)", systemAbilityId,
                       static_cast<int>(peer.pid), static_cast<unsigned>(peer.uid));
        close(fd);
        return nullptr;
    }
    std::string name = "sa " + std::to_string(systemAbilityId) + " -> pid " + std::to_string(peer.pid);
    std::shared_ptr<Connection> connection = Connection::Create(fd, nullptr, std::move(name), systemAbilityId);
    if (connection == nullptr) {
        return nullptr;
    }
    state.clients[systemAbilityId] = connection;
    return connection->GetRootProxy();
}

}  // namespace

sptr<IRemoteObject> ConnectSystemAbility(int32_t systemAbilityId)
{
    return Connect(systemAbilityId, true);
}

namespace Transport {

sptr<IRemoteObject> ConnectSystemAbilityNow(int32_t systemAbilityId)
{
    return Connect(systemAbilityId, false);
}

}  // namespace Transport

}  // namespace Tavik
