#include "simulator.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "ability_filter.h"
#include "callback_request.h"
#include "device_filter.h"
#include "device_info.h"
#include "device_service_info.h"
#include "picker_result.h"
#include "publish_event_info.h"
#include "record_convert.h"
#include "service_filter.h"
#include "sim_log.h"
#include "sim_status.h"
#include "socket_transport.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

struct Simulator::Listener {
    uint32_t id;
    bool byServiceFilter;
    sptr<AbilityFilter> abilityFilter;
    sptr<ServiceFilter> serviceFilter;
    std::string extra;
    sptr<IRemoteObject> callback;
};

struct Simulator::DetectSession {
    sptr<DeviceFilter> filter;
    sptr<IRemoteObject> callback;
};

struct Simulator::CallbackEntry {
    sptr<IRemoteObject> callback;
    // The caller key for service-changed callbacks, the deliver code for
    // deliver callbacks; unused for dialog callbacks.
    int64_t key;
};

// Counts the registrations that hold one remote object, so that its death
// recipient is attached once and detached with the last registration.
struct Simulator::Watch {
    size_t refs = 0;
    // The client's connection (0 for an in-process object).
    uint64_t connectionId = 0;
    // Null for in-process objects, which never die.
    sptr<IRemoteObject::DeathRecipient> recipient;
};

namespace {

// Holds the Simulator weakly: a recipient that outlives the service (the
// transport may keep it until the proxy goes) does nothing.
class ClientDeathRecipient : public IRemoteObject::DeathRecipient {
public:
    explicit ClientDeathRecipient(std::weak_ptr<Simulator> simulator) : simulator_(std::move(simulator)) {}

    void OnRemoteDied(const wptr<IRemoteObject>& object) override
    {
        if (std::shared_ptr<Simulator> simulator = simulator_.lock()) {
            SIM_LOGI("client died; dropping its registrations");
            simulator->DropClient(object.GetRefPtr());
        }
    }

private:
    std::weak_ptr<Simulator> simulator_;
};

bool HasAbilityFields(const AbilityFilter& filter)
{
    return !filter.GetBundleName().empty() || !filter.GetAbilityType().empty() ||
           !filter.GetAbilityDescription().empty() || !filter.GetAction().empty();
}

bool TypesPass(const AbilityFilter& filter, const Device& device)
{
    return (filter.GetDeviceType() == 0 || filter.GetDeviceType() == device.type) &&
           (filter.GetAccountType() == 0 || filter.GetAccountType() == device.accountType);
}

bool FieldPasses(const std::string& wanted, const std::string& offered)
{
    return wanted.empty() || wanted == offered;
}

bool ServiceFilterPasses(ServiceFilter& filter, const Device& device)
{
    return filter.IsMatch(std::make_shared<std::vector<std::string>>(device.services), ToDeviceInfo(device));
}

bool DeviceFilterPasses(DeviceFilter& filter, const Device& device)
{
    return filter.isDeviceTypeMatch(device.type) && filter.isAccountTypeMatch(device.accountType);
}

std::string Describe(const Device& device)
{
    return device.name + " (" + device.udid + ")";
}

// The detail goes back to the control client as it is; the log gets the
// udid masked, as every line of the client library does.
std::string ForLog(std::string detail, const std::string& udid)
{
    if (udid.empty()) {
        return detail;
    }
    std::string masked = PickerResult::StringToAnonymous(udid);
    for (size_t at = detail.find(udid); at != std::string::npos; at = detail.find(udid, at + masked.size())) {
        detail.replace(at, udid.size(), masked);
    }
    return detail;
}

// "; sent 3 callbacks" as ever when every callback was answered, else with
// "..., 1 still queued".
std::string Sent(const FanOut& outcome)
{
    std::string text = "; sent " + std::to_string(outcome.sent) + (outcome.sent == 1 ? " callback" : " callbacks");
    if (outcome.queued > 0) {
        text += ", " + std::to_string(outcome.queued) + " still queued";
    }
    return text;
}

template <typename T>
void EraseIf(std::vector<T>& items, const std::function<bool(const T&)>& predicate,
             std::vector<sptr<IRemoteObject>>& released)
{
    auto keep = std::stable_partition(items.begin(), items.end(), [&](const T& item) { return !predicate(item); });
    for (auto it = keep; it != items.end(); ++it) {
        released.push_back(it->callback);
    }
    items.erase(keep, items.end());
}

}  // namespace

bool AbilityPasses(const AbilityFilter& filter, const Device& device, const Ability& ability)
{
    return TypesPass(filter, device) && FieldPasses(filter.GetBundleName(), ability.bundleName) &&
           FieldPasses(filter.GetAbilityType(), ability.abilityType) &&
           FieldPasses(filter.GetAbilityDescription(), ability.description) &&
           FieldPasses(filter.GetAction(), ability.action);
}

bool DevicePassesAbilityFilter(const AbilityFilter& filter, const Device& device)
{
    if (!TypesPass(filter, device)) {
        return false;
    }
    if (!HasAbilityFields(filter)) {
        return true;
    }
    return std::any_of(device.abilities.begin(), device.abilities.end(),
                       [&](const Ability& ability) { return AbilityPasses(filter, device, ability); });
}

