#include "daemon_fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "device_detect_proxy.h"
#include "socket_transport.h"

namespace Tavik {
namespace Test {

Daemon::~Daemon()
{
    Stop(SIGKILL);
}

bool Daemon::Start(const std::vector<std::string>& extraArgs)
{
    // A file, not a pipe, so that a daemon that logs a lot never blocks; a
    // new one for each start, as two daemons may share the directory.
    static std::atomic<int> starts{0};
    output_ = runtimeDir_ + "/devicedetectd-" + std::to_string(++starts) + ".log";
    int out = open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ChildSpec spec({DEVICEDETECTD_PATH, "--runtime-dir", runtimeDir_});
    spec.args.insert(spec.args.end(), extraArgs.begin(), extraArgs.end());
    spec.out = spec.err = out;
    bool started = out >= 0 && process_.Start(spec);
    close(out);
    // Log lines (at --log-level info or debug) may come first.
    auto ready = [this] {
        std::string output = Output();
        size_t line = output.find("devicedetectd: ready");
        return line != std::string::npos && output.find('\n', line) != std::string::npos;
    };
    return started && WaitUntil([&] { return ready() || process_.Exited(); }) && ready();
}

int Daemon::Stop(int signal)
{
    if (!process_.Started()) {
        return -1;
    }
    process_.Signal(signal);
    return process_.Wait();
}

void DaemonTest::SetUp()
{
    ASSERT_FALSE(RuntimeDir().empty());
    Syntavo::DeviceDetectProxy::CleanupInstance();
    daemon_ = std::make_unique<Daemon>(RuntimeDir());
    ASSERT_TRUE(daemon_->Start(DaemonArgs())) << daemon_->Output();
}

void DaemonTest::TearDown()
{
    Syntavo::DeviceDetectProxy::CleanupInstance();
    daemon_.reset();
}

Syntavo::Sim::ControlClient DaemonTest::Control()
{
    return Syntavo::Sim::ControlClient(ConnectSystemAbility(Syntavo::SYNTAVO_DEVICE_DETECT_SA_ID));
}

void DaemonTest::ExpectCleanStop()
{
    EXPECT_EQ(daemon_->Stop(SIGTERM), 0);
    std::string output = daemon_->Output();
    for (const char* bad : {"Sanitizer", " WARN ", " ERROR "}) {
        EXPECT_EQ(output.find(bad), std::string::npos) << output;
    }
}

}  // namespace Test
}  // namespace Tavik
