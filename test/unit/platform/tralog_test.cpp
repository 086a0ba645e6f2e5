// The platform log: privacy decorations, the threshold, sinks, LogCapture,
// level names and the TAVIK_LOG_LEVEL variable.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tralog.h"

namespace Tavik {
namespace {

constexpr uint32_t kDomain = 0xD0046FF;
constexpr const char* kTag = "TavikTest";
constexpr const char* kProbeEnv = "TAVIK_TEST_LOG_LEVEL_PROBE";

// When this binary is re-executed as a probe, it prints the threshold that
// the environment chose and exits before any test runs (see LogLevelEnvTest).
[[maybe_unused]] const bool g_isProbe = [] {
    if (std::getenv(kProbeEnv) == nullptr) {
        return false;
    }
    std::printf("%d\n", static_cast<int>(GetLogLevel()));
    std::fflush(stdout);
    std::_Exit(0);
}();

// Restores the process-wide log state that a test changes.
class TralogTest : public testing::Test {
protected:
    void SetUp() override { savedLevel_ = GetLogLevel(); }
    void TearDown() override
    {
        ResetLogSink();
        SetLogLevel(savedLevel_);
        SetStderrTimestamps(false);
    }

private:
    LogLevel savedLevel_ = LOG_WARN;
};

struct FormatCase {
    const char* name;
    std::function<void()> print;
    std::string expected;
};

#define LOG_LINE(...) TralogPrint(LOG_CORE, LOG_INFO, kDomain, kTag, __VA_ARGS__)

const std::vector<FormatCase>& FormatCases()
{
    static const std::vector<FormatCase> cases = {
        {"plain text", [] { LOG_LINE("no conversions at all"); }, "no conversions at all"},
        {"public string", [] { LOG_LINE("name=%{public}s.", "abc"); }, "name=abc."},
        {"public int", [] { LOG_LINE("%{public}d", -2147483647 - 1); }, "-2147483648"},
        {"public unsigned long", [] { LOG_LINE("%{public}lu", 18446744073709551615ul); }, "18446744073709551615"},
        {"public size_t", [] { LOG_LINE("n=%{public}zu", size_t{1024}); }, "n=1024"},
        {"private string", [] { LOG_LINE("pw=%{private}s", "secret"); }, "pw=<private>"},
        {"undecorated int is private", [] { LOG_LINE("%d|%u", 1, 2u); }, "<private>|<private>"},
        {"percent sign", [] { LOG_LINE("100%% of %{public}d", 3); }, "100% of 3"},
        // Private arguments are still consumed, so the public ones after them line up.
        {"private then public", [] { LOG_LINE("%{private}s %{public}d %s %{public}s", "x", 7, "y", "z"); },
         "<private> 7 <private> z"},
        {"mixed widths", [] { LOG_LINE("%{public}zu %{private}lu %{public}lu", size_t{1}, 2ul, 3ul); },
         "1 <private> 3"},
        {"width and precision", [] { LOG_LINE("%{public}5d|%{public}.2s|%{public}-3u|", 7, "abc", 1u); },
         "    7|ab|1  |"},
        {"long public string", [] { LOG_LINE("<%{public}s>", std::string(5000, 'q').c_str()); },
         "<" + std::string(5000, 'q') + ">"},
        {"the library's prefix",
         [] {
             LOG_LINE("[%{public}s:%{public}d]%{public}s# create:device = %{public}s", "ability_filter", 58,
                      "DeviceInfo", "abc****xyz");
         },
         "[ability_filter:58]DeviceInfo# create:device = abc****xyz"},
    };
    return cases;
}

TEST_F(TralogTest, FormatsWithPrivacy)
{
    for (const FormatCase& c : FormatCases()) {
        LogCapture capture;
        c.print();
        std::vector<LogRecord> records = capture.Records();
        ASSERT_EQ(records.size(), 1u) << c.name;
        EXPECT_EQ(records[0].message, c.expected) << c.name;
        EXPECT_EQ(records[0].type, LOG_CORE) << c.name;
        EXPECT_EQ(records[0].level, LOG_INFO) << c.name;
        EXPECT_EQ(records[0].domain, kDomain) << c.name;
        EXPECT_EQ(records[0].tag, kTag) << c.name;
    }
}

TEST_F(TralogTest, ThresholdDropsLinesBeforeTheSink)
{
    std::vector<LogRecord> seen;
    SetLogSink([&seen](const LogRecord& r) { seen.push_back(r); });
    SetLogLevel(LOG_ERROR);
    EXPECT_EQ(GetLogLevel(), LOG_ERROR);
    const LogLevel levels[] = {LOG_DEBUG, LOG_INFO, LOG_WARN, LOG_ERROR, LOG_FATAL};
    for (LogLevel level : levels) {
        EXPECT_EQ(IsLogLevelEnabled(level), level >= LOG_ERROR) << LogLevelToString(level);
        TralogPrint(LOG_APP, level, kDomain, kTag, "%{public}s %{private}s", LogLevelToString(level), "secret");
    }
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].level, LOG_ERROR);
    EXPECT_EQ(seen[0].type, LOG_APP);
    EXPECT_EQ(seen[0].message, std::string(LogLevelToString(LOG_ERROR)) + " <private>");
    EXPECT_EQ(seen[1].level, LOG_FATAL);

