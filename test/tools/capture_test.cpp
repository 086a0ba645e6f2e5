// Captures: the pcap writer's bytes, and the Wireshark dissector reading
// captures of frames built with the real parcels, records and frame header.
// The dissector checks run tshark; they are skipped when it is missing.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "ability_filter.h"
#include "child_process.h"
#include "control_client.h"
#include "device_changed_callback_stub.h"
#include "device_config_info.h"
#include "device_detect_descriptors.h"
#include "device_detect_proxy.h"
#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "device_info.h"
#include "embedded_service.h"
#include "ipc_status.h"
#include "message_parcel.h"
#include "pcap_writer.h"
#include "recording_callbacks.h"
#include "service_filter.h"
#include "sim_protocol.h"
#include "sim_status.h"
#include "string_convert.h"
#include "transport/frame.h"

namespace DeviceDetectCli {
namespace {

using Tavik::MessageParcel;
using Tavik::sptr;
using Tavik::Test::ReadFile;
using Tavik::Test::TempDir;
using Tavik::Transport::FrameHeader;
using Tavik::Transport::FrameKind;
using Tavik::Transport::ObjectEntry;
using Tavik::Transport::ObjectOwner;
namespace Syntavo = Tavik::Syntavo;
namespace Descriptor = Tavik::Syntavo::Descriptor;

constexpr int32_t CLIENT_PID = 4242;
constexpr uint64_t CONNECTION = 7;
// 2024-01-02T03:04:05.000000006Z
constexpr uint64_t START_NS = 1704164645000000006ULL;

uint32_t Le32(const std::string& bytes, size_t at)
{
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) {
        value = (value << 8) | static_cast<uint8_t>(bytes[at + i]);
    }
    return value;
}

// Appends frames to a capture, one call per frame, as the service's tap sees
// them: header, parcel data, object entries. Thread-safe: callbacks may be
// sent from the service's threads.
class Session {
public:
    explicit Session(const std::string& path) { ok_ = writer_.Open(path); }
    bool Ok() const { return ok_; }
    std::string Error() const { return writer_.Error(); }

    // The client and the service count their calls separately.
    uint64_t NextCallId(CaptureDirection direction)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return ++callIds_[direction == CaptureDirection::TO_SERVICE ? 0 : 1];
    }
    uint32_t NextObjectId()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return ++objectIds_;
    }

    void Frame(CaptureDirection direction, FrameKind kind, uint64_t callId, uint32_t code, const MessageParcel& data,
               std::vector<ObjectEntry> objects = {})
    {
        std::lock_guard<std::mutex> lock(mutex_);
        FrameHeader header = Tavik::Transport::MakeHeader(kind);
        header.callId = callId;
        header.code = code;
        header.objectCount = static_cast<uint16_t>(objects.size());
        header.length = static_cast<uint32_t>(data.GetDataSize() + objects.size() * sizeof(ObjectEntry));
        time_ += 1000;
        ok_ = ok_ &&
              writer_.Write(direction, CLIENT_PID, CONNECTION, time_,
                            {{reinterpret_cast<const uint8_t*>(&header), sizeof(header)},
                             {data.GetData(), data.GetDataSize()},
                             {reinterpret_cast<const uint8_t*>(objects.data()), objects.size() * sizeof(ObjectEntry)}});
    }

    void Request(uint64_t callId, uint32_t code, const MessageParcel& data, std::vector<ObjectEntry> objects = {})
    {
        Frame(CaptureDirection::TO_SERVICE, FrameKind::TRANSACTION, callId, code, data, std::move(objects));
    }
    void Reply(uint64_t callId, int32_t status, const MessageParcel& data)
    {
        Frame(CaptureDirection::FROM_SERVICE, FrameKind::REPLY, callId, static_cast<uint32_t>(status), data);
    }

    bool Close()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ok_ = ok_ && writer_.Close();
        return ok_;
    }

private:
    std::mutex mutex_;
    PcapWriter writer_;
    bool ok_ = false;
    uint64_t time_ = START_NS;
    uint64_t callIds_[2] = {0, 0};
    uint32_t objectIds_ = 0;
};

