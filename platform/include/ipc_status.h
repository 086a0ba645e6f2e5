// Status values of the platform's IPC layer, returned by SendRequest and by
// IPCObjectStub::OnRemoteRequest. They are negative so that they never
// collide with the positive status values of the services built on top.
#ifndef TAVIK_PLATFORM_IPC_STATUS_H
#define TAVIK_PLATFORM_IPC_STATUS_H

#include <cstdint>

namespace Tavik {

enum IpcStatus : int32_t {
    // The request was delivered and its reply has arrived.
    IPC_OK = 0,
    // Out of memory while building or decoding a frame.
    IPC_ERR_NO_MEMORY = -12,
    // The peer's credentials were refused.
    IPC_ERR_PERMISSION_DENIED = -13,
    // A frame or parcel that does not decode; the connection is closed.
    IPC_ERR_INVALID_DATA = -22,
    // The peer process is gone (or the connection ended while waiting).
    IPC_ERR_DEAD_OBJECT = -32,
    // The stub does not know the request code.
    IPC_ERR_UNKNOWN_TRANSACTION = -74,
    // The request exceeds the frame limit.
    IPC_ERR_TOO_LARGE = -90,
    // No connection to the peer could be made.
    IPC_ERR_NOT_CONNECTED = -107,
    // No reply arrived within the option's wait time.
    IPC_ERR_TIMED_OUT = -110,
};

// "IPC_ERR_DEAD_OBJECT" and so on; "UNKNOWN" for any other value.
const char* IpcStatusToString(int32_t status);

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_IPC_STATUS_H
