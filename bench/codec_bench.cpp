// Parcel primitives and the records' encode/decode.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "device_info.h"
#include "device_info_reader.h"
#include "device_service_info.h"
#include "local_info.h"
#include "message_parcel.h"
#include "picker_result.h"
#include "publish_event_info.h"
#include "service_filter.h"
#include "service_publish_info.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {
namespace {

DeviceInfo SampleDevice(size_t index)
{
    std::string number = std::to_string(100000 + index);
    return DeviceInfo("udid-bench-" + number + "-7f3a9c2e41d05b86", "net-bench-" + number + "-0c4be19f77a2d365",
                      "Bench Device " + number, 14);
}

DeviceServiceInfo SampleServiceInfo(size_t index)
{
    std::string number = std::to_string(100000 + index);
    DeviceServiceInfo info;
    info.SetDeviceName("Bench Device " + number);
    info.SetDeviceType(14);
    info.SetDeviceHashId("hash-" + number);
    info.SetDeviceId("udid-bench-" + number);
    info.SetServiceRuleList({"castService", "fileShare"});
    info.SetNetworkId("net-bench-" + number);
    info.SetBrMac("00:11:22:33:44:55");
    info.SetExtraInfo("{}");
    return info;
}

void ParcelPrimitives(benchmark::State& state)
{
    const std::string text = "udid-bench-100000-7f3a9c2e41d05b86";
    for (auto _ : state) {
        Parcel parcel;
        parcel.WriteInt32(7);
        parcel.WriteString(text);
        parcel.WriteString16(u"Tavik.Syntavo.IDeviceDetect");
        int32_t value = parcel.ReadInt32();
        std::string back = parcel.ReadString();
        std::u16string token = parcel.ReadString16();
        benchmark::DoNotOptimize(value);
        benchmark::DoNotOptimize(back.data());
        benchmark::DoNotOptimize(token.data());
    }
}
BENCHMARK(ParcelPrimitives)->Name("codec/parcel/int32+string+string16_roundtrip");

template <typename T>
T Sample()
{
    return T();
}
template <>
DeviceInfo Sample<DeviceInfo>()
{
    return SampleDevice(0);
}
template <>
DeviceServiceInfo Sample<DeviceServiceInfo>()
{
    return SampleServiceInfo(0);
}
template <>
PickerResult Sample<PickerResult>()
{
    PickerResult result;
    result.SetAbilityFilter(sptr<AbilityFilter>::MakeSptr("com.tavik.files", "page", "Files", 14u, 1u));
    result.SetDeviceInfo(sptr<DeviceInfo>::MakeSptr(SampleDevice(0)));
    result.SetLocalDeviceInfo(sptr<LocalInfo>::MakeSptr());
    return result;
}

template <typename T>
void Encode(benchmark::State& state)
{
    T record = Sample<T>();
    for (auto _ : state) {
        Parcel parcel;
        benchmark::DoNotOptimize(record.Marshalling(parcel));
    }
}

template <typename T>
void Decode(benchmark::State& state)
{
    T record = Sample<T>();
    Parcel parcel;
    record.Marshalling(parcel);
    for (auto _ : state) {
        parcel.RewindRead(0);
        sptr<T> back = T::Unmarshalling(parcel);
        benchmark::DoNotOptimize(back.GetRefPtr());
    }
}

#define DD_RECORD_BENCH(Type)                                                \
    BENCHMARK_TEMPLATE(Encode, Type)->Name("codec/record/" #Type "/encode"); \
    BENCHMARK_TEMPLATE(Decode, Type)->Name("codec/record/" #Type "/decode")

DD_RECORD_BENCH(AbilityFilter);
DD_RECORD_BENCH(DeviceConfigInfo);
DD_RECORD_BENCH(DeviceDynamicInfo);
DD_RECORD_BENCH(DeviceFilter);
DD_RECORD_BENCH(DeviceInfo);
DD_RECORD_BENCH(DeviceServiceInfo);
DD_RECORD_BENCH(LocalInfo);
DD_RECORD_BENCH(PickerResult);
DD_RECORD_BENCH(RequestResultInfo);
DD_RECORD_BENCH(ServiceFilter);
DD_RECORD_BENCH(ServicePublishInfo);

// A list as the service writes it: a count, then one parcelable per entry.
template <typename T, T (*Make)(size_t)>
void EncodeList(benchmark::State& state)
{
    std::vector<T> records;
    for (int64_t i = 0; i < state.range(0); ++i) {
        records.push_back(Make(static_cast<size_t>(i)));
    }
    size_t bytes = 0;
    for (auto _ : state) {
        MessageParcel parcel;
        parcel.WriteUint32(static_cast<uint32_t>(records.size()));
        for (const T& record : records) {
            parcel.WriteParcelable(&record);
        }
        bytes = parcel.GetDataSize();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

// The bytes EncodeList produces, written once for a decoding benchmark.
template <typename T, T (*Make)(size_t)>
void WriteList(MessageParcel& parcel, int64_t count)
{
    parcel.WriteUint32(static_cast<uint32_t>(count));
    for (int64_t i = 0; i < count; ++i) {
        T record = Make(static_cast<size_t>(i));
        parcel.WriteParcelable(&record);
    }
}

template <typename T, T (*Make)(size_t)>
void DecodeList(benchmark::State& state)
{
    MessageParcel parcel;
    WriteList<T, Make>(parcel, state.range(0));
    for (auto _ : state) {
        parcel.RewindRead(0);
        uint32_t count = parcel.ReadUint32();
        std::vector<T> records;
        for (uint32_t i = 0; i < count; ++i) {
            sptr<T> record = parcel.ReadStrongParcelable<T>();
            if (record == nullptr) {
                state.SkipWithError("decode failed");
                return;
            }
            records.push_back(*record);
        }
        benchmark::DoNotOptimize(records.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(parcel.GetDataSize()));
}

// The DeviceInfo list as the proxy reads it: each record built in place at
// the end of the caller's vector, reserved once.
void DecodeDeviceInfoList(benchmark::State& state)
{
    MessageParcel parcel;
    WriteList<DeviceInfo, SampleDevice>(parcel, state.range(0));
    for (auto _ : state) {
        parcel.RewindRead(0);
        uint32_t count = parcel.ReadUint32();
        std::vector<DeviceInfo> records;
        records.reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            if (!AppendDeviceInfo(parcel, records)) {
                state.SkipWithError("decode failed");
                return;
            }
        }
        benchmark::DoNotOptimize(records.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(parcel.GetDataSize()));
}

BENCHMARK_TEMPLATE(EncodeList, DeviceInfo, SampleDevice)->Name("codec/list/DeviceInfo/encode")->Arg(1024);
BENCHMARK(DecodeDeviceInfoList)->Name("codec/list/DeviceInfo/decode")->Arg(1024);
BENCHMARK_TEMPLATE(EncodeList, DeviceServiceInfo, SampleServiceInfo)
    ->Name("codec/list/DeviceServiceInfo/encode")
    ->Arg(256);
BENCHMARK_TEMPLATE(DecodeList, DeviceServiceInfo, SampleServiceInfo)
    ->Name("codec/list/DeviceServiceInfo/decode")
    ->Arg(256);

}  // namespace
}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