std::shared_ptr<Simulator> Simulator::Create(World world)
{
    std::shared_ptr<Simulator> simulator(new Simulator(std::move(world)));
    std::weak_ptr<Simulator> weak = simulator;
    simulator->dispatcher_->SetOverflowHandler([weak](const PeerIdentity& client, size_t queued) {
        if (std::shared_ptr<Simulator> alive = weak.lock()) {
            alive->OnClientOverflow(client, queued);
        }
    });
    return simulator;
}

Simulator::Simulator(World world) : dispatcher_(CallbackDispatcher::Create()), world_(std::move(world)) {}

Simulator::~Simulator() = default;

void Simulator::SetCallerKeyProvider(CallerKeyProvider provider)
{
    std::lock_guard<std::mutex> lock(mutex_);
    callerKey_ = std::move(provider);
}

uint64_t Simulator::CallerKey() const
{
    CallerKeyProvider provider;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        provider = callerKey_;
    }
    return provider ? provider() : 0;
}

// --- death watch ------------------------------------------------------------

sptr<IRemoteObject::DeathRecipient> Simulator::RetainLocked(const sptr<IRemoteObject>& object)
{
    Watch& watch = watches_[object.GetRefPtr()];
    if (watch.refs++ > 0) {
        return nullptr;
    }
    PeerIdentity client = GetObjectPeer(object);
    watch.connectionId = client.connectionId;
    dispatcher_->Hold(client);
    if (!object->IsProxyObject()) {
        return nullptr;
    }
    watch.recipient = new (std::nothrow) ClientDeathRecipient(weak_from_this());
    return watch.recipient;
}

sptr<IRemoteObject::DeathRecipient> Simulator::ReleaseLocked(const IRemoteObject* object)
{
    auto it = watches_.find(object);
    if (it == watches_.end() || --it->second.refs > 0) {
        return nullptr;
    }
    sptr<IRemoteObject::DeathRecipient> recipient = it->second.recipient;
    dispatcher_->Release(it->second.connectionId);
    watches_.erase(it);
    return recipient;
}

void Simulator::Attach(const sptr<IRemoteObject>& object, const sptr<IRemoteObject::DeathRecipient>& recipient)
{
    if (recipient == nullptr) {
        return;
    }
    // Outside mutex_: a transport may run recipients under its own lock.
    if (!object->AddDeathRecipient(recipient)) {
        SIM_LOGW("client is already gone; dropping its registrations");
        DropClient(object.GetRefPtr());
    }
}

void Simulator::Detach(const sptr<IRemoteObject>& object, const sptr<IRemoteObject::DeathRecipient>& recipient)
{
    if (recipient != nullptr && object != nullptr) {
        object->RemoveDeathRecipient(recipient);
    }
}

void Simulator::DropClient(const IRemoteObject* object)
{
    // Declared before the lock so that the last references go after it is
    // released: dropping a proxy may talk to the transport.
    std::vector<sptr<IRemoteObject>> released;
    size_t before = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        before = TotalRegistrationsLocked();
        auto same = [object](const auto& entry) { return entry.callback.GetRefPtr() == object; };
        EraseIf<Listener>(listeners_, same, released);
        EraseIf<DetectSession>(detectSessions_, same, released);
        EraseIf<CallbackEntry>(serviceChanged_, same, released);
        EraseIf<CallbackEntry>(deliver_, same, released);
        EraseIf<CallbackEntry>(dialog_, same, released);
        for (auto* table : {&serviceRequests_, &keyMouse_}) {
            for (auto it = table->begin(); it != table->end();) {
                if (it->second.GetRefPtr() == object) {
                    released.push_back(it->second);
                    it = table->erase(it);
                } else {
                    ++it;
                }
            }
        }
        auto watch = watches_.find(object);
        if (watch != watches_.end()) {
            dispatcher_->Release(watch->second.connectionId);
            watches_.erase(watch);
        }
        SIM_LOGI("dropped %{public}zu registrations of a client", before - TotalRegistrationsLocked());
    }
}

void Simulator::DropConnection(uint64_t connectionId)
{
    std::vector<const IRemoteObject*> objects;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& watch : watches_) {
            if (watch.second.connectionId == connectionId) {
                objects.push_back(watch.first);
            }
        }
    }
    // Another thread may drop one of them first; DropClient of an object
    // without registrations does nothing.
    for (const IRemoteObject* object : objects) {
        DropClient(object);
    }
}

void Simulator::OnClientOverflow(const PeerIdentity& client, size_t queued)
{
    std::string reason = "its callbacks go unanswered (" + std::to_string(queued) + " queued, over the bound of " +
                         std::to_string(MAX_QUEUED_CALLBACKS) + "); dropping its registrations";
    // The transport's line names the pid; an in-process client (or one
    // whose connection just ended) gets the service's own.
    if (client.connectionId == 0 || !DisconnectPeer(client.connectionId, reason.c_str())) {
        SIM_LOGW("client pid %{public}d: %{public}s", static_cast<int>(client.pid), reason.c_str());
    }
    DropConnection(client.connectionId);
}

std::chrono::milliseconds Simulator::CallbackWait() const
{
    return dispatcher_->GetWait();
}

void Simulator::SetCallbackWait(std::chrono::milliseconds wait)
{
    dispatcher_->SetWait(wait);
}

