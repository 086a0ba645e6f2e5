// devicedetectd and the service manager that may supervise it: the listening
// socket it may pass (socket activation, the LISTEN_FDS protocol) and the
// state it wants to hear (NOTIFY_SOCKET). Without a supervisor there is no
// passed socket and every notification is a no-op, so the daemon runs by
// hand exactly as before. Built on libsystemd when the build found it, else
// on the documented protocol itself (docs/decisions.md).
#ifndef DEVICEDETECTD_SUPERVISOR_H
#define DEVICEDETECTD_SUPERVISOR_H

#include <string>

namespace DeviceDetectDaemon {

constexpr int NO_PASSED_SOCKET = -1;
constexpr int BAD_PASSED_SOCKETS = -2;

// The one socket the supervisor passed to this process, NO_PASSED_SOCKET
// when it passed none (or passed them to another process), or
// BAD_PASSED_SOCKETS with the reason in `error`. The LISTEN_* variables are
// removed either way, so nothing this process starts takes them for its own.
int TakePassedSocket(std::string& error);

// The path a Unix socket is bound to; empty for any other descriptor.
std::string BoundPath(int fd);

// True when a supervisor listens for notifications (NOTIFY_SOCKET is set).
bool SupervisorListens();

// Sends newline-separated "NAME=value" assignments ("READY=1",
// "STATUS=..."). False when nobody listens or the send failed; the daemon
// serves on either way.
bool NotifySupervisor(const std::string& assignments);

}  // namespace DeviceDetectDaemon

#endif  // DEVICEDETECTD_SUPERVISOR_H
