// Finding the library's log lines in a LogCapture.
//
// Every line of the client library has the form
//   "[file:line]function# text"
// Tests match the file, the function and the text exactly and ignore the
// line number, so moving a statement within its file breaks no test.
#ifndef DD_TEST_LOG_MATCHERS_H
#define DD_TEST_LOG_MATCHERS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tralog.h"

namespace DdTest {

struct LogLine {
    std::string file;
    int line = 0;
    std::string function;
    std::string text;
};

// Splits "[file:line]function# text"; false when the message has another
// shape.
inline bool ParseLogLine(const std::string& message, LogLine& out)
{
    if (message.empty() || message[0] != '[') {
        return false;
    }
    size_t colon = message.find(':');
    size_t close = message.find(']');
    size_t hash = message.find("# ", close == std::string::npos ? 0 : close);
    if (colon == std::string::npos || close == std::string::npos || hash == std::string::npos || colon > close) {
        return false;
    }
    std::string number = message.substr(colon + 1, close - colon - 1);
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    out.file = message.substr(1, colon - 1);
    out.line = std::stoi(number);
    out.function = message.substr(close + 1, hash - close - 1);
    out.text = message.substr(hash + 2);
    return true;
}

// What a test expects of one line; the line number is not compared.
struct ExpectedLine {
    Tavik::LogLevel level;
    uint32_t domain;
    std::string tag;
    std::string file;
    std::string function;
    std::string text;
};

inline bool Matches(const Tavik::LogRecord& record, const ExpectedLine& expected)
{
    LogLine parsed;
    return record.type == Tavik::LOG_CORE && record.level == expected.level && record.domain == expected.domain &&
           record.tag == expected.tag && ParseLogLine(record.message, parsed) && parsed.file == expected.file &&
           parsed.function == expected.function && parsed.text == expected.text;
}

inline size_t CountLines(const std::vector<Tavik::LogRecord>& records, const ExpectedLine& expected)
{
    size_t count = 0;
    for (const auto& record : records) {
        count += Matches(record, expected) ? 1 : 0;
    }
    return count;
}

// Lines of one function whose text is exactly `text`, whatever their file,
// level or label.
inline size_t CountText(const std::vector<Tavik::LogRecord>& records, const std::string& function,
                        const std::string& text)
{
    size_t count = 0;
    LogLine parsed;
    for (const auto& record : records) {
        if (ParseLogLine(record.message, parsed) && parsed.function == function && parsed.text == text) {
            ++count;
        }
    }
    return count;
}

inline std::string DescribeRecords(const std::vector<Tavik::LogRecord>& records)
{
    std::string out;
    for (const auto& record : records) {
        out += "\n  [" + std::string(Tavik::LogLevelToString(record.level)) + " " + std::to_string(record.domain) +
               "/" + record.tag + "] " + record.message;
    }
    return out.empty() ? "\n  (no lines)" : out;
}

// Success when exactly `times` captured lines match; the failure message
// lists every captured line.
inline ::testing::AssertionResult Logged(const Tavik::LogCapture& capture, const ExpectedLine& expected,
                                         size_t times = 1)
{
    auto records = capture.Records();
    size_t count = CountLines(records, expected);
    if (count == times) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "expected " << times << " line(s) \"" << expected.file << ":"
                                         << expected.function << "# " << expected.text << "\" at level "
                                         << Tavik::LogLevelToString(expected.level) << ", found " << count
                                         << "; captured:" << DescribeRecords(records);
}

// Success when the captured lines, reduced to "function# text", are exactly
// `expected` in order.
inline ::testing::AssertionResult LoggedSequence(const Tavik::LogCapture& capture,
                                                 const std::vector<std::string>& expected)
{
    auto records = capture.Records();
    std::vector<std::string> actual;
    LogLine parsed;
    for (const auto& record : records) {
        actual.push_back(ParseLogLine(record.message, parsed) ? parsed.function + "# " + parsed.text
                                                              : "(unparsed) " + record.message);
    }
    if (actual == expected) {
        return ::testing::AssertionSuccess();
    }
    auto failure = ::testing::AssertionFailure() << "expected:";
    for (const auto& line : expected) {
        failure << "\n  " << line;
    }
    failure << "\ncaptured:" << DescribeRecords(records);
    return failure;
}

}  // namespace DdTest

#endif  // DD_TEST_LOG_MATCHERS_H