// Stands where the socket would be, between a caller and a local stub, and
// writes each call and its reply to the capture. The objects a request to
// the service carries are wrapped in turn, so the callbacks the service
// later sends through them are captured as well. Not a proxy: the service
// watches no death of it. It must not outlive the session.
class Tap : public Tavik::IRemoteObject {
public:
    Tap(sptr<Tavik::IRemoteObject> inner, Session& session, CaptureDirection calls)
        : inner_(std::move(inner)), session_(session), calls_(calls)
    {
    }

    int32_t SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, Tavik::MessageOption& option) override
    {
        std::vector<sptr<Tavik::IRemoteObject>> objects = data.GetObjects();
        std::vector<ObjectEntry> entries;
        for (sptr<Tavik::IRemoteObject>& object : objects) {
            entries.push_back(ObjectEntry{session_.NextObjectId(), static_cast<uint8_t>(ObjectOwner::SENDER), {}});
            if (calls_ == CaptureDirection::TO_SERVICE) {
                object = new Tap(object, session_, CaptureDirection::FROM_SERVICE);
            }
        }
        data.SetObjects(objects);
        const uint64_t callId = session_.NextCallId(calls_);
        session_.Frame(calls_, FrameKind::TRANSACTION, callId, code, data, entries);
        int32_t status = inner_->SendRequest(code, data, reply, option);
        const CaptureDirection back =
            calls_ == CaptureDirection::TO_SERVICE ? CaptureDirection::FROM_SERVICE : CaptureDirection::TO_SERVICE;
        session_.Frame(back, FrameKind::REPLY, callId, static_cast<uint32_t>(status), reply);
        return status;
    }
    bool AddDeathRecipient(const sptr<DeathRecipient>&) override { return false; }
    bool RemoveDeathRecipient(const sptr<DeathRecipient>&) override { return false; }
    bool IsProxyObject() const override { return false; }

private:
    sptr<Tavik::IRemoteObject> inner_;
    Session& session_;
    const CaptureDirection calls_;
};

MessageParcel Token(const char16_t* descriptor)
{
    MessageParcel parcel;
    parcel.WriteInterfaceToken(descriptor);
    return parcel;
}

Syntavo::DeviceInfo Phone()
{
    return Syntavo::DeviceInfo("udid-phone-0001", "net-phone-0001", "Kitchen Phone", 0x0E);
}

Syntavo::DeviceInfo Tv()
{
    return Syntavo::DeviceInfo("udid-tv-0002", "net-tv-0002", "Living Room TV", 0x9C);
}

std::string FindTshark()
{
    // Read on the test's main thread, before the service's threads start.
    const char* path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/tshark";
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return "";
}

// tshark -V over the capture with the project's dissector, in a home of its
// own so that no plugin or preference of the user's takes part.
std::string Dissect(const std::string& tshark, const TempDir& dir, const std::string& capture)
{
    const std::string script = std::string(DD_SOURCE_DIR) + "/tools/wireshark/devicedetect.lua";
    Tavik::Test::RunResult result =
        Tavik::Test::Run({"/usr/bin/env", "HOME=" + dir.Path(), "XDG_CONFIG_HOME=" + dir.Path(), tshark, "-X",
                          "lua_script:" + script, "-r", capture, "-V"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out + result.err;
}

class CaptureTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(dir_.Path().empty());
        tshark_ = FindTshark();
    }
    std::string Path(const char* name) const { return dir_.Path() + "/" + name; }
    bool HaveTshark() { return !tshark_.empty(); }

    TempDir dir_;
    std::string tshark_;
};

#define SKIP_WITHOUT_TSHARK()                                                                              \
    if (!HaveTshark()) {                                                                                   \
        GTEST_SKIP() << "tshark is not installed (sh scripts/deps.sh installs it); dissector not checked"; \
    }

