// Writes the seed corpus: a few small valid inputs per fuzz target, so the
// fuzzers start from well-formed items instead of discovering the wire
// format byte by byte. Run once by hand; the output is committed.
//
//   fuzz_corpus_gen <source>/test/fuzz/corpus
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "device_dynamic_info.h"
#include "fuzz_common.h"
#include "message_option.h"
#include "message_parcel.h"
#include "publish_event_info.h"
#include "service_publish_info.h"
#include "transport/frame.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;
using Bytes = std::vector<uint8_t>;

bool WriteFile(const std::string& path, const Bytes& bytes)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        std::perror(path.c_str());
        return false;
    }
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && ok;
}

Bytes Data(const Parcel& parcel)
{
    return Bytes(parcel.GetData(), parcel.GetData() + parcel.GetDataSize());
}

Bytes Concat(Bytes head, const Bytes& tail)
{
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

// --- parcel_fuzzer: [op count][object count][ops...][data...] --------------

using namespace DdFuzz;  // the parcel operations

// Each fill chains its writes with &&; a failed write stops the generator
// instead of committing a broken seed.
using Fill = std::function<bool(MessageParcel&)>;

Bytes Filled(const Fill& fill)
{
    MessageParcel parcel;
    if (!fill(parcel)) {
        std::fprintf(stderr, "a seed's write failed\n");
        std::exit(1);
    }
    return Data(parcel);
}

Bytes ParcelInput(uint8_t objects, const Bytes& ops, const Fill& fill)
{
    return Concat(Concat({static_cast<uint8_t>(ops.size()), objects}, ops), Filled(fill));
}

std::vector<std::pair<std::string, Bytes>> ParcelSeeds()
{
    return {
        {"scalars", ParcelInput(0, {BOOL, INT32, UINT32, INT64, UINT64, REWIND_TO_START, UINT64, INT64},
                                [](MessageParcel& p) {
                                    return p.WriteBool(true) && p.WriteInt32(-5) && p.WriteUint32(0xdeadbeef) &&
                                           p.WriteInt64(-1234567890123) && p.WriteUint64(0x0102030405060708);
                                })},
        {"strings", ParcelInput(0, {STRING, STRING16, STRING, STRING},
                                [](MessageParcel& p) {
                                    return p.WriteString("hello") && p.WriteString16(u"w\u00f6rld") &&
                                           p.WriteString("") && p.WriteString("abc");
                                })},
        {"token", ParcelInput(0, {INTERFACE_TOKEN, INT32, REWIND_TO_START, STRING16},
                              [](MessageParcel& p) {
                                  return p.WriteInterfaceToken(Descriptor::DEVICE_DETECT) && p.WriteInt32(3);
                              })},
        {"vectors", ParcelInput(0, {STRING_VECTOR, UINT32_VECTOR, INT32_VECTOR, REWIND_TO_START, INT32},
                                [](MessageParcel& p) {
                                    return p.WriteStringVector({"a", "", "PHONE"}) &&
                                           p.WriteUInt32Vector({14, 17, 0xA2F}) && p.WriteInt32Vector({-1, 0, 1});
                                })},
        {"remote_objects",
         ParcelInput(2, {REMOTE_OBJECT, REMOTE_OBJECT, REMOTE_OBJECT},
                     [](MessageParcel& p) { return p.WriteUint32(1) && p.WriteUint32(0) && p.WriteUint32(5); })},
        {"buffer_skip_rewind", ParcelInput(0, {BUFFER, 3, SKIP, 5, STRING, REWIND, 1, INT32, REWIND, 0xF4, BOOL},
                                           [](MessageParcel& p) {
                                               return p.WriteBuffer("xyz", 3) && p.WriteBuffer("12345", 5) &&
                                                      p.WriteString("after");
                                           })},
    };
}

// --- record_fuzzer: [record index][record] ---------------------------------

Bytes RecordInput(uint8_t index, const Parcelable& record)
{
    Parcel parcel;
    record.Marshalling(parcel);
    return Concat({index}, Data(parcel));
}

std::vector<std::pair<std::string, Bytes>> RecordSeeds()
{
    PickerResult picker;
    picker.SetAbilityFilter(new AbilityFilter("com.example", "page", "main page", 14, 1));
    picker.SetDeviceInfo(new DeviceInfo("udid-1", "net-1", "Phone", 14));
    picker.SetLocalDeviceInfo(new LocalInfo("MainAbility", "com.example", "local-1", "entry", 17));
    AbilityFilter ability("com.example", "page", "main page", 14, 1);
    ability.SetAction("view");
    // The order of record_fuzzer.cpp's table.
    return {
        {"device_info", RecordInput(0, DeviceInfo("udid-0123", "net-abc", "Living room TV", 156))},
        {"ability_filter", RecordInput(1, ability)},
        {"device_filter", RecordInput(2, DeviceFilter({14, 17}, {1}))},
        {"service_filter", RecordInput(3, ServiceFilter("print", {"PHONE", "PAD"}))},
        {"local_info", RecordInput(4, LocalInfo("MainAbility", "com.example", "local-1", "entry", 17))},
        {"picker_result", RecordInput(5, picker)},
        {"device_service_info", RecordInput(6, DeviceServiceInfo("Pad", 17, "hash", "dev-1", {"rule-a", "rule-b"},
                                                                 "net-2", "AA:BB:CC:DD:EE:FF", "{}"))},
        {"device_dynamic_info", RecordInput(7, DeviceDynamicInfo("battery", "87"))},
        {"device_config_info", RecordInput(8, DeviceConfigInfo("model-7", "{\"fold\":1}", "Fold", 14, 1))},
        {"request_result_info", RecordInput(9, RequestResultInfo(2, 0))},
        {"service_publish_info", RecordInput(10, ServicePublishInfo(7, 1001, 2))},
    };
}

// --- reply_fuzzer: [method index][reply] -----------------------------------

Bytes ReplyInput(uint8_t index, const Fill& fill)
{
    return Concat({index}, Filled(fill));
}

bool WriteDevice(Parcel& p, const std::string& id, uint32_t type)
{
    return p.WriteStrongParcelable(new DeviceInfo(id, "net-" + id, "name-" + id, type));
}

std::vector<std::pair<std::string, Bytes>> ReplySeeds()
{
    // Indexes into reply_fuzzer.cpp's method table.
    return {
        {"device_list", ReplyInput(0,
                                   [](MessageParcel& p) {
                                       return p.WriteUint32(2) && WriteDevice(p, "u1", 14) && WriteDevice(p, "u2", 17);
                                   })},
        {"ability_filter_list",
         ReplyInput(2,
                    [](MessageParcel& p) {
                        return p.WriteUint32(1) && WriteDevice(p, "u1", 14) && p.WriteUint32(2) &&
                               p.WriteStrongParcelable(new AbilityFilter("b1", "t", "d", 14, 1)) && p.WriteInt32(0);
                    })},
        {"device_filter_list",
         ReplyInput(5, [](MessageParcel& p) { return p.WriteUint32(1) && WriteDevice(p, "u3", 156); })},
        {"register_listener", ReplyInput(6, [](MessageParcel& p) { return p.WriteInt32(0) && p.WriteUint32(42); })},
        {"local_device", ReplyInput(12, [](MessageParcel& p) { return WriteDevice(p, "me", 14); })},
        {"dynamic_info", ReplyInput(13,
                                    [](MessageParcel& p) {
                                        return p.WriteUint32(2) &&
                                               p.WriteStrongParcelable(new DeviceDynamicInfo("battery", "87")) &&
                                               p.WriteStrongParcelable(new DeviceDynamicInfo("wifi", "on"));
                                    })},
        {"config_info", ReplyInput(14,
                                   [](MessageParcel& p) {
                                       return p.WriteStrongParcelable(new DeviceConfigInfo("m1", "{}", "Fold", 14, 1));
                                   })},
        {"device_switch", ReplyInput(20, [](MessageParcel& p) { return p.WriteInt32(1); })},
        {"same_account", ReplyInput(24, [](MessageParcel& p) { return p.WriteBool(true); })},
    };
}

// --- stub_fuzzer: [stub | token flag][code][data] --------------------------

constexpr uint8_t WITH_TOKEN = 0x08;

Bytes StubInput(uint8_t stub, uint8_t code, const Fill& fill)
{
    return Concat({static_cast<uint8_t>(stub | WITH_TOKEN), code}, Filled(fill));
}

std::vector<std::pair<std::string, Bytes>> StubSeeds()
{
    const auto onEvent = static_cast<uint8_t>(ToCode(SingleEventCallbackCode::ON_EVENT));
    // Indexes into stub_fuzzer.cpp's stub table.
    return {
        {"device_online", StubInput(0, static_cast<uint8_t>(ToCode(DeviceChangedCallbackCode::ON_DEVICE_ONLINE)),
                                    [](MessageParcel& p) { return WriteDevice(p, "u1", 14); })},
        {"device_ready", StubInput(0, static_cast<uint8_t>(ToCode(DeviceChangedCallbackCode::ON_DEVICE_READY)),
                                   [](MessageParcel& p) { return WriteDevice(p, "u2", 17); })},
        {"service_changed", StubInput(1, onEvent,
                                      [](MessageParcel& p) {
                                          return p.WriteInt32(1) && p.WriteUint32(1) &&
                                                 p.WriteStrongParcelable(new DeviceServiceInfo(
                                                     "Pad", 17, "hash", "dev-1", {"rule"}, "net", "AA:BB", "{}"));
                                      })},
        {"device_event",
         StubInput(2, onEvent, [](MessageParcel& p) { return p.WriteInt32(2) && WriteDevice(p, "u3", 156); })},
        {"deliver", StubInput(3, onEvent, [](MessageParcel& p) { return p.WriteString("{\"service\":1}"); })},
        {"dialog_event", StubInput(4, onEvent, [](MessageParcel& p) { return p.WriteString("{\"button\":0}"); })},
        {"publish_event",
         StubInput(5, onEvent, [](MessageParcel& p) { return p.WriteStrongParcelable(new RequestResultInfo(1, 0)); })},
        {"unknown_code", StubInput(0, 9, [](MessageParcel& p) { return p.WriteInt32(0); })},
    };
}

// --- frame_fuzzer: [side][stream] ------------------------------------------

constexpr uint8_t SERVER_SIDE = 0;
constexpr uint8_t CLIENT_SIDE = 1;

using namespace Tavik::Transport;

Bytes FrameBytes(FrameHeader header, const Bytes& data, const std::vector<ObjectEntry>& entries = {})
{
    header.objectCount = static_cast<uint16_t>(entries.size());
    header.length = static_cast<uint32_t>(data.size() + entries.size() * sizeof(ObjectEntry));
    const auto* raw = reinterpret_cast<const uint8_t*>(&header);
    Bytes out(raw, raw + sizeof(header));
    out = Concat(out, data);
    for (const ObjectEntry& entry : entries) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&entry);
        out.insert(out.end(), bytes, bytes + sizeof(entry));
    }
    return out;
}

