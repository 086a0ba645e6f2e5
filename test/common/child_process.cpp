#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace Tavik {
namespace Test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    for (std::string& entry : strings) {
        pointers.push_back(entry.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

uint64_t EnvCount(const char* name, uint64_t fallback)
{
    const char* value = std::getenv(name);
    uint64_t count = value == nullptr ? 0 : strtoull(value, nullptr, 10);
    return count > 0 ? count : fallback;
}

bool ChildProcess::Start(const ChildSpec& spec)
{
    Kill();
    std::vector<std::string> args = spec.args;
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        env.emplace_back(*entry);
    }
    env.insert(env.end(), spec.env.begin(), spec.env.end());
    std::vector<char*> argv = Pointers(args);
    std::vector<char*> envp = Pointers(env);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int streams[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    const int fds[] = {spec.in, spec.out, spec.err};
    const std::string* files[] = {nullptr, &spec.outFile, &spec.errFile};
    for (int i = 0; i < 3; ++i) {
        if (fds[i] >= 0) {
            posix_spawn_file_actions_adddup2(&actions, fds[i], streams[i]);
        } else if (files[i] != nullptr && !files[i]->empty()) {
            posix_spawn_file_actions_addopen(&actions, streams[i], files[i]->c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                             0600);
        }
    }
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) {
        pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid_ > 0;
}

void ChildProcess::Signal(int signal)
{
    if (pid_ <= 0) {
        return;
    }
    kill(pid_, signal);
    if (signal == SIGSTOP) {
        int status = 0;
        waitpid(pid_, &status, WUNTRACED);
    }
}

void ChildProcess::Kill()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        Wait();
    }
}

int ChildProcess::Wait(int* status)
{
    int raw = 0;
    pid_t result = pid_ > 0 ? waitpid(pid_, &raw, 0) : -1;
    pid_ = -1;
    if (status != nullptr) {
        *status = raw;
    }
    return result > 0 && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

bool ChildProcess::Exited() const
{
    siginfo_t info{};
    return pid_ > 0 && waitid(P_PID, pid_, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid_;
}

RunResult Run(const std::vector<std::string>& args)
{
    RunResult result;
    TempDir files;
    ChildSpec spec(args);
    spec.outFile = files.Path() + "/out";
    spec.errFile = files.Path() + "/err";
    ChildProcess child;
    if (child.Start(spec)) {
        result.exitCode = child.Wait();
        result.out = ReadFile(spec.outFile);
        result.err = ReadFile(spec.errFile);
    }
    return result;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

TempDir::TempDir()
{
    char pattern[] = "/tmp/tavik-test-XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made == nullptr ? std::string() : std::string(made);
}

TempDir::~TempDir()
{
    if (!path_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
}

ScopedRuntimeDir::ScopedRuntimeDir()
{
    setenv("TAVIK_RUNTIME_DIR", Path().c_str(), 1);
}

ScopedRuntimeDir::~ScopedRuntimeDir()
{
    unsetenv("TAVIK_RUNTIME_DIR");
}

}  // namespace Test
}  // namespace Tavik