std::vector<CallbackClient> Simulator::CallbackClients() const
{
    return dispatcher_->Snapshot();
}

size_t Simulator::TotalRegistrationsLocked() const
{
    return listeners_.size() + detectSessions_.size() + serviceChanged_.size() + deliver_.size() + dialog_.size() +
           serviceRequests_.size() + keyMouse_.size();
}

// --- queries ----------------------------------------------------------------

LocalDevice Simulator::Local() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return world_.local;
}

std::vector<Device> Simulator::OnlineDevices() const
{
    std::vector<Device> result;
    WithOnlineDevices([&result](const std::vector<const Device*>& devices) {
        for (const Device* device : devices) {
            result.push_back(*device);
        }
    });
    return result;
}

uint64_t Simulator::WithOnlineDevices(const std::function<void(const std::vector<const Device*>&)>& use) const
{
    std::vector<const Device*> online;
    std::lock_guard<std::mutex> lock(mutex_);
    online.reserve(world_.devices.size());
    for (const Device& device : world_.devices) {
        if (device.IsOnline()) {
            online.push_back(&device);
        }
    }
    use(online);
    return worldVersion_.load(std::memory_order_relaxed);
}

std::vector<AbilityMatch> Simulator::DevicesWithAbilities(const std::vector<sptr<AbilityFilter>>& filters) const
{
    std::vector<AbilityMatch> result;
    for (const Device& device : OnlineDevices()) {
        bool passes = false;
        AbilityMatch match{device, {}};
        for (const sptr<AbilityFilter>& filter : filters) {
            if (filter != nullptr && DevicePassesAbilityFilter(*filter, device)) {
                passes = true;
            }
        }
        if (!passes) {
            continue;
        }
        for (const Ability& ability : device.abilities) {
            bool wanted = std::any_of(filters.begin(), filters.end(), [&](const sptr<AbilityFilter>& filter) {
                return filter != nullptr && AbilityPasses(*filter, device, ability);
            });
            if (wanted) {
                match.abilities.push_back(ability);
            }
        }
        result.push_back(std::move(match));
    }
    return result;
}

std::vector<Device> Simulator::DevicesByServiceFilter(ServiceFilter& filter) const
{
    std::vector<Device> result;
    for (const Device& device : OnlineDevices()) {
        if (ServiceFilterPasses(filter, device)) {
            result.push_back(device);
        }
    }
    return result;
}

std::vector<Device> Simulator::DevicesByDeviceFilter(const sptr<DeviceFilter>& filter,
                                                     const sptr<IRemoteObject>& detectCallback)
{
    std::vector<Device> result;
    if (filter == nullptr) {
        return result;
    }
    for (const Device& device : OnlineDevices()) {
        if (DeviceFilterPasses(*filter, device)) {
            result.push_back(device);
        }
    }
    if (detectCallback == nullptr) {
        return result;
    }
    std::vector<sptr<IRemoteObject>> released;
    sptr<IRemoteObject::DeathRecipient> attach;
    sptr<IRemoteObject::DeathRecipient> detach;
    sptr<IRemoteObject> oldest;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (detectSessions_.size() >= MAX_REGISTRATIONS) {
            // Sessions have no removal request; the oldest gives way.
            oldest = detectSessions_.front().callback;
            released.push_back(oldest);
            detectSessions_.erase(detectSessions_.begin());
            detach = ReleaseLocked(oldest.GetRefPtr());
        }
        detectSessions_.push_back({filter, detectCallback});
        attach = RetainLocked(detectCallback);
    }
    Detach(oldest, detach);
    Attach(detectCallback, attach);
    return result;
}

bool Simulator::FindDevice(const std::string& id, Device& device) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    int index = Sim::FindDevice(world_, id);
    if (index < 0) {
        return false;
    }
    device = world_.devices[static_cast<size_t>(index)];
    return true;
}

World Simulator::Snapshot() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return world_;
}

RegistrationCounts Simulator::Registrations() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return RegistrationsLocked();
}

RegistrationCounts Simulator::RegistrationsLocked() const
{
    RegistrationCounts counts;
    for (const Listener& listener : listeners_) {
        ++(listener.byServiceFilter ? counts.serviceFilterListeners : counts.abilityListeners);
    }
    counts.serviceChangedCallbacks = serviceChanged_.size();
    counts.detectSessions = detectSessions_.size();
    counts.deliverCallbacks = deliver_.size();
    counts.dialogCallbacks = dialog_.size();
    counts.serviceRequests = serviceRequests_.size();
    counts.keyMouseCallbacks = keyMouse_.size();
    counts.watchedClients = static_cast<size_t>(std::count_if(
        watches_.begin(), watches_.end(), [](const auto& entry) { return entry.second.recipient != nullptr; }));
    return counts;
}

void Simulator::SetStepHandler(StepHandler handler)
{
    std::lock_guard<std::mutex> lock(stepMutex_);
    stepHandler_ = std::move(handler);
}

int32_t Simulator::Step(std::string& detail)
{
    StepHandler handler;
    {
        std::lock_guard<std::mutex> lock(stepMutex_);
        handler = stepHandler_;
    }
    if (!handler) {
        detail = "no scenario is playing in step mode";
        return SIM_ERR_NO_SCENARIO;
    }
    return handler(detail);
}

