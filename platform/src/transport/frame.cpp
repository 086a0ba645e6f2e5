#include "transport/frame.h"

#include "message_option.h"

namespace Tavik {
namespace Transport {

const char* FrameErrorToString(FrameError error)
{
    switch (error) {
        case FrameError::NONE:
            return "NONE";
        case FrameError::BAD_MAGIC:
            return "BAD_MAGIC";
        case FrameError::BAD_VERSION:
            return "BAD_VERSION";
        case FrameError::BAD_KIND:
            return "BAD_KIND";
        case FrameError::RESERVED_NOT_ZERO:
            return "RESERVED_NOT_ZERO";
        case FrameError::TOO_MANY_OBJECTS:
            return "TOO_MANY_OBJECTS";
        case FrameError::BAD_LENGTH:
            return "BAD_LENGTH";
        case FrameError::TOO_LARGE:
            return "TOO_LARGE";
        case FrameError::BAD_FIELDS:
            return "BAD_FIELDS";
        case FrameError::BAD_OBJECT_ENTRY:
            return "BAD_OBJECT_ENTRY";
        case FrameError::UNKNOWN_OBJECT:
            return "UNKNOWN_OBJECT";
        case FrameError::UNEXPECTED_REPLY:
            return "UNEXPECTED_REPLY";
        case FrameError::OVERLOAD:
            return "OVERLOAD";
    }
    return "UNKNOWN";
}

FrameHeader MakeHeader(FrameKind kind)
{
    FrameHeader header{};
    header.magic[0] = FRAME_MAGIC_0;
    header.magic[1] = FRAME_MAGIC_1;
    header.version = FRAME_VERSION;
    header.kind = static_cast<uint8_t>(kind);
    return header;
}

FrameError CheckHeader(const FrameHeader& header)
{
    if (header.magic[0] != FRAME_MAGIC_0 || header.magic[1] != FRAME_MAGIC_1) {
        return FrameError::BAD_MAGIC;
    }
    if (header.version != FRAME_VERSION) {
        return FrameError::BAD_VERSION;
    }
    if (header.reserved != 0) {
        return FrameError::RESERVED_NOT_ZERO;
    }
    if (header.objectCount > MAX_FRAME_OBJECTS) {
        return FrameError::TOO_MANY_OBJECTS;
    }
    size_t objectBytes = static_cast<size_t>(header.objectCount) * sizeof(ObjectEntry);
    if (header.length < objectBytes) {
        return FrameError::BAD_LENGTH;
    }
    size_t dataSize = header.length - objectBytes;
    if (dataSize > MAX_FRAME_DATA) {
        return FrameError::TOO_LARGE;
    }
    // Parcels pad every item to 4 bytes, so their size always is a multiple.
    if (dataSize % 4 != 0) {
        return FrameError::BAD_LENGTH;
    }
    switch (static_cast<FrameKind>(header.kind)) {
        case FrameKind::TRANSACTION: {
            if ((header.flags & ~static_cast<uint32_t>(MessageOption::TF_ASYNC)) != 0) {
                return FrameError::BAD_FIELDS;
            }
            bool oneWay = (header.flags & MessageOption::TF_ASYNC) != 0;
            if (oneWay != (header.callId == 0)) {
                return FrameError::BAD_FIELDS;
            }
            return FrameError::NONE;
        }
        case FrameKind::REPLY:
            if (header.callId == 0 || header.target != 0 || header.flags != 0) {
                return FrameError::BAD_FIELDS;
            }
            return FrameError::NONE;
        case FrameKind::RELEASE:
            if (header.length != 0 || header.callId != 0 || header.target == ROOT_OBJECT_ID || header.code == 0 ||
                header.flags != 0) {
                return FrameError::BAD_FIELDS;
            }
            return FrameError::NONE;
    }
    return FrameError::BAD_KIND;
}

FrameError CheckObjectEntry(const ObjectEntry& entry)
{
    if (entry.reserved[0] != 0 || entry.reserved[1] != 0 || entry.reserved[2] != 0) {
        return FrameError::RESERVED_NOT_ZERO;
    }
    if (entry.owner != static_cast<uint8_t>(ObjectOwner::SENDER) &&
        entry.owner != static_cast<uint8_t>(ObjectOwner::RECEIVER)) {
        return FrameError::BAD_OBJECT_ENTRY;
    }
    return FrameError::NONE;
}

}  // namespace Transport
}  // namespace Tavik
