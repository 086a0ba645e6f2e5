// Simulator: the world and every registration of the reference service,
// with the logic that answers requests and turns world changes into
// callbacks.
//
// Lifetime and threads: a Simulator is a resource type owned by
// std::shared_ptr (the stubs and the death recipients hold it; recipients
// only weakly). Every public method may be called from any thread. One
// mutex guards the world and the registration tables; callbacks are never
// sent while it is held, so a handler may call the service back (in process
// it runs on the very thread that changed the world).
//
// Callbacks go out through a CallbackDispatcher: per client, in the order
// the changes produced them, one at a time, so a slow or frozen client
// delays only itself. A world change returns once every client that was
// keeping up has answered its callbacks, or after the dispatcher's wait
// (callback_dispatcher.h); its detail then says how many are still queued.
// In process, handlers run before the change returns. A client whose queue
// passes MAX_QUEUED_CALLBACKS is disconnected and its registrations are
// dropped. A listener removed while its event is queued may still receive
// that event.
#ifndef SYNTAVO_SIM_SIMULATOR_H
#define SYNTAVO_SIM_SIMULATOR_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "callback_dispatcher.h"
#include "iremote_object.h"
#include "refbase.h"
#include "request_stats.h"
#include "world.h"

namespace Tavik {
namespace Syntavo {

class AbilityFilter;
class DeviceFilter;
class DeviceInfo;
class ServiceFilter;

namespace Sim {

// How many registrations of each kind are held; for `sim registrations`,
// the tests and the logs.
struct RegistrationCounts {
    size_t abilityListeners = 0;
    size_t serviceFilterListeners = 0;
    size_t serviceChangedCallbacks = 0;
    size_t detectSessions = 0;
    size_t deliverCallbacks = 0;
    size_t dialogCallbacks = 0;
    size_t serviceRequests = 0;
    size_t keyMouseCallbacks = 0;
    // Remote objects with a death recipient attached.
    size_t watchedClients = 0;
};

// One registration and the connection of the client that made it (0 for a
// client in the service's own process), for `devicedetect dump`.
struct ClientRegistration {
    uint64_t connectionId = 0;
    // "abilityListener", "serviceFilterListener", "serviceChanged",
    // "detectSession", "deliver", "dialog", "serviceRequest", "keyMouse".
    std::string kind;
    // Listener id, deliver code or caller key; -1 when the kind has none.
    int64_t id = -1;
    // Package name (service requests) or caller id (key-mouse).
    std::string key;
    // The listener's filter, field by field ("bundleName", "deviceType",
    // ...), as text; empty for kinds without a filter.
    std::vector<std::pair<std::string, std::string>> filter;
};

// A device with the abilities of it that passed an ability-filter query.
struct AbilityMatch {
    Device device;
    std::vector<Ability> abilities;
};

class Simulator : public std::enable_shared_from_this<Simulator> {
public:
    // Identifies the client behind the current request, for the one request
    // that names nothing to remove (UnregisterServiceChangedCallback). The
    // default provider gives every caller the same key.
    using CallerKeyProvider = std::function<uint64_t()>;

    static std::shared_ptr<Simulator> Create(World world);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    void SetCallerKeyProvider(CallerKeyProvider provider);

    // Plays the next step of a scenario in step mode (control request STEP);
    // fills `detail` like a world change. Without a handler, STEP answers
    // SIM_ERR_NO_SCENARIO. The handler runs without the world lock held.
    using StepHandler = std::function<int32_t(std::string& detail)>;
    void SetStepHandler(StepHandler handler);
    int32_t Step(std::string& detail);

