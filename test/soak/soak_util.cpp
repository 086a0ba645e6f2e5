#include "soak_util.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace DeviceDetectSoak {
namespace {

using Tavik::Test::ReadFile;

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
    Tavik::Test::ChildSpec spec(
        {"/proc/self/exe", CLIENT_ROLE_FLAG, std::to_string(id), std::to_string(threads), std::to_string(calls)});
    spec.in = in[0];
    spec.outFile = files_ + ".out";
    spec.errFile = files_ + ".err";
    process_.Start(spec);
    close(in[0]);
    input_ = in[1];
}

ClientProcess::~ClientProcess()
{
    process_.Kill();
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
    if (!Started()) {
        return "not started";
    }
    close(input_);
    input_ = -1;
    if (!Tavik::Test::WaitUntil([this] { return Done(); }, std::chrono::seconds(60))) {
        process_.Signal(SIGKILL);
    }
    int status = 0;
    process_.Wait(&status);
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

}  // namespace DeviceDetectSoak