namespace {

// A listener's filter, field by field, as dump and registrations show it.
std::vector<std::pair<std::string, std::string>> ListenerFilter(bool byServiceFilter, const AbilityFilter* ability,
                                                                const ServiceFilter* service)
{
    if (byServiceFilter && service != nullptr) {
        std::string types;
        for (const std::string& type : service->GetDeviceType()) {
            types += (types.empty() ? "" : ",") + type;
        }
        return {{"serviceName", service->GetServiceName()}, {"deviceTypes", types}};
    }
    if (ability == nullptr) {
        return {};
    }
    return {{"bundleName", ability->GetBundleName()},
            {"abilityType", ability->GetAbilityType()},
            {"deviceType", std::to_string(ability->GetDeviceType())},
            {"accountType", std::to_string(ability->GetAccountType())}};
}

}  // namespace

std::vector<ClientRegistration> Simulator::RegistrationsByClient() const
{
    std::vector<ClientRegistration> result;
    std::lock_guard<std::mutex> lock(mutex_);
    auto add = [&](const sptr<IRemoteObject>& object, const char* kind, int64_t id, const std::string& key) {
        ClientRegistration entry;
        auto watch = watches_.find(object.GetRefPtr());
        entry.connectionId = watch != watches_.end() ? watch->second.connectionId : 0;
        entry.kind = kind;
        entry.id = id;
        entry.key = key;
        result.push_back(std::move(entry));
        return &result.back();
    };
    for (const Listener& listener : listeners_) {
        ClientRegistration* entry = add(
            listener.callback, listener.byServiceFilter ? "serviceFilterListener" : "abilityListener", listener.id, "");
        entry->filter = ListenerFilter(listener.byServiceFilter, listener.abilityFilter.GetRefPtr(),
                                       listener.serviceFilter.GetRefPtr());
        entry->filter.emplace_back("extra", listener.extra);
    }
    for (const CallbackEntry& entry : serviceChanged_) {
        add(entry.callback, "serviceChanged", entry.key, "");
    }
    for (const DetectSession& session : detectSessions_) {
        add(session.callback, "detectSession", -1, "");
    }
    for (const CallbackEntry& entry : deliver_) {
        add(entry.callback, "deliver", entry.key, "");
    }
    for (const CallbackEntry& entry : dialog_) {
        add(entry.callback, "dialog", -1, "");
    }
    for (const auto& entry : serviceRequests_) {
        add(entry.second, "serviceRequest", -1, entry.first);
    }
    for (const auto& entry : keyMouse_) {
        add(entry.second, "keyMouse", -1, entry.first);
    }
    return result;
}

std::string Simulator::RegistrationsJson() const
{
    using nlohmann::json;
    std::lock_guard<std::mutex> lock(mutex_);
    RegistrationCounts counts = RegistrationsLocked();
    json listeners = json::array();
    for (const Listener& listener : listeners_) {
        json entry{{"id", listener.id},
                   {"kind", listener.byServiceFilter ? "serviceFilter" : "abilityFilter"},
                   {"extra", listener.extra}};
        if (listener.byServiceFilter) {
            entry["serviceName"] = listener.serviceFilter->GetServiceName();
            entry["deviceTypes"] = listener.serviceFilter->GetDeviceType();
        } else {
            entry["bundleName"] = listener.abilityFilter->GetBundleName();
            entry["abilityType"] = listener.abilityFilter->GetAbilityType();
            entry["deviceType"] = listener.abilityFilter->GetDeviceType();
            entry["accountType"] = listener.abilityFilter->GetAccountType();
        }
        listeners.push_back(entry);
    }
    json requests = json::array();
    for (const auto& request : serviceRequests_) {
        requests.push_back(request.first);
    }
    json keyMouse = json::array();
    for (const auto& entry : keyMouse_) {
        keyMouse.push_back(entry.first);
    }
    json deliverCodes = json::array();
    for (const CallbackEntry& entry : deliver_) {
        deliverCodes.push_back(entry.key);
    }
    json value{{"listeners", listeners},
               {"abilityListeners", counts.abilityListeners},
               {"serviceFilterListeners", counts.serviceFilterListeners},
               {"serviceChangedCallbacks", counts.serviceChangedCallbacks},
               {"detectSessions", counts.detectSessions},
               {"deliverCallbacks", counts.deliverCallbacks},
               {"deliverCodes", deliverCodes},
               {"dialogCallbacks", counts.dialogCallbacks},
               {"serviceRequests", requests},
               {"keyMouseCallers", keyMouse},
               {"keyMouseEdgeSwitch", keyMouseEdgeSwitch_},
               {"bindKeymouseService", bindKeymouseService_},
               {"watchedClients", counts.watchedClients}};
    return value.dump(2, ' ', false, json::error_handler_t::replace);
}

bool Simulator::KeyMouseEdgeSwitch() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return keyMouseEdgeSwitch_;
}

bool Simulator::BindKeymouseService() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return bindKeymouseService_;
}

// --- registrations ----------------------------------------------------------

