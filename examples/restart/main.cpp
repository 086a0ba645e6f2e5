// An application that survives a restart of the device-detect service: it
// registers a device listener whenever the service becomes available (the
// first time included), says when the service goes away, and prints device
// events until it has seen the number asked for or the time is up.
//
//   syntavo_devicedetect_restart_example [EVENTS [SECONDS]]    (default: 1 event, 60 s)
//
// Try it: start devicedetectd, start this program, `kill -9` the daemon,
// start it again, then `devicedetect sim online udid-car-0001`.
//
// Exit status: 0 when the events arrived, 1 when the time ran out first or
// the platform refused the subscription, 2 on bad arguments.
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <mutex>
#include <string>

#include "device_detect_proxy.h"
#include "device_detect_status.h"
#include "system_ability_manager.h"

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

// What the platform's threads hand to main: device events, and news of the
// service itself. Handlers never do more than queue, so they return at once.
class Inbox {
public:
    enum class Kind { EVENT, SERVICE_AVAILABLE, SERVICE_GONE };
    struct Item {
        Kind kind;
        std::string text;
    };

    void Put(Kind kind, std::string text = std::string())
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(Item{kind, std::move(text)});
        }
        ready_.notify_one();
    }
    // The next item, or false when none arrived before `deadline`.
    bool Take(Item& item, std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!ready_.wait_until(lock, deadline, [this] { return !items_.empty(); })) {
            return false;
        }
        item = std::move(items_.front());
        items_.pop_front();
        return true;
    }

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Item> items_;
};

class DeviceListener : public DeviceChangedCallbackStub {
public:
    explicit DeviceListener(Inbox& inbox) : inbox_(inbox) {}
    int32_t OnDeviceOnline(DeviceInfo& device) override { return Put("online", device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Put("offline", device); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Put("ready", device); }

private:
    int32_t Put(const char* what, const DeviceInfo& device)
    {
        inbox_.Put(Inbox::Kind::EVENT,
                   std::string("event ") + what + ": " + device.GetDeviceName() + " (" + device.GetDeviceUdid() + ")");
        return DD_OK;
    }
    Inbox& inbox_;
};

// Told by the platform when the service (system ability 70635) becomes
// available and when it goes away; runs on a platform thread.
class ServiceListener : public SystemAbilityListener {
public:
    explicit ServiceListener(Inbox& inbox) : inbox_(inbox) {}
    void OnSystemAbilityAvailable(int32_t /* systemAbilityId */) override
    {
        inbox_.Put(Inbox::Kind::SERVICE_AVAILABLE);
    }
    void OnSystemAbilityGone(int32_t /* systemAbilityId */) override { inbox_.Put(Inbox::Kind::SERVICE_GONE); }

private:
    Inbox& inbox_;
};

// The proxy of the running service. Right after a restart the cached proxy
// may still be the dead service's (its death notice and the news of the new
// service arrive on different threads); then it is dropped and the service
// looked up again.
sptr<DeviceDetectProxy> CurrentProxy()
{
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    if (proxy != nullptr && proxy->AsObject() != nullptr && proxy->AsObject()->IsObjectDead()) {
        DeviceDetectProxy::CleanupInstance();
        proxy = DeviceDetectProxy::GetInstance();
    }
    return proxy;
}

}  // namespace

int main(int argc, char** argv)
{
    int wanted = 1;
    int seconds = 60;
    if (argc > 3 || (argc > 1 && (wanted = std::atoi(argv[1])) <= 0) ||
        (argc > 2 && (seconds = std::atoi(argv[2])) <= 0)) {
        std::cerr << "usage: " << argv[0] << " [EVENTS [SECONDS]]\n";
        return 2;
    }

    Inbox inbox;
    sptr<DeviceListener> devices = sptr<DeviceListener>::MakeSptr(inbox);
    sptr<ServiceListener> service = sptr<ServiceListener>::MakeSptr(inbox);
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    // When the service is running already, the first notification says so
    // at once; otherwise it comes when the service starts.
    if (manager == nullptr || manager->SubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, service) != 0) {
        std::cerr << "cannot subscribe to the device-detect service\n";
        return 1;
    }
    std::cout << "waiting for the device-detect service" << std::endl;

    sptr<DeviceDetectProxy> registeredWith;  // null while the service is away
    uint32_t listenerId = 0;
    bool wasRegistered = false;
    int seen = 0;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    Inbox::Item item;
    while (seen < wanted && inbox.Take(item, deadline)) {
        switch (item.kind) {
            case Inbox::Kind::EVENT:
                std::cout << item.text << std::endl;
                ++seen;
                break;
            case Inbox::Kind::SERVICE_GONE:
                registeredWith = nullptr;
                std::cout << "service gone; waiting for it to come back" << std::endl;
                break;
            case Inbox::Kind::SERVICE_AVAILABLE: {
                // A new service knows nothing of what its predecessor had:
                // register the same listener again.
                sptr<DeviceDetectProxy> proxy = CurrentProxy();
                if (proxy == nullptr) {
                    break;  // gone again already; its return will be told
                }
                auto registered =
                    proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "restart-example", devices);
                if (registered.first != DD_OK) {
                    std::cerr << "RegisterDevChangedCallback failed: " << registered.first << "\n";
                    break;
                }
                registeredWith = proxy;
                listenerId = registered.second;
                std::cout << (wasRegistered ? "registered again" : "registered") << " (listener " << listenerId << ")"
                          << std::endl;
                wasRegistered = true;
                break;
            }
        }
    }

    manager->UnsubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, service);
    if (registeredWith != nullptr) {
        registeredWith->UnregisterDevChangedCallback(listenerId);
    }
    if (seen < wanted) {
        std::cerr << "timed out after " << seen << " of " << wanted << " events\n";
        return 1;
    }
    return 0;
}
