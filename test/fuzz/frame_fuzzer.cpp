// frame_fuzzer: the socket transport's frame decoder, fed a hostile peer's
// byte stream through a real connection.
//
// Input: byte 0, bit 0 picks our side of the connection; the rest is what
// the peer sends before it hangs up.
//   server  we publish a DeviceChangedCallbackStub as the root object, so
//           the peer's transactions reach a real stub's decoders;
//   client  we have one call pending (call id 1, carrying one object of
//           ours, export id 1), so the peer's replies, releases and calls
//           back into that object are decoded too.
//
// Whatever the stream, the connection must close once the peer hangs up,
// every task it started must finish and let it go (no reference cycle keeps
// it alive), the IPC runtime must forget it, and a pending call must end
// with a reply no larger than the stream or a transport error.
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include "device_changed_callback_stub.h"
#include "fuzz_common.h"
#include "ipc_status.h"
#include "message_option.h"
#include "message_parcel.h"
#include "transport/socket_connection.h"

namespace {

using namespace Tavik;
using namespace Tavik::Transport;

constexpr uint8_t CLIENT_SIDE = 0x01;
// Far beyond what a stream of 50 kB needs; a connection that is still
// there after this is stuck, not slow.
constexpr auto SETTLE_LIMIT = std::chrono::milliseconds(800);
constexpr uint32_t REQUEST_CODE = 1;
constexpr int REQUEST_WAIT_SECONDS = 1;

// The peer's end: writes the stream, hangs up, and swallows whatever the
// connection sends back so that no write of the connection ever blocks.
class Peer {
public:
    explicit Peer(int fd) : fd_(fd) {}
    ~Peer() { close(fd_); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void SendAndHangUp(const uint8_t* data, size_t size)
    {
        while (size > 0) {
            ssize_t n = send(fd_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n > 0) {
                data += n;
                size -= static_cast<size_t>(n);
            } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
                Drain();
                std::this_thread::yield();
            } else {
                break;  // the connection already closed its end
            }
        }
        shutdown(fd_, SHUT_WR);
    }

    void Drain()
    {
        uint8_t sink[4096];
        while (recv(fd_, sink, sizeof(sink), MSG_DONTWAIT) > 0) {
        }
    }

private:
    int fd_;
};

template <typename Done>
bool SettleUntil(Peer& peer, Done done)
{
    auto deadline = std::chrono::steady_clock::now() + SETTLE_LIMIT;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        peer.Drain();
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    return true;
}

// The connection is closed; waits until every task and proxy let it go, and
// then lets it go here, so that it is destroyed on this thread before the
// input ends. (Waiting only until the last other owner let go, as a weak
// pointer's expiry tells, would let the leak check that follows the input
// find a connection that an IPC thread is still destroying, half freed.)
void CheckReleased(Peer& peer, std::shared_ptr<Connection> connection)
{
    FUZZ_CHECK(SettleUntil(peer, [&] { return connection->IsClosed(); }));
    FUZZ_CHECK(SettleUntil(peer, [&] { return connection.use_count() == 1; }));
    connection.reset();
    FUZZ_CHECK(GetTransportStats().connections == 0);
}

void RunServer(int fds[2], const uint8_t* stream, size_t size)
{
    static const sptr<IRemoteObject> root = new Syntavo::DeviceChangedCallbackStub();
    Peer peer(fds[1]);
    std::shared_ptr<Connection> connection = Connection::Create(fds[0], root, "fuzz-server");
    FUZZ_CHECK(connection != nullptr);
    peer.SendAndHangUp(stream, size);
    CheckReleased(peer, std::move(connection));
}

void RunClient(int fds[2], const uint8_t* stream, size_t size)
{
    static const sptr<IRemoteObject> callback = new Syntavo::DeviceChangedCallbackStub();
    Peer peer(fds[1]);
    std::shared_ptr<Connection> connection = Connection::Create(fds[0], nullptr, "fuzz-client");
    FUZZ_CHECK(connection != nullptr);

    // The stream goes out only once the call is pending, so that a reply in
    // it finds the call.
    std::thread writer([&] {
        SettleUntil(peer, [&] { return connection->PendingCallCount() > 0 || connection->IsClosed(); });
        peer.SendAndHangUp(stream, size);
    });
    MessageParcel data;
    FUZZ_CHECK(data.WriteRemoteObject(callback));
    MessageParcel reply;
    MessageOption option(MessageOption::TF_SYNC, REQUEST_WAIT_SECONDS);
    int32_t status = connection->Transact(ROOT_OBJECT_ID, REQUEST_CODE, data, reply, option);
    writer.join();

    FUZZ_CHECK(status != IPC_ERR_TIMED_OUT);
    FUZZ_CHECK(reply.GetDataSize() <= size);
    FUZZ_CHECK(reply.GetObjectCount() <= MAX_FRAME_OBJECTS);
    // The reply's proxies hold the connection; they go with the reply.
    reply.ClearObjects();
    CheckReleased(peer, std::move(connection));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    DdFuzz::QuietLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > DdFuzz::MAX_INPUT_SIZE) {
        return 0;
    }
    int fds[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
    if ((data[0] & CLIENT_SIDE) != 0) {
        DdFuzz::g_context = "client";
        RunClient(fds, data + 1, size - 1);
    } else {
        DdFuzz::g_context = "server";
        RunServer(fds, data + 1, size - 1);
    }
    return 0;
}
