#include "transport_test_util.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ipc_status.h"
#include "peer_identity.h"
#include "transport/socket_connection.h"

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
        case SLOW:
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            reply.WriteInt32(data.ReadInt32());
            return IPC_OK;
        case BIG_REPLY: {
            std::vector<uint8_t> bytes(static_cast<size_t>(std::max(data.ReadInt32(), 0)));
            return reply.WriteBuffer(bytes.data(), bytes.size()) ? IPC_OK : IPC_ERR_TOO_LARGE;
        }
        case CALLER: {
            PeerIdentity caller = GetCallingIdentity();
            reply.WriteInt32(static_cast<int32_t>(caller.pid));
            reply.WriteInt32(static_cast<int32_t>(caller.uid));
            reply.WriteInt32(caller.connectionId != 0 ? 1 : 0);
            return IPC_OK;
        }
        default:
            return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
}

int RawSocket(const std::string& path, bool listen)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (fd >= 0 && (listen ? bind(fd, raw, sizeof(address)) != 0 || ::listen(fd, 4) != 0
                           : connect(fd, raw, sizeof(address)) != 0)) {
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

bool HelperProcess::Start(const std::string& role, int32_t systemAbilityId)
{
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        return false;
    }
    Test::ChildSpec spec({"/proc/self/exe"}, {"TAVIK_TRANSPORT_TEST_HELPER=" + role,
                                              "TAVIK_TRANSPORT_TEST_SA=" + std::to_string(systemAbilityId)});
    spec.out = ready[1];
    bool started = ChildProcess::Start(spec);
    close(ready[1]);
    // Sanitised binaries start slowly; the limit only guards against a
    // helper that never comes up.
    pollfd pfd{ready[0], POLLIN, 0};
    char byte = 0;
    bool ok = started && poll(&pfd, 1, 30000) == 1 && read(ready[0], &byte, 1) == 1 && byte == 'R';
    close(ready[0]);
    return ok;
}

int32_t NextSystemAbilityId()
{
    static std::atomic<int32_t> next{4000};
    return next++;
}

int32_t Call(const sptr<IRemoteObject>& remote, uint32_t code, int32_t value, MessageParcel& reply, int waitSeconds,
             const sptr<IRemoteObject>& object)
{
    MessageParcel data;
    MessageOption option(MessageOption::TF_SYNC, waitSeconds);
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

}  // namespace TransportTest
}  // namespace Tavik
