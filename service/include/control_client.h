// ControlClient: sends control requests (sim_protocol.h) to the service's
// remote object, in process or across the socket. Used by `devicedetect sim`
// and the tests. Each call is one synchronous request; the result is the
// service's SimStatus, or the platform's IPC status when the request could
// not be sent (the detail then says so).
#ifndef SYNTAVO_SIM_CONTROL_CLIENT_H
#define SYNTAVO_SIM_CONTROL_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "iremote_object.h"
#include "refbase.h"
#include "sim_protocol.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

struct ControlResult {
    int32_t status = 0;
    std::string detail;
    // GET_WORLD, GET_REGISTRATIONS and DUMP only.
    std::string json;
};

class ControlClient {
public:
    explicit ControlClient(sptr<IRemoteObject> service) : service_(std::move(service)) {}

    ControlResult SetDeviceState(const std::string& id, DeviceState state);
    ControlResult AddDevice(const std::string& deviceJson);
    ControlResult RemoveDevice(const std::string& id);
    ControlResult SetDynamicInfo(const std::string& id, const std::string& key, const std::string& value);
    ControlResult NotifyServiceChange(int32_t event, const std::vector<std::string>& ids);
    ControlResult Deliver(bool allCodes, int32_t deliverCode, const std::string& info);
    ControlResult PublishResult(const std::string& pkgName, uint32_t eventCode, uint32_t resultCode);
    ControlResult DialogReply(const std::string& reply);
    ControlResult DetectEvent(const std::string& id, int32_t event);
    ControlResult GetWorld();
    ControlResult LoadWorld(const std::string& worldJson);
    ControlResult GetRegistrations();
    // Plays the next step of the scenario the service runs in step mode.
    ControlResult Step();
    // The service's state (docs/dump.md).
    ControlResult Dump();

private:
    sptr<IRemoteObject> service_;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_CONTROL_CLIENT_H
