// IRemoteStub<T>: the receiving end of interface T. A stub is its own remote
// object, so AsObject() returns the stub itself.
#ifndef TAVIK_PLATFORM_IREMOTE_STUB_H
#define TAVIK_PLATFORM_IREMOTE_STUB_H

#include "ipc_object_stub.h"
#include "iremote_broker.h"

namespace Tavik {

template <typename INTERFACE>
class IRemoteStub : public IPCObjectStub, public INTERFACE {
public:
    IRemoteStub();
    ~IRemoteStub() override = default;

    sptr<IRemoteObject> AsObject() override;
};

template <typename INTERFACE>
IRemoteStub<INTERFACE>::IRemoteStub() : IPCObjectStub(INTERFACE::GetDescriptor())
{
}

template <typename INTERFACE>
sptr<IRemoteObject> IRemoteStub<INTERFACE>::AsObject()
{
    return sptr<IRemoteObject>(static_cast<IPCObjectStub*>(this));
}

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_IREMOTE_STUB_H
