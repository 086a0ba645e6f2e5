// Runtime directory, socket addresses and peer credentials (private to the
// transport).
#ifndef TAVIK_PLATFORM_TRANSPORT_RUNTIME_DIR_H
#define TAVIK_PLATFORM_TRANSPORT_RUNTIME_DIR_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cstdint>
#include <string>

namespace Tavik {
namespace Transport {

std::string ResolveRuntimeDirectory();

// Creates `dir` with mode 0700, or accepts an existing real directory (not a
// symbolic link) owned by the effective user and sets its mode to 0700.
// False, with a log line, otherwise. Only the last component is created.
bool PrepareRuntimeDirectory(const std::string& dir);

std::string SocketPathIn(const std::string& dir, int32_t systemAbilityId);
// The name a server binds before it listens; renamed to SocketPathIn once
// it does, so the socket appears at its path only when it can be connected
// to. Shorter than the socket's path, so it fits wherever that does.
std::string StagingSocketPathIn(const std::string& dir, int32_t systemAbilityId);
// "sa-<id>.sock", the socket's name within the directory.
std::string SocketNameOf(int32_t systemAbilityId);
std::string LockPathIn(const std::string& dir, int32_t systemAbilityId);

// False when the path does not fit sun_path.
bool MakeSocketAddress(const std::string& path, sockaddr_un& address, socklen_t& length);

struct PeerCredentials {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
};
bool GetPeerCredentials(int fd, PeerCredentials& credentials);

// A peer may talk to us when it runs as our effective user or as root: root
// can read our sockets anyway, so refusing it would protect nothing.
bool IsTrustedPeer(uid_t peerUid);

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_RUNTIME_DIR_H
