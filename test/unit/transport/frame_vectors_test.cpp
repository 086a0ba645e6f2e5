// Hand-written byte streams sent to a server connection of this process, one
// connection per case, with what the server must answer.
//
// A stream is written as in the parcel vectors (hex pieces on the wire
// order), with three extras: `Z<n>` is n zero bytes, `EOF` hangs up our
// sending side there, `WAIT` waits for the server's next frame before sending
// on (so that an object it exports in a reply exists). Headers are written field by field:
//
//   length   magic ver kind callId           target   code     flags    objs res
//   04000000 5456  01  01   0100000000000000 00000000 01000000 00000000 0000 0000
//
// kinds: 01 transaction, 02 reply, 03 release. Object entries: id(4) owner(1)
// reserved(3), owner 00 = the sender's object, 01 = the receiver's.
//
// The expected outcome lists the frames the server sends back, in any order
// (`reply <callId> <status> <data prefix>`, `release <id> <count>`), and ends
// with `closed` when the stream must cost the peer its connection, or `open`
// when the connection must go on serving (checked with one more call). After
// every case the server process holds no connection, export or import of it.
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <sstream>

#include "../platform_vectors/vector_spec.h"
#include "ipc_status.h"
#include "socket_transport.h"
#include "tralog.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

using Transport::FrameHeader;
using Transport::GetTransportStats;

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

