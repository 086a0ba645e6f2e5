// Serving and reaching system abilities across processes over Unix sockets.
//
// A service publishes an object under its system ability id; the object is
// then served on the socket `<runtime directory>/sa-<id>.sock` to processes of
// the same user (and to root). A client reaches it with
// ConnectSystemAbility, or simply through the default system ability
// manager, whose GetSystemAbility falls back to the socket when no
// in-process object was added under the id.
//
// Runtime directory: $TAVIK_RUNTIME_DIR when set and not empty, else
// $XDG_RUNTIME_DIR/tavik when XDG_RUNTIME_DIR is set and not empty, else
// `/tmp/tavik-<effective uid>`. The variables are read on every call.
// Publishing creates the directory with mode 0700 (or tightens an existing
// one that this user owns) and the socket with mode 0600.
//
// docs/transport.md describes the wire, the threads and the limits.
#ifndef TAVIK_PLATFORM_SOCKET_TRANSPORT_H
#define TAVIK_PLATFORM_SOCKET_TRANSPORT_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "iremote_object.h"

namespace Tavik {

enum class PublishStatus : int32_t {
    // The object is served; the socket exists until UnpublishSystemAbility.
    OK = 0,
    // A null object or a negative id.
    INVALID_ARGUMENT = 1,
    // The runtime directory cannot be created, is not a directory owned by
    // this user, or makes the socket path too long.
    RUNTIME_DIR_UNUSABLE = 2,
    // This process, or another live server, already serves the id.
    ALREADY_PUBLISHED = 3,
    // The lock file, the socket, bind or listen failed.
    SOCKET_ERROR = 4,
    // PublishSystemAbilityOnSocket: the descriptor is not a listening Unix
    // stream socket bound to the ability's socket path.
    SOCKET_MISMATCH = 5,
};

// "OK", "ALREADY_PUBLISHED", ...; "UNKNOWN" for any other value.
const char* PublishStatusToString(PublishStatus status);

std::string GetRuntimeDirectory();
std::string GetSystemAbilitySocketPath(int32_t systemAbilityId);

// Serves `object` as system ability `systemAbilityId` until it is
// unpublished or the process ends. Incoming requests run on the process's
// IPC threads.
PublishStatus PublishSystemAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& object);

// Serves `object` on `listenFd`, a socket some supervisor already bound to
// GetSystemAbilitySocketPath(id) and listens on (socket activation). The
// same rules as PublishSystemAbility apply (directory checks, the lock file,
// socket mode 0600, peer credentials), except that nothing is probed,
// unlinked or bound: the path belongs to the supervisor, which may pass the
// socket to the next server after this one. Takes ownership of `listenFd`:
// on failure it is closed (the supervisor keeps its own copy).
PublishStatus PublishSystemAbilityOnSocket(int32_t systemAbilityId, const sptr<IRemoteObject>& object, int listenFd);

// Stops accepting connections for the id and removes its socket (a socket
// passed to PublishSystemAbilityOnSocket is closed but stays at its path).
// Connections already open keep working until their peers close them.
// False when this process has not published the id.
bool UnpublishSystemAbility(int32_t systemAbilityId);

// Ends the connection named by `connectionId` (PeerIdentity::connectionId)
// as if its peer had died: its pending calls fail, and the proxies of the
// peer's objects call their death recipients. For a service that gives up on
// a client that does not keep up. False when no open connection has the id.
bool DisconnectPeer(uint64_t connectionId, const char* reason);

// The remote object of the ability's server, or null when no trusted server
// answers. The connection is kept and reused by later calls for the same id
// while it lives.
sptr<IRemoteObject> ConnectSystemAbility(int32_t systemAbilityId);

// --- what the transport is doing, for tools that show a process's inside ---

// One open connection of this process.
struct ConnectionInfo {
    // PeerIdentity::connectionId.
    uint64_t id = 0;
    pid_t pid = 0;
    uid_t uid = 0;
    // The ability served (incoming) or reached (outgoing); -1 when unknown.
    int32_t systemAbilityId = -1;
    // Accepted by a published ability (a client of ours), or made by this
    // process (a server of ours).
    bool incoming = false;
    std::chrono::system_clock::time_point since;
    // The peer's synchronous transactions running now, and those waiting
    // (synchronous for a slot, one-way for their turn).
    size_t transactionsRunning = 0;
    size_t transactionsWaiting = 0;
    // Bytes queued for a peer that does not read fast enough.
    size_t outgoingBytes = 0;
    // Our calls waiting for the peer's reply.
    size_t pendingCalls = 0;
    size_t exportedObjects = 0;
    size_t importedObjects = 0;
};

// A connection that ended, and why.
struct ClosedConnectionInfo {
    ConnectionInfo connection;
    std::chrono::system_clock::time_point closedAt;
    std::string reason;
};

// Counters since the process started.
struct TransportCounters {
    uint64_t accepted = 0;
    // Connections that ended, for any reason, on either side.
    uint64_t closed = 0;
    // Peers whose credentials were refused (another user), or whose
    // credentials could not be read.
    uint64_t refused = 0;
    // Malformed frames, by reason ("BAD_MAGIC", "OVERLOAD", ...).
    std::map<std::string, uint64_t> malformed;
    // Connections closed because the peer passed a limit, by the limit's
    // name ("MAX_OUTGOING_BYTES", ...).
    std::map<std::string, uint64_t> closedAtLimit;
};

// One frame as it crossed a connection of this process, for monitors: the
// bytes exactly as on the wire (frame header, parcel data, object entries),
// in up to three pieces.
struct FrameEvent {
    uint64_t connectionId = 0;
    pid_t pid = 0;
    int32_t systemAbilityId = -1;
    // The connection was accepted by a published ability (its peer is a
    // client of ours).
    bool incomingConnection = false;
    // The frame was read from the peer (true) or written to it (false).
    bool received = false;
    std::chrono::system_clock::time_point time;
    struct Piece {
        const uint8_t* data = nullptr;
        size_t size = 0;
    };
    Piece pieces[3];
    size_t pieceCount = 0;
};
// Called for every frame read or written on any connection of this process,
// on the thread that reads or writes it, before the frame is handled or
// written. It must copy what it needs and return at once, and must not call
// the transport (the reading thread holds its connection's read role).
using FrameObserver = std::function<void(const FrameEvent& frame)>;
// Installs the observer; an empty function removes it. Without one, a frame
// costs one relaxed atomic load.
void SetFrameObserver(FrameObserver observer);

std::vector<ConnectionInfo> GetConnections();
// The last connections that ended, oldest first (at most 16).
std::vector<ClosedConnectionInfo> GetRecentlyClosed();
TransportCounters GetTransportCounters();

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_SOCKET_TRANSPORT_H
