// Shared by the fuzz targets: the input cap, the invariant check and a log
// that formats every line but writes none.
#ifndef DD_FUZZ_COMMON_H
#define DD_FUZZ_COMMON_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tralog.h"

namespace DdFuzz {

// Larger inputs teach nothing a 50 kB one does not, and slow every run.
constexpr size_t MAX_INPUT_SIZE = 50 * 1024;

// parcel_fuzzer's operations, numbered by the low four bits of an operation
// byte; the corpus generator writes its seeds with the same numbers.
enum ParcelOp : uint8_t {
    BOOL,
    INT32,
    UINT32,
    INT64,
    UINT64,
    STRING,
    STRING16,
    INTERFACE_TOKEN,
    STRING_VECTOR,
    UINT32_VECTOR,
    INT32_VECTOR,
    REMOTE_OBJECT,
    BUFFER,
    SKIP,
    REWIND,
    REWIND_TO_START,
};

// What the current input is exercising (a record's name, a method), printed
// with a broken invariant.
inline const char* g_context = "";

// Formats every line down to DEBUG, so the log's formatting of hostile
// strings is fuzzed too, and drops the result instead of flooding stderr.
inline void QuietLog()
{
    Tavik::SetLogLevel(Tavik::LOG_DEBUG);
    Tavik::SetLogSink([](const Tavik::LogRecord& record) {
        volatile size_t length = record.message.size();
        (void)length;
    });
}

}  // namespace DdFuzz

// A broken invariant aborts, so libFuzzer reports it like a crash and keeps
// the input.
#define FUZZ_CHECK(condition)                                                                                    \
    do {                                                                                                         \
        if (!(condition)) {                                                                                      \
            std::fprintf(stderr, "invariant broken [%s]: %s (%s:%d)\n", DdFuzz::g_context, #condition, __FILE__, \
                         __LINE__);                                                                              \
            std::abort();                                                                                        \
        }                                                                                                        \
    } while (0)

#endif  // DD_FUZZ_COMMON_H
