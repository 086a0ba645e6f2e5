#include "soak_util.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "soak_client.h"

extern char** environ;

namespace DeviceDetectSoak {

ClientProcess::~ClientProcess()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        Wait();
    }
}

bool ClientProcess::Start(int id, int threads, uint64_t calls)
{
    int in[2];
    int out[2];
    int err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
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
    close(out[1]);
    close(err[1]);
    input_ = in[1];
    outReader_ = std::thread([this, fd = out[0]] { Read(fd, true); });
    errReader_ = std::thread([this, fd = err[0]] { Read(fd, false); });
    return pid_ > 0;
}

void ClientProcess::Read(int fd, bool isOut)
{
    char buffer[4096];
    ssize_t n = 0;
    while ((n = read(fd, buffer, sizeof(buffer))) > 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::string& text = isOut ? out_ : err_;
        for (ssize_t i = 0; i < n; ++i) {
            // Progress dots count until the summary starts; they are not kept.
            if (isOut && buffer[i] == '.' && text.empty()) {
                ++progress_;
            } else {
                text.push_back(buffer[i]);
            }
        }
    }
    close(fd);
}

bool ClientProcess::WaitForSummary(int seconds)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (Out().find("SUMMARY") != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

void ClientProcess::CloseInput()
{
    if (input_ >= 0) {
        close(input_);
        input_ = -1;
    }
}

int ClientProcess::Wait()
{
    CloseInput();
    int status = 0;
    if (pid_ > 0) {
        waitpid(pid_, &status, 0);
        pid_ = -1;
    }
    if (outReader_.joinable()) {
        outReader_.join();
    }
    if (errReader_.joinable()) {
        errReader_.join();
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ClientProcess::Out() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return out_;
}

std::string ClientProcess::Err() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return err_;
}

uint64_t ResidentKb(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return strtoull(line.c_str() + strlen("VmRSS:"), nullptr, 10);
        }
    }
    return 0;
}

uint64_t EnvCount(const char* name, uint64_t fallback)
{
    const char* value = std::getenv(name);
    uint64_t count = value == nullptr ? 0 : strtoull(value, nullptr, 10);
    return count > 0 ? count : fallback;
}

}  // namespace DeviceDetectSoak
