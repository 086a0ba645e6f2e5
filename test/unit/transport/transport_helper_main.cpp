// The helper roles of the transport tests. The tests start this same binary
// with TAVIK_TRANSPORT_TEST_HELPER set; the role then runs from static
// initialisation, before the test framework's main, and never returns.
// Standard output is the ready pipe: the role writes 'R' once it is set up.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "ipc_status.h"
#include "socket_transport.h"
#include "transport/ipc_runtime.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

void ReportReady()
{
    char ready = 'R';
    if (write(STDOUT_FILENO, &ready, 1) != 1) {
        _exit(3);
    }
}

// Publishes a TestService and serves until killed.
[[noreturn]] void Serve(int32_t systemAbilityId)
{
    sptr<IRemoteObject> service(new TestService());
    if (PublishSystemAbility(systemAbilityId, service) != PublishStatus::OK) {
        _exit(2);
    }
    ReportReady();
    for (;;) {
        pause();
    }
}

// Connects as the unprivileged user "nobody" and tries one call. Exit 0:
// the server refused us (no proxy, or the call died); 1: the call went
// through; 2: the user could not be switched.
[[noreturn]] void ConnectAsNobody(int32_t systemAbilityId)
{
    ReportReady();
    constexpr uid_t NOBODY = 65534;
    if (setgid(NOBODY) != 0 || setuid(NOBODY) != 0) {
        _exit(2);
    }
    sptr<IRemoteObject> remote = ConnectSystemAbility(systemAbilityId);
    _exit(remote != nullptr && Echo(remote, 1, nullptr, nullptr, 2) == IPC_OK ? 1 : 0);
}

// Connects, takes the server's object and leaves one of its own with the
// server (HOLD), then waits to be killed.
[[noreturn]] void HoldAndWait(int32_t systemAbilityId)
{
    sptr<IRemoteObject> remote = ConnectSystemAbility(systemAbilityId);
    MessageParcel objectReply;
    MessageParcel holdReply;
    sptr<IRemoteObject> theirs;
    if (remote == nullptr || Call(remote, GET_OBJECT, 0, objectReply) != IPC_OK ||
        (theirs = objectReply.ReadRemoteObject()) == nullptr ||
        Call(remote, HOLD, 0, holdReply, MessageOption::TF_WAIT_TIME, new CallbackStub()) != IPC_OK) {
        _exit(2);
    }
    ReportReady();
    for (;;) {
        pause();
    }
}

// Exits while a task runs on an IPC thread. The task ends the process with
// 7; exit code 0 means exit did not wait for it.
[[noreturn]] void ExitWhileWorking()
{
    static std::atomic<bool> started{false};
    Transport::IpcRuntime::Get().Post([] {
        started = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        _exit(7);
    });
    while (!started) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ReportReady();
    std::exit(0);
}

int RunHelperRole()
{
    const char* role = std::getenv("TAVIK_TRANSPORT_TEST_HELPER");
    if (role == nullptr) {
        return 0;
    }
    const char* id = std::getenv("TAVIK_TRANSPORT_TEST_SA");
    int32_t systemAbilityId = id == nullptr ? -1 : static_cast<int32_t>(std::atoi(id));
    // A helper never outlives the test that started it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::string name(role);
    if (name == "serve") {
        Serve(systemAbilityId);
    }
    if (name == "hold-and-wait") {
        HoldAndWait(systemAbilityId);
    }
    if (name == "exit-while-working") {
        ExitWhileWorking();
    }
    if (name == "connect-as-nobody") {
        ConnectAsNobody(systemAbilityId);
    }
    _exit(4);
}

[[maybe_unused]] const int g_helperRole = RunHelperRole();

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
