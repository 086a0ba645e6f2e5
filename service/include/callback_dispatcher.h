// CallbackDispatcher: sends the service's callbacks to its clients, so that
// a client that is slow or frozen delays nobody but itself.
//
// A client is one connection (GetObjectPeer(target).connectionId; 0 for the
// objects of this process). Each client has a FIFO of callbacks and at most
// one of them in flight, sent with SendRequestAsync: its completion sends the
// next. No thread waits for a client, and no time limit applies to a
// callback: a frozen client keeps its one unanswered callback, its queue
// grows, and once thawed (before the bound below) it receives every event in
// the order the events happened.
//
// Deliver() is for world changes: it queues a change's callbacks and then
// waits, at most the dispatcher's wait (DEFAULT_CALLBACK_WAIT), for the
// clients that were idle to answer them all. A client that still had a
// callback unanswered when the change came is not keeping up and is not
// waited for at all, so a frozen client costs a change the wait once, not
// every time. Post() queues without waiting (for service requests: no IPC
// thread of the service waits for another peer).
//
// In process, SendRequestAsync on a local stub runs the handler on the
// calling thread before it returns, so a change's handlers have run when
// Deliver() returns, as with direct calls. A handler may call the service
// back: no lock of the dispatcher is held while sending. Callbacks that such
// a handler causes for this process queue behind the one being handled.
//
// Lifetime: a resource type owned by std::shared_ptr (the Simulator's);
// pending completions hold it and each client weakly, so a dispatcher that
// is gone ignores them. A client's state lives while the service holds
// registrations of it (Hold/Release) or while it has callbacks queued.
//
// Threads: every method may be called from any thread. One mutex guards the
// clients; it is never held while sending, logging or calling the overflow
// handler, and may be taken under the Simulator's lock (never the reverse).
#ifndef SYNTAVO_SIM_CALLBACK_DISPATCHER_H
#define SYNTAVO_SIM_CALLBACK_DISPATCHER_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "callback_request.h"
#include "peer_identity.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

// Callbacks one client may have queued, the one in flight included. Over
// this, or over MAX_QUEUED_CALLBACK_BYTES, the client is treated as dead: its
// queue is dropped, its connection closed (DisconnectPeer) and its
// registrations dropped, with one WARN line naming its pid. 512 callbacks
// are some two hundred device changes that a client has not answered (a
// frozen one is given up within seconds of busy changes), and half a second
// or more of a heavy stream of events for a client that is only slowed down
// (a loaded machine, a handler that takes its time), which catches up.
constexpr size_t MAX_QUEUED_CALLBACKS = 512;
// The bytes of those callbacks (a service change of a large world is a few
// hundred kB, and clients share one encoding, but each client's queue is
// bounded on its own).
constexpr size_t MAX_QUEUED_CALLBACK_BYTES = 8 * 1024 * 1024;
// How long Deliver() waits for an idle client to answer a change's
// callbacks before it counts the client as not keeping up. A healthy client
// answers in well under a millisecond; `devicedetectd --callback-wait-ms`
// raises it for slow machines and sanitizer builds.
constexpr std::chrono::milliseconds DEFAULT_CALLBACK_WAIT{50};

// What became of one change's callbacks when Deliver() returned.
struct FanOut {
    // Answered (by the handler's result or a failure), or never sendable.
    size_t sent = 0;
    // Queued for a client, or in flight, and not yet answered.
    size_t queued = 0;
};

// One client as the dispatcher sees it, for `devicedetect dump`.
struct CallbackClient {
    uint64_t connectionId = 0;
    pid_t pid = 0;
    uid_t uid = 0;
    // Registrations of the service that hold objects of this client.
    size_t registrations = 0;
    // Not yet answered, the one in flight included.
    size_t queued = 0;
    size_t queuedBytes = 0;
    // Answered with 0.
    uint64_t sent = 0;
    // Answered with another status, failed in the transport, or dropped
    // unsent when the client overflowed.
    uint64_t failed = 0;
    // The interface of the callback in flight (empty when none) and how long
    // it has waited for its answer.
    std::string inFlight;
    int64_t inFlightMillis = 0;
};

class CallbackDispatcher : public std::enable_shared_from_this<CallbackDispatcher> {
public:
    using Clock = std::chrono::steady_clock;
    // Told once per overflow, without any lock of the dispatcher held; it
    // closes the client's connection and drops its registrations.
    using OverflowHandler = std::function<void(const PeerIdentity& client, size_t queued)>;

    static std::shared_ptr<CallbackDispatcher> Create();
    ~CallbackDispatcher();
    CallbackDispatcher(const CallbackDispatcher&) = delete;
    CallbackDispatcher& operator=(const CallbackDispatcher&) = delete;

    void SetOverflowHandler(OverflowHandler handler);
    void SetWait(std::chrono::milliseconds wait);
    std::chrono::milliseconds GetWait() const;

    // A registration of the service started or stopped holding an object of
    // the client; a client without registrations and without callbacks is
    // forgotten.
    void Hold(const PeerIdentity& client);
    void Release(uint64_t connectionId);

    // Queues the callbacks, each behind its client's earlier ones, sends
    // what can be sent, and waits as described at the top.
    FanOut Deliver(std::vector<CallbackRequest> requests);
    // The same without waiting.
    void Post(std::vector<CallbackRequest> requests);

    // The clients known now, by connection id.
    std::vector<CallbackClient> Snapshot() const;

private:
    struct Entry;
    struct Client;
    // One client's share of a Deliver() call.
    struct Ticket {
        std::shared_ptr<Client> client;
        uint64_t first = 0;  // the client's queued count before the change
        uint64_t last = 0;   // ... after it
        bool wait = false;   // the client was idle
    };

    CallbackDispatcher() = default;

    std::vector<Ticket> Enqueue(std::vector<CallbackRequest> requests, size_t& unsendable);
    // Sends the client's next callbacks until one is in flight; returns at
    // once when another thread does so already.
    void Pump(const std::shared_ptr<Client>& client);
    void Send(const std::shared_ptr<Client>& client, Entry entry);
    void Completed(const std::weak_ptr<Client>& weakClient, int32_t status, const char16_t* descriptor, uint32_t code);
    // Under mutex_: drops the client's state when nothing refers to it.
    void ForgetIfUnusedLocked(const std::shared_ptr<Client>& client);

    mutable std::mutex mutex_;
    std::condition_variable answered_;
    std::map<uint64_t, std::shared_ptr<Client>> clients_;
    std::chrono::milliseconds wait_ = DEFAULT_CALLBACK_WAIT;
    OverflowHandler overflow_;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_CALLBACK_DISPATCHER_H