    // --- queries --------------------------------------------------------
    LocalDevice Local() const;
    // Online and ready devices, in world order.
    std::vector<Device> OnlineDevices() const;
    // Calls `use` with the online and ready devices, in world order, under
    // the world lock (so `use` must not call the simulator back), and returns
    // the world version they belong to. Spares the copy of every device.
    uint64_t WithOnlineDevices(const std::function<void(const std::vector<const Device*>&)>& use) const;
    // A number that changes whenever the world does (a device added,
    // removed, switched or edited, a world loaded); lets a reader keep what
    // it derived from the world until then.
    uint64_t WorldVersion() const { return worldVersion_.load(std::memory_order_acquire); }
    // Online devices that pass at least one filter, each with the abilities
    // that passed; see AbilityPasses. Null filters are skipped.
    std::vector<AbilityMatch> DevicesWithAbilities(const std::vector<sptr<AbilityFilter>>& filters) const;
    // Online devices for which filter.IsMatch(services, device) holds.
    std::vector<Device> DevicesByServiceFilter(ServiceFilter& filter) const;
    // Online devices whose type and account type both pass the filter.
    // Also opens a detect session: the callback gets FOUND and LOST events
    // for devices that pass the filter until its client dies (the oldest
    // session is dropped when the table is full).
    std::vector<Device> DevicesByDeviceFilter(const sptr<DeviceFilter>& filter,
                                              const sptr<IRemoteObject>& detectCallback);
    // By udid or network id, whether online or not.
    bool FindDevice(const std::string& id, Device& device) const;
    World Snapshot() const;
    RegistrationCounts Registrations() const;
    std::string RegistrationsJson() const;
    bool KeyMouseEdgeSwitch() const;
    bool BindKeymouseService() const;

    // --- registrations (service requests) -------------------------------
    // (status, listener id); ids start at 1 and are never reused.
    std::pair<int32_t, uint32_t> AddAbilityListener(const sptr<AbilityFilter>& filter, const std::string& extra,
                                                    const sptr<IRemoteObject>& callback);
    std::pair<int32_t, uint32_t> AddServiceFilterListener(const sptr<ServiceFilter>& filter, const std::string& extra,
                                                          const sptr<IRemoteObject>& callback);
    int32_t RemoveAbilityListener(uint32_t listenerId);
    int32_t RemoveServiceFilterListener(uint32_t listenerId);
    int32_t AddServiceChangedCallback(const sptr<IRemoteObject>& callback);
    // Removes the current caller's service-changed callbacks; SIM_OK even
    // when there were none.
    int32_t RemoveServiceChangedCallbacks();
    int32_t AddDeliverCallback(int32_t deliverCode, const sptr<IRemoteObject>& callback);
    int32_t AddDialogCallback(const sptr<IRemoteObject>& callback);
    // Answers through the calling client's dialog callbacks (every one, in
    // process) with the world's dialog reply.
    int32_t NotifyDialogEvent(const std::string& dialogEvent);
    // Replaces an earlier request of the package; sends REQUESTED to the
    // callback before returning.
    int32_t RequestService(const std::string& pkgName, const sptr<IRemoteObject>& callback);
    // Sends WITHDRAWN to the request's callback.
    int32_t UnRequestService(const std::string& pkgName);
    int32_t AddKeyMouseCallback(const std::string& callerId, const sptr<IRemoteObject>& callback);
    int32_t RemoveKeyMouseCallback(const std::string& callerId);
    void SetKeyMouseEdgeSwitch(bool on);
    void SetBindKeymouseService(bool bind);

    // --- world changes (control requests) -------------------------------
    // Each returns a SimStatus and fills `detail` with one sentence for the
    // user (what changed, how many callbacks were sent, or what is wrong).
    int32_t SetDeviceState(const std::string& id, DeviceState state, std::string& detail);
    int32_t AddDevice(const Device& device, std::string& detail);
    int32_t RemoveDevice(const std::string& id, std::string& detail);
    int32_t SetDynamicInfo(const std::string& id, const std::string& key, const std::string& value,
                           std::string& detail);
    // Empty `ids`: every online device.
    int32_t NotifyServiceChange(int32_t event, const std::vector<std::string>& ids, std::string& detail);
    int32_t Deliver(bool allCodes, int32_t deliverCode, const std::string& info, std::string& detail);
    // Empty `pkgName`: every request.
    int32_t PublishResult(const std::string& pkgName, uint32_t eventCode, uint32_t resultCode, std::string& detail);
    int32_t DialogReply(const std::string& reply, std::string& detail);
    int32_t SendDetectEvent(const std::string& id, int32_t event, std::string& detail);
    // Replaces local device and devices (no events); registrations stay.
    int32_t LoadWorld(const World& world, std::string& detail);

