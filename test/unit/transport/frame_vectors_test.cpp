// Hand-written byte streams sent to a server connection of this process, one
// connection per case, with what the server must answer (and, at the end,
// replies a hand-made server sends to a client of this process). The table pins the
// frame layout and every header, object-entry and connection-state check.
//
// A stream is written as in the parcel vectors (hex pieces in wire order),
// with extras: `Z<n>` is n zero bytes, `<hex>*<n>` is the piece n times,
// `EOF` hangs up our sending side there, `WAIT` waits for the server's next
// frame before sending on (so that an object it exports in a reply exists),
// `TRICKLE` sends the bytes after it one at a time.
// Headers are written field by field:
//
//   length   magic ver kind callId           target   code     flags    objs res
//   04000000 5456  01  01   0100000000000000 00000000 01000000 00000000 0000 0000
//
// kinds: 01 transaction, 02 reply, 03 release. Object entries: id(4) owner(1)
// reserved(3), owner 00 = the sender's object, 01 = the receiver's.
//
// The expected outcome lists the frames the server sends back, in any order
// (`reply <callId> <status> <data prefix>`, `release <id> <count>`), and ends
// with `closed <reason>` when the stream must cost the peer its connection
// with one "malformed frame" line naming the reason, `closed` when we hung
// up mid-frame (no such line), or `open` when the connection must go on
// serving (checked with one more call). After every case the server process
// holds no connection, export or import of it.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <thread>

#include "../platform_vectors/vector_spec.h"
#include "ipc_status.h"
#include "socket_transport.h"
#include "tralog.h"
#include "transport/frame.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

using Transport::FrameHeader;
using Transport::FrameKind;
using Transport::GetTransportStats;

// --- raw socket access for hand-made frames ---

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

// True when the peer closes the socket within the limit (data before the
// end is read and ignored).
bool WaitForClose(int fd, std::chrono::milliseconds limit = std::chrono::milliseconds(5000))
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

// Reads one whole frame (header and body); false on end or time-out.
bool ReadFrame(int fd, FrameHeader& header, std::vector<uint8_t>& body,
               std::chrono::milliseconds limit = std::chrono::milliseconds(5000))
{
    auto deadline = std::chrono::steady_clock::now() + limit;
    if (!ReadExactly(fd, &header, sizeof(header), deadline) || header.length > Transport::MAX_FRAME_LENGTH) {
        return false;
    }
    body.resize(header.length);
    return header.length == 0 || ReadExactly(fd, body.data(), body.size(), deadline);
}

struct FrameVector {
    const char* name;
    const char* stream;
    const char* outcome;
};

// Shorthand pieces, spelled out once here so that the table stays readable.
#define ECHO_1 "04000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000 "
#define ECHO_2 "04000000 5456 01 01 0200000000000000 00000000 01000000 00000000 0000 0000 08000000 "
// GET_OBJECT: the reply carries the server's object, exported to us as id 1.
#define GET_OBJECT_1 "00000000 5456 01 01 0100000000000000 00000000 06000000 00000000 0000 0000 WAIT "

void PrintTo(const FrameVector& vector, std::ostream* out)
{
    *out << vector.name;
}

