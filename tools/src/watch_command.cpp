// `devicedetect watch`: registers listeners and callbacks, prints events as
// they arrive until Ctrl-C, --count or --timeout, then unregisters. When the
// service goes away it says so, and when it is back it registers the same
// listeners and callbacks again.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>

#include "cli_common.h"
#include "control_client.h"
#include "scenario.h"
#include "service_filter.h"
#include "sim_status.h"
#include "system_ability_manager.h"
#include "world_json.h"

namespace DeviceDetectCli {

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int)
{
    g_interrupted = true;
}

// Handlers run on IPC threads (or, in process, on the thread that changed
// the world); the main thread prints, so lines never interleave. News of
// the service itself comes through the same queue, in order with the events.
class EventQueue {
public:
    struct Item {
        enum class Kind { LINE, SERVICE_AVAILABLE, SERVICE_GONE };
        Kind kind = Kind::LINE;
        std::string line;
    };

    void Push(std::string line) { Add(Item{Item::Kind::LINE, std::move(line)}); }
    void PushService(bool available)
    {
        Add(Item{available ? Item::Kind::SERVICE_AVAILABLE : Item::Kind::SERVICE_GONE, std::string()});
    }
    // Waits up to `wait` for an item.
    bool Pop(Item& item, std::chrono::milliseconds wait)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!cv_.wait_for(lock, wait, [this] { return !items_.empty(); })) {
            return false;
        }
        item = std::move(items_.front());
        items_.pop_front();
        return true;
    }

private:
    void Add(Item item)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        items_.push_back(std::move(item));
        cv_.notify_one();
    }

    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Item> items_;
};

// What --record writes: the events as they arrive, from any handler thread.
class Recording {
public:
    explicit Recording(Sim::World start) : recorder_(std::move(start)), start_(std::chrono::steady_clock::now()) {}

    void Device(const std::string& kind, const DeviceInfo& device)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        recorder_.OnDevice(Now(), kind, device.GetDeviceUdid(), device.GetDeviceNetworkId(), device.GetDeviceName(),
                           device.GetDeviceType());
    }
    void Services(int32_t event, const std::vector<DeviceServiceInfo>& infos)
    {
        std::vector<Sim::ScenarioRecorder::ServiceDevice> devices;
        for (const DeviceServiceInfo& info : infos) {
            devices.push_back({info.GetDeviceId(), info.GetServiceRuleList(), info.GetDeviceHashId(), info.GetBrMac(),
                               info.GetExtraInfo()});
        }
        std::lock_guard<std::mutex> lock(mutex_);
        recorder_.OnServices(Now(), event, devices);
    }
    void Deliver(int32_t code, const std::string& info)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        recorder_.OnDeliver(Now(), code, info);
    }
    void DialogReply(const std::string& reply)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        recorder_.OnDialogReply(Now(), reply);
    }
    Sim::Scenario Result()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return recorder_.Result();
    }

private:
    uint64_t Now() const
    {
        return static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_).count());
    }
    std::mutex mutex_;
    Sim::ScenarioRecorder recorder_;
    std::chrono::steady_clock::time_point start_;
};

std::string DeviceLine(const char* what, const DeviceInfo& device, bool json)
{
    if (json) {
        return Json{{"event", what}, {"device", DeviceJson(device)}}.dump(-1, ' ', false,
                                                                          Json::error_handler_t::replace);
    }
    return std::string(what) + "  " + Printable(device.GetDeviceName()) + "  (" + TypeName(device.GetDeviceType()) +
           ", " + Printable(device.GetDeviceUdid()) + ")";
}

class DeviceEvents : public DeviceChangedCallbackStub {
public:
    DeviceEvents(std::shared_ptr<EventQueue> queue, bool json, std::string tag,
                 std::shared_ptr<Recording> recording = nullptr)
        : queue_(std::move(queue)), json_(json), tag_(std::move(tag)), recording_(std::move(recording))
    {
    }
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Push("online", device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Push("offline", device); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Push("ready", device); }

private:
    int32_t Push(const char* what, const DeviceInfo& device)
    {
        if (recording_ != nullptr) {
            recording_->Device(what, device);
        }
        queue_->Push(DeviceLine((tag_ + what).c_str(), device, json_));
        return 0;
    }
    std::shared_ptr<EventQueue> queue_;
    bool json_;
    std::string tag_;
    std::shared_ptr<Recording> recording_;
};

