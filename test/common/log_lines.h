// Reading captured log lines by their parts.
//
// Every line of the client library has the prefix "[file:line]function# ";
// these helpers split it off so that tests compare the function and the
// text exactly and check the file name and the line number apart.
#ifndef SYNTAVO_TEST_LOG_LINES_H
#define SYNTAVO_TEST_LOG_LINES_H

#include <cstdint>
#include <string>
#include <vector>

#include "tralog.h"

namespace Tavik {
namespace Test {

// Domain and tag of the proxy and the stubs.
constexpr uint32_t DEVICE_DETECT_DOMAIN = 0xD004617;
constexpr const char* DEVICE_DETECT_TAG = "SYNTDeviceDetect";

struct LogLine {
    LogType type = LOG_APP;
    LogLevel level = LOG_DEBUG;
    uint32_t domain = 0;
    std::string tag;
    // Empty (and line 0) when the message lacks the prefix.
    std::string file;
    int line = 0;
    std::string function;
    std::string text;

    // "function# text", the form the tables compare.
    std::string Short() const { return function + "# " + text; }
};

LogLine ParseLogLine(const LogRecord& record);
std::vector<LogLine> ParseLogLines(const LogCapture& capture);

// Short forms of the lines of one domain at exactly one level, in order.
std::vector<std::string> LinesAt(const LogCapture& capture, LogLevel level, uint32_t domain = DEVICE_DETECT_DOMAIN);
// Short forms of every line of one domain, each preceded by its level
// ("I ", "W ", "E "), in order.
std::vector<std::string> AllLines(const LogCapture& capture, uint32_t domain = DEVICE_DETECT_DOMAIN);

// Empty when every line of the domain is a core log with the domain's tag,
// comes from `file` and has a positive line number; otherwise a description
// of the first line that is not.
std::string CheckPrefixes(const LogCapture& capture, const std::string& file, uint32_t domain = DEVICE_DETECT_DOMAIN,
                          const std::string& tag = DEVICE_DETECT_TAG);

}  // namespace Test
}  // namespace Tavik

#endif  // SYNTAVO_TEST_LOG_LINES_H
