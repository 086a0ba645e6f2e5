// A minimal application of the device-detect client library: lists the
// trusted devices, then prints device-change events until it has seen the
// number asked for or the time is up.
//
//   syntavo_devicedetect_example [EVENTS [SECONDS]]     (default: 1 event, 30 s)
//
// Exit status: 0 when the events arrived, 1 when a request failed or the
// time ran out first, 2 on bad arguments, 3 when the service is unreachable.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "device_detect_proxy.h"
#include "device_detect_status.h"
#include "ipc_status.h"
#include "syntavo_devicedetect_version.h"

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

// Name of a status: the client library's, else the platform's; anything
// else is the service's own value.
std::string StatusName(int32_t status)
{
    if (const char* name = DeviceDetectStatusToString(status)) {
        return name;
    }
    return status < 0 ? IpcStatusToString(status) : "service status";
}

// The handlers run on the platform's IPC threads, not on main: they copy
// what they need into a queue under a lock and return at once, so that the
// service (which waits for each callback) is never held up.
class PrintingListener : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Push("online", device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Push("offline", device); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Push("ready", device); }

    // The next event line, or false when none arrived before `deadline`.
    bool Next(std::string& line, std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!ready_.wait_until(lock, deadline, [this] { return !events_.empty(); })) {
            return false;
        }
        line = events_.front();
        events_.pop_front();
        return true;
    }

private:
    int32_t Push(const char* what, const DeviceInfo& device)
    {
        std::string line = std::string("event ") + what + ": " + device.GetDeviceName() + " (" +
                           device.GetDeviceUdid() + ", type " + std::to_string(device.GetDeviceType()) + ")";
        {
            std::lock_guard<std::mutex> lock(mutex_);
            events_.push_back(std::move(line));
        }
        ready_.notify_one();
        return DD_OK;
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::string> events_;
};

}  // namespace

int main(int argc, char** argv)
{
    int wanted = 1;
    int seconds = 30;
    if (argc > 3 || (argc > 1 && (wanted = std::atoi(argv[1])) <= 0) ||
        (argc > 2 && (seconds = std::atoi(argv[2])) <= 0)) {
        std::cerr << "usage: " << argv[0] << " [EVENTS [SECONDS]]\n";
        return 2;
    }
    std::cout << "client library " << SYNTAVO_DEVICEDETECT_VERSION_STRING << std::endl;

    // Looks the service up: in this process first, then the socket of
    // devicedetectd in $TAVIK_RUNTIME_DIR (else $XDG_RUNTIME_DIR/tavik).
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    if (proxy == nullptr) {
        std::cerr << "cannot reach the device-detect service; is devicedetectd running with the same runtime "
                     "directory?\n";
        return 3;
    }

    std::vector<DeviceInfo> devices;
    int32_t status = proxy->GetTrustedDeviceList("", devices);
    if (status != DD_OK) {
        std::cerr << "GetTrustedDeviceList failed: " << StatusName(status) << " (" << status << ")\n";
        return 1;
    }
    std::cout << devices.size() << " trusted devices online" << std::endl;
    for (const DeviceInfo& device : devices) {
        std::cout << "  " << device.GetDeviceName() << " (" << device.GetDeviceUdid() << ", "
                  << device.GetDeviceNetworkId() << ", type " << device.GetDeviceType() << ")" << std::endl;
    }

    // An all-empty ability filter matches every device.
    sptr<PrintingListener> listener = sptr<PrintingListener>::MakeSptr();
    std::pair<int32_t, uint32_t> registered =
        proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "example", listener);
    if (registered.first != DD_OK) {
        std::cerr << "RegisterDevChangedCallback failed: " << StatusName(registered.first) << " (" << registered.first
                  << ")\n";
        return 1;
    }
    std::cout << "watching (listener " << registered.second << ") for " << wanted << " events, " << seconds << " s"
              << std::endl;

    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int seen = 0;
    std::string line;
    while (seen < wanted && listener->Next(line, deadline)) {
        std::cout << line << std::endl;
        ++seen;
    }

    status = proxy->UnregisterDevChangedCallback(registered.second);
    if (status != DD_OK) {
        std::cerr << "UnregisterDevChangedCallback failed: " << StatusName(status) << " (" << status << ")\n";
    }
    if (seen < wanted) {
        std::cerr << "timed out after " << seen << " of " << wanted << " events\n";
        return 1;
    }
    return 0;
}