class ServiceEvents : public ServiceChangedCallbackStub {
public:
    ServiceEvents(std::shared_ptr<EventQueue> queue, bool json, std::shared_ptr<Recording> recording)
        : queue_(std::move(queue)), json_(json), recording_(std::move(recording))
    {
    }
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        if (recording_ != nullptr) {
            recording_->Services(event, infos);
        }
        if (json_) {
            Json devices = Json::array();
            for (const DeviceServiceInfo& info : infos) {
                devices.push_back(Json{{"name", info.GetDeviceName()},
                                       {"type", info.GetDeviceType()},
                                       {"typeName", TypeName(info.GetDeviceType())},
                                       {"udid", info.GetDeviceId()},
                                       {"networkId", info.GetNetworkId()},
                                       {"hashId", info.GetDeviceHashId()},
                                       {"serviceRules", info.GetServiceRuleList()},
                                       {"brMac", info.GetBrMac()},
                                       {"extraInfo", info.GetExtraInfo()}});
            }
            queue_->Push(Json{{"event", "services"}, {"code", event}, {"devices", devices}}.dump(
                -1, ' ', false, Json::error_handler_t::replace));
            return 0;
        }
        std::string line = "services " + std::to_string(event) + ":";
        for (const DeviceServiceInfo& info : infos) {
            line += "  " + Printable(info.GetDeviceName()) + " [";
            std::vector<std::string> rules = info.GetServiceRuleList();
            for (size_t i = 0; i < rules.size(); ++i) {
                line += (i > 0 ? ", " : "") + Printable(rules[i]);
            }
            line += "]";
        }
        queue_->Push(line);
        return 0;
    }

private:
    std::shared_ptr<EventQueue> queue_;
    bool json_;
    std::shared_ptr<Recording> recording_;
};

class DeliverEvents : public ServiceDeliverCallbackStub {
public:
    DeliverEvents(std::shared_ptr<EventQueue> queue, bool json, int code, std::shared_ptr<Recording> recording)
        : queue_(std::move(queue)), json_(json), code_(code), recording_(std::move(recording))
    {
    }
    int32_t OnDeliver(const std::string& info) override
    {
        if (recording_ != nullptr) {
            recording_->Deliver(code_, info);
        }
        queue_->Push(json_ ? Json{{"event", "deliver"}, {"code", code_}, {"info", info}}.dump(
                                 -1, ' ', false, Json::error_handler_t::replace)
                           : "deliver " + std::to_string(code_) + ": " + Printable(info));
        return 0;
    }

private:
    std::shared_ptr<EventQueue> queue_;
    bool json_;
    int code_;
    std::shared_ptr<Recording> recording_;
};

class DialogEvents : public DialogEventCallbackStub {
public:
    DialogEvents(std::shared_ptr<EventQueue> queue, bool json, std::shared_ptr<Recording> recording)
        : queue_(std::move(queue)), json_(json), recording_(std::move(recording))
    {
    }
    int32_t OnDialogEventReply(const std::string& info) override
    {
        if (recording_ != nullptr) {
            recording_->DialogReply(info);
        }
        queue_->Push(
            json_ ? Json{{"event", "dialogReply"}, {"reply", info}}.dump(-1, ' ', false, Json::error_handler_t::replace)
                  : "dialog reply: " + Printable(info));
        return 0;
    }

private:
    std::shared_ptr<EventQueue> queue_;
    bool json_;
    std::shared_ptr<Recording> recording_;
};

struct WatchOptions {
    std::string bundle;
    std::string service;
    std::vector<std::string> types;
    std::vector<int> deliverCodes;
    bool dialog = false;
    int count = 0;
    double timeout = 0;
    std::string record;
};