TEST_F(CaptureTest, WriterLaysOutGlobalHeaderAndRecords)
{
    const std::string path = Path("layout.pcap");
    PcapWriter writer;
    ASSERT_TRUE(writer.Open(path)) << writer.Error();
    EXPECT_FALSE(writer.Open(path));
    const std::vector<uint8_t> small = {1, 2, 3, 4, 5, 6, 7, 8};
    const std::vector<uint8_t> large(PCAP_SNAPLEN, 0xab);
    ASSERT_TRUE(writer.Write(CaptureDirection::TO_SERVICE, -5, 0x0102030405060708ULL, START_NS, small.data(), 3));
    ASSERT_TRUE(writer.Write(CaptureDirection::FROM_SERVICE, 9, 1, START_NS + 1,
                             {{small.data(), small.size()}, {large.data(), large.size()}}));
    EXPECT_FALSE(writer.Write(static_cast<CaptureDirection>(3), 9, 1, START_NS, small.data(), small.size()));
    ASSERT_TRUE(writer.Close()) << writer.Error();
    EXPECT_FALSE(writer.Write(CaptureDirection::TO_SERVICE, 9, 1, START_NS, small.data(), small.size()));

    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    const std::string bytes = ReadFile(path);
    const size_t first = 24;
    const size_t second = first + 16 + 24 + 3;
    ASSERT_EQ(bytes.size(), second + 16 + PCAP_SNAPLEN);
    struct Expect {
        const char* what;
        size_t at;
        uint32_t value;
    };
    const Expect expects[] = {
        {"magic", 0, 0xa1b23c4d},
        {"version 2.4", 4, 0x00040002},
        {"snaplen", 16, PCAP_SNAPLEN},
        {"link type", 20, LINKTYPE_USER0},
        {"seconds", first, 1704164645},
        {"nanoseconds", first + 4, 6},
        {"captured length", first + 8, 24 + 3},
        {"original length", first + 12, 24 + 3},
        {"version, direction, reserved", first + 16, 0x00000101},
        {"pid", first + 20, static_cast<uint32_t>(-5)},
        {"connection low", first + 24, 0x05060708},
        {"connection high", first + 28, 0x01020304},
        {"time low", first + 32, static_cast<uint32_t>(START_NS)},
        {"cut record: captured length", second + 8, PCAP_SNAPLEN},
        {"cut record: original length", second + 12, 24 + 8 + PCAP_SNAPLEN},
        {"cut record: direction", second + 16, 0x00000201},
    };
    for (const Expect& expect : expects) {
        EXPECT_EQ(Le32(bytes, expect.at), expect.value) << expect.what;
    }
    EXPECT_EQ(bytes.substr(first + 40, 3), "\x01\x02\x03");

    PcapWriter missing;
    EXPECT_FALSE(missing.Open(Path("no-such-dir/x.pcap")));
    EXPECT_NE(missing.Error().find("cannot create " + Path("no-such-dir/x.pcap") + ": No such file"), std::string::npos)
        << missing.Error();
    PcapWriter full;
    EXPECT_FALSE(full.Open("/dev/full"));
    EXPECT_EQ(full.Error(), "cannot write to /dev/full: No space left on device");
    EXPECT_FALSE(full.IsOpen());
}

