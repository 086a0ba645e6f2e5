// EmbeddedService: a Simulator with its two stubs, ready to be published.
//
// In process, Publish() adds the service stub to the system ability
// manager under 70635, so DeviceDetectProxy::GetInstance() finds it without
// a daemon; Unpublish() (also run by the destructor) removes it again and
// drops the proxy's cached instance. devicedetectd publishes Object() over
// the socket transport instead. Resource type; not copyable.
#ifndef SYNTAVO_SIM_EMBEDDED_SERVICE_H
#define SYNTAVO_SIM_EMBEDDED_SERVICE_H

#include <memory>

#include "control_stub.h"
#include "service_stub.h"
#include "simulator.h"
#include "world.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

class EmbeddedService {
public:
    explicit EmbeddedService(World world = DefaultWorld());
    ~EmbeddedService();
    EmbeddedService(const EmbeddedService&) = delete;
    EmbeddedService& operator=(const EmbeddedService&) = delete;

    // False when the system ability manager is missing or refuses.
    bool Publish();
    void Unpublish();

    const std::shared_ptr<Simulator>& GetSimulator() const { return simulator_; }
    sptr<IRemoteObject> Object() const;

private:
    std::shared_ptr<Simulator> simulator_;
    sptr<DeviceDetectControlStub> control_;
    sptr<DeviceDetectServiceStub> service_;
    bool published_ = false;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_EMBEDDED_SERVICE_H
