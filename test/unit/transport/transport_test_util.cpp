#include "transport_test_util.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "ipc_status.h"
#include "transport/socket_connection.h"

extern char** environ;

namespace Tavik {
namespace TransportTest {

TestService::TestService() : sameObject_(new CallbackStub()) {}

int32_t TestService::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    switch (code) {
        case ECHO:
            reply.WriteInt32(data.ReadInt32());
            reply.WriteInt32(static_cast<int32_t>(getpid()));
            return IPC_OK;
        case CALL_BACK: {
            sptr<IRemoteObject> callback = data.ReadRemoteObject();
            if (callback == nullptr) {
                return IPC_ERR_INVALID_DATA;
            }
            MessageParcel answer;
            reply.WriteInt32(Call(callback, ECHO, data.ReadInt32(), answer));
            reply.WriteInt32(answer.ReadInt32());
            return IPC_OK;
        }
        case HOLD: {
            sptr<IRemoteObject> object = data.ReadRemoteObject();
            if (object == nullptr) {
                return IPC_ERR_INVALID_DATA;
            }
            std::lock_guard<std::mutex> lock(mutex_);
            held_.push_back(object);
            reply.WriteInt32(static_cast<int32_t>(held_.size()));
            return IPC_OK;
        }
        case DROP: {
            std::vector<sptr<IRemoteObject>> dropped;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                dropped.swap(held_);
            }
            return IPC_OK;
        }
        case EXPORT_COUNT:
            reply.WriteInt32(static_cast<int32_t>(Transport::GetTransportStats().exportedObjects));
            return IPC_OK;
        case GET_OBJECT:
            reply.WriteRemoteObject(sameObject_);
            return IPC_OK;
        case BLOCK:
            for (;;) {
                std::this_thread::sleep_for(std::chrono::seconds(60));
            }
        case RECORD: {
            std::lock_guard<std::mutex> lock(mutex_);
            recorded_.push_back(data.ReadInt32());
            recordedChanged_.notify_all();
            return IPC_OK;
        }
        case GET_RECORDED: {
            size_t expected = static_cast<size_t>(data.ReadInt32());
            std::unique_lock<std::mutex> lock(mutex_);
            recordedChanged_.wait_for(lock, std::chrono::seconds(2), [&] { return recorded_.size() >= expected; });
            reply.WriteInt32Vector(recorded_);
            return IPC_OK;
        }
        default:
            return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
}

int32_t CallbackStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code != ECHO) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    lastThread_ = std::this_thread::get_id();
    ++calls_;
    int32_t value = data.ReadInt32();
    int32_t answer = value * 10;
    int32_t status = server_ == nullptr ? IPC_OK : Echo(server_, value + 1, &answer);
    reply.WriteInt32(answer);
    return status;
}

ScopedRuntimeDir::ScopedRuntimeDir()
{
    char pattern[] = "/tmp/tavik-test-XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made == nullptr ? std::string() : std::string(made);
    setenv("TAVIK_RUNTIME_DIR", path_.c_str(), 1);
}

