// Other processes in a test: copies of the test binary in a helper role,
// the programs under test, and the waits and directories that go with them.
#ifndef TAVIK_TEST_CHILD_PROCESS_H
#define TAVIK_TEST_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Tavik {
namespace Test {

// Polls `condition` until it holds or `limit` passes. The limit only keeps a
// broken build from hanging; nothing is judged by the time taken.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = std::chrono::seconds(20));

// The positive integer in the environment variable, else `fallback`.
uint64_t EnvCount(const char* name, uint64_t fallback);

struct ChildSpec {
    // args[0] is the program's path ("/proc/self/exe": a copy of this binary);
    // env holds "NAME=value" entries added to this process's environment.
    explicit ChildSpec(std::vector<std::string> args, std::vector<std::string> env = {})
        : args(std::move(args)), env(std::move(env))
    {
    }
    std::vector<std::string> args;
    std::vector<std::string> env;
    // Descriptors of this process for the child's standard input, output and
    // error; -1 leaves the stream as it is, or, for output and error, sends
    // it to the file named below when one is.
    int in = -1;
    int out = -1;
    int err = -1;
    std::string outFile;
    std::string errFile;
};

// A started child, killed (SIGKILL) and reaped when the object goes.
class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess() { Kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool Start(const ChildSpec& spec);
    bool Started() const { return pid_ > 0; }
    pid_t Pid() const { return pid_; }
    // SIGSTOP returns once the child has stopped: kill() returns before, and
    // a request sent in between would still be answered.
    void Signal(int signal);
    void Kill();
    // Waits for the child to end; its exit code, -1 when it did not exit
    // normally (or was not running). The raw status goes to `status`.
    int Wait(int* status = nullptr);
    // Ended, but not yet reaped by Wait().
    bool Exited() const;

private:
    pid_t pid_ = -1;
};

struct RunResult {
    int exitCode = -1;  // -1 when the process did not exit normally
    std::string out;
    std::string err;
};

// Runs a program to its end and collects its output.
RunResult Run(const std::vector<std::string>& args);
std::string ReadFile(const std::string& path);

// A fresh directory under /tmp, removed with its content when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // Empty when it could not be made.
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// A TempDir set as TAVIK_RUNTIME_DIR while it lives.
class ScopedRuntimeDir : public TempDir {
public:
    ScopedRuntimeDir();
    ~ScopedRuntimeDir();
};

}  // namespace Test
}  // namespace Tavik

#endif  // TAVIK_TEST_CHILD_PROCESS_H