std::pair<int32_t, uint32_t> Simulator::AddAbilityListener(const sptr<AbilityFilter>& filter, const std::string& extra,
                                                           const sptr<IRemoteObject>& callback)
{
    if (filter == nullptr) {
        return {SIM_ERR_INVALID_ARGUMENT, 0};
    }
    auto added = AddListener({0, false, filter, nullptr, extra, callback});
    if (added.first == SIM_OK) {
        SIM_LOGI("ability-filter listener %{public}u registered", added.second);
    }
    return added;
}

std::pair<int32_t, uint32_t> Simulator::AddServiceFilterListener(const sptr<ServiceFilter>& filter,
                                                                 const std::string& extra,
                                                                 const sptr<IRemoteObject>& callback)
{
    if (filter == nullptr) {
        return {SIM_ERR_INVALID_ARGUMENT, 0};
    }
    auto added = AddListener({0, true, nullptr, filter, extra, callback});
    if (added.first == SIM_OK) {
        SIM_LOGI("service-filter listener %{public}u registered", added.second);
    }
    return added;
}

std::pair<int32_t, uint32_t> Simulator::AddListener(Listener listener)
{
    if (listener.callback == nullptr) {
        return {SIM_ERR_NULL_CALLBACK, 0};
    }
    sptr<IRemoteObject> callback = listener.callback;
    uint32_t id = 0;
    sptr<IRemoteObject::DeathRecipient> attach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (listeners_.size() >= MAX_REGISTRATIONS) {
            return {SIM_ERR_TOO_MANY_REGISTRATIONS, 0};
        }
        id = nextListenerId_++;
        listener.id = id;
        if (nextListenerId_ == 0) {
            nextListenerId_ = 1;
        }
        listeners_.push_back(std::move(listener));
        attach = RetainLocked(callback);
    }
    Attach(callback, attach);
    return {SIM_OK, id};
}

int32_t Simulator::RemoveAbilityListener(uint32_t listenerId)
{
    sptr<IRemoteObject> callback;
    sptr<IRemoteObject::DeathRecipient> detach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = std::find_if(listeners_.begin(), listeners_.end(), [&](const Listener& listener) {
            return listener.id == listenerId && !listener.byServiceFilter;
        });
        if (it == listeners_.end()) {
            return SIM_ERR_NO_SUCH_LISTENER;
        }
        callback = it->callback;
        listeners_.erase(it);
        detach = ReleaseLocked(callback.GetRefPtr());
    }
    Detach(callback, detach);
    return SIM_OK;
}

int32_t Simulator::RemoveServiceFilterListener(uint32_t listenerId)
{
    sptr<IRemoteObject> callback;
    sptr<IRemoteObject::DeathRecipient> detach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = std::find_if(listeners_.begin(), listeners_.end(), [&](const Listener& listener) {
            return listener.id == listenerId && listener.byServiceFilter;
        });
        if (it == listeners_.end()) {
            return SIM_ERR_NO_SUCH_LISTENER;
        }
        callback = it->callback;
        listeners_.erase(it);
        detach = ReleaseLocked(callback.GetRefPtr());
    }
    Detach(callback, detach);
    return SIM_OK;
}

int32_t Simulator::AddServiceChangedCallback(const sptr<IRemoteObject>& callback)
{
    if (callback == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    int64_t key = static_cast<int64_t>(CallerKey());
    sptr<IRemoteObject::DeathRecipient> attach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        bool known = std::any_of(serviceChanged_.begin(), serviceChanged_.end(),
                                 [&](const CallbackEntry& entry) { return entry.callback == callback; });
        if (known) {
            return SIM_OK;
        }
        if (serviceChanged_.size() >= MAX_REGISTRATIONS) {
            return SIM_ERR_TOO_MANY_REGISTRATIONS;
        }
        serviceChanged_.push_back({callback, key});
        attach = RetainLocked(callback);
    }
    Attach(callback, attach);
    return SIM_OK;
}

int32_t Simulator::RemoveServiceChangedCallbacks()
{
    int64_t key = static_cast<int64_t>(CallerKey());
    std::vector<std::pair<sptr<IRemoteObject>, sptr<IRemoteObject::DeathRecipient>>> detach;
    std::vector<sptr<IRemoteObject>> released;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        EraseIf<CallbackEntry>(
            serviceChanged_, [key](const CallbackEntry& entry) { return entry.key == key; }, released);
        for (const sptr<IRemoteObject>& object : released) {
            detach.emplace_back(object, ReleaseLocked(object.GetRefPtr()));
        }
    }
    for (const auto& entry : detach) {
        Detach(entry.first, entry.second);
    }
    return SIM_OK;
}

int32_t Simulator::AddDeliverCallback(int32_t deliverCode, const sptr<IRemoteObject>& callback)
{
    if (callback == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    sptr<IRemoteObject::DeathRecipient> attach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (deliver_.size() >= MAX_REGISTRATIONS) {
            return SIM_ERR_TOO_MANY_REGISTRATIONS;
        }
        deliver_.push_back({callback, deliverCode});
        attach = RetainLocked(callback);
    }
    Attach(callback, attach);
    return SIM_OK;
}

