// The client library and devicedetectd in separate processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include <nlohmann/json.hpp>

#include "child_process.h"
#include "control_client.h"
#include "daemon_fixture.h"
#include "device_detect_proxy.h"
#include "recording_callbacks.h"
#include "service_filter.h"
#include "sim_status.h"
#include "socket_transport.h"

namespace DeviceDetectIntegration {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

using Tavik::Test::ChildProcess;
using Tavik::Test::Daemon;
using Tavik::Test::RunResult;
using Tavik::Test::TempDir;
using Tavik::Test::WaitUntil;

class IntegrationTest : public Tavik::Test::DaemonTest {
protected:
    nlohmann::json Registrations()
    {
        Sim::ControlResult result = Control().GetRegistrations();
        return result.status == Sim::SIM_OK ? nlohmann::json::parse(result.json) : nlohmann::json();
    }

    RunResult Cli(std::vector<std::string> args)
    {
        args.insert(args.begin(), {DEVICEDETECT_PATH, "--runtime-dir", RuntimeDir()});
        return Tavik::Test::Run(args);
    }
};

TEST_F(IntegrationTest, WorldChangesReachTheHandlersBeforeTheControlRequestReturns)
{
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    auto recorder = sptr<Tavik::Test::DeviceChangedRecorder>::MakeSptr();
    auto services = sptr<Tavik::Test::ServiceChangedRecorder>::MakeSptr();
    ASSERT_EQ(proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "it", recorder).first, 0);
    ASSERT_EQ(proxy->RegisterServiceChangedCallback(services), 0);

    Sim::ControlClient control = Control();
    EXPECT_EQ(control.SetDeviceState("udid-car-0001", Sim::DeviceState::READY).status, Sim::SIM_OK);
    EXPECT_EQ(control.SetDeviceState("net-tv-0001", Sim::DeviceState::OFFLINE).status, Sim::SIM_OK);
    EXPECT_EQ(recorder->Lines(), (std::vector<std::string>{"online udid-car-0001 net-car-0001 Family Car 131",
                                                           "ready udid-car-0001 net-car-0001 Family Car 131",
                                                           "offline udid-tv-0001 net-tv-0001 Living Room TV 156"}));
    EXPECT_EQ(services->Lines(),
              (std::vector<std::string>{"services 1 udid-car-0001,net-car-0001,131,02:00:00:00:00:01[navigation,]",
                                        "services 2 udid-tv-0001,net-tv-0001,156,02:00:00:00:00:06[cast:allow,]"}));

    // The same through the CLI, from a third process.
    RunResult sim = Cli({"sim", "online", "udid-laptop-0001"});
    EXPECT_EQ(sim.exitCode, 0) << sim.err;
    EXPECT_EQ(recorder->Lines().back(), "online udid-laptop-0001 net-laptop-0001 Travel Laptop 2607");
}

TEST_F(IntegrationTest, ClientDeathDropsItsRegistrations)
{
    Tavik::Test::ChildSpec watch({DEVICEDETECT_PATH, "--runtime-dir", RuntimeDir(), "watch", "--timeout", "60"});
    watch.outFile = watch.errFile = "/dev/null";
    ChildProcess watcher;
    ASSERT_TRUE(watcher.Start(watch));
    // watch registers its listener and then its service-change callback.
    ASSERT_TRUE(WaitUntil([this] {
        nlohmann::json now = Registrations();
        return now["abilityListeners"] == 1 && now["serviceChangedCallbacks"] == 1;
    })) << Registrations().dump();
    watcher.Kill();
    ASSERT_TRUE(WaitUntil([this] {
        nlohmann::json now = Registrations();
        return now["abilityListeners"] == 0 && now["serviceChangedCallbacks"] == 0;
    })) << Registrations().dump();
    EXPECT_EQ(Registrations()["watchedClients"], 0);
}

TEST_F(IntegrationTest, ServiceKilledAndRestarted)
{
    sptr<DeviceDetectProxy> first = DeviceDetectProxy::GetInstance();
    ASSERT_NE(first, nullptr);
    std::vector<DeviceInfo> devices;
    ASSERT_EQ(first->GetTrustedDeviceList("", devices), 0);

    daemon_->Stop(SIGKILL);
    // The death notice crosses from the socket to the proxy (what it then
    // does is the proxy unit tests' part).
    ASSERT_TRUE(WaitUntil([&first] { return DeviceDetectProxy::GetInstance() != first; }));

    // A killed daemon leaves its socket behind; the next one takes over.
    ASSERT_TRUE(daemon_->Start()) << daemon_->Output();
    sptr<DeviceDetectProxy> second = DeviceDetectProxy::GetInstance();
    ASSERT_NE(second, nullptr);
    devices.clear();
    EXPECT_EQ(second->GetTrustedDeviceList("", devices), 0);
    EXPECT_EQ(devices.size(), 5u);
}

