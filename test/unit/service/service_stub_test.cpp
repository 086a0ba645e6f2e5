// The service stub on the wire: every request code answered with exactly the
// reply layout of the request table, and malformed requests refused.
#include <cstdlib>
#include <functional>

#include "control_client.h"
#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "ipc_status.h"
#include "service_filter.h"
#include "service_test_util.h"
#include "sim_protocol.h"
#include "sim_status.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace Test {
namespace {

// No daemon of the developer's may answer for 70635 in these tests.
const bool g_privateRuntimeDir = [] {
    setenv("TAVIK_RUNTIME_DIR", "/nonexistent/devicedetect-service-unit-tests", 1);
    return true;
}();

using Code = DeviceDetectRequestCode;

using Parcel = std::function<bool(MessageParcel&)>;

// Request writers (after the token) and whole-reply readers, false when an
// item is missing or wrong.
const Parcel NOTHING = [](MessageParcel&) { return true; };
Parcel String(const char* value)
{
    return [value](MessageParcel& d) { return d.WriteString(value); };
}
Parcel Status(int32_t expected)
{
    return [expected](MessageParcel& r) {
        int32_t status = -1;
        return r.ReadInt32(status) && status == expected;
    };
}
Parcel StatusAndId(uint32_t expected)
{
    return [expected](MessageParcel& r) {
        uint32_t id = 0;
        return Status(SIM_OK)(r) && r.ReadUint32(id) && id == expected;
    };
}
const Parcel TRUE = [](MessageParcel& r) {
    bool value = false;
    return r.ReadBool(value) && value;
};
// uint32 count, then count records of T.
template <typename T = DeviceInfo>
Parcel Records(uint32_t expected)
{
    return [expected](MessageParcel& r) {
        uint32_t count = 0;
        if (!r.ReadUint32(count) || count != expected) {
            return false;
        }
        for (uint32_t i = 0; i < count; ++i) {
            if (r.ReadStrongParcelable<T>() == nullptr) {
                return false;
            }
        }
        return true;
    };
}
class ServiceStubTest : public EmbeddedServiceTest {
protected:
    int32_t Send(uint32_t code, MessageParcel& data, MessageParcel& reply)
    {
        MessageOption option;
        return service_.Object()->SendRequest(code, data, reply, option);
    }
};

TEST_F(ServiceStubTest, EveryCodeAnswersWithItsReplyLayout)
{
    auto abilityFilter = sptr<AbilityFilter>::MakeSptr("com.tavik.files");
    auto serviceFilter = sptr<ServiceFilter>::MakeSptr("castService", std::vector<std::string>{});
    auto deviceFilter = sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{156}, std::vector<uint32_t>{1});
    sptr<IRemoteObject> deviceCallback = sptr<DeviceChangedRecorder>::MakeSptr()->AsObject();
    sptr<IRemoteObject> serviceCallback = sptr<ServiceChangedRecorder>::MakeSptr()->AsObject();
    sptr<IRemoteObject> detectCallback = sptr<DeviceDetectRecorder>::MakeSptr()->AsObject();
    sptr<IRemoteObject> deliverCallback = sptr<ServiceDeliverRecorder>::MakeSptr()->AsObject();
    sptr<IRemoteObject> dialogCallback = sptr<DialogEventRecorder>::MakeSptr()->AsObject();
    sptr<IRemoteObject> publishCallback = sptr<ServicePublishRecorder>::MakeSptr()->AsObject();
    sptr<IRemoteObject> keyMouse(new IPCObjectStub(u"test.KeyMouse"));