// The world the service has now, where a recording starts.
std::shared_ptr<Recording> StartRecording(const Context& ctx, const sptr<DeviceDetectProxy>& proxy)
{
    Sim::ControlClient client(proxy->AsObject());
    Sim::ControlResult result = client.GetWorld();
    Sim::World world;
    std::string error;
    if (result.status != Sim::SIM_OK) {
        Fail(ctx, "watch --record (reading the world)", result.status, result.detail);
        return nullptr;
    }
    if (!Sim::ParseWorld(result.json, world, error)) {
        Fail(ctx, "watch --record (reading the world)", Sim::SIM_ERR_BAD_WORLD, error);
        return nullptr;
    }
    return std::make_shared<Recording>(std::move(world));
}

// Everything watch registers. The stubs live as long as the watch, so that
// a restarted service gets the very same listeners and callbacks again.
class Registrations {
public:
    Registrations(const WatchOptions& options, std::vector<std::string> typeNames,
                  const std::shared_ptr<EventQueue>& queue, bool json, const std::shared_ptr<Recording>& recording)
        : options_(options), typeNames_(std::move(typeNames))
    {
        devices_ = sptr<DeviceEvents>::MakeSptr(queue, json, "", recording);
        services_ = sptr<ServiceEvents>::MakeSptr(queue, json, recording);
        if (!options.service.empty() || !typeNames_.empty()) {
            serviceDevices_ = sptr<DeviceEvents>::MakeSptr(queue, json, "filtered-", recording);
        }
        for (int code : options.deliverCodes) {
            deliverers_.push_back(sptr<DeliverEvents>::MakeSptr(queue, json, code, recording));
        }
        if (options.dialog) {
            dialog_ = sptr<DialogEvents>::MakeSptr(queue, json, recording);
        }
    }

    // 0, or the status of the first of the two registrations watch cannot
    // do without (its request's name in `request`); the others only warn.
    int32_t Register(const sptr<DeviceDetectProxy>& proxy, std::string& request)
    {
        auto registered =
            proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(options_.bundle), "devicedetect", devices_);
        if (registered.first != 0) {
            request = "RegisterDevChangedCallback";
            return registered.first;
        }
        listenerId_ = registered.second;
        int32_t status = proxy->RegisterServiceChangedCallback(services_);
        if (status != 0) {
            proxy->UnregisterDevChangedCallback(listenerId_);
            request = "RegisterServiceChangedCallback";
            return status;
        }
        byService_ = {-1, 0};
        if (serviceDevices_ != nullptr) {
            byService_ = proxy->RegisterCallbackWithServiceFilter(
                sptr<ServiceFilter>::MakeSptr(options_.service, typeNames_), "devicedetect", serviceDevices_);
            if (byService_.first != 0) {
                std::cerr << "devicedetect: RegisterCallbackWithServiceFilter failed: " << StatusName(byService_.first)
                          << "\n";
            }
        }
        for (size_t i = 0; i < deliverers_.size(); ++i) {
            status = proxy->RegisterServiceDeliverCallback(options_.deliverCodes[i], deliverers_[i]);
            if (status != 0) {
                std::cerr << "devicedetect: RegisterServiceDeliverCallback failed: " << StatusName(status) << "\n";
            }
        }
        if (dialog_ != nullptr) {
            proxy->SetDialogEventCallback(dialog_);
        }
        return 0;
    }

    void Unregister(const sptr<DeviceDetectProxy>& proxy)
    {
        proxy->UnregisterDevChangedCallback(listenerId_);
        if (byService_.first == 0) {
            proxy->UnregisterServiceFilterListener(byService_.second);
        }
        // The service cannot tell callers apart, so this removal would take
        // other processes' callbacks too; across the socket, this process's
        // exit drops its own.
        sptr<IRemoteObject> service = proxy->AsObject();
        if (service == nullptr || !service->IsProxyObject()) {
            proxy->UnregisterServiceChangedCallback();
        }
        // Deliver and dialog callbacks have no removal request; the service
        // drops them when this process goes away.
    }

    uint32_t ListenerId() const { return listenerId_; }

