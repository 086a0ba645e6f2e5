#include "embedded_service.h"

#include "device_detect_proxy.h"
#include "device_detect_request_code.h"
#include "sim_log.h"
#include "system_ability_manager.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

EmbeddedService::EmbeddedService(World world)
    : simulator_(Simulator::Create(std::move(world))),
      control_(new (std::nothrow) DeviceDetectControlStub(simulator_)),
      service_(new (std::nothrow) DeviceDetectServiceStub(simulator_, control_))
{
}

EmbeddedService::~EmbeddedService()
{
    Unpublish();
}

sptr<IRemoteObject> EmbeddedService::Object() const
{
    return sptr<IRemoteObject>(service_.GetRefPtr());
}

bool EmbeddedService::Publish()
{
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr || service_ == nullptr) {
        SIM_LOGE("no system ability manager; the service is not published");
        return false;
    }
    if (manager->AddSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, Object()) != 0) {
        SIM_LOGE("system ability %{public}d refused", SYNTAVO_DEVICE_DETECT_SA_ID);
        return false;
    }
    // A proxy cached for an earlier service would keep talking to that one.
    DeviceDetectProxy::CleanupInstance();
    published_ = true;
    return true;
}

void EmbeddedService::Unpublish()
{
    if (!published_) {
        return;
    }
    published_ = false;
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager != nullptr) {
        manager->RemoveSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    }
    // Clients in this process hear of the service's end as they would of a
    // daemon's; the proxy drops its cache then.
    service_->Stop();
    DeviceDetectProxy::CleanupInstance();
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