FrameHeader Transaction(uint64_t callId, uint32_t target, uint32_t code)
{
    FrameHeader header = MakeHeader(FrameKind::TRANSACTION);
    header.callId = callId;
    header.target = target;
    header.code = code;
    header.flags = callId == 0 ? MessageOption::TF_ASYNC : 0;
    return header;
}

FrameHeader Reply(uint64_t callId, int32_t status)
{
    FrameHeader header = MakeHeader(FrameKind::REPLY);
    header.callId = callId;
    header.code = static_cast<uint32_t>(status);
    return header;
}

FrameHeader Release(uint32_t id, uint32_t count)
{
    FrameHeader header = MakeHeader(FrameKind::RELEASE);
    header.target = id;
    header.code = count;
    return header;
}

Bytes DeviceEvent()
{
    return Filled([](MessageParcel& p) {
        return p.WriteInterfaceToken(Descriptor::DEVICE_CHANGED_CALLBACK) && WriteDevice(p, "u1", 14);
    });
}

std::vector<std::pair<std::string, Bytes>> FrameSeeds()
{
    const uint32_t online = ToCode(DeviceChangedCallbackCode::ON_DEVICE_ONLINE);
    const uint32_t offline = ToCode(DeviceChangedCallbackCode::ON_DEVICE_OFFLINE);
    ObjectEntry theirs{7, static_cast<uint8_t>(ObjectOwner::SENDER), {0, 0, 0}};
    const Bytes status = Filled([](MessageParcel& p) { return p.WriteInt32(7); });
    return {
        {"server_call", Concat({SERVER_SIDE}, FrameBytes(Transaction(1, ROOT_OBJECT_ID, online), DeviceEvent()))},
        {"server_one_way",
         Concat(Concat({SERVER_SIDE}, FrameBytes(Transaction(0, ROOT_OBJECT_ID, online), DeviceEvent())),
                FrameBytes(Transaction(0, ROOT_OBJECT_ID, offline), DeviceEvent()))},
        {"server_object",
         Concat({SERVER_SIDE}, FrameBytes(Transaction(2, ROOT_OBJECT_ID, online), DeviceEvent(), {theirs}))},
        {"client_reply", Concat({CLIENT_SIDE}, FrameBytes(Reply(1, 0), status))},
        {"client_reply_object", Concat({CLIENT_SIDE}, FrameBytes(Reply(1, 0), status, {theirs}))},
        {"client_release_then_reply",
         Concat(Concat({CLIENT_SIDE}, FrameBytes(Release(1, 1), {})), FrameBytes(Reply(1, -1), {}))},
        {"client_callback_then_reply",
         Concat(Concat({CLIENT_SIDE}, FrameBytes(Transaction(5, 1, online), DeviceEvent())),
                FrameBytes(Reply(1, 0), status))},
    };
}

bool WriteSeeds(const std::string& root, const std::string& target,
                const std::vector<std::pair<std::string, Bytes>>& seeds)
{
    std::string dir = root + "/" + target;
    ::mkdir(dir.c_str(), 0755);
    for (const auto& seed : seeds) {
        if (!WriteFile(dir + "/" + seed.first, seed.second)) {
            return false;
        }
    }
    std::printf("%s: %zu seeds\n", target.c_str(), seeds.size());
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
        return 2;
    }
    std::string root = argv[1];
    ::mkdir(root.c_str(), 0755);
    bool ok = WriteSeeds(root, "parcel_fuzzer", ParcelSeeds()) && WriteSeeds(root, "record_fuzzer", RecordSeeds()) &&
              WriteSeeds(root, "reply_fuzzer", ReplySeeds()) && WriteSeeds(root, "stub_fuzzer", StubSeeds()) &&
              WriteSeeds(root, "frame_fuzzer", FrameSeeds());
    return ok ? 0 : 1;
}
