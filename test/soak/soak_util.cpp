#include "soak_util.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "device_detect_request_code.h"
#include "socket_transport.h"

extern char** environ;

namespace DeviceDetectSoak {
namespace {

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Standard error less the one ERROR line SetDialogEventCallback logs on
// every call, callback or not.
std::string UnexpectedLines(const std::string& err)
{
    std::istringstream lines(err);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("SetDialogEventCallback callback is null? : 0") == std::string::npos) {
            kept += line + "\n";
        }
    }
    return kept;
}

}  // namespace

ClientProcess::ClientProcess(int id, int threads, uint64_t calls)
    : threads_(threads), files_(std::string(getenv("TAVIK_RUNTIME_DIR")) + "/client-" + std::to_string(id))
{
    int in[2];
    if (pipe2(in, O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (files_ + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (files_ + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    std::vector<std::string> args{"/proc/self/exe", CLIENT_ROLE_FLAG, std::to_string(id), std::to_string(threads),
                                  std::to_string(calls)};
    std::vector<char*> argv;
    for (std::string& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    input_ = in[1];
}

ClientProcess::~ClientProcess()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (input_ >= 0) {
        close(input_);
    }
}

uint64_t ClientProcess::Progress() const
{
    std::string out = Out();
    return std::count(out.begin(), out.begin() + std::min(out.find('\n'), out.size()), '.') * PROGRESS_CALLS;
}

std::string ClientProcess::Finish(uint64_t calls)
{
    if (pid_ <= 0) {
        return "not started";
    }
    close(input_);
    input_ = -1;
    for (int i = 0; i < 600 && !Done(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (!Done()) {
        kill(pid_, SIGKILL);
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    std::string out = Out();
    size_t summary = out.find("SUMMARY");
    if (summary == std::string::npos) {
        return "no summary; standard error:\n" + Err();
    }
    uint64_t counts[COUNTS] = {};
    for (int i = 0; i < COUNTS; ++i) {
        size_t at = out.find(std::string(" ") + COUNT_NAMES[i] + "=", summary);
        counts[i] = at == std::string::npos ? 0 : strtoull(out.c_str() + at + strlen(COUNT_NAMES[i]) + 2, nullptr, 10);
    }
    std::string problems;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        problems += "exit status " + std::to_string(status) + "\n";
    }
    if (calls != 0 && counts[CALLS] != calls * threads_) {
        problems += "not all calls made\n";
    }
    if (counts[FAILURES] != 0) {
        problems += "failed calls\n";
    }
    for (int i = DEVICE_EVENTS; i < COUNTS; ++i) {
        problems += counts[i] == 0 ? std::string("no ") + COUNT_NAMES[i] + "\n" : "";
    }
    problems += UnexpectedLines(Err());
    return problems.empty() ? problems : problems + out.substr(summary);
}

std::string ClientProcess::Out() const
{
    return ReadFile(files_ + ".out");
}

std::string ClientProcess::Err() const
{
    return ReadFile(files_ + ".err");
}

Repeat::Repeat(int threads, const std::function<bool()>& step)
{
    for (int i = 0; i < threads; ++i) {
        threads_.emplace_back([this, step] {
            while (!stop_) {
                failures += step() ? 0 : 1;
                ++steps;
            }
        });
    }
}

void Repeat::Stop()
{
    stop_ = true;
    for (std::thread& thread : threads_) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

uint64_t ResidentKb(pid_t pid)
{
    std::string status = ReadFile("/proc/" + std::to_string(pid) + "/status");
    size_t at = status.find("VmRSS:");
    return at == std::string::npos ? 0 : strtoull(status.c_str() + at + strlen("VmRSS:"), nullptr, 10);
}

uint64_t EnvCount(const char* name, uint64_t fallback)
{
    const char* value = std::getenv(name);
    uint64_t count = value == nullptr ? 0 : strtoull(value, nullptr, 10);
    return count > 0 ? count : fallback;
}

void DaemonTest::SetUp()
{
    runtimeDir_ = DeviceDetectIntegration::MakeTempDir();
    ASSERT_FALSE(runtimeDir_.empty());
    setenv("TAVIK_RUNTIME_DIR", runtimeDir_.c_str(), 1);
    DeviceDetectProxy::CleanupInstance();
    daemon_ = std::make_unique<DeviceDetectIntegration::Daemon>(runtimeDir_);
    ASSERT_TRUE(daemon_->Start(DaemonArgs())) << daemon_->Output();
}

void DaemonTest::TearDown()
{
    DeviceDetectProxy::CleanupInstance();
    daemon_.reset();
    DeviceDetectIntegration::RemoveTree(runtimeDir_);
}

Sim::ControlClient DaemonTest::Control()
{
    return Sim::ControlClient(ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID));
}

void DaemonTest::ExpectCleanStop()
{
    EXPECT_EQ(daemon_->Stop(SIGTERM), 0);
    std::string output = daemon_->Output();
    for (const char* bad : {"Sanitizer", " WARN ", " ERROR "}) {
        EXPECT_EQ(output.find(bad), std::string::npos) << output;
    }
}

}  // namespace DeviceDetectSoak
