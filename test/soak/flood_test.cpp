// A client that floods devicedetectd and never reads its answers, and a
// thousand clients that come and go: the other clients' calls keep being
// answered, and the service's memory stays bounded and comes back down.
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "message_parcel.h"
#include "socket_transport.h"
#include "soak_util.h"

namespace DeviceDetectSoak {
namespace {

#ifdef DD_SOAK_SANITIZED
// The sanitizers' own memory grows with the work done (see soak_test.cpp).
constexpr bool CHECK_RESIDENT_SIZE = false;
#else
constexpr bool CHECK_RESIDENT_SIZE = true;
#endif
constexpr uint64_t MIB_KB = 1024;

// A connection of our own to the service, speaking frames by hand.
int Connect()
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = GetSystemAbilitySocketPath(SYNTAVO_DEVICE_DETECT_SA_ID);
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// GET_TRUSTED_DEVICE_LIST as a whole frame: header, token, empty string.
std::vector<uint8_t> ListRequest(uint64_t callId)
{
    MessageParcel data;
    data.WriteInterfaceToken(Descriptor::DEVICE_DETECT);
    data.WriteString("");
    struct {
        uint32_t length;
        uint8_t magic[2] = {'T', 'V'};
        uint8_t version = 1;
        uint8_t kind = 1;
        uint64_t callId;
        uint32_t target = 0;
        uint32_t code = static_cast<uint32_t>(DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST);
        uint32_t flags = 0;
        uint16_t objects = 0;
        uint16_t reserved = 0;
    } __attribute__((packed)) header;
    static_assert(sizeof(header) == 32, "the frame header");
    header.length = static_cast<uint32_t>(data.GetDataSize());
    header.callId = callId;
    std::vector<uint8_t> frame(sizeof(header) + data.GetDataSize());
    std::memcpy(frame.data(), &header, sizeof(header));
    std::memcpy(frame.data() + sizeof(header), data.GetData(), data.GetDataSize());
    return frame;
}

bool SendAll(int fd, const std::vector<uint8_t>& bytes)
{
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Reads one whole reply frame.
bool ReadReply(int fd)
{
    uint32_t header[8];
    if (recv(fd, header, sizeof(header), MSG_WAITALL) != static_cast<ssize_t>(sizeof(header))) {
        return false;
    }
    char chunk[4096];
    for (size_t left = header[0]; left > 0;) {
        ssize_t got = recv(fd, chunk, std::min(left, sizeof(chunk)), 0);
        if (got <= 0) {
            return false;
        }
        left -= static_cast<size_t>(got);
    }
    return true;
}

using FloodTest = DaemonTest;

TEST_F(FloodTest, AClientThatNeverReadsCostsTheOthersNothing)
{
    constexpr uint64_t FLOOD = 2000;
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    // The device's switch status; a failure would be 1001 or 1006..1008.
    const int32_t status = proxy->GetDeviceSwitch("udid-car-0001");
    ASSERT_TRUE(status < 1001 || status > 1008) << status;
    const uint64_t idleKb = ResidentKb(daemon_->Pid());

    int fd = Connect();
    ASSERT_GE(fd, 0);
    // The service stops reading the flooder once its answers pile up; the
    // flooder then waits in send() until the test shuts its socket.
    std::vector<uint8_t> flood;
    for (uint64_t id = 1; id <= FLOOD; ++id) {
        std::vector<uint8_t> frame = ListRequest(id);
        flood.insert(flood.end(), frame.begin(), frame.end());
    }
    std::thread flooder([&] {
        for (size_t at = 0; at < flood.size();) {
            ssize_t sent = send(fd, flood.data() + at, flood.size() - at, MSG_NOSIGNAL);
            if (sent <= 0) {
                break;
            }
            at += static_cast<size_t>(sent);
        }
    });
    uint64_t failures = 0;
    uint64_t peakKb = idleKb;
    constexpr uint64_t CALLS = 500;
    for (uint64_t call = 0; call < CALLS; ++call) {
        failures += proxy->GetDeviceSwitch("udid-car-0001") == status ? 0 : 1;
        peakKb = std::max(peakKb, ResidentKb(daemon_->Pid()));
    }
    shutdown(fd, SHUT_RDWR);
    flooder.join();
    close(fd);
    const uint64_t calls = CALLS;
    EXPECT_EQ(failures, 0u) << "of " << calls << " calls";
    if (CHECK_RESIDENT_SIZE) {
        EXPECT_LT(peakKb - idleKb, 32 * MIB_KB) << "kB more than idle while flooded";
    }
    ExpectCleanStop();
}

TEST_F(FloodTest, AThousandClientsComeAndGoAndTheMemoryComesBack)
{
    const uint64_t count = EnvCount("DD_FLOOD_CONNECTIONS", 1000);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    ASSERT_GT(limit.rlim_cur, count + 64) << "too few descriptors for the test";
    const uint64_t idleKb = ResidentKb(daemon_->Pid());

    std::vector<int> fds;
    for (uint64_t i = 0; i < count; ++i) {
        int fd = Connect();
        ASSERT_GE(fd, 0) << "connection " << i;
        fds.push_back(fd);
        ASSERT_TRUE(SendAll(fd, ListRequest(1)) && ReadReply(fd)) << "connection " << i;
    }
    const uint64_t openKb = ResidentKb(daemon_->Pid());
    for (int fd : fds) {
        close(fd);
    }
    uint64_t nowKb = openKb;
    bool returned = Tavik::Test::WaitUntil([&] {
        nowKb = ResidentKb(daemon_->Pid());
        return nowKb <= idleKb + 2 * MIB_KB;
    });
    std::printf("daemon: %llu kB idle, %llu kB with %llu clients, %llu kB after they left\n",
                static_cast<unsigned long long>(idleKb), static_cast<unsigned long long>(openKb),
                static_cast<unsigned long long>(count), static_cast<unsigned long long>(nowKb));
    if (CHECK_RESIDENT_SIZE) {
        EXPECT_LT((openKb - idleKb) * 1024 / count, 16u * 1024) << "bytes per connection";
        EXPECT_TRUE(returned) << idleKb << " kB idle, " << openKb << " kB with " << count << " clients, " << nowKb
                              << " kB after they left";
    }
    ExpectCleanStop();
}

}  // namespace
}  // namespace DeviceDetectSoak
