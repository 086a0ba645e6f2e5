// The broker registry, iface_cast, in-process stubs and the system ability
// manager client, with a one-method test interface.
#include <gtest/gtest.h>

#include <string>

#include "ipc_object_stub.h"
#include "ipc_status.h"
#include "iremote_broker.h"
#include "iremote_proxy.h"
#include "iremote_stub.h"
#include "message_option.h"
#include "message_parcel.h"
#include "system_ability_manager.h"

namespace Tavik {
namespace {

class IEcho : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(u"Tavik.Test.IEcho");
    enum : uint32_t { ECHO = 1, FAIL = 2 };
    // The value plus one, or a negative status.
    virtual int32_t Echo(int32_t value) = 0;
};

// An interface no proxy is registered for by default.
class IOther : public IRemoteBroker {
public:
    DECLARE_INTERFACE_DESCRIPTOR(u"Tavik.Test.IOther");
};

class EchoProxy : public IRemoteProxy<IEcho> {
public:
    explicit EchoProxy(const sptr<IRemoteObject>& object) : IRemoteProxy<IEcho>(object) {}
    int32_t Echo(int32_t value) override
    {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option;
        if (!data.WriteInterfaceToken(GetDescriptor()) || !data.WriteInt32(value)) {
            return -1;
        }
        int32_t status = Remote()->SendRequest(ECHO, data, reply, option);
        if (status != 0) {
            return status;
        }
        return reply.ReadInt32();
    }
};

class EchoStub : public IRemoteStub<IEcho> {
public:
    explicit EchoStub(bool* destroyed = nullptr) : destroyed_(destroyed) {}
    ~EchoStub() override
    {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }
    int32_t Echo(int32_t value) override { return value + 1; }
    int32_t OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override
    {
        ++requests;
        if (data.ReadInterfaceToken() != GetDescriptor()) {
            return 1010;
        }
        switch (code) {
            case ECHO:
                return reply.WriteInt32(Echo(data.ReadInt32())) ? 0 : -1;
            case FAIL:
                return 77;
            default:
                return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
        }
    }
    int requests = 0;

private:
    bool* destroyed_;
};

class DeathCounter : public IRemoteObject::DeathRecipient {
public:
    explicit DeathCounter(bool* destroyed) : destroyed_(destroyed) {}
    ~DeathCounter() override { *destroyed_ = true; }
    void OnRemoteDied(const wptr<IRemoteObject>&) override { ++deaths; }
    int deaths = 0;

private:
    bool* destroyed_;
};

// --- broker registry --------------------------------------------------------

sptr<IRemoteBroker> MakeEchoProxy(const sptr<IRemoteObject>& object)
{
    return sptr<IRemoteBroker>(new EchoProxy(object));
}

TEST(BrokerRegistrationTest, RegisterDuplicateAndUnregister)
{
    BrokerRegistration& registry = BrokerRegistration::Get();
    EXPECT_EQ(&registry, &BrokerRegistration::Get());
    const std::u16string descriptor = u"Tavik.Test.Registry";
    sptr<IRemoteObject> stub(new IPCObjectStub(descriptor));
    int firstCalls = 0;
    int secondCalls = 0;
    auto counting = [](int* calls) {
        return [calls](const sptr<IRemoteObject>& object) {
            ++*calls;
            return MakeEchoProxy(object);
        };
    };

    EXPECT_EQ(registry.NewInstance(descriptor, stub), nullptr) << "nothing registered yet";
    ASSERT_TRUE(registry.Register(descriptor, counting(&firstCalls), nullptr));
    EXPECT_FALSE(registry.Register(descriptor, counting(&secondCalls), nullptr)) << "a second creator, same descriptor";

    sptr<IRemoteBroker> broker = registry.NewInstance(descriptor, stub);
    ASSERT_NE(broker, nullptr);
    EXPECT_EQ(broker->AsObject(), stub);
    EXPECT_EQ(firstCalls, 1) << "the first registration wins";
    EXPECT_EQ(secondCalls, 0);

    EXPECT_EQ(registry.NewInstance(descriptor, nullptr), nullptr) << "null object";
    EXPECT_EQ(firstCalls, 1) << "no creator call for a null object";

    registry.Unregister(descriptor);
    EXPECT_EQ(registry.NewInstance(descriptor, stub), nullptr);
    ASSERT_TRUE(registry.Register(
        descriptor, [](const sptr<IRemoteObject>&) { return sptr<IRemoteBroker>(); }, nullptr))
        << "free again after unregistering";
    EXPECT_EQ(registry.NewInstance(descriptor, stub), nullptr) << "a creator returning null";
    registry.Unregister(descriptor);
}

TEST(BrokerDelegatorTest, RegistersForItsLifetimeAndOnlyForItsInterface)
{
    sptr<IRemoteObject> stub(new EchoStub());
    EXPECT_EQ(iface_cast<IEcho>(stub), nullptr) << "no delegator yet";
    {
        BrokerDelegator<EchoProxy> delegator;
        sptr<IEcho> proxy = iface_cast<IEcho>(stub);
        ASSERT_NE(proxy, nullptr);
        EXPECT_NE(dynamic_cast<EchoProxy*>(proxy.GetRefPtr()), nullptr);
        EXPECT_EQ(proxy->AsObject(), stub);
        EXPECT_EQ(proxy->Echo(41), 42) << "through the proxy to the stub and back";
        EXPECT_EQ(iface_cast<IEcho>(nullptr), nullptr);
        EXPECT_EQ(iface_cast<IOther>(stub), nullptr) << "nothing registered for IOther";

        // A creator under IOther's descriptor that builds something that is not an IOther.
        ASSERT_TRUE(BrokerRegistration::Get().Register(IOther::GetDescriptor(), MakeEchoProxy, nullptr));
        EXPECT_EQ(iface_cast<IOther>(stub), nullptr);
        BrokerRegistration::Get().Unregister(IOther::GetDescriptor());
    }
    EXPECT_EQ(iface_cast<IEcho>(stub), nullptr) << "the delegator's end unregisters";
}

// --- in-process stubs -------------------------------------------------------

// SendRequest on a local stub runs OnRemoteRequest and returns its status;
// the base stub knows no code at all.
TEST(IPCObjectStubTest, SendRequestReturnsOnRemoteRequestStatus)
{
    struct Case {
        const char* name;
        bool bare;
        uint32_t code;
        bool token;
        int32_t status;
        int32_t reply;  // read from the reply when the status is 0
    };
    const Case cases[] = {
        {"echo", false, IEcho::ECHO, true, 0, 10},
        {"stub's own status", false, IEcho::FAIL, true, 77, 0},
        {"unknown code", false, 999, true, IPC_ERR_UNKNOWN_TRANSACTION, 0},
        {"wrong token", false, IEcho::ECHO, false, 1010, 0},
        {"base stub, code 1", true, 1, true, IPC_ERR_UNKNOWN_TRANSACTION, 0},
        {"base stub, code 0xffffffff", true, 0xffffffffu, true, IPC_ERR_UNKNOWN_TRANSACTION, 0},
    };
    for (const Case& c : cases) {
        sptr<EchoStub> echo(new EchoStub());
        sptr<IRemoteObject> stub =
            c.bare ? sptr<IRemoteObject>(new IPCObjectStub(u"Tavik.Test.Bare")) : echo->AsObject();
        MessageParcel data;
        MessageParcel reply;
        MessageOption option;
        ASSERT_TRUE(data.WriteInterfaceToken(c.token ? IEcho::GetDescriptor() : u"Tavik.Test.IWrong"));
        ASSERT_TRUE(data.WriteInt32(9));
        EXPECT_EQ(stub->SendRequest(c.code, data, reply, option), c.status) << c.name;
        EXPECT_EQ(echo->requests, c.bare ? 0 : 1) << c.name;
        if (c.status == 0) {
            EXPECT_EQ(reply.ReadInt32(), c.reply) << c.name;
        } else {
            EXPECT_EQ(reply.GetDataSize(), 0u) << c.name;
        }
    }
    sptr<EchoStub> stub(new EchoStub());
    EXPECT_FALSE(stub->IsProxyObject());
    EXPECT_EQ(stub->GetObjectDescriptor(), u"Tavik.Test.IEcho");
}

TEST(IPCObjectStubTest, LocalStubRefusesDeathRecipients)
{
    bool recipientDestroyed = false;
    sptr<EchoStub> stub(new EchoStub());
    {
        sptr<DeathCounter> recipient(new DeathCounter(&recipientDestroyed));
        EXPECT_FALSE(stub->AddDeathRecipient(recipient));
        EXPECT_EQ(recipient->deaths, 0);
    }
    EXPECT_TRUE(recipientDestroyed) << "a refused recipient is not kept";
}

TEST(IpcStatusTest, NamesEveryStatus)
{
    // clang-format off
    const std::pair<int32_t, const char*> names[] = {
        {IPC_OK, "IPC_OK"}, {IPC_ERR_NO_MEMORY, "IPC_ERR_NO_MEMORY"},
        {IPC_ERR_PERMISSION_DENIED, "IPC_ERR_PERMISSION_DENIED"}, {IPC_ERR_INVALID_DATA, "IPC_ERR_INVALID_DATA"},
        {IPC_ERR_DEAD_OBJECT, "IPC_ERR_DEAD_OBJECT"}, {IPC_ERR_UNKNOWN_TRANSACTION, "IPC_ERR_UNKNOWN_TRANSACTION"},
        {IPC_ERR_TOO_LARGE, "IPC_ERR_TOO_LARGE"}, {IPC_ERR_NOT_CONNECTED, "IPC_ERR_NOT_CONNECTED"},
        {IPC_ERR_TIMED_OUT, "IPC_ERR_TIMED_OUT"}, {1, "UNKNOWN"}, {-1, "UNKNOWN"}, {1008, "UNKNOWN"},
    };
    // clang-format on
    for (const auto& [status, name] : names) {
        EXPECT_STREQ(IpcStatusToString(status), name) << status;
    }
}

// --- system ability manager -------------------------------------------------

// Ids no real service uses, so the lookup never reaches a live socket.
constexpr int32_t kTestAbilityId = 4242001;
constexpr int32_t kUnusedAbilityId = 4242002;

class FakeManager : public ISystemAbilityManager {
public:
    sptr<IRemoteObject> GetSystemAbility(int32_t id) override
    {
        lastId = id;
        return object;
    }
    int32_t AddSystemAbility(int32_t, const sptr<IRemoteObject>&) override { return -1; }
    int32_t RemoveSystemAbility(int32_t) override { return -1; }
    sptr<IRemoteObject> object;
    int32_t lastId = 0;
};

class SystemAbilityManagerTest : public testing::Test {
protected:
    void TearDown() override { SystemAbilityManagerClient::GetInstance().ResetSystemAbilityManager(); }
};

TEST_F(SystemAbilityManagerTest, AddGetRemoveInProcess)
{
    SystemAbilityManagerClient& client = SystemAbilityManagerClient::GetInstance();
    EXPECT_EQ(&client, &SystemAbilityManagerClient::GetInstance());
    sptr<ISystemAbilityManager> manager = client.GetSystemAbilityManager();
    ASSERT_NE(manager, nullptr);

    bool destroyed = false;
    ASSERT_EQ(manager->AddSystemAbility(kTestAbilityId, sptr<IRemoteObject>(new EchoStub(&destroyed))), 0);
    EXPECT_FALSE(destroyed) << "the manager holds what was published";
    sptr<IRemoteObject> found = manager->GetSystemAbility(kTestAbilityId);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->GetObjectDescriptor(), IEcho::GetDescriptor());
    EXPECT_EQ(client.GetSystemAbilityManager()->GetSystemAbility(kTestAbilityId), found)
        << "the client keeps one manager";
    found = nullptr;
    EXPECT_EQ(manager->GetSystemAbility(kUnusedAbilityId), nullptr);

