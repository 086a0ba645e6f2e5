// Runtime directory, socket permissions, publishing and peer credentials.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "ipc_status.h"
#include "socket_transport.h"
#include "tralog.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

// lstat() of the path; st_mode 0 when it does not exist.
struct stat StatOf(const std::string& path)
{
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        info.st_mode = 0;
    }
    return info;
}

// Sets (or, with null, clears) an environment variable for the scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name), hadOld_(std::getenv(name) != nullptr)
    {
        old_ = hadOld_ ? std::getenv(name) : "";
        value == nullptr ? unsetenv(name) : setenv(name, value, 1);
    }
    ~ScopedEnv() { hadOld_ ? setenv(name_, old_.c_str(), 1) : unsetenv(name_); }

private:
    const char* name_;
    bool hadOld_;
    std::string old_;
};

TEST(RuntimeDirectoryTest, ResolutionOrder)
{
    struct Case {
        const char* tavik;
        const char* xdg;
        std::string expected;
    };
    const Case cases[] = {
        {"/run/custom", "/run/user/5", "/run/custom"},
        {"/run/custom", nullptr, "/run/custom"},
        {"", "/run/user/5", "/run/user/5/tavik"},
        {nullptr, "/run/user/5", "/run/user/5/tavik"},
        {nullptr, "", "/tmp/tavik-" + std::to_string(geteuid())},
        {nullptr, nullptr, "/tmp/tavik-" + std::to_string(geteuid())},
    };
    for (const auto& testCase : cases) {
        ScopedEnv tavik("TAVIK_RUNTIME_DIR", testCase.tavik);
        ScopedEnv xdg("XDG_RUNTIME_DIR", testCase.xdg);
        EXPECT_EQ(GetRuntimeDirectory(), testCase.expected)
            << (testCase.tavik ? testCase.tavik : "(unset)") << " / " << (testCase.xdg ? testCase.xdg : "(unset)");
    }
    ScopedEnv tavik("TAVIK_RUNTIME_DIR", "/run/custom");
    EXPECT_EQ(GetSystemAbilitySocketPath(70635), "/run/custom/sa-70635.sock");
}

class PublishTest : public ::testing::Test {
protected:
    ScopedRuntimeDir dir_;
    const int32_t id_ = NextSystemAbilityId();
    sptr<IRemoteObject> service_{new TestService()};
};

TEST_F(PublishTest, CreatesOrTightensAPrivateDirectoryAndSocketAndRemovesTheSocketOnUnpublish)
{
    std::string runtime = dir_.Path() + "/nested";
    ScopedEnv env("TAVIK_RUNTIME_DIR", runtime.c_str());
    mode_t oldMask = umask(0);
    PublishStatus status = PublishSystemAbility(id_, service_);
    umask(oldMask);
    ASSERT_EQ(status, PublishStatus::OK);
    std::string socketPath = GetSystemAbilitySocketPath(id_);
    struct stat dir = StatOf(runtime);
    struct stat socket = StatOf(socketPath);
    EXPECT_EQ(dir.st_mode, S_IFDIR | 0700u);
    EXPECT_EQ(socket.st_mode, S_IFSOCK | 0600u);
    EXPECT_EQ(dir.st_uid, geteuid());
    EXPECT_EQ(socket.st_uid, geteuid());

    EXPECT_TRUE(UnpublishSystemAbility(id_));
    EXPECT_EQ(StatOf(socketPath).st_mode, 0u);
    EXPECT_EQ(ConnectSystemAbility(id_), nullptr);
    EXPECT_FALSE(UnpublishSystemAbility(id_));

    // A directory of ours that others may read is tightened, not refused.
    ASSERT_EQ(chmod(runtime.c_str(), 0755), 0);
    ASSERT_EQ(PublishSystemAbility(id_, service_), PublishStatus::OK);
    EXPECT_EQ(StatOf(runtime).st_mode & 07777, 0700u);
    EXPECT_TRUE(UnpublishSystemAbility(id_));
}

TEST_F(PublishTest, RefusesBadArgumentsAndDirectoriesItCannotTrust)
{
    EXPECT_EQ(PublishSystemAbility(id_, nullptr), PublishStatus::INVALID_ARGUMENT);
    EXPECT_EQ(PublishSystemAbility(-1, service_), PublishStatus::INVALID_ARGUMENT);
    EXPECT_EQ(ConnectSystemAbility(-1), nullptr);

    std::string other = dir_.Path() + "/other";
    ASSERT_EQ(mkdir(other.c_str(), 0700), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(other.c_str(), 65534, 65534), 0);
    } else {
        other = "/";
    }
    std::string link = dir_.Path() + "/link";
    std::string target = dir_.Path() + "/target";
    ASSERT_EQ(mkdir(target.c_str(), 0700), 0);
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    std::string file = dir_.Path() + "/file";
    FILE* handle = std::fopen(file.c_str(), "w");
    ASSERT_NE(handle, nullptr);
    std::fclose(handle);
    std::string tooLong = dir_.Path() + "/" + std::string(120, 'x');
    std::string noParent = dir_.Path() + "/missing/child";

    for (const std::string& dir : {other, link, file, tooLong, noParent}) {
        ScopedEnv env("TAVIK_RUNTIME_DIR", dir.c_str());
        EXPECT_EQ(PublishSystemAbility(id_, service_), PublishStatus::RUNTIME_DIR_UNUSABLE) << dir;
    }
}

