#include "system_ability_manager.h"

#include <unordered_map>

#include "ipc_status.h"
#include "socket_transport.h"

namespace Tavik {

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
        std::lock_guard<std::mutex> lock(mutex_);
        abilities_[systemAbilityId] = ability;
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
        // `removed` is released here, outside the lock: the object's
        // destructor may well log or look something up.
        return IPC_OK;
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
