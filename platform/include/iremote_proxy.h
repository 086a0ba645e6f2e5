// IRemoteProxy<T>: the sending end of interface T, holding the remote object.
#ifndef TAVIK_PLATFORM_IREMOTE_PROXY_H
#define TAVIK_PLATFORM_IREMOTE_PROXY_H

#include "iremote_broker.h"
#include "peer_holder.h"

namespace Tavik {

template <typename INTERFACE>
class IRemoteProxy : public PeerHolder, public INTERFACE {
public:
    explicit IRemoteProxy(const sptr<IRemoteObject>& object);
    ~IRemoteProxy() override = default;

    sptr<IRemoteObject> AsObject() override;
};

template <typename INTERFACE>
IRemoteProxy<INTERFACE>::IRemoteProxy(const sptr<IRemoteObject>& object) : PeerHolder(object)
{
}

template <typename INTERFACE>
sptr<IRemoteObject> IRemoteProxy<INTERFACE>::AsObject()
{
    return Remote();
}

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_IREMOTE_PROXY_H
