#include "callback_request.h"

#include "device_detect_descriptors.h"
#include "device_info.h"
#include "device_service_info.h"
#include "publish_event_info.h"
#include "sim_log.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

// Writes the token and lets `body` write the layout.
template <typename Body>
EncodedCallback Encode(const char16_t* descriptor, uint32_t code, Body body)
{
    EncodedCallback encoded;
    encoded.descriptor = descriptor;
    encoded.code = code;
    auto data = std::make_shared<MessageParcel>();
    if (!data->WriteInterfaceToken(descriptor) || !body(*data)) {
        SIM_LOGE("cannot write callback %{public}s code %{public}u", Str16ToStr8(descriptor).c_str(), code);
        return encoded;
    }
    encoded.data = std::move(data);
    return encoded;
}

}  // namespace

EncodedCallback EncodeDeviceChanged(DeviceChangedCallbackCode code, const DeviceInfo& device)
{
    return Encode(Descriptor::DEVICE_CHANGED_CALLBACK, ToCode(code),
                  [&](MessageParcel& data) { return data.WriteParcelable(&device); });
}

EncodedCallback EncodeServiceChanged(int32_t event, const std::vector<DeviceServiceInfo>& services)
{
    return Encode(Descriptor::SERVICE_CHANGED_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                  [&](MessageParcel& data) {
                      if (!data.WriteInt32(event) || !data.WriteUint32(static_cast<uint32_t>(services.size()))) {
                          return false;
                      }
                      for (const DeviceServiceInfo& service : services) {
                          if (!data.WriteParcelable(&service)) {
                              return false;
                          }
                      }
                      return true;
                  });
}

EncodedCallback EncodeDetectEvent(int32_t event, const DeviceInfo& device)
{
    return Encode(Descriptor::DEVICE_DETECT_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                  [&](MessageParcel& data) { return data.WriteInt32(event) && data.WriteParcelable(&device); });
}

EncodedCallback EncodeDeliver(const std::string& info)
{
    return Encode(Descriptor::SERVICE_DELIVER_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                  [&](MessageParcel& data) { return data.WriteString(info); });
}

EncodedCallback EncodeDialogReply(const std::string& info)
{
    return Encode(Descriptor::DIALOG_EVENT_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                  [&](MessageParcel& data) { return data.WriteString(info); });
}

EncodedCallback EncodePublishEvent(const RequestResultInfo& info)
{
    return Encode(Descriptor::SERVICE_PUBLISH_CALLBACK, ToCode(SingleEventCallbackCode::ON_EVENT),
                  [&](MessageParcel& data) { return data.WriteParcelable(&info); });
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