    // Drops every registration whose callback is `object`; the death
    // recipients call it when a client process goes away.
    void DropClient(const IRemoteObject* object);
    // Drops every registration of the connection's objects.
    void DropConnection(uint64_t connectionId);

    // How long a world change waits for clients that keep up
    // (DEFAULT_CALLBACK_WAIT unless set).
    void SetCallbackWait(std::chrono::milliseconds wait);
    std::chrono::milliseconds CallbackWait() const;
    // Each client's callback queue and counters, by connection id.
    std::vector<CallbackClient> CallbackClients() const;
    std::vector<ClientRegistration> RegistrationsByClient() const;
    // What the service's requests cost; the service stub records them.
    RequestStats& Requests() { return requests_; }
    const RequestStats& Requests() const { return requests_; }
    std::chrono::steady_clock::time_point Started() const { return started_; }

private:
    struct Listener;
    struct DetectSession;
    struct CallbackEntry;
    struct Watch;
    using Notifications = std::vector<CallbackRequest>;

    explicit Simulator(World world);

    // The dispatcher gave up on a client: close its connection, drop its
    // registrations.
    void OnClientOverflow(const PeerIdentity& client, size_t queued);

    uint64_t CallerKey() const;
    // Takes an id for the listener and keeps it; the callback is watched for
    // its owner's death.
    std::pair<int32_t, uint32_t> AddListener(Listener listener);
    // One callback per key (package name, caller id); a new one replaces
    // the old. The callbacks are watched for their owners' death.
    using CallbackTable = std::map<std::string, sptr<IRemoteObject>>;
    int32_t PutKeyedCallback(CallbackTable& table, const std::string& key, const sptr<IRemoteObject>& callback);
    // Removes and hands back the key's callback.
    int32_t TakeKeyedCallback(CallbackTable& table, const std::string& key, sptr<IRemoteObject>& callback);
    // Under mutex_: count of the object's registrations went from 0 to 1.
    // Returns the recipient to attach once the lock is released (null when
    // the object is already watched).
    sptr<IRemoteObject::DeathRecipient> RetainLocked(const sptr<IRemoteObject>& object);
    // Under mutex_: the count dropped; returns the recipient to detach when
    // it reached 0.
    sptr<IRemoteObject::DeathRecipient> ReleaseLocked(const IRemoteObject* object);
    void Attach(const sptr<IRemoteObject>& object, const sptr<IRemoteObject::DeathRecipient>& recipient);
    void Detach(const sptr<IRemoteObject>& object, const sptr<IRemoteObject::DeathRecipient>& recipient);
    size_t TotalRegistrationsLocked() const;
    RegistrationCounts RegistrationsLocked() const;

    // Under mutex_: the callbacks for one device's change of state.
    void DeviceEventsLocked(const Device& device, DeviceState from, DeviceState to, Notifications& out);
    // Under mutex_: the world for changing it. Every change goes through
    // here, so that WorldVersion moves with it.
    World& ChangeWorldLocked();

    const std::shared_ptr<CallbackDispatcher> dispatcher_;
    const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    RequestStats requests_;
    mutable std::mutex mutex_;
    World world_;
    std::atomic<uint64_t> worldVersion_{0};
    uint32_t nextListenerId_ = 1;
    std::vector<Listener> listeners_;
    std::vector<DetectSession> detectSessions_;
    std::vector<CallbackEntry> serviceChanged_;
    std::vector<CallbackEntry> deliver_;
    std::vector<CallbackEntry> dialog_;
    CallbackTable serviceRequests_;
    CallbackTable keyMouse_;
    std::map<const IRemoteObject*, Watch> watches_;
    bool keyMouseEdgeSwitch_ = false;
    bool bindKeymouseService_ = false;
    CallerKeyProvider callerKey_;
    std::mutex stepMutex_;
    StepHandler stepHandler_;
};

// Whether a device offering `ability` passes `filter`: every non-empty
// string field of the filter (bundle name, ability type, description,
// action) equals the ability's, and a non-zero device type or account type
// equals the device's. A filter whose fields are all empty and zero passes
// every device, with or without abilities.
bool AbilityPasses(const AbilityFilter& filter, const Device& device, const Ability& ability);
bool DevicePassesAbilityFilter(const AbilityFilter& filter, const Device& device);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_SIMULATOR_H
