#include "recording_callbacks.h"

namespace Tavik {
namespace Test {

using namespace Syntavo;

std::string RecordedCallback::Line() const
{
    std::string line = (tag.empty() ? "" : tag + " ") + what;
    if (what == "services") {
        line += " " + std::to_string(event);
        for (const DeviceServiceInfo& info : *services) {
            line += " " + info.GetDeviceId() + "," + info.GetNetworkId() + "," + std::to_string(info.GetDeviceType()) +
                    "," + info.GetBrMac() + "[";
            for (const std::string& rule : info.GetServiceRuleList()) {
                line += rule + ",";
            }
            line += "]";
        }
    } else if (what == "detect") {
        line += " " + std::to_string(event) + " " + detected->GetDeviceUdid();
    } else if (what == "publish") {
        line += " " + std::to_string(event) + " " + std::to_string(result);
    } else if (device != nullptr) {
        line += " " + device->GetDeviceUdid() + " " + device->GetDeviceNetworkId() + " " + device->GetDeviceName() +
                " " + std::to_string(device->GetDeviceType());
    } else {
        line += " " + text;
    }
    return line;
}

std::vector<std::string> CallbackJournal::Lines()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

void CallbackJournal::SetObserver(Observer observer)
{
    std::lock_guard<std::mutex> lock(mutex_);
    observer_ = std::move(observer);
}

int32_t CallbackJournal::Note(const RecordedCallback& callback)
{
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(callback.Line());
    if (observer_) {
        observer_(callback);
    }
    return result_;
}

namespace {
RecordedCallback DeviceCallback(const char* what, const DeviceInfo& device)
{
    RecordedCallback callback;
    callback.what = what;
    callback.device = &device;
    return callback;
}
}  // namespace

int32_t DeviceChangedRecorder::OnDeviceOnline(DeviceInfo& device)
{
    return Note(DeviceCallback("online", device));
}

int32_t DeviceChangedRecorder::OnDeviceOffline(DeviceInfo& device)
{
    return Note(DeviceCallback("offline", device));
}

int32_t DeviceChangedRecorder::OnDeviceReady(DeviceInfo& device)
{
    return Note(DeviceCallback("ready", device));
}

int32_t ServiceChangedRecorder::OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos)
{
    RecordedCallback callback;
    callback.what = "services";
    callback.event = event;
    callback.services = &infos;
    return Note(callback);
}

int32_t DeviceDetectRecorder::OnDeviceEvent(int32_t event, sptr<DeviceInfo> device)
{
    RecordedCallback callback;
    callback.what = "detect";
    callback.event = event;
    callback.detected = device;
    return Note(callback);
}

int32_t ServiceDeliverRecorder::OnDeliver(const std::string& info)
{
    RecordedCallback callback;
    callback.what = "deliver";
    callback.text = info;
    return Note(callback);
}

int32_t DialogEventRecorder::OnDialogEventReply(const std::string& info)
{
    RecordedCallback callback;
    callback.what = "dialog";
    callback.text = info;
    return Note(callback);
}

int32_t ServicePublishRecorder::OnPublishEvent(sptr<RequestResultInfo> info)
{
    RecordedCallback callback;
    callback.what = "publish";
    callback.event = info->GetEventCode();
    callback.result = info->GetResultCode();
    return Note(callback);
}

}  // namespace Test
}  // namespace Tavik
