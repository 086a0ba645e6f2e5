#include "scenario.h"

#include <climits>
#include <set>
#include <thread>

#include <nlohmann/json.hpp>

#include "sim_status.h"
#include "world_json.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

using nlohmann::json;

constexpr uint32_t CONDITION_POLL_MS = 5;

struct ActionName {
    StepAction action;
    const char* name;
};

constexpr ActionName ACTION_NAMES[] = {
    {StepAction::ONLINE, "online"},
    {StepAction::OFFLINE, "offline"},
    {StepAction::READY, "ready"},
    {StepAction::ADD, "add"},
    {StepAction::REMOVE, "remove"},
    {StepAction::SERVICE_CHANGE, "serviceChange"},
    {StepAction::DETECT, "detect"},
    {StepAction::DELIVER, "deliver"},
    {StepAction::DIALOG_REPLY, "dialogReply"},
    {StepAction::PUBLISH, "publish"},
    {StepAction::DYNAMIC_INFO, "dynamicInfo"},
    {StepAction::CONFIG, "config"},
};

// Reads the fields of one step, naming "steps[i].field" in every error and
// refusing fields the step's action does not use.
class StepReader {
public:
    StepReader(const json& object, std::string path, std::string& error)
        : object_(object), path_(std::move(path)), error_(error)
    {
    }

    const json* Find(const char* key, bool required)
    {
        seen_.insert(key);
        auto it = object_.find(key);
        if (it == object_.end()) {
            if (required) {
                Fail(key, "missing");
            }
            return nullptr;
        }
        return &*it;
    }

    bool String(const char* key, std::string& out, bool required)
    {
        const json* value = Find(key, required);
        if (value == nullptr) {
            return !required;
        }
        if (!value->is_string()) {
            return Fail(key, "must be a string");
        }
        out = value->get<std::string>();
        return true;
    }

    bool Bool(const char* key, bool& out)
    {
        const json* value = Find(key, false);
        if (value == nullptr) {
            return true;
        }
        if (!value->is_boolean()) {
            return Fail(key, "must be true or false");
        }
        out = value->get<bool>();
        return true;
    }

    bool Int32(const char* key, int32_t& out, bool required)
    {
        const json* value = Find(key, required);
        if (value == nullptr) {
            return !required;
        }
        if (!value->is_number_integer() || value->get<int64_t>() < INT32_MIN || value->get<int64_t>() > INT32_MAX) {
            return Fail(key, "must be a 32-bit integer");
        }
        out = static_cast<int32_t>(value->get<int64_t>());
        return true;
    }

    bool Uint(const char* key, uint64_t& out, uint64_t max, bool required)
    {
        const json* value = Find(key, required);
        if (value == nullptr) {
            return !required;
        }
        if (!value->is_number_unsigned() || value->get<uint64_t>() > max) {
            return Fail(key, "must be an integer from 0 to " + std::to_string(max));
        }
        out = value->get<uint64_t>();
        return true;
    }

    bool NoUnknownKeys()
    {
        for (auto it = object_.begin(); it != object_.end(); ++it) {
            if (seen_.count(it.key()) == 0) {
                return Fail(it.key(), "unknown field");
            }
        }
        return true;
    }

    std::string Path(const std::string& key) const { return path_ + "." + key; }

    bool Fail(const std::string& key, const std::string& what)
    {
        error_ = Path(key) + ": " + what;
        return false;
    }

private:
    const json& object_;
    std::string path_;
    std::string& error_;
    std::set<std::string> seen_;
};

// The device ids of the world as the steps so far have left it.
class KnownDevices {
public:
    explicit KnownDevices(const World& world)
    {
        for (const Device& device : world.devices) {
            Add(device);
        }
        local_ = {world.local.udid, world.local.networkId};
    }
    bool Has(const std::string& id) const { return pairs_.count(id) != 0; }
    bool Taken(const std::string& id) const { return Has(id) || local_.count(id) != 0; }
    void Add(const Device& device)
    {
        pairs_[device.udid] = device.networkId;
        pairs_[device.networkId] = device.udid;
    }
    void Remove(const std::string& id)
    {
        auto it = pairs_.find(id);
        if (it != pairs_.end()) {
            std::string other = it->second;
            pairs_.erase(it);
            pairs_.erase(other);
        }
    }

private:
    std::map<std::string, std::string> pairs_;
    std::set<std::string> local_;
};

