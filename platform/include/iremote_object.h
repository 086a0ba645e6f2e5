// IRemoteObject: something a request can be sent to, local (a stub) or
// remote (a transport's proxy for an object in another process).
#ifndef TAVIK_PLATFORM_IREMOTE_OBJECT_H
#define TAVIK_PLATFORM_IREMOTE_OBJECT_H

#include <cstdint>
#include <functional>
#include <string>

#include "refbase.h"

namespace Tavik {

class MessageParcel;
class MessageOption;

class IRemoteObject : public virtual RefBase {
public:
    // Told once when the object's process goes away. Recipients are held
    // strongly by the object they are attached to until they are removed or
    // have fired.
    class DeathRecipient : public virtual RefBase {
    public:
        ~DeathRecipient() override = default;
        // Runs on a platform thread (an IPC thread for socket peers).
        virtual void OnRemoteDied(const wptr<IRemoteObject>& object) = 0;
    };

    explicit IRemoteObject(std::u16string descriptor = std::u16string());
    ~IRemoteObject() override;
    IRemoteObject(const IRemoteObject&) = delete;
    IRemoteObject& operator=(const IRemoteObject&) = delete;

    // Sends one request. 0 means the reply has arrived (or, for a local
    // stub, OnRemoteRequest returned 0); any other value is a failure, one
    // of ipc_status.h or the stub's own status.
    virtual int32_t SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) = 0;

    // The outcome of SendRequestAsync: what SendRequest would have returned,
    // and the reply (meaningful only when the status is 0).
    using ReplyHandler = std::function<void(int32_t status, MessageParcel& reply)>;

    // Sends one request that expects a reply, without making the calling
    // thread wait for it: `done` runs exactly once, when the reply arrives or
    // the call fails. No thread waits meanwhile, so a peer that never answers
    // costs memory (one entry until its connection ends), not a thread; the
    // option's wait time does not apply and the option's flags must not ask
    // for a one-way call. A proxy runs `done` on an IPC thread, never under a
    // lock of the transport's; the base implementation, which local objects
    // use, calls SendRequest and then `done` on the calling thread.
    virtual void SendRequestAsync(uint32_t code, MessageParcel& data, MessageOption& option, ReplyHandler done);

    // False when the recipient cannot be attached: a local object never
    // dies, and a proxy whose peer is already gone refuses.
    virtual bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) = 0;
    virtual bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) = 0;

    virtual bool IsProxyObject() const = 0;
    virtual bool IsObjectDead() const { return false; }

    const std::u16string& GetObjectDescriptor() const { return descriptor_; }

private:
    std::u16string descriptor_;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_IREMOTE_OBJECT_H
