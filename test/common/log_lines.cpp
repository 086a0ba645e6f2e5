#include "log_lines.h"

namespace Tavik {
namespace Test {

LogLine ParseLogLine(const LogRecord& record)
{
    LogLine line;
    line.type = record.type;
    line.level = record.level;
    line.domain = record.domain;
    line.tag = record.tag;
    line.text = record.message;
    const std::string& message = record.message;
    // [file:123]Function# text
    if (message.empty() || message[0] != '[') {
        return line;
    }
    size_t close = message.find(']');
    size_t colon = message.rfind(':', close);
    size_t hash = message.find("# ", close);
    if (close == std::string::npos || colon == std::string::npos || colon == 0 || hash == std::string::npos) {
        return line;
    }
    std::string number = message.substr(colon + 1, close - colon - 1);
    if (number.empty() || number.size() > 9 || number.find_first_not_of("0123456789") != std::string::npos) {
        return line;
    }
    line.file = message.substr(1, colon - 1);
    line.line = std::stoi(number);
    line.function = message.substr(close + 1, hash - close - 1);
    line.text = message.substr(hash + 2);
    return line;
}

std::vector<LogLine> ParseLogLines(const LogCapture& capture)
{
    std::vector<LogLine> lines;
    for (const LogRecord& record : capture.Records()) {
        lines.push_back(ParseLogLine(record));
    }
    return lines;
}

std::vector<std::string> LinesAt(const LogCapture& capture, LogLevel level, uint32_t domain)
{
    std::vector<std::string> result;
    for (const LogLine& line : ParseLogLines(capture)) {
        if (line.level == level && line.domain == domain) {
            result.push_back(line.Short());
        }
    }
    return result;
}

std::vector<std::string> AllLines(const LogCapture& capture, uint32_t domain)
{
    std::vector<std::string> result;
    for (const LogLine& line : ParseLogLines(capture)) {
        if (line.domain == domain) {
            result.push_back(LogLevelToString(line.level)[0] + (" " + line.Short()));
        }
    }
    return result;
}

std::string CheckPrefixes(const LogCapture& capture, const std::string& file, uint32_t domain, const std::string& tag)
{
    for (const LogLine& line : ParseLogLines(capture)) {
        if (line.domain != domain) {
            continue;
        }
        if (line.type != LOG_CORE || line.tag != tag || line.file != file || line.line <= 0) {
            return "unexpected prefix, type or tag: [" + line.file + ":" + std::to_string(line.line) + "]" +
                   line.function + "# " + line.text + " (tag " + line.tag + ")";
        }
    }
    return std::string();
}

}  // namespace Test
}  // namespace Tavik
