// Scenarios: a starting world plus timed steps that change it, for testing
// how an application reacts to devices coming and going. Parsed from JSON
// (docs/simulator.md has the schema), played against the service's control
// interface by ScenarioPlayer, and written by ScenarioRecorder from the
// events a client observed.
#ifndef SYNTAVO_SIM_SCENARIO_H
#define SYNTAVO_SIM_SCENARIO_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "control_client.h"
#include "iremote_object.h"
#include "refbase.h"
#include "world.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

enum class StepAction {
    ONLINE,
    OFFLINE,
    READY,
    ADD,
    REMOVE,
    SERVICE_CHANGE,
    DETECT,
    DELIVER,
    DIALOG_REPLY,
    PUBLISH,
    DYNAMIC_INFO,
    CONFIG,
};
// The "action" names of the file: "online", "serviceChange", ...
const char* StepActionName(StepAction action);

// What a step waits for before it runs ("until" in the file).
struct StepCondition {
    enum class Kind { NONE, LISTENERS, SERVICE_FILTER, BUNDLE };
    Kind kind = Kind::NONE;
    // LISTENERS: at least this many device-change listeners of either kind.
    uint32_t count = 0;
    // SERVICE_FILTER: a service-filter listener for this service name;
    // BUNDLE: an ability-filter listener for this bundle name.
    std::string name;
    uint32_t timeoutMs = 5000;
};

struct ScenarioStep {
    // Milliseconds after the start of playback.
    uint64_t atMs = 0;
    StepAction action = StepAction::ONLINE;
    std::string device;                // the device id of most actions
    Device newDevice;                  // ADD
    int32_t event = 0;                 // SERVICE_CHANGE, DETECT
    std::vector<std::string> devices;  // SERVICE_CHANGE (empty: every online device)
    bool allCodes = false;             // DELIVER
    int32_t code = 0;                  // DELIVER
    std::string text;                  // DELIVER info, DIALOG_REPLY reply
    std::string package;               // PUBLISH (empty: every request)
    uint32_t eventCode = 0;            // PUBLISH
    uint32_t resultCode = 0;           // PUBLISH
    std::string key;                   // DYNAMIC_INFO
    std::string value;                 // DYNAMIC_INFO
    DeviceConfig config;               // CONFIG
    StepCondition until;
};

struct Scenario {
    World world = DefaultWorld();
    std::vector<ScenarioStep> steps;
};

// On failure `scenario` is unchanged and `error` names the step and field,
// e.g. `steps[3].device: unknown device "x"`. Device ids are checked against
// the world as the steps before have left it.
bool ParseScenario(const std::string& text, Scenario& scenario, std::string& error);
bool LoadScenarioFile(const std::string& path, Scenario& scenario, std::string& error);
std::string ScenarioToJson(const Scenario& scenario, int indent = 2);

struct PlayOptions {
    // Time scale: 2 plays twice as fast. Must be positive.
    double speed = 1.0;
    // When non-zero, no "until" waits longer than this: a STEP request must
    // answer before its client gives up on it (the transport waits 8 s).
    uint32_t maxConditionWaitMs = 0;
};

// Plays a scenario's steps through control requests to `service` (in
// process or across the socket). Step() runs the next step at once; Play()
// runs them all on their schedule. Each step first waits for its
// condition. Callbacks of one step are delivered before the next step
// starts, so one scenario always produces the same callbacks in the same
// order. Any thread; steps never overlap.
class ScenarioPlayer {
public:
    using StepObserver = std::function<void(size_t index, const ScenarioStep& step, const ControlResult& result)>;

    ScenarioPlayer(Scenario scenario, sptr<IRemoteObject> service, PlayOptions options = {});

    // Replaces the service's world with the scenario's (no events).
    ControlResult LoadWorld();
    // The next step; SIM_ERR_NO_SCENARIO once every step has run. A step
    // whose condition timed out stays next, to be tried again.
    ControlResult Step();
    // Every remaining step on its schedule; stops at the first failure,
    // whose result it returns, or when Stop() is called.
    ControlResult Play(const StepObserver& observer = nullptr);
    // Wakes Play() and any condition wait; later steps do not run.
    void Stop();

    size_t NextIndex() const;
    size_t Size() const { return scenario_.steps.size(); }
    const Scenario& GetScenario() const { return scenario_; }

private:
    ControlResult RunLocked(const ScenarioStep& step);
    ControlResult WaitFor(const StepCondition& condition, size_t index);
    // False when stopped before `deadline`.
    bool SleepUntil(std::chrono::steady_clock::time_point deadline);

    Scenario scenario_;
    ControlClient client_;
    PlayOptions options_;
    std::mutex stepMutex_;
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    size_t next_ = 0;
    bool stopped_ = false;
};

// Builds a scenario from what a client observed: start with the world the
// service had, then feed the events in the order they arrived. Device
// events become state steps (a device the world did not have becomes an
// "add"), service-changed events that no device event explained become
// state steps or "serviceChange", deliveries and dialog replies their own
// steps. Playing the result sends the same events to the same listeners.
class ScenarioRecorder {
public:
    // One record of a service-changed event.
    struct ServiceDevice {
        std::string udid;
        std::vector<std::string> rules;
        std::string hashId;
        std::string brMac;
        std::string extraInfo;
    };

    explicit ScenarioRecorder(World start);

    // kind: "online", "offline" or "ready".
    void OnDevice(uint64_t atMs, const std::string& kind, const std::string& udid, const std::string& networkId,
                  const std::string& name, uint32_t type);
    // A device the recording added takes its services (and the record's
    // other fields) from the first such event about it, so that service
    // filters match it on playback; a rule list stands in for the services.
    void OnServices(uint64_t atMs, int32_t event, const std::vector<ServiceDevice>& devices);
    void OnDeliver(uint64_t atMs, int32_t code, const std::string& info);
    void OnDialogReply(uint64_t atMs, const std::string& reply);

    Scenario Result() const;

private:
    Device* Find(const std::string& udid);
    void Enrich(const ServiceDevice& observed);
    void Add(ScenarioStep step);

    World start_;
    World now_;
    std::vector<ScenarioStep> steps_;
    // Since the last step, only device events of its own device arrived:
    // a "ready" now belongs to the same change (offline or new to ready).
    bool sameChange_ = false;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_SCENARIO_H