TEST_F(PublishTest, IdIsTakenWhileAPublicationInThisOrAnotherProcessLives)
{
    ASSERT_EQ(PublishSystemAbility(id_, service_), PublishStatus::OK);
    EXPECT_EQ(PublishSystemAbility(id_, service_), PublishStatus::ALREADY_PUBLISHED);
    sptr<IRemoteObject> other(new TestService());
    EXPECT_EQ(PublishSystemAbility(id_, other), PublishStatus::ALREADY_PUBLISHED);
    // The first publication is untouched.
    sptr<IRemoteObject> remote = ConnectSystemAbility(id_);
    ASSERT_NE(remote, nullptr);
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 3, &answer), IPC_OK);
    EXPECT_EQ(answer, 3);
    EXPECT_TRUE(UnpublishSystemAbility(id_));

    HelperProcess helper;
    ASSERT_TRUE(helper.Start("serve", id_));
    EXPECT_EQ(PublishSystemAbility(id_, other), PublishStatus::ALREADY_PUBLISHED);
    helper.Kill();
    // Its socket and lock file are left over; they no longer count.
    EXPECT_NE(StatOf(GetSystemAbilitySocketPath(id_)).st_mode, 0u);
    EXPECT_EQ(PublishSystemAbility(id_, other), PublishStatus::OK);
    EXPECT_TRUE(UnpublishSystemAbility(id_));
}

// What a supervisor passes: a Unix socket of `type` bound at `path`, and
// listening when asked to; -1 when it cannot be made.
int BoundSocket(const std::string& path, int type, bool listening)
{
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        (listening && listen(fd, 8) != 0)) {
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    return fd;
}

size_t ClientsOf(int32_t id)
{
    size_t count = 0;
    for (const ConnectionInfo& connection : GetConnections()) {
        count += connection.incoming && connection.systemAbilityId == id ? 1 : 0;
    }
    return count;
}

TEST_F(PublishTest, ServesAPassedListeningSocketAndRefusesAnyOtherKind)
{
    const std::string path = GetSystemAbilitySocketPath(id_);
    struct Case {
        const char* what;
        std::string path;
        int type;
        bool listening;
    };
    const Case refused[] = {
        {"datagram socket", path, SOCK_DGRAM, false},
        {"stream socket that does not listen", path, SOCK_STREAM, false},
        {"listening at another path", dir_.Path() + "/other.sock", SOCK_STREAM, true},
    };
    for (const Case& c : refused) {
        unlink(c.path.c_str());
        int fd = BoundSocket(c.path, c.type, c.listening);
        ASSERT_GE(fd, 0) << c.what;
        EXPECT_EQ(PublishSystemAbilityOnSocket(id_, service_, fd), PublishStatus::SOCKET_MISMATCH) << c.what;
        unlink(c.path.c_str());
    }
    EXPECT_EQ(PublishSystemAbilityOnSocket(id_, service_, -1), PublishStatus::INVALID_ARGUMENT);

    int fd = BoundSocket(path, SOCK_STREAM, true);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(PublishSystemAbilityOnSocket(id_, service_, fd), PublishStatus::OK);
    EXPECT_EQ(StatOf(path).st_mode, S_IFSOCK | 0600u);
    EXPECT_EQ(PublishSystemAbility(id_, service_), PublishStatus::ALREADY_PUBLISHED);
    EXPECT_EQ(ClientsOf(id_), 0u);
    sptr<IRemoteObject> remote = ConnectSystemAbility(id_);
    ASSERT_NE(remote, nullptr);
    int32_t answer = 0;
    EXPECT_EQ(Echo(remote, 5, &answer), IPC_OK);
    EXPECT_EQ(answer, 5);
    EXPECT_TRUE(WaitUntil([this] { return ClientsOf(id_) == 1; }));
    EXPECT_TRUE(UnpublishSystemAbility(id_));
    // The path is the supervisor's: it stays.
    EXPECT_EQ(StatOf(path).st_mode & S_IFMT, static_cast<mode_t>(S_IFSOCK));
}

// The helper (connect-as-nobody) switches to uid/gid 65534 and exits 0 when
// it was refused, 1 when its call went through, 2 when it could not switch.
class OtherUserTest : public PublishedServiceTest {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "switching to another uid needs root";
        }
        PublishedServiceTest::SetUp();
        // Connections other tests of this process left behind.
        baseline_ = Transport::GetTransportStats().connections;
    }

    int RunAsNobody()
    {
        HelperProcess helper;
        return helper.Start("connect-as-nobody", id_) ? helper.Wait() : -1;
    }
    bool NoConnectionKept()
    {
        return WaitUntil([this] { return Transport::GetTransportStats().connections == baseline_; });
    }

    size_t baseline_ = 0;
};

TEST_F(OtherUserTest, IsKeptOutByThePermissions)
{
    LogCapture log;
    EXPECT_EQ(RunAsNobody(), 0);
    // Never got as far as the server.
    EXPECT_EQ(log.Count("refused pid"), 0u);
    EXPECT_TRUE(NoConnectionKept());
}

TEST_F(OtherUserTest, IsRefusedByTheServerWhenThePermissionsLetItIn)
{
    // Only the credential check stands between the other user and the
    // service.
    ASSERT_EQ(chmod(dir_.Path().c_str(), 0711), 0);
    ASSERT_EQ(chmod(GetSystemAbilitySocketPath(id_).c_str(), 0666), 0);
    LogCapture log;
    EXPECT_EQ(RunAsNobody(), 0);
    EXPECT_TRUE(WaitUntil([&] { return log.Count("uid 65534 on sa " + std::to_string(id_)) == 1; }));
    EXPECT_EQ(log.Count("refused pid"), 1u);
    // The refused connection is not kept.
    EXPECT_TRUE(NoConnectionKept());
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