    const struct {
        Code code;
        Parcel request;
        Parcel reply;
    } cases[] = {
        {Code::GET_TRUSTED_DEVICE_LIST, String("x"), Records(5)},
        {Code::GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER,
         [&](MessageParcel& d) { return d.WriteUint32(1) && d.WriteStrongParcelable(abilityFilter); },
         [](MessageParcel& r) {
             uint32_t count = 0;
             if (!r.ReadUint32(count) || count != 2) {
                 return false;
             }
             for (uint32_t i = 0; i < count; ++i) {
                 uint32_t abilities = 0;
                 if (r.ReadStrongParcelable<DeviceInfo>() == nullptr || !r.ReadUint32(abilities) || abilities != 1 ||
                     r.ReadStrongParcelable<AbilityFilter>() == nullptr) {
                     return false;
                 }
             }
             return true;
         }},
        {Code::GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER,
         [&](MessageParcel& d) { return d.WriteStrongParcelable(serviceFilter) && d.WriteString("x"); }, Records(3)},
        {Code::REGISTER_DEV_CHANGED_CALLBACK,
         [&](MessageParcel& d) {
             return d.WriteStrongParcelable(abilityFilter) && d.WriteString("x") && d.WriteRemoteObject(deviceCallback);
         },
         StatusAndId(1)},
        {Code::UNREGISTER_DEV_CHANGED_CALLBACK, [](MessageParcel& d) { return d.WriteInt32(1); }, Status(SIM_OK)},
        {Code::REGISTER_CALLBACK_WITH_SERVICE_FILTER,
         [&](MessageParcel& d) {
             return d.WriteStrongParcelable(serviceFilter) && d.WriteString("x") && d.WriteRemoteObject(deviceCallback);
         },
         StatusAndId(2)},
        {Code::UNREGISTER_SERVICE_FILTER_LISTENER, [](MessageParcel& d) { return d.WriteInt32(2); }, Status(SIM_OK)},
        {Code::REGISTER_SERVICE_CHANGED_CALLBACK,
         [&](MessageParcel& d) { return d.WriteRemoteObject(serviceCallback); }, Status(SIM_OK)},
        {Code::UNREGISTER_SERVICE_CHANGED_CALLBACK, NOTHING, Status(SIM_OK)},
        {Code::GET_LOCAL_DEVICE_INFO, NOTHING,
         [](MessageParcel& r) {
             sptr<DeviceInfo> local = r.ReadStrongParcelable<DeviceInfo>();
             return local != nullptr && local->GetDeviceName() == "My Phone";
         }},
        {Code::GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER,
         [&](MessageParcel& d) { return d.WriteStrongParcelable(deviceFilter) && d.WriteRemoteObject(detectCallback); },
         Records(1)},
        {Code::GET_REMOTE_DEVICE_DYNAMIC_INFO,
         [](MessageParcel& d) {
             return d.WriteString("udid-tv-0001") && d.WriteStringVector({"volume", "power"});
         },
         Records<DeviceDynamicInfo>(2)},
        {Code::QUERY_DEVICE_CONFIG_INFO, String("net-tv-0001"),
         [](MessageParcel& r) {
             sptr<DeviceConfigInfo> config = r.ReadStrongParcelable<DeviceConfigInfo>();
             return config != nullptr && config->GetModelId() == "TV-X55";
         }},
        {Code::REGISTER_SERVICE_DELIVER_CALLBACK,
         [&](MessageParcel& d) { return d.WriteString("-7") && d.WriteRemoteObject(deliverCallback); }, Status(SIM_OK)},
        {Code::SET_DIALOG_EVENT_CALLBACK, [&](MessageParcel& d) { return d.WriteRemoteObject(dialogCallback); },
         NOTHING},
        {Code::NOTIFY_APP_DIALOG_EVENT, String("event"), NOTHING},
        {Code::REQUEST_SERVICE,
         [&](MessageParcel& d) { return d.WriteString("com.example") && d.WriteRemoteObject(publishCallback); },
         Status(SIM_OK)},
        {Code::UN_REQUEST_SERVICE, String("com.example"), Status(SIM_OK)},
        {Code::GET_DEVICE_SWITCH, String("udid-pc-0001"), Status(1)},
        {Code::REGISTER_KEY_MOUSE_CALLBACK,
         [&](MessageParcel& d) { return d.WriteString("caller") && d.WriteRemoteObject(keyMouse); }, Status(SIM_OK)},
        {Code::UNREGISTER_KEY_MOUSE_CALLBACK, String("caller"), Status(SIM_OK)},
        {Code::UPDATE_KEY_MOUSE_EDGE_SWITCH, [](MessageParcel& d) { return d.WriteBool(true); }, Status(SIM_OK)},
        {Code::GET_IS_SAME_DEVICE_ACCOUNT, String("net-tv-0001"), TRUE},
        {Code::GET_BIND_KEYMOUSE_SERVICE_REQ, [](MessageParcel& d) { return d.WriteBool(true); }, NOTHING},
        {Code::GET_IS_NEXT_TYPE_DEVICE, String("net-pc-0001"), TRUE},
    };
    ASSERT_EQ(sizeof(cases) / sizeof(cases[0]), 25u);
    for (const auto& c : cases) {
        const char* name = DeviceDetectRequestCodeToString(ToCode(c.code));
        MessageParcel data;
        MessageParcel reply;
        ASSERT_TRUE(data.WriteInterfaceToken(Descriptor::DEVICE_DETECT) && c.request(data)) << name;
        ASSERT_EQ(Send(ToCode(c.code), data, reply), 0) << name;
        EXPECT_TRUE(c.reply(reply)) << name;
        EXPECT_EQ(reply.GetReadableBytes(), 0u) << name << ": the reply holds more than its layout";
    }
}

