#include "process_util.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

extern char** environ;

namespace DeviceDetectIntegration {
namespace {

// Gives up on a process that prints nothing for this long.
constexpr int READ_LIMIT_MS = 20000;

pid_t Spawn(const std::vector<std::string>& args, int outFd, int errFd)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errFd, STDERR_FILENO);
    std::vector<char*> argv;
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int ExitCode(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Reads both pipes until both close.
void Drain(int outFd, int errFd, std::string& out, std::string& err)
{
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, READ_LIMIT_MS) <= 0) {
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char buffer[4096];
            ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
            if (n <= 0) {
                fds[i].fd = -1;
                --open;
            } else {
                (i == 0 ? out : err).append(buffer, static_cast<size_t>(n));
            }
        }
    }
}

}  // namespace

RunResult Run(const std::vector<std::string>& args)
{
    RunResult result;
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        return result;
    }
    pid_t pid = Spawn(args, out[1], err[1]);
    close(out[1]);
    close(err[1]);
    if (pid > 0) {
        Drain(out[0], err[0], result.out, result.err);
        int status = 0;
        waitpid(pid, &status, 0);
        result.exitCode = ExitCode(status);
    }
    close(out[0]);
    close(err[0]);
    return result;
}

pid_t SpawnBackground(const std::vector<std::string>& args)
{
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    pid_t pid = Spawn(args, null, null);
    close(null);
    return pid;
}

Daemon::~Daemon()
{
    if (pid_ > 0) {
        Stop(SIGKILL);
    }
}

bool Daemon::Start(const std::vector<std::string>& extraArgs)
{
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return false;
    }
    std::vector<std::string> args{DEVICEDETECTD_PATH, "--runtime-dir", runtimeDir_};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    pid_ = Spawn(args, out[1], out[1]);
    close(out[1]);
    outFd_ = out[0];
    {
        std::lock_guard<std::mutex> lock(outputMutex_);
        output_.clear();
    }
    if (pid_ <= 0) {
        close(outFd_);
        outFd_ = -1;
        return false;
    }
    std::string start;
    pollfd fd{outFd_, POLLIN, 0};
    // Log lines (at --log-level info or debug) may come first; the whole
    // ready line is read here.
    auto readyLineRead = [&start] {
        size_t ready = start.find("devicedetectd: ready");
        return ready != std::string::npos && start.find('\n', ready) != std::string::npos;
    };
    while (!readyLineRead()) {
        char buffer[512];
        if (poll(&fd, 1, READ_LIMIT_MS) <= 0) {
            break;
        }
        ssize_t n = read(outFd_, buffer, sizeof(buffer));
        if (n <= 0) {
            break;
        }
        start.append(buffer, static_cast<size_t>(n));
    }
    {
        std::lock_guard<std::mutex> lock(outputMutex_);
        output_ = start;
    }
    reader_ = std::thread([this] { Drain(); });
    return readyLineRead();
}

void Daemon::Drain()
{
    char buffer[4096];
    ssize_t n = 0;
    while ((n = read(outFd_, buffer, sizeof(buffer))) > 0) {
        std::lock_guard<std::mutex> lock(outputMutex_);
        output_.append(buffer, static_cast<size_t>(n));
    }
}

int Daemon::Stop(int signal)
{
    if (pid_ <= 0) {
        return -1;
    }
    kill(pid_, signal);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    // The pipe closes with the daemon, which ends the reader.
    if (reader_.joinable()) {
        reader_.join();
    }
    close(outFd_);
    outFd_ = -1;
    return ExitCode(status);
}

std::string Daemon::Output() const
{
    std::lock_guard<std::mutex> lock(outputMutex_);
    return output_;
}

std::string MakeTempDir()
{
    char pattern[] = "/tmp/dd-integration-XXXXXX";
    const char* dir = mkdtemp(pattern);
    return dir != nullptr ? dir : "";
}

void RemoveTree(const std::string& dir)
{
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
}

}  // namespace DeviceDetectIntegration
