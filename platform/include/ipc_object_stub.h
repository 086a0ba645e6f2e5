// IPCObjectStub: the receiving end of an interface, a remote object that
// lives in this process.
//
// In process, a stub is its own remote object: SendRequest on it runs
// OnRemoteRequest directly on the caller's thread and returns its result.
// Across processes, a transport runs OnRemoteRequest on one of its IPC
// threads and sends the result back as the status of the caller's
// SendRequest.
#ifndef TAVIK_PLATFORM_IPC_OBJECT_STUB_H
#define TAVIK_PLATFORM_IPC_OBJECT_STUB_H

#include "iremote_object.h"

namespace Tavik {

class IPCObjectStub : public IRemoteObject {
public:
    explicit IPCObjectStub(std::u16string descriptor = std::u16string());
    ~IPCObjectStub() override;

    int32_t SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    // Base handling for codes a subclass does not know: returns
    // IPC_ERR_UNKNOWN_TRANSACTION and leaves the reply empty.
    virtual int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // A local object never dies, so no recipient can be attached.
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool IsProxyObject() const override { return false; }
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_IPC_OBJECT_STUB_H