bool ReadDeviceId(StepReader& reader, const KnownDevices& known, std::string& id)
{
    if (!reader.String("device", id, true)) {
        return false;
    }
    if (!known.Has(id)) {
        return reader.Fail("device", "unknown device \"" + id + "\"");
    }
    return true;
}

bool ReadCondition(StepReader& reader, StepCondition& condition, std::string& error)
{
    const json* until = reader.Find("until", false);
    if (until == nullptr) {
        return true;
    }
    StepReader sub(*until, reader.Path("until"), error);
    if (!until->is_object()) {
        return reader.Fail("until", "must be an object");
    }
    uint64_t count = 0;
    uint64_t timeout = condition.timeoutMs;
    bool ok = sub.Uint("listeners", count, MAX_REGISTRATIONS * 2, false) &&
              sub.String("serviceFilter", condition.name, false) && sub.Uint("timeoutMs", timeout, 3600000, false);
    std::string bundle;
    ok = ok && sub.String("bundle", bundle, false) && sub.NoUnknownKeys();
    if (!ok) {
        return false;
    }
    int kinds = (until->contains("listeners") ? 1 : 0) + (until->contains("serviceFilter") ? 1 : 0) +
                (until->contains("bundle") ? 1 : 0);
    if (kinds != 1) {
        return reader.Fail("until", "needs exactly one of \"listeners\", \"serviceFilter\", \"bundle\"");
    }
    condition.timeoutMs = static_cast<uint32_t>(timeout);
    if (until->contains("listeners")) {
        condition.kind = StepCondition::Kind::LISTENERS;
        condition.count = static_cast<uint32_t>(count);
    } else if (until->contains("serviceFilter")) {
        condition.kind = StepCondition::Kind::SERVICE_FILTER;
    } else {
        condition.kind = StepCondition::Kind::BUNDLE;
        condition.name = bundle;
    }
    return true;
}

bool ReadStep(const json& value, size_t index, KnownDevices& known, ScenarioStep& step, std::string& error)
{
    std::string path = "steps[" + std::to_string(index) + "]";
    if (!value.is_object()) {
        error = path + ": must be an object";
        return false;
    }
    StepReader reader(value, path, error);
    std::string action;
    if (!reader.String("action", action, true) || !reader.Uint("at", step.atMs, UINT32_MAX, false)) {
        return false;
    }
    bool found = false;
    for (const ActionName& entry : ACTION_NAMES) {
        if (action == entry.name) {
            step.action = entry.action;
            found = true;
        }
    }
    if (!found) {
        return reader.Fail("action", "unknown action \"" + action + "\"");
    }
    bool ok = true;
    switch (step.action) {
        case StepAction::ONLINE:
        case StepAction::OFFLINE:
        case StepAction::READY:
            ok = ReadDeviceId(reader, known, step.device);
            break;
        case StepAction::REMOVE:
            ok = ReadDeviceId(reader, known, step.device);
            if (ok) {
                known.Remove(step.device);
            }
            break;
        case StepAction::ADD: {
            const json* device = reader.Find("new", true);
            if (device == nullptr) {
                return false;
            }
            std::string inner;
            if (!ParseDevice(device->dump(), step.newDevice, inner)) {
                error = reader.Path("new") + "." + inner;
                return false;
            }
            if (known.Taken(step.newDevice.udid)) {
                return reader.Fail("new.udid", "\"" + step.newDevice.udid + "\" is already used by another device");
            }
            if (known.Taken(step.newDevice.networkId)) {
                return reader.Fail("new.networkId",
                                   "\"" + step.newDevice.networkId + "\" is already used by another device");
            }
            known.Add(step.newDevice);
            break;
        }
        case StepAction::SERVICE_CHANGE: {
            step.event = static_cast<int32_t>(ServiceChangeEvent::SERVICES_CHANGED);
            ok = reader.Int32("event", step.event, false);
            const json* devices = ok ? reader.Find("devices", false) : nullptr;
            if (devices != nullptr) {
                if (!devices->is_array()) {
                    return reader.Fail("devices", "must be an array of device ids");
                }
                for (size_t i = 0; i < devices->size(); ++i) {
                    std::string key = "devices[" + std::to_string(i) + "]";
                    const json& id = (*devices)[i];
                    if (!id.is_string()) {
                        return reader.Fail(key, "must be a string");
                    }
                    if (!known.Has(id.get<std::string>())) {
                        return reader.Fail(key, "unknown device \"" + id.get<std::string>() + "\"");
                    }
                    step.devices.push_back(id.get<std::string>());
                }
            }
            break;
        }
        case StepAction::DETECT:
            step.event = static_cast<int32_t>(DetectEvent::FOUND);
            ok = ReadDeviceId(reader, known, step.device) && reader.Int32("event", step.event, false);
            break;
        case StepAction::DELIVER:
            ok = reader.Int32("code", step.code, false) && reader.Bool("allCodes", step.allCodes) &&
                 reader.String("info", step.text, true);
            break;
        case StepAction::DIALOG_REPLY:
            ok = reader.String("reply", step.text, true);
            break;
        case StepAction::PUBLISH: {
            uint64_t eventCode = 0;
            uint64_t resultCode = 0;
            ok = reader.String("package", step.package, false) && reader.Uint("event", eventCode, UINT32_MAX, true) &&
                 reader.Uint("result", resultCode, UINT32_MAX, false);
            step.eventCode = static_cast<uint32_t>(eventCode);
            step.resultCode = static_cast<uint32_t>(resultCode);
            break;
        }
        case StepAction::DYNAMIC_INFO:
            ok = ReadDeviceId(reader, known, step.device) && reader.String("key", step.key, true) &&
                 reader.String("value", step.value, true);
            break;
        case StepAction::CONFIG: {
            ok = ReadDeviceId(reader, known, step.device);
            const json* config = ok ? reader.Find("config", true) : nullptr;
            if (config == nullptr) {
                return false;
            }
            // The world file's reader knows the config's fields; borrow it
            // through a stand-in device.
            json standIn{{"udid", "u"}, {"networkId", "n"}, {"name", "x"}, {"type", 0}, {"config", *config}};
            Device parsed;
            std::string inner;
            if (!ParseDevice(standIn.dump(), parsed, inner)) {
                error = path + "." + inner;
                return false;
            }
            step.config = parsed.config;
            break;
        }
    }
    return ok && ReadCondition(reader, step.until, error) && reader.NoUnknownKeys();
}

