#include "supervisor.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#ifdef DD_HAVE_LIBSYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace DeviceDetectDaemon {

namespace {

// Passed descriptors start here (SD_LISTEN_FDS_START of the protocol).
constexpr int LISTEN_FDS_START = 3;

#ifndef DD_HAVE_LIBSYSTEMD
// A whole decimal number in [0, limit], or -1.
long ParseCount(const char* text, long limit)
{
    if (text == nullptr || *text == '\0') {
        return -1;
    }
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < 0 || value > limit) {
        return -1;
    }
    return value;
}

// The protocol: LISTEN_PID names the process the sockets are for (a child
// that inherited the variables must not take them), LISTEN_FDS counts them
// from descriptor 3 on.
int CountPassedSockets()
{
    long pid = ParseCount(std::getenv("LISTEN_PID"), 0x7fffffffL);
    long count = ParseCount(std::getenv("LISTEN_FDS"), 1024);
    unsetenv("LISTEN_PID");
    unsetenv("LISTEN_FDS");
    unsetenv("LISTEN_FDNAMES");
    if (pid != static_cast<long>(getpid()) || count <= 0) {
        return 0;
    }
    for (int fd = LISTEN_FDS_START; fd < LISTEN_FDS_START + count; ++fd) {
        if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
            return -errno;
        }
    }
    return static_cast<int>(count);
}

bool SendNotification(const std::string& assignments)
{
    const char* path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr || (path[0] != '/' && path[0] != '@')) {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    size_t length = std::strlen(path);
    if (length >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') {
        // An abstract address: a leading NUL, and exactly `length` bytes.
        address.sun_path[0] = '\0';
    }
    socklen_t size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + (path[0] == '/' ? 1 : 0));
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    ssize_t sent = sendto(fd, assignments.data(), assignments.size(), MSG_NOSIGNAL,
                          reinterpret_cast<const sockaddr*>(&address), size);
    close(fd);
    return sent == static_cast<ssize_t>(assignments.size());
}
#endif

}  // namespace

int TakePassedSocket(std::string& error)
{
#ifdef DD_HAVE_LIBSYSTEMD
    int count = sd_listen_fds(1);
#else
    int count = CountPassedSockets();
#endif
    if (count < 0) {
        error = std::string("cannot take the passed sockets: ") + std::strerror(-count);
        return BAD_PASSED_SOCKETS;
    }
    if (count == 0) {
        return NO_PASSED_SOCKET;
    }
    if (count > 1) {
        for (int fd = LISTEN_FDS_START; fd < LISTEN_FDS_START + count; ++fd) {
            close(fd);
        }
        error = "the supervisor passed " + std::to_string(count) +
                " sockets; devicedetectd serves one (give devicedetectd.socket one ListenStream=)";
        return BAD_PASSED_SOCKETS;
    }
    return LISTEN_FDS_START;
}

std::string BoundPath(int fd)
{
    sockaddr_un address{};
    socklen_t length = sizeof(address);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0 || address.sun_family != AF_UNIX ||
        length <= offsetof(sockaddr_un, sun_path) || address.sun_path[0] == '\0') {
        return "";
    }
    size_t size = length - offsetof(sockaddr_un, sun_path);
    return std::string(address.sun_path, strnlen(address.sun_path, size));
}

bool SupervisorListens()
{
    const char* path = std::getenv("NOTIFY_SOCKET");
    return path != nullptr && *path != '\0';
}

bool NotifySupervisor(const std::string& assignments)
{
#ifdef DD_HAVE_LIBSYSTEMD
    return sd_notify(0, assignments.c_str()) > 0;
#else
    return SendNotification(assignments);
#endif
}

}  // namespace DeviceDetectDaemon
