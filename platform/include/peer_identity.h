// Who is on the other end: the process behind an incoming transaction, or
// behind a remote object.
//
// Across processes the identity comes from the connection's peer
// credentials, read by the kernel when the connection was made, so a peer
// cannot claim another's. In process (a local stub called directly) it is
// this process's own.
#ifndef TAVIK_PLATFORM_PEER_IDENTITY_H
#define TAVIK_PLATFORM_PEER_IDENTITY_H

#include <sys/types.h>

#include <cstdint>

#include "iremote_object.h"

namespace Tavik {

struct PeerIdentity {
    pid_t pid = 0;
    uid_t uid = 0;
    // Names the connection, unique while this process lives (never reused);
    // 0 for this process itself.
    uint64_t connectionId = 0;
};

// While the calling thread runs a transaction that came over a connection
// (a stub's OnRemoteRequest on an IPC thread, and anything it calls in
// process): the process that sent it. Anywhere else: this process, with
// connection id 0.
PeerIdentity GetCallingIdentity();
pid_t GetCallingPid();
uid_t GetCallingUid();

// The process that holds `object`: for a proxy, the peer of its connection
// (even after that connection ended); for a local object or null, this
// process, with connection id 0.
PeerIdentity GetObjectPeer(const sptr<IRemoteObject>& object);

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_PEER_IDENTITY_H
