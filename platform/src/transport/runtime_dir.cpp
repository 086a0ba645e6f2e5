#include "transport/runtime_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "transport/transport_log.h"

namespace Tavik {
namespace Transport {

namespace {

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

}  // namespace

std::string ResolveRuntimeDirectory()
{
    std::string dir = Environment("TAVIK_RUNTIME_DIR");
    if (!dir.empty()) {
        return dir;
    }
    std::string xdg = Environment("XDG_RUNTIME_DIR");
    if (!xdg.empty()) {
        return xdg + "/tavik";
    }
    return "/tmp/tavik-" + std::to_string(geteuid());
}

bool PrepareRuntimeDirectory(const std::string& dir)
{
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        TRANSPORT_LOGE("cannot create runtime directory %{public}s: %{public}s", dir.c_str(), std::strerror(errno));
        return false;
    }
    struct stat info {};
    if (lstat(dir.c_str(), &info) != 0) {
        TRANSPORT_LOGE("cannot inspect runtime directory %{public}s: %{public}s", dir.c_str(), std::strerror(errno));
        return false;
    }
    if (!S_ISDIR(info.st_mode)) {
        TRANSPORT_LOGE("runtime directory %{public}s is not a directory", dir.c_str());
        return false;
    }
    if (info.st_uid != geteuid()) {
        TRANSPORT_LOGE("runtime directory %{public}s belongs to uid %{public}u, not to us", dir.c_str(),
                       static_cast<unsigned>(info.st_uid));
        return false;
    }
    // mkdir's mode went through the umask; an existing directory may have
    // been made by hand.
    if ((info.st_mode & 07777) != 0700 && chmod(dir.c_str(), 0700) != 0) {
        TRANSPORT_LOGE("cannot set mode 0700 on %{public}s: %{public}s", dir.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

std::string SocketNameOf(int32_t systemAbilityId)
{
    return "sa-" + std::to_string(systemAbilityId) + ".sock";
}

std::string SocketPathIn(const std::string& dir, int32_t systemAbilityId)
{
    return dir + "/" + SocketNameOf(systemAbilityId);
}

std::string StagingSocketPathIn(const std::string& dir, int32_t systemAbilityId)
{
    return dir + "/sa-" + std::to_string(systemAbilityId) + ".new";
}

std::string LockPathIn(const std::string& dir, int32_t systemAbilityId)
{
    return dir + "/sa-" + std::to_string(systemAbilityId) + ".lock";
}

bool MakeSocketAddress(const std::string& path, sockaddr_un& address, socklen_t& length)
{
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

bool GetPeerCredentials(int fd, PeerCredentials& credentials)
{
    ucred cred{};
    socklen_t length = sizeof(cred);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &length) != 0 || length != sizeof(cred)) {
        return false;
    }
    credentials.pid = cred.pid;
    credentials.uid = cred.uid;
    credentials.gid = cred.gid;
    return true;
}

bool IsTrustedPeer(uid_t peerUid)
{
    return peerUid == geteuid() || peerUid == 0;
}

}  // namespace Transport
}  // namespace Tavik
