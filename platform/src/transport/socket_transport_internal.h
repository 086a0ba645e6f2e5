// What socket_transport.cpp offers the rest of the platform (private).
#ifndef TAVIK_PLATFORM_TRANSPORT_SOCKET_TRANSPORT_INTERNAL_H
#define TAVIK_PLATFORM_TRANSPORT_SOCKET_TRANSPORT_INTERNAL_H

#include <cstdint>

#include "iremote_object.h"

namespace Tavik {
namespace Transport {

// ConnectSystemAbility that never waits: the connect is non-blocking, so a
// server whose listen backlog is full counts as not answering instead of
// holding the calling thread for up to 8 s. For callers on shared threads.
sptr<IRemoteObject> ConnectSystemAbilityNow(int32_t systemAbilityId);

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_SOCKET_TRANSPORT_INTERNAL_H