const FrameVector FRAME_VECTORS[] = {
    // --- well-formed ---
    {"echo", ECHO_1, "reply 1 0 07000000; open"},
    {"echo without data reads 0", "00000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000",
     "reply 1 0 00000000; open"},
    {"frame trickled in byte by byte", "TRICKLE " ECHO_1, "reply 1 0 07000000; open"},
    {"two frames in one write", ECHO_1 ECHO_2, "reply 1 0 07000000; reply 2 0 08000000; open"},
    {"one-way record gets no reply",
     "04000000 5456 01 01 0000000000000000 00000000 08000000 01000000 0000 0000 05000000 " ECHO_2,
     "reply 2 0 08000000; open"},
    {"data of 1 MiB exactly",
     "00001000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000 Z1048572",
     "reply 1 0 07000000; open"},
    {"data of 1 MiB and the most objects",
     "00021000 5456 01 01 0100000000000000 00000000 01000000 00000000 4000 0000 07000000 Z1048572 0500000000000000*64",
     "reply 1 0 07000000; release 5 64; open"},
    {"unknown code fails only the call", "00000000 5456 01 01 0100000000000000 00000000 7f000000 00000000 0000 0000",
     "reply 1 -74; open"},
    {"our object comes back released",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 05000000 00 000000",
     "reply 1 0 07000000; release 5 1; open"},
    {"same object twice counts two references",
     "14000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0200 0000 07000000 "
     "05000000 00 000000 05000000 00 000000",
     "reply 1 0 07000000; release 5 2; open"},
    {"the server's own object passed back, then released",
     GET_OBJECT_1
     "0c000000 5456 01 01 0200000000000000 00000000 01000000 00000000 0100 0000 08000000 01000000 01 000000 "
     "00000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000",
     "reply 1 0; reply 2 0 08000000; open"},
    {"call to the server's exported object",
     GET_OBJECT_1 "04000000 5456 01 01 0200000000000000 01000000 01000000 00000000 0000 0000 03000000",
     "reply 1 0; reply 2 0 1e000000; open"},

    // --- cut streams ---
    {"header cut after 10 bytes", "04000000 5456 01 01 01000000 EOF", "closed"},
    {"body cut after 2 of 8 bytes",
     "08000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 0700 EOF", "closed"},
    {"served frame, then a cut one", ECHO_1 "WAIT 0800 EOF", "reply 1 0 07000000; closed"},

    // --- header fields ---
    {"bad magic", "04000000 5457 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000",
     "closed BAD_MAGIC"},
    {"version 2", "04000000 5456 02 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000",
     "closed BAD_VERSION"},
    {"kind 0", "04000000 5456 01 00 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed BAD_KIND"},
    {"kind 4", "04000000 5456 01 04 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed BAD_KIND"},
    {"header reserved not zero", "04000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0100 07000000",
     "closed RESERVED_NOT_ZERO"},
    {"data of 1 MiB and one byte (header only)",
     "01001000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000", "closed TOO_LARGE"},
    {"data of 1 MiB and 4 bytes (header only)",
     "04001000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000", "closed TOO_LARGE"},
    {"length 0xffffffff", "ffffffff 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000",
     "closed TOO_LARGE"},
    {"data of 2 bytes: not 4-aligned", "02000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 0700",
     "closed BAD_LENGTH"},
    {"length shorter than its object entry",
     "04000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000", "closed BAD_LENGTH"},
    {"65 objects", "08020000 5456 01 01 0100000000000000 00000000 01000000 00000000 4100 0000",
     "closed TOO_MANY_OBJECTS"},
    {"sync call without call id", "04000000 5456 01 01 0000000000000000 00000000 01000000 00000000 0000 0000 07000000",
     "closed BAD_FIELDS"},
    {"one-way call with a call id",
     "04000000 5456 01 01 0100000000000000 00000000 08000000 01000000 0000 0000 07000000", "closed BAD_FIELDS"},
    {"unknown flag bit", "04000000 5456 01 01 0100000000000000 00000000 01000000 10000000 0000 0000 07000000",
     "closed BAD_FIELDS"},

    // --- object entries and ids ---
    {"object entry reserved not zero",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 05000000 00 000100",
     "closed RESERVED_NOT_ZERO"},
    {"object owner 2",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 05000000 02 000000",
     "closed BAD_OBJECT_ENTRY"},
    {"call to an object id never exported",
     "04000000 5456 01 01 0100000000000000 09000000 01000000 00000000 0000 0000 07000000", "closed UNKNOWN_OBJECT"},
    {"receiver's object id never exported",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 07000000 01 000000",
     "closed UNKNOWN_OBJECT"},
    {"receiver's object 0: the server's own root",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 00000000 01 000000",
     "reply 1 0 07000000; open"},

    // --- replies and releases ---
    {"reply to no pending call", "04000000 5456 01 02 6300000000000000 00000000 00000000 00000000 0000 0000 07000000",
     "closed UNEXPECTED_REPLY"},
    {"reply with call id 0", "00000000 5456 01 02 0000000000000000 00000000 00000000 00000000 0000 0000",
     "closed BAD_FIELDS"},
    {"reply with a target", "00000000 5456 01 02 0100000000000000 01000000 00000000 00000000 0000 0000",
     "closed BAD_FIELDS"},
    {"release of the root", "00000000 5456 01 03 0000000000000000 00000000 01000000 00000000 0000 0000",
     "closed BAD_FIELDS"},
    {"release of no reference",
     GET_OBJECT_1 "00000000 5456 01 03 0000000000000000 01000000 00000000 00000000 0000 0000",
     "reply 1 0; closed BAD_FIELDS"},
    {"release with a body",
     GET_OBJECT_1 "04000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000 00000000",
     "reply 1 0; closed BAD_FIELDS"},
    {"release of an id never exported", "00000000 5456 01 03 0000000000000000 03000000 01000000 00000000 0000 0000",
     "closed UNKNOWN_OBJECT"},
    {"release of more references than sent",
     GET_OBJECT_1 "00000000 5456 01 03 0000000000000000 01000000 02000000 00000000 0000 0000",
     "reply 1 0; closed UNKNOWN_OBJECT"},
    {"release of an id twice",
     GET_OBJECT_1 "00000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000 "
                  "00000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000",
     "reply 1 0; closed UNKNOWN_OBJECT"},
};

