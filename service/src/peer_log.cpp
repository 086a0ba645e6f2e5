#include "peer_log.h"

#include <vector>

#include "log_rate_limiter.h"
#include "sim_log.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

LogRateLimiter& Limiter()
{
    // Immortal: IPC threads may still log while static destructors run.
    static auto* limiter = new LogRateLimiter();
    return *limiter;
}

}  // namespace

bool AllowPeerLine(const PeerIdentity& peer)
{
    if (peer.connectionId == 0) {
        return true;
    }
    std::vector<LogRateLimiter::Summary> due;
    bool allowed = Limiter().Allow(peer.connectionId, peer.pid, due);
    for (const LogRateLimiter::Summary& summary : due) {
        SIM_LOGW(
            "suppressed %{public}llu lines caused by pid %{public}lld (connection %{public}llu) in %{public}lld ms",
            static_cast<unsigned long long>(summary.suppressed), static_cast<long long>(summary.note),
            static_cast<unsigned long long>(summary.key),
            static_cast<long long>(Limiter().GetOptions().window.count()));
    }
    return allowed;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
