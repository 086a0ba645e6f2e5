#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "control_client.h"
#include "device_detect_proxy.h"
#include "embedded_service.h"
#include "recording_callbacks.h"
#include "scenario.h"
#include "sim_status.h"
#include "world_json.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

using ::Tavik::Test::CallbackJournal;
using ::Tavik::Test::DeviceChangedRecorder;
using ::Tavik::Test::DeviceDetectRecorder;
using ::Tavik::Test::DialogEventRecorder;
using ::Tavik::Test::RecordedCallback;
using ::Tavik::Test::ServiceChangedRecorder;
using ::Tavik::Test::ServiceDeliverRecorder;

// Passes a callback the application stand-in saw on to a ScenarioRecorder;
// `clock` gives the steps a time that only grows. Detect events are not
// steps of their own.
void Feed(ScenarioRecorder& recorder, uint64_t& clock, const RecordedCallback& call)
{
    if (call.device != nullptr) {
        const DeviceInfo& device = *call.device;
        recorder.OnDevice(++clock, call.what, device.GetDeviceUdid(), device.GetDeviceNetworkId(),
                          device.GetDeviceName(), device.GetDeviceType());
    } else if (call.services != nullptr) {
        std::vector<ScenarioRecorder::ServiceDevice> devices;
        for (const DeviceServiceInfo& info : *call.services) {
            devices.push_back({info.GetDeviceId(), info.GetServiceRuleList(), info.GetDeviceHashId(), info.GetBrMac(),
                               info.GetExtraInfo()});
        }
        recorder.OnServices(++clock, call.event, devices);
    } else if (call.what == "deliver") {
        recorder.OnDeliver(++clock, std::stoi(call.tag), call.text);
    } else if (call.what == "dialog") {
        recorder.OnDialogReply(++clock, call.text);
    }
}

// Every kind of step that reaches the application's handlers, around the
// built-in world (car offline, TV and display online with castService).
constexpr const char* SESSION = R"({
  "steps": [
    {"at": 0, "action": "online", "device": "udid-car-0001"},
    {"at": 10, "action": "ready", "device": "net-car-0001"},
    {"at": 20, "action": "add", "new": {"udid": "udid-den-tv", "networkId": "net-den-tv", "name": "Den TV",
                                        "type": "TV", "accountType": 1, "state": "ready", "services": ["castService"]}},
    {"at": 30, "action": "serviceChange", "event": 3, "devices": ["udid-tv-0001", "udid-den-tv"]},
    {"at": 40, "action": "deliver", "code": 5, "info": "cast started"},
    {"at": 50, "action": "dialogReply", "reply": "{\"reply\":\"accept\"}"},
    {"at": 60, "action": "dynamicInfo", "device": "udid-den-tv", "key": "volume", "value": "12"},
    {"at": 70, "action": "offline", "device": "udid-tv-0001"},
    {"at": 80, "action": "remove", "device": "udid-den-tv"},
    {"at": 90, "action": "offline", "device": "udid-car-0001"}
  ]
})";

Scenario Parse(const std::string& text)
{
    Scenario scenario;
    std::string error;
    EXPECT_TRUE(ParseScenario(text, scenario, error)) << error;
    return scenario;
}

