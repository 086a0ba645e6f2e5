#include "transport/ability_watch.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ipc_status.h"
#include "iremote_object.h"
#include "peer_identity.h"
#include "transport/ipc_runtime.h"
#include "transport/runtime_dir.h"
#include "transport/socket_transport_internal.h"
#include "transport/transport_log.h"

namespace Tavik {
namespace Transport {

namespace {

// The socket appearing (bound in place, or renamed into place) in a watched
// directory, a folder of the path appearing in a watched ancestor, and the
// watched directory itself going away or being replaced.
constexpr uint32_t DIRECTORY_EVENTS = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// Reads per wake-up; a directory flooded with other files cannot keep one
// IPC thread here: the rest waits for the next wake-up.
constexpr int MAX_READS_PER_WAKEUP = 16;
// Attempts to settle on a watch while folders of the path come and go.
constexpr int MAX_REPLAN_ATTEMPTS = 8;

bool IsDirectory(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string Parent(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// The folder of `target` right below `ancestor` ("b" for /a and /a/b/c).
std::string NextComponent(const std::string& ancestor, const std::string& target)
{
    size_t start = ancestor == "/" ? 1 : ancestor.size() + 1;
    size_t end = target.find('/', start);
    return target.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// Absolute, without a trailing slash, so that paths compare as strings.
std::string Absolute(const std::string& path)
{
    std::string result = path;
    if (result.empty() || result[0] != '/') {
        char cwd[PATH_MAX];
        result = (getcwd(cwd, sizeof(cwd)) != nullptr ? std::string(cwd) : std::string()) + "/" + result;
    }
    while (result.size() > 1 && result.back() == '/') {
        result.pop_back();
    }
    return result;
}

// True while the process is being torn down: the kernel closes its
// descriptors one by one, so a connection to it can end while its listening
// socket still accepts for a moment. PF_EXITING is bit 0x4 of the flags,
// field 9 of /proc/<pid>/stat, set before any descriptor closes. A process
// that is gone already counts as exiting. Only the fields after the
// command name's closing parenthesis are read: the name is the peer's.
bool ProcessIsExiting(pid_t pid)
{
    constexpr unsigned long PF_EXITING_FLAG = 0x4;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (pid <= 0 || !std::getline(stat, line)) {
        return pid > 0;
    }
    size_t close = line.rfind(')');
    if (close == std::string::npos) {
        return false;
    }
    // state ppid pgrp session tty_nr tpgid flags
    std::istringstream fields(line.substr(close + 1));
    std::string skipped;
    unsigned long flags = 0;
    for (int i = 0; i < 6; ++i) {
        fields >> skipped;
    }
    return (fields >> flags) && (flags & PF_EXITING_FLAG) != 0;
}

class InotifySource;

// One notice for one listener.
struct Notice {
    int32_t systemAbilityId;
    bool available;
};

// A listener object with its queue. Lives while it has subscriptions or a
// delivery is under way, so that a listener that unsubscribes and subscribes
// again from inside a notification keeps its one queue and one deliverer.
struct ListenerState {
    sptr<SystemAbilityListener> listener;
    std::set<int32_t> ids;
    std::deque<Notice> pending;
    bool delivering = false;
};

// The death recipient on a watch's connection.
class WatchRecipient : public IRemoteObject::DeathRecipient {
public:
    explicit WatchRecipient(int32_t systemAbilityId) : systemAbilityId_(systemAbilityId) {}
    void OnRemoteDied(const wptr<IRemoteObject>& object) override;

private:
    const int32_t systemAbilityId_;
};

// Which object GetSystemAbility returns for the id: the in-process one
// first, then this process's publication, then the server's connection;
// each with a generation, so that a replaced object differs from the one
// before it. Listeners hear of every change: gone, then available.
struct Source {
    enum Kind { NONE, LOCAL, PUBLISHED, REMOTE };
    Kind kind = NONE;
    uint64_t generation = 0;
    bool operator==(const Source& other) const { return kind == other.kind && generation == other.generation; }
};

struct Watch {
    std::string directory;
    std::string socketName;
    // Generation of the in-process object; 0 for none.
    uint64_t local = 0;
    bool publishedHere = false;
    sptr<IRemoteObject> remote;
    sptr<IRemoteObject::DeathRecipient> recipient;
    uint64_t remoteGeneration = 0;
    // `remote` leads to a server that is exiting: held, not announced, so
    // that its end (soon) makes the watch look again.
    bool remoteExiting = false;
    Source current;
    // The inotify watch: on `directory` itself, or on its nearest existing
    // ancestor, whose child `nextComponent` is awaited.
    int wd = -1;
    bool onDirectory = false;
    std::string nextComponent;
    std::vector<std::shared_ptr<ListenerState>> listeners;
};

struct RawEvent {
    int wd;
    uint32_t mask;
    std::string name;
};

// What a locked section leaves to do once the lock is released.
struct Followups {
    std::vector<std::shared_ptr<ListenerState>> deliver;
    std::set<int32_t> probe;
    // Released outside the lock: a proxy's destructor reaches into its
    // connection.
    std::vector<std::pair<sptr<IRemoteObject>, sptr<IRemoteObject::DeathRecipient>>> drop;
};

class AbilityWatcher {
public:
    static AbilityWatcher& Get()
    {
        // Immortal, like the IPC runtime that calls into it.
        static auto* watcher = new AbilityWatcher();
        return *watcher;
    }

    int32_t Subscribe(int32_t id, const sptr<SystemAbilityListener>& listener);
    int32_t Unsubscribe(int32_t id, const sptr<SystemAbilityListener>& listener);
    void NoteLocal(int32_t id, bool present);
    void NotePublishing(int32_t id);
    void NotePublished(int32_t id, bool published);
    void OnRemoteDied(int32_t id, const IRemoteObject* object);
    void OnInotifyReadable(InotifySource& source);

private:
    AbilityWatcher() = default;

    // --- under mutex_ ---
    void UpdateLocked(int32_t id, Watch& watch, Followups& todo);
    void EnqueueLocked(const std::shared_ptr<ListenerState>& state, Notice notice, Followups& todo);
    void ReplanLocked(int32_t id, Watch& watch, Followups& todo);
    void ReleaseWdLocked(int wd);
    // A watched id with no connection, served by no publication of ours.
    bool WantsConnectionLocked(int32_t id) const;
    void RouteLocked(const RawEvent& event, std::set<int32_t>& replan, Followups& todo);

    // --- without mutex_ ---
    void Run(Followups& todo);
    void Probe(int32_t id, Followups& todo);
    void Deliver(const std::shared_ptr<ListenerState>& state);

    std::mutex mutex_;
    std::map<int32_t, Watch> watches_;
    std::map<const SystemAbilityListener*, std::shared_ptr<ListenerState>> listeners_;
    // Kept for every id, watched or not, so that a watch starts from the
    // truth: the generation of each id's in-process object, and the ids
    // this process publishes.
    std::map<int32_t, uint64_t> localIds_;
    uint64_t nextGeneration_ = 1;
    std::set<int32_t> publishedIds_;
    std::set<int32_t> publishingIds_;
    std::shared_ptr<InotifySource> inotify_;
    // Watches per inotify watch descriptor: ids in one directory share one.
    std::map<int, int> wdUsers_;
};

// The inotify descriptor in the IPC runtime's epoll set. All the watcher's
// use of the runtime is here: register, re-arm after each wake-up,
// unregister. The descriptor closes when the last owner lets go (the
// runtime, the watcher, or a thread still in OnReady), so no thread reads a
// reused descriptor number.
class InotifySource : public Pollable {
public:
    static std::shared_ptr<InotifySource> Create()
    {
        int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (fd < 0) {
            TRANSPORT_LOGE("inotify_init1 failed: %{public}s", std::strerror(errno));
            return nullptr;
        }
        auto source = std::shared_ptr<InotifySource>(new InotifySource(fd, IpcRuntime::Get().ReserveKey()));
        if (!IpcRuntime::Get().Register(source->key_, source, fd, EPOLLIN)) {
            return nullptr;
        }
        return source;
    }
    ~InotifySource() override { close(fd_); }

    int Fd() const { return fd_; }

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
        AbilityWatcher::Get().OnInotifyReadable(*this);
        std::lock_guard<std::mutex> lock(mutex_);
        if (!stopped_) {
            IpcRuntime::Get().Arm(key_, fd_, EPOLLIN);
        }
    }

private:
    InotifySource(int fd, uint64_t key) : fd_(fd), key_(key) {}

    const int fd_;
    const uint64_t key_;
    std::mutex mutex_;
    bool stopped_ = false;
};

void WatchRecipient::OnRemoteDied(const wptr<IRemoteObject>& object)
{
    AbilityWatcher::Get().OnRemoteDied(systemAbilityId_, object.GetRefPtr());
}

int32_t AbilityWatcher::Subscribe(int32_t id, const sptr<SystemAbilityListener>& listener)
{
    if (listener == nullptr || id < 0) {
        return IPC_ERR_INVALID_DATA;
    }
    Followups todo;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::shared_ptr<ListenerState>& state = listeners_[listener.GetRefPtr()];
        if (state == nullptr) {
            state = std::make_shared<ListenerState>();
            state->listener = listener;
        }
        if (!state->ids.insert(id).second) {
            return IPC_OK;
        }
        auto found = watches_.find(id);
        if (found != watches_.end()) {
            found->second.listeners.push_back(state);
            if (found->second.current.kind != Source::NONE) {
                EnqueueLocked(state, Notice{id, true}, todo);
            }
        } else {
            Watch& watch = watches_[id];
            watch.directory = Absolute(ResolveRuntimeDirectory());
            watch.socketName = SocketNameOf(id);
            auto local = localIds_.find(id);
            watch.local = local != localIds_.end() ? local->second : 0;
            watch.publishedHere = publishedIds_.count(id) != 0;
            watch.listeners.push_back(state);
            if (inotify_ == nullptr) {
                inotify_ = InotifySource::Create();
            }
            ReplanLocked(id, watch, todo);
            UpdateLocked(id, watch, todo);
            todo.probe.insert(id);
        }
    }
    Run(todo);
    return IPC_OK;
}

int32_t AbilityWatcher::Unsubscribe(int32_t id, const sptr<SystemAbilityListener>& listener)
{
    if (listener == nullptr || id < 0) {
        return IPC_ERR_INVALID_DATA;
    }
    Followups todo;
    std::shared_ptr<InotifySource> stopped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto entry = listeners_.find(listener.GetRefPtr());
        if (entry == listeners_.end() || entry->second->ids.erase(id) == 0) {
            return IPC_ERR_INVALID_DATA;
        }
        std::shared_ptr<ListenerState> state = entry->second;
        std::deque<Notice>& pending = state->pending;
        for (auto it = pending.begin(); it != pending.end();) {
            it = it->systemAbilityId == id ? pending.erase(it) : it + 1;
        }
        if (state->ids.empty() && !state->delivering) {
            listeners_.erase(entry);
        }
        auto found = watches_.find(id);
        if (found == watches_.end()) {
            return IPC_OK;
        }
        Watch& watch = found->second;
        auto& subscribed = watch.listeners;
        for (auto it = subscribed.begin(); it != subscribed.end(); ++it) {
            if (*it == state) {
                subscribed.erase(it);
                break;
            }
        }
        if (subscribed.empty()) {
            if (watch.remote != nullptr) {
                todo.drop.emplace_back(std::move(watch.remote), std::move(watch.recipient));
            }
            ReleaseWdLocked(watch.wd);
            watches_.erase(found);
            if (watches_.empty() && inotify_ != nullptr) {
                stopped = std::move(inotify_);
            }
        }
    }
    if (stopped != nullptr) {
        stopped->Stop();
    }
    Run(todo);
    return IPC_OK;
}

void AbilityWatcher::NoteLocal(int32_t id, bool present)
{
    Followups todo;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // A new object under the id is a new generation even when it
        // replaced another: whoever holds the old one must look it up again.
        const uint64_t generation = present ? nextGeneration_++ : 0;
        if (present) {
            localIds_[id] = generation;
        } else {
            localIds_.erase(id);
        }
        auto found = watches_.find(id);
        if (found == watches_.end()) {
            return;
        }
        found->second.local = generation;
        UpdateLocked(id, found->second, todo);
    }
    Run(todo);
}

void AbilityWatcher::NotePublishing(int32_t id)
{
    std::lock_guard<std::mutex> lock(mutex_);
    publishingIds_.insert(id);
}

void AbilityWatcher::NotePublished(int32_t id, bool published)
{
    Followups todo;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        publishingIds_.erase(id);
        if (published) {
            publishedIds_.insert(id);
        } else {
            publishedIds_.erase(id);
        }
        auto found = watches_.find(id);
        if (found == watches_.end()) {
            return;
        }
        found->second.publishedHere = published;
        UpdateLocked(id, found->second, todo);
    }
    Run(todo);
}

void AbilityWatcher::OnRemoteDied(int32_t id, const IRemoteObject* object)
{
    Followups todo;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = watches_.find(id);
        if (found == watches_.end() || found->second.remote.GetRefPtr() != object) {
            return;
        }
        Watch& watch = found->second;
        TRANSPORT_LOGI("sa %{public}d: connection to its server died", id);
        todo.drop.emplace_back(std::move(watch.remote), std::move(watch.recipient));
        watch.remote = nullptr;
        watch.recipient = nullptr;
        watch.remoteExiting = false;
        UpdateLocked(id, watch, todo);
        // A successor may be listening already; its socket appeared while
        // this connection still looked alive.
        todo.probe.insert(id);
    }
    Run(todo);
}