ScopedRuntimeDir::~ScopedRuntimeDir()
{
    unsetenv("TAVIK_RUNTIME_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

bool HelperProcess::Start(const std::string& role, int32_t systemAbilityId)
{
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        return false;
    }
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        env.emplace_back(*entry);
    }
    env.push_back("TAVIK_TRANSPORT_TEST_HELPER=" + role);
    env.push_back("TAVIK_TRANSPORT_TEST_SA=" + std::to_string(systemAbilityId));
    std::vector<char*> envp;
    for (auto& entry : env) {
        envp.push_back(&entry[0]);
    }
    envp.push_back(nullptr);
    char exe[] = "/proc/self/exe";
    char* argv[] = {exe, nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
    int error = posix_spawn(&pid_, exe, &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(ready[1]);
    if (error != 0) {
        pid_ = -1;
        close(ready[0]);
        return false;
    }
    // Sanitised binaries start slowly; the limit only guards against a
    // helper that never comes up.
    pollfd pfd{ready[0], POLLIN, 0};
    char byte = 0;
    bool ok = poll(&pfd, 1, 30000) == 1 && read(ready[0], &byte, 1) == 1 && byte == 'R';
    close(ready[0]);
    return ok;
}

void HelperProcess::Signal(int signal)
{
    if (pid_ <= 0) {
        return;
    }
    kill(pid_, signal);
    if (signal == SIGSTOP) {
        // kill() returns before the helper has actually stopped; a request
        // sent in between would still be answered.
        int status = 0;
        waitpid(pid_, &status, WUNTRACED);
    }
}

void HelperProcess::Kill()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

int HelperProcess::Wait()
{
    int status = 0;
    pid_t result = pid_ > 0 ? waitpid(pid_, &status, 0) : -1;
    pid_ = -1;
    return result > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int32_t NextSystemAbilityId()
{
    static std::atomic<int32_t> next{4000};
    return next++;
}

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

MessageOption SyncOption(int waitSeconds)
{
    return MessageOption(MessageOption::TF_SYNC, waitSeconds);
}

int32_t Call(const sptr<IRemoteObject>& remote, uint32_t code, int32_t value, MessageParcel& reply, int waitSeconds,
             const sptr<IRemoteObject>& object)
{
    MessageParcel data;
    MessageOption option = SyncOption(waitSeconds);
    if (object != nullptr) {
        data.WriteRemoteObject(object);
    }
    data.WriteInt32(value);
    return remote->SendRequest(code, data, reply, option);
}

int32_t Echo(const sptr<IRemoteObject>& remote, int32_t value, int32_t* answer, int32_t* pid, int waitSeconds)
{
    MessageParcel reply;
    int32_t status = Call(remote, ECHO, value, reply, waitSeconds);
    int32_t echoed = reply.ReadInt32();
    if (answer != nullptr) {
        *answer = echoed;
    }
    if (pid != nullptr) {
        *pid = reply.ReadInt32();
    }
    return status;
}

int RawConnect(const std::string& path)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool RawSend(int fd, const void* data, size_t size)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        ssize_t written = send(fd, bytes, size, MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

namespace {

// recv() once data or the end comes before the deadline; -2 when it does not.
ssize_t RecvBefore(int fd, void* out, size_t size, std::chrono::steady_clock::time_point deadline)
{
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd pfd{fd, POLLIN, 0};
        if (left.count() <= 0) {
            return -2;
        }
        if (poll(&pfd, 1, static_cast<int>(left.count())) > 0) {
            return recv(fd, out, size, 0);
        }
    }
}

bool ReadExactly(int fd, void* out, size_t size, std::chrono::steady_clock::time_point deadline)
{
    auto* bytes = static_cast<uint8_t*>(out);
    while (size > 0) {
        ssize_t count = RecvBefore(fd, bytes, size, deadline);
        if (count <= 0) {
            return false;
        }
        bytes += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace

bool WaitForClose(int fd, std::chrono::milliseconds limit)
{
    auto deadline = std::chrono::steady_clock::now() + limit;
    uint8_t buffer[4096];
    for (;;) {
        ssize_t count = RecvBefore(fd, buffer, sizeof(buffer), deadline);
        if (count == 0 || (count == -1 && errno == ECONNRESET)) {
            return true;
        }
        if (count == -2) {
            return false;
        }
    }
}

bool ReadFrame(int fd, Transport::FrameHeader& header, std::vector<uint8_t>& body, std::chrono::milliseconds limit)
{
    auto deadline = std::chrono::steady_clock::now() + limit;
    if (!ReadExactly(fd, &header, sizeof(header), deadline) || header.length > Transport::MAX_FRAME_LENGTH) {
        return false;
    }
    body.resize(header.length);
    return header.length == 0 || ReadExactly(fd, body.data(), body.size(), deadline);
}

}  // namespace TransportTest
}  // namespace Tavik
