// IDialogEventCallback: the service's replies to dialog events.
#ifndef SYNTAVO_I_DIALOG_EVENT_CALLBACK_H
#define SYNTAVO_I_DIALOG_EVENT_CALLBACK_H

#include <cstdint>
#include <string>

#include "device_detect_descriptors.h"
#include "iremote_broker.h"

namespace Tavik {
namespace Syntavo {

class IDialogEventCallback : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(Descriptor::DIALOG_EVENT_CALLBACK);

    ~IDialogEventCallback() override = default;

    virtual int32_t OnDialogEventReply(const std::string& info) = 0;
};

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_I_DIALOG_EVENT_CALLBACK_H
