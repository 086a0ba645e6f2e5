// Scripted stand-ins for the service side of the proxy tests.
//
// FakeRemoteObject plays the service's remote object: it records every
// request it is sent and answers with a scripted reply or send status, keeps
// the death recipients attached to it and can fire them once, as a peer's
// death would. FakeSystemAbilityManager plays the system ability manager:
// install it with SystemAbilityManagerClient::SetSystemAbilityManagerForTest
// (ScopedSystemAbilityManager does that and undoes it) and it counts the
// lookups and answers with the object scripted for the id.
//
// Both are thread-safe: the proxy may be driven from several threads.
#ifndef SYNTAVO_TEST_FAKE_REMOTE_OBJECT_H
#define SYNTAVO_TEST_FAKE_REMOTE_OBJECT_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "iremote_object.h"
#include "message_option.h"
#include "message_parcel.h"
#include "system_ability_manager.h"

namespace Tavik {
namespace Test {

// A copy of one request as it reached the remote object.
struct RecordedRequest {
    uint32_t code = 0;
    std::vector<uint8_t> data;
    std::vector<sptr<IRemoteObject>> objects;
    int flags = -1;
    int waitTime = -1;

    // A parcel with the request's bytes and object table, read from the start.
    MessageParcel ToParcel() const;
};

class FakeRemoteObject : public IRemoteObject {
public:
    FakeRemoteObject();
    ~FakeRemoteObject() override;

    // Records the request. A non-zero send status is returned as it is, with
    // the reply left empty; otherwise the reply becomes a copy of the
    // scripted one. After Die() every send returns IPC_ERR_DEAD_OBJECT.
    int32_t SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    // Keeps the recipient until it fires; false once dead or when refused.
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool IsProxyObject() const override { return true; }
    bool IsObjectDead() const override
    {
        return Locked([this] { return dead_; });
    }

    // --- script ------------------------------------------------------------
    // Every later request is answered with a copy of reply (bytes and
    // object table). Until set, the reply is empty.
    void SetReply(const MessageParcel& reply);
    void SetSendStatus(int32_t status)
    {
        Locked([&] { sendStatus_ = status; });
    }
    void RefuseDeathRecipients(bool refuse)
    {
        Locked([&] { refuseRecipients_ = refuse; });
    }
    // Marks the object dead and calls every attached recipient once, outside
    // the fake's lock. A second call does nothing.
    void Die();

    // --- observation -------------------------------------------------------
    std::vector<RecordedRequest> Requests() const
    {
        return Locked([this] { return requests_; });
    }
    size_t RequestCount() const
    {
        return Locked([this] { return requests_.size(); });
    }
    // The last request; a default one when there was none.
    RecordedRequest LastRequest() const
    {
        return Locked([this] { return requests_.empty() ? RecordedRequest() : requests_.back(); });
    }
    size_t DeathRecipientCount() const
    {
        return Locked([this] { return recipients_.size(); });
    }
    size_t AddDeathRecipientCalls() const
    {
        return Locked([this] { return addRecipientCalls_; });
    }

private:
    template <typename Fn>
    auto Locked(Fn fn) const -> decltype(fn())
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return fn();
    }

    mutable std::mutex mutex_;
    std::vector<RecordedRequest> requests_;
    std::vector<uint8_t> replyData_;
    std::vector<sptr<IRemoteObject>> replyObjects_;
    int32_t sendStatus_ = 0;
    bool refuseRecipients_ = false;
    bool dead_ = false;
    std::vector<sptr<DeathRecipient>> recipients_;
    size_t addRecipientCalls_ = 0;
};

class FakeSystemAbilityManager : public ISystemAbilityManager {
public:
    // Counts the lookup and returns what is published under the id, or null.
    // While lookups are held, it waits in here until ReleaseLookups().
    sptr<IRemoteObject> GetSystemAbility(int32_t systemAbilityId) override;
    int32_t AddSystemAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& ability) override;
    int32_t RemoveSystemAbility(int32_t systemAbilityId) override;

    int LookupCount() const { return static_cast<int>(LookedUpIds().size()); }
    std::vector<int32_t> LookedUpIds() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return lookups_;
    }

    // For races: lookups block until released; WaitForLookup returns once
    // one has started.
    void HoldLookups();
    void ReleaseLookups();
    void WaitForLookup();

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int32_t, sptr<IRemoteObject>> abilities_;
    std::vector<int32_t> lookups_;
    bool holding_ = false;
};

// Installs a manager (which may be null) for its lifetime; on both ends it
// empties the proxy cache, so no test sees another's proxy.
class ScopedSystemAbilityManager {
public:
    explicit ScopedSystemAbilityManager(const sptr<ISystemAbilityManager>& manager);
    ~ScopedSystemAbilityManager();
    ScopedSystemAbilityManager(const ScopedSystemAbilityManager&) = delete;
    ScopedSystemAbilityManager& operator=(const ScopedSystemAbilityManager&) = delete;
};

}  // namespace Test
}  // namespace Tavik

#endif  // SYNTAVO_TEST_FAKE_REMOTE_OBJECT_H