#undef ECHO_1
#undef ECHO_2
#undef GET_OBJECT_1

// Byte runs to send, split where we hang up (EOF), wait for a frame (WAIT)
// or start sending byte by byte (TRICKLE).
struct Piece {
    enum Kind { BYTES, HANG_UP, WAIT, TRICKLE } kind;
    std::vector<uint8_t> bytes;
};

std::vector<Piece> ParseStream(const std::string& spec)
{
    std::vector<Piece> pieces{{Piece::BYTES, {}}};
    std::istringstream words(spec);
    std::string word;
    while (words >> word) {
        std::vector<uint8_t>& bytes = pieces.back().bytes;
        size_t star = word.find('*');
        if (word == "TRICKLE") {
            pieces.push_back({Piece::TRICKLE, {}});
        } else if (word == "EOF" || word == "WAIT") {
            pieces.push_back({word == "EOF" ? Piece::HANG_UP : Piece::WAIT, {}});
            pieces.push_back({Piece::BYTES, {}});
        } else if (word[0] == 'Z') {
            bytes.resize(bytes.size() + std::stoul(word.substr(1)), 0);
        } else {
            std::vector<uint8_t> piece = DdTest::ParseSpec(word.substr(0, star));
            for (size_t n = star == std::string::npos ? 1 : std::stoul(word.substr(star + 1)); n > 0; --n) {
                bytes.insert(bytes.end(), piece.begin(), piece.end());
            }
        }
    }
    return pieces;
}

// A frame the server sent, in the outcome notation with a blank after every
// word (the data in 4-byte words, at most 16 bytes of it), so that an
// expected item plus a blank matches as a prefix.
std::string Describe(const FrameHeader& header, const std::vector<uint8_t>& body)
{
    std::ostringstream text;
    if (header.kind == static_cast<uint8_t>(FrameKind::RELEASE)) {
        text << "release " << header.target << " " << header.code << " ";
        return text.str();
    }
    text << (header.kind == static_cast<uint8_t>(FrameKind::REPLY) ? "reply "
                                                                   : "kind " + std::to_string(header.kind) + " ")
         << header.callId << " " << static_cast<int32_t>(header.code) << " " << std::hex << std::setfill('0');
    for (size_t i = 0; i < std::min<size_t>(Transport::FrameDataSize(header), 16); ++i) {
        text << std::setw(2) << int(body[i]) << (i % 4 == 3 ? " " : "");
    }
    return text.str();
}

// The outcome's items: the expected frames, then `open`, `closed` or
// `closed <reason>`.
std::vector<std::string> SplitOutcome(const std::string& spec)
{
    std::vector<std::string> items;
    std::istringstream parts(spec);
    for (std::string item; std::getline(parts, item, ';');) {
        items.push_back(item.substr(item.find_first_not_of(' ')));
    }
    return items;
}

