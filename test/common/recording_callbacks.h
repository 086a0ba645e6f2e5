// Handlers of the six callback stubs that note each callback as one line,
// in arrival order, in a journal that several handlers may share. Tests
// compare these lines, whose form is set here only:
//   "online|offline|ready <udid> <networkId> <name> <type>"
//   "services <event> <deviceId>,<networkId>,<type>,<brMac>[<rule>,...] ..."
//   "detect <event> <udid>"
//   "deliver <info>", "dialog <info>", "publish <eventCode> <resultCode>"
// each preceded by "<tag> " when the handler has a tag.
#ifndef DD_TEST_RECORDING_CALLBACKS_H
#define DD_TEST_RECORDING_CALLBACKS_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "device_changed_callback_stub.h"
#include "device_detect_callback_stub.h"
#include "dialog_event_callback_stub.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_publish_callback_stub.h"

namespace Tavik {
namespace Test {

// One callback as a handler received it; the pointers live for the call only.
struct RecordedCallback {
    // "online", "offline", "ready", "services", "detect", "deliver", "dialog" or "publish".
    std::string what;
    // The event of services and detect.
    int32_t event;
    // The info of deliver and dialog; "<eventCode> <resultCode>" of publish.
    std::string text;
    const Syntavo::DeviceInfo* device;
    const std::vector<Syntavo::DeviceServiceInfo>* services;
    // What a device-detect handler received; a handler may keep it.
    sptr<Syntavo::DeviceInfo> detected;
    std::string tag;

    RecordedCallback(std::string what, int32_t event, std::string text, const Syntavo::DeviceInfo* device = nullptr,
                     const std::vector<Syntavo::DeviceServiceInfo>* services = nullptr,
                     sptr<Syntavo::DeviceInfo> detected = nullptr)
        : what(std::move(what)),
          event(event),
          text(std::move(text)),
          device(device),
          services(services),
          detected(std::move(detected))
    {
    }
    std::string Line() const;
};

class CallbackJournal {
public:
    using Observer = std::function<void(const RecordedCallback&)>;

    // What every handler of the journal returns.
    explicit CallbackJournal(int32_t result = 0) : result_(result) {}

    std::vector<std::string> Lines();
    // Runs for every callback after its line is added, under the journal's
    // lock, so observers see the callbacks in the order of the lines.
    void SetObserver(Observer observer);
    int32_t Note(const RecordedCallback& callback);

private:
    std::mutex mutex_;
    const int32_t result_;
    std::vector<std::string> lines_;
    Observer observer_;
};

template <typename Stub>
class Recording : public Stub {
public:
    template <typename... StubArgs>
    explicit Recording(std::shared_ptr<CallbackJournal> journal = nullptr, std::string tag = "", StubArgs... stubArgs)
        : Stub(stubArgs...),
          journal_(journal != nullptr ? std::move(journal) : std::make_shared<CallbackJournal>()),
          tag_(std::move(tag))
    {
    }
    std::vector<std::string> Lines() { return journal_->Lines(); }

protected:
    int32_t Note(RecordedCallback callback)
    {
        callback.tag = tag_;
        return journal_->Note(callback);
    }

private:
    std::shared_ptr<CallbackJournal> journal_;
    std::string tag_;
};

class DeviceChangedRecorder : public Recording<Syntavo::DeviceChangedCallbackStub> {
public:
    using Recording::Recording;
    int32_t OnDeviceOnline(Syntavo::DeviceInfo& device) override { return Note({"online", 0, "", &device}); }
    int32_t OnDeviceOffline(Syntavo::DeviceInfo& device) override { return Note({"offline", 0, "", &device}); }
    int32_t OnDeviceReady(Syntavo::DeviceInfo& device) override { return Note({"ready", 0, "", &device}); }
};

class ServiceChangedRecorder : public Recording<Syntavo::ServiceChangedCallbackStub> {
public:
    using Recording::Recording;
    int32_t OnDeviceEvent(int32_t event, std::vector<Syntavo::DeviceServiceInfo> infos) override
    {
        return Note({"services", event, "", nullptr, &infos});
    }
};

class DeviceDetectRecorder : public Recording<Syntavo::DeviceDetectCallbackStub> {
public:
    using Recording::Recording;
    int32_t OnDeviceEvent(int32_t event, sptr<Syntavo::DeviceInfo> device) override
    {
        return Note({"detect", event, "", nullptr, nullptr, device});
    }
};

class ServiceDeliverRecorder : public Recording<Syntavo::ServiceDeliverCallbackStub> {
public:
    using Recording::Recording;
    int32_t OnDeliver(const std::string& info) override { return Note({"deliver", 0, info}); }
};

class DialogEventRecorder : public Recording<Syntavo::DialogEventCallbackStub> {
public:
    using Recording::Recording;
    int32_t OnDialogEventReply(const std::string& info) override { return Note({"dialog", 0, info}); }
};

class ServicePublishRecorder : public Recording<Syntavo::ServicePublishCallbackStub> {
public:
    using Recording::Recording;
    int32_t OnPublishEvent(sptr<Syntavo::RequestResultInfo> info) override
    {
        return Note({"publish", 0, std::to_string(info->GetEventCode()) + " " + std::to_string(info->GetResultCode())});
    }
};

}  // namespace Test
}  // namespace Tavik

#endif  // DD_TEST_RECORDING_CALLBACKS_H