const FrameVector FRAME_VECTORS[] = {
    // --- well-formed ---
    {"echo", ECHO_1, "reply 1 0 07000000; open"},
    {"echo without data reads 0", "00000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000",
     "reply 1 0 00000000; open"},
    {"two frames in one write", ECHO_1 ECHO_2, "reply 1 0 07000000; reply 2 0 08000000; open"},
    {"one-way record gets no reply",
     "04000000 5456 01 01 0000000000000000 00000000 08000000 01000000 0000 0000 05000000 " ECHO_2,
     "reply 2 0 08000000; open"},
    {"data of 1 MiB exactly",
     "00001000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000 Z1048572",
     "reply 1 0 07000000; open"},
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
    {"bad magic", "04000000 5457 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed"},
    {"version 2", "04000000 5456 02 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed"},
    {"kind 0", "04000000 5456 01 00 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed"},
    {"kind 4", "04000000 5456 01 04 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed"},
    {"kind 255", "04000000 5456 01 ff 0100000000000000 00000000 01000000 00000000 0000 0000 07000000", "closed"},
    {"header reserved not zero", "04000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0100 07000000",
     "closed"},
    {"data of 1 MiB and one byte (header only)",
     "01001000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000", "closed"},
    {"data of 1 MiB and 4 bytes (header only)",
     "04001000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000", "closed"},
    {"length 0xffffffff", "ffffffff 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000", "closed"},
    {"data of 5 bytes: not 4-aligned",
     "05000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 07000000 00", "closed"},
    {"data of 2 bytes: not 4-aligned", "02000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0000 0000 0700",
     "closed"},
    {"length shorter than its object entry",
     "04000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000", "closed"},
    {"65 objects", "08020000 5456 01 01 0100000000000000 00000000 01000000 00000000 4100 0000", "closed"},
    {"sync call without call id", "04000000 5456 01 01 0000000000000000 00000000 01000000 00000000 0000 0000 07000000",
     "closed"},
    {"one-way call with a call id",
     "04000000 5456 01 01 0100000000000000 00000000 08000000 01000000 0000 0000 07000000", "closed"},
    {"unknown flag bit", "04000000 5456 01 01 0100000000000000 00000000 01000000 10000000 0000 0000 07000000",
     "closed"},

    // --- object entries and ids ---
    {"object entry reserved not zero",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 05000000 00 000100", "closed"},
    {"object owner 2",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 05000000 02 000000", "closed"},
    {"call to an object id never exported",
     "04000000 5456 01 01 0100000000000000 09000000 01000000 00000000 0000 0000 07000000", "closed"},
    {"receiver's object id never exported",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 07000000 01 000000", "closed"},
    {"receiver's object 0: the server's own root",
     "0c000000 5456 01 01 0100000000000000 00000000 01000000 00000000 0100 0000 07000000 00000000 01 000000",
     "reply 1 0 07000000; open"},

    // --- replies and releases ---
    {"reply to no pending call", "04000000 5456 01 02 6300000000000000 00000000 00000000 00000000 0000 0000 07000000",
     "closed"},
    {"reply with call id 0", "00000000 5456 01 02 0000000000000000 00000000 00000000 00000000 0000 0000", "closed"},
    {"reply with a target", "00000000 5456 01 02 0100000000000000 01000000 00000000 00000000 0000 0000", "closed"},
    {"release of the root", "00000000 5456 01 03 0000000000000000 00000000 01000000 00000000 0000 0000", "closed"},
    {"release of no reference",
     GET_OBJECT_1 "00000000 5456 01 03 0000000000000000 01000000 00000000 00000000 0000 0000", "reply 1 0; closed"},
    {"release with a body",
     GET_OBJECT_1 "04000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000 00000000",
     "reply 1 0; closed"},
    {"release of an id never exported", "00000000 5456 01 03 0000000000000000 03000000 01000000 00000000 0000 0000",
     "closed"},
    {"release of more references than sent",
     GET_OBJECT_1 "00000000 5456 01 03 0000000000000000 01000000 02000000 00000000 0000 0000", "reply 1 0; closed"},
    {"release of an id twice",
     GET_OBJECT_1 "00000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000 "
                  "00000000 5456 01 03 0000000000000000 01000000 01000000 00000000 0000 0000",
     "reply 1 0; closed"},
};

#undef ECHO_1
#undef ECHO_2
#undef GET_OBJECT_1

struct Piece {
    enum Kind { BYTES, HANG_UP, WAIT } kind;
    std::vector<uint8_t> bytes;
};

struct Stream {
    std::vector<Piece> pieces;
};

Stream ParseStream(const std::string& spec)
{
    Stream stream;
    std::vector<uint8_t> current;
    std::istringstream words(spec);
    std::string word;
    std::string plain;
    auto flushPlain = [&] {
        std::vector<uint8_t> bytes = DdTest::ParseSpec(plain);
        current.insert(current.end(), bytes.begin(), bytes.end());
        plain.clear();
    };
    while (words >> word) {
        if (word == "EOF" || word == "WAIT") {
            flushPlain();
            stream.pieces.push_back({Piece::BYTES, current});
            stream.pieces.push_back({word == "EOF" ? Piece::HANG_UP : Piece::WAIT, {}});
            current.clear();
        } else if (word[0] == 'Z') {
            flushPlain();
            current.resize(current.size() + std::stoul(word.substr(1)), 0);
        } else {
            plain += word + " ";
        }
    }
    flushPlain();
    if (!current.empty()) {
        stream.pieces.push_back({Piece::BYTES, current});
    }
    return stream;
}

struct ExpectedFrame {
    uint8_t kind;
    uint64_t callId;  // reply
    uint32_t target;  // release
    int64_t value;    // reply: status; release: count
    std::vector<uint8_t> dataPrefix;
};

struct Outcome {
    std::vector<ExpectedFrame> frames;
    bool closed = false;
};

Outcome ParseOutcome(const std::string& spec)
{
    Outcome outcome;
    std::istringstream items(spec);
    std::string item;
    while (std::getline(items, item, ';')) {
        std::istringstream words(item);
        std::string what;
        words >> what;
        if (what == "closed") {
            outcome.closed = true;
        } else if (what == "open") {
            outcome.closed = false;
        } else if (what == "reply") {
            ExpectedFrame frame{static_cast<uint8_t>(Transport::FrameKind::REPLY), 0, 0, 0, {}};
            words >> frame.callId >> frame.value;
            std::string rest;
            std::getline(words, rest);
            frame.dataPrefix = DdTest::ParseSpec(rest);
            outcome.frames.push_back(frame);
        } else if (what == "release") {
            ExpectedFrame frame{static_cast<uint8_t>(Transport::FrameKind::RELEASE), 0, 0, 0, {}};
            words >> frame.target >> frame.value;
            outcome.frames.push_back(frame);
        } else {
            throw std::invalid_argument("unknown outcome '" + what + "'");
        }
    }
    return outcome;
}

bool Matches(const ExpectedFrame& expected, const FrameHeader& header, const std::vector<uint8_t>& body)
{
    if (header.kind != expected.kind) {
        return false;
    }
    if (expected.kind == static_cast<uint8_t>(Transport::FrameKind::RELEASE)) {
        return header.target == expected.target && header.code == expected.value;
    }
    size_t dataSize = body.size() - static_cast<size_t>(header.objectCount) * sizeof(Transport::ObjectEntry);
    return header.callId == expected.callId && static_cast<int32_t>(header.code) == expected.value &&
           dataSize >= expected.dataPrefix.size() &&
           std::equal(expected.dataPrefix.begin(), expected.dataPrefix.end(), body.begin());
}

std::string Describe(const FrameHeader& header)
{
    std::ostringstream text;
    text << "kind " << int(header.kind) << " call " << header.callId << " target " << header.target << " code "
         << static_cast<int32_t>(header.code) << " length " << header.length;
    return text.str();
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
    Stream stream = ParseStream(vector.stream);
    Outcome outcome = ParseOutcome(vector.outcome);
    size_t baseline = GetTransportStats().connections;

    LogCapture log;
    int fd = RawConnect(GetSystemAbilitySocketPath(id_));
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(WaitUntil([&] { return GetTransportStats().connections == baseline + 1; }));
    std::vector<ExpectedFrame> missing = outcome.frames;
    auto takeFrame = [&] {
        FrameHeader header{};
        std::vector<uint8_t> body;
        if (!ReadFrame(fd, header, body)) {
            return false;
        }
        auto found = std::find_if(missing.begin(), missing.end(),
                                  [&](const ExpectedFrame& expected) { return Matches(expected, header, body); });
        if (found == missing.end()) {
            ADD_FAILURE() << "unexpected frame: " << Describe(header);
        } else {
            missing.erase(found);
        }
        return true;
    };
    for (const Piece& piece : stream.pieces) {
        if (piece.kind == Piece::HANG_UP) {
            shutdown(fd, SHUT_WR);
        } else if (piece.kind == Piece::WAIT) {
            ASSERT_TRUE(takeFrame()) << "no frame came before WAIT";
        } else if (!RawSend(fd, piece.bytes.data(), piece.bytes.size())) {
            break;  // the server may close before taking all of a bad frame
        }
    }
    while (!missing.empty() && takeFrame()) {
    }
    EXPECT_TRUE(missing.empty()) << missing.size() << " expected frame(s) did not come";

    if (outcome.closed) {
        EXPECT_TRUE(WaitForClose(fd));
        // A bad frame is reported once; a peer that hangs up mid-frame has
        // merely gone.
        bool hungUp = std::any_of(stream.pieces.begin(), stream.pieces.end(),
                                  [](const Piece& piece) { return piece.kind == Piece::HANG_UP; });
        EXPECT_EQ(log.Count("malformed frame"), hungUp ? 0u : 1u);
    } else {
        // One more call (call id 99) shows the connection still serves.
        std::vector<uint8_t> echo =
            DdTest::ParseSpec("04000000 5456 01 01 6300000000000000 00000000 01000000 00000000 0000 0000 2a000000");
        ASSERT_TRUE(RawSend(fd, echo.data(), echo.size()));
        FrameHeader header{};
        std::vector<uint8_t> body;
        ASSERT_TRUE(ReadFrame(fd, header, body));
        ExpectedFrame expected{static_cast<uint8_t>(Transport::FrameKind::REPLY), 99, 0, 0, {0x2a, 0, 0, 0}};
        EXPECT_TRUE(Matches(expected, header, body)) << Describe(header);
        EXPECT_EQ(log.Count("malformed frame"), 0u);
    }
    close(fd);
    EXPECT_TRUE(WaitUntil([&] {
        Transport::TransportStats stats = GetTransportStats();
        return stats.connections == baseline && stats.exportedObjects == 0 && stats.importedObjects == 0;
    })) << "connections "
        << GetTransportStats().connections << " (baseline " << baseline << "), exported "
        << GetTransportStats().exportedObjects << ", imported " << GetTransportStats().importedObjects;
}

std::string CaseName(const ::testing::TestParamInfo<FrameVector>& info)
{
    std::string name;
    for (const char* c = info.param.name; *c != '\0'; ++c) {
        name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    }
    return std::to_string(info.index) + "_" + name;
}

INSTANTIATE_TEST_SUITE_P(Frames, FrameVectorTest, ::testing::ValuesIn(FRAME_VECTORS), CaseName);

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