void AbilityWatcher::OnInotifyReadable(InotifySource& source)
{
    std::vector<RawEvent> events;
    alignas(inotify_event) char buffer[4096];
    for (int reads = 0; reads < MAX_READS_PER_WAKEUP; ++reads) {
        ssize_t size = read(source.Fd(), buffer, sizeof(buffer));
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            break;
        }
        // The kernel writes whole events; the checks keep a short read from
        // ever being walked past its end.
        size_t offset = 0;
        while (offset + sizeof(inotify_event) <= static_cast<size_t>(size)) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            size_t length = sizeof(inotify_event) + event->len;
            if (offset + length > static_cast<size_t>(size)) {
                break;
            }
            events.push_back(
                RawEvent{event->wd, event->mask,
                         event->len > 0 ? std::string(event->name, strnlen(event->name, event->len)) : ""});
            offset += length;
        }
    }
    Followups todo;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (inotify_.get() != &source) {
            return;  // a descriptor already given up; its watch descriptors mean nothing now
        }
        std::set<int32_t> replan;
        for (const RawEvent& event : events) {
            RouteLocked(event, replan, todo);
        }
        for (int32_t id : replan) {
            auto found = watches_.find(id);
            if (found != watches_.end()) {
                ReplanLocked(id, found->second, todo);
            }
        }
    }
    Run(todo);
}