json StepToJson(const ScenarioStep& step)
{
    json value{{"at", step.atMs}, {"action", StepActionName(step.action)}};
    switch (step.action) {
        case StepAction::ONLINE:
        case StepAction::OFFLINE:
        case StepAction::READY:
        case StepAction::REMOVE:
            value["device"] = step.device;
            break;
        case StepAction::ADD:
            value["new"] = json::parse(DeviceToJson(step.newDevice));
            break;
        case StepAction::SERVICE_CHANGE:
            value["event"] = step.event;
            value["devices"] = step.devices;
            break;
        case StepAction::DETECT:
            value["device"] = step.device;
            value["event"] = step.event;
            break;
        case StepAction::DELIVER:
            value["code"] = step.code;
            value["allCodes"] = step.allCodes;
            value["info"] = step.text;
            break;
        case StepAction::DIALOG_REPLY:
            value["reply"] = step.text;
            break;
        case StepAction::PUBLISH:
            value["package"] = step.package;
            value["event"] = step.eventCode;
            value["result"] = step.resultCode;
            break;
        case StepAction::DYNAMIC_INFO:
            value["device"] = step.device;
            value["key"] = step.key;
            value["value"] = step.value;
            break;
        case StepAction::CONFIG: {
            Device standIn;
            standIn.config = step.config;
            value["device"] = step.device;
            value["config"] = json::parse(DeviceToJson(standIn))["config"];
            break;
        }
    }
    if (step.until.kind != StepCondition::Kind::NONE) {
        json until{{"timeoutMs", step.until.timeoutMs}};
        if (step.until.kind == StepCondition::Kind::LISTENERS) {
            until["listeners"] = step.until.count;
        } else if (step.until.kind == StepCondition::Kind::SERVICE_FILTER) {
            until["serviceFilter"] = step.until.name;
        } else {
            until["bundle"] = step.until.name;
        }
        value["until"] = until;
    }
    return value;
}

