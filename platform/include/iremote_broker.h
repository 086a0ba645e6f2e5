// IRemoteBroker, the broker registry and iface_cast.
//
// An interface (IDeviceDetect, say) derives from IRemoteBroker and declares
// its descriptor with DECLARE_INTERFACE_DESCRIPTOR. Its proxy class registers
// a creator under that descriptor through a static BrokerDelegator, and
// iface_cast<T>(object) asks the registry to build a T around a remote
// object.
#ifndef TAVIK_PLATFORM_IREMOTE_BROKER_H
#define TAVIK_PLATFORM_IREMOTE_BROKER_H

#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

#include "iremote_object.h"
#include "refbase.h"

namespace Tavik {

class IRemoteBroker : public virtual RefBase {
public:
    IRemoteBroker() = default;
    ~IRemoteBroker() override = default;
    virtual sptr<IRemoteObject> AsObject() = 0;
};

// Declares `static const std::u16string& GetDescriptor()` in an interface.
// The string is never destroyed: the inline function's static may belong to
// whichever module got there first, and delegators and proxies of other
// modules still read it during their own static destruction.
#define DECLARE_INTERFACE_DESCRIPTOR(DESCRIPTOR)                                        \
    static const std::u16string& GetDescriptor()                                        \
    {                                                                                   \
        static const std::u16string* descriptor_value = new std::u16string(DESCRIPTOR); \
        return *descriptor_value;                                                       \
    }

class BrokerDelegatorBase {
public:
    BrokerDelegatorBase() = default;
    virtual ~BrokerDelegatorBase() = default;
    BrokerDelegatorBase(const BrokerDelegatorBase&) = delete;
    BrokerDelegatorBase& operator=(const BrokerDelegatorBase&) = delete;
};

// Process-wide map from descriptor to proxy creator. Thread-safe.
class BrokerRegistration {
public:
    using Constructor = std::function<sptr<IRemoteBroker>(const sptr<IRemoteObject>& object)>;

    static BrokerRegistration& Get();

    // False when the descriptor is already registered (the first wins).
    bool Register(const std::u16string& descriptor, const Constructor& creator, const BrokerDelegatorBase* object);
    void Unregister(const std::u16string& descriptor);
    // Null when the object is null, no creator is registered, or the
    // creator returns null.
    sptr<IRemoteBroker> NewInstance(const std::u16string& descriptor, const sptr<IRemoteObject>& object);

    BrokerRegistration(const BrokerRegistration&) = delete;
    BrokerRegistration& operator=(const BrokerRegistration&) = delete;

private:
    BrokerRegistration() = default;
    ~BrokerRegistration() = default;

    std::mutex mutex_;
    std::unordered_map<std::u16string, Constructor> creators_;
};

// Registers T's creator under T::GetDescriptor() for as long as it lives;
// declare one as a static member of the proxy class.
template <typename T>
class BrokerDelegator : public BrokerDelegatorBase {
public:
    BrokerDelegator();
    ~BrokerDelegator() override;

private:
    // Kept by value: at unload T's descriptor may already be gone.
    const std::u16string descriptor_;
};

// Builds the proxy registered under INTERFACE's descriptor around object;
// null when there is none or it is not an INTERFACE.
template <typename INTERFACE>
sptr<INTERFACE> iface_cast(const sptr<IRemoteObject>& object);

// --- inline bodies ---------------------------------------------------------

template <typename T>
BrokerDelegator<T>::BrokerDelegator() : descriptor_(T::GetDescriptor())
{
    BrokerRegistration::Get().Register(
        descriptor_,
        [](const sptr<IRemoteObject>& object) -> sptr<IRemoteBroker> {
            T* proxy = new (std::nothrow) T(object);
            return sptr<IRemoteBroker>(proxy);
        },
        this);
}

template <typename T>
BrokerDelegator<T>::~BrokerDelegator()
{
    BrokerRegistration::Get().Unregister(descriptor_);
}

template <typename INTERFACE>
sptr<INTERFACE> iface_cast(const sptr<IRemoteObject>& object)
{
    sptr<IRemoteBroker> broker = BrokerRegistration::Get().NewInstance(INTERFACE::GetDescriptor(), object);
    return sptr<INTERFACE>(dynamic_cast<INTERFACE*>(broker.GetRefPtr()));
}

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_IREMOTE_BROKER_H
