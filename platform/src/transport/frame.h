// The socket transport's wire frame (private to the transport and its tests).
//
// A connection carries a stream of frames. Each frame is a 32-byte header
// followed by `length` bytes: the parcel data, then `objectCount` object
// entries of 8 bytes each. All fields are little-endian; docs/transport.md
// draws the header byte by byte.
//
//   offset size field
//        0    4 length       bytes after the header (data + object entries)
//        4    2 magic        'T' 'V'
//        6    1 version      1
//        7    1 kind         FrameKind
//        8    8 callId       transaction: 0 for one-way, else the caller's
//                            call id; reply: the call id it answers;
//                            release: 0
//       16    4 target       transaction: object id in the receiver's export
//                            table; release: the released id; reply: 0
//       20    4 code         transaction: request code; reply: status
//                            (int32); release: number of references
//       24    4 flags        transaction: MessageOption flags; else 0
//       28    2 objectCount  object entries after the data
//       30    2 reserved     0
//
// An object entry names one remote object of the parcel's object table:
//
//   offset size field
//        0    4 id           object id
//        4    1 owner        ObjectOwner: whose export table `id` is in
//        5    3 reserved     0
//
// Every reserved byte must be zero and every field must fit its kind; a frame
// that breaks a rule is malformed and ends the connection that carried it.
#ifndef TAVIK_PLATFORM_TRANSPORT_FRAME_H
#define TAVIK_PLATFORM_TRANSPORT_FRAME_H

#include <cstddef>
#include <cstdint>

#include "transport_limits.h"

namespace Tavik {
namespace Transport {

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the frame structs are copied as they are and assume a little-endian host"
#endif

constexpr uint8_t FRAME_MAGIC_0 = 'T';
constexpr uint8_t FRAME_MAGIC_1 = 'V';
constexpr uint8_t FRAME_VERSION = 1;

// Object id 0 names the published object of a server connection. It is
// never counted and never released: it lives as long as the connection.
constexpr uint32_t ROOT_OBJECT_ID = 0;

enum class FrameKind : uint8_t {
    TRANSACTION = 1,
    REPLY = 2,
    RELEASE = 3,
};

enum class ObjectOwner : uint8_t {
    // The object lives in the sender; the receiver gets a proxy for it.
    SENDER = 0,
    // The object lives in the receiver (the sender passes back a proxy it
    // got from the receiver); the receiver gets its own object back.
    RECEIVER = 1,
};

#pragma pack(push, 1)
struct FrameHeader {
    uint32_t length;
    uint8_t magic[2];
    uint8_t version;
    uint8_t kind;
    uint64_t callId;
    uint32_t target;
    uint32_t code;
    uint32_t flags;
    uint16_t objectCount;
    uint16_t reserved;
};

struct ObjectEntry {
    uint32_t id;
    uint8_t owner;
    uint8_t reserved[3];
};
#pragma pack(pop)

static_assert(sizeof(FrameHeader) == 32, "the frame header is 32 bytes on the wire");
static_assert(sizeof(ObjectEntry) == 8, "an object entry is 8 bytes on the wire");

constexpr size_t MAX_FRAME_LENGTH = MAX_FRAME_DATA + MAX_FRAME_OBJECTS * sizeof(ObjectEntry);

enum class FrameError {
    NONE,
    BAD_MAGIC,
    BAD_VERSION,
    BAD_KIND,
    RESERVED_NOT_ZERO,
    TOO_MANY_OBJECTS,
    // length shorter than the object entries, or data not a multiple of 4.
    BAD_LENGTH,
    // data above MAX_FRAME_DATA.
    TOO_LARGE,
    // a field that does not fit the frame's kind (a reply with a target,
    // a one-way transaction with a call id, an empty release, ...).
    BAD_FIELDS,
    BAD_OBJECT_ENTRY,
    // Found with the connection's state rather than the header alone:
    // a target, object or released id that is not in the export table (or a
    // release of more references than were sent),
    UNKNOWN_OBJECT,
    // a reply to a call id that is neither pending nor timed out,
    UNEXPECTED_REPLY,
    // more incoming transactions in flight than HARD_INCOMING_LIMIT.
    OVERLOAD,
};

const char* FrameErrorToString(FrameError error);

FrameHeader MakeHeader(FrameKind kind);

// Checks everything the header alone can tell, before a byte of the body is
// read or allocated.
FrameError CheckHeader(const FrameHeader& header);

// Only after CheckHeader passed.
inline size_t FrameDataSize(const FrameHeader& header)
{
    return header.length - static_cast<size_t>(header.objectCount) * sizeof(ObjectEntry);
}

FrameError CheckObjectEntry(const ObjectEntry& entry);

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_FRAME_H