// A short session: a device list and its reply, a listener registration with
// its callback object, the device-online callback it earns (with the same
// call id as the client's first call: the service counts its own calls), a
// control request, and a device list too large for one capture record.
TEST_F(CaptureTest, ScriptedSessionDecodesWithNamesAndValues)
{
    SKIP_WITHOUT_TSHARK();
    const std::string capture = Path("session.pcap");
    Session session(capture);
    ASSERT_TRUE(session.Ok()) << session.Error();
    using Code = Syntavo::DeviceDetectRequestCode;

    MessageParcel list = Token(Descriptor::DEVICE_DETECT);
    list.WriteString("");
    session.Request(1, ToCode(Code::GET_TRUSTED_DEVICE_LIST), list);
    MessageParcel devices;
    Syntavo::DeviceInfo phone = Phone();
    Syntavo::DeviceInfo tv = Tv();
    devices.WriteUint32(2);
    devices.WriteParcelable(&phone);
    devices.WriteParcelable(&tv);
    session.Reply(1, Tavik::IPC_OK, devices);

    MessageParcel registration = Token(Descriptor::DEVICE_DETECT);
    sptr<Syntavo::AbilityFilter> filter = new Syntavo::AbilityFilter("com.example.watcher", "", "", 0x0E, 0);
    sptr<Syntavo::DeviceChangedCallbackStub> callback = new Syntavo::DeviceChangedCallbackStub();
    registration.WriteStrongParcelable(filter);
    registration.WriteString("");
    registration.WriteRemoteObject(callback);
    session.Request(2, ToCode(Code::REGISTER_DEV_CHANGED_CALLBACK), registration,
                    {ObjectEntry{5, static_cast<uint8_t>(ObjectOwner::SENDER), {0, 0, 0}}});
    MessageParcel registered;
    registered.WriteInt32(Syntavo::Sim::SIM_OK);
    registered.WriteUint32(17);
    session.Reply(2, Tavik::IPC_OK, registered);

    MessageParcel online = Token(Descriptor::DEVICE_CHANGED_CALLBACK);
    online.WriteParcelable(&tv);
    session.Frame(CaptureDirection::FROM_SERVICE, FrameKind::TRANSACTION, 1,
                  ToCode(Syntavo::DeviceChangedCallbackCode::ON_DEVICE_ONLINE), online);
    session.Frame(CaptureDirection::TO_SERVICE, FrameKind::REPLY, 1, Syntavo::DD_OK, MessageParcel());

    MessageParcel control = Token(Syntavo::Sim::CONTROL_DESCRIPTOR);
    control.WriteString("udid-car-0001");
    control.WriteInt32(static_cast<int32_t>(Syntavo::Sim::DeviceState::ONLINE));
    session.Request(3, ToCode(Syntavo::Sim::ControlCode::SET_DEVICE_STATE), control);
    MessageParcel controlled;
    controlled.WriteInt32(Syntavo::Sim::SIM_ERR_NO_SUCH_DEVICE);
    controlled.WriteString("no device udid-car-0001");
    session.Reply(3, Tavik::IPC_OK, controlled);

    session.Request(4, ToCode(Code::GET_TRUSTED_DEVICE_LIST), list);
    MessageParcel many;
    constexpr uint32_t MANY = 1000;
    many.WriteUint32(MANY);
    for (uint32_t i = 0; i < MANY; ++i) {
        Syntavo::DeviceInfo device("udid-" + std::to_string(i), "net-" + std::to_string(i), std::string(250, 'n'),
                                   0x0C);
        many.WriteParcelable(&device);
    }
    ASSERT_GT(many.GetDataSize(), PCAP_SNAPLEN);
    session.Reply(4, Tavik::IPC_OK, many);
    ASSERT_TRUE(session.Close()) << session.Error();

    const std::string out = Dissect(tshark_, dir_, capture);
    const char* expected[] = {
        "direction: to the service (1)",
        "pid: 4242",
        "connection: 7",
        "time: Jan  2, 2024 03:04:05.000001006 UTC",
        "magic: TV",
        "kind: TRANSACTION (1)",
        "call id: 1",
        "code: 1 (GET_TRUSTED_DEVICE_LIST)",
        "interface token: Tavik.Syntavo.IDeviceDetect",
        "request: GET_TRUSTED_DEVICE_LIST",
        "kind: REPLY (2)",
        "status: OK (0)",
        "reply to: GET_TRUSTED_DEVICE_LIST",
        "devices: 2",
        "device #1 (DeviceInfo)",
        "udid: udid-phone-0001",
        "networkId: net-phone-0001",
        "deviceName: Kitchen Phone",
        "deviceType: PHONE (14)",
        "device #2 (DeviceInfo)",
        "udid: udid-tv-0002",
        "networkId: net-tv-0002",
        "deviceName: Living Room TV",
        "deviceType: TV (156)",
        "request: REGISTER_DEV_CHANGED_CALLBACK",
        "bundleName: com.example.watcher",
        "callback: 0 (object id 5, lives in the sender)",
        "object count: 1",
        "reply to: REGISTER_DEV_CHANGED_CALLBACK",
        "listenerId: 17",
        "interface token: Tavik.Syntavo.IDeviceStateChangedCallback",
        "callback: ON_DEVICE_ONLINE",
        "reply to: ON_DEVICE_ONLINE",
        "control request: SET_DEVICE_STATE",
        "deviceId: udid-car-0001",
        "state: online (1)",
        "status: SIM_ERR_NO_SUCH_DEVICE (3002)",
        "detail: no device udid-car-0001",
        "devices: 1000",
        "of 1000 devices decoded: the frame is cut at the capture limit",
    };
    for (const char* text : expected) {
        EXPECT_NE(out.find(text), std::string::npos) << "missing \"" << text << "\"";
    }
    for (const char* text : {"Lua Error", "Malformed", "Error/", "after the last item"}) {
        EXPECT_EQ(out.find(text), std::string::npos) << "unexpected \"" << text << "\"";
    }
    if (testing::Test::HasFailure()) {
        std::cerr << out.substr(0, 40000) << std::endl;
    }
}