// An application registering one callback of every kind, then the scenario
// played step by step; returns every callback in arrival order.
std::vector<std::string> PlaySession(const Scenario& scenario, Scenario* recorded = nullptr)
{
    EmbeddedService service(scenario.world);
    EXPECT_TRUE(service.Publish());
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    EXPECT_NE(proxy, nullptr);
    if (proxy == nullptr) {
        return {};
    }
    auto log = std::make_shared<CallbackJournal>();
    std::unique_ptr<ScenarioRecorder> recorder;
    uint64_t clock = 0;
    if (recorded != nullptr) {
        recorder = std::make_unique<ScenarioRecorder>(scenario.world);
        log->SetObserver([&](const RecordedCallback& call) { Feed(*recorder, clock, call); });
    }
    auto all = proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "app",
                                                 sptr<DeviceChangedRecorder>::MakeSptr(log, "all"));
    auto cast = proxy->RegisterCallbackWithServiceFilter(
        sptr<ServiceFilter>::MakeSptr("castService", std::vector<std::string>{}), "app",
        sptr<DeviceChangedRecorder>::MakeSptr(log, "cast"));
    EXPECT_EQ(all.first, 0);
    EXPECT_EQ(cast.first, 0);
    EXPECT_EQ(proxy->RegisterServiceChangedCallback(sptr<ServiceChangedRecorder>::MakeSptr(log)), 0);
    EXPECT_EQ(proxy->RegisterServiceDeliverCallback(5, sptr<ServiceDeliverRecorder>::MakeSptr(log, "5")), 0);
    EXPECT_EQ(proxy->SetDialogEventCallback(sptr<DialogEventRecorder>::MakeSptr(log)), 0);
    std::vector<DeviceInfo> tvs;
    EXPECT_EQ(proxy->GetTrustedDeviceListWithDeviceFilter(
                  sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{156}, std::vector<uint32_t>{0, 1, 2}), tvs,
                  sptr<DeviceDetectRecorder>::MakeSptr(log)),
              0);

    ScenarioPlayer player(scenario, service.Object());
    while (player.NextIndex() < player.Size()) {
        ControlResult result = player.Step();
        EXPECT_EQ(result.status, SIM_OK) << result.detail;
        if (result.status != SIM_OK) {
            break;
        }
    }
    proxy->UnregisterDevChangedCallback(all.second);
    proxy->UnregisterServiceFilterListener(cast.second);
    proxy->UnregisterServiceChangedCallback();
    service.Unpublish();
    // A handler the proxy still holds must not feed a recorder that is gone.
    log->SetObserver(nullptr);
    if (recorded != nullptr) {
        *recorded = recorder->Result();
    }
    return log->Lines();
}

TEST(ScenarioPlaybackTest, TheSessionSendsTheseCallbacksInThisOrderEveryTime)
{
    std::vector<std::string> expected{
        "all online udid-car-0001 net-car-0001 Family Car 131",
        "services 1 udid-car-0001,net-car-0001,131,02:00:00:00:00:01[navigation,]",
        "all ready udid-car-0001 net-car-0001 Family Car 131",
        "all online udid-den-tv net-den-tv Den TV 156",
        "cast online udid-den-tv net-den-tv Den TV 156",
        "all ready udid-den-tv net-den-tv Den TV 156",
        "cast ready udid-den-tv net-den-tv Den TV 156",
        "services 1 udid-den-tv,net-den-tv,156,[castService,]",
        "detect 1 udid-den-tv",
        "services 3 udid-tv-0001,net-tv-0001,156,02:00:00:00:00:06[cast:allow,] "
        "udid-den-tv,net-den-tv,156,[castService,]",
        "5 deliver cast started",
        "dialog {\"reply\":\"accept\"}",
        "all offline udid-tv-0001 net-tv-0001 Living Room TV 156",
        "cast offline udid-tv-0001 net-tv-0001 Living Room TV 156",
        "services 2 udid-tv-0001,net-tv-0001,156,02:00:00:00:00:06[cast:allow,]",
        "detect 2 udid-tv-0001",
        "all offline udid-den-tv net-den-tv Den TV 156",
        "cast offline udid-den-tv net-den-tv Den TV 156",
        "services 2 udid-den-tv,net-den-tv,156,[castService,]",
        "detect 2 udid-den-tv",
        "all offline udid-car-0001 net-car-0001 Family Car 131",
        "services 2 udid-car-0001,net-car-0001,131,02:00:00:00:00:01[navigation,]",
    };
    Scenario scenario = Parse(SESSION);
    for (int run = 0; run < 50; ++run) {
        ASSERT_EQ(PlaySession(scenario), expected) << "run " << run;
    }
}

TEST(ScenarioPlaybackTest, RecordingPlaysBackToTheSameCallbacks)
{
    Scenario recorded;
    std::vector<std::string> original = PlaySession(Parse(SESSION), &recorded);
    ASSERT_FALSE(original.empty());
    // Through the file format, as `watch --record` and `sim play` use it.
    Scenario reread = Parse(ScenarioToJson(recorded));
    ASSERT_FALSE(reread.steps.empty());
    EXPECT_EQ(PlaySession(reread), original);
    // Device events explain the service-changed events of a state change,
    // so only the announced change (event 3) became a serviceChange step.
    size_t serviceSteps = 0;
    for (const ScenarioStep& step : reread.steps) {
        serviceSteps += step.action == StepAction::SERVICE_CHANGE ? 1 : 0;
    }
    EXPECT_EQ(serviceSteps, 1u);
}

