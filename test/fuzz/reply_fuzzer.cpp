// reply_fuzzer: the proxy's reply decoders over hostile replies.
//
// Input: byte 0 picks the proxy method (modulo the table's size); the rest
// is the reply the fake service object returns to every request. Whatever
// the reply, a method must return without a crash, leave the entries its
// output already held in place, and append no more records than the reply's
// bytes can carry (each record takes at least its 4-byte presence value) nor
// more than the proxy's device limit.
#include <algorithm>
#include <cstdint>
#include <list>
#include <string>
#include <tuple>
#include <vector>

#include "device_detect_proxy.h"
#include "fuzz_common.h"
#include "ipc_object_stub.h"
#include "ipc_status.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

constexpr size_t MAX_DEVICE_NUM = 1024;
constexpr size_t MIN_RECORD_BYTES = sizeof(int32_t);

// Plays the service: checks that each request starts with the interface
// token and answers with the current input.
class ReplayRemote : public IRemoteObject {
public:
    int32_t SendRequest(uint32_t /* code */, MessageParcel& data, MessageParcel& reply,
                        MessageOption& /* option */) override
    {
        FUZZ_CHECK(data.ReadInterfaceToken() == IDeviceDetect::GetDescriptor());
        FUZZ_CHECK(reply.ParseFrom(reply_, replySize_));
        return IPC_OK;
    }
    bool AddDeathRecipient(const sptr<DeathRecipient>& /* recipient */) override { return true; }
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& /* recipient */) override { return true; }
    bool IsProxyObject() const override { return true; }

    void SetReply(const uint8_t* data, size_t size)
    {
        reply_ = data;
        replySize_ = size;
    }

private:
    const uint8_t* reply_ = nullptr;
    size_t replySize_ = 0;
};

// Arguments that outlive one input: the callbacks a method sends along.
struct Callbacks {
    sptr<AbilityFilter> abilityFilter = new AbilityFilter("com.example", "page", "main", 14, 1);
    sptr<ServiceFilter> serviceFilter = new ServiceFilter("print", {"PHONE"});
    sptr<DeviceFilter> deviceFilter = new DeviceFilter({14}, {1});
    sptr<DeviceChangedCallbackStub> devChanged = new DeviceChangedCallbackStub();
    sptr<ServiceChangedCallbackStub> serviceChanged = new ServiceChangedCallbackStub();
    sptr<DeviceDetectCallbackStub> detect = new DeviceDetectCallbackStub();
    sptr<ServiceDeliverCallbackStub> deliver = new ServiceDeliverCallbackStub();
    sptr<DialogEventCallbackStub> dialog = new DialogEventCallbackStub();
    sptr<ServicePublishCallbackStub> publish = new ServicePublishCallbackStub();
    sptr<IRemoteObject> keyMouse = new IPCObjectStub(u"fuzz.keymouse");
    std::vector<sptr<AbilityFilter>> abilityFilters{new AbilityFilter("first", "t1", "d1", 14, 1),
                                                    new AbilityFilter("second", "t2", "d2", 17, 2)};
    std::vector<std::string> keys{"battery", "wifi"};
};

// The outputs of one call, each starting with one entry that must survive.
struct Outputs {
    std::vector<DeviceInfo> devices{DeviceInfo("keep")};
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> filtered;
    std::vector<DeviceDynamicInfo> dynamicInfos{DeviceDynamicInfo("keep", "1")};
    DeviceInfo local{"keep"};
    DeviceConfigInfo config{"keep"};

    Outputs() { filtered.emplace_back(DeviceInfo("keep"), std::list<sptr<AbilityFilter>>()); }
};

struct Method {
    const char* name;
    void (*call)(DeviceDetectProxy& proxy, Callbacks& c, Outputs& out);
};

// One row per proxy method: its name, then the call on proxy `p` with the
// callbacks `c` and the outputs `o`.
#define METHOD(name, ...)                                                                                           \
    {                                                                                                               \
        name, [](DeviceDetectProxy& p, [[maybe_unused]] Callbacks& c, [[maybe_unused]] Outputs& o) { __VA_ARGS__; } \
    }
