// Writes transport frames to a classic pcap file that Wireshark and tshark
// open with the dissector in tools/wireshark/devicedetect.lua.
//
// File layout (docs/wire-format.md, "Captures"): the pcap global header
// (magic 0xa1b23c4d for nanosecond timestamps, version 2.4, snaplen 262144,
// link type 147, LINKTYPE_USER0), then one record per frame. A record is the
// pcap record header, then our 24-byte capture header, then the frame as it
// crossed the socket (frame header, parcel data, object entries), cut at the
// snap length. Capture header, little-endian:
//
//   offset size field
//        0    1 version      CAPTURE_VERSION
//        1    1 direction    CaptureDirection
//        2    2 reserved     0
//        4    4 pid          the peer process (int32)
//        8    8 connection   connection id, unique within the service's life
//       16    8 time         nanoseconds since the Unix epoch
//
// Standard library and POSIX only. Not thread-safe: one writer belongs to
// one thread (the monitor's reader).
#ifndef DEVICEDETECT_PCAP_WRITER_H
#define DEVICEDETECT_PCAP_WRITER_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace DeviceDetectCli {

enum class CaptureDirection : uint8_t {
    // The service read the frame: a request, or a client's reply to a callback.
    TO_SERVICE = 1,
    // The service wrote the frame: a reply, a callback, a release.
    FROM_SERVICE = 2,
};

constexpr uint8_t CAPTURE_VERSION = 1;
constexpr size_t CAPTURE_HEADER_SIZE = 24;
// Wireshark refuses a record longer than this; a longer frame is cut here and
// its record keeps the whole length as its original length.
constexpr uint32_t PCAP_SNAPLEN = 262144;
constexpr uint32_t LINKTYPE_USER0 = 147;

class PcapWriter {
public:
    // One contiguous part of a frame; a frame may be given as up to a few
    // parts (header, data, object entries), as the transport sends it.
    struct Piece {
        const uint8_t* data;
        size_t size;
    };
    static constexpr size_t MAX_PIECES = 4;

    PcapWriter() = default;
    // Closes the file if it is still open.
    ~PcapWriter();
    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;

    // Creates (or truncates) `path` with mode 0600, since a capture holds
    // every identifier unmasked, and writes the global header. "-" writes to
    // standard output, which Close leaves open (a reader that goes away then
    // raises SIGPIPE, which the caller ignores or handles). False, with
    // Error() set, when the file cannot be created or the header written, or
    // when the writer is already open.
    bool Open(const std::string& path);

    // Appends one record; its bytes reach the file before this returns, so
    // a capture interrupted between two calls is complete up to the last
    // one. False, with Error() set, for a direction other than the two, a
    // frame too long for a pcap length, more than MAX_PIECES pieces, or a
    // failed write; after a failed
    // write every later call fails too, so no record follows a partial one.
    bool Write(CaptureDirection direction, int32_t pid, uint64_t connectionId, uint64_t timeNs, const Piece* pieces,
               size_t count);
    bool Write(CaptureDirection direction, int32_t pid, uint64_t connectionId, uint64_t timeNs,
               std::initializer_list<Piece> frame)
    {
        return Write(direction, pid, connectionId, timeNs, frame.begin(), frame.size());
    }
    bool Write(CaptureDirection direction, int32_t pid, uint64_t connectionId, uint64_t timeNs, const uint8_t* frame,
               size_t size)
    {
        return Write(direction, pid, connectionId, timeNs, {Piece{frame, size}});
    }

    // False, with Error() set, when closing the file reports an error.
    bool Close();

    bool IsOpen() const { return fd_ >= 0; }
    // A sentence naming the file and the cause ("cannot create x.pcap:
    // Permission denied"), or empty.
    const std::string& Error() const { return error_; }
    // Records written since Open.
    uint64_t Records() const { return records_; }

private:
    bool Fail(const std::string& what, int error);

    int fd_ = -1;
    bool ownsFd_ = false;
    bool failed_ = false;
    uint64_t records_ = 0;
    std::string path_;
    std::string error_;
};

}  // namespace DeviceDetectCli

#endif  // DEVICEDETECT_PCAP_WRITER_H