private:
    const WatchOptions& options_;
    const std::vector<std::string> typeNames_;
    sptr<DeviceEvents> devices_;
    sptr<ServiceEvents> services_;
    sptr<DeviceEvents> serviceDevices_;
    std::vector<sptr<DeliverEvents>> deliverers_;
    sptr<DialogEvents> dialog_;
    uint32_t listenerId_ = 0;
    std::pair<int32_t, uint32_t> byService_{-1, 0};
};

// Told by the platform when the service appears and goes; the main thread
// acts on it (ServiceFollower), in order with the events around it.
class ServiceAvailability : public SystemAbilityListener {
public:
    explicit ServiceAvailability(std::shared_ptr<EventQueue> queue) : queue_(std::move(queue)) {}
    void OnSystemAbilityAvailable(int32_t /* systemAbilityId */) override { queue_->PushService(true); }
    void OnSystemAbilityGone(int32_t /* systemAbilityId */) override { queue_->PushService(false); }

private:
    std::shared_ptr<EventQueue> queue_;
};

// The proxy of the running service. The cached one may still be the dead
// service's when its death notice has not reached the cache yet; then it
// is dropped and the service looked up again.
sptr<DeviceDetectProxy> LiveProxy()
{
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    sptr<IRemoteObject> object = proxy != nullptr ? proxy->AsObject() : nullptr;
    if (object != nullptr && object->IsObjectDead()) {
        DeviceDetectProxy::CleanupInstance();
        proxy = DeviceDetectProxy::GetInstance();
    }
    return proxy;
}

// Follows the service across restarts, on the main thread: one line when it
// goes, and when it is back the same registrations again and one line.
class ServiceFollower {
public:
    ServiceFollower(const Context& ctx, Registrations& registrations, sptr<DeviceDetectProxy> registeredWith)
        : ctx_(ctx), registrations_(registrations), proxy_(std::move(registeredWith))
    {
    }

    void OnGone()
    {
        if (proxy_ == nullptr) {
            return;
        }
        proxy_ = nullptr;
        std::cout << (ctx_.json ? Json{{"event", "serviceGone"}, {"systemAbility", SYNTAVO_DEVICE_DETECT_SA_ID}}.dump()
                                : "service gone (system ability " + std::to_string(SYNTAVO_DEVICE_DETECT_SA_ID) +
                                      "); waiting for it to come back")
                  << std::endl;
    }

    void OnAvailable()
    {
        sptr<DeviceDetectProxy> proxy = LiveProxy();
        // The first notice tells of the service watch registered with.
        if (proxy == nullptr || (proxy_ != nullptr && proxy->AsObject() == proxy_->AsObject())) {
            return;
        }
        OnGone();  // replaced before its end was told
        std::string request;
        int32_t status = registrations_.Register(proxy, request);
        Json event{
            {"event", "serviceBack"}, {"systemAbility", SYNTAVO_DEVICE_DETECT_SA_ID}, {"registered", status == 0}};
        if (status != 0) {
            event.update({{"request", request}, {"status", status}, {"statusName", StatusName(status)}});
            std::cout << (ctx_.json ? event.dump()
                                    : "service back, but registering again failed: " + request + ": " +
                                          StatusName(status) + " (" + std::to_string(status) + ")")
                      << std::endl;
            return;
        }
        proxy_ = proxy;
        event["listener"] = registrations_.ListenerId();
        std::cout << (ctx_.json ? event.dump()
                                : "service back, registered again (listener " +
                                      std::to_string(registrations_.ListenerId()) + ")")
                  << std::endl;
    }

    // What watch is registered with now; null while the service is away.
    const sptr<DeviceDetectProxy>& Current() const { return proxy_; }

private:
    const Context& ctx_;
    Registrations& registrations_;
    sptr<DeviceDetectProxy> proxy_;
};

