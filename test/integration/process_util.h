// Starting and stopping the programs under test.
#ifndef DD_TEST_INTEGRATION_PROCESS_UTIL_H
#define DD_TEST_INTEGRATION_PROCESS_UTIL_H

#include <sys/types.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace DeviceDetectIntegration {

struct RunResult {
    int exitCode = -1;  // -1 when the process did not exit normally
    std::string out;
    std::string err;
};

// Runs a program to its end and collects its output.
RunResult Run(const std::vector<std::string>& args);

// Starts a program in the background with its output discarded; -1 on failure.
pid_t SpawnBackground(const std::vector<std::string>& args);

// devicedetectd in the background, with a private runtime directory.
class Daemon {
public:
    explicit Daemon(std::string runtimeDir) : runtimeDir_(std::move(runtimeDir)) {}
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Starts it and waits for its ready line; false (with the output in
    // Output()) when it exits or prints nothing within the limit. After the
    // ready line its output is read as it comes, so a daemon that logs a lot
    // never blocks on a full pipe.
    bool Start(const std::vector<std::string>& extraArgs = {});
    // Sends the signal and waits; the exit code, or -1 for a death by signal.
    int Stop(int signal);
    // Standard output and error, interleaved, as far as read.
    std::string Output() const;
    pid_t Pid() const { return pid_; }

private:
    void Drain();

    std::string runtimeDir_;
    pid_t pid_ = -1;
    int outFd_ = -1;
    mutable std::mutex outputMutex_;
    std::string output_;
    std::thread reader_;
};

// A fresh directory under /tmp, removed (with its content) by RemoveTree.
std::string MakeTempDir();
void RemoveTree(const std::string& dir);

}  // namespace DeviceDetectIntegration

#endif  // DD_TEST_INTEGRATION_PROCESS_UTIL_H
