// PeerHolder: keeps the remote object that a proxy sends its requests to.
#ifndef TAVIK_PLATFORM_PEER_HOLDER_H
#define TAVIK_PLATFORM_PEER_HOLDER_H

#include "iremote_object.h"

namespace Tavik {

class PeerHolder {
protected:
    explicit PeerHolder(const sptr<IRemoteObject>& object) : remoteObject_(object) {}
    virtual ~PeerHolder() = default;
    PeerHolder(const PeerHolder&) = delete;
    PeerHolder& operator=(const PeerHolder&) = delete;

    // The object given at construction; never changes.
    sptr<IRemoteObject> Remote() { return remoteObject_; }

private:
    const sptr<IRemoteObject> remoteObject_;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_PEER_HOLDER_H
