// The system ability manager: where services publish their remote objects
// under integer ids and clients look them up.
#ifndef TAVIK_PLATFORM_SYSTEM_ABILITY_MANAGER_H
#define TAVIK_PLATFORM_SYSTEM_ABILITY_MANAGER_H

#include <cstdint>
#include <mutex>

#include "iremote_object.h"

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
