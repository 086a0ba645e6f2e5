#include "transport/socket_proxy.h"

#include <algorithm>

#include "transport/socket_connection.h"

namespace Tavik {
namespace Transport {

SocketProxy::SocketProxy(std::shared_ptr<Connection> connection, uint32_t id)
    : connection_(std::move(connection)), id_(id)
{
}

SocketProxy::~SocketProxy()
{
    connection_->OnProxyDestroyed(id_, this);
}

int32_t SocketProxy::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    return connection_->Transact(id_, code, data, reply, option);
}

void SocketProxy::SendRequestAsync(uint32_t code, MessageParcel& data, MessageOption& option, ReplyHandler done)
{
    connection_->TransactAsync(id_, code, data, option, std::move(done));
}

bool SocketProxy::AddDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    if (recipient == nullptr) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    // The connection is marked closed before any proxy is notified, so a
    // recipient either is refused here or is in the list when the
    // notification takes it.
    if (deathNotified_ || connection_->IsClosed()) {
        return false;
    }
    recipients_.push_back(recipient);
    return true;
}

bool SocketProxy::RemoveDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    sptr<DeathRecipient> removed;
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = std::find(recipients_.begin(), recipients_.end(), recipient);
    if (it == recipients_.end()) {
        return false;
    }
    removed = std::move(*it);
    recipients_.erase(it);
    return true;
}

bool SocketProxy::IsObjectDead() const
{
    return connection_->IsClosed();
}

void SocketProxy::NotifyDeath()
{
    std::vector<sptr<DeathRecipient>> recipients;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (deathNotified_) {
            return;
        }
        deathNotified_ = true;
        recipients.swap(recipients_);
    }
    wptr<IRemoteObject> self(static_cast<IRemoteObject*>(this));
    for (const auto& recipient : recipients) {
        recipient->OnRemoteDied(self);
    }
}

}  // namespace Transport
}  // namespace Tavik
