// One frozen or hostile client costs the others nothing: `devicedetect watch`
// processes frozen with SIGSTOP beside a healthy one, and a peer's bytes in
// the service's log.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "callback_dispatcher.h"
#include "child_process.h"
#include "control_client.h"
#include "daemon_fixture.h"
#include "device_detect_request_code.h"
#include "message_option.h"
#include "message_parcel.h"
#include "sim_status.h"
#include "socket_transport.h"
#include "transport_limits.h"

namespace DeviceDetectIntegration {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;
using Tavik::Test::ChildProcess;
using Tavik::Test::WaitUntil;
using Clock = std::chrono::steady_clock;

// Long enough that a healthy watcher answers within it even under the
// sanitizers on a loaded machine, so the counts below are exact; a frozen
// watcher costs a change this much once.
constexpr int CALLBACK_WAIT_MS = 1000;
// A sanity limit only: the old synchronous sends took 3 s per callback of
// each frozen watcher.
constexpr auto CHANGE_LIMIT = std::chrono::milliseconds(CALLBACK_WAIT_MS + 2000);
// A watcher hears of the car's state through its listener and its
// service-changed callback.
constexpr size_t CALLBACKS_PER_CHANGE = 2;

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

class Watcher {
public:
    Watcher(const std::string& runtimeDir, int index) : out_(runtimeDir + "/watch-" + std::to_string(index))
    {
        Tavik::Test::ChildSpec spec({DEVICEDETECT_PATH, "--runtime-dir", runtimeDir, "watch"});
        spec.outFile = out_;
        spec.errFile = out_ + ".err";
        process_.Start(spec);
    }
    std::vector<std::string> Lines() const { return DeviceDetectIntegration::Lines(Tavik::Test::ReadFile(out_)); }
    ChildProcess& Process() { return process_; }

private:
    std::string out_;
    ChildProcess process_;
};

class FanOutTest : public Tavik::Test::DaemonTest {
protected:
    std::vector<std::string> DaemonArgs() override { return {"--callback-wait-ms", std::to_string(CALLBACK_WAIT_MS)}; }
    nlohmann::json Registrations()
    {
        Sim::ControlResult result = Control().GetRegistrations();
        return result.status == Sim::SIM_OK ? nlohmann::json::parse(result.json) : nlohmann::json();
    }
};

TEST_F(FanOutTest, FrozenWatchersDelayOnlyThemselves)
{
    struct Scenario {
        const char* name;
        int frozen;
        int rounds;  // the car online, then offline
        // Enough callbacks pile up for the frozen watcher to pass the bound.
        bool overflows;
    };
    const Scenario scenarios[] = {
        {"one frozen beside a healthy one", 1, 2, false},
        {"ten frozen beside a healthy one", 10, 2, false},
        {"one frozen past the bound", 1, static_cast<int>(Sim::MAX_QUEUED_CALLBACKS / 4 + 2), true},
    };
    int started = 0;
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.name);
        // A fresh daemon: its output holds this scenario's lines only.
        daemon_->Stop(SIGKILL);
        ASSERT_TRUE(daemon_->Start(DaemonArgs())) << daemon_->Output();
        std::vector<std::unique_ptr<Watcher>> watchers;
        for (int i = 0; i <= s.frozen; ++i) {
            watchers.push_back(std::make_unique<Watcher>(RuntimeDir(), started++));
        }
        const size_t total = watchers.size();
        ASSERT_TRUE(WaitUntil([&] {
            nlohmann::json now = Registrations();
            return now["abilityListeners"] == total && now["serviceChangedCallbacks"] == total;
        })) << Registrations().dump();
        Watcher& healthy = *watchers[0];
        for (size_t i = 1; i < total; ++i) {
            watchers[i]->Process().Signal(SIGSTOP);
        }

        Sim::ControlClient control = Control();
        size_t changes = 0;
        for (int round = 0; round < s.rounds; ++round) {
            for (Sim::DeviceState state : {Sim::DeviceState::ONLINE, Sim::DeviceState::OFFLINE}) {
                Clock::time_point start = Clock::now();
                Sim::ControlResult result = control.SetDeviceState("udid-car-0001", state);
                ASSERT_EQ(result.status, Sim::SIM_OK) << result.detail;
                EXPECT_LT(Clock::now() - start, CHANGE_LIMIT) << result.detail;
                ++changes;
                std::string counts = "sent " + std::to_string(CALLBACKS_PER_CHANGE) + " callbacks, " +
                                     std::to_string(CALLBACKS_PER_CHANGE * s.frozen) + " still queued";
                if (!s.overflows) {
                    EXPECT_NE(result.detail.find(counts), std::string::npos) << result.detail;
                }
                // The healthy watcher prints each event while the others
                // are stopped.
                ASSERT_TRUE(WaitUntil([&] { return healthy.Lines().size() == changes * CALLBACKS_PER_CHANGE; }))
                    << result.detail << "; the healthy watcher printed " << healthy.Lines().size() << " lines";
            }
        }
        std::vector<std::string> heard = healthy.Lines();
        for (size_t i = 0; i < heard.size(); ++i) {
            const char* expected[] = {"online  Family Car", "services 1:", "offline  Family Car", "services 2:"};
            EXPECT_EQ(heard[i].rfind(expected[i % 4], 0), 0u) << i << ": " << heard[i];
        }

