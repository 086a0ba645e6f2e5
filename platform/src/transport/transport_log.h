// Log label and macros of the socket transport (private).
//
// Lines carry the prefix "[function] "; the level is tested before the
// arguments are evaluated. Peer failures (a malformed frame, a refused
// credential) are WARN: they end one connection, not the process.
#ifndef TAVIK_PLATFORM_TRANSPORT_LOG_H
#define TAVIK_PLATFORM_TRANSPORT_LOG_H

#include <cstdint>

#include "tralog.h"

namespace Tavik {
namespace Transport {

constexpr uint32_t TRANSPORT_LOG_DOMAIN = 0xD001510;
constexpr const char* TRANSPORT_LOG_TAG = "TavikIPC";

}  // namespace Transport
}  // namespace Tavik

#define TRANSPORT_LOG(level, fmt, ...)                                                                     \
    do {                                                                                                   \
        if (::Tavik::IsLogLevelEnabled(level)) {                                                           \
            ::Tavik::TralogPrint(::Tavik::LOG_CORE, level, ::Tavik::Transport::TRANSPORT_LOG_DOMAIN,       \
                                 ::Tavik::Transport::TRANSPORT_LOG_TAG, "[%{public}s] " fmt, __FUNCTION__, \
                                 ##__VA_ARGS__);                                                           \
        }                                                                                                  \
    } while (0)

#define TRANSPORT_LOGD(fmt, ...) TRANSPORT_LOG(::Tavik::LOG_DEBUG, fmt, ##__VA_ARGS__)
#define TRANSPORT_LOGI(fmt, ...) TRANSPORT_LOG(::Tavik::LOG_INFO, fmt, ##__VA_ARGS__)
#define TRANSPORT_LOGW(fmt, ...) TRANSPORT_LOG(::Tavik::LOG_WARN, fmt, ##__VA_ARGS__)
#define TRANSPORT_LOGE(fmt, ...) TRANSPORT_LOG(::Tavik::LOG_ERROR, fmt, ##__VA_ARGS__)

#endif  // TAVIK_PLATFORM_TRANSPORT_LOG_H