int RunWatch(Context& ctx, const WatchOptions& options)
{
    std::vector<std::string> typeNames;
    for (const std::string& text : options.types) {
        uint32_t code = 0;
        if (!Sim::ParseDeviceType(text, code)) {
            std::cerr << "devicedetect: unknown device type \"" << text << "\"\n";
            return 2;
        }
        typeNames.push_back(ServiceFilter::ConvertDeviceType(code));
    }
    sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
    if (proxy == nullptr) {
        return EXIT_UNREACHABLE;
    }
    std::shared_ptr<Recording> recording;
    if (!options.record.empty()) {
        recording = StartRecording(ctx, proxy);
        if (recording == nullptr) {
            return EXIT_REQUEST_FAILED;
        }
    }
    auto queue = std::make_shared<EventQueue>();
    // Subscribed before registering, so that a service that dies right
    // after the registrations is reported gone like any later death.
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    auto availability = sptr<ServiceAvailability>::MakeSptr(queue);
    const int32_t subscribed =
        manager != nullptr ? manager->SubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, availability) : -1;
    if (subscribed != 0) {
        std::cerr << "devicedetect: cannot follow the service across restarts: " << StatusName(subscribed) << "\n";
    }
    Registrations registrations(options, typeNames, queue, ctx.json, recording);
    std::string request;
    int32_t status = registrations.Register(proxy, request);
    if (status != 0) {
        if (subscribed == 0) {
            manager->UnsubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, availability);
        }
        return Fail(ctx, request, status);
    }
    ServiceFollower follower(ctx, registrations, proxy);

    std::cerr << "watching (listener " << registrations.ListenerId() << ")";
    if (options.count > 0) {
        std::cerr << ", " << options.count << " events";
    }
    if (options.timeout > 0) {
        std::cerr << ", " << options.timeout << " s";
    }
    std::cerr << "; Ctrl-C to stop" << std::endl;

    g_interrupted = false;
    auto previous = std::signal(SIGINT, OnInterrupt);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.timeout);
    int seen = 0;
    while (!g_interrupted && (options.count <= 0 || seen < options.count)) {
        if (options.timeout > 0 && std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        EventQueue::Item item;
        if (!queue->Pop(item, std::chrono::milliseconds(100))) {
            continue;
        }
        switch (item.kind) {
            case EventQueue::Item::Kind::LINE:
                std::cout << item.line << std::endl;
                ++seen;
                break;
            case EventQueue::Item::Kind::SERVICE_AVAILABLE:
                follower.OnAvailable();
                break;
            case EventQueue::Item::Kind::SERVICE_GONE:
                follower.OnGone();
                break;
        }
    }
    std::signal(SIGINT, previous);

    if (subscribed == 0) {
        manager->UnsubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, availability);
    }
    if (follower.Current() != nullptr) {
        registrations.Unregister(follower.Current());
    }
    if (recording != nullptr) {
        Sim::Scenario scenario = recording->Result();
        std::ofstream out(options.record, std::ios::binary | std::ios::trunc);
        out << Sim::ScenarioToJson(scenario) << "\n";
        if (!out) {
            std::cerr << "devicedetect: cannot write \"" << options.record << "\"\n";
            return EXIT_REQUEST_FAILED;
        }
        std::cerr << "recorded " << scenario.steps.size() << " steps to " << options.record << std::endl;
    }
    return EXIT_OK;
}

}  // namespace

void AddWatchCommand(CLI::App& app, Context& ctx)
{
    auto options = std::make_shared<WatchOptions>();
    CLI::App* watch = AddCommandWithWait(app, ctx, "watch",
                                         "Register listeners and callbacks and print events as they arrive; register "
                                         "them again when the service restarts");
    watch->add_option("--bundle", options->bundle, "Only devices with an ability of this bundle (default: all)");
    watch->add_option("--service", options->service, "Also listen through a service filter for this service");
    watch->add_option("--type", options->types, "Device type of the service filter, repeatable");
    watch->add_option("--deliver", options->deliverCodes, "Also register a deliver callback for this code, repeatable");
    watch->add_flag("--dialog", options->dialog, "Also register a dialog callback");
    watch->add_option("--count", options->count, "Stop after this many events");
    watch->add_option("--timeout", options->timeout, "Stop after this many seconds");
    watch->add_option("--record", options->record, "Write what was observed as a scenario file (sim play replays it)");
    watch->callback([&ctx, options] { ctx.action = [&ctx, options] { return RunWatch(ctx, *options); }; });
}

}  // namespace DeviceDetectCli
