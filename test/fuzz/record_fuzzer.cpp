// record_fuzzer: each record's Unmarshalling over hostile bytes.
//
// Input: byte 0 picks the record (modulo eleven), the rest is the parcel.
// A record that comes back must write itself, read that back completely and
// write the same bytes again (write, read, write is stable). Records that
// take short reads as empty fields must come back whatever the bytes are;
// only DeviceFilter and PickerResult may refuse.
#include <cstdint>
#include <cstring>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_dynamic_info.h"
#include "fuzz_common.h"
#include "parcel.h"
#include "publish_event_info.h"
#include "service_publish_info.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

struct RecordKind {
    const char* name;
    sptr<Parcelable> (*unmarshal)(Parcel& parcel);
    bool mayRefuse;
};

template <typename T>
sptr<Parcelable> Unmarshal(Parcel& parcel)
{
    return T::Unmarshalling(parcel);
}

const RecordKind RECORDS[] = {
    {"DeviceInfo", Unmarshal<DeviceInfo>, false},
    {"AbilityFilter", Unmarshal<AbilityFilter>, false},
    {"DeviceFilter", Unmarshal<DeviceFilter>, true},
    {"ServiceFilter", Unmarshal<ServiceFilter>, false},
    {"LocalInfo", Unmarshal<LocalInfo>, false},
    {"PickerResult", Unmarshal<PickerResult>, true},
    {"DeviceServiceInfo", Unmarshal<DeviceServiceInfo>, false},
    {"DeviceDynamicInfo", Unmarshal<DeviceDynamicInfo>, false},
    {"DeviceConfigInfo", Unmarshal<DeviceConfigInfo>, false},
    {"RequestResultInfo", Unmarshal<RequestResultInfo>, false},
    {"ServicePublishInfo", Unmarshal<ServicePublishInfo>, false},
};
constexpr size_t RECORD_COUNT = sizeof(RECORDS) / sizeof(RECORDS[0]);

bool SameBytes(const Parcel& a, const Parcel& b)
{
    return a.GetDataSize() == b.GetDataSize() && std::memcmp(a.GetData(), b.GetData(), a.GetDataSize()) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    DdFuzz::QuietLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > DdFuzz::MAX_INPUT_SIZE) {
        return 0;
    }
    const RecordKind& kind = RECORDS[data[0] % RECORD_COUNT];
    DdFuzz::g_context = kind.name;

    Parcel input;
    FUZZ_CHECK(input.ParseFrom(data + 1, size - 1));
    sptr<Parcelable> record = kind.unmarshal(input);
    FUZZ_CHECK(input.GetReadPosition() <= input.GetDataSize());
    if (record == nullptr) {
        FUZZ_CHECK(kind.mayRefuse);
        return 0;
    }

    Parcel first;
    FUZZ_CHECK(record->Marshalling(first));
    Parcel reread;
    FUZZ_CHECK(reread.ParseFrom(first.GetData(), first.GetDataSize()));
    sptr<Parcelable> again = kind.unmarshal(reread);
    FUZZ_CHECK(again != nullptr);
    FUZZ_CHECK(reread.GetReadPosition() == first.GetDataSize());
    Parcel second;
    FUZZ_CHECK(again->Marshalling(second));
    FUZZ_CHECK(SameBytes(first, second));
    return 0;
}