int32_t Simulator::AddDialogCallback(const sptr<IRemoteObject>& callback)
{
    if (callback == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    sptr<IRemoteObject::DeathRecipient> attach;
    sptr<IRemoteObject::DeathRecipient> detach;
    sptr<IRemoteObject> oldest;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        bool known = std::any_of(dialog_.begin(), dialog_.end(),
                                 [&](const CallbackEntry& entry) { return entry.callback == callback; });
        if (known) {
            return SIM_OK;
        }
        if (dialog_.size() >= MAX_REGISTRATIONS) {
            // No removal request exists for dialog callbacks; the oldest gives way.
            oldest = dialog_.front().callback;
            dialog_.erase(dialog_.begin());
            detach = ReleaseLocked(oldest.GetRefPtr());
        }
        dialog_.push_back({callback, 0});
        attach = RetainLocked(callback);
    }
    Detach(oldest, detach);
    Attach(callback, attach);
    return SIM_OK;
}

int32_t Simulator::NotifyDialogEvent(const std::string& dialogEvent)
{
    Notifications notes;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::string reply = world_.dialogReply;
        std::string quoted = nlohmann::json(dialogEvent).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        size_t at = reply.find("{event}");
        if (at != std::string::npos) {
            reply.replace(at, std::string("{event}").size(), quoted);
        }
        // Only the caller's own callbacks: were every application told, one
        // that repeats the request could fill every other's callback queue.
        uint64_t caller = GetCallingIdentity().connectionId;
        EncodedCallback encoded;
        for (const CallbackEntry& entry : dialog_) {
            auto watch = watches_.find(entry.callback.GetRefPtr());
            if (watch == watches_.end() || watch->second.connectionId != caller) {
                continue;
            }
            if (encoded.data == nullptr) {
                encoded = EncodeDialogReply(reply);
            }
            notes.push_back({entry.callback, encoded});
        }
    }
    // A service request: queued, not waited for.
    dispatcher_->Post(std::move(notes));
    return SIM_OK;
}

int32_t Simulator::PutKeyedCallback(CallbackTable& table, const std::string& key, const sptr<IRemoteObject>& callback)
{
    sptr<IRemoteObject> previous;
    sptr<IRemoteObject::DeathRecipient> attach;
    sptr<IRemoteObject::DeathRecipient> detach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = table.find(key);
        if (it == table.end() && table.size() >= MAX_REGISTRATIONS) {
            return SIM_ERR_TOO_MANY_REGISTRATIONS;
        }
        if (it != table.end()) {
            previous = it->second;
            detach = ReleaseLocked(previous.GetRefPtr());
        }
        table[key] = callback;
        attach = RetainLocked(callback);
    }
    Detach(previous, detach);
    Attach(callback, attach);
    return SIM_OK;
}

int32_t Simulator::TakeKeyedCallback(CallbackTable& table, const std::string& key, sptr<IRemoteObject>& callback)
{
    sptr<IRemoteObject::DeathRecipient> detach;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = table.find(key);
        if (it == table.end()) {
            return SIM_ERR_NOT_REGISTERED;
        }
        callback = it->second;
        table.erase(it);
        detach = ReleaseLocked(callback.GetRefPtr());
    }
    Detach(callback, detach);
    return SIM_OK;
}

