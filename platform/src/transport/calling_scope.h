// The identity of the peer whose transaction the current thread runs
// (private to the transport; peer_identity.h is the public side).
#ifndef TAVIK_PLATFORM_TRANSPORT_CALLING_SCOPE_H
#define TAVIK_PLATFORM_TRANSPORT_CALLING_SCOPE_H

#include "peer_identity.h"

namespace Tavik {
namespace Transport {

// Makes `peer` the calling identity of this thread while it lives; scopes
// nest (a handler that is itself called back restores its caller after).
class CallingScope {
public:
    explicit CallingScope(const PeerIdentity& peer);
    ~CallingScope();
    CallingScope(const CallingScope&) = delete;
    CallingScope& operator=(const CallingScope&) = delete;

private:
    const PeerIdentity* previous_;
};

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_CALLING_SCOPE_H
