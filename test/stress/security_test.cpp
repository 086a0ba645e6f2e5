// Who may reach a published service: the runtime directory and the socket
// keep other users out, and the server refuses a peer of another uid even
// when the file permissions would let it in.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "socket_transport.h"
#include "tralog.h"
#include "transport/socket_connection.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

using AccessTest = PublishedServiceTest;

TEST_F(AccessTest, RuntimeDirectoryAndSocketAreTheOwnersAlone)
{
    struct stat info {};
    ASSERT_EQ(lstat(GetRuntimeDirectory().c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0700u);
    EXPECT_EQ(info.st_uid, geteuid());

    ASSERT_EQ(lstat(GetSystemAbilitySocketPath(id_).c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    EXPECT_EQ(info.st_uid, geteuid());
}

TEST_F(AccessTest, PreparedDirectoryWithLooseModeIsTightened)
{
    UnpublishSystemAbility(id_);
    ASSERT_EQ(chmod(GetRuntimeDirectory().c_str(), 0777), 0);
    ASSERT_EQ(PublishSystemAbility(id_, sptr<IRemoteObject>(new TestService())), PublishStatus::OK);
    struct stat info {};
    ASSERT_EQ(lstat(GetRuntimeDirectory().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u);
}

// The helper (connect-as-nobody) switches to uid/gid 65534 and exits 0 when
// it was refused, 1 when its call went through, 2 when it could not switch.
class OtherUserTest : public AccessTest {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "switching to another uid needs root";
        }
        AccessTest::SetUp();
    }

    int RunAsNobody()
    {
        HelperProcess helper;
        if (!helper.Start("connect-as-nobody", id_)) {
            return -1;
        }
        return helper.Wait();
    }
};

TEST_F(OtherUserTest, IsKeptOutByThePermissions)
{
    LogCapture log;
    EXPECT_EQ(RunAsNobody(), 0);
    // Never got as far as the server.
    EXPECT_EQ(log.Count("refused pid"), 0u);
    EXPECT_TRUE(WaitUntil([] { return Transport::GetTransportStats().connections == 0; }));
}

TEST_F(OtherUserTest, IsRefusedByTheServerWhenThePermissionsLetItIn)
{
    ASSERT_EQ(chmod(GetRuntimeDirectory().c_str(), 0711), 0);
    ASSERT_EQ(chmod(GetSystemAbilitySocketPath(id_).c_str(), 0666), 0);
    LogCapture log;
    EXPECT_EQ(RunAsNobody(), 0);
    EXPECT_TRUE(WaitUntil([&] { return log.Count("uid 65534 on sa " + std::to_string(id_)) == 1; }));
    // The refused connection is not kept.
    EXPECT_TRUE(WaitUntil([] { return Transport::GetTransportStats().connections == 0; }));
    ASSERT_EQ(chmod(GetRuntimeDirectory().c_str(), 0700), 0);
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