int32_t Simulator::RequestService(const std::string& pkgName, const sptr<IRemoteObject>& callback)
{
    if (pkgName.empty()) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    if (callback == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    int32_t status = PutKeyedCallback(serviceRequests_, pkgName, callback);
    if (status == SIM_OK) {
        RequestResultInfo requested(static_cast<uint32_t>(PublishEvent::REQUESTED), SIM_OK);
        dispatcher_->Post({{callback, EncodePublishEvent(requested)}});
    }
    return status;
}

int32_t Simulator::UnRequestService(const std::string& pkgName)
{
    sptr<IRemoteObject> callback;
    int32_t status = TakeKeyedCallback(serviceRequests_, pkgName, callback);
    if (status == SIM_OK) {
        RequestResultInfo withdrawn(static_cast<uint32_t>(PublishEvent::WITHDRAWN), SIM_OK);
        dispatcher_->Post({{callback, EncodePublishEvent(withdrawn)}});
    }
    return status;
}

int32_t Simulator::AddKeyMouseCallback(const std::string& callerId, const sptr<IRemoteObject>& callback)
{
    if (callback == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    return PutKeyedCallback(keyMouse_, callerId, callback);
}

int32_t Simulator::RemoveKeyMouseCallback(const std::string& callerId)
{
    sptr<IRemoteObject> callback;
    return TakeKeyedCallback(keyMouse_, callerId, callback);
}

void Simulator::SetKeyMouseEdgeSwitch(bool on)
{
    std::lock_guard<std::mutex> lock(mutex_);
    keyMouseEdgeSwitch_ = on;
}

void Simulator::SetBindKeymouseService(bool bind)
{
    std::lock_guard<std::mutex> lock(mutex_);
    bindKeymouseService_ = bind;
}

// --- world changes ----------------------------------------------------------

void Simulator::DeviceEventsLocked(const Device& device, DeviceState from, DeviceState to, Notifications& out)
{
    bool wasOnline = from != DeviceState::OFFLINE;
    bool isOnline = to != DeviceState::OFFLINE;
    std::vector<DeviceChangedCallbackCode> codes;
    if (!wasOnline && isOnline) {
        codes.push_back(DeviceChangedCallbackCode::ON_DEVICE_ONLINE);
    }
    if (from != DeviceState::READY && to == DeviceState::READY) {
        codes.push_back(DeviceChangedCallbackCode::ON_DEVICE_READY);
    }
    if (wasOnline && !isOnline) {
        codes.push_back(DeviceChangedCallbackCode::ON_DEVICE_OFFLINE);
    }
    // Each event is encoded once, when its first receiver is found, and
    // shared by the others.
    DeviceInfo info = ToDeviceInfo(device);
    for (DeviceChangedCallbackCode code : codes) {
        EncodedCallback encoded;
        for (const Listener& listener : listeners_) {
            bool passes = listener.byServiceFilter ? ServiceFilterPasses(*listener.serviceFilter, device)
                                                   : DevicePassesAbilityFilter(*listener.abilityFilter, device);
            if (passes) {
                if (encoded.data == nullptr) {
                    encoded = EncodeDeviceChanged(code, info);
                }
                out.push_back({listener.callback, encoded});
            }
        }
    }
    if (wasOnline == isOnline) {
        return;
    }
    auto serviceEvent =
        static_cast<int32_t>(isOnline ? ServiceChangeEvent::DEVICE_ONLINE : ServiceChangeEvent::DEVICE_OFFLINE);
    if (!serviceChanged_.empty()) {
        EncodedCallback encoded = EncodeServiceChanged(serviceEvent, {ToDeviceServiceInfo(device)});
        for (const CallbackEntry& entry : serviceChanged_) {
            out.push_back({entry.callback, encoded});
        }
    }
    auto detectEvent = static_cast<int32_t>(isOnline ? DetectEvent::FOUND : DetectEvent::LOST);
    EncodedCallback detected;
    for (const DetectSession& session : detectSessions_) {
        if (DeviceFilterPasses(*session.filter, device)) {
            if (detected.data == nullptr) {
                detected = EncodeDetectEvent(detectEvent, info);
            }
            out.push_back({session.callback, detected});
        }
    }
}

World& Simulator::ChangeWorldLocked()
{
    // release: a reader that sees the new version and then takes the lock
    // finds the changed world.
    worldVersion_.fetch_add(1, std::memory_order_release);
    return world_;
}

int32_t Simulator::SetDeviceState(const std::string& id, DeviceState state, std::string& detail)
{
    Notifications notes;
    std::string udid;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        int index = Sim::FindDevice(world_, id);
        if (index < 0) {
            detail = "no device with udid or network id \"" + id + "\"";
            return SIM_ERR_NO_SUCH_DEVICE;
        }
        Device& device = ChangeWorldLocked().devices[static_cast<size_t>(index)];
        DeviceState from = device.state;
        device.state = state;
        DeviceEventsLocked(device, from, state, notes);
        detail = Describe(device) + (from == state ? " was already " : " is now ") + DeviceStateToString(state);
        udid = device.udid;
    }
    detail += Sent(dispatcher_->Deliver(std::move(notes)));
    SIM_LOGI("%{public}s", ForLog(detail, udid).c_str());
    return SIM_OK;
}

int32_t Simulator::AddDevice(const Device& device, std::string& detail)
{
    Notifications notes;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& id : {device.udid, device.networkId}) {
            if (Sim::FindDevice(world_, id) >= 0 || id == world_.local.udid || id == world_.local.networkId) {
                detail = "\"" + id + "\" is already used by another device";
                return SIM_ERR_DEVICE_EXISTS;
            }
        }
        if (device.udid.empty() || device.networkId.empty()) {
            detail = "a device needs a udid and a network id";
            return SIM_ERR_INVALID_ARGUMENT;
        }
        if (world_.devices.size() >= MAX_DEVICES) {
            detail = "the world already holds " + std::to_string(MAX_DEVICES) + " devices";
            return SIM_ERR_WORLD_FULL;
        }
        ChangeWorldLocked().devices.push_back(device);
        DeviceEventsLocked(device, DeviceState::OFFLINE, device.state, notes);
        detail = "added " + Describe(device) + ", " + DeviceStateToString(device.state);
    }
    detail += Sent(dispatcher_->Deliver(std::move(notes)));
    SIM_LOGI("%{public}s", ForLog(detail, device.udid).c_str());
    return SIM_OK;
}

int32_t Simulator::RemoveDevice(const std::string& id, std::string& detail)
{
    Notifications notes;
    std::string udid;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        int index = Sim::FindDevice(world_, id);
        if (index < 0) {
            detail = "no device with udid or network id \"" + id + "\"";
            return SIM_ERR_NO_SUCH_DEVICE;
        }
        World& world = ChangeWorldLocked();
        Device device = world.devices[static_cast<size_t>(index)];
        world.devices.erase(world.devices.begin() + index);
        DeviceEventsLocked(device, device.state, DeviceState::OFFLINE, notes);
        detail = "removed " + Describe(device);
        udid = device.udid;
    }
    detail += Sent(dispatcher_->Deliver(std::move(notes)));
    SIM_LOGI("%{public}s", ForLog(detail, udid).c_str());
    return SIM_OK;
}

