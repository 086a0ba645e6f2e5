// Sends the six callback interfaces' requests to a client's remote object:
// the callback's interface token, its code and its layout. Each returns the
// result of SendRequest: the handler's result for a client that decoded the
// event, the stub's error (1001, 1010, ...) for one that did not, or a
// platform IPC status when the client is gone. All sends are synchronous
// and wait CALLBACK_WAIT_SECONDS at most.
#ifndef SYNTAVO_SIM_CALLBACK_SENDER_H
#define SYNTAVO_SIM_CALLBACK_SENDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "device_detect_request_code.h"
#include "iremote_object.h"
#include "refbase.h"

namespace Tavik {
namespace Syntavo {

class DeviceInfo;
class DeviceServiceInfo;
class RequestResultInfo;

namespace Sim {

// IDeviceStateChangedCallback, codes 0 (online), 1 (offline), 3 (ready):
// presence, DeviceInfo.
int32_t SendDeviceChanged(const sptr<IRemoteObject>& target, DeviceChangedCallbackCode code, const DeviceInfo& device);
// IServiceChangedCallback, code 0: int32 event, uint32 count, count x
// (presence, DeviceServiceInfo).
int32_t SendServiceChanged(const sptr<IRemoteObject>& target, int32_t event,
                           const std::vector<DeviceServiceInfo>& services);
// IDeviceDetectCallback, code 0: int32 event, presence, DeviceInfo.
int32_t SendDetectEvent(const sptr<IRemoteObject>& target, int32_t event, const DeviceInfo& device);
// IServiceDeliverCallback, code 0: string.
int32_t SendDeliver(const sptr<IRemoteObject>& target, const std::string& info);
// IDialogEventCallback, code 0: string.
int32_t SendDialogReply(const sptr<IRemoteObject>& target, const std::string& info);
// IServicePublishCallback, code 0: presence, RequestResultInfo.
int32_t SendPublishEvent(const sptr<IRemoteObject>& target, const RequestResultInfo& info);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_CALLBACK_SENDER_H
