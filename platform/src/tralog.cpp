#include "tralog.h"

#include <strings.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace Tavik {

namespace {

constexpr int LEVEL_UNSET = -1;
// Constant-initialised, so IsLogLevelEnabled is safe during static
// initialisation of any library; the environment is read on first use.
std::atomic<int> g_level{LEVEL_UNSET};
std::atomic<bool> g_stderrTimestamps{false};

std::mutex& SinkMutex()
{
    static auto* mutex = new std::mutex();
    return *mutex;
}

LogSink& SinkSlot()
{
    static auto* sink = new LogSink();
    return *sink;
}

int InitialLevel()
{
    LogLevel level = LOG_WARN;
    const char* env = std::getenv("TAVIK_LOG_LEVEL");
    if (env != nullptr) {
        LogLevel parsed = LOG_WARN;
        if (ParseLogLevel(env, parsed)) {
            level = parsed;
        }
    }
    int expected = LEVEL_UNSET;
    g_level.compare_exchange_strong(expected, level, std::memory_order_relaxed);
    return g_level.load(std::memory_order_relaxed);
}

int CurrentLevel()
{
    int level = g_level.load(std::memory_order_relaxed);
    return level == LEVEL_UNSET ? InitialLevel() : level;
}

// Formats one printf-style line, honouring the privacy decorations, and
// notes where each public string argument went. All va_arg calls stay in
// this one function so that the va_list is only ever advanced by its owner.
std::string FormatLine(const char* fmt, va_list ap, std::vector<LogSpan>& spans)
{
    std::string out;
    if (fmt == nullptr) {
        return out;
    }
    char buffer[512];
    const char* p = fmt;
    while (*p != '\0') {
        if (*p != '%') {
            const char* next = std::strchr(p, '%');
            size_t len = next == nullptr ? std::strlen(p) : static_cast<size_t>(next - p);
            out.append(p, len);
            p += len;
            continue;
        }
        ++p;  // past '%'
        if (*p == '%') {
            out.push_back('%');
            ++p;
            continue;
        }
        bool isPublic = false;
        if (std::strncmp(p, "{public}", 8) == 0) {
            isPublic = true;
            p += 8;
        } else if (std::strncmp(p, "{private}", 9) == 0) {
            p += 9;
        }
        // Rebuild the conversion without the decoration.
        std::string spec = "%";
        while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) {
            spec.push_back(*p++);
        }
        int starArgs[2] = {0, 0};
        int starCount = 0;
        if (*p == '*') {
            starArgs[starCount++] = va_arg(ap, int);
            spec.push_back(*p++);
        } else {
            while (std::isdigit(static_cast<unsigned char>(*p)) != 0) {
                spec.push_back(*p++);
            }
        }
        if (*p == '.') {
            spec.push_back(*p++);
            if (*p == '*') {
                starArgs[starCount++] = va_arg(ap, int);
                spec.push_back(*p++);
            } else {
                while (std::isdigit(static_cast<unsigned char>(*p)) != 0) {
                    spec.push_back(*p++);
                }
            }
        }
        enum class Length { NONE, HH, H, L, LL, Z, J, T, BIG_L } length = Length::NONE;
        if (p[0] == 'h' && p[1] == 'h') {
            length = Length::HH;
        } else if (p[0] == 'l' && p[1] == 'l') {
            length = Length::LL;
        } else if (*p == 'h') {
            length = Length::H;
        } else if (*p == 'l') {
            length = Length::L;
        } else if (*p == 'z') {
            length = Length::Z;
        } else if (*p == 'j') {
            length = Length::J;
        } else if (*p == 't') {
            length = Length::T;
        } else if (*p == 'L') {
            length = Length::BIG_L;
        }
        if (length == Length::HH || length == Length::LL) {
            spec.append(p, 2);
            p += 2;
        } else if (length != Length::NONE) {
            spec.push_back(*p++);
        }
        char conv = *p;
        if (conv == '\0') {
            break;  // a dangling '%' at the end prints nothing
        }
        ++p;
        spec.push_back(conv);

        int written = 0;
        auto print = [&](auto value) {
            if (starCount == 0) {
                written = std::snprintf(buffer, sizeof(buffer), spec.c_str(), value);
            } else if (starCount == 1) {
                written = std::snprintf(buffer, sizeof(buffer), spec.c_str(), starArgs[0], value);
            } else {
                written = std::snprintf(buffer, sizeof(buffer), spec.c_str(), starArgs[0], starArgs[1], value);
            }
        };
        switch (conv) {
            case 'd':
            case 'i':
                switch (length) {
                    case Length::L:
                        print(va_arg(ap, long));
                        break;
                    case Length::LL:
                        print(va_arg(ap, long long));
                        break;
                    case Length::Z:
                        print(va_arg(ap, ssize_t));
                        break;
                    case Length::J:
                        print(va_arg(ap, intmax_t));
                        break;
                    case Length::T:
                        print(va_arg(ap, ptrdiff_t));
                        break;
                    default:
                        print(va_arg(ap, int));
                        break;
                }
                break;
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                switch (length) {
                    case Length::L:
                        print(va_arg(ap, unsigned long));
                        break;
                    case Length::LL:
                        print(va_arg(ap, unsigned long long));
                        break;
                    case Length::Z:
                        print(va_arg(ap, size_t));
                        break;
                    case Length::J:
                        print(va_arg(ap, uintmax_t));
                        break;
                    case Length::T:
                        print(va_arg(ap, ptrdiff_t));
                        break;
                    default:
                        print(va_arg(ap, unsigned int));
                        break;
                }
                break;
            case 'c':
                print(va_arg(ap, int));
                break;
            case 's': {
                const char* str = va_arg(ap, const char*);
                if (isPublic) {
                    // Long strings bypass the fixed buffer.
                    if (starCount == 0 && spec == "%s") {
                        auto begin = static_cast<uint32_t>(out.size());
                        out.append(str == nullptr ? "(null)" : str);
                        spans.push_back({begin, static_cast<uint32_t>(out.size())});
                        continue;
                    }
                    print(str == nullptr ? "(null)" : str);
                    if (written > 0) {
                        auto begin = static_cast<uint32_t>(out.size());
                        size_t size = std::min(static_cast<size_t>(written), sizeof(buffer) - 1);
                        spans.push_back({begin, static_cast<uint32_t>(begin + size)});
                    }
                }
                break;
            }
            case 'p':
                print(va_arg(ap, void*));
                break;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                if (length == Length::BIG_L) {
                    print(va_arg(ap, long double));
                } else {
                    print(va_arg(ap, double));
                }
                break;
            default:
                // Unknown conversion: print it as written, consume nothing.
                out.append(spec);
                continue;
        }
        if (!isPublic) {
            out.append("<private>");
        } else if (written > 0) {
            out.append(buffer, static_cast<size_t>(written) < sizeof(buffer) ? static_cast<size_t>(written)
                                                                             : sizeof(buffer) - 1);
        }
    }
    return out;
}

