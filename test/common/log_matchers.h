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

#include "log_lines.h"
#include "tralog.h"

namespace DdTest {

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
    Tavik::Test::LogLine parsed = Tavik::Test::ParseLogLine(record);
    return record.type == Tavik::LOG_CORE && record.level == expected.level && record.domain == expected.domain &&
           record.tag == expected.tag && !parsed.file.empty() && parsed.file == expected.file &&
           parsed.function == expected.function && parsed.text == expected.text;
}

// Lines of one function whose text is exactly `text`, whatever their file,
// level or label.
inline size_t CountText(const std::vector<Tavik::LogRecord>& records, const std::string& function,
                        const std::string& text)
{
    size_t count = 0;
    for (const auto& record : records) {
        Tavik::Test::LogLine parsed = Tavik::Test::ParseLogLine(record);
        count += !parsed.file.empty() && parsed.function == function && parsed.text == text ? 1 : 0;
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
    size_t count = 0;
    for (const auto& record : records) {
        count += Matches(record, expected) ? 1 : 0;
    }
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
    for (const auto& record : records) {
        Tavik::Test::LogLine parsed = Tavik::Test::ParseLogLine(record);
        actual.push_back(parsed.file.empty() ? "(unparsed) " + record.message : parsed.Short());
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
