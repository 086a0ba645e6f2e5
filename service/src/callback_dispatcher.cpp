#include "callback_dispatcher.h"

#include <algorithm>
#include <deque>
#include <unordered_map>

#include "device_detect_status.h"
#include "ipc_status.h"
#include "message_option.h"
#include "peer_log.h"
#include "sim_log.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

struct CallbackDispatcher::Entry {
    sptr<IRemoteObject> target;
    EncodedCallback callback;
};

// Everything the dispatcher keeps of one client; guarded by mutex_.
struct CallbackDispatcher::Client {
    PeerIdentity peer;
    size_t holds = 0;
    // Waiting to be sent, oldest first; the one in flight is not in it.
    std::deque<Entry> queue;
    size_t queuedBytes = 0;
    bool inFlight = false;
    const char16_t* inFlightDescriptor = nullptr;
    Clock::time_point inFlightSince;
    // A thread is in Pump() for this client.
    bool pumping = false;
    // Over the bound, until its callback in flight ends: its queue was
    // dropped, and new callbacks for it are dropped too.
    bool overflowed = false;
    // Callbacks ever queued, and how many of them are answered or dropped.
    // The queue is a FIFO, so outside an overflow the answered ones are the
    // first `answered`.
    uint64_t enqueued = 0;
    uint64_t answered = 0;
    uint64_t sent = 0;
    uint64_t failed = 0;
};

std::shared_ptr<CallbackDispatcher> CallbackDispatcher::Create()
{
    return std::shared_ptr<CallbackDispatcher>(new CallbackDispatcher());
}

CallbackDispatcher::~CallbackDispatcher() = default;

void CallbackDispatcher::SetOverflowHandler(OverflowHandler handler)
{
    std::lock_guard<std::mutex> lock(mutex_);
    overflow_ = std::move(handler);
}

void CallbackDispatcher::SetWait(std::chrono::milliseconds wait)
{
    std::lock_guard<std::mutex> lock(mutex_);
    wait_ = wait;
}

std::chrono::milliseconds CallbackDispatcher::GetWait() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return wait_;
}

void CallbackDispatcher::Hold(const PeerIdentity& client)
{
    std::lock_guard<std::mutex> lock(mutex_);
    std::shared_ptr<Client>& slot = clients_[client.connectionId];
    if (slot == nullptr) {
        slot = std::make_shared<Client>();
        slot->peer = client;
    }
    ++slot->holds;
}

void CallbackDispatcher::Release(uint64_t connectionId)
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = clients_.find(connectionId);
    if (it == clients_.end()) {
        return;
    }
    std::shared_ptr<Client> client = it->second;
    if (client->holds > 0) {
        --client->holds;
    }
    ForgetIfUnusedLocked(client);
}

void CallbackDispatcher::ForgetIfUnusedLocked(const std::shared_ptr<Client>& client)
{
    if (client->holds > 0 || client->inFlight || client->pumping || !client->queue.empty()) {
        return;
    }
    auto it = clients_.find(client->peer.connectionId);
    if (it != clients_.end() && it->second == client) {
        clients_.erase(it);
    }
}

