#include "fake_remote_object.h"

#include <algorithm>
#include <utility>

#include "device_detect_proxy.h"
#include "ipc_status.h"

namespace Tavik {
namespace Test {

MessageParcel RecordedRequest::ToParcel() const
{
    MessageParcel parcel;
    parcel.ParseFrom(data.data(), data.size());
    parcel.SetObjects(objects);
    return parcel;
}

FakeRemoteObject::FakeRemoteObject() : IRemoteObject(u"Tavik.Test.FakeRemoteObject") {}

FakeRemoteObject::~FakeRemoteObject() = default;

int32_t FakeRemoteObject::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    std::lock_guard<std::mutex> lock(mutex_);
    RecordedRequest request;
    request.code = code;
    request.data.assign(data.GetData(), data.GetData() + data.GetDataSize());
    request.objects = data.GetObjects();
    request.flags = option.GetFlags();
    request.waitTime = option.GetWaitTime();
    requests_.push_back(std::move(request));
    if (dead_) {
        return IPC_ERR_DEAD_OBJECT;
    }
    if (sendStatus_ != 0) {
        return sendStatus_;
    }
    reply.ParseFrom(replyData_.data(), replyData_.size());
    reply.SetObjects(replyObjects_);
    return IPC_OK;
}

bool FakeRemoteObject::AddDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    std::lock_guard<std::mutex> lock(mutex_);
    ++addRecipientCalls_;
    if (dead_ || refuseRecipients_ || recipient == nullptr) {
        return false;
    }
    recipients_.push_back(recipient);
    return true;
}

bool FakeRemoteObject::RemoveDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = std::find(recipients_.begin(), recipients_.end(), recipient);
    if (it == recipients_.end()) {
        return false;
    }
    recipients_.erase(it);
    return true;
}

void FakeRemoteObject::SetReply(const MessageParcel& reply)
{
    std::lock_guard<std::mutex> lock(mutex_);
    replyData_.assign(reply.GetData(), reply.GetData() + reply.GetDataSize());
    replyObjects_ = reply.GetObjects();
}

void FakeRemoteObject::Die()
{
    std::vector<sptr<DeathRecipient>> recipients;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (dead_) {
            return;
        }
        dead_ = true;
        recipients.swap(recipients_);
    }
    // Outside the lock: a recipient may well call back into this object.
    const wptr<IRemoteObject> self(this);
    for (const sptr<DeathRecipient>& recipient : recipients) {
        recipient->OnRemoteDied(self);
    }
}

sptr<IRemoteObject> FakeSystemAbilityManager::GetSystemAbility(int32_t systemAbilityId)
{
    std::unique_lock<std::mutex> lock(mutex_);
    lookups_.push_back(systemAbilityId);
    changed_.notify_all();
    changed_.wait(lock, [this] { return !holding_; });
    auto it = abilities_.find(systemAbilityId);
    return it == abilities_.end() ? nullptr : it->second;
}

int32_t FakeSystemAbilityManager::AddSystemAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& ability)
{
    std::lock_guard<std::mutex> lock(mutex_);
    abilities_[systemAbilityId] = ability;
    return IPC_OK;
}

int32_t FakeSystemAbilityManager::RemoveSystemAbility(int32_t systemAbilityId)
{
    std::lock_guard<std::mutex> lock(mutex_);
    return abilities_.erase(systemAbilityId) == 1 ? IPC_OK : IPC_ERR_INVALID_DATA;
}

void FakeSystemAbilityManager::HoldLookups()
{
    std::lock_guard<std::mutex> lock(mutex_);
    holding_ = true;
}

void FakeSystemAbilityManager::ReleaseLookups()
{
    std::lock_guard<std::mutex> lock(mutex_);
    holding_ = false;
    changed_.notify_all();
}

void FakeSystemAbilityManager::WaitForLookup()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !lookups_.empty(); });
}

ScopedSystemAbilityManager::ScopedSystemAbilityManager(const sptr<ISystemAbilityManager>& manager)
{
    Syntavo::DeviceDetectProxy::CleanupInstance();
    SystemAbilityManagerClient::GetInstance().SetSystemAbilityManagerForTest(manager);
}

ScopedSystemAbilityManager::~ScopedSystemAbilityManager()
{
    Syntavo::DeviceDetectProxy::CleanupInstance();
    SystemAbilityManagerClient::GetInstance().ResetSystemAbilityManager();
}

}  // namespace Test
}  // namespace Tavik
