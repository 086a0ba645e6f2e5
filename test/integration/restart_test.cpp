// devicedetectd killed and started again while clients wait for it or
// watch it.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "child_process.h"
#include "control_client.h"
#include "daemon_fixture.h"
#include "sim_status.h"

namespace DeviceDetectIntegration {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

using Tavik::Test::ChildProcess;
using Tavik::Test::ChildSpec;
using Tavik::Test::ReadFile;
using Tavik::Test::WaitUntil;
using Clock = std::chrono::steady_clock;

size_t CountOf(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++count;
    }
    return count;
}

class RestartTest : public Tavik::Test::DaemonTest {
protected:
    // The device listeners and service-changed callbacks the daemon holds.
    std::pair<int, int> Registered()
    {
        Sim::ControlResult result = Control().GetRegistrations();
        if (result.status != Sim::SIM_OK) {
            return {-1, -1};
        }
        nlohmann::json counts = nlohmann::json::parse(result.json);
        return {counts["abilityListeners"].get<int>(), counts["serviceChangedCallbacks"].get<int>()};
    }
};

TEST_F(RestartTest, WatchRegistersAgainAfterEachKillAndGetsTheNextEvent)
{
    const uint64_t restarts = Tavik::Test::EnvCount("DD_RESTARTS", 100);
    const std::string out = RuntimeDir() + "/watch.out";
    ChildSpec spec({DEVICEDETECT_PATH, "--runtime-dir", RuntimeDir(), "watch", "--json"});
    spec.outFile = out;
    spec.errFile = RuntimeDir() + "/watch.err";
    ChildProcess watcher;
    ASSERT_TRUE(watcher.Start(spec));
    // Printed once its registrations have been answered: a kill before that
    // is a failed start, not a restart.
    ASSERT_TRUE(WaitUntil([&] { return ReadFile(spec.errFile).find("watching (listener") != std::string::npos; }))
        << ReadFile(spec.errFile) << ReadFile(out);

    // From the daemon's ready line to the watch's registrations in it.
    std::vector<double> registeredAfterMs;
    for (uint64_t round = 1; round <= restarts; ++round) {
        SCOPED_TRACE("restart " + std::to_string(round));
        daemon_->Stop(SIGKILL);
        ASSERT_TRUE(WaitUntil([&] { return CountOf(ReadFile(out), R"("event":"serviceGone")") == round; }))
            << ReadFile(out);
        ASSERT_TRUE(daemon_->Start()) << daemon_->Output();
        const Clock::time_point ready = Clock::now();
        ASSERT_TRUE(WaitUntil([this] { return Registered() == std::make_pair(1, 1); })) << ReadFile(out);
        registeredAfterMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - ready).count());

        // Each daemon starts from the built-in world, where the car is away.
        Sim::ControlResult online = Control().SetDeviceState("udid-car-0001", Sim::DeviceState::ONLINE);
        ASSERT_EQ(online.status, Sim::SIM_OK) << online.detail;
        EXPECT_NE(online.detail.find("sent 2 callbacks"), std::string::npos) << online.detail;
        ASSERT_TRUE(WaitUntil([&] { return CountOf(ReadFile(out), R"("event":"online")") == round; })) << ReadFile(out);
    }
    std::string lines = ReadFile(out);
    EXPECT_EQ(CountOf(lines, R"("event":"serviceBack")"), restarts);
    EXPECT_EQ(CountOf(lines, R"("registered":true)"), restarts);
    EXPECT_EQ(watcher.Exited(), false);

    // Reported, not judged: how soon after the daemon was ready the watch
    // was registered in it again (the goal is well under a second).
    std::sort(registeredAfterMs.begin(), registeredAfterMs.end());
    if (!registeredAfterMs.empty()) {
        std::cout << "registered again after the daemon was ready, over " << registeredAfterMs.size()
                  << " restarts: median " << registeredAfterMs[registeredAfterMs.size() / 2] << " ms, max "
                  << registeredAfterMs.back() << " ms" << std::endl;
    }
}

TEST_F(RestartTest, QueriesWaitForTheServiceWithWait)
{
    ASSERT_EQ(daemon_->Stop(SIGTERM), 0);
    auto cli = [this](std::vector<std::string> args) {
        args.insert(args.begin(), {DEVICEDETECT_PATH, "--runtime-dir", RuntimeDir()});
        return args;
    };

    Tavik::Test::RunResult gaveUp = Tavik::Test::Run(cli({"list", "--wait", "0.2"}));
    EXPECT_EQ(gaveUp.exitCode, 3);
    EXPECT_NE(gaveUp.err.find("within 0.2 s"), std::string::npos) << gaveUp.err;

    // Started before the daemon, done once the daemon answers.
    struct Waiting {
        std::vector<std::string> args;
        const char* expected;
    };
    const Waiting waiting[] = {
        {{"list", "--json", "--wait", "60"}, "\"udid\": \"udid-tv-0001\""},
        {{"sim", "online", "udid-car-0001", "--wait", "60"}, "is now online"},
    };
    std::vector<std::unique_ptr<ChildProcess>> clients;
    for (size_t i = 0; i < std::size(waiting); ++i) {
        ChildSpec spec(cli(waiting[i].args));
        spec.outFile = RuntimeDir() + "/wait-" + std::to_string(i) + ".out";
        spec.errFile = RuntimeDir() + "/wait-" + std::to_string(i) + ".err";
        clients.push_back(std::make_unique<ChildProcess>());
        ASSERT_TRUE(clients.back()->Start(spec));
        ASSERT_TRUE(WaitUntil([&] { return CountOf(ReadFile(spec.errFile), "waiting up to 60 s") == 1; }));
    }
    ASSERT_TRUE(daemon_->Start()) << daemon_->Output();
    for (size_t i = 0; i < std::size(waiting); ++i) {
        EXPECT_EQ(clients[i]->Wait(), 0) << waiting[i].args[0];
        std::string output = ReadFile(RuntimeDir() + "/wait-" + std::to_string(i) + ".out");
        EXPECT_NE(output.find(waiting[i].expected), std::string::npos) << output;
    }
}

}  // namespace
}  // namespace DeviceDetectIntegration
