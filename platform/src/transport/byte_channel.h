// The raw byte stream of one connection (private to the transport): the
// socket, the bytes read from it that no frame has consumed yet, and the
// bytes waiting to be written to it.
//
// Owns: the socket descriptor (closed by the destructor, so that no thread
// ever uses a descriptor number the system handed out again), the input
// buffer and the outgoing queue.
//
// Input: touched only by the thread that holds the connection's read role,
// so it takes no lock. The buffer is allocated on the first read, grows to
// the size of the frame being read (which the frame header has bounded) and
// is given back once it empties after a large frame.
//
// Output: every frame of the connection goes through Send, under outMu_, so
// frames never interleave. Send writes at once while nothing is queued, and
// never waits: what the socket does not take is copied into the queue, and
// Flush writes it when the socket is writable again (an IPC thread, woken
// by the connection's epoll interest in EPOLLOUT). The queue holds at most
// MAX_OUTGOING_BYTES; a Send that would pass it is refused (OVER_LIMIT),
// and the connection then treats the peer as dead. No thread ever waits for
// a peer to read.
#ifndef TAVIK_PLATFORM_TRANSPORT_BYTE_CHANNEL_H
#define TAVIK_PLATFORM_TRANSPORT_BYTE_CHANNEL_H

#include <sys/types.h>
#include <sys/uio.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

namespace Tavik {
namespace Transport {

class ByteChannel {
public:
    // Takes ownership of `fd`, a non-blocking stream socket.
    explicit ByteChannel(int fd);
    ~ByteChannel();
    ByteChannel(const ByteChannel&) = delete;
    ByteChannel& operator=(const ByteChannel&) = delete;

    int Fd() const { return fd_; }

    // --- input (the read-role holder only) ---------------------------------
    // One recv into the buffer: its result (errno set when negative).
    ssize_t ReadSome();
    const uint8_t* Buffered() const { return in_.get() + inStart_; }
    size_t BufferedSize() const { return inEnd_ - inStart_; }
    // Drops `size` consumed bytes; an emptied buffer that grew past the
    // small size is given back.
    void Consume(size_t size);
    // Makes room for a whole frame of `frameSize` bytes at the front.
    // False when the memory cannot be had.
    bool ReserveFrame(size_t frameSize);
    // The buffer's capacity, for statistics and tests.
    size_t InputCapacity() const { return inCapacity_; }

    // --- output (any thread) ----------------------------------------------
    enum class SendResult {
        // Written whole.
        SENT,
        // Partly or not at all written; the rest waits in the queue for Flush.
        QUEUED,
        // The queue would pass MAX_OUTGOING_BYTES; nothing was queued (the
        // frame may be partly written), so the stream is no longer usable.
        OVER_LIMIT,
        // The socket failed (the peer is gone); errno tells why.
        FAILED,
        // CloseOutput was called.
        CLOSED,
    };
    // Sends one frame given as at most four pieces.
    SendResult Send(const iovec* pieces, size_t count);

    enum class FlushResult { EMPTY, WOULD_BLOCK, FAILED };
    // Writes queued bytes until the queue is empty or the socket is full.
    FlushResult Flush();

    bool HasPendingOutput() const { return pendingBytes_.load(std::memory_order_acquire) != 0; }
    size_t PendingOutputBytes() const { return pendingBytes_.load(std::memory_order_acquire); }
    // Drops the queue; every later Send returns CLOSED.
    void CloseOutput();

private:
    // Under outMu_: the bytes of `pieces` after the first `skip` go into the
    // queue as one chunk.
    bool QueueLocked(const iovec* pieces, size_t count, size_t skip, size_t size);

    const int fd_;

    std::unique_ptr<uint8_t[]> in_;
    size_t inCapacity_ = 0;
    size_t inStart_ = 0;
    size_t inEnd_ = 0;

    struct Chunk {
        std::unique_ptr<uint8_t[]> bytes;
        size_t size;
        size_t offset;
    };
    std::mutex outMu_;
    bool outClosed_ = false;
    // A list rather than a deque: it costs nothing while empty, which is
    // almost always.
    std::list<Chunk> queue_;
    std::atomic<size_t> pendingBytes_{0};
};

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_BYTE_CHANNEL_H