TEST_F(ServiceStubTest, MalformedRequestsAreRefused)
{
    struct Case {
        const char* what;
        uint32_t code;
        Parcel request;
        int32_t sendResult;
        Parcel reply;  // the status, for codes whose layout has one
    };
    const Case cases[] = {
        {"string missing", ToCode(Code::GET_TRUSTED_DEVICE_LIST), NOTHING, SIM_ERR_INVALID_ARGUMENT, NOTHING},
        {"filter count past the limit", ToCode(Code::GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER),
         [](MessageParcel& d) { return d.WriteUint32(1025); }, SIM_ERR_INVALID_ARGUMENT, NOTHING},
        {"service filter absent", ToCode(Code::GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER),
         [](MessageParcel& d) { return d.WriteInt32(0) && d.WriteString("x"); }, SIM_ERR_INVALID_ARGUMENT, NOTHING},
        {"ability filter absent", ToCode(Code::REGISTER_DEV_CHANGED_CALLBACK),
         [](MessageParcel& d) { return d.WriteInt32(0); }, 0, Status(SIM_ERR_INVALID_ARGUMENT)},
        {"listener callback absent", ToCode(Code::REGISTER_DEV_CHANGED_CALLBACK),
         [](MessageParcel& d) { return d.WriteStrongParcelable(sptr<AbilityFilter>::MakeSptr()) && d.WriteString(""); },
         0, Status(SIM_ERR_NULL_CALLBACK)},
        {"listener id missing", ToCode(Code::UNREGISTER_SERVICE_FILTER_LISTENER), NOTHING, 0,
         Status(SIM_ERR_INVALID_ARGUMENT)},
        {"device filter absent", ToCode(Code::GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER),
         [](MessageParcel& d) { return d.WriteInt32(0); }, SIM_ERR_INVALID_ARGUMENT, NOTHING},
        {"key list missing", ToCode(Code::GET_REMOTE_DEVICE_DYNAMIC_INFO), String("udid-tv-0001"),
         SIM_ERR_INVALID_ARGUMENT, NOTHING},
        {"deliver code not decimal", ToCode(Code::REGISTER_SERVICE_DELIVER_CALLBACK), String("7a"), 0,
         Status(SIM_ERR_INVALID_ARGUMENT)},
        {"deliver code out of range", ToCode(Code::REGISTER_SERVICE_DELIVER_CALLBACK), String("2147483648"), 0,
         Status(SIM_ERR_INVALID_ARGUMENT)},
        {"dialog callback absent", ToCode(Code::SET_DIALOG_EVENT_CALLBACK), NOTHING, SIM_ERR_NULL_CALLBACK, NOTHING},
        {"edge switch missing", ToCode(Code::UPDATE_KEY_MOUSE_EDGE_SWITCH), NOTHING, 0,
         Status(SIM_ERR_INVALID_ARGUMENT)},
        {"unknown code 2", 2, NOTHING, IPC_ERR_UNKNOWN_TRANSACTION, NOTHING},
        {"unknown code 29", 29, NOTHING, IPC_ERR_UNKNOWN_TRANSACTION, NOTHING},
    };
    for (const Case& c : cases) {
        MessageParcel data;
        MessageParcel reply;
        ASSERT_TRUE(data.WriteInterfaceToken(Descriptor::DEVICE_DETECT) && c.request(data)) << c.what;
        EXPECT_EQ(Send(c.code, data, reply), c.sendResult) << c.what;
        EXPECT_TRUE(c.reply(reply)) << c.what;
    }
    EXPECT_EQ(Sim().Registrations().abilityListeners, 0u);
    EXPECT_EQ(Sim().Registrations().deliverCallbacks, 0u);
}

