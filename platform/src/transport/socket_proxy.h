// SocketProxy: the remote object that stands for an object of a peer
// process (private to the transport).
//
// Lifetime: owned by strong pointers like any remote object. A proxy keeps
// its connection alive; its destructor tells the connection, which returns
// the references it received for the id to the peer. While a proxy lives,
// the same id arriving again yields this same proxy.
#ifndef TAVIK_PLATFORM_TRANSPORT_SOCKET_PROXY_H
#define TAVIK_PLATFORM_TRANSPORT_SOCKET_PROXY_H

#include <memory>
#include <mutex>
#include <vector>

#include "iremote_object.h"

namespace Tavik {
namespace Transport {

class Connection;

class SocketProxy : public IRemoteObject {
public:
    SocketProxy(std::shared_ptr<Connection> connection, uint32_t id);
    ~SocketProxy() override;

    int32_t SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    void SendRequestAsync(uint32_t code, MessageParcel& data, MessageOption& option, ReplyHandler done) override;

    // False when the peer is already gone (or the recipient is null).
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool IsProxyObject() const override { return true; }
    bool IsObjectDead() const override;

    uint32_t GetId() const { return id_; }
    const std::shared_ptr<Connection>& GetConnection() const { return connection_; }

    // Calls the recipients once, on the calling thread; later calls do
    // nothing. The connection calls it on an IPC thread after it closed.
    void NotifyDeath();

private:
    const std::shared_ptr<Connection> connection_;
    const uint32_t id_;
    mutable std::mutex mutex_;
    bool deathNotified_ = false;
    std::vector<sptr<DeathRecipient>> recipients_;
};

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_SOCKET_PROXY_H
