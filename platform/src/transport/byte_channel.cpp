#include "transport/byte_channel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "transport_limits.h"

namespace Tavik {
namespace Transport {

namespace {

// The input buffer of a connection that only ever sees small frames: one
// read takes many of them at once, and it stays allocated between reads.
constexpr size_t SMALL_INPUT = 4 * 1024;
// Less room than this at the end of the buffer and the next read first
// makes more.
constexpr size_t MIN_READ = 1024;
// Pieces handed to one sendmsg of the queue.
constexpr size_t FLUSH_PIECES = 16;
// Pieces of one frame: releases, header, data, object entries.
constexpr size_t MAX_SEND_PIECES = 4;

}  // namespace

ByteChannel::ByteChannel(int fd) : fd_(fd) {}

ByteChannel::~ByteChannel()
{
    close(fd_);
}

// --- input ------------------------------------------------------------------

ssize_t ByteChannel::ReadSome()
{
    if (inCapacity_ - inEnd_ < MIN_READ) {
        size_t want = std::max(SMALL_INPUT, inEnd_ - inStart_ + SMALL_INPUT);
        if (!ReserveFrame(want)) {
            errno = ENOMEM;
            return -1;
        }
    }
    ssize_t count = recv(fd_, in_.get() + inEnd_, inCapacity_ - inEnd_, MSG_DONTWAIT);
    if (count > 0) {
        inEnd_ += static_cast<size_t>(count);
    }
    return count;
}

void ByteChannel::Consume(size_t size)
{
    inStart_ += size;
    if (inStart_ != inEnd_) {
        return;
    }
    inStart_ = 0;
    inEnd_ = 0;
    if (inCapacity_ > SMALL_INPUT) {
        in_.reset();
        inCapacity_ = 0;
    }
}

bool ByteChannel::ReserveFrame(size_t frameSize)
{
    size_t buffered = inEnd_ - inStart_;
    if (inCapacity_ - inStart_ >= frameSize) {
        return true;
    }
    if (inCapacity_ >= frameSize) {
        std::memmove(in_.get(), in_.get() + inStart_, buffered);
    } else {
        // Exactly the frame: a large frame is rare, and the buffer is given
        // back once it has been read.
        std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[frameSize]);
        if (grown == nullptr) {
            return false;
        }
        if (buffered > 0) {
            std::memcpy(grown.get(), in_.get() + inStart_, buffered);
        }
        in_ = std::move(grown);
        inCapacity_ = frameSize;
    }
    inStart_ = 0;
    inEnd_ = buffered;
    return true;
}

// --- output -----------------------------------------------------------------

ByteChannel::SendResult ByteChannel::Send(const iovec* pieces, size_t count)
{
    size_t size = 0;
    for (size_t i = 0; i < count; ++i) {
        size += pieces[i].iov_len;
    }
    if (count > MAX_SEND_PIECES) {
        errno = EINVAL;
        return SendResult::FAILED;
    }
    std::lock_guard<std::mutex> lock(outMu_);
    if (outClosed_) {
        return SendResult::CLOSED;
    }
    size_t written = 0;
    if (queue_.empty()) {
        iovec local[MAX_SEND_PIECES];
        std::copy(pieces, pieces + count, local);
        msghdr message{};
        message.msg_iov = local;
        message.msg_iovlen = count;
        while (written < size) {
            ssize_t result = sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (result < 0) {
                if (errno == EINTR) {
                    continue;
                }
                if (errno == EAGAIN || errno == EWOULDBLOCK) {
                    break;
                }
                return SendResult::FAILED;
            }
            written += static_cast<size_t>(result);
            auto left = static_cast<size_t>(result);
            while (message.msg_iovlen > 0 && left >= message.msg_iov->iov_len) {
                left -= message.msg_iov->iov_len;
                ++message.msg_iov;
                --message.msg_iovlen;
            }
            if (message.msg_iovlen > 0) {
                message.msg_iov->iov_base = static_cast<uint8_t*>(message.msg_iov->iov_base) + left;
                message.msg_iov->iov_len -= left;
            }
        }
        if (written == size) {
            return SendResult::SENT;
        }
    }
    if (pendingBytes_.load(std::memory_order_relaxed) + (size - written) > MAX_OUTGOING_BYTES ||
        !QueueLocked(pieces, count, written, size - written)) {
        // The stream may end in half a frame now: nothing more goes out, and
        // only this caller hears of the limit.
        outClosed_ = true;
        queue_.clear();
        pendingBytes_.store(0, std::memory_order_release);
        return SendResult::OVER_LIMIT;
    }
    return SendResult::QUEUED;
}

bool ByteChannel::QueueLocked(const iovec* pieces, size_t count, size_t skip, size_t size)
{
    std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[size]);
    if (bytes == nullptr) {
        return false;
    }
    size_t at = 0;
    for (size_t i = 0; i < count; ++i) {
        size_t length = pieces[i].iov_len;
        const auto* base = static_cast<const uint8_t*>(pieces[i].iov_base);
        if (skip >= length) {
            skip -= length;
            continue;
        }
        std::memcpy(bytes.get() + at, base + skip, length - skip);
        at += length - skip;
        skip = 0;
    }
    queue_.push_back(Chunk{std::move(bytes), size, 0});
    pendingBytes_.fetch_add(size, std::memory_order_release);
    return true;
}

ByteChannel::FlushResult ByteChannel::Flush()
{
    std::lock_guard<std::mutex> lock(outMu_);
    while (!queue_.empty()) {
        iovec pieces[FLUSH_PIECES];
        size_t count = 0;
        for (auto it = queue_.begin(); it != queue_.end() && count < FLUSH_PIECES; ++it, ++count) {
            pieces[count].iov_base = it->bytes.get() + it->offset;
            pieces[count].iov_len = it->size - it->offset;
        }
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = count;
        ssize_t result = sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (result < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno == EAGAIN || errno == EWOULDBLOCK ? FlushResult::WOULD_BLOCK : FlushResult::FAILED;
        }
        auto left = static_cast<size_t>(result);
        pendingBytes_.fetch_sub(left, std::memory_order_release);
        while (left > 0) {
            Chunk& front = queue_.front();
            size_t take = std::min(left, front.size - front.offset);
            front.offset += take;
            left -= take;
            if (front.offset == front.size) {
                queue_.pop_front();
            }
        }
    }
    return FlushResult::EMPTY;
}

void ByteChannel::CloseOutput()
{
    std::list<Chunk> dropped;
    std::lock_guard<std::mutex> lock(outMu_);
    outClosed_ = true;
    dropped.swap(queue_);
    pendingBytes_.store(0, std::memory_order_release);
}

}  // namespace Transport
}  // namespace Tavik