int32_t Simulator::SetDynamicInfo(const std::string& id, const std::string& key, const std::string& value,
                                  std::string& detail)
{
    std::lock_guard<std::mutex> lock(mutex_);
    int index = Sim::FindDevice(world_, id);
    if (index < 0) {
        detail = "no device with udid or network id \"" + id + "\"";
        return SIM_ERR_NO_SUCH_DEVICE;
    }
    if (key.empty()) {
        detail = "the key must not be empty";
        return SIM_ERR_INVALID_ARGUMENT;
    }
    Device& device = ChangeWorldLocked().devices[static_cast<size_t>(index)];
    device.dynamicInfo[key] = value;
    detail = Describe(device) + ": " + key + " = " + value;
    return SIM_OK;
}

int32_t Simulator::NotifyServiceChange(int32_t event, const std::vector<std::string>& ids, std::string& detail)
{
    std::vector<sptr<IRemoteObject>> targets;
    std::vector<Device> devices;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& id : ids) {
            int index = Sim::FindDevice(world_, id);
            if (index < 0) {
                detail = "no device with udid or network id \"" + id + "\"";
                return SIM_ERR_NO_SUCH_DEVICE;
            }
            devices.push_back(world_.devices[static_cast<size_t>(index)]);
        }
        if (ids.empty()) {
            for (const Device& device : world_.devices) {
                if (device.IsOnline()) {
                    devices.push_back(device);
                }
            }
        }
        for (const CallbackEntry& entry : serviceChanged_) {
            targets.push_back(entry.callback);
        }
    }
    // Encoded outside the lock: a large world makes a large record list.
    Notifications notes;
    if (!targets.empty()) {
        std::vector<DeviceServiceInfo> services;
        for (const Device& device : devices) {
            services.push_back(ToDeviceServiceInfo(device));
        }
        EncodedCallback encoded = EncodeServiceChanged(event, services);
        for (sptr<IRemoteObject>& target : targets) {
            notes.push_back({std::move(target), encoded});
        }
    }
    detail = "service change " + std::to_string(event) + " for " + std::to_string(devices.size()) + " devices" +
             Sent(dispatcher_->Deliver(std::move(notes)));
    return SIM_OK;
}

int32_t Simulator::Deliver(bool allCodes, int32_t deliverCode, const std::string& info, std::string& detail)
{
    Notifications notes;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        EncodedCallback encoded;
        for (const CallbackEntry& entry : deliver_) {
            if (allCodes || entry.key == deliverCode) {
                if (encoded.data == nullptr) {
                    encoded = EncodeDeliver(info);
                }
                notes.push_back({entry.callback, encoded});
            }
        }
    }
    detail = "delivered" + Sent(dispatcher_->Deliver(std::move(notes)));
    return SIM_OK;
}

int32_t Simulator::PublishResult(const std::string& pkgName, uint32_t eventCode, uint32_t resultCode,
                                 std::string& detail)
{
    Notifications notes;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!pkgName.empty() && serviceRequests_.count(pkgName) == 0) {
            detail = "no service request of package \"" + pkgName + "\"";
            return SIM_ERR_NOT_REGISTERED;
        }
        EncodedCallback encoded;
        for (const auto& request : serviceRequests_) {
            if (pkgName.empty() || request.first == pkgName) {
                if (encoded.data == nullptr) {
                    encoded = EncodePublishEvent(RequestResultInfo(eventCode, resultCode));
                }
                notes.push_back({request.second, encoded});
            }
        }
    }
    detail = "published event " + std::to_string(eventCode) + " result " + std::to_string(resultCode) +
             Sent(dispatcher_->Deliver(std::move(notes)));
    return SIM_OK;
}

int32_t Simulator::DialogReply(const std::string& reply, std::string& detail)
{
    Notifications notes;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        EncodedCallback encoded = dialog_.empty() ? EncodedCallback() : EncodeDialogReply(reply);
        for (const CallbackEntry& entry : dialog_) {
            notes.push_back({entry.callback, encoded});
        }
    }
    detail = "dialog reply" + Sent(dispatcher_->Deliver(std::move(notes)));
    return SIM_OK;
}

int32_t Simulator::SendDetectEvent(const std::string& id, int32_t event, std::string& detail)
{
    Notifications notes;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        int index = Sim::FindDevice(world_, id);
        if (index < 0) {
            detail = "no device with udid or network id \"" + id + "\"";
            return SIM_ERR_NO_SUCH_DEVICE;
        }
        const Device& device = world_.devices[static_cast<size_t>(index)];
        EncodedCallback encoded;
        for (const DetectSession& session : detectSessions_) {
            if (DeviceFilterPasses(*session.filter, device)) {
                if (encoded.data == nullptr) {
                    encoded = EncodeDetectEvent(event, ToDeviceInfo(device));
                }
                notes.push_back({session.callback, encoded});
            }
        }
        detail = "detect event " + std::to_string(event) + " for " + Describe(device);
    }
    detail += Sent(dispatcher_->Deliver(std::move(notes)));
    return SIM_OK;
}

int32_t Simulator::LoadWorld(const World& world, std::string& detail)
{
    std::lock_guard<std::mutex> lock(mutex_);
    ChangeWorldLocked() = world;
    detail = "loaded a world of " + std::to_string(world_.devices.size()) + " devices";
    return SIM_OK;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
