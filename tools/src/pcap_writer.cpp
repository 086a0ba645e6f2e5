#include "pcap_writer.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

namespace DeviceDetectCli {
namespace {

constexpr uint32_t PCAP_MAGIC_NANOSECONDS = 0xa1b23c4d;
constexpr uint16_t PCAP_VERSION_MAJOR = 2;
constexpr uint16_t PCAP_VERSION_MINOR = 4;
constexpr size_t PCAP_GLOBAL_HEADER_SIZE = 24;
constexpr size_t PCAP_RECORD_HEADER_SIZE = 16;
constexpr uint64_t NANOSECONDS_PER_SECOND = 1000000000;

// Little-endian stores, so the file is the same whatever the host.
void Put16(uint8_t* out, uint16_t value)
{
    out[0] = static_cast<uint8_t>(value);
    out[1] = static_cast<uint8_t>(value >> 8);
}

void Put32(uint8_t* out, uint32_t value)
{
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

void Put64(uint8_t* out, uint64_t value)
{
    for (int i = 0; i < 8; ++i) {
        out[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

// strerror_r comes as the XSI (int) or the GNU (char*) variant; these take
// the text out of either. Unlike strerror, it is safe beside other threads.
[[maybe_unused]] const char* ErrorText(int result, const char* buffer)
{
    return result == 0 ? buffer : "unknown error";
}
[[maybe_unused]] const char* ErrorText(const char* result, const char* /* buffer */)
{
    return result;
}

std::string ErrnoText(int error)
{
    char buffer[128] = {};
    return ErrorText(strerror_r(error, buffer, sizeof(buffer)), buffer);
}

// Writes every byte of `parts`, resuming after short writes and signals.
// The parts are consumed (their bases and lengths advance). Returns 0 or
// the errno of the failed write.
int WriteAll(int fd, iovec* parts, int count)
{
    while (count > 0) {
        ssize_t written = ::writev(fd, parts, count);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        auto left = static_cast<size_t>(written);
        while (count > 0 && left >= parts->iov_len) {
            left -= parts->iov_len;
            ++parts;
            --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<uint8_t*>(parts->iov_base) + left;
            parts->iov_len -= left;
        }
    }
    return 0;
}

}  // namespace

PcapWriter::~PcapWriter()
{
    (void)Close();
}

bool PcapWriter::Fail(const std::string& what, int error)
{
    error_ = what + " " + path_ + ": " + ErrnoText(error);
    return false;
}

bool PcapWriter::Open(const std::string& path)
{
    if (IsOpen()) {
        error_ = "cannot open " + path + ": the capture " + path_ + " is still open";
        return false;
    }
    path_ = path == "-" ? "(standard output)" : path;
    error_.clear();
    failed_ = false;
    records_ = 0;
    if (path == "-") {
        fd_ = STDOUT_FILENO;
        ownsFd_ = false;
    } else {
        fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd_ < 0) {
            return Fail("cannot create", errno);
        }
        ownsFd_ = true;
    }
    uint8_t header[PCAP_GLOBAL_HEADER_SIZE] = {};
    Put32(header, PCAP_MAGIC_NANOSECONDS);
    Put16(header + 4, PCAP_VERSION_MAJOR);
    Put16(header + 6, PCAP_VERSION_MINOR);
    // Bytes 8..15: time zone offset and accuracy, both 0.
    Put32(header + 16, PCAP_SNAPLEN);
    Put32(header + 20, LINKTYPE_USER0);
    iovec part{header, sizeof(header)};
    int error = WriteAll(fd_, &part, 1);
    if (error != 0) {
        Fail("cannot write to", error);
        std::string message = error_;
        (void)Close();
        error_ = message;
        return false;
    }
    return true;
}

bool PcapWriter::Write(CaptureDirection direction, int32_t pid, uint64_t connectionId, uint64_t timeNs,
                       const Piece* pieces, size_t count)
{
    if (!IsOpen()) {
        error_ = "no capture file is open";
        return false;
    }
    if (failed_) {
        // error_ still names the write that failed.
        return false;
    }
    if (direction != CaptureDirection::TO_SERVICE && direction != CaptureDirection::FROM_SERVICE) {
        error_ =
            "direction " + std::to_string(static_cast<unsigned>(direction)) + " is neither to nor from the service";
        return false;
    }
    if (count > MAX_PIECES) {
        error_ = "a frame comes in at most " + std::to_string(MAX_PIECES) + " pieces";
        return false;
    }
    size_t frameSize = 0;
    for (size_t i = 0; i < count; ++i) {
        frameSize += pieces[i].size;
    }
    if (frameSize > std::numeric_limits<uint32_t>::max() - CAPTURE_HEADER_SIZE) {
        error_ = "a frame of " + std::to_string(frameSize) + " bytes does not fit a pcap record";
        return false;
    }
    const auto originalLength = static_cast<uint32_t>(CAPTURE_HEADER_SIZE + frameSize);
    const uint32_t capturedLength = std::min(originalLength, PCAP_SNAPLEN);

    uint8_t headers[PCAP_RECORD_HEADER_SIZE + CAPTURE_HEADER_SIZE] = {};
    uint8_t* record = headers;
    Put32(record, static_cast<uint32_t>(timeNs / NANOSECONDS_PER_SECOND));
    Put32(record + 4, static_cast<uint32_t>(timeNs % NANOSECONDS_PER_SECOND));
    Put32(record + 8, capturedLength);
    Put32(record + 12, originalLength);
    uint8_t* capture = headers + PCAP_RECORD_HEADER_SIZE;
    capture[0] = CAPTURE_VERSION;
    capture[1] = static_cast<uint8_t>(direction);
    // Bytes 2..3 reserved, 0.
    Put32(capture + 4, static_cast<uint32_t>(pid));
    Put64(capture + 8, connectionId);
    Put64(capture + 16, timeNs);

    iovec parts[1 + MAX_PIECES];
    int used = 0;
    parts[used++] = {headers, sizeof(headers)};
    size_t room = capturedLength - CAPTURE_HEADER_SIZE;
    for (size_t i = 0; i < count; ++i) {
        size_t take = std::min(room, pieces[i].size);
        if (take == 0) {
            continue;
        }
        // writev does not write through the pointer; the cast only fits its type.
        parts[used++] = {const_cast<uint8_t*>(pieces[i].data), take};
        room -= take;
    }
    int error = WriteAll(fd_, parts, used);
    if (error != 0) {
        failed_ = true;
        return Fail("cannot write to", error);
    }
    ++records_;
    return true;
}

bool PcapWriter::Close()
{
    if (!IsOpen()) {
        return true;
    }
    int fd = fd_;
    fd_ = -1;
    if (ownsFd_ && ::close(fd) != 0) {
        return Fail("cannot close", errno);
    }
    return true;
}

}  // namespace DeviceDetectCli
