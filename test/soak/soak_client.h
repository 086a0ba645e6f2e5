// The client role of the soak tests: a copy of the test binary that calls
// devicedetectd through DeviceDetectProxy from several threads.
//
//   soak_tests --soak-client ID THREADS CALLS
//
// Each thread makes CALLS calls (0: until standard input closes), cycling
// through a mix of the requests an application makes, and checks every
// answer against the built-in world. Standard output carries one '.' per
// PROGRESS_CALLS calls of a thread, then, once every thread is done, one
// summary line (FormatSummary); the process then waits for standard input to
// close, so that the service sees no client go while it still sends events,
// and exits with 0 when no call failed. Failures are described on standard
// error (the first few).
#ifndef DD_TEST_SOAK_SOAK_CLIENT_H
#define DD_TEST_SOAK_SOAK_CLIENT_H

#include <cstdint>
#include <string>

namespace DeviceDetectSoak {

constexpr const char* CLIENT_ROLE_FLAG = "--soak-client";
constexpr uint64_t PROGRESS_CALLS = 10;

struct ClientSummary {
    uint64_t calls = 0;
    uint64_t failures = 0;
    // Callbacks that arrived, by kind.
    uint64_t deviceEvents = 0;
    uint64_t serviceEvents = 0;
    uint64_t dialogReplies = 0;
    uint64_t publishEvents = 0;
};

std::string FormatSummary(const ClientSummary& summary);
// Finds the summary line in a client's output; false when there is none.
bool ParseSummary(const std::string& output, ClientSummary& summary);

// Runs the role; returns the process's exit code.
int RunClient(int argc, char** argv);

}  // namespace DeviceDetectSoak

#endif  // DD_TEST_SOAK_SOAK_CLIENT_H
