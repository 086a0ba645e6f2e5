// Log label of the reference service (private). The macros are the client
// library's, so the service's lines carry the same prefix.
#ifndef SYNTAVO_SIM_LOG_H
#define SYNTAVO_SIM_LOG_H

#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

constexpr LogLabel SIM_LABEL{0xD004630, "SYNTDeviceDetectSim"};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#define SIM_LOGD(fmt, ...) SYNT_LOG(::Tavik::Syntavo::Sim::SIM_LABEL, ::Tavik::LOG_DEBUG, fmt, ##__VA_ARGS__)
#define SIM_LOGI(fmt, ...) SYNT_LOGI(::Tavik::Syntavo::Sim::SIM_LABEL, fmt, ##__VA_ARGS__)
#define SIM_LOGW(fmt, ...) SYNT_LOGW(::Tavik::Syntavo::Sim::SIM_LABEL, fmt, ##__VA_ARGS__)
#define SIM_LOGE(fmt, ...) SYNT_LOGE(::Tavik::Syntavo::Sim::SIM_LABEL, fmt, ##__VA_ARGS__)

#endif  // SYNTAVO_SIM_LOG_H
