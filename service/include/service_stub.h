// DeviceDetectServiceStub: the service's receiving end, answering the 25
// request codes of "Tavik.Syntavo.IDeviceDetect" from a Simulator.
//
// It is the object published as system ability 70635. Requests carrying the
// control interface's token are handed to the control stub given at
// construction (if any), so one published object serves both interfaces.
//
// Replies follow the request table. A request whose reply has a status
// field gets the SimStatus there; one without (the lists, the records, the
// bools) makes OnRemoteRequest return the SimStatus instead, and the caller
// sees its send fail. Stateless apart from its collaborators and the cached
// list below; any thread.
//
// Unlike a plain local stub it accepts death recipients: clients in the same
// process attach one when they look the service up, and Stop() tells them
// the service is gone, as a daemon's exit would.
//
// The reply of the plain trusted-device list is kept encoded for the world
// version it was built from (Simulator::WorldVersion), so repeated queries
// of an unchanged world copy bytes instead of encoding every device again.
#ifndef SYNTAVO_SIM_SERVICE_STUB_H
#define SYNTAVO_SIM_SERVICE_STUB_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "ipc_object_stub.h"
#include "message_option.h"
#include "message_parcel.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

class Simulator;

class DeviceDetectServiceStub : public IPCObjectStub {
public:
    DeviceDetectServiceStub(std::shared_ptr<Simulator> simulator, sptr<IPCObjectStub> control = nullptr);
    ~DeviceDetectServiceStub() override;

    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    // Calls every attached recipient once and forgets them.
    void Stop();

private:
    // The request's handler by code; OnRemoteRequest times it.
    int32_t Dispatch(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option);
    int32_t GetTrustedDeviceList(MessageParcel& data, MessageParcel& reply);
    int32_t GetTrustedDeviceListWithAbilityFilter(MessageParcel& data, MessageParcel& reply);
    int32_t GetTrustedDeviceListWithServiceFilter(MessageParcel& data, MessageParcel& reply);
    int32_t RegisterListener(bool byServiceFilter, MessageParcel& data, MessageParcel& reply);
    int32_t UnregisterListener(bool byServiceFilter, MessageParcel& data, MessageParcel& reply);
    int32_t RegisterServiceChangedCallback(MessageParcel& data, MessageParcel& reply);
    int32_t UnregisterServiceChangedCallback(MessageParcel& data, MessageParcel& reply);
    int32_t GetLocalDeviceInfo(MessageParcel& data, MessageParcel& reply);
    int32_t GetTrustedDeviceListWithDeviceFilter(MessageParcel& data, MessageParcel& reply);
    int32_t GetRemoteDeviceDynamicInfo(MessageParcel& data, MessageParcel& reply);
    int32_t QueryDeviceConfigInfo(MessageParcel& data, MessageParcel& reply);
    int32_t RegisterServiceDeliverCallback(MessageParcel& data, MessageParcel& reply);
    int32_t SetDialogEventCallback(MessageParcel& data, MessageParcel& reply);
    int32_t NotifyAppDialogEvent(MessageParcel& data, MessageParcel& reply);
    int32_t RequestService(MessageParcel& data, MessageParcel& reply);
    int32_t UnRequestService(MessageParcel& data, MessageParcel& reply);
    int32_t GetDeviceSwitch(MessageParcel& data, MessageParcel& reply);
    int32_t RegisterKeyMouseCallback(MessageParcel& data, MessageParcel& reply);
    int32_t UnregisterKeyMouseCallback(MessageParcel& data, MessageParcel& reply);
    int32_t UpdateKeyMouseEdgeSwitch(MessageParcel& data, MessageParcel& reply);
    int32_t GetIsSameDeviceAccount(MessageParcel& data, MessageParcel& reply);
    int32_t GetBindKeymouseServiceReq(MessageParcel& data, MessageParcel& reply);
    int32_t GetIsNextTypeDevice(MessageParcel& data, MessageParcel& reply);

    std::shared_ptr<Simulator> simulator_;
    sptr<IPCObjectStub> control_;
    std::mutex listCacheMutex_;
    // The encoded reply of GetTrustedDeviceList and the world version it
    // shows; null until the first query.
    std::shared_ptr<const std::vector<uint8_t>> listCache_;
    uint64_t listCacheVersion_ = 0;
    std::mutex recipientsMutex_;
    std::vector<sptr<DeathRecipient>> recipients_;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_SERVICE_STUB_H