class FrameVectorTest : public ::testing::TestWithParam<FrameVector> {
protected:
    static void SetUpTestSuite()
    {
        dir_ = new ScopedRuntimeDir();
        id_ = NextSystemAbilityId();
        ASSERT_EQ(PublishSystemAbility(id_, sptr<IRemoteObject>(new TestService())), PublishStatus::OK);
    }
    static void TearDownTestSuite()
    {
        UnpublishSystemAbility(id_);
        delete dir_;
        dir_ = nullptr;
    }

    static ScopedRuntimeDir* dir_;
    static int32_t id_;
};

ScopedRuntimeDir* FrameVectorTest::dir_ = nullptr;
int32_t FrameVectorTest::id_ = 0;

TEST_P(FrameVectorTest, ServerAnswersAsExpectedAndKeepsNothing)
{
    const FrameVector& vector = GetParam();
    std::vector<std::string> missing = SplitOutcome(vector.outcome);
    const std::string end = missing.back();
    missing.pop_back();
    const bool closed = end.rfind("closed", 0) == 0;
    const std::string reason = closed && end.size() > 7 ? end.substr(7) : "";
    size_t baseline = GetTransportStats().connections;

    LogCapture log;
    int fd = RawSocket(GetSystemAbilitySocketPath(id_), false);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(WaitUntil([&] { return GetTransportStats().connections == baseline + 1; }));
    auto takeFrame = [&] {
        FrameHeader header{};
        std::vector<uint8_t> body;
        if (!ReadFrame(fd, header, body)) {
            return false;
        }
        std::string got = Describe(header, body);
        auto found = std::find_if(missing.begin(), missing.end(),
                                  [&](const std::string& expected) { return got.rfind(expected + " ", 0) == 0; });
        if (found == missing.end()) {
            ADD_FAILURE() << "unexpected frame: " << got;
        } else {
            missing.erase(found);
        }
        return true;
    };
    for (const Piece& piece : ParseStream(vector.stream)) {
        if (piece.kind == Piece::HANG_UP) {
            shutdown(fd, SHUT_WR);
        } else if (piece.kind == Piece::WAIT) {
            ASSERT_TRUE(takeFrame()) << "no frame came before WAIT";
        } else if (piece.kind == Piece::TRICKLE) {
            for (uint8_t byte : piece.bytes) {
                ASSERT_TRUE(RawSend(fd, &byte, 1));
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        } else if (!RawSend(fd, piece.bytes.data(), piece.bytes.size())) {
            break;  // the server may close before taking all of a bad frame
        }
    }
    while (!missing.empty() && takeFrame()) {
    }
    EXPECT_EQ(missing, std::vector<std::string>{}) << "expected frames that did not come";

    if (closed) {
        EXPECT_TRUE(WaitForClose(fd));
    } else {
        // One more call (call id 99) shows the connection still serves.
        std::vector<uint8_t> echo =
            DdTest::ParseSpec("04000000 5456 01 01 6300000000000000 00000000 01000000 00000000 0000 0000 2a000000");
        ASSERT_TRUE(RawSend(fd, echo.data(), echo.size()));
        FrameHeader header{};
        std::vector<uint8_t> body;
        ASSERT_TRUE(ReadFrame(fd, header, body));
        EXPECT_EQ(Describe(header, body).rfind("reply 99 0 2a000000 ", 0), 0u) << Describe(header, body);
    }
    // A bad frame is reported once, with its reason; a peer that hangs up
    // mid-frame has merely gone.
    std::vector<std::string> reasons;
    for (const std::string& message : log.Messages()) {
        if (message.find("malformed frame") != std::string::npos) {
            reasons.push_back(message.substr(message.rfind(": ") + 2));
        }
    }
    EXPECT_EQ(reasons, reason.empty() ? std::vector<std::string>() : std::vector<std::string>{reason});
    close(fd);
    EXPECT_TRUE(WaitUntil([&] {
        Transport::TransportStats stats = GetTransportStats();
        return stats.connections == baseline && stats.exportedObjects == 0 && stats.importedObjects == 0;
    })) << "connections "
        << GetTransportStats().connections << " (baseline " << baseline << "), exported "
        << GetTransportStats().exportedObjects << ", imported " << GetTransportStats().importedObjects;
}

template <typename Vector>
std::string CaseName(const ::testing::TestParamInfo<Vector>& info)
{
    std::string name;
    for (const char* c = info.param.name; *c != '\0'; ++c) {
        name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    }
    return std::to_string(info.index) + "_" + name;
}

INSTANTIATE_TEST_SUITE_P(Frames, FrameVectorTest, ::testing::ValuesIn(FRAME_VECTORS), CaseName<FrameVector>);

// The other direction: a hand-made server answers the ECHO of a client of
// this process (call id 1, the first of a fresh connection). A bad answer
// ends the connection that carried it, and nothing else.
struct ReplyVector {
    const char* name;
    const char* answer;
    int32_t status;
};

void PrintTo(const ReplyVector& vector, std::ostream* out)
{
    *out << vector.name;
}

const ReplyVector REPLY_VECTORS[] = {
    {"reply to another call id", "00000000 5456 01 02 6500000000000000 00000000 00000000 00000000 0000 0000",
     IPC_ERR_DEAD_OBJECT},
    {"reply returning an object the client never exported",
     "08000000 5456 01 02 0100000000000000 00000000 00000000 00000000 0100 0000 05000000 01 000000",
     IPC_ERR_DEAD_OBJECT},
    {"transaction to an object the client never exported",
     "04000000 5456 01 01 0100000000000000 04000000 01000000 00000000 0000 0000 00000000", IPC_ERR_DEAD_OBJECT},
    {"well-formed reply", "00000000 5456 01 02 0100000000000000 00000000 d2040000 00000000 0000 0000", 1234},
};

// A listening socket at the ability's path, played by the test.
class RawServerTest : public ::testing::TestWithParam<ReplyVector> {
protected:
    void SetUp() override
    {
        listenFd_ = RawSocket(GetSystemAbilitySocketPath(id_), true);
        ASSERT_GE(listenFd_, 0);
        remote_ = ConnectSystemAbility(id_);
        ASSERT_NE(remote_, nullptr);
        pollfd pfd{listenFd_, POLLIN, 0};
        ASSERT_EQ(poll(&pfd, 1, 5000), 1) << "the client reused a connection instead of connecting";
        peerFd_ = accept(listenFd_, nullptr, nullptr);
        ASSERT_GE(peerFd_, 0);
    }
    void TearDown() override
    {
        close(peerFd_);
        close(listenFd_);
    }

    ScopedRuntimeDir dir_;
    const int32_t id_ = NextSystemAbilityId();
    int listenFd_ = -1;
    int peerFd_ = -1;
    sptr<IRemoteObject> remote_;
};

TEST_P(RawServerTest, OnlyAWellFormedReplyCompletesTheCallAndABadOneEndsTheConnection)
{
    sptr<DeathCounter> death(new DeathCounter());
    ASSERT_TRUE(remote_->AddDeathRecipient(death));
    int32_t status = IPC_OK;
    std::thread caller([&] { status = Echo(remote_, 1, nullptr, nullptr, 5); });
    FrameHeader request{};
    std::vector<uint8_t> body;
    bool got = ReadFrame(peerFd_, request, body);
    EXPECT_TRUE(got);
    std::vector<uint8_t> answer = DdTest::ParseSpec(GetParam().answer);
    EXPECT_TRUE(got && RawSend(peerFd_, answer.data(), answer.size()));
    caller.join();
    EXPECT_EQ(status, GetParam().status);
    bool bad = GetParam().status == IPC_ERR_DEAD_OBJECT;
    EXPECT_EQ(remote_->IsObjectDead(), bad);
    if (bad) {
        EXPECT_TRUE(WaitUntil([&] { return death->Count() == 1; }));
        EXPECT_TRUE(WaitForClose(peerFd_));
    }
}

INSTANTIATE_TEST_SUITE_P(Replies, RawServerTest, ::testing::ValuesIn(REPLY_VECTORS), CaseName<ReplyVector>);

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