const Method METHODS[] = {
    METHOD("GetTrustedDeviceList", p.GetTrustedDeviceList("s", o.devices)),
    METHOD("GetTrustedDeviceList(callback)",
           p.GetTrustedDeviceList("s", sptr<IDeviceChangedCallback>(c.devChanged), o.devices)),
    METHOD("GetTrustedDeviceListWithAbilityFilter",
           p.GetTrustedDeviceListWithAbilityFilter(c.abilityFilters, o.filtered)),
    METHOD("GetTrustedDeviceListWithAbilityFilter(single)",
           p.GetTrustedDeviceListWithAbilityFilter(c.abilityFilter, "s", o.devices, nullptr)),
    METHOD("GetTrustedDeviceListWithServiceFilter",
           p.GetTrustedDeviceListWithServiceFilter(c.serviceFilter, "s", o.devices)),
    METHOD("GetTrustedDeviceListWithDeviceFilter",
           p.GetTrustedDeviceListWithDeviceFilter(c.deviceFilter, o.devices, c.detect)),
    METHOD("RegisterDevChangedCallback", p.RegisterDevChangedCallback(c.abilityFilter, "s", c.devChanged)),
    METHOD("RegisterCallbackWithServiceFilter",
           p.RegisterCallbackWithServiceFilter(c.serviceFilter, "s", c.devChanged)),
    METHOD("UnregisterDevChangedCallback", p.UnregisterDevChangedCallback(5)),
    METHOD("UnregisterServiceFilterListener", p.UnregisterServiceFilterListener(5)),
    METHOD("RegisterServiceChangedCallback", p.RegisterServiceChangedCallback(c.serviceChanged)),
    METHOD("UnregisterServiceChangedCallback", p.UnregisterServiceChangedCallback()),
    METHOD("GetLocalDeviceInfo", p.GetLocalDeviceInfo(o.local)),
    METHOD("GetRemoteDeviceDynamicInfo", p.GetRemoteDeviceDynamicInfo("dev", c.keys, o.dynamicInfos)),
    METHOD("QueryDeviceConfigInfo", p.QueryDeviceConfigInfo("q", o.config)),
    METHOD("RegisterServiceDeliverCallback", p.RegisterServiceDeliverCallback(3, c.deliver)),
    METHOD("SetDialogEventCallback", p.SetDialogEventCallback(c.dialog)),
    METHOD("NotifyAppDialogEvent", p.NotifyAppDialogEvent("{}")),
    METHOD("RequestService", p.RequestService("pkg", c.publish)),
    METHOD("UnRequestService", p.UnRequestService("pkg")),
    METHOD("GetDeviceSwitch", p.GetDeviceSwitch("dev")),
    METHOD("RegisterKeyMouseCallback", p.RegisterKeyMouseCallback("caller", c.keyMouse)),
    METHOD("UnregisterKeyMouseCallback", p.UnregisterKeyMouseCallback("caller")),
    METHOD("UpdateKeyMouseEdgeSwitch", p.UpdateKeyMouseEdgeSwitch(true)),
    // The network id goes in by reference and must come back untouched.
    METHOD("GetIsSameDeviceAccount", std::string networkId = "net"; p.GetIsSameDeviceAccount(networkId);
           FUZZ_CHECK(networkId == "net")),
    METHOD("GetBindKeymouseServiceReq", p.GetBindKeymouseServiceReq(true)),
    METHOD("GetIsNextTypeDevice", std::string networkId = "net"; p.GetIsNextTypeDevice(networkId);
           FUZZ_CHECK(networkId == "net")),
};
#undef METHOD
constexpr size_t METHOD_COUNT = sizeof(METHODS) / sizeof(METHODS[0]);

void CheckOutputs(const Outputs& out, size_t replySize)
{
    size_t mostRecords = std::min(MAX_DEVICE_NUM, replySize / MIN_RECORD_BYTES);
    FUZZ_CHECK(out.devices.front().GetDeviceUdid() == "keep");
    FUZZ_CHECK(out.devices.size() - 1 <= mostRecords);
    FUZZ_CHECK(std::get<0>(out.filtered.front()).GetDeviceUdid() == "keep");
    FUZZ_CHECK(out.filtered.size() - 1 <= mostRecords);
    for (const auto& entry : out.filtered) {
        FUZZ_CHECK(std::get<1>(entry).size() <= replySize / MIN_RECORD_BYTES);
    }
    FUZZ_CHECK(out.dynamicInfos.front().GetKey() == "keep");
    FUZZ_CHECK(out.dynamicInfos.size() - 1 <= mostRecords);
}

struct Fixture {
    sptr<ReplayRemote> remote = new ReplayRemote();
    sptr<DeviceDetectProxy> proxy = new DeviceDetectProxy(remote);
    Callbacks callbacks;
};

Fixture& GetFixture()
{
    static Fixture* fixture = new Fixture();
    return *fixture;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    DdFuzz::QuietLog();
    GetFixture();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > DdFuzz::MAX_INPUT_SIZE) {
        return 0;
    }
    const Method& method = METHODS[data[0] % METHOD_COUNT];
    DdFuzz::g_context = method.name;
    Fixture& fixture = GetFixture();
    fixture.remote->SetReply(data + 1, size - 1);
    Outputs out;
    method.call(*fixture.proxy, fixture.callbacks, out);
    CheckOutputs(out, size - 1);
    return 0;
}