// The real proxy, service, control client and callback stubs in one process,
// with every frame between them captured: each of the 25 requests, the 13
// control requests and the callbacks of the six interfaces (with their
// replies) must decode with the names of the C++ tables, every item read
// and nothing left over.
TEST_F(CaptureTest, EveryRequestControlAndCallbackOfARealSessionDecodesCleanly)
{
    SKIP_WITHOUT_TSHARK();
    using Tavik::Test::CallbackJournal;
    namespace Sim = Syntavo::Sim;
    const std::string capture = Path("real.pcap");
    Session session(capture);
    ASSERT_TRUE(session.Ok()) << session.Error();
    {
        Sim::EmbeddedService service;
        sptr<Tavik::IRemoteObject> tap = new Tap(service.Object(), session, CaptureDirection::TO_SERVICE);
        sptr<Syntavo::DeviceDetectProxy> proxy = new Syntavo::DeviceDetectProxy(tap);
        Sim::ControlClient control(tap);
        auto journal = std::make_shared<CallbackJournal>();
        sptr<Tavik::Test::DeviceChangedRecorder> changed = new Tavik::Test::DeviceChangedRecorder(journal);
        sptr<Tavik::Test::ServiceChangedRecorder> services = new Tavik::Test::ServiceChangedRecorder(journal);
        sptr<Tavik::Test::DeviceDetectRecorder> detect = new Tavik::Test::DeviceDetectRecorder(journal);
        sptr<Tavik::Test::ServiceDeliverRecorder> deliver = new Tavik::Test::ServiceDeliverRecorder(journal);
        sptr<Tavik::Test::DialogEventRecorder> dialog = new Tavik::Test::DialogEventRecorder(journal);
        sptr<Tavik::Test::ServicePublishRecorder> publish = new Tavik::Test::ServicePublishRecorder(journal);

        std::vector<Syntavo::DeviceInfo> devices;
        proxy->GetTrustedDeviceList("", devices);
        std::vector<sptr<Syntavo::AbilityFilter>> abilities = {new Syntavo::AbilityFilter("com.tavik.files")};
        std::list<std::tuple<Syntavo::DeviceInfo, std::list<sptr<Syntavo::AbilityFilter>>>> withAbilities;
        proxy->GetTrustedDeviceListWithAbilityFilter(abilities, withAbilities);
        proxy->GetTrustedDeviceListWithServiceFilter(new Syntavo::ServiceFilter("castService", {"TV"}), "", devices);
        proxy->GetTrustedDeviceListWithDeviceFilter(new Syntavo::DeviceFilter({0x9C, 0x11}, {1}), devices, detect);
        uint32_t listener = proxy->RegisterDevChangedCallback(new Syntavo::AbilityFilter(), "", changed).second;
        uint32_t filtered =
            proxy->RegisterCallbackWithServiceFilter(new Syntavo::ServiceFilter("navigation"), "", changed).second;
        proxy->RegisterServiceChangedCallback(services);
        proxy->RegisterServiceDeliverCallback(5, deliver);
        proxy->SetDialogEventCallback(dialog);
        proxy->NotifyAppDialogEvent("{\"dialog\":\"pick\"}");
        proxy->RequestService("com.example.cast", publish);
        proxy->RegisterKeyMouseCallback("caller-1", changed);
        Syntavo::DeviceInfo local;
        proxy->GetLocalDeviceInfo(local);
        std::vector<Syntavo::DeviceDynamicInfo> dynamic;
        proxy->GetRemoteDeviceDynamicInfo("udid-tv-0001", {"volume", "power"}, dynamic);
        Syntavo::DeviceConfigInfo config;
        proxy->QueryDeviceConfigInfo("udid-tv-0001", config);
        proxy->GetDeviceSwitch("udid-tv-0001");
        std::string networkId = "net-pc-0001";
        proxy->GetIsSameDeviceAccount(networkId);
        proxy->GetIsNextTypeDevice(networkId);
        proxy->GetBindKeymouseServiceReq(true);
        proxy->UpdateKeyMouseEdgeSwitch(true);

        control.SetDeviceState("udid-car-0001", Sim::DeviceState::READY);
        control.SetDeviceState("udid-tv-0001", Sim::DeviceState::OFFLINE);
        control.AddDevice(R"({"udid":"u9","networkId":"n9","name":"Den TV","type":"TV","state":"online"})");
        control.RemoveDevice("u9");
        control.SetDynamicInfo("udid-pad-0001", "battery", "70");
        control.NotifyServiceChange(static_cast<int32_t>(Sim::ServiceChangeEvent::SERVICES_CHANGED), {});
        control.Deliver(false, 5, "parcel ready");
        control.PublishResult("com.example.cast", static_cast<uint32_t>(Sim::PublishEvent::REQUESTED), 0);
        control.DialogReply("{\"reply\":\"cancel\"}");
        control.DetectEvent("udid-pad-0001", static_cast<int32_t>(Sim::DetectEvent::FOUND));
        control.LoadWorld(control.GetWorld().json);
        control.GetRegistrations();
        control.Step();
        control.Dump();
        EXPECT_TRUE(Tavik::Test::WaitUntil([&] {
            std::string lines;
            for (const std::string& line : journal->Lines()) {
                lines += line.substr(0, line.find(' ')) + ",";
            }
            return lines.find("ready") != std::string::npos && lines.find("offline") != std::string::npos &&
                   lines.find("services") != std::string::npos && lines.find("detect") != std::string::npos &&
                   lines.find("deliver") != std::string::npos && lines.find("dialog") != std::string::npos &&
                   lines.find("publish") != std::string::npos;
        }));
        proxy->UnregisterKeyMouseCallback("caller-1");
        proxy->UnRequestService("com.example.cast");
        proxy->UnregisterDevChangedCallback(listener);
        proxy->UnregisterServiceFilterListener(filtered);
        proxy->UnregisterServiceChangedCallback();
    }
    ASSERT_TRUE(session.Close()) << session.Error();

    std::vector<std::string> expected;
    for (uint32_t code = 0; code < 100; ++code) {
        if (const char* name = Syntavo::DeviceDetectRequestCodeToString(code)) {
            expected.push_back(std::string("request: ") + name);
            expected.push_back(std::string("reply to: ") + name);
        }
        if (const char* name = Sim::ControlCodeToString(code)) {
            expected.push_back(std::string("control request: ") + name);
            expected.push_back(std::string("reply to: ") + name);
        }
    }
    EXPECT_EQ(expected.size(), 2 * (25U + 14U));
    for (const char16_t* token : {Descriptor::DEVICE_CHANGED_CALLBACK, Descriptor::SERVICE_CHANGED_CALLBACK,
                                  Descriptor::DEVICE_DETECT_CALLBACK, Descriptor::SERVICE_DELIVER_CALLBACK,
                                  Descriptor::DIALOG_EVENT_CALLBACK, Descriptor::SERVICE_PUBLISH_CALLBACK}) {
        expected.push_back("interface token: " + Tavik::Str16ToStr8(token));
    }
    for (const char* text : {"callback: ON_DEVICE_READY", "callback: ON_DEVICE_OFFLINE", "callback: ON_EVENT",
                             "reply to: ON_EVENT", "deviceHashId: hash-", "eventCode: REQUESTED (1)", "deviceTypes: 2",
                             "key: volume", "modelId: TV-X55", "isNextType: True"}) {
        expected.emplace_back(text);
    }
    const std::string out = Dissect(tshark_, dir_, capture);
    for (const std::string& text : expected) {
        EXPECT_NE(out.find(text), std::string::npos) << "missing \"" << text << "\"";
    }
    for (const char* text : {"Lua Error", "Malformed", "Undecoded", "after the last item", "not in the capture"}) {
        EXPECT_EQ(out.find(text), std::string::npos) << "unexpected \"" << text << "\"";
    }
}

