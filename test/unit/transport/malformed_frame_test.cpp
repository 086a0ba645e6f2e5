// A hand-made server against a client of this process: a bad reply ends the
// connection that carried it, and nothing else. (Frames sent to a server are
// the frame vectors.)
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <thread>

#include "../platform_vectors/vector_spec.h"
#include "ipc_status.h"
#include "socket_transport.h"
#include "transport/frame.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

using Transport::FrameHeader;
using Transport::FrameKind;

// A reply to `callId` carrying `body` (object entries only when `objects`).
std::vector<uint8_t> Reply(uint64_t callId, int32_t status, const std::string& body = "", uint16_t objects = 0)
{
    FrameHeader header = Transport::MakeHeader(FrameKind::REPLY);
    std::vector<uint8_t> bodyBytes = DdTest::ParseSpec(body);
    header.callId = callId;
    header.code = static_cast<uint32_t>(status);
    header.length = static_cast<uint32_t>(bodyBytes.size());
    header.objectCount = objects;
    std::vector<uint8_t> bytes(sizeof(header));
    std::memcpy(bytes.data(), &header, sizeof(header));
    bytes.insert(bytes.end(), bodyBytes.begin(), bodyBytes.end());
    return bytes;
}

// A listening socket at the ability's path, played by the test.
class RawServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string path = GetSystemAbilitySocketPath(id_);
        listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(listenFd_, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ASSERT_EQ(listen(listenFd_, 4), 0);
        remote_ = ConnectSystemAbility(id_);
        ASSERT_NE(remote_, nullptr);
        pollfd pfd{listenFd_, POLLIN, 0};
        ASSERT_EQ(poll(&pfd, 1, 5000), 1) << "the client reused a connection instead of connecting";
        peerFd_ = accept(listenFd_, nullptr, nullptr);
        ASSERT_GE(peerFd_, 0);
        death_ = new DeathCounter();
        ASSERT_TRUE(remote_->AddDeathRecipient(death_));
    }
    void TearDown() override
    {
        close(peerFd_);
        close(listenFd_);
        unlink(GetSystemAbilitySocketPath(id_).c_str());
    }

    ScopedRuntimeDir dir_;
    const int32_t id_ = NextSystemAbilityId();
    int listenFd_ = -1;
    int peerFd_ = -1;
    sptr<IRemoteObject> remote_;
    sptr<DeathCounter> death_;
};

TEST_F(RawServerTest, OnlyAWellFormedReplyCompletesTheCallAndABadOneEndsTheConnection)
{
    struct Case {
        const char* name;
        // What the server sends in answer to the client's ECHO request.
        std::function<std::vector<uint8_t>(const FrameHeader&)> answer;
        int32_t status;
    };
    const Case cases[] = {
        {"reply to another call id", [](const FrameHeader& request) { return Reply(request.callId + 100, 0); },
         IPC_ERR_DEAD_OBJECT},
        {"reply returning an object the client never exported",
         [](const FrameHeader& request) { return Reply(request.callId, 0, "05000000 01 000000", 1); },
         IPC_ERR_DEAD_OBJECT},
        {"transaction to an object the client never exported",
         [](const FrameHeader&) {
             return DdTest::ParseSpec(
                 "04000000 5456 01 01 0100000000000000 04000000 01000000 00000000 0000 0000 00000000");
         },
         IPC_ERR_DEAD_OBJECT},
        // Last: the connection it leaves open would be reused by a next case.
        {"well-formed reply", [](const FrameHeader& request) { return Reply(request.callId, 1234); }, 1234},
    };
    bool first = true;
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        if (!first) {
            // The previous case ended its connection, so this one is new.
            TearDown();
            SetUp();
        }
        first = false;
        int32_t status = IPC_OK;
        std::thread caller([&] { status = Echo(remote_, 1, nullptr, nullptr, 5); });
        FrameHeader request{};
        std::vector<uint8_t> body;
        bool got = ReadFrame(peerFd_, request, body);
        EXPECT_TRUE(got);
        if (got) {
            std::vector<uint8_t> bytes = testCase.answer(request);
            EXPECT_TRUE(RawSend(peerFd_, bytes.data(), bytes.size()));
        }
        caller.join();
        EXPECT_EQ(status, testCase.status);
        if (testCase.status != IPC_ERR_DEAD_OBJECT) {
            EXPECT_FALSE(remote_->IsObjectDead());
            continue;
        }
        ASSERT_TRUE(remote_->IsObjectDead());
        EXPECT_TRUE(WaitUntil([&] { return death_->Count() == 1; }));
        EXPECT_TRUE(WaitForClose(peerFd_));
    }
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