// Where a cut of `text` to at most `limit` bytes may fall: not inside a
// UTF-8 sequence (continuation bytes are 10xxxxxx).
size_t CutPoint(const char* text, size_t limit)
{
    size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
        --cut;
    }
    return cut;
}

// The message escaped, each argument span cut at LOG_ARGUMENT_CAP. Spans that
// do not fit the message (a record made by hand) are ignored; escaping alone
// still keeps the line one line.
void AppendMessage(std::string& line, const LogRecord& record)
{
    const std::string& message = record.message;
    size_t at = 0;
    for (const LogSpan& span : record.arguments) {
        if (span.begin < at || span.begin > span.end || span.end > message.size()) {
            continue;
        }
        AppendEscaped(line, message.data() + at, span.begin - at);
        size_t size = span.end - span.begin;
        const char* argument = message.data() + span.begin;
        if (size <= LOG_ARGUMENT_CAP) {
            AppendEscaped(line, argument, size);
        } else {
            size_t kept = CutPoint(argument, LOG_ARGUMENT_CAP);
            AppendEscaped(line, argument, kept);
            line.append("...[" + std::to_string(size - kept) + " more bytes]");
        }
        at = span.end;
    }
    AppendEscaped(line, message.data() + at, message.size() - at);
}

}  // namespace

void AppendEscaped(std::string& out, const char* text, size_t size)
{
    static const char HEX[] = "0123456789abcdef";
    auto hex = [&out](unsigned char byte) {
        out.append("\\x");
        out.push_back(HEX[byte >> 4]);
        out.push_back(HEX[byte & 0x0F]);
    };
    size_t start = 0;
    for (size_t i = 0; i < size; ++i) {
        auto byte = static_cast<unsigned char>(text[i]);
        bool c1 = byte == 0xC2 && i + 1 < size && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                  static_cast<unsigned char>(text[i + 1]) <= 0x9F;
        if (byte >= 0x20 && byte != 0x7F && !c1) {
            continue;
        }
        out.append(text + start, i - start);
        if (byte == '\n') {
            out.append("\\n");
        } else if (byte == '\r') {
            out.append("\\r");
        } else if (byte == '\t') {
            out.append("\\t");
        } else if (c1) {
            hex(byte);
            hex(static_cast<unsigned char>(text[++i]));
        } else {
            hex(byte);
        }
        start = i + 1;
    }
    out.append(text + start, size - start);
}

std::string EscapeControlCharacters(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    AppendEscaped(out, text.data(), text.size());
    return out;
}