TEST(ScenarioPlaybackTest, ARecordingWithoutTheDeviceListenerStillReplaysServiceEvents)
{
    // Only the service-changed callback saw the car come and go.
    ScenarioRecorder recorder(DefaultWorld());
    recorder.OnServices(5, 1, {{"udid-car-0001", {"navigation"}, "", "", ""}});
    recorder.OnServices(9, 2, {{"udid-car-0001", {"navigation"}, "", "", ""}});
    Scenario scenario = recorder.Result();
    ASSERT_EQ(scenario.steps.size(), 2u);
    EXPECT_EQ(scenario.steps[0].action, StepAction::ONLINE);
    EXPECT_EQ(scenario.steps[1].action, StepAction::OFFLINE);
    EXPECT_EQ(scenario.steps[1].atMs, 9u);
}

// Each kind of condition, unmet and then met; the hour-long wait is capped.
TEST(ScenarioPlaybackTest, StepsWaitForTheirConditionAndFailWhenItNeverHolds)
{
    Scenario scenario = Parse(R"({"steps": [
        {"action": "online", "device": "udid-car-0001", "until": {"serviceFilter": "navigation", "timeoutMs": 1}},
        {"action": "ready", "device": "udid-car-0001", "until": {"listeners": 3, "timeoutMs": 3600000}},
        {"action": "offline", "device": "udid-car-0001", "until": {"bundle": "com.tavik.maps", "timeoutMs": 1}}]})");
    EmbeddedService service(scenario.world);
    Simulator& sim = *service.GetSimulator();
    PlayOptions options;
    options.maxConditionWaitMs = 1;
    ScenarioPlayer player(scenario, service.Object(), options);
    sptr<IRemoteObject> callback = sptr<DeviceChangedRecorder>::MakeSptr()->AsObject();
    auto byService = [](const char* name) { return sptr<ServiceFilter>::MakeSptr(name, std::vector<std::string>{}); };
    auto car = [&sim] {
        Device device;
        EXPECT_TRUE(sim.FindDevice("udid-car-0001", device));
        return device.state;
    };

    // A listener for another service does not satisfy it.
    sim.AddServiceFilterListener(byService("castService"), "", callback);
    ControlResult result = player.Step();
    EXPECT_EQ(result.status, SIM_ERR_CONDITION_TIMEOUT);
    EXPECT_NE(result.detail.find("steps[0].until"), std::string::npos) << result.detail;
    EXPECT_EQ(player.NextIndex(), 0u) << "the step stays next, to be tried once the condition holds";
    EXPECT_EQ(car(), DeviceState::OFFLINE);
    sim.AddServiceFilterListener(byService("navigation"), "", callback);
    EXPECT_EQ(player.Step().status, SIM_OK);
    EXPECT_EQ(player.NextIndex(), 1u);
    EXPECT_EQ(car(), DeviceState::ONLINE);

    result = player.Step();  // two listeners of three
    EXPECT_EQ(result.status, SIM_ERR_CONDITION_TIMEOUT);
    EXPECT_NE(result.detail.find("within 1 ms"), std::string::npos) << result.detail;
    sim.AddAbilityListener(sptr<AbilityFilter>::MakeSptr("com.tavik.files"), "", callback);
    EXPECT_EQ(player.Step().status, SIM_OK);
    EXPECT_EQ(player.Step().status, SIM_ERR_CONDITION_TIMEOUT);  // no listener asks for the maps bundle
    sim.AddAbilityListener(sptr<AbilityFilter>::MakeSptr("com.tavik.maps"), "", callback);
    EXPECT_EQ(player.Step().status, SIM_OK);
    EXPECT_EQ(car(), DeviceState::OFFLINE);
    EXPECT_EQ(player.Step().status, SIM_ERR_NO_SCENARIO);
}