TEST_F(IntegrationTest, DaemonStartAndStopRules)
{
    Daemon second(RuntimeDir());
    EXPECT_FALSE(second.Start());
    EXPECT_NE(second.Output().find("ALREADY_PUBLISHED"), std::string::npos) << second.Output();
    EXPECT_EQ(second.Stop(SIGTERM), 1);

    std::string socket = RuntimeDir() + "/sa-70635.sock";
    EXPECT_EQ(access(socket.c_str(), F_OK), 0);
    EXPECT_EQ(daemon_->Stop(SIGTERM), 0);
    EXPECT_NE(access(socket.c_str(), F_OK), 0);
    EXPECT_NE(daemon_->Output().find("stopped (SIGTERM)"), std::string::npos);

    TempDir dir;
    std::string bad = dir.Path() + "/bad.json";
    std::ofstream(bad)
        << R"({"local":{"udid":"l","networkId":"n","name":"x","type":"PHONE"},"devices":[{"udid":"a"}]})";
    RunResult rejected = Tavik::Test::Run({DEVICEDETECTD_PATH, "--runtime-dir", dir.Path(), "--world", bad});
    EXPECT_EQ(rejected.exitCode, 2);
    EXPECT_NE(rejected.err.find("devices[0].networkId: missing"), std::string::npos) << rejected.err;
    RunResult excluded =
        Tavik::Test::Run({DEVICEDETECTD_PATH, "--runtime-dir", dir.Path(), "--world", bad, "--scenario", bad});
    EXPECT_EQ(excluded.exitCode, 2) << excluded.err;

    ASSERT_TRUE(daemon_->Start({"--world", std::string(EXAMPLES_DIR) + "/home.json"})) << daemon_->Output();
    EXPECT_NE(daemon_->Output().find("4 devices, 3 online"), std::string::npos) << daemon_->Output();
}

TEST_F(IntegrationTest, StepModeScenarioAnnouncesItsEnd)
{
    ASSERT_EQ(daemon_->Stop(SIGTERM), 0);
    TempDir dir;
    std::string file = dir.Path() + "/two_steps.json";
    std::ofstream(file)
        << R"({"steps":[{"action":"online","device":"udid-car-0001"},{"action":"offline","device":"udid-car-0001"}]})";
    ASSERT_TRUE(daemon_->Start({"--scenario", file, "--step"})) << daemon_->Output();

    EXPECT_EQ(Cli({"sim", "step"}).exitCode, 0);
    EXPECT_EQ(daemon_->Output().find("scenario done"), std::string::npos) << daemon_->Output();
    EXPECT_EQ(Cli({"sim", "step"}).exitCode, 0);
    EXPECT_TRUE(WaitUntil([this] { return daemon_->Output().find("scenario done") != std::string::npos; }))
        << daemon_->Output();
    RunResult past = Cli({"sim", "step"});
    EXPECT_EQ(past.exitCode, 1);
    EXPECT_NE(past.err.find("SIM_ERR_NO_SCENARIO"), std::string::npos) << past.err;
}

