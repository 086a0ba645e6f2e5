#include "peer_identity.h"

#include <unistd.h>

#include "transport/calling_scope.h"
#include "transport/socket_connection.h"
#include "transport/socket_proxy.h"

namespace Tavik {

namespace {

thread_local const PeerIdentity* t_calling = nullptr;

PeerIdentity Self()
{
    PeerIdentity self;
    self.pid = getpid();
    self.uid = geteuid();
    return self;
}

}  // namespace

namespace Transport {

CallingScope::CallingScope(const PeerIdentity& peer) : previous_(t_calling)
{
    t_calling = &peer;
}

CallingScope::~CallingScope()
{
    t_calling = previous_;
}

}  // namespace Transport

PeerIdentity GetCallingIdentity()
{
    return t_calling != nullptr ? *t_calling : Self();
}

pid_t GetCallingPid()
{
    return GetCallingIdentity().pid;
}

uid_t GetCallingUid()
{
    return GetCallingIdentity().uid;
}

PeerIdentity GetObjectPeer(const sptr<IRemoteObject>& object)
{
    auto* proxy = dynamic_cast<Transport::SocketProxy*>(object.GetRefPtr());
    return proxy != nullptr ? proxy->GetConnection()->GetPeer() : Self();
}

}  // namespace Tavik