void AbilityWatcher::RouteLocked(const RawEvent& event, std::set<int32_t>& replan, Followups& todo)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        // Events were lost: look at every path afresh.
        for (auto& entry : watches_) {
            replan.insert(entry.first);
        }
        return;
    }
    if ((event.mask & IN_IGNORED) != 0) {
        // The kernel dropped the watch (its folder went); nobody may remove
        // it again.
        wdUsers_.erase(event.wd);
    }
    const bool self = (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0;
    for (auto& entry : watches_) {
        Watch& watch = entry.second;
        if (watch.wd != event.wd) {
            continue;
        }
        if (self) {
            if ((event.mask & IN_IGNORED) != 0) {
                watch.wd = -1;
            }
            replan.insert(entry.first);
        } else if (watch.onDirectory) {
            if (event.name == watch.socketName) {
                todo.probe.insert(entry.first);
            }
        } else if (event.name == watch.nextComponent) {
            replan.insert(entry.first);
        }
    }
}

void AbilityWatcher::ReplanLocked(int32_t id, Watch& watch, Followups& todo)
{
    const int previous = watch.wd;
    watch.wd = -1;
    watch.onDirectory = false;
    for (int attempt = 0; inotify_ != nullptr && attempt < MAX_REPLAN_ATTEMPTS; ++attempt) {
        std::string path = watch.directory;
        while (path != "/" && !IsDirectory(path)) {
            path = Parent(path);
        }
        int wd = inotify_add_watch(inotify_->Fd(), path.c_str(), DIRECTORY_EVENTS);
        if (wd < 0) {
            if (errno == ENOENT || errno == ENOTDIR) {
                continue;  // removed since the look; look again
            }
            TRANSPORT_LOGE("sa %{public}d: cannot watch %{public}s: %{public}s", id, path.c_str(),
                           std::strerror(errno));
            break;
        }
        ++wdUsers_[wd];
        const bool onDirectory = path == watch.directory;
        std::string next = onDirectory ? std::string() : NextComponent(path, watch.directory);
        std::string child = path;
        if (path != "/") {
            child += '/';
        }
        child += next;
        if (!onDirectory && IsDirectory(child)) {
            ReleaseWdLocked(wd);  // the folder appeared before the watch took hold
            continue;
        }
        watch.wd = wd;
        watch.onDirectory = onDirectory;
        watch.nextComponent = next;
        break;
    }
    ReleaseWdLocked(previous);
    if (watch.onDirectory) {
        // The socket may have appeared before the watch took hold.
        todo.probe.insert(id);
    }
}