    seen.clear();
    SetLogLevel(LOG_DEBUG);
    TralogPrint(LOG_CORE, LOG_DEBUG, kDomain, kTag, "now visible");
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].message, "now visible");
}

// LogCapture puts back whatever sink and level were there before it,
// including another capture's.
TEST_F(TralogTest, LogCaptureRestoresPreviousState)
{
    std::vector<std::string> mine;
    SetLogSink([&mine](const LogRecord& r) { mine.push_back(r.message); });
    SetLogLevel(LOG_ERROR);
    {
        LogCapture outer;
        EXPECT_EQ(GetLogLevel(), LOG_DEBUG);
        TralogPrint(LOG_CORE, LOG_DEBUG, kDomain, kTag, "outer line");
        {
            LogCapture inner;
            TralogPrint(LOG_CORE, LOG_INFO, kDomain, kTag, "inner line");
            EXPECT_EQ(inner.Messages(), std::vector<std::string>{"inner line"});
        }
        EXPECT_EQ(GetLogLevel(), LOG_DEBUG) << "the inner capture restores the outer's level";
        TralogPrint(LOG_CORE, LOG_INFO, kDomain, kTag, "outer again");
        EXPECT_EQ(outer.Messages(), (std::vector<std::string>{"outer line", "outer again"}))
            << "the inner capture must hand the sink back to the outer one";
    }
    EXPECT_EQ(GetLogLevel(), LOG_ERROR);
    EXPECT_TRUE(mine.empty());
    TralogPrint(LOG_CORE, LOG_WARN, kDomain, kTag, "below");
    TralogPrint(LOG_CORE, LOG_ERROR, kDomain, kTag, "back to mine");
    EXPECT_EQ(mine, std::vector<std::string>{"back to mine"});
}

TEST_F(TralogTest, LogCaptureQueries)
{
    LogCapture capture;
    TralogPrint(LOG_CORE, LOG_INFO, kDomain, kTag, "alpha %{public}d", 1);
    TralogPrint(LOG_APP, LOG_ERROR, 0x1234, "other", "beta");
    TralogPrint(LOG_CORE, LOG_WARN, kDomain, kTag, "alpha %{public}d", 2);
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"alpha 1", "beta", "alpha 2"}));
    EXPECT_EQ(capture.Count("alpha"), 2u);
    EXPECT_EQ(capture.Count("gamma"), 0u);
    capture.Clear();
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(TralogTest, LinesFromManyThreadsArriveWhole)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    LogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                TralogPrint(LOG_CORE, LOG_INFO, kDomain, kTag, "thread %{public}d line %{public}d", t, i);
            }
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    std::vector<std::string> messages = capture.Messages();
    ASSERT_EQ(messages.size(), size_t{kThreads * kLines});
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(capture.Count("thread " + std::to_string(t) + " line "), size_t{kLines}) << t;
    }
}