TEST_F(IntegrationTest, CliAgainstTheDaemon)
{
    RunResult list = Cli({"list", "--json"});
    ASSERT_EQ(list.exitCode, 0) << list.err;
    nlohmann::json parsed = nlohmann::json::parse(list.out);
    ASSERT_EQ(parsed["devices"].size(), 5u);
    EXPECT_EQ(parsed["devices"][0]["typeName"], "TV");

    RunResult missing = Cli({"config", "ghost"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("DD_ERR_READ_FAILED"), std::string::npos) << missing.err;

    RunResult unknown = Cli({"sim", "online", "ghost"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_NE(unknown.err.find("SIM_ERR_NO_SUCH_DEVICE"), std::string::npos) << unknown.err;

    for (const std::vector<std::string>& badUsage :
         std::vector<std::vector<std::string>>{{"list", "--nope"}, {"sim", "remove", "a", "b"}, {"dynamic"}, {}}) {
        RunResult bad = Cli(badUsage);
        EXPECT_EQ(bad.exitCode, 2) << bad.err;
    }
    RunResult help = Cli({"sim", "online", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("Udid or network id"), std::string::npos) << help.out;

    TempDir empty;
    RunResult unreachable = Tavik::Test::Run({DEVICEDETECT_PATH, "--runtime-dir", empty.Path(), "list"});
    EXPECT_EQ(unreachable.exitCode, 3);
    EXPECT_NE(unreachable.err.find(empty.Path() + "/sa-70635.sock"), std::string::npos) << unreachable.err;
    EXPECT_NE(unreachable.err.find("devicedetectd"), std::string::npos);
}

TEST_F(IntegrationTest, DumpShowsEachClientItsRegistrationsAndItsRequests)
{
    Tavik::Test::ChildSpec watch({DEVICEDETECT_PATH, "--runtime-dir", RuntimeDir(), "watch", "--timeout", "60"});
    watch.outFile = watch.errFile = "/dev/null";
    ChildProcess watcher;
    ASSERT_TRUE(watcher.Start(watch));
    ASSERT_TRUE(WaitUntil([this] { return Registrations()["serviceChangedCallbacks"] == 1; }));

    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    auto filter = sptr<AbilityFilter>::MakeSptr();
    filter->SetDeviceType(156);  // the TV's type
    auto recorder = sptr<Tavik::Test::DeviceChangedRecorder>::MakeSptr();
    std::pair<int32_t, uint32_t> ours = proxy->RegisterDevChangedCallback(filter, "dump-test", recorder);
    ASSERT_EQ(ours.first, 0);
    std::vector<DeviceInfo> devices;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(proxy->GetTrustedDeviceList("", devices), 0);
    }
    ASSERT_EQ(Control().SetDeviceState("udid-tv-0001", Sim::DeviceState::OFFLINE).status, Sim::SIM_OK);
    EXPECT_EQ(Cli({"unrequest-service", "ghost.package"}).exitCode, 1);

    RunResult run = Cli({"dump", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    nlohmann::json dump = nlohmann::json::parse(run.out);
    EXPECT_EQ(dump["service"]["pid"], daemon_->Pid());
    EXPECT_EQ(dump["service"]["online"], 4);
    auto client = [&dump](pid_t pid) {
        for (const nlohmann::json& entry : dump["clients"]) {
            if (entry["pid"] == pid) {
                return entry;
            }
        }
        return nlohmann::json();
    };
    nlohmann::json mine = client(getpid());
    ASSERT_FALSE(mine.is_null()) << run.out;
    EXPECT_EQ(mine["uid"], getuid());
    EXPECT_EQ(mine["registrations"],
              nlohmann::json::parse(R"([{"kind": "abilityListener", "id": )" + std::to_string(ours.second) +
                                    R"(, "filter": {"bundleName": "", "abilityType": "", "deviceType": "156",
                                        "accountType": "0", "extra": "dump-test"}}])"));
    EXPECT_EQ(mine["callbacks"]["sent"], 1) << "the TV went offline";
    nlohmann::json theirs = client(watcher.Pid());
    ASSERT_FALSE(theirs.is_null()) << run.out;
    EXPECT_EQ(theirs["program"], "devicedetect");
    EXPECT_EQ(theirs["registrations"].size(), 2u);
    EXPECT_EQ(theirs["registrations"][0]["kind"], "abilityListener");
    EXPECT_EQ(theirs["callbacks"]["sent"], 2) << "offline to its listener and a service change";

    std::map<std::string, nlohmann::json> requests;
    for (const nlohmann::json& entry : dump["requests"]) {
        requests[entry["name"]] = entry;
    }
    EXPECT_EQ(requests["GET_TRUSTED_DEVICE_LIST"]["calls"], 3);
    EXPECT_EQ(requests["GET_TRUSTED_DEVICE_LIST"]["failures"], nlohmann::json::object());
    EXPECT_LE(requests["GET_TRUSTED_DEVICE_LIST"]["p50Us"], requests["GET_TRUSTED_DEVICE_LIST"]["maxUs"]);
    EXPECT_EQ(requests["UN_REQUEST_SERVICE"]["failures"], nlohmann::json::parse(R"({"SIM_ERR_NOT_REGISTERED": 1})"));
    EXPECT_GE(dump["transport"]["accepted"], 4);
    ASSERT_FALSE(dump["recentlyClosed"].empty()) << "the unrequest-service command's connection";
    EXPECT_EQ(dump["recentlyClosed"].back()["reason"], "peer closed the connection");

    RunResult human = Cli({"dump"});
    ASSERT_EQ(human.exitCode, 0) << human.err;
    for (const char* section : {"Service\n", "\nClients (3)\n", "\nRegistrations\n", "\nRequests\n", "\nTransport\n",
                                "\nLimits\n", "deviceType=\"156\""}) {
        EXPECT_NE(human.out.find(section), std::string::npos) << section << " in\n" << human.out;
    }
}

}  // namespace
}  // namespace DeviceDetectIntegration