std::vector<CallbackDispatcher::Ticket> CallbackDispatcher::Enqueue(std::vector<CallbackRequest> requests,
                                                                    size_t& unsendable)
{
    // Outside the lock: finding a proxy's peer asks its connection.
    std::vector<PeerIdentity> peers;
    peers.reserve(requests.size());
    for (const CallbackRequest& request : requests) {
        peers.push_back(GetObjectPeer(request.target));
    }
    std::vector<Ticket> tickets;
    std::vector<std::pair<PeerIdentity, size_t>> overflowed;
    OverflowHandler handler;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        handler = overflow_;
        std::unordered_map<const Client*, size_t> ticketOf;
        for (size_t i = 0; i < requests.size(); ++i) {
            CallbackRequest& request = requests[i];
            if (request.target == nullptr || request.callback.data == nullptr) {
                ++unsendable;
                continue;
            }
            std::shared_ptr<Client>& slot = clients_[peers[i].connectionId];
            if (slot == nullptr) {
                slot = std::make_shared<Client>();
                slot->peer = peers[i];
            }
            std::shared_ptr<Client> client = slot;
            auto known = ticketOf.find(client.get());
            if (known == ticketOf.end()) {
                known = ticketOf.emplace(client.get(), tickets.size()).first;
                tickets.push_back({client, client->enqueued, client->enqueued, client->answered == client->enqueued});
            }
            Ticket& ticket = tickets[known->second];
            if (client->overflowed) {
                ++unsendable;
                ++client->failed;
                continue;
            }
            size_t bytes = request.callback.data->GetDataSize();
            size_t pending = client->queue.size() + (client->inFlight ? 1 : 0);
            if (pending + 1 > MAX_QUEUED_CALLBACKS || client->queuedBytes + bytes > MAX_QUEUED_CALLBACK_BYTES) {
                // Treated as dead from here: what it has not received is
                // dropped, and so is everything until its connection ends.
                size_t dropped = client->queue.size();
                client->answered += dropped;
                client->failed += dropped + 1;
                client->queue.clear();
                client->queuedBytes = 0;
                client->overflowed = client->inFlight;
                ++unsendable;
                overflowed.emplace_back(client->peer, pending + 1);
                continue;
            }
            client->queue.push_back({std::move(request.target), std::move(request.callback)});
            client->queuedBytes += bytes;
            ticket.last = ++client->enqueued;
        }
    }
    if (!overflowed.empty()) {
        answered_.notify_all();
    }
    for (const Ticket& ticket : tickets) {
        Pump(ticket.client);
    }
    for (const auto& client : overflowed) {
        if (handler) {
            handler(client.first, client.second);
        }
    }
    return tickets;
}

FanOut CallbackDispatcher::Deliver(std::vector<CallbackRequest> requests)
{
    Clock::time_point deadline = Clock::now() + GetWait();
    FanOut outcome;
    std::vector<Ticket> tickets = Enqueue(std::move(requests), outcome.sent);
    std::unique_lock<std::mutex> lock(mutex_);
    auto settled = [&tickets] {
        return std::all_of(tickets.begin(), tickets.end(), [](const Ticket& ticket) {
            return !ticket.wait || ticket.client->overflowed || ticket.client->answered >= ticket.last;
        });
    };
    answered_.wait_until(lock, deadline, settled);
    for (const Ticket& ticket : tickets) {
        uint64_t total = ticket.last - ticket.first;
        uint64_t answered = ticket.client->answered > ticket.first ? ticket.client->answered - ticket.first : 0;
        uint64_t done = ticket.client->overflowed ? total : std::min(answered, total);
        outcome.sent += static_cast<size_t>(done);
        outcome.queued += static_cast<size_t>(total - done);
    }
    return outcome;
}

void CallbackDispatcher::Post(std::vector<CallbackRequest> requests)
{
    size_t unsendable = 0;
    Enqueue(std::move(requests), unsendable);
}

void CallbackDispatcher::Pump(const std::shared_ptr<Client>& client)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (client->pumping) {
        return;
    }
    client->pumping = true;
    // A local stub answers inside Send(), and so may a connection that is
    // already closed: their completions find `pumping` set and leave the
    // next send to this loop instead of recursing.
    while (!client->inFlight && !client->queue.empty()) {
        Entry entry = std::move(client->queue.front());
        client->queue.pop_front();
        client->queuedBytes -= std::min(client->queuedBytes, entry.callback.data->GetDataSize());
        client->inFlight = true;
        client->inFlightDescriptor = entry.callback.descriptor;
        client->inFlightSince = Clock::now();
        lock.unlock();
        Send(client, std::move(entry));
        lock.lock();
    }
    client->pumping = false;
    ForgetIfUnusedLocked(client);
}

