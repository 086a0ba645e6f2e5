// devicedetectd under a supervisor: started by systemd-socket-activate on a
// socket it did not make, and telling a NOTIFY_SOCKET listener when it is
// ready, what it serves and when it stops. Runs for each build of the
// daemon: with libsystemd and with its built-in protocol.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "child_process.h"

namespace Tavik {
namespace Test {
namespace {

// A supervisor's end of NOTIFY_SOCKET: one datagram per notification.
class NotifyListener {
public:
    explicit NotifyListener(const std::string& path) : path_(path)
    {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        if (fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    ~NotifyListener()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    bool Ok() const { return fd_ >= 0; }

    // Waits for a notification with a line starting with `prefix`; the line.
    std::string WaitFor(const std::string& prefix)
    {
        std::string found;
        WaitUntil([&] {
            pollfd ready{fd_, POLLIN, 0};
            while (poll(&ready, 1, 50) > 0) {
                char buffer[4096];
                ssize_t size = recv(fd_, buffer, sizeof(buffer), 0);
                if (size <= 0) {
                    break;
                }
                received_.append(buffer, static_cast<size_t>(size)).push_back('\n');
            }
            size_t at = received_.find(prefix);
            while (at != std::string::npos && at != 0 && received_[at - 1] != '\n') {
                at = received_.find(prefix, at + 1);
            }
            if (at == std::string::npos) {
                return false;
            }
            found = received_.substr(at, received_.find('\n', at) - at);
            received_.erase(0, received_.find('\n', at) + 1);
            return true;
        });
        return found;
    }

    const std::string& Path() const { return path_; }

private:
    std::string path_;
    int fd_ = -1;
    std::string received_;
};

class ActivationTest : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(dir_.Path().empty());
        runtime_ = dir_.Path() + "/run";
        ASSERT_EQ(mkdir(runtime_.c_str(), 0700), 0);
        socket_ = runtime_ + "/sa-70635.sock";
    }

    // systemd-socket-activate `listen` ... devicedetectd, which passes on
    // only the variables named with -E.
    bool Start(const std::vector<std::string>& listen, const std::vector<std::string>& env)
    {
        ChildSpec spec({SYSTEMD_SOCKET_ACTIVATE_PATH});
        spec.args.insert(spec.args.end(), listen.begin(), listen.end());
        for (const std::string& variable : env) {
            spec.args.push_back("-E");
            spec.args.push_back(variable);
        }
        spec.args.push_back(GetParam());
        spec.outFile = dir_.Path() + "/daemon.out";
        spec.errFile = dir_.Path() + "/daemon.out";
        // It says so once it listens, before any client may come.
        return daemon_.Start(spec) &&
               WaitUntil([this] { return Output().find("Listening on") != std::string::npos || daemon_.Exited(); });
    }
    // systemd-socket-activate starts the daemon on the first connection
    // (or datagram) to the socket at `path`.
    static void Poke(const std::string& path, int type)
    {
        int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        WaitUntil([&] { return connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0; });
        if (type == SOCK_DGRAM) {
            send(fd, "x", 1, MSG_NOSIGNAL);
        }
        close(fd);
    }
    std::string Output() const { return ReadFile(dir_.Path() + "/daemon.out"); }
    RunResult Cli(const std::vector<std::string>& args)
    {
        std::vector<std::string> all{DEVICEDETECT_PATH, "--runtime-dir", runtime_};
        all.insert(all.end(), args.begin(), args.end());
        return ::Tavik::Test::Run(all);
    }

    TempDir dir_;
    std::string runtime_;
    std::string socket_;
    ChildProcess daemon_;
};

TEST_P(ActivationTest, ServesThePassedSocketAndReportsItsState)
{
    NotifyListener notify(dir_.Path() + "/notify");
    ASSERT_TRUE(notify.Ok());
    // Told nothing about its folder, the daemon serves in the socket's.
    ASSERT_TRUE(Start({"-l", socket_}, {"NOTIFY_SOCKET=" + notify.Path()}));

    RunResult list = Cli({"list"});
    EXPECT_EQ(list.exitCode, 0) << list.err << Output();
    EXPECT_NE(list.out.find("udid-tv-0001"), std::string::npos) << list.out;
    EXPECT_EQ(notify.WaitFor("READY=1"), "READY=1") << Output();
    // The list that started the daemon may be counted as a client or not.
    EXPECT_NE(notify.WaitFor("STATUS=serving 8 devices (5 online), "), "");
    EXPECT_NE(Output().find("devicedetectd: ready, serving system ability 70635 on " + socket_), std::string::npos)
        << Output();

    // A watching client and a change of the world show in the status line.
    ChildProcess watch;
    ChildSpec watchSpec({DEVICEDETECT_PATH, "--runtime-dir", runtime_, "watch", "--timeout", "60"});
    watchSpec.outFile = dir_.Path() + "/watch.out";
    ASSERT_TRUE(watch.Start(watchSpec));
    ASSERT_EQ(Cli({"sim", "online", "udid-car-0001"}).exitCode, 0);
    EXPECT_EQ(notify.WaitFor("STATUS=serving 8 devices (6 online), 1 client"),
              "STATUS=serving 8 devices (6 online), 1 client");
    watch.Kill();

    daemon_.Signal(SIGTERM);
    EXPECT_EQ(notify.WaitFor("STOPPING=1"), "STOPPING=1");
    EXPECT_EQ(daemon_.Wait(), 0) << Output();
    // The socket belongs to the supervisor and stays.
    struct stat info {};
    EXPECT_EQ(lstat(socket_.c_str(), &info), 0);
}

TEST_P(ActivationTest, RefusesASocketOfTheWrongKind)
{
    struct Case {
        const char* what;
        std::vector<std::string> listen;
        std::vector<std::string> env;
        int pokeType;
        std::string message;
    };
    const std::string other = dir_.Path() + "/other.sock";
    const std::string told = "TAVIK_RUNTIME_DIR=" + runtime_;
    const std::vector<Case> cases = {
        {"datagram socket", {"--datagram", "-l", socket_}, {told}, SOCK_DGRAM, "it is not a stream socket"},
        {"stream socket at another path", {"-l", other}, {told}, SOCK_STREAM, "it is bound to " + other},
        {"another name, no folder given", {"-l", other}, {}, SOCK_STREAM, "it is bound to " + other},
        {"two sockets", {"-l", socket_, "-l", other}, {told}, SOCK_STREAM, "the supervisor passed 2 sockets"},
    };
    for (const Case& c : cases) {
        unlink(socket_.c_str());
        unlink(other.c_str());
        ASSERT_TRUE(Start(c.listen, c.env)) << c.what;
        Poke(c.listen.back(), c.pokeType);
        EXPECT_EQ(daemon_.Wait(), 1) << c.what << "\n" << Output();
        std::string output = Output();
        EXPECT_NE(output.find(c.message), std::string::npos) << c.what << "\n" << output;
        EXPECT_EQ(output.find("devicedetectd: ready"), std::string::npos) << c.what << "\n" << output;
    }
}

INSTANTIATE_TEST_SUITE_P(Daemons, ActivationTest, ::testing::Values(DEVICEDETECTD_PATH, DEVICEDETECTD_BUILTIN_PATH),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return info.index == 0 ? std::string("Libsystemd") : std::string("BuiltIn");
                         });

}  // namespace
}  // namespace Test
}  // namespace Tavik
