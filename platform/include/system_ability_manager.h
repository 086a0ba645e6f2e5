// The system ability manager: where services publish their remote objects
// under integer ids, clients look them up, and clients subscribe to be told
// when an id becomes available or goes away.
#ifndef TAVIK_PLATFORM_SYSTEM_ABILITY_MANAGER_H
#define TAVIK_PLATFORM_SYSTEM_ABILITY_MANAGER_H

#include <chrono>
#include <cstdint>
#include <mutex>

#include "iremote_object.h"
#include "system_ability_listener.h"

namespace Tavik {

class ISystemAbilityManager : public virtual RefBase {
public:
    ~ISystemAbilityManager() override = default;
    // The object published under id, or null when there is none.
    virtual sptr<IRemoteObject> GetSystemAbility(int32_t systemAbilityId) = 0;
    // Publishes an in-process object; 0 on success.
    virtual int32_t AddSystemAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& ability) = 0;
    // 0 on success, non-zero when nothing was published under the id.
    virtual int32_t RemoveSystemAbility(int32_t systemAbilityId) = 0;

    // Tells `listener` when the ability becomes available and when it goes
    // away (system_ability_listener.h), until it unsubscribes. When the
    // ability is available already, the first notification says so. 0 on
    // success (also when the listener is subscribed to the id already);
    // IPC_ERR_INVALID_DATA for a null listener or a negative id. The default
    // manager watches its own table, this process's publications and the
    // runtime directory; this base implementation, which test managers
    // inherit, supports no subscription and returns
    // IPC_ERR_UNKNOWN_TRANSACTION.
    virtual int32_t SubscribeSystemAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener);
    // 0 on success, IPC_ERR_INVALID_DATA when the listener was not
    // subscribed to the id. The manager holds the listener until then. Once
    // it returns, the listener hears nothing more about the id except a
    // notification that another thread had already begun.
    virtual int32_t UnsubscribeSystemAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener);

    // GetSystemAbility(id) once it returns an object, waiting at most
    // `timeout` for the ability to appear; null when it did not. Built on
    // SubscribeSystemAbility: on a manager without subscriptions it looks
    // the id up once and does not wait. Blocks the calling thread, so call
    // it neither from a listener nor from a callback.
    virtual sptr<IRemoteObject> WaitForSystemAbility(int32_t systemAbilityId, std::chrono::milliseconds timeout);
};

// Process-wide access point. The default manager keeps an in-process table;
// tests may swap in their own manager, or none at all.
class SystemAbilityManagerClient {
public:
    static SystemAbilityManagerClient& GetInstance();

    // Null only when a test has installed a null manager.
    sptr<ISystemAbilityManager> GetSystemAbilityManager();

    // Test seam: GetSystemAbilityManager returns `manager` (which may be
    // null) until ResetSystemAbilityManager is called.
    void SetSystemAbilityManagerForTest(const sptr<ISystemAbilityManager>& manager);
    void ResetSystemAbilityManager();

    SystemAbilityManagerClient(const SystemAbilityManagerClient&) = delete;
    SystemAbilityManagerClient& operator=(const SystemAbilityManagerClient&) = delete;

private:
    SystemAbilityManagerClient();
    ~SystemAbilityManagerClient();

    std::mutex mutex_;
    sptr<ISystemAbilityManager> defaultManager_;
    sptr<ISystemAbilityManager> override_;
    bool overridden_ = false;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_SYSTEM_ABILITY_MANAGER_H