TEST(ScenarioPlaybackTest, StepControlRequestAdvancesTheScenario)
{
    Scenario scenario = Parse(R"({"steps": [{"action": "online", "device": "udid-car-0001"},
                                            {"action": "remove", "device": "udid-car-0001"}]})");
    EmbeddedService service(scenario.world);
    ControlClient control(service.Object());
    EXPECT_EQ(control.Step().status, SIM_ERR_NO_SCENARIO);

    ScenarioPlayer player(scenario, service.Object());
    service.GetSimulator()->SetStepHandler([&player](std::string& detail) {
        ControlResult result = player.Step();
        detail = result.detail;
        return result.status;
    });
    ControlResult first = control.Step();
    EXPECT_EQ(first.status, SIM_OK);
    EXPECT_EQ(first.detail.rfind("step 1/2 (online): ", 0), 0u) << first.detail;
    Device car;
    ASSERT_TRUE(service.GetSimulator()->FindDevice("udid-car-0001", car));
    EXPECT_TRUE(car.IsOnline());
    EXPECT_EQ(control.Step().status, SIM_OK);
    EXPECT_FALSE(service.GetSimulator()->FindDevice("udid-car-0001", car));
    EXPECT_EQ(control.Step().status, SIM_ERR_NO_SCENARIO);
    service.GetSimulator()->SetStepHandler(nullptr);
}

TEST(ScenarioPlaybackTest, PlayRunsEveryStepInOrderAndLoadsTheWorld)
{
    Scenario scenario = Parse(R"({
      "world": {"local": {"udid": "l", "networkId": "ln", "name": "Me", "type": "PHONE"},
                "devices": [{"udid": "a", "networkId": "an", "name": "A", "type": "PAD",
                             "config": {"modelId": "old"}}]},
      "steps": [{"at": 0, "action": "online", "device": "a"},
                {"at": 5, "action": "config", "device": "an", "config": {"modelId": "new", "supportFoldScreen": 1}},
                {"at": 9, "action": "publish", "event": 7, "result": 2}]})");
    EmbeddedService service;  // the built-in world, replaced by LoadWorld
    ScenarioPlayer player(scenario, service.Object(), PlayOptions{1000.0});
    ASSERT_EQ(player.LoadWorld().status, SIM_OK);
    std::vector<size_t> seen;
    ControlResult last = player.Play([&seen](size_t index, const ScenarioStep&, const ControlResult& result) {
        EXPECT_EQ(result.status, SIM_OK) << result.detail;
        seen.push_back(index);
    });
    EXPECT_EQ(last.status, SIM_OK) << last.detail;
    EXPECT_EQ(seen, (std::vector<size_t>{0, 1, 2}));
    World world = service.GetSimulator()->Snapshot();
    ASSERT_EQ(world.devices.size(), 1u);
    EXPECT_TRUE(world.devices[0].IsOnline());
    EXPECT_EQ(world.devices[0].config.modelId, "new");
    EXPECT_EQ(world.devices[0].config.supportFoldScreen, 1u);
}

TEST(ScenarioPlaybackTest, StopEndsPlayBeforeALaterStep)
{
    Scenario scenario = Parse(R"({"steps": [{"at": 0, "action": "online", "device": "udid-car-0001"},
                                            {"at": 3600000, "action": "offline", "device": "udid-car-0001"}]})");
    EmbeddedService service(scenario.world);
    ScenarioPlayer player(scenario, service.Object());
    player.Play([&player](size_t, const ScenarioStep&, const ControlResult&) { player.Stop(); });
    EXPECT_EQ(player.NextIndex(), 1u);
}

TEST(ScenarioFileTest, WritingAndReadingBackKeepsEveryStep)
{
    Scenario scenario = Parse(SESSION);
    std::string text = ScenarioToJson(scenario);
    Scenario reread = Parse(text);
    EXPECT_EQ(ScenarioToJson(reread), text);
    ASSERT_EQ(reread.steps.size(), scenario.steps.size());
    EXPECT_EQ(reread.steps[2].newDevice.services, std::vector<std::string>{"castService"});
    EXPECT_EQ(reread.steps[3].devices, (std::vector<std::string>{"udid-tv-0001", "udid-den-tv"}));
}

TEST(ScenarioFileTest, TheExamplesLoadAndAFileErrorNamesTheFile)
{
    const std::string root = DD_SOURCE_DIR;
    for (const char* name : {"car_arrives.json", "cast_session.json", "office_morning.json"}) {
        Scenario scenario;
        std::string error;
        EXPECT_TRUE(LoadScenarioFile(root + "/examples/scenarios/" + name, scenario, error)) << error;
        EXPECT_FALSE(scenario.steps.empty()) << name;
    }

    std::string path = ::testing::TempDir() + "/bad_scenario.json";
    std::ofstream(path) << R"({"steps": [{"action": "online", "device": "x"}]})";
    Scenario scenario;
    std::string error;
    EXPECT_FALSE(LoadScenarioFile(path, scenario, error));
    EXPECT_EQ(error, path + R"(: steps[0].device: unknown device "x")");
    EXPECT_FALSE(LoadScenarioFile(path + ".missing", scenario, error));
    EXPECT_EQ(error, "cannot open \"" + path + ".missing\"");
}

