// DeviceDetectControlStub: the receiving end of the control interface
// "Tavik.Syntavo.IDeviceDetectControl" (sim_protocol.h), which changes the
// Simulator's world. Every reply is int32 status, string detail, and for the
// two reading requests one JSON string. Any thread.
#ifndef SYNTAVO_SIM_CONTROL_STUB_H
#define SYNTAVO_SIM_CONTROL_STUB_H

#include <memory>

#include "ipc_object_stub.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

class Simulator;

class DeviceDetectControlStub : public IPCObjectStub {
public:
    explicit DeviceDetectControlStub(std::shared_ptr<Simulator> simulator);
    ~DeviceDetectControlStub() override;

    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    std::shared_ptr<Simulator> simulator_;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_CONTROL_STUB_H