// Whether the registrations (the service's GET_REGISTRATIONS JSON) satisfy
// the condition.
bool ConditionHolds(const StepCondition& condition, const std::string& registrations)
{
    json value = json::parse(registrations, nullptr, false);
    if (!value.is_object() || !value.contains("listeners") || !value["listeners"].is_array()) {
        return false;
    }
    const json& listeners = value["listeners"];
    if (condition.kind == StepCondition::Kind::LISTENERS) {
        return listeners.size() >= condition.count;
    }
    const char* kind = condition.kind == StepCondition::Kind::SERVICE_FILTER ? "serviceFilter" : "abilityFilter";
    const char* field = condition.kind == StepCondition::Kind::SERVICE_FILTER ? "serviceName" : "bundleName";
    for (const json& listener : listeners) {
        if (listener.value("kind", "") == kind && listener.value(field, "") == condition.name) {
            return true;
        }
    }
    return false;
}

}  // namespace

const char* StepActionName(StepAction action)
{
    for (const ActionName& entry : ACTION_NAMES) {
        if (entry.action == action) {
            return entry.name;
        }
    }
    return "unknown";
}

bool ParseScenario(const std::string& text, Scenario& scenario, std::string& error)
{
    json value = json::parse(text, nullptr, false);
    if (value.is_discarded()) {
        error = "invalid JSON";
        return false;
    }
    if (!value.is_object()) {
        error = "a scenario must be a JSON object";
        return false;
    }
    Scenario parsed;
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (it.key() != "world" && it.key() != "steps") {
            error = it.key() + ": unknown field";
            return false;
        }
    }
    if (value.contains("world")) {
        std::string inner;
        if (!ParseWorld(value["world"].dump(), parsed.world, inner)) {
            error = "world." + inner;
            return false;
        }
    }
    if (!value.contains("steps") || !value["steps"].is_array()) {
        error = "steps: must be an array";
        return false;
    }
    const json& steps = value["steps"];
    KnownDevices known(parsed.world);
    uint64_t previous = 0;
    for (size_t i = 0; i < steps.size(); ++i) {
        ScenarioStep step;
        if (!ReadStep(steps[i], i, known, step, error)) {
            return false;
        }
        if (step.atMs < previous) {
            error =
                "steps[" + std::to_string(i) + "].at: earlier than the step before (" + std::to_string(previous) + ")";
            return false;
        }
        previous = step.atMs;
        parsed.steps.push_back(std::move(step));
    }
    scenario = std::move(parsed);
    return true;
}