bool AbilityWatcher::WantsConnectionLocked(int32_t id) const
{
    auto found = watches_.find(id);
    return found != watches_.end() && found->second.remote == nullptr && !found->second.publishedHere &&
           publishingIds_.count(id) == 0;
}

void AbilityWatcher::ReleaseWdLocked(int wd)
{
    auto found = wdUsers_.find(wd);
    if (found == wdUsers_.end()) {
        return;
    }
    if (--found->second == 0) {
        wdUsers_.erase(found);
        if (inotify_ != nullptr) {
            inotify_rm_watch(inotify_->Fd(), wd);
        }
    }
}

void AbilityWatcher::UpdateLocked(int32_t id, Watch& watch, Followups& todo)
{
    Source now;
    if (watch.local != 0) {
        now = Source{Source::LOCAL, watch.local};
    } else if (watch.publishedHere) {
        now = Source{Source::PUBLISHED, 0};
    } else if (watch.remote != nullptr && !watch.remoteExiting) {
        now = Source{Source::REMOTE, watch.remoteGeneration};
    }
    if (now == watch.current) {
        return;
    }
    const bool was = watch.current.kind != Source::NONE;
    watch.current = now;
    TRANSPORT_LOGI("sa %{public}d %{public}s", id, now.kind == Source::NONE ? "gone" : was ? "replaced" : "available");
    for (const auto& state : watch.listeners) {
        if (was) {
            EnqueueLocked(state, Notice{id, false}, todo);
        }
        if (now.kind != Source::NONE) {
            EnqueueLocked(state, Notice{id, true}, todo);
        }
    }
}