        if (s.overflows) {
            // Given up: disconnected, its registrations gone, one WARN line
            // naming its pid.
            ASSERT_TRUE(WaitUntil([&] {
                nlohmann::json now = Registrations();
                return now["abilityListeners"] == 1 && now["serviceChangedCallbacks"] == 1;
            })) << Registrations().dump();
            std::string pid = "pid " + std::to_string(watchers[1]->Process().Pid());
            size_t warnings = 0;
            for (const std::string& line : Lines(daemon_->Output())) {
                bool named = line.find(pid + ":") != std::string::npos || line.find(pid + " ") != std::string::npos;
                warnings += line.find(" WARN ") != std::string::npos && named ? 1 : 0;
            }
            EXPECT_EQ(warnings, 1u) << daemon_->Output();
            continue;
        }
        // Thawed, each frozen watcher receives every event, in order.
        for (size_t i = 1; i < total; ++i) {
            watchers[i]->Process().Signal(SIGCONT);
        }
        for (size_t i = 1; i < total; ++i) {
            EXPECT_TRUE(WaitUntil([&] { return watchers[i]->Lines().size() >= heard.size(); }))
                << "watcher " << i << " printed " << watchers[i]->Lines().size() << " lines";
            EXPECT_EQ(watchers[i]->Lines(), heard) << "watcher " << i;
        }
    }
}

// A wrong interface token from a peer, once with a forged line and an escape
// sequence in it, then in bulk.
TEST_F(FanOutTest, APeersBytesStayOnOneEscapedLogLine)
{
    sptr<IRemoteObject> service = ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    ASSERT_NE(service, nullptr);
    const std::u16string forged = u"evil\nERROR 0xD004630/SYNTDeviceDetectSim: forged\x1b[2J";
    auto send = [&service](const std::u16string& token) {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option;
        data.WriteInterfaceToken(token);
        return service->SendRequest(1, data, reply, option);
    };
    ASSERT_EQ(send(forged), Sim::SIM_ERR_WRONG_TOKEN);
    constexpr int BULK = 100;
    for (int i = 0; i < BULK; ++i) {
        ASSERT_EQ(send(u"bulk"), Sim::SIM_ERR_WRONG_TOKEN);
    }
    // Malformed frames, each ending its own connection: the transport logs
    // the first few of this pid's and counts the rest.
    constexpr int MALFORMED = 20;
    for (int i = 0; i < MALFORMED; ++i) {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string path = GetSystemAbilitySocketPath(SYNTAVO_DEVICE_DETECT_SA_ID);
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        const std::string garbage(64, '\xff');
        ASSERT_EQ(write(fd, garbage.data(), garbage.size()), static_cast<ssize_t>(garbage.size()));
        close(fd);
    }
    // Past the limiter's window (2 s), the next line brings the summary.
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    ASSERT_EQ(send(u"last"), Sim::SIM_ERR_WRONG_TOKEN);
    ASSERT_TRUE(WaitUntil([this] { return daemon_->Output().find("suppressed") != std::string::npos; }))
        << daemon_->Output();

    std::string output = daemon_->Output();
    EXPECT_EQ(output.find('\x1b'), std::string::npos) << "no escape sequence reaches the terminal";
    size_t tokenLines = 0;
    size_t suppressed = 0;
    size_t forgedLines = 0;
    size_t malformedLines = 0;
    for (const std::string& line : Lines(output)) {
        malformedLines += line.find("malformed frame from") != std::string::npos ? 1 : 0;
        tokenLines += line.find("wrong interface token") != std::string::npos ? 1 : 0;
        forgedLines +=
            line.find(R"(wrong interface token "evil\nERROR 0xD004630/SYNTDeviceDetectSim: forged\x1b[2J")") !=
                    std::string::npos
                ? 1
                : 0;
        EXPECT_NE(line.rfind("ERROR 0xD004630/SYNTDeviceDetectSim: forged", 0), 0u) << "a forged line: " << line;
        size_t at = line.find("suppressed ");
        if (at != std::string::npos && line.find("(connection ") != std::string::npos) {
            EXPECT_NE(line.find("caused by pid " + std::to_string(getpid())), std::string::npos) << line;
            suppressed += std::stoul(line.substr(at + 11));
        }
    }
    EXPECT_EQ(forgedLines, 1u) << output;
    EXPECT_EQ(malformedLines, Transport::LOG_BURST) << output;
    EXPECT_GT(suppressed, 0u) << output;
    EXPECT_EQ(tokenLines + suppressed, size_t{BULK + 2}) << "every bad request is a line or counted: " << output;
}

// The CLI prints what the service sends for people with its control
// characters escaped: a name, a dynamic value, a control request's detail.
TEST_F(FanOutTest, TheCliEscapesTheServicesText)
{
    Sim::ControlClient control = Control();
    ASSERT_EQ(control
                  .AddDevice(R"({"udid":"u-evil","networkId":"n-evil","name":"Evil\u001b[2J\nTV","type":"TV",)"
                             R"("state":"online"})")
                  .status,
              Sim::SIM_OK);
    ASSERT_EQ(control.SetDynamicInfo("u-evil", "note", "a\nb\x1b[31m").status, Sim::SIM_OK);
    const std::string name = R"(Evil\x1b[2J\nTV)";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"list"}, name},
        {{"dynamic", "u-evil", "note"}, R"(a\nb\x1b[31m)"},
        {{"sim", "online", "u-evil"}, name + " (u-evil) was already online; sent 0 callbacks"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args{DEVICEDETECT_PATH, "--runtime-dir", RuntimeDir()};
        args.insert(args.end(), c.first.begin(), c.first.end());
        Tavik::Test::RunResult run = Tavik::Test::Run(args);
        EXPECT_EQ(run.exitCode, 0) << c.first[0] << ": " << run.err;
        EXPECT_EQ(run.out.find('\x1b'), std::string::npos) << c.first[0] << ": " << run.out;
        EXPECT_NE(run.out.find(c.second), std::string::npos) << c.first[0] << ": " << run.out;
    }
}

}  // namespace
}  // namespace DeviceDetectIntegration
