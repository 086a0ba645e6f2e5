// Lines of the service that a peer can cause at will (a wrong interface
// token, an unknown code, a callback it refuses) go through one rate limiter
// keyed by the peer's connection: at most LogRateLimiter's burst per window
// each, and one summary line (WARN) counting what was suppressed. This
// process's own calls (connection 0: in-process clients, the tests) are not
// limited.
#ifndef SYNTAVO_SIM_PEER_LOG_H
#define SYNTAVO_SIM_PEER_LOG_H

#include <cstdint>

#include "peer_identity.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

// Logs the summaries that are due, then says whether one more line about
// `peer` may be logged.
bool AllowPeerLine(const PeerIdentity& peer);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

// One line about `peer`, unless its share is used up.
#define SIM_PEER_LOG(peer, LOGMACRO, fmt, ...)            \
    do {                                                  \
        if (::Tavik::Syntavo::Sim::AllowPeerLine(peer)) { \
            LOGMACRO(fmt, ##__VA_ARGS__);                 \
        }                                                 \
    } while (0)

#endif  // SYNTAVO_SIM_PEER_LOG_H