TEST_F(ServiceStubTest, WrongTokensAreRefusedWithAnEmptyReply)
{
    for (const char16_t* token : {u"Tavik.Syntavo.IDeviceDetec", u"Tavik.Syntavo.IDeviceDetectX", u""}) {
        MessageParcel data;
        MessageParcel reply;
        data.WriteInterfaceToken(token);
        data.WriteString("x");
        EXPECT_EQ(Send(ToCode(Code::GET_TRUSTED_DEVICE_LIST), data, reply), SIM_ERR_WRONG_TOKEN);
        EXPECT_EQ(reply.GetDataSize(), 0u);
    }
}

// The control token reaches the control interface through the same object.
TEST_F(ServiceStubTest, ControlRequestsReportTheirOutcome)
{
    ControlClient control(service_.Object());
    struct Case {
        const char* what;
        std::function<ControlResult()> run;
        int32_t status;
        const char* detailPart;
    };
    const Case cases[] = {
        {"unknown device", [&] { return control.SetDeviceState("ghost", DeviceState::ONLINE); }, SIM_ERR_NO_SUCH_DEVICE,
         "\"ghost\""},
        {"add", [&] { return control.AddDevice(R"({"udid":"u9","networkId":"n9","name":"New","type":"TV"})"); }, SIM_OK,
         "added New (u9)"},
        {"add again", [&] { return control.AddDevice(R"({"udid":"u9","networkId":"n10","name":"New","type":14})"); },
         SIM_ERR_DEVICE_EXISTS, "\"u9\""},
        {"add bad field",
         [&] { return control.AddDevice(R"({"udid":"u11","networkId":"n11","name":"x","type":"TOASTER"})"); },
         SIM_ERR_BAD_WORLD, "type: unknown device type name \"TOASTER\""},
        {"set dynamic", [&] { return control.SetDynamicInfo("u9", "battery", "5"); }, SIM_OK, "battery = 5"},
        {"empty key", [&] { return control.SetDynamicInfo("u9", "", "5"); }, SIM_ERR_INVALID_ARGUMENT, "key"},
        {"service change of unknown", [&] { return control.NotifyServiceChange(3, {"ghost"}); }, SIM_ERR_NO_SUCH_DEVICE,
         "ghost"},
        {"publish without requests", [&] { return control.PublishResult("pkg", 1, 0); }, SIM_ERR_NOT_REGISTERED, "pkg"},
        {"remove", [&] { return control.RemoveDevice("n9"); }, SIM_OK, "removed New"},
        {"load bad world", [&] { return control.LoadWorld(R"({"local":{}})"); }, SIM_ERR_BAD_WORLD, "local.udid"},
    };
    for (const Case& c : cases) {
        ControlResult result = c.run();
        EXPECT_EQ(result.status, c.status) << c.what << ": " << result.detail;
        EXPECT_NE(result.detail.find(c.detailPart), std::string::npos) << c.what << ": " << result.detail;
    }
    ControlResult world = control.GetWorld();
    ASSERT_EQ(world.status, SIM_OK);
    EXPECT_NE(world.json.find("\"udid-car-0001\""), std::string::npos);
    EXPECT_EQ(world.json.find("\"u9\""), std::string::npos);
    ControlResult registrations = control.GetRegistrations();
    ASSERT_EQ(registrations.status, SIM_OK);
    EXPECT_NE(registrations.json.find("\"abilityListeners\": 0"), std::string::npos) << registrations.json;
}

}  // namespace
}  // namespace Test
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
