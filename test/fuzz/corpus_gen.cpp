// Writes the seed corpus: a few small valid inputs per fuzz target, so the
// fuzzers start from well-formed items instead of discovering the wire
// format byte by byte. Run once by hand; the output is committed.
//
//   fuzz_corpus_gen <source>/test/fuzz/corpus
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_detect_descriptors.h"
#include "device_dynamic_info.h"
#include "message_parcel.h"
#include "publish_event_info.h"
#include "service_publish_info.h"

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

// The operation numbers of parcel_fuzzer.cpp.
enum Op : uint8_t {
    BOOL,
    INT32,
    UINT32,
    INT64,
    UINT64,
    STRING,
    STRING16,
    INTERFACE_TOKEN,
    STRING_VECTOR,
    UINT32_VECTOR,
    INT32_VECTOR,
    REMOTE_OBJECT,
    BUFFER,
    SKIP,
    REWIND,
    REWIND_TO_START,
};

Bytes ParcelInput(uint8_t objects, const Bytes& ops, const std::function<void(MessageParcel&)>& fill)
{
    MessageParcel parcel;
    fill(parcel);
    Bytes input{static_cast<uint8_t>(ops.size()), objects};
    return Concat(Concat(input, ops), Data(parcel));
}

std::vector<std::pair<std::string, Bytes>> ParcelSeeds()
{
    return {
        {"scalars", ParcelInput(0, {BOOL, INT32, UINT32, INT64, UINT64, REWIND_TO_START, UINT64, INT64},
                                [](MessageParcel& p) {
                                    p.WriteBool(true);
                                    p.WriteInt32(-5);
                                    p.WriteUint32(0xdeadbeef);
                                    p.WriteInt64(-1234567890123);
                                    p.WriteUint64(0x0102030405060708);
                                })},
        {"strings", ParcelInput(0, {STRING, STRING16, STRING, STRING},
                                [](MessageParcel& p) {
                                    p.WriteString("hello");
                                    p.WriteString16(u"w\u00f6rld");
                                    p.WriteString("");
                                    p.WriteString("abc");
                                })},
        {"token", ParcelInput(0, {INTERFACE_TOKEN, INT32, REWIND_TO_START, STRING16},
                              [](MessageParcel& p) {
                                  p.WriteInterfaceToken(Descriptor::DEVICE_DETECT);
                                  p.WriteInt32(3);
                              })},
        {"vectors", ParcelInput(0, {STRING_VECTOR, UINT32_VECTOR, INT32_VECTOR, REWIND_TO_START, INT32},
                                [](MessageParcel& p) {
                                    p.WriteStringVector({"a", "", "PHONE"});
                                    p.WriteUInt32Vector({14, 17, 0xA2F});
                                    p.WriteInt32Vector({-1, 0, 1});
                                })},
        {"remote_objects", ParcelInput(2, {REMOTE_OBJECT, REMOTE_OBJECT, REMOTE_OBJECT},
                                       [](MessageParcel& p) {
                                           p.WriteUint32(1);
                                           p.WriteUint32(0);
                                           p.WriteUint32(5);
                                       })},
        {"buffer_skip_rewind", ParcelInput(0, {BUFFER, 3, SKIP, 5, STRING, REWIND, 1, INT32, REWIND, 0xF4, BOOL},
                                           [](MessageParcel& p) {
                                               p.WriteBuffer("xyz", 3);
                                               p.WriteBuffer("12345", 5);
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
    bool ok = WriteSeeds(root, "parcel_fuzzer", ParcelSeeds()) && WriteSeeds(root, "record_fuzzer", RecordSeeds());
    return ok ? 0 : 1;
}
