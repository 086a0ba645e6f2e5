#include "devicedetect_test_helper.h"

#include <thread>

#include "control_client.h"
#include "embedded_service.h"
#include "scenario.h"
#include "sim_status.h"
#include "world_json.h"

namespace Tavik {
namespace Syntavo {
namespace Testing {

struct DeviceDetectTestHelper::State {
    // What every start of the service begins with.
    Sim::World world;
    std::unique_ptr<Sim::Scenario> scenario;
    std::unique_ptr<Sim::EmbeddedService> service;
    std::unique_ptr<Sim::ScenarioPlayer> player;
};

DeviceDetectTestHelper::DeviceDetectTestHelper() = default;

DeviceDetectTestHelper::~DeviceDetectTestHelper()
{
    Stop();
}

bool DeviceDetectTestHelper::Start(const std::function<bool(std::string&)>& build)
{
    Stop();
    lastError_.clear();
    state_ = std::make_unique<State>();
    if (!build(lastError_)) {
        state_.reset();
        return false;
    }
    return Launch();
}

bool DeviceDetectTestHelper::Launch()
{
    state_->service = std::make_unique<Sim::EmbeddedService>(state_->world);
    if (state_->scenario != nullptr) {
        state_->player = std::make_unique<Sim::ScenarioPlayer>(*state_->scenario, state_->service->Object());
    }
    if (!state_->service->Publish()) {
        lastError_ = "the embedded service could not be published (is another one running in this process?)";
        state_.reset();
        return false;
    }
    return true;
}

bool DeviceDetectTestHelper::StartWithBuiltInWorld()
{
    return Start([this](std::string&) {
        state_->world = Sim::DefaultWorld();
        return true;
    });
}

bool DeviceDetectTestHelper::StartWithWorld(const std::string& worldJson)
{
    return Start([this, &worldJson](std::string& error) { return Sim::ParseWorld(worldJson, state_->world, error); });
}

bool DeviceDetectTestHelper::StartWithWorldFile(const std::string& path)
{
    return Start([this, &path](std::string& error) { return Sim::LoadWorldFile(path, state_->world, error); });
}

bool DeviceDetectTestHelper::StartWithScenario(const std::string& scenarioJson)
{
    return Start([this, &scenarioJson](std::string& error) {
        state_->scenario = std::make_unique<Sim::Scenario>();
        if (!Sim::ParseScenario(scenarioJson, *state_->scenario, error)) {
            return false;
        }
        state_->world = state_->scenario->world;
        return true;
    });
}

bool DeviceDetectTestHelper::StartWithScenarioFile(const std::string& path)
{
    return Start([this, &path](std::string& error) {
        state_->scenario = std::make_unique<Sim::Scenario>();
        if (!Sim::LoadScenarioFile(path, *state_->scenario, error)) {
            return false;
        }
        state_->world = state_->scenario->world;
        return true;
    });
}

void DeviceDetectTestHelper::Stop()
{
    if (state_ != nullptr) {
        if (state_->player != nullptr) {
            state_->player->Stop();
        }
        state_->player.reset();
        state_->service.reset();
        state_.reset();
    }
}

bool DeviceDetectTestHelper::Restart()
{
    if (state_ == nullptr) {
        lastError_ = "the service was not started";
        return false;
    }
    lastError_.clear();
    if (state_->player != nullptr) {
        state_->player->Stop();
    }
    state_->player.reset();
    // Unpublishing tells subscribers the service is gone and fires its
    // death recipients, as a crash of the daemon would.
    state_->service.reset();
    return Launch();
}

bool DeviceDetectTestHelper::Step()
{
    if (state_ == nullptr || state_->player == nullptr) {
        lastError_ = "no scenario was started";
        return false;
    }
    Sim::ControlResult result = state_->player->Step();
    if (result.status != Sim::SIM_OK) {
        const char* name = Sim::SimStatusToString(result.status);
        lastError_ = result.detail + " (" + (name != nullptr ? name : std::to_string(result.status)) + ")";
        return false;
    }
    return true;
}

bool DeviceDetectTestHelper::PlayAll()
{
    while (StepsLeft() > 0) {
        if (!Step()) {
            return false;
        }
    }
    return true;
}

size_t DeviceDetectTestHelper::StepsLeft() const
{
    if (state_ == nullptr || state_->player == nullptr) {
        return 0;
    }
    return state_->player->Size() - state_->player->NextIndex();
}

bool DeviceDetectTestHelper::Control(const std::function<int32_t(std::string&)>& request)
{
    if (state_ == nullptr) {
        lastError_ = "the service was not started";
        return false;
    }
    std::string detail;
    int32_t status = request(detail);
    if (status != Sim::SIM_OK) {
        const char* name = Sim::SimStatusToString(status);
        lastError_ = detail + " (" + (name != nullptr ? name : std::to_string(status)) + ")";
        return false;
    }
    return true;
}

bool DeviceDetectTestHelper::SetOnline(const std::string& device)
{
    return Control([&](std::string& detail) {
        return state_->service->GetSimulator()->SetDeviceState(device, Sim::DeviceState::ONLINE, detail);
    });
}

bool DeviceDetectTestHelper::SetOffline(const std::string& device)
{
    return Control([&](std::string& detail) {
        return state_->service->GetSimulator()->SetDeviceState(device, Sim::DeviceState::OFFLINE, detail);
    });
}

bool DeviceDetectTestHelper::SetReady(const std::string& device)
{
    return Control([&](std::string& detail) {
        return state_->service->GetSimulator()->SetDeviceState(device, Sim::DeviceState::READY, detail);
    });
}

bool DeviceDetectTestHelper::AddDevice(const std::string& deviceJson)
{
    return Control([&](std::string& detail) {
        Sim::Device device;
        if (!Sim::ParseDevice(deviceJson, device, detail)) {
            return static_cast<int32_t>(Sim::SIM_ERR_BAD_WORLD);
        }
        return state_->service->GetSimulator()->AddDevice(device, detail);
    });
}

bool DeviceDetectTestHelper::RemoveDevice(const std::string& device)
{
    return Control([&](std::string& detail) { return state_->service->GetSimulator()->RemoveDevice(device, detail); });
}

bool DeviceDetectTestHelper::WaitForListeners(size_t count, std::chrono::milliseconds timeout)
{
    if (state_ == nullptr) {
        lastError_ = "the service was not started";
        return false;
    }
    const auto& simulator = state_->service->GetSimulator();
    bool held = WaitUntil(
        [&] {
            Sim::RegistrationCounts counts = simulator->Registrations();
            return counts.abilityListeners + counts.serviceFilterListeners >= count;
        },
        timeout);
    if (!held) {
        lastError_ =
            "fewer than " + std::to_string(count) + " listeners after " + std::to_string(timeout.count()) + " ms";
    }
    return held;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void EventLog::Add(std::string event)
{
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(std::move(event));
    cv_.notify_all();
}

std::vector<std::string> EventLog::Events() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

size_t EventLog::Size() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return events_.size();
}

void EventLog::Clear()
{
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
}

bool EventLog::WaitForCount(size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return cv_.wait_for(lock, timeout, [&] { return events_.size() >= count; });
}

}  // namespace Testing
}  // namespace Syntavo
}  // namespace Tavik
