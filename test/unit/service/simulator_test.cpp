// Registrations kept and dropped, matching, and the events of each change of
// a device's state, seen through fake client objects.
#include <algorithm>

#include "ability_filter.h"
#include "device_detect_request_code.h"
#include "device_filter.h"
#include "fake_remote_object.h"
#include "service_filter.h"
#include "service_test_util.h"
#include "sim_status.h"
#include "simulator.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

using ListenerCode = DeviceChangedCallbackCode;
// A client object in another process, as the service sees it.
using FakeClient = Tavik::Test::FakeRemoteObject;

std::vector<uint32_t> Codes(const FakeClient& client)
{
    std::vector<uint32_t> codes;
    for (const Tavik::Test::RecordedRequest& request : client.Requests()) {
        codes.push_back(request.code);
    }
    return codes;
}

class SimulatorTest : public ::testing::Test {
protected:
    std::shared_ptr<Simulator> sim_ = Simulator::Create(DefaultWorld());
    std::string detail_;
};

TEST_F(SimulatorTest, StateChangesSendTheEventsOfTheTransition)
{
    struct Case {
        DeviceState from;
        DeviceState to;
        std::vector<uint32_t> codes;
    };
    const uint32_t online = ToCode(ListenerCode::ON_DEVICE_ONLINE);
    const uint32_t offline = ToCode(ListenerCode::ON_DEVICE_OFFLINE);
    const uint32_t ready = ToCode(ListenerCode::ON_DEVICE_READY);
    const Case cases[] = {
        {DeviceState::OFFLINE, DeviceState::ONLINE, {online}},
        {DeviceState::OFFLINE, DeviceState::READY, {online, ready}},
        {DeviceState::ONLINE, DeviceState::READY, {ready}},
        {DeviceState::READY, DeviceState::ONLINE, {}},
        {DeviceState::READY, DeviceState::OFFLINE, {offline}},
        {DeviceState::ONLINE, DeviceState::OFFLINE, {offline}},
        {DeviceState::OFFLINE, DeviceState::OFFLINE, {}},
        {DeviceState::ONLINE, DeviceState::ONLINE, {}},
    };
    for (const Case& c : cases) {
        auto sim = Simulator::Create(DefaultWorld());
        ASSERT_EQ(sim->SetDeviceState("udid-car-0001", c.from, detail_), SIM_OK);
        sptr<FakeClient> client = sptr<FakeClient>::MakeSptr();
        ASSERT_EQ(sim->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).first, SIM_OK);
        ASSERT_EQ(sim->SetDeviceState("udid-car-0001", c.to, detail_), SIM_OK);
        EXPECT_EQ(Codes(*client), c.codes) << DeviceStateToString(c.from) << " -> " << DeviceStateToString(c.to);
    }
}

TEST_F(SimulatorTest, AddingAndRemovingOnlineDevicesSendsTheirEvents)
{
    sptr<FakeClient> client = sptr<FakeClient>::MakeSptr();
    sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client);
    Device device;
    device.udid = "u1";
    device.networkId = "n1";
    device.state = DeviceState::READY;
    ASSERT_EQ(sim_->AddDevice(device, detail_), SIM_OK);
    ASSERT_EQ(sim_->RemoveDevice("n1", detail_), SIM_OK);
    device.state = DeviceState::OFFLINE;
    ASSERT_EQ(sim_->AddDevice(device, detail_), SIM_OK);
    EXPECT_EQ(Codes(*client), (std::vector<uint32_t>{0, 3, 1}));

    device.udid = "udid-local-phone-0001";  // the local device's id is taken too
    device.networkId = "n2";
    EXPECT_EQ(sim_->AddDevice(device, detail_), SIM_ERR_DEVICE_EXISTS);
    EXPECT_EQ(sim_->RemoveDevice("ghost", detail_), SIM_ERR_NO_SUCH_DEVICE);
}

TEST_F(SimulatorTest, AbilityMatchingFieldByField)
{
    Device device;
    device.type = 17;
    device.accountType = 1;
    Ability notes{"com.tavik.notes", "page", "note editor", "edit"};
    struct Case {
        AbilityFilter filter;
        bool passes;
    };
    AbilityFilter withAction("com.tavik.notes");
    withAction.SetAction("edit");
    AbilityFilter wrongAction("com.tavik.notes");
    wrongAction.SetAction("view");
    const Case cases[] = {
        {AbilityFilter(), true},
        {AbilityFilter("com.tavik.notes"), true},
        {AbilityFilter("com.tavik.Notes"), false},
        {AbilityFilter("", "page", "note editor"), true},
        {AbilityFilter("", "service"), false},
        {AbilityFilter("", "", "", 17, 1), true},
        {AbilityFilter("", "", "", 14, 0), false},
        {AbilityFilter("", "", "", 0, 2), false},
        {withAction, true},
        {wrongAction, false},
    };
    int index = 0;
    for (const Case& c : cases) {
        EXPECT_EQ(AbilityPasses(c.filter, device, notes), c.passes) << "case " << index;
        ++index;
    }
    // A device without abilities passes only filters that ask for none.
    EXPECT_TRUE(DevicePassesAbilityFilter(AbilityFilter("", "", "", 17, 0), device));
    EXPECT_FALSE(DevicePassesAbilityFilter(AbilityFilter("com.tavik.notes"), device));
}

