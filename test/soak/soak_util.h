// Helpers of the soak tests: client processes with their output read as it
// comes, a process's resident memory, counts from the environment.
#ifndef DD_TEST_SOAK_SOAK_UTIL_H
#define DD_TEST_SOAK_SOAK_UTIL_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "soak_client.h"

namespace DeviceDetectSoak {

// A copy of this test binary in the client role (soak_client.h). Its
// standard output and error are read by two threads; its standard input is
// a pipe that CloseInput() closes, which lets the client exit.
class ClientProcess {
public:
    ClientProcess() = default;
    ~ClientProcess();
    ClientProcess(const ClientProcess&) = delete;
    ClientProcess& operator=(const ClientProcess&) = delete;

    // calls 0: until CloseInput().
    bool Start(int id, int threads, uint64_t calls);
    // Calls reported so far (in steps of PROGRESS_CALLS per thread).
    uint64_t Progress() const { return progress_.load() * PROGRESS_CALLS; }
    // True once the summary line has arrived; waits at most `seconds`.
    bool WaitForSummary(int seconds);
    void CloseInput();
    // Closes the input and waits; the exit code, or -1 for a death by signal.
    int Wait();
    std::string Out() const;
    std::string Err() const;
    pid_t Pid() const { return pid_; }

private:
    void Read(int fd, bool isOut);

    pid_t pid_ = -1;
    int input_ = -1;
    std::atomic<uint64_t> progress_{0};
    mutable std::mutex mutex_;
    std::string out_;
    std::string err_;
    std::thread outReader_;
    std::thread errReader_;
};

// VmRSS of /proc/<pid>/status in kB; 0 when it cannot be read.
uint64_t ResidentKb(pid_t pid);

// The positive integer in the environment variable, else `fallback`.
uint64_t EnvCount(const char* name, uint64_t fallback);

}  // namespace DeviceDetectSoak

#endif  // DD_TEST_SOAK_SOAK_UTIL_H
