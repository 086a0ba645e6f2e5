#include "iremote_broker.h"

namespace Tavik {

BrokerRegistration& BrokerRegistration::Get()
{
    // Immortal: delegators of other libraries unregister during their own
    // static destruction, in an order this library does not control.
    static auto* instance = new BrokerRegistration();
    return *instance;
}

bool BrokerRegistration::Register(const std::u16string& descriptor, const Constructor& creator,
                                  const BrokerDelegatorBase* /* object */)
{
    if (descriptor.empty() || !creator) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    return creators_.emplace(descriptor, creator).second;
}

void BrokerRegistration::Unregister(const std::u16string& descriptor)
{
    std::lock_guard<std::mutex> lock(mutex_);
    creators_.erase(descriptor);
}

sptr<IRemoteBroker> BrokerRegistration::NewInstance(const std::u16string& descriptor, const sptr<IRemoteObject>& object)
{
    if (object == nullptr) {
        return nullptr;
    }
    Constructor creator;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = creators_.find(descriptor);
        if (it == creators_.end()) {
            return nullptr;
        }
        creator = it->second;
    }
    // Outside the lock: a creator may log or allocate at leisure.
    return creator(object);
}

}  // namespace Tavik
