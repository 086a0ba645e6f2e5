// Load and soak: client processes call devicedetectd from several threads
// each while the world changes under them, and the service's memory is
// watched.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

#include "daemon_fixture.h"
#include "device_detect_request_code.h"
#include "process_util.h"
#include "sim_status.h"
#include "soak_client.h"
#include "soak_util.h"
#include "socket_transport.h"

namespace DeviceDetectSoak {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;
using DeviceDetectIntegration::Daemon;
using Clock = std::chrono::steady_clock;

#ifdef DD_SOAK_SANITIZED
// The sanitizers' own memory (quarantine, shadow, history) grows with the
// work done, so the service's resident size says nothing about its leaks
// there; LeakSanitizer speaks for them instead.
constexpr bool CHECK_RESIDENT_SIZE = false;
#else
constexpr bool CHECK_RESIDENT_SIZE = true;
#endif
// Resident size is judged from the point where this share of the calls is done.
constexpr double WARM_UP_SHARE = 0.25;
constexpr double RESIDENT_GROWTH_LIMIT = 1.05;
// Bounds a run that stopped making progress: a healthy default run takes
// about 30 s, and a long one about a millisecond per 10 calls.
constexpr uint64_t RUN_LIMIT_SECONDS = 600;
constexpr uint64_t RUN_LIMIT_CALLS_PER_SECOND = 1000;

// A client's standard error less the one ERROR line SetDialogEventCallback
// logs on every call, callback or not.
std::string UnexpectedLines(const std::string& err)
{
    std::string kept;
    size_t start = 0;
    while (start < err.size()) {
        size_t end = err.find('\n', start);
        end = end == std::string::npos ? err.size() : end + 1;
        std::string line = err.substr(start, end - start);
        if (line.find("SetDialogEventCallback callback is null? : 0") == std::string::npos) {
            kept += line;
        }
        start = end;
    }
    return kept;
}

struct Sample {
    uint64_t calls;
    uint64_t residentKb;
};

// Changes the car and the laptop of the built-in world again and again
// (every listener hears of it) and announces service changes, until stopped.
class WorldChanger {
public:
    void Start()
    {
        thread_ = std::thread([this] { Run(); });
    }
    void Stop()
    {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    uint64_t Changes() const { return changes_; }
    uint64_t Failures() const { return failures_; }
    const std::string& FirstFailure() const { return firstFailure_; }

private:
    void Run()
    {
        Sim::ControlClient control(ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID));
        const Sim::DeviceState states[] = {Sim::DeviceState::ONLINE, Sim::DeviceState::READY,
                                           Sim::DeviceState::OFFLINE};
        for (uint64_t round = 0; !stop_; ++round) {
            Check(control.SetDeviceState("udid-car-0001", states[round % 3]));
            Check(control.SetDeviceState("net-laptop-0001", states[(round + 1) % 3]));
            Check(control.NotifyServiceChange(3, {}));
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    void Check(const Sim::ControlResult& result)
    {
        ++changes_;
        if (result.status != Sim::SIM_OK && failures_++ == 0) {
            firstFailure_ = std::to_string(result.status) + " " + result.detail;
        }
    }

    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<uint64_t> changes_{0};
    std::atomic<uint64_t> failures_{0};
    std::string firstFailure_;
};

using SoakTest = DaemonTest;

TEST_F(SoakTest, ClientProcessesCallWhileTheWorldChanges)
{
    const int processes = static_cast<int>(EnvCount("DD_SOAK_PROCESSES", 4));
    const int threads = static_cast<int>(EnvCount("DD_SOAK_THREADS", 4));
    const uint64_t calls = EnvCount("DD_SOAK_CALLS", 20000);
    const uint64_t total = static_cast<uint64_t>(processes) * threads * calls;
    const pid_t service = daemon_->Pid();
    const uint64_t idleKb = ResidentKb(service);

    std::vector<std::unique_ptr<ClientProcess>> clients;
    auto begin = Clock::now();
    for (int i = 0; i < processes; ++i) {
        clients.push_back(std::make_unique<ClientProcess>());
        ASSERT_TRUE(clients.back()->Start(i + 1, threads, calls));
    }
    WorldChanger changer;
    changer.Start();

    std::vector<Sample> samples;
    auto allDone = [&clients] {
        return std::all_of(clients.begin(), clients.end(),
                           [](const auto& client) { return client->Out().find("SUMMARY") != std::string::npos; });
    };
    const auto limit = std::chrono::seconds(RUN_LIMIT_SECONDS + total / RUN_LIMIT_CALLS_PER_SECOND);
    while (!allDone() && Clock::now() - begin < limit) {
        uint64_t done = 0;
        for (const auto& client : clients) {
            done += client->Progress();
        }
        samples.push_back({done, ResidentKb(service)});
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    uint64_t finalKb = ResidentKb(service);
    changer.Stop();

    uint64_t callsDone = 0;
    for (size_t i = 0; i < clients.size(); ++i) {
        ClientSummary summary;
        ASSERT_TRUE(clients[i]->WaitForSummary(1)) << "client " << i + 1 << " did not finish\n" << clients[i]->Err();
        ASSERT_TRUE(ParseSummary(clients[i]->Out(), summary)) << clients[i]->Out();
        EXPECT_EQ(clients[i]->Wait(), 0) << clients[i]->Err();
        EXPECT_EQ(summary.calls, threads * calls);
        EXPECT_EQ(summary.failures, 0u) << clients[i]->Err();
        // Every kind of callback reached every process while it called.
        EXPECT_GT(summary.deviceEvents, 0u);
        EXPECT_GT(summary.serviceEvents, 0u);
        EXPECT_GT(summary.dialogReplies, 0u);
        EXPECT_GT(summary.publishEvents, 0u);
        EXPECT_EQ(UnexpectedLines(clients[i]->Err()), "");
        callsDone += summary.calls;
    }
    EXPECT_EQ(changer.Failures(), 0u) << changer.FirstFailure();
    EXPECT_GT(changer.Changes(), 0u);

    // Resident size from the end of the warm-up on.
    uint64_t warmKb = 0;
    uint64_t peakKb = finalKb;
    for (const Sample& sample : samples) {
        if (sample.calls >= static_cast<uint64_t>(total * WARM_UP_SHARE) && sample.residentKb > 0) {
            warmKb = warmKb == 0 ? sample.residentKb : warmKb;
            peakKb = std::max(peakKb, sample.residentKb);
        }
    }
    printf(
        "[ figures  ] %d processes x %d threads x %llu calls = %llu calls in %.1f s (%.0f calls/s), "
        "%llu world changes; service VmRSS idle %llu kB, after warm-up %llu kB, peak %llu kB, end %llu kB\n",
        processes, threads, static_cast<unsigned long long>(calls), static_cast<unsigned long long>(callsDone), seconds,
        callsDone / seconds, static_cast<unsigned long long>(changer.Changes()),
        static_cast<unsigned long long>(idleKb), static_cast<unsigned long long>(warmKb),
        static_cast<unsigned long long>(peakKb), static_cast<unsigned long long>(finalKb));
    if (CHECK_RESIDENT_SIZE) {
        ASSERT_GT(warmKb, 0u) << "no sample after the warm-up";
        EXPECT_LE(peakKb, static_cast<uint64_t>(warmKb * RESIDENT_GROWTH_LIMIT));
    }

    // The clients are gone: a clean stop leaves nothing behind (under the
    // address sanitizer its leak check runs at this exit).
    EXPECT_EQ(daemon_->Stop(SIGTERM), 0) << daemon_->Output();
    std::string output = daemon_->Output();
    EXPECT_NE(output.find("devicedetectd: stopped (SIGTERM)"), std::string::npos) << output;
    EXPECT_EQ(output.find("Sanitizer"), std::string::npos) << output;
    EXPECT_EQ(output.find(" WARN "), std::string::npos) << output;
    EXPECT_EQ(output.find(" ERROR "), std::string::npos) << output;
}

}  // namespace
}  // namespace DeviceDetectSoak