int TralogPrint(LogType type, LogLevel level, uint32_t domain, const char* tag, const char* fmt, ...)
{
    if (static_cast<int>(level) < CurrentLevel()) {
        return 0;
    }
    va_list ap;
    va_start(ap, fmt);
    LogRecord record{type, level, domain, tag == nullptr ? std::string() : std::string(tag), std::string()};
    record.message = FormatLine(fmt, ap, record.arguments);
    va_end(ap);
    int size = static_cast<int>(record.message.size());
    std::lock_guard<std::mutex> lock(SinkMutex());
    LogSink& sink = SinkSlot();
    if (sink) {
        sink(record);
    } else {
        WriteToStderr(record);
    }
    return size;
}

void SetLogLevel(LogLevel level)
{
    g_level.store(static_cast<int>(level), std::memory_order_relaxed);
}

LogLevel GetLogLevel()
{
    return static_cast<LogLevel>(CurrentLevel());
}

bool IsLogLevelEnabled(LogLevel level)
{
    return static_cast<int>(level) >= CurrentLevel();
}

bool ParseLogLevel(const std::string& text, LogLevel& level)
{
    static const struct {
        const char* name;
        const char* number;
        LogLevel level;
    } levels[] = {
        {"DEBUG", "3", LOG_DEBUG}, {"INFO", "4", LOG_INFO},   {"WARN", "5", LOG_WARN},
        {"ERROR", "6", LOG_ERROR}, {"FATAL", "7", LOG_FATAL},
    };
    for (const auto& entry : levels) {
        if (strcasecmp(text.c_str(), entry.name) == 0 || text == entry.number) {
            level = entry.level;
            return true;
        }
    }
    if (strcasecmp(text.c_str(), "WARNING") == 0) {
        level = LOG_WARN;
        return true;
    }
    return false;
}

const char* LogLevelToString(LogLevel level)
{
    switch (level) {
        case LOG_DEBUG:
            return "DEBUG";
        case LOG_INFO:
            return "INFO";
        case LOG_WARN:
            return "WARN";
        case LOG_ERROR:
            return "ERROR";
        case LOG_FATAL:
            return "FATAL";
        default:
            return "UNKNOWN";
    }
}

void SetLogSink(LogSink sink)
{
    LogSink previous;
    std::lock_guard<std::mutex> lock(SinkMutex());
    previous.swap(SinkSlot());
    SinkSlot() = std::move(sink);
}

void ResetLogSink()
{
    SetLogSink(LogSink());
}

LogSink GetLogSink()
{
    std::lock_guard<std::mutex> lock(SinkMutex());
    return SinkSlot();
}

void SetStderrTimestamps(bool enabled)
{
    g_stderrTimestamps.store(enabled, std::memory_order_relaxed);
}

void WriteToStderr(const LogRecord& record)
{
    std::string line;
    line.reserve(record.message.size() + record.tag.size() + 64);
    if (g_stderrTimestamps.load(std::memory_order_relaxed)) {
        struct timeval now {};
        gettimeofday(&now, nullptr);
        struct tm local {};
        localtime_r(&now.tv_sec, &local);
        char stamp[40];
        size_t len = std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local);
        std::snprintf(stamp + len, sizeof(stamp) - len, ".%06ld ", static_cast<long>(now.tv_usec));
        line.append(stamp);
    }
    char head[64];
    std::snprintf(head, sizeof(head), "%s 0x%X/", LogLevelToString(record.level), record.domain);
    line.append(head);
    AppendEscaped(line, record.tag.data(), record.tag.size());
    line.append(": ");
    AppendMessage(line, record);
    line.push_back('\n');
    // One write per line keeps lines whole when several processes share the
    // terminal.
    size_t off = 0;
    while (off < line.size()) {
        ssize_t n = ::write(STDERR_FILENO, line.data() + off, line.size() - off);
        if (n <= 0) {
            break;
        }
        off += static_cast<size_t>(n);
    }
}

LogCapture::LogCapture() : savedLevel_(GetLogLevel()), savedSink_(GetLogSink())
{
    SetLogSink([this](const LogRecord& record) {
        std::lock_guard<std::mutex> lock(mutex_);
        records_.push_back(record);
    });
    SetLogLevel(LOG_DEBUG);
}

LogCapture::~LogCapture()
{
    SetLogSink(savedSink_);
    SetLogLevel(savedLevel_);
}

std::vector<LogRecord> LogCapture::Records() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

std::vector<std::string> LogCapture::Messages() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> messages;
    messages.reserve(records_.size());
    for (const auto& record : records_) {
        messages.push_back(record.message);
    }
    return messages;
}

size_t LogCapture::Count(const std::string& text) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    size_t count = 0;
    for (const auto& record : records_) {
        if (record.message.find(text) != std::string::npos) {
            ++count;
        }
    }
    return count;
}

void LogCapture::Clear()
{
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

}  // namespace Tavik
