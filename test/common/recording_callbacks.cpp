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

}  // namespace Test
}  // namespace Tavik