void AbilityWatcher::EnqueueLocked(const std::shared_ptr<ListenerState>& state, Notice notice, Followups& todo)
{
    std::deque<Notice>& pending = state->pending;
    if (!notice.available) {
        // An appearance nobody heard of yet ends before it is told: drop
        // both, so that the queue of one id never holds more than "gone,
        // available".
        for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
            if (it->systemAbilityId == notice.systemAbilityId) {
                if (it->available) {
                    pending.erase(std::next(it).base());
                    return;
                }
                break;
            }
        }
    }
    pending.push_back(notice);
    if (!state->delivering) {
        state->delivering = true;
        todo.deliver.push_back(state);
    }
}

void AbilityWatcher::Run(Followups& todo)
{
    for (auto& dropped : todo.drop) {
        if (dropped.first != nullptr && dropped.second != nullptr) {
            dropped.first->RemoveDeathRecipient(dropped.second);
        }
    }
    todo.drop.clear();
    for (int32_t id : todo.probe) {
        Probe(id, todo);
    }
    todo.probe.clear();
    for (const auto& state : todo.deliver) {
        if (!IpcRuntime::Get().Post([state] { AbilityWatcher::Get().Deliver(state); })) {
            TRANSPORT_LOGE("no IPC thread to notify a listener; it is told with the next change");
            std::lock_guard<std::mutex> lock(mutex_);
            state->delivering = false;
        }
    }
    todo.deliver.clear();
}

