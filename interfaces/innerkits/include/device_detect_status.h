// Status values of the device-detect client library.
//
// Methods return signed 32-bit values: 0 is success, the service's own status
// is passed through where a method returns it, and local failures use the
// values below. Which value a method returns for which failed step is fixed
// per method; the names give the usual meaning of each number.
#ifndef SYNTAVO_DEVICE_DETECT_STATUS_H
#define SYNTAVO_DEVICE_DETECT_STATUS_H

#include <cstdint>

namespace Tavik {
namespace Syntavo {

enum DeviceDetectStatus : int32_t {
    // The call succeeded.
    DD_OK = 0,
    // Failure of a method that reports only success or failure; also a
    // device count above the limit in some list replies.
    DD_FAILED = -1,
    // A reply value or record could not be read; also an event that a
    // callback stub could not decode.
    DD_ERR_READ_FAILED = 1001,
    // The interface token could not be written into the request.
    DD_ERR_WRITE_TOKEN_FAILED = 1006,
    // An argument could not be written (which one is fixed per method); also
    // an unreadable status in the three removal requests.
    DD_ERR_WRITE_ARG_FAILED = 1007,
    // SendRequest did not return 0: the service is unreachable or gone.
    DD_ERR_SEND_REQUEST_FAILED = 1008,
    // A callback stub received a request with a wrong interface token.
    DD_ERR_WRONG_TOKEN = 1010,
    // An argument (usually a callback object) could not be written.
    DD_ERR_WRITE_OBJECT_FAILED = 1011,
    // A record of a list reply was missing.
    DD_ERR_RECORD_MISSING = 1019,
    // An argument could not be written (which one is fixed per method).
    DD_ERR_WRITE_PARAM_FAILED = 1021,
    // A reply status or listener id could not be read.
    DD_ERR_READ_REPLY_FAILED = 1022,
    // A reply announced more than 1024 devices.
    DD_ERR_DEVICE_NUM_EXCEEDED = 1023,
    // The number of dynamic-info records differs from the number of keys.
    DD_ERR_RESULT_COUNT_MISMATCH = 2202,
};

// "DD_ERR_SEND_REQUEST_FAILED" and so on; null for a value that is none of
// the above (a service status, for instance).
const char* DeviceDetectStatusToString(int32_t status);

}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_DEVICE_DETECT_STATUS_H
