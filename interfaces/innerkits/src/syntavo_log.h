// Log domains, tags and the logging macros of the client library (private).
//
// Every line is a core log with the prefix "[file:line]function# ", where
// file is the source file's base name without directory or extension. The
// level is tested before the arguments are evaluated, so a masked identifier
// (StringToAnonymous) costs nothing when its line is filtered out.
#ifndef SYNTAVO_LOG_H
#define SYNTAVO_LOG_H

#include <cstddef>
#include <cstdint>

#include "tralog.h"

namespace Tavik {
namespace Syntavo {

struct LogLabel {
    uint32_t domain;
    const char* tag;
};

// The proxy and the six callback stubs.
constexpr LogLabel DEVICE_DETECT_LABEL{0xD004617, "SYNTDeviceDetect"};
// The records, except DeviceDynamicInfo.
constexpr LogLabel CLIENT_LABEL{0xD004612, "SYNTClient"};
// DeviceDynamicInfo.
constexpr LogLabel INFO_COLLECTION_LABEL{0xD00461B, "SYNTInfoCollection"};

namespace LogDetail {

template <size_t N>
struct FileBase {
    char name[N] = {};
};

// "/a/b/ability_filter.cpp" -> "ability_filter", at compile time.
template <size_t N>
constexpr FileBase<N> MakeFileBase(const char (&path)[N])
{
    size_t begin = 0;
    for (size_t i = 0; i + 1 < N; ++i) {
        if (path[i] == '/') {
            begin = i + 1;
        }
    }
    size_t end = N - 1;
    for (size_t i = begin; i + 1 < N; ++i) {
        if (path[i] == '.') {
            end = i;
        }
    }
    FileBase<N> base;
    for (size_t i = begin; i < end; ++i) {
        base.name[i - begin] = path[i];
    }
    return base;
}

}  // namespace LogDetail
}  // namespace Syntavo
}  // namespace Tavik

// SYNT_LOG_AT names the function explicitly: the proxy's shared request
// frame logs on behalf of the method that called it.
#define SYNT_LOG_AT(label, level, func, fmt, ...)                                                                   \
    do {                                                                                                            \
        if (::Tavik::IsLogLevelEnabled(level)) {                                                                    \
            static constexpr auto syntLogFileBase = ::Tavik::Syntavo::LogDetail::MakeFileBase(__FILE__);            \
            ::Tavik::TralogPrint(::Tavik::LOG_CORE, level, (label).domain, (label).tag,                             \
                                 "[%{public}s:%{public}d]%{public}s# " fmt, syntLogFileBase.name, __LINE__, (func), \
                                 ##__VA_ARGS__);                                                                    \
        }                                                                                                           \
    } while (0)

#define SYNT_LOG(label, level, fmt, ...) SYNT_LOG_AT(label, level, __FUNCTION__, fmt, ##__VA_ARGS__)

#define SYNT_LOGI(label, fmt, ...) SYNT_LOG(label, ::Tavik::LOG_INFO, fmt, ##__VA_ARGS__)
#define SYNT_LOGW(label, fmt, ...) SYNT_LOG(label, ::Tavik::LOG_WARN, fmt, ##__VA_ARGS__)
#define SYNT_LOGE(label, fmt, ...) SYNT_LOG(label, ::Tavik::LOG_ERROR, fmt, ##__VA_ARGS__)

#endif  // SYNTAVO_LOG_H
