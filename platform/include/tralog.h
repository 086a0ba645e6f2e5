// The platform log.
//
// TralogPrint(type, level, domain, tag, fmt, ...) takes a printf-style format
// whose conversions may carry a privacy decoration: "%{public}s" prints the
// argument, "%{private}s" prints "<private>" in its place (the argument is
// still consumed). An undecorated conversion is private too. The level is
// tested before anything is formatted, so a line below the threshold costs
// one atomic load.
//
// Lines go to one process-wide sink. The default sink writes to standard
// error; the default threshold is WARN, or the level named by the
// environment variable TAVIK_LOG_LEVEL (DEBUG, INFO, WARN, ERROR, FATAL, or
// the numbers 3 to 7) when it is set at first use.
//
// An installed sink receives the formatted text exactly as the format and
// its arguments made it. The standard-error sink does not trust it: public
// string arguments often carry bytes a peer chose (a device name, an
// interface token), so it writes every control character as a visible
// escape (EscapeControlCharacters) and cuts each such argument after
// LOG_ARGUMENT_CAP bytes. A line on standard error is therefore always one
// line, and no peer can forge a second one or send a terminal an escape
// sequence through it.
#ifndef TAVIK_PLATFORM_TRALOG_H
#define TAVIK_PLATFORM_TRALOG_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Tavik {

enum LogType : int {
    LOG_APP = 0,
    LOG_CORE = 3,
};

enum LogLevel : int {
    LOG_DEBUG = 3,
    LOG_INFO = 4,
    LOG_WARN = 5,
    LOG_ERROR = 6,
    LOG_FATAL = 7,
};

// The bytes [begin, end) of LogRecord::message that one argument filled.
struct LogSpan {
    uint32_t begin;
    uint32_t end;
};

struct LogRecord {
    LogType type;
    LogLevel level;
    uint32_t domain;
    std::string tag;
    std::string message;  // the formatted line, privacy applied
    // Where each public string argument ("%{public}s") landed in `message`,
    // in order; recorded while formatting, for the standard-error sink's
    // cap. Empty for a record made by hand (then nothing is capped).
    std::vector<LogSpan> arguments{};
};

// The standard-error sink writes at most this many bytes of one public string
// argument (cut back to the start of a UTF-8 character), followed by
// "...[N more bytes]". 1 KiB keeps a line readable and a flood of long names
// cheap, while every identifier and sentence the code logs fits whole.
constexpr size_t LOG_ARGUMENT_CAP = 1024;

// `text` with its control characters made visible: newline, carriage return
// and tab as "\n", "\r", "\t"; every other byte below 0x20, and DEL, as
// "\xNN"; the C1 controls (U+0080 to U+009F, two bytes in UTF-8) as
// "\xc2\xNN". Every other byte, backslash included, stays as it is. For
// text that came from elsewhere and goes to a log or a terminal.
std::string EscapeControlCharacters(const std::string& text);
void AppendEscaped(std::string& out, const char* text, size_t size);

using LogSink = std::function<void(const LogRecord& record)>;

int TralogPrint(LogType type, LogLevel level, uint32_t domain, const char* tag, const char* fmt, ...);

// Lines below `level` are dropped before formatting.
void SetLogLevel(LogLevel level);
LogLevel GetLogLevel();
bool IsLogLevelEnabled(LogLevel level);
// "DEBUG" .. "FATAL" (and "WARNING") or "3" .. "7", case-insensitive; false
// when unknown.
bool ParseLogLevel(const std::string& text, LogLevel& level);
const char* LogLevelToString(LogLevel level);

// Replaces the sink (an empty function restores the standard-error sink).
// The sink may be called from any thread, one line at a time.
void SetLogSink(LogSink sink);
void ResetLogSink();
// The installed sink; empty while the standard-error sink is in use.
LogSink GetLogSink();
// The standard-error sink: "LEVEL domain/tag: message", the tag and the
// message escaped and the arguments capped as described at the top. With
// timestamps on, each line starts with the local time to the microsecond.
void WriteToStderr(const LogRecord& record);
void SetStderrTimestamps(bool enabled);

// Collects every line while it lives: installs its own sink and lowers the
// threshold to DEBUG, restoring both when destroyed. For tests and for
// applications that want the library's lines.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> Records() const;
    // Messages only, in order.
    std::vector<std::string> Messages() const;
    // Lines whose message contains `text`.
    size_t Count(const std::string& text) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
    LogLevel savedLevel_;
    LogSink savedSink_;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRALOG_H