TEST_F(SimulatorTest, DeathDropsEveryRegistrationOfThatClient)
{
    sptr<FakeClient> dying = sptr<FakeClient>::MakeSptr();
    sptr<FakeClient> staying = sptr<FakeClient>::MakeSptr();
    for (const sptr<FakeClient>& client : {dying, staying}) {
        ASSERT_EQ(sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).first, SIM_OK);
        ASSERT_EQ(sim_->AddServiceFilterListener(sptr<ServiceFilter>::MakeSptr(), "", client).first, SIM_OK);
        ASSERT_EQ(sim_->AddServiceChangedCallback(client), SIM_OK);
        ASSERT_EQ(sim_->AddDeliverCallback(1, client), SIM_OK);
        ASSERT_EQ(sim_->AddDialogCallback(client), SIM_OK);
        sim_->DevicesByDeviceFilter(sptr<DeviceFilter>::MakeSptr(), client);
    }
    ASSERT_EQ(sim_->RequestService("pkg.dying", dying), SIM_OK);
    ASSERT_EQ(sim_->AddKeyMouseCallback("dying", dying), SIM_OK);
    EXPECT_EQ(dying->DeathRecipientCount(), 1u);  // one recipient however many registrations
    EXPECT_EQ(sim_->Registrations().watchedClients, 2u);

    dying->Die();
    RegistrationCounts counts = sim_->Registrations();
    EXPECT_EQ(counts.abilityListeners, 1u);
    EXPECT_EQ(counts.serviceFilterListeners, 1u);
    EXPECT_EQ(counts.serviceChangedCallbacks, 1u);
    EXPECT_EQ(counts.deliverCallbacks, 1u);
    EXPECT_EQ(counts.dialogCallbacks, 1u);
    EXPECT_EQ(counts.detectSessions, 1u);
    EXPECT_EQ(counts.serviceRequests, 0u);
    EXPECT_EQ(counts.keyMouseCallbacks, 0u);
    EXPECT_EQ(counts.watchedClients, 1u);

    // Later events go to the survivor only.
    sim_->SetDeviceState("udid-car-0001", DeviceState::ONLINE, detail_);
    std::vector<uint32_t> codes = Codes(*staying);
    EXPECT_NE(std::find(codes.begin(), codes.end(), 0u), codes.end());
    EXPECT_EQ(Codes(*dying).size(), 1u);  // the publish event of its request, nothing after
}

TEST_F(SimulatorTest, TheRecipientStaysUntilTheLastRemovalAndAGoneClientIsNotKept)
{
    sptr<FakeClient> client = sptr<FakeClient>::MakeSptr();
    uint32_t first = sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).second;
    uint32_t second = sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).second;
    EXPECT_EQ(client->DeathRecipientCount(), 1u);
    EXPECT_EQ(sim_->RemoveAbilityListener(first), SIM_OK);
    EXPECT_EQ(client->DeathRecipientCount(), 1u);
    EXPECT_EQ(sim_->RemoveAbilityListener(second), SIM_OK);
    EXPECT_EQ(client->DeathRecipientCount(), 0u);
    EXPECT_EQ(sim_->Registrations().watchedClients, 0u);

    // Accepted, then dropped when its death recipient was refused.
    client->Die();
    EXPECT_EQ(sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).first, SIM_OK);
    EXPECT_EQ(sim_->Registrations().abilityListeners, 0u);
    EXPECT_EQ(sim_->Registrations().watchedClients, 0u);
}

TEST_F(SimulatorTest, RegistrationTablesAreBounded)
{
    sptr<FakeClient> client = sptr<FakeClient>::MakeSptr();
    for (size_t i = 0; i < MAX_REGISTRATIONS; ++i) {
        ASSERT_EQ(sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).first, SIM_OK);
    }
    EXPECT_EQ(sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client),
              std::make_pair(static_cast<int32_t>(SIM_ERR_TOO_MANY_REGISTRATIONS), 0u));
    // Detect sessions have no removal request: the oldest gives way instead.
    for (size_t i = 0; i <= MAX_REGISTRATIONS; ++i) {
        sim_->DevicesByDeviceFilter(sptr<DeviceFilter>::MakeSptr(), sptr<FakeClient>::MakeSptr());
    }
    EXPECT_EQ(sim_->Registrations().detectSessions, MAX_REGISTRATIONS);
}

TEST_F(SimulatorTest, ListenerIdsAreNeverReused)
{
    sptr<FakeClient> client = sptr<FakeClient>::MakeSptr();
    uint32_t first = sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", client).second;
    sim_->RemoveAbilityListener(first);
    uint32_t second = sim_->AddServiceFilterListener(sptr<ServiceFilter>::MakeSptr(), "", client).second;
    EXPECT_NE(first, 0u);
    EXPECT_NE(second, first);
    EXPECT_EQ(sim_->AddAbilityListener(nullptr, "", client).first, SIM_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(sim_->AddAbilityListener(sptr<AbilityFilter>::MakeSptr(), "", nullptr).first, SIM_ERR_NULL_CALLBACK);
}

TEST_F(SimulatorTest, CallerKeySelectsTheServiceCallbacksToRemove)
{
    uint64_t caller = 1;
    sim_->SetCallerKeyProvider([&caller] { return caller; });
    sptr<FakeClient> one = sptr<FakeClient>::MakeSptr();
    sptr<FakeClient> two = sptr<FakeClient>::MakeSptr();
    sim_->AddServiceChangedCallback(one);
    caller = 2;
    sim_->AddServiceChangedCallback(two);
    EXPECT_EQ(sim_->RemoveServiceChangedCallbacks(), SIM_OK);
    EXPECT_EQ(sim_->Registrations().serviceChangedCallbacks, 1u);
    EXPECT_EQ(one->DeathRecipientCount(), 1u);
    EXPECT_EQ(two->DeathRecipientCount(), 0u);
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
