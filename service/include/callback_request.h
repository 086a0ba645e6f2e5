// The requests of the six callback interfaces, encoded once per event: the
// callback's interface token, its code and its layout. The same encoding
// goes to every client that gets the event; CallbackDispatcher sends it.
#ifndef SYNTAVO_SIM_CALLBACK_REQUEST_H
#define SYNTAVO_SIM_CALLBACK_REQUEST_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "device_detect_request_code.h"
#include "iremote_object.h"
#include "message_parcel.h"
#include "refbase.h"

namespace Tavik {
namespace Syntavo {

class DeviceInfo;
class DeviceServiceInfo;
class RequestResultInfo;

namespace Sim {

// One encoded event. Immutable once made, so clients share it.
struct EncodedCallback {
    // The callback interface's descriptor, for logs and statistics.
    const char16_t* descriptor = u"";
    uint32_t code = 0;
    // Null when the layout did not fit a parcel (logged once, when encoding).
    std::shared_ptr<const MessageParcel> data;
};

// An encoded event for one client's object.
struct CallbackRequest {
    sptr<IRemoteObject> target;
    EncodedCallback callback;
};

// IDeviceStateChangedCallback, codes 0 (online), 1 (offline), 3 (ready):
// presence, DeviceInfo.
EncodedCallback EncodeDeviceChanged(DeviceChangedCallbackCode code, const DeviceInfo& device);
// IServiceChangedCallback, code 0: int32 event, uint32 count, count x
// (presence, DeviceServiceInfo).
EncodedCallback EncodeServiceChanged(int32_t event, const std::vector<DeviceServiceInfo>& services);
// IDeviceDetectCallback, code 0: int32 event, presence, DeviceInfo.
EncodedCallback EncodeDetectEvent(int32_t event, const DeviceInfo& device);
// IServiceDeliverCallback, code 0: string.
EncodedCallback EncodeDeliver(const std::string& info);
// IDialogEventCallback, code 0: string.
EncodedCallback EncodeDialogReply(const std::string& info);
// IServicePublishCallback, code 0: presence, RequestResultInfo.
EncodedCallback EncodePublishEvent(const RequestResultInfo& info);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_CALLBACK_REQUEST_H