    EXPECT_EQ(manager->RemoveSystemAbility(kTestAbilityId), 0);
    EXPECT_TRUE(destroyed) << "removal drops the manager's reference";
    EXPECT_EQ(manager->GetSystemAbility(kTestAbilityId), nullptr);
    EXPECT_NE(manager->RemoveSystemAbility(kTestAbilityId), 0) << "nothing left to remove";
}

TEST_F(SystemAbilityManagerTest, TestSeamSwapsTheManager)
{
    SystemAbilityManagerClient& client = SystemAbilityManagerClient::GetInstance();
    sptr<ISystemAbilityManager> real = client.GetSystemAbilityManager();
    ASSERT_NE(real, nullptr);

    client.SetSystemAbilityManagerForTest(nullptr);
    EXPECT_EQ(client.GetSystemAbilityManager(), nullptr);

    sptr<FakeManager> fake(new FakeManager());
    fake->object = new IPCObjectStub(u"Tavik.Test.Fake");
    client.SetSystemAbilityManagerForTest(fake);
    sptr<ISystemAbilityManager> seen = client.GetSystemAbilityManager();
    ASSERT_EQ(seen.GetRefPtr(), static_cast<ISystemAbilityManager*>(fake.GetRefPtr()));
    EXPECT_EQ(seen->GetSystemAbility(70635), fake->object);
    EXPECT_EQ(fake->lastId, 70635);

    client.ResetSystemAbilityManager();
    EXPECT_EQ(client.GetSystemAbilityManager(), real) << "reset restores the default manager";
}

}  // namespace
}  // namespace Tavik