void CallbackDispatcher::Send(const std::shared_ptr<Client>& client, Entry entry)
{
    const char16_t* descriptor = entry.callback.descriptor;
    uint32_t code = entry.callback.code;
    std::weak_ptr<CallbackDispatcher> weakSelf = weak_from_this();
    std::weak_ptr<Client> weakClient = client;
    // Each send gets its own copy: a local stub moves the parcel's read
    // position, and several clients share the encoding.
    MessageParcel data;
    const MessageParcel& encoded = *entry.callback.data;
    if (!data.ParseFrom(encoded.GetData(), encoded.GetDataSize())) {
        Completed(weakClient, IPC_ERR_TOO_LARGE, descriptor, code);
        return;
    }
    MessageOption option(MessageOption::TF_SYNC);
    // The completion holds the target until the answer: were our last
    // reference to go as soon as the request is written, its release could
    // overtake the request at the client, which would then find no object
    // to run it on.
    sptr<IRemoteObject> target = entry.target;
    target->SendRequestAsync(code, data, option,
                             [weakSelf, weakClient, descriptor, code, target](int32_t status, MessageParcel&) mutable {
                                 target = nullptr;
                                 if (std::shared_ptr<CallbackDispatcher> self = weakSelf.lock()) {
                                     self->Completed(weakClient, status, descriptor, code);
                                 }
                             });
}

void CallbackDispatcher::Completed(const std::weak_ptr<Client>& weakClient, int32_t status, const char16_t* descriptor,
                                   uint32_t code)
{
    std::shared_ptr<Client> client = weakClient.lock();
    if (client == nullptr) {
        return;
    }
    bool next = false;
    PeerIdentity peer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        client->inFlight = false;
        client->inFlightDescriptor = nullptr;
        client->overflowed = false;
        ++client->answered;
        ++(status == 0 ? client->sent : client->failed);
        next = !client->pumping && !client->queue.empty();
        peer = client->peer;
        ForgetIfUnusedLocked(client);
    }
    answered_.notify_all();
    if (status == IPC_ERR_DEAD_OBJECT) {
        // The client is gone; its death recipient has the news.
        SIM_LOGD("callback %{public}s code %{public}u: pid %{public}d is gone", Str16ToStr8(descriptor).c_str(), code,
                 static_cast<int>(peer.pid));
    } else if (status != 0) {
        // A client stub's own status (1001, 1010, ...) or the transport's.
        const char* name = DeviceDetectStatusToString(status);
        name = name != nullptr ? name : IpcStatusToString(status);
        SIM_PEER_LOG(peer, SIM_LOGW,
                     "callback %{public}s code %{public}u to pid %{public}d returned %{public}d (%{public}s)",
                     Str16ToStr8(descriptor).c_str(), code, static_cast<int>(peer.pid), status, name);
    }
    if (next) {
        Pump(client);
    }
}

std::vector<CallbackClient> CallbackDispatcher::Snapshot() const
{
    std::vector<CallbackClient> clients;
    Clock::time_point now = Clock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : clients_) {
        const Client& client = *entry.second;
        CallbackClient view;
        view.connectionId = client.peer.connectionId;
        view.pid = client.peer.pid;
        view.uid = client.peer.uid;
        view.registrations = client.holds;
        view.queued = client.queue.size() + (client.inFlight ? 1 : 0);
        view.queuedBytes = client.queuedBytes;
        view.sent = client.sent;
        view.failed = client.failed;
        if (client.inFlight && client.inFlightDescriptor != nullptr) {
            view.inFlight = Str16ToStr8(client.inFlightDescriptor);
            view.inFlightMillis =
                std::chrono::duration_cast<std::chrono::milliseconds>(now - client.inFlightSince).count();
        }
        clients.push_back(std::move(view));
    }
    return clients;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
