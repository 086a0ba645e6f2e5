#include "bench_util.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "embedded_service.h"
#include "message_option.h"
#include "message_parcel.h"
#include "socket_transport.h"
#include "world_json.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {

namespace {

constexpr uint32_t TYPE_CODES[] = {14, 17, 9, 109, 12, 131};

Sim::Device MakeDevice(size_t index, const std::string& udid)
{
    char number[16];
    std::snprintf(number, sizeof(number), "%06zu", index);
    Sim::Device device;
    device.udid = udid.empty() ? "udid-bench-" + std::string(number) + "-7f3a9c2e41d05b86" : udid;
    device.networkId = "net-bench-" + std::string(number) + "-0c4be19f77a2d365";
    device.name = "Bench Device " + std::string(number);
    device.type = TYPE_CODES[index % (sizeof(TYPE_CODES) / sizeof(TYPE_CODES[0]))];
    device.accountType = 1;
    device.state = Sim::DeviceState::ONLINE;
    device.services = {"fileShare"};
    return device;
}

}  // namespace

Sim::World MakeWorld(size_t online)
{
    Sim::World world = Sim::DefaultWorld();
    world.devices.clear();
    for (size_t i = 0; i < online; ++i) {
        world.devices.push_back(MakeDevice(i, i + 1 == online ? TOGGLE_DEVICE : ""));
    }
    return world;
}

pid_t StartChild(const std::vector<std::string>& argv, std::string& firstLine)
{
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return -1;
    }
    std::vector<char*> args;
    for (const auto& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    close(out[1]);
    firstLine.clear();
    char c = 0;
    while (read(out[0], &c, 1) == 1 && c != '\n') {
        firstLine += c;
    }
    close(out[0]);
    return pid;
}

void StopChild(pid_t& pid)
{
    if (pid > 0) {
        kill(pid, SIGTERM);
        int status = 0;
        waitpid(pid, &status, 0);
    }
    pid = -1;
}

bool Daemon::Start(size_t online)
{
    char pattern[] = "/tmp/dd-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return false;
    }
    dir_ = pattern;
    std::string worldFile = dir_ + "/world.json";
    {
        std::ofstream out(worldFile);
        out << Sim::WorldToJson(MakeWorld(online));
        if (!out) {
            return false;
        }
    }
    std::string runtimeDir = dir_ + "/run";
    std::string line;
    pid_ = StartChild({DD_BENCH_DAEMON, "--world", worldFile, "--runtime-dir", runtimeDir}, line);
    // The ready line comes once the socket accepts connections.
    if (pid_ < 0 || line.find("ready") == std::string::npos) {
        std::fprintf(stderr, "dd_bench: devicedetectd did not start (%s)\n", line.c_str());
        Stop();
        return false;
    }
    setenv("TAVIK_RUNTIME_DIR", runtimeDir.c_str(), 1);
    return true;
}

void Daemon::Stop()
{
    StopChild(pid_);
    if (!dir_.empty()) {
        std::string command = "rm -rf '" + dir_ + "'";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "dd_bench: could not remove %s\n", dir_.c_str());
        }
        dir_.clear();
    }
}

Daemon& SharedDaemon()
{
    static Daemon* daemon = [] {
        auto* started = new Daemon();
        if (!started->Start(1024)) {
            std::abort();
        }
        std::atexit([] { SharedDaemon().Stop(); });
        return started;
    }();
    return *daemon;
}

sptr<DeviceDetectProxy> RemoteProxy()
{
    SharedDaemon();
    sptr<IRemoteObject> remote = ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    if (remote == nullptr) {
        std::fprintf(stderr, "dd_bench: cannot reach devicedetectd\n");
        std::abort();
    }
    return sptr<DeviceDetectProxy>::MakeSptr(remote);
}

namespace {

ListSizes Measure(size_t online, DeviceDetectRequestCode code, const std::string& argument)
{
    Sim::EmbeddedService service(MakeWorld(online));
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    data.WriteInterfaceToken(Descriptor::DEVICE_DETECT);
    data.WriteString(argument);
    service.Object()->SendRequest(static_cast<uint32_t>(code), data, reply, option);
    return {data.GetDataSize(), reply.GetDataSize()};
}

}  // namespace

ListSizes MeasureListSizes(size_t online)
{
    return Measure(online, DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST, "");
}

ListSizes MeasureSwitchSizes()
{
    return Measure(1, DeviceDetectRequestCode::GET_DEVICE_SWITCH, "udid-bench-000000-7f3a9c2e41d05b86");
}

}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
