// Interface descriptors (UTF-16): the service's, written as the interface
// token of every request, and one per callback interface. Note that the
// device-changed callback's descriptor is not formed from its class name.
#ifndef SYNTAVO_DEVICE_DETECT_DESCRIPTORS_H
#define SYNTAVO_DEVICE_DETECT_DESCRIPTORS_H

namespace Tavik {
namespace Syntavo {
namespace Descriptor {

constexpr const char16_t* DEVICE_DETECT = u"Tavik.Syntavo.IDeviceDetect";
constexpr const char16_t* DEVICE_CHANGED_CALLBACK = u"Tavik.Syntavo.IDeviceStateChangedCallback";
constexpr const char16_t* SERVICE_CHANGED_CALLBACK = u"Tavik.Syntavo.IServiceChangedCallback";
constexpr const char16_t* DEVICE_DETECT_CALLBACK = u"Tavik.Syntavo.IDeviceDetectCallback";
constexpr const char16_t* SERVICE_DELIVER_CALLBACK = u"Tavik.Syntavo.IServiceDeliverCallback";
constexpr const char16_t* DIALOG_EVENT_CALLBACK = u"Tavik.Syntavo.IDialogEventCallback";
constexpr const char16_t* SERVICE_PUBLISH_CALLBACK = u"Tavik.Syntavo.IServicePublishCallback";

}  // namespace Descriptor
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_DETECT_DESCRIPTORS_H
