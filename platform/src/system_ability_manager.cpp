#include "system_ability_manager.h"

#include <condition_variable>
#include <unordered_map>

#include "ipc_status.h"
#include "socket_transport.h"
#include "transport/ability_watch.h"

namespace Tavik {

namespace {

// Wakes WaitForSystemAbility when the ability may have appeared.
class AbilityWaiter : public SystemAbilityListener {
public:
    void OnSystemAbilityAvailable(int32_t /* systemAbilityId */) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        available_ = true;
        changed_.notify_all();
    }
    void OnSystemAbilityGone(int32_t /* systemAbilityId */) override {}

    // True when told of an appearance before `deadline`; takes the news.
    bool WaitUntil(std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        bool told = changed_.wait_until(lock, deadline, [this] { return available_; });
        available_ = false;
        return told;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool available_ = false;
};

}  // namespace

int32_t ISystemAbilityManager::SubscribeSystemAbility(int32_t /* systemAbilityId */,
                                                      const sptr<SystemAbilityListener>& /* listener */)
{
    return IPC_ERR_UNKNOWN_TRANSACTION;
}

int32_t ISystemAbilityManager::UnsubscribeSystemAbility(int32_t /* systemAbilityId */,
                                                        const sptr<SystemAbilityListener>& /* listener */)
{
    return IPC_ERR_UNKNOWN_TRANSACTION;
}

sptr<IRemoteObject> ISystemAbilityManager::WaitForSystemAbility(int32_t systemAbilityId,
                                                                std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    sptr<AbilityWaiter> waiter(new AbilityWaiter());
    // Subscribed before the first look, so that an appearance right after
    // it still wakes the wait.
    const bool subscribed = SubscribeSystemAbility(systemAbilityId, waiter) == IPC_OK;
    sptr<IRemoteObject> object = GetSystemAbility(systemAbilityId);
    // "Available" may come for an ability that is gone again by the time we
    // look; then wait for the next one.
    while (object == nullptr && subscribed && waiter->WaitUntil(deadline)) {
        object = GetSystemAbility(systemAbilityId);
    }
    if (subscribed) {
        UnsubscribeSystemAbility(systemAbilityId, waiter);
    }
    return object;
}

namespace {

// The in-process registry: services embedded in this process publish their
// stubs here, and lookups find them without any transport. An id nobody
// added here is looked for on the socket transport, whose connection is
// reused by later lookups while it lives.
class LocalSystemAbilityManager : public ISystemAbilityManager {
public:
    sptr<IRemoteObject> GetSystemAbility(int32_t systemAbilityId) override
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto it = abilities_.find(systemAbilityId);
            if (it != abilities_.end()) {
                return it->second;
            }
        }
        return ConnectSystemAbility(systemAbilityId);
    }

    int32_t AddSystemAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& ability) override
    {
        if (ability == nullptr) {
            return IPC_ERR_INVALID_DATA;
        }
        sptr<IRemoteObject> replaced;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            replaced = std::move(abilities_[systemAbilityId]);
            abilities_[systemAbilityId] = ability;
        }
        Transport::NoteLocalAbility(systemAbilityId, true);
        return IPC_OK;
    }

    int32_t RemoveSystemAbility(int32_t systemAbilityId) override
    {
        sptr<IRemoteObject> removed;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto it = abilities_.find(systemAbilityId);
            if (it == abilities_.end()) {
                return IPC_ERR_INVALID_DATA;
            }
            removed = it->second;
            abilities_.erase(it);
        }
        Transport::NoteLocalAbility(systemAbilityId, false);
        // `removed` is released here, outside the lock: the object's
        // destructor may well log or look something up.
        return IPC_OK;
    }

    // Abilities added here, published by this process, or served by another
    // process over the runtime directory (transport/ability_watch.h).
    int32_t SubscribeSystemAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener) override
    {
        return Transport::SubscribeAbility(systemAbilityId, listener);
    }

    int32_t UnsubscribeSystemAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener) override
    {
        return Transport::UnsubscribeAbility(systemAbilityId, listener);
    }

private:
    std::mutex mutex_;
    std::unordered_map<int32_t, sptr<IRemoteObject>> abilities_;
};

}  // namespace

SystemAbilityManagerClient& SystemAbilityManagerClient::GetInstance()
{
    // Immortal, so that lookups during static destruction stay safe.
    static auto* instance = new SystemAbilityManagerClient();
    return *instance;
}

SystemAbilityManagerClient::SystemAbilityManagerClient() : defaultManager_(new LocalSystemAbilityManager()) {}

SystemAbilityManagerClient::~SystemAbilityManagerClient() = default;

sptr<ISystemAbilityManager> SystemAbilityManagerClient::GetSystemAbilityManager()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return overridden_ ? override_ : defaultManager_;
}

void SystemAbilityManagerClient::SetSystemAbilityManagerForTest(const sptr<ISystemAbilityManager>& manager)
{
    sptr<ISystemAbilityManager> previous;
    std::lock_guard<std::mutex> lock(mutex_);
    previous = override_;
    override_ = manager;
    overridden_ = true;
}

void SystemAbilityManagerClient::ResetSystemAbilityManager()
{
    sptr<ISystemAbilityManager> previous;
    std::lock_guard<std::mutex> lock(mutex_);
    previous = override_;
    override_ = nullptr;
    overridden_ = false;
}

}  // namespace Tavik
