// devicedetectd in its own process for the tests that talk to it from
// outside: integration and soak.
#ifndef TAVIK_TEST_DAEMON_FIXTURE_H
#define TAVIK_TEST_DAEMON_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "control_client.h"

namespace Tavik {
namespace Test {

// devicedetectd in the background, with the given runtime directory.
class Daemon {
public:
    explicit Daemon(std::string runtimeDir) : runtimeDir_(std::move(runtimeDir)) {}
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Starts it and waits for its ready line; false (with the output in
    // Output()) when it exits or prints nothing within the limit.
    bool Start(const std::vector<std::string>& extraArgs = {});
    // Sends the signal and waits; the exit code, or -1 for a death by signal.
    int Stop(int signal);
    // Standard output and error, interleaved, of the last start.
    std::string Output() const { return ReadFile(output_); }
    pid_t Pid() const { return process_.Pid(); }

private:
    std::string runtimeDir_;
    std::string output_;
    ChildProcess process_;
};

// A devicedetectd of its own for each test, in a private runtime directory
// that this process (and the processes it starts) use.
class DaemonTest : public ::testing::Test {
protected:
    // Arguments after --runtime-dir; files it needs go to RuntimeDir().
    virtual std::vector<std::string> DaemonArgs() { return {}; }
    void SetUp() override;
    void TearDown() override;
    const std::string& RuntimeDir() const { return runtimeDir_.Path(); }
    Syntavo::Sim::ControlClient Control();
    // SIGTERM ends it with 0, and nothing it logged is a warning, an error or
    // a sanitizer's report (LeakSanitizer runs at exit).
    void ExpectCleanStop();

    ScopedRuntimeDir runtimeDir_;
    std::unique_ptr<Daemon> daemon_;
};

}  // namespace Test
}  // namespace Tavik

#endif  // TAVIK_TEST_DAEMON_FIXTURE_H