TEST(ScenarioFileTest, BadFilesAreRejectedNamingTheStepAndField)
{
    struct Case {
        const char* steps;  // the "steps" array, or a whole file when it starts with '{'
        const char* error;
    };
    const Case cases[] = {
        {R"([{"action": "online", "device": "udid-car-0001"}, {"action": "ready", "device": "udid-car-0001"},
             {"action": "offline", "device": "udid-car-0001"}, {"action": "online", "device": "x"}])",
         R"(steps[3].device: unknown device "x")"},
        {R"([{"action": "remove", "device": "udid-car-0001"}, {"action": "online", "device": "net-car-0001"}])",
         R"(steps[1].device: unknown device "net-car-0001")"},
        {R"([{"action": "explode"}])", R"(steps[0].action: unknown action "explode")"},
        {R"([{"device": "udid-car-0001"}])", "steps[0].action: missing"},
        {R"([{"action": "online"}])", "steps[0].device: missing"},
        {R"([{"action": "online", "device": "udid-car-0001", "colour": "red"}])", "steps[0].colour: unknown field"},
        {R"([{"action": "online", "device": 7}])", "steps[0].device: must be a string"},
        {R"([{"at": 100, "action": "online", "device": "udid-car-0001"},
             {"at": 50, "action": "offline", "device": "udid-car-0001"}])",
         "steps[1].at: earlier than the step before (100)"},
        {R"([{"at": -1, "action": "online", "device": "udid-car-0001"}])",
         "steps[0].at: must be an integer from 0 to 4294967295"},
        {R"([{"action": "add", "new": {"udid": "udid-tv-0001", "networkId": "n", "name": "N", "type": "TV"}}])",
         R"(steps[0].new.udid: "udid-tv-0001" is already used by another device)"},
        {R"([{"action": "add", "new": {"udid": "u", "networkId": "udid-local-phone-0001", "name": "N", "type": 1}}])",
         R"(steps[0].new.networkId: "udid-local-phone-0001" is already used by another device)"},
        {R"([{"action": "serviceChange", "devices": ["udid-tv-0001", "nope"]}])",
         R"(steps[0].devices[1]: unknown device "nope")"},
        {R"([{"action": "deliver", "code": 5}])", "steps[0].info: missing"},
        {R"([{"action": "deliver", "code": 2147483648, "info": "i"}])", "steps[0].code: must be a 32-bit integer"},
        {R"([{"action": "publish", "result": 0}])", "steps[0].event: missing"},
        {R"([{"action": "config", "device": "udid-tv-0001", "config": {"supportFoldScreen": -1}}])",
         "steps[0].config.supportFoldScreen: must be an integer from 0 to 4294967295"},
        {R"([{"action": "online", "device": "udid-car-0001", "until": {"listeners": 1, "bundle": "b"}}])",
         R"(steps[0].until: needs exactly one of "listeners", "serviceFilter", "bundle")"},
        {R"([{"action": "online", "device": "udid-car-0001", "until": {"count": 1}}])",
         "steps[0].until.count: unknown field"},
        {R"([{"action": "online", "device": "udid-car-0001", "until": {"serviceFilter": 3}}])",
         "steps[0].until.serviceFilter: must be a string"},
        {R"(["online"])", "steps[0]: must be an object"},
        {R"({"steps": {}})", "steps: must be an array"},
        {R"({"steps": [], "stepz": []})", "stepz: unknown field"},
        {R"({"world": {"local": {"udid": "l", "networkId": "n", "name": "L", "type": "PHONE"},
                       "devices": [{"udid": "a", "networkId": "b", "type": "PAD"}]}, "steps": []})",
         "world.devices[0].name: missing"},
        {R"({"steps": [)", "invalid JSON"},
    };
    for (const Case& c : cases) {
        std::string text = c.steps[0] == '{' ? c.steps : std::string(R"({"steps": )") + c.steps + "}";
        Scenario scenario;
        scenario.steps.resize(1);
        std::string error;
        EXPECT_FALSE(ParseScenario(text, scenario, error)) << text;
        EXPECT_EQ(error, c.error) << text;
        EXPECT_EQ(scenario.steps.size(), 1u) << "a failed parse must leave the scenario as it was";
    }
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
