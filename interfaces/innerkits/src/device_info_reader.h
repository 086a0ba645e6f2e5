// Reading DeviceInfo records out of a reply straight into the caller's list
// (private to the client library).
#ifndef SYNTAVO_DEVICE_INFO_READER_H
#define SYNTAVO_DEVICE_INFO_READER_H

#include <vector>

#include "device_info.h"
#include "parcel.h"

namespace Tavik {
namespace Syntavo {

// Reads one DeviceInfo in strong-parcelable form (presence value, then the
// fields as DeviceInfo::Unmarshalling reads them) and constructs it at the
// end of `list`, with no record on the heap and no copy. False, with nothing
// appended, when the presence value is 0 (an absent record, or a parcel that
// has run out).
//
// The log shows what ReadStrongParcelable<DeviceInfo>() followed by appending
// a copy always showed: the record's "create:" line, then the "destory:"
// line of the decoded record that the copy came from.
bool AppendDeviceInfo(Parcel& parcel, std::vector<DeviceInfo>& list);

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_INFO_READER_H