// Runs fn with standard error sent to a file; returns what was written.
std::string CaptureStderr(const std::function<void()>& fn)
{
    std::FILE* file = std::tmpfile();
    std::fflush(stderr);
    int saved = dup(STDERR_FILENO);
    dup2(fileno(file), STDERR_FILENO);
    fn();
    std::fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string out(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
    std::rewind(file);
    out.resize(std::fread(&out[0], 1, out.size(), file));
    std::fclose(file);
    return out;
}

TEST_F(TralogTest, StderrSink)
{
    LogRecord record{LOG_CORE, LOG_ERROR, kDomain, kTag, "it broke"};
    SetStderrTimestamps(false);
    std::string plain = CaptureStderr([&] { WriteToStderr(record); });
    EXPECT_EQ(plain.rfind("ERROR ", 0), 0u) << plain;
    EXPECT_NE(plain.find("/TavikTest: it broke\n"), std::string::npos) << plain;

    SetStderrTimestamps(true);
    std::string stamped = CaptureStderr([&] { WriteToStderr(record); });
    ASSERT_FALSE(stamped.empty());
    EXPECT_TRUE(stamped[0] >= '0' && stamped[0] <= '9') << "a timestamp comes first: " << stamped;
    EXPECT_NE(stamped.find("ERROR "), std::string::npos) << stamped;
    SetStderrTimestamps(false);

    // The default sink is this one.
    ResetLogSink();
    SetLogLevel(LOG_WARN);
    std::string viaPrint = CaptureStderr([] {
        TralogPrint(LOG_CORE, LOG_WARN, kDomain, kTag, "careful %{public}s %s", "now", "hidden");
        TralogPrint(LOG_CORE, LOG_INFO, kDomain, kTag, "not shown");
    });
    EXPECT_EQ(viaPrint.rfind("WARN ", 0), 0u) << viaPrint;
    EXPECT_NE(viaPrint.find("/TavikTest: careful now <private>\n"), std::string::npos) << viaPrint;
    EXPECT_EQ(viaPrint.find("not shown"), std::string::npos) << viaPrint;
}

// What a peer can put into an argument reaches standard error as one line,
// escaped and capped; an installed sink still gets the text as formatted.
TEST_F(TralogTest, StderrSinkEscapesAndCapsArguments)
{
    const std::string cut1030(1030, 'a');
    const std::string utf8Cut = std::string(1023, 'a') + "\xc3\xa9" + "bc";
    struct Case {
        const char* name;
        const char* fmt;
        std::string argument;
        std::string expected;  // after "TavikTest: "
    };
    const Case cases[] = {
        {"forged line and escape sequence", "token \"%{public}s\"", "x\nWARN 0x1/Tag: forged\x1b[31m",
         R"(token "x\nWARN 0x1/Tag: forged\x1b[31m")"},
        {"other controls", "<%{public}s>", "\t\r\x01\x7f\xc2\x9b", R"(<\t\r\x01\x7f\xc2\x9b>)"},
        {"text and UTF-8 stay", "%{public}s!", "Alice\xe2\x80\x99s Watch \\n", "Alice\xe2\x80\x99s Watch \\n!"},
        {"long argument", "[%{public}s]", cut1030, "[" + std::string(1024, 'a') + "...[6 more bytes]]"},
        {"cut before a UTF-8 character", "%{public}s", utf8Cut, std::string(1023, 'a') + "...[4 more bytes]"},
        {"private argument", "%{private}s\x1b", "\n", R"(<private>\x1b)"},
    };
    ResetLogSink();
    SetLogLevel(LOG_WARN);
    for (const Case& c : cases) {
        std::string out =
            CaptureStderr([&] { TralogPrint(LOG_CORE, LOG_WARN, kDomain, kTag, c.fmt, c.argument.c_str()); });
        std::string head = "/TavikTest: ";
        size_t at = out.find(head);
        ASSERT_NE(at, std::string::npos) << c.name << ": " << out;
        EXPECT_EQ(out.substr(at + head.size()), c.expected + "\n") << c.name;
    }
    LogCapture capture;
    TralogPrint(LOG_CORE, LOG_WARN, kDomain, kTag, "%{public}s|%{public}s", "a\nb", cut1030.c_str());
    std::vector<LogRecord> records = capture.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "a\nb|" + cut1030) << "an installed sink gets the exact text";
    ASSERT_EQ(records[0].arguments.size(), 2u);
    EXPECT_EQ(records[0].arguments[1].begin, 4u);
    EXPECT_EQ(records[0].arguments[1].end, 1034u);

    // A record made by hand has no spans: escaped, not capped.
    LogRecord manual{LOG_CORE, LOG_ERROR, kDomain, "tag\n", "two\nlines"};
    std::string out = CaptureStderr([&] { WriteToStderr(manual); });
    EXPECT_NE(out.find(R"(/tag\n: two\nlines)"
                       "\n"),
              std::string::npos)
        << out;
}

TEST(LogLevelTest, ParseLogLevel)
{
    struct Case {
        const char* text;
        bool ok;
        LogLevel level;
    };
    const Case cases[] = {
        {"DEBUG", true, LOG_DEBUG}, {"Info", true, LOG_INFO}, {"WARN", true, LOG_WARN}, {"error", true, LOG_ERROR},
        {"FATAL", true, LOG_FATAL}, {"3", true, LOG_DEBUG},   {"7", true, LOG_FATAL},   {"", false, LOG_WARN},
        {"2", false, LOG_WARN},     {"8", false, LOG_WARN},   {"5x", false, LOG_WARN},  {" 5", false, LOG_WARN},
        {"INFO ", false, LOG_WARN}, {"35", false, LOG_WARN},
    };
    for (const Case& c : cases) {
        LogLevel level = LOG_FATAL;
        EXPECT_EQ(ParseLogLevel(c.text, level), c.ok) << '"' << c.text << '"';
        if (c.ok) {
            EXPECT_EQ(level, c.level) << '"' << c.text << '"';
        }
    }
    const std::pair<LogLevel, const char*> names[] = {
        {LOG_DEBUG, "DEBUG"}, {LOG_INFO, "INFO"}, {LOG_WARN, "WARN"}, {LOG_ERROR, "ERROR"}, {LOG_FATAL, "FATAL"}};
    for (const auto& [level, name] : names) {
        EXPECT_STREQ(LogLevelToString(level), name);
    }
}

// Re-executes this binary with the given TAVIK_LOG_LEVEL (null: unset) so the
// variable is read at the first use of a fresh process; returns the threshold
// the probe printed, or -1. This process reads its own level first, so
// changing its environment changes nothing here.
int ProbeLevel(const char* value)
{
    GetLogLevel();
    char exe[4096] = {};
    if (readlink("/proc/self/exe", exe, sizeof(exe) - 1) <= 0) {
        return -1;
    }
    setenv(kProbeEnv, "1", 1);
    value != nullptr ? setenv("TAVIK_LOG_LEVEL", value, 1) : unsetenv("TAVIK_LOG_LEVEL");
    FILE* probe = popen((std::string("'") + exe + "'").c_str(), "r");
    unsetenv(kProbeEnv);
    int level = -1;
    if (probe == nullptr || std::fscanf(probe, "%d", &level) != 1) {
        level = -1;
    }
    return probe != nullptr && pclose(probe) == 0 ? level : -1;
}

TEST(LogLevelEnvTest, ThresholdComesFromTheEnvironment)
{
    struct Case {
        const char* value;
        LogLevel expected;
    };
    const Case cases[] = {
        {nullptr, LOG_WARN}, {"ERROR", LOG_ERROR}, {"debug", LOG_DEBUG},
        {"7", LOG_FATAL},    {"bogus", LOG_WARN},  {"", LOG_WARN},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ProbeLevel(c.value), static_cast<int>(c.expected))
            << "TAVIK_LOG_LEVEL=" << (c.value != nullptr ? c.value : "(unset)");
    }
}

}  // namespace
}  // namespace Tavik
