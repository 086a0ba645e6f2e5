#include "transport_limits.h"

namespace Tavik {
namespace Transport {

namespace {

const LimitInfo LIMITS[] = {
    {"MAX_FRAME_DATA", MAX_FRAME_DATA, "bytes", "a larger request fails locally; a larger frame ends its connection"},
    {"MAX_FRAME_OBJECTS", MAX_FRAME_OBJECTS, "objects",
     "a request with more fails locally; a frame with more ends its connection"},
    {"MAX_OUTGOING_BYTES", MAX_OUTGOING_BYTES, "bytes",
     "a peer that leaves this much unread is disconnected as if it had died"},
    {"MAX_RUNNING_TRANSACTIONS", MAX_RUNNING_TRANSACTIONS, "transactions",
     "at this many running, the peer's socket is not read until one finishes"},
    {"MAX_QUEUED_ONE_WAY", MAX_QUEUED_ONE_WAY, "transactions",
     "at this many waiting, the peer's socket is not read until they ran"},
    {"HARD_INCOMING_LIMIT", HARD_INCOMING_LIMIT, "transactions",
     "more waiting while a caller reads for its reply ends the connection"},
    {"MAX_QUEUED_INCOMING_BYTES", MAX_QUEUED_INCOMING_BYTES, "bytes",
     "more waiting while a caller reads for its reply ends the connection"},
    {"MAX_ABANDONED_CALLS", MAX_ABANDONED_CALLS, "call ids",
     "a late reply to an older timed-out call ends the connection"},
    {"MAX_IPC_THREADS", MAX_IPC_THREADS, "threads", "work waits for a thread"},
    {"LISTEN_BACKLOG", static_cast<uint64_t>(LISTEN_BACKLOG), "connections",
     "further clients wait up to CONNECT_TIMEOUT_SECONDS to connect"},
    {"CONNECT_TIMEOUT_SECONDS", static_cast<uint64_t>(CONNECT_TIMEOUT_SECONDS), "seconds",
     "a client gives up connecting to a server that does not accept"},
    {"LOG_BURST", LOG_BURST, "lines per window", "further lines of the kind are counted and summarised"},
    {"LOG_WINDOW_SECONDS", static_cast<uint64_t>(LOG_WINDOW_SECONDS), "seconds", "the window of LOG_BURST"},
};

}  // namespace

const LimitInfo* GetTransportLimits(size_t& count)
{
    count = sizeof(LIMITS) / sizeof(LIMITS[0]);
    return LIMITS;
}

}  // namespace Transport
}  // namespace Tavik