void AbilityWatcher::Probe(int32_t id, Followups& todo)
{
    // A connection may close at any step below: before the recipient is on
    // it (then the transport's cache no longer offers it), or before it is
    // stored (then its death notice found nothing to end). Either way,
    // nothing would call us again, so look once more.
    constexpr int ATTEMPTS = 3;
    for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!WantsConnectionLocked(id)) {
                return;
            }
        }
        sptr<IRemoteObject> remote = ConnectSystemAbilityNow(id);
        if (remote == nullptr) {
            return;
        }
        sptr<IRemoteObject::DeathRecipient> recipient(new WatchRecipient(id));
        if (!remote->AddDeathRecipient(recipient)) {
            continue;
        }
        const bool exiting = ProcessIsExiting(GetObjectPeer(remote).pid);
        bool stored = false;
        bool dead = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            // Death is marked before recipients run: a connection alive
            // here will find itself stored when its notice comes.
            dead = remote->IsObjectDead();
            if (!dead && WantsConnectionLocked(id)) {
                Watch& watch = watches_[id];
                watch.remote = remote;
                watch.recipient = recipient;
                watch.remoteGeneration = nextGeneration_++;
                watch.remoteExiting = exiting;
                UpdateLocked(id, watch, todo);
                stored = true;
            }
        }
        if (stored) {
            return;
        }
        remote->RemoveDeathRecipient(recipient);
        if (!dead) {
            return;  // another probe got there first
        }
    }
}

void AbilityWatcher::Deliver(const std::shared_ptr<ListenerState>& state)
{
    for (;;) {
        Notice notice{};
        sptr<SystemAbilityListener> listener;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (state->pending.empty()) {
                state->delivering = false;
                auto entry = listeners_.find(state->listener.GetRefPtr());
                if (state->ids.empty() && entry != listeners_.end() && entry->second == state) {
                    listeners_.erase(entry);
                }
                return;
            }
            notice = state->pending.front();
            state->pending.pop_front();
            listener = state->listener;
        }
        if (notice.available) {
            listener->OnSystemAbilityAvailable(notice.systemAbilityId);
        } else {
            listener->OnSystemAbilityGone(notice.systemAbilityId);
        }
    }
}

}  // namespace

int32_t SubscribeAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener)
{
    return AbilityWatcher::Get().Subscribe(systemAbilityId, listener);
}

int32_t UnsubscribeAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener)
{
    return AbilityWatcher::Get().Unsubscribe(systemAbilityId, listener);
}

void NoteLocalAbility(int32_t systemAbilityId, bool present)
{
    AbilityWatcher::Get().NoteLocal(systemAbilityId, present);
}

void NotePublishing(int32_t systemAbilityId)
{
    AbilityWatcher::Get().NotePublishing(systemAbilityId);
}

void NotePublished(int32_t systemAbilityId, bool published)
{
    AbilityWatcher::Get().NotePublished(systemAbilityId, published);
}

}  // namespace Transport
}  // namespace Tavik