// Every status value with a name in the sources is named the same way.
TEST_F(CaptureTest, DissectorNamesEveryStatusOfTheSources)
{
    SKIP_WITHOUT_TSHARK();
    const std::string capture = Path("statuses.pcap");
    Session session(capture);
    std::vector<std::string> expected;
    uint64_t callId = 1;
    for (int32_t status = -200; status < 4000; ++status) {
        const char* name = Syntavo::DeviceDetectStatusToString(status);
        name = name != nullptr ? name : Syntavo::Sim::SimStatusToString(status);
        if (name == nullptr && std::strcmp(Tavik::IpcStatusToString(status), "UNKNOWN") != 0) {
            name = Tavik::IpcStatusToString(status);
        }
        if (name != nullptr && status != 0) {
            session.Reply(callId++, status, MessageParcel());
            expected.push_back("status: " + std::string(name) + " (" + std::to_string(status) + ")");
        }
    }
    ASSERT_TRUE(session.Close()) << session.Error();
    const std::string out = Dissect(tshark_, dir_, capture);
    for (const std::string& text : expected) {
        EXPECT_NE(out.find(text), std::string::npos) << "missing \"" << text << "\"";
    }
    EXPECT_EQ(out.find("Lua Error"), std::string::npos);
}

// Hostile frames: each decodes as far as it goes, with an expert info that
// names the fault, and never a Lua error.
TEST_F(CaptureTest, MalformedFramesGetExpertInfoNotErrors)
{
    SKIP_WITHOUT_TSHARK();
    struct Case {
        const char* what;
        std::vector<uint8_t> frame;
        const char* expected;
    };
    auto frame = [](std::vector<uint8_t> data, uint32_t code = 1, uint16_t objects = 0) {
        FrameHeader header = Tavik::Transport::MakeHeader(FrameKind::TRANSACTION);
        header.callId = 9;
        header.code = code;
        header.objectCount = objects;
        header.length = static_cast<uint32_t>(data.size());
        // One allocation, filled by memcpy: gcc 12 at -O3 mistakes an
        // insert after a 32-byte prefix for an overflow.
        std::vector<uint8_t> bytes(sizeof(header) + data.size());
        std::memcpy(bytes.data(), &header, sizeof(header));
        if (!data.empty()) {
            std::memcpy(bytes.data() + sizeof(header), data.data(), data.size());
        }
        return bytes;
    };
    MessageParcel token = Token(Descriptor::DEVICE_DETECT);
    std::vector<uint8_t> tokenBytes(token.GetData(), token.GetData() + token.GetDataSize());
    auto afterToken = [&](std::vector<uint8_t> rest) {
        std::vector<uint8_t> data = tokenBytes;
        data.insert(data.end(), rest.begin(), rest.end());
        return data;
    };
    std::vector<uint8_t> badMagic = frame({});
    badMagic[4] = 'X';
    std::vector<uint8_t> longer = frame({});
    longer[0] = 64;
    const Case cases[] = {
        {"string longer than the parcel", frame(afterToken({0xff, 0xff, 0xff, 0x7f})), "runs past the end"},
        {"negative string length", frame(afterToken({0xfe, 0xff, 0xff, 0xff})), "negative length -2"},
        {"string without NUL", frame(afterToken({1, 0, 0, 0, 'a', 'b', 0, 0})), "does not end in NUL"},
        {"token length past the end", frame({0x00, 0x00, 0x00, 0x40, 0, 0, 0, 0}), "runs past the end"},
        {"unknown interface", frame({1, 0, 0, 0, 'Z', 0, 0, 0}), "not an interface of the device-detect service"},
        {"bad magic", badMagic, "the magic is not 'TV'"},
        {"length beyond the packet", longer, "length 64, but the packet holds 0 bytes"},
        {"object index beyond the entries",
         frame(afterToken({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}),
               ToCode(Syntavo::DeviceDetectRequestCode::REGISTER_DEV_CHANGED_CALLBACK), 1),
         "the frame carries 1 object entries"},
    };
    const std::string capture = Path("hostile.pcap");
    PcapWriter writer;
    ASSERT_TRUE(writer.Open(capture)) << writer.Error();
    for (const Case& c : cases) {
        ASSERT_TRUE(writer.Write(CaptureDirection::TO_SERVICE, 1, 1, START_NS, c.frame.data(), c.frame.size()));
    }
    ASSERT_TRUE(writer.Close());
    const std::string out = Dissect(tshark_, dir_, capture);
    for (const Case& c : cases) {
        EXPECT_NE(out.find(c.expected), std::string::npos) << c.what << ": missing \"" << c.expected << "\"";
    }
    EXPECT_EQ(out.find("Lua Error"), std::string::npos) << out;
}

}  // namespace
}  // namespace DeviceDetectCli
