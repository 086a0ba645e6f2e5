// Device lists are decoded straight into the caller's vector. What the caller
// and the log see must be what reading each record onto the heap and
// appending a copy gave: per present record the record's "create:" line and
// the "destory:" line of the decoded record, with the destructor's own prefix.
#include <gtest/gtest.h>

#include "log_lines.h"
#include "proxy_test_support.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Test {
namespace {

using Tavik::Test::FakeRemoteObject;
using Tavik::Test::LinesAt;
using Tavik::Test::LogLine;
using Tavik::Test::ParseLogLines;

constexpr uint32_t CLIENT_DOMAIN = 0xD004612;

// The prefix of the line a DeviceInfo's destructor writes.
LogLine DestructorLine()
{
    LogCapture capture;
    {
        DeviceInfo("u", "n", "d", 1);
    }
    for (const LogLine& line : ParseLogLines(capture)) {
        if (line.function == "~DeviceInfo") {
            return line;
        }
    }
    ADD_FAILURE() << "no destructor line";
    return LogLine();
}

TEST(ListDecodingTest, EachRecordLogsItsCreationAndTheDecodedCopysDestruction)
{
    sptr<FakeRemoteObject> remote = new FakeRemoteObject();
    sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
    remote->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(3);
        WriteDevice(r, "udid-a-0001", 14);
        WriteAbsent(r);
        WriteDevice(r, "udid-b-0002", 156);
    }));
    const LogLine destructor = DestructorLine();

    LogCapture capture;
    std::vector<DeviceInfo> devices;
    ASSERT_EQ(proxy->GetTrustedDeviceList("", devices), 0);

    EXPECT_EQ(Render(devices),
              "[udid-a-0001|n-udid-a-0001|d-udid-a-0001|14, udid-b-0002|n-udid-b-0002|d-udid-b-0002|156]");
    EXPECT_EQ(LinesAt(capture, LOG_INFO, CLIENT_DOMAIN),
              (std::vector<std::string>{
                  "DeviceInfo# create:device = n-u****001, deviceName= d-udid-a-0001, deviceType = 14",
                  "~DeviceInfo# destory:device = n-u****001, deviceName= d-udid-a-0001, deviceType = 14",
                  "DeviceInfo# create:device = n-u****002, deviceName= d-udid-b-0002, deviceType = 156",
                  "~DeviceInfo# destory:device = n-u****002, deviceName= d-udid-b-0002, deviceType = 156",
              }));
    EXPECT_EQ(LinesAt(capture, LOG_ERROR),
              std::vector<std::string>{"GetTrustedDeviceList# GetTrustedDeviceList ReadStrongParcelable nullptr"});
    for (const LogLine& line : ParseLogLines(capture)) {
        if (line.function == "~DeviceInfo") {
            EXPECT_EQ(line.file, destructor.file);
            EXPECT_EQ(line.line, destructor.line) << "the destructor's own statement writes the line";
        }
    }

    // The records handed out are ordinary values: destroying them logs as
    // destroying any DeviceInfo does.
    capture.Clear();
    devices.clear();
    EXPECT_EQ(LinesAt(capture, LOG_INFO, CLIENT_DOMAIN),
              (std::vector<std::string>{
                  "~DeviceInfo# destory:device = n-u****001, deviceName= d-udid-a-0001, deviceType = 14",
                  "~DeviceInfo# destory:device = n-u****002, deviceName= d-udid-b-0002, deviceType = 156",
              }));
}

// The records are built in place at the end of the caller's vector: what was
// there stays in front and keeps its values, also when the vector has to
// grow for the new records.
TEST(ListDecodingTest, RecordsAreBuiltBehindWhatTheVectorHeld)
{
    sptr<FakeRemoteObject> remote = new FakeRemoteObject();
    sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
    remote->SetReply(BuildParcel([](MessageParcel& r) {
        r.WriteUint32(2);
        WriteDevice(r, "x", 1);
        WriteDevice(r, "y", 2);
    }));
    std::vector<DeviceInfo> devices;
    devices.reserve(1);
    devices.emplace_back("keep", "n-keep", "d-keep", 7);

    ASSERT_EQ(proxy->GetTrustedDeviceList("", devices), 0);
    EXPECT_EQ(Render(devices), "[keep|n-keep|d-keep|7, x|n-x|d-x|1, y|n-y|d-y|2]");
}

}  // namespace
}  // namespace Test
}  // namespace Syntavo
}  // namespace Tavik
