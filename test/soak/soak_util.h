// Shared by the soak tests: a devicedetectd of its own for each test, client
// processes (copies of this binary in the client role, soak_client.cpp),
// threads that repeat a step, and callback stubs that count what arrives.
#ifndef DD_TEST_SOAK_SOAK_UTIL_H
#define DD_TEST_SOAK_SOAK_UTIL_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"
#include "daemon_fixture.h"
#include "device_changed_callback_stub.h"
#include "device_detect_proxy.h"
#include "service_changed_callback_stub.h"

namespace DeviceDetectSoak {

using namespace Tavik;
using namespace Tavik::Syntavo;
using Counter = std::atomic<uint64_t>;
using Tavik::Test::DaemonTest;
using Tavik::Test::EnvCount;

// soak_tests --soak-client ID THREADS CALLS: each thread makes CALLS steps of
// a cycle of the requests an application makes (0: until standard input
// closes), checking every answer. Standard output gets one '.' per
// PROGRESS_CALLS steps of a thread, then one summary line of the counts; the
// process then waits for standard input to close, so that the service sees
// no client go while it still sends events, and exits with 0 when no step
// failed. Failures are described on standard error (the first few).
constexpr const char* CLIENT_ROLE_FLAG = "--soak-client";
constexpr uint64_t PROGRESS_CALLS = 10;
enum CountIndex { CALLS, FAILURES, DEVICE_EVENTS, SERVICE_RECORDS, DIALOG_REPLIES, PUBLISH_EVENTS, COUNTS };
constexpr const char* COUNT_NAMES[COUNTS] = {"calls",          "failures",      "deviceEvents",
                                             "serviceRecords", "dialogReplies", "publishEvents"};
int RunClient(int argc, char** argv);

class ClientProcess {
public:
    // Output goes to files in $TAVIK_RUNTIME_DIR; standard input is a pipe
    // that Finish() closes.
    ClientProcess(int id, int threads, uint64_t calls);
    ~ClientProcess();
    bool Started() const { return process_.Started(); }
    uint64_t Progress() const;
    bool Done() const { return Out().find("SUMMARY") != std::string::npos; }
    // Lets the client exit and waits for it. Empty when it exited with 0
    // after `calls` calls per thread (any number when 0), with no failure,
    // with every kind of callback received and with nothing unexpected on
    // standard error; else what was wrong.
    std::string Finish(uint64_t calls);
    std::string Out() const;
    std::string Err() const;

private:
    int threads_;
    std::string files_;
    Tavik::Test::ChildProcess process_;
    int input_ = -1;
};

// Runs `step` over and over on `threads` threads until stopped, counting the
// steps and those that returned false.
class Repeat {
public:
    Repeat(int threads, const std::function<bool()>& step);
    ~Repeat() { Stop(); }
    void Stop();
    Counter steps{0};
    Counter failures{0};

private:
    std::atomic<bool> stop_{false};
    std::vector<std::thread> threads_;
};

// VmRSS of /proc/<pid>/status in kB; 0 when it cannot be read.
uint64_t ResidentKb(pid_t pid);

// Stubs that count the callbacks (of service events: the records).
class DeviceCounter : public DeviceChangedCallbackStub {
public:
    explicit DeviceCounter(Counter& count) : count_(count) {}
    int32_t OnDeviceOnline(DeviceInfo&) override { return Count(); }
    int32_t OnDeviceOffline(DeviceInfo&) override { return Count(); }
    int32_t OnDeviceReady(DeviceInfo&) override { return Count(); }

private:
    int32_t Count()
    {
        ++count_;
        return 0;
    }
    Counter& count_;
};
class ServiceCounter : public ServiceChangedCallbackStub {
public:
    explicit ServiceCounter(Counter& count) : count_(count) {}
    int32_t OnDeviceEvent(int32_t, std::vector<DeviceServiceInfo> infos) override
    {
        count_ += infos.size();
        return 0;
    }

private:
    Counter& count_;
};

}  // namespace DeviceDetectSoak

#endif  // DD_TEST_SOAK_SOAK_UTIL_H
