// Load and soak: client processes call devicedetectd from several threads
// each while the world changes under them, and the service's memory is
// watched.
#include <algorithm>
#include <chrono>
#include <cstdio>

#include "sim_status.h"
#include "soak_util.h"

namespace DeviceDetectSoak {
namespace {

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

using SoakTest = DaemonTest;

TEST_F(SoakTest, ClientProcessesCallWhileTheWorldChanges)
{
    const int processes = static_cast<int>(EnvCount("DD_SOAK_PROCESSES", 4));
    const int threads = static_cast<int>(EnvCount("DD_SOAK_THREADS", 4));
    const uint64_t calls = EnvCount("DD_SOAK_CALLS", 20000);
    const uint64_t total = static_cast<uint64_t>(processes) * threads * calls;
    const uint64_t idleKb = ResidentKb(daemon_->Pid());

    auto begin = Clock::now();
    std::vector<std::unique_ptr<ClientProcess>> clients;
    for (int i = 0; i < processes; ++i) {
        clients.push_back(std::make_unique<ClientProcess>(i + 1, threads, calls));
        ASSERT_TRUE(clients.back()->Started());
    }
    // The car and the laptop come and go (every listener hears of it), and
    // service changes are announced.
    Sim::ControlClient control = Control();
    const Sim::DeviceState states[] = {Sim::DeviceState::ONLINE, Sim::DeviceState::READY, Sim::DeviceState::OFFLINE};
    Repeat changer(1, [&control, &states, round = 0]() mutable {
        ++round;
        bool ok = control.SetDeviceState("udid-car-0001", states[round % 3]).status == Sim::SIM_OK &&
                  control.SetDeviceState("net-laptop-0001", states[(round + 1) % 3]).status == Sim::SIM_OK &&
                  control.NotifyServiceChange(3, {}).status == Sim::SIM_OK;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return ok;
    });

    // Resident size from the end of the warm-up on.
    uint64_t warmKb = 0;
    uint64_t peakKb = 0;
    const auto limit = std::chrono::seconds(RUN_LIMIT_SECONDS + total / RUN_LIMIT_CALLS_PER_SECOND);
    while (Clock::now() - begin < limit &&
           !std::all_of(clients.begin(), clients.end(), [](const auto& client) { return client->Done(); })) {
        uint64_t done = 0;
        for (const auto& client : clients) {
            done += client->Progress();
        }
        uint64_t kb = ResidentKb(daemon_->Pid());
        if (done >= static_cast<uint64_t>(total * WARM_UP_SHARE) && kb > 0) {
            warmKb = warmKb == 0 ? kb : warmKb;
            peakKb = std::max(peakKb, kb);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    uint64_t finalKb = ResidentKb(daemon_->Pid());
    peakKb = std::max(peakKb, finalKb);
    changer.Stop();

    for (size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i]->Finish(calls), "") << "client " << i + 1;
    }
    EXPECT_EQ(changer.failures, 0u);
    EXPECT_GT(changer.steps, 0u);
    printf(
        "[ figures  ] %d processes x %d threads x %llu calls in %.1f s (%.0f calls/s), %llu world changes; service "
        "VmRSS idle %llu kB, after warm-up %llu kB, peak %llu kB, end %llu kB\n",
        processes, threads, static_cast<unsigned long long>(calls), seconds, total / seconds,
        static_cast<unsigned long long>(changer.steps * 3), static_cast<unsigned long long>(idleKb),
        static_cast<unsigned long long>(warmKb), static_cast<unsigned long long>(peakKb),
        static_cast<unsigned long long>(finalKb));
    if (CHECK_RESIDENT_SIZE) {
        ASSERT_GT(warmKb, 0u) << "no sample after the warm-up";
        EXPECT_LE(peakKb, static_cast<uint64_t>(warmKb * RESIDENT_GROWTH_LIMIT));
    }
    // The clients are gone: a clean stop leaves nothing behind.
    ExpectCleanStop();
}

}  // namespace
}  // namespace DeviceDetectSoak
