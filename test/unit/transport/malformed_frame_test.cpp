// A frame trickled in byte by byte, and a hand-made server against a client
// of this process: a bad reply ends the connection that carried it, and
// nothing else. (Bad frames sent to a server are the frame vectors.)
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <thread>

#include "ipc_status.h"
#include "socket_transport.h"
#include "transport/frame.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

using Transport::FrameHeader;
using Transport::FrameKind;
using Transport::MakeHeader;
using Transport::ObjectEntry;
using Transport::ObjectOwner;

std::vector<uint8_t> Bytes(const FrameHeader& header, const std::vector<uint8_t>& body = {})
{
    std::vector<uint8_t> bytes(sizeof(header) + body.size());
    std::memcpy(bytes.data(), &header, sizeof(header));
    if (!body.empty()) {
        std::memcpy(bytes.data() + sizeof(header), body.data(), body.size());
    }
    return bytes;
}

std::vector<uint8_t> EntryBytes(uint32_t id, ObjectOwner owner)
{
    ObjectEntry entry{};
    entry.id = id;
    entry.owner = static_cast<uint8_t>(owner);
    std::vector<uint8_t> bytes(sizeof(entry));
    std::memcpy(bytes.data(), &entry, sizeof(entry));
    return bytes;
}

FrameHeader EchoTransaction(uint64_t callId)
{
    FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
    header.callId = callId;
    header.target = Transport::ROOT_OBJECT_ID;
    header.code = ECHO;
    header.length = 4;
    return header;
}

using MalformedFrameTest = PublishedServiceTest;

TEST_F(MalformedFrameTest, FrameSplitAcrossWritesIsReassembled)
{
    int fd = RawConnect(GetSystemAbilitySocketPath(id_));
    ASSERT_GE(fd, 0);
    std::vector<uint8_t> bytes = Bytes(EchoTransaction(3), {9, 0, 0, 0});
    for (uint8_t byte : bytes) {
        ASSERT_TRUE(RawSend(fd, &byte, 1));
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    FrameHeader reply{};
    std::vector<uint8_t> body;
    ASSERT_TRUE(ReadFrame(fd, reply, body));
    EXPECT_EQ(reply.callId, 3u);
    ASSERT_FALSE(body.empty());
    EXPECT_EQ(body[0], 9);
    close(fd);
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

    // Calls ECHO on the client's proxy while `answer` plays the server.
    int32_t CallAndAnswer(const std::function<std::vector<uint8_t>(const FrameHeader&)>& answer)
    {
        int32_t status = IPC_OK;
        std::thread caller([&] {
            MessageParcel data;
            MessageParcel reply;
            MessageOption option = SyncOption(5);
            data.WriteInt32(1);
            status = remote_->SendRequest(ECHO, data, reply, option);
        });
        FrameHeader request{};
        std::vector<uint8_t> body;
        bool got = ReadFrame(peerFd_, request, body);
        EXPECT_TRUE(got);
        if (got) {
            std::vector<uint8_t> bytes = answer(request);
            EXPECT_TRUE(RawSend(peerFd_, bytes.data(), bytes.size()));
        }
        caller.join();
        return status;
    }

    ScopedRuntimeDir dir_;
    const int32_t id_ = NextSystemAbilityId();
    int listenFd_ = -1;
    int peerFd_ = -1;
    sptr<IRemoteObject> remote_;
    sptr<DeathCounter> death_;
};

TEST_F(RawServerTest, WellFormedReplyCompletesTheCall)
{
    EXPECT_EQ(CallAndAnswer([](const FrameHeader& request) {
                  FrameHeader reply = MakeHeader(FrameKind::REPLY);
                  reply.callId = request.callId;
                  reply.code = 1234;
                  return Bytes(reply);
              }),
              1234);
    EXPECT_FALSE(remote_->IsObjectDead());
}

TEST_F(RawServerTest, MalformedReplyEndsTheConnection)
{
    struct Case {
        const char* name;
        std::function<std::vector<uint8_t>(const FrameHeader&)> answer;
    };
    const Case cases[] = {
        {"reply to another call id",
         [](const FrameHeader& request) {
             FrameHeader reply = MakeHeader(FrameKind::REPLY);
             reply.callId = request.callId + 100;
             return Bytes(reply);
         }},
        {"reply returning an object the client never exported",
         [](const FrameHeader& request) {
             FrameHeader reply = MakeHeader(FrameKind::REPLY);
             reply.callId = request.callId;
             reply.objectCount = 1;
             reply.length = sizeof(ObjectEntry);
             return Bytes(reply, EntryBytes(5, ObjectOwner::RECEIVER));
         }},
        {"transaction to an object the client never exported",
         [](const FrameHeader& /* request */) {
             FrameHeader transaction = EchoTransaction(1);
             transaction.target = 4;
             return Bytes(transaction, {0, 0, 0, 0});
         }},
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
        EXPECT_EQ(CallAndAnswer(testCase.answer), IPC_ERR_DEAD_OBJECT);
        ASSERT_TRUE(remote_->IsObjectDead());
        EXPECT_TRUE(WaitUntil([&] { return death_->Count() == 1; }));
        EXPECT_TRUE(WaitForClose(peerFd_));
    }
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
