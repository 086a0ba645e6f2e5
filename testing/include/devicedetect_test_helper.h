// Test helper for applications that use the device-detect client library:
// runs the reference service embedded in the test process (no daemon), with
// a world or a scenario, and lets a test drive it step by step and wait for
// its own handlers. DeviceDetectProxy::GetInstance() finds the embedded
// service while a helper is started.
//
//     Tavik::Syntavo::Testing::DeviceDetectTestHelper sim;
//     ASSERT_TRUE(sim.StartWithScenarioFile("car_arrives.json")) << sim.LastError();
//     ... register the application's listeners ...
//     ASSERT_TRUE(sim.Step()) << sim.LastError();
//     EXPECT_TRUE(log.WaitForCount(1, std::chrono::seconds(2)));
//
// One helper at a time per process (there is one system ability manager).
// Callbacks are delivered on the thread that runs a step, before Step()
// returns; the waits are for handlers that hand work to other threads.
//
// Restarts: Restart() ends the service as a crash would and starts a new
// one, so a test can check that the application registers again:
//
//     ASSERT_TRUE(sim.Restart()) << sim.LastError();
//     ASSERT_TRUE(sim.WaitForListeners(1, std::chrono::seconds(2))) << sim.LastError();
#ifndef SYNTAVO_DEVICEDETECT_TEST_HELPER_H
#define SYNTAVO_DEVICEDETECT_TEST_HELPER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Tavik {
namespace Syntavo {
namespace Testing {

class DeviceDetectTestHelper {
public:
    DeviceDetectTestHelper();
    // Stops the service.
    ~DeviceDetectTestHelper();
    DeviceDetectTestHelper(const DeviceDetectTestHelper&) = delete;
    DeviceDetectTestHelper& operator=(const DeviceDetectTestHelper&) = delete;

    // Each Start... publishes the embedded service; false (and LastError())
    // when the text is not a valid world or scenario or publishing fails.
    bool StartWithBuiltInWorld();
    bool StartWithWorld(const std::string& worldJson);
    bool StartWithWorldFile(const std::string& path);
    bool StartWithScenario(const std::string& scenarioJson);
    bool StartWithScenarioFile(const std::string& path);
    void Stop();
    // Ends the running service as a crash would: its object leaves the
    // system ability manager (subscribers hear it is gone) and its death
    // recipients fire (the proxy drops its cache). Then starts a new one
    // from the same world, or the same scenario at its first step, which
    // subscribers hear is available. The new service knows no
    // registrations: WaitForListeners then waits for the application to
    // register again. False when nothing was started or publishing fails.
    bool Restart();

    // The scenario's next step, after its "until" condition holds (its time
    // is ignored: tests run as fast as the steps allow). False when none is
    // left or it failed.
    bool Step();
    // Every remaining step, in order.
    bool PlayAll();
    size_t StepsLeft() const;

    // Direct changes of the world, as `devicedetect sim` makes them.
    bool SetOnline(const std::string& device);
    bool SetOffline(const std::string& device);
    bool SetReady(const std::string& device);
    bool AddDevice(const std::string& deviceJson);
    bool RemoveDevice(const std::string& device);

    // Until the application has registered this many device-change
    // listeners (of either kind).
    bool WaitForListeners(size_t count, std::chrono::milliseconds timeout);

    // Why the last call returned false.
    const std::string& LastError() const { return lastError_; }

private:
    struct State;
    // `build` fills the state's world (and scenario); then Launch starts it.
    bool Start(const std::function<bool(std::string&)>& build);
    bool Launch();
    bool Control(const std::function<int32_t(std::string&)>& request);

    std::unique_ptr<State> state_;
    std::string lastError_;
};

// Polls `condition` until it holds or `timeout` passes; true when it held.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout);

// A thread-safe list of what the application's handlers saw, for asserting
// order and content.
class EventLog {
public:
    void Add(std::string event);
    std::vector<std::string> Events() const;
    size_t Size() const;
    void Clear();
    // Until at least `count` events are in the log.
    bool WaitForCount(size_t count, std::chrono::milliseconds timeout) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable cv_;
    std::vector<std::string> events_;
};

}  // namespace Testing
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICEDETECT_TEST_HELPER_H