bool LoadScenarioFile(const std::string& path, Scenario& scenario, std::string& error)
{
    std::string text;
    if (!ReadTextFile(path, text, error)) {
        return false;
    }
    if (!ParseScenario(text, scenario, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

std::string ScenarioToJson(const Scenario& scenario, int indent)
{
    json steps = json::array();
    for (const ScenarioStep& step : scenario.steps) {
        steps.push_back(StepToJson(step));
    }
    json value{{"world", json::parse(WorldToJson(scenario.world, -1))}, {"steps", steps}};
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

// --- ScenarioPlayer ------------------------------------------------------

ScenarioPlayer::ScenarioPlayer(Scenario scenario, sptr<IRemoteObject> service, PlayOptions options)
    : scenario_(std::move(scenario)), client_(std::move(service)), options_(options)
{
    if (!(options_.speed > 0)) {
        options_.speed = 1.0;
    }
}

ControlResult ScenarioPlayer::LoadWorld()
{
    return client_.LoadWorld(WorldToJson(scenario_.world, -1));
}

size_t ScenarioPlayer::NextIndex() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return next_;
}

void ScenarioPlayer::Stop()
{
    std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    cv_.notify_all();
}

bool ScenarioPlayer::SleepUntil(std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return !cv_.wait_until(lock, deadline, [this] { return stopped_; });
}

ControlResult ScenarioPlayer::WaitFor(const StepCondition& condition, size_t index)
{
    ControlResult result;
    if (condition.kind == StepCondition::Kind::NONE) {
        return result;
    }
    uint32_t waitMs = condition.timeoutMs;
    if (options_.maxConditionWaitMs != 0 && options_.maxConditionWaitMs < waitMs) {
        waitMs = options_.maxConditionWaitMs;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    while (true) {
        ControlResult registrations = client_.GetRegistrations();
        if (registrations.status != SIM_OK) {
            return registrations;
        }
        if (ConditionHolds(condition, registrations.json)) {
            return result;
        }
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline || !SleepUntil(std::min(deadline, now + std::chrono::milliseconds(CONDITION_POLL_MS)))) {
            result.status = SIM_ERR_CONDITION_TIMEOUT;
            result.detail = "steps[" + std::to_string(index) + "].until did not hold within " + std::to_string(waitMs) +
                            " ms; the step stays next";
            return result;
        }
    }
}

ControlResult ScenarioPlayer::Step()
{
    std::lock_guard<std::mutex> stepLock(stepMutex_);
    size_t index = NextIndex();
    if (index >= scenario_.steps.size()) {
        return ControlResult{SIM_ERR_NO_SCENARIO, "every step of the scenario has been played", ""};
    }
    const ScenarioStep& step = scenario_.steps[index];
    ControlResult result = WaitFor(step.until, index);
    if (result.status == SIM_OK) {
        result = RunLocked(step);
        std::lock_guard<std::mutex> lock(mutex_);
        ++next_;
    }
    result.detail = "step " + std::to_string(index + 1) + "/" + std::to_string(scenario_.steps.size()) + " (" +
                    StepActionName(step.action) + "): " + result.detail;
    return result;
}

ControlResult ScenarioPlayer::RunLocked(const ScenarioStep& step)
{
    switch (step.action) {
        case StepAction::ONLINE:
            return client_.SetDeviceState(step.device, DeviceState::ONLINE);
        case StepAction::OFFLINE:
            return client_.SetDeviceState(step.device, DeviceState::OFFLINE);
        case StepAction::READY:
            return client_.SetDeviceState(step.device, DeviceState::READY);
        case StepAction::ADD:
            return client_.AddDevice(DeviceToJson(step.newDevice));
        case StepAction::REMOVE:
            return client_.RemoveDevice(step.device);
        case StepAction::SERVICE_CHANGE:
            return client_.NotifyServiceChange(step.event, step.devices);
        case StepAction::DETECT:
            return client_.DetectEvent(step.device, step.event);
        case StepAction::DELIVER:
            return client_.Deliver(step.allCodes, step.code, step.text);
        case StepAction::DIALOG_REPLY:
            return client_.DialogReply(step.text);
        case StepAction::PUBLISH:
            return client_.PublishResult(step.package, step.eventCode, step.resultCode);
        case StepAction::DYNAMIC_INFO:
            return client_.SetDynamicInfo(step.device, step.key, step.value);
        case StepAction::CONFIG: {
            // No control request changes a configuration alone: the world
            // goes back with the one field changed (LOAD_WORLD sends no
            // events, as a configuration change has none either).
            ControlResult current = client_.GetWorld();
            World world;
            std::string error;
            if (current.status != SIM_OK) {
                return current;
            }
            if (!ParseWorld(current.json, world, error)) {
                return ControlResult{SIM_ERR_BAD_WORLD, error, ""};
            }
            int index = FindDevice(world, step.device);
            if (index < 0) {
                return ControlResult{SIM_ERR_NO_SUCH_DEVICE, "no device \"" + step.device + "\"", ""};
            }
            world.devices[static_cast<size_t>(index)].config = step.config;
            ControlResult loaded = client_.LoadWorld(WorldToJson(world, -1));
            if (loaded.status == SIM_OK) {
                loaded.detail = "configuration of " + step.device + " replaced";
            }
            return loaded;
        }
    }
    return ControlResult{SIM_ERR_INVALID_ARGUMENT, "unknown action", ""};
}

ControlResult ScenarioPlayer::Play(const StepObserver& observer)
{
    auto start = std::chrono::steady_clock::now();
    ControlResult last;
    while (true) {
        size_t index = NextIndex();
        if (index >= scenario_.steps.size()) {
            return last;
        }
        auto due = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                               std::chrono::duration<double, std::milli>(scenario_.steps[index].atMs / options_.speed));
        if (!SleepUntil(due)) {
            return last;
        }
        last = Step();
        if (observer) {
            observer(index, scenario_.steps[index], last);
        }
        if (last.status != SIM_OK) {
            return last;
        }
    }
}

// --- ScenarioRecorder ----------------------------------------------------

ScenarioRecorder::ScenarioRecorder(World start) : start_(start), now_(std::move(start)) {}

Device* ScenarioRecorder::Find(const std::string& udid)
{
    int index = FindDevice(now_, udid);
    return index < 0 ? nullptr : &now_.devices[static_cast<size_t>(index)];
}

void ScenarioRecorder::Add(ScenarioStep step)
{
    if (!steps_.empty() && step.atMs < steps_.back().atMs) {
        step.atMs = steps_.back().atMs;
    }
    steps_.push_back(std::move(step));
    sameChange_ = true;
}

void ScenarioRecorder::OnDevice(uint64_t atMs, const std::string& kind, const std::string& udid,
                                const std::string& networkId, const std::string& name, uint32_t type)
{
    DeviceState state = DeviceState::OFFLINE;
    if (!ParseDeviceState(kind, state)) {
        return;
    }
    if (!steps_.empty() && steps_.back().device != udid && steps_.back().newDevice.udid != udid) {
        sameChange_ = false;
    }
    ScenarioStep step;
    step.atMs = atMs;
    Device* device = Find(udid);
    if (device == nullptr) {
        // A device the world did not have: it was added while online.
        Device added;
        added.udid = udid;
        added.networkId = networkId;
        added.name = name;
        added.type = type;
        added.state = state;
        if (FindDevice(now_, networkId) >= 0 || udid.empty() || networkId.empty() || name.empty()) {
            return;
        }
        now_.devices.push_back(added);
        step.action = StepAction::ADD;
        step.newDevice = added;
        Add(std::move(step));
        return;
    }
    if (device->state == state) {
        return;
    }
    ScenarioStep* last = steps_.empty() ? nullptr : &steps_.back();
    if (state == DeviceState::READY && sameChange_ && last != nullptr &&
        ((last->action == StepAction::ONLINE && last->device == udid) ||
         (last->action == StepAction::ADD && last->newDevice.udid == udid))) {
        // Offline (or absent) to ready sends online, then ready, before any
        // other callback: one change, not two.
        device->state = state;
        if (last->action == StepAction::ADD) {
            last->newDevice.state = state;
        } else {
            last->action = StepAction::READY;
        }
        return;
    }
    device->state = state;
    step.action = state == DeviceState::ONLINE
                      ? StepAction::ONLINE
                      : (state == DeviceState::READY ? StepAction::READY : StepAction::OFFLINE);
    step.device = udid;
    Add(std::move(step));
}

void ScenarioRecorder::Enrich(const ServiceDevice& observed)
{
    for (ScenarioStep& step : steps_) {
        if (step.action == StepAction::ADD && step.newDevice.udid == observed.udid && step.newDevice.services.empty()) {
            step.newDevice.services = observed.rules;
            step.newDevice.hashId = observed.hashId;
            step.newDevice.brMac = observed.brMac;
            step.newDevice.extraInfo = observed.extraInfo;
        }
    }
}

void ScenarioRecorder::OnServices(uint64_t atMs, int32_t event, const std::vector<ServiceDevice>& devices)
{
    sameChange_ = false;
    std::vector<std::string> udids;
    for (const ServiceDevice& observed : devices) {
        Enrich(observed);
        udids.push_back(observed.udid);
    }
    ScenarioStep step;
    step.atMs = atMs;
    bool stateEvent = event == static_cast<int32_t>(ServiceChangeEvent::DEVICE_ONLINE) ||
                      event == static_cast<int32_t>(ServiceChangeEvent::DEVICE_OFFLINE);
    if (stateEvent) {
        // Sent with the device events of a change of state: only a device
        // whose change the device listener did not see needs a step.
        bool online = event == static_cast<int32_t>(ServiceChangeEvent::DEVICE_ONLINE);
        for (const std::string& udid : udids) {
            Device* device = Find(udid);
            if (device == nullptr || device->IsOnline() == online) {
                continue;
            }
            device->state = online ? DeviceState::ONLINE : DeviceState::OFFLINE;
            ScenarioStep change = step;
            change.action = online ? StepAction::ONLINE : StepAction::OFFLINE;
            change.device = udid;
            Add(std::move(change));
        }
        return;
    }
    step.action = StepAction::SERVICE_CHANGE;
    step.event = event;
    step.devices = udids;
    Add(std::move(step));
}

void ScenarioRecorder::OnDeliver(uint64_t atMs, int32_t code, const std::string& info)
{
    sameChange_ = false;
    ScenarioStep step;
    step.atMs = atMs;
    step.action = StepAction::DELIVER;
    step.code = code;
    step.text = info;
    Add(std::move(step));
}

void ScenarioRecorder::OnDialogReply(uint64_t atMs, const std::string& reply)
{
    sameChange_ = false;
    ScenarioStep step;
    step.atMs = atMs;
    step.action = StepAction::DIALOG_REPLY;
    step.text = reply;
    Add(std::move(step));
}

Scenario ScenarioRecorder::Result() const
{
    Scenario scenario;
    scenario.world = start_;
    scenario.steps = steps_;
    return scenario;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
