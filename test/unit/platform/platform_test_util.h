// Helpers shared by the platform tests: a tiny record, named writes for the
// tables, and the allocation watch backed by the counting operator new of
// this binary. Hex dumps come from wire_bytes.h.
#ifndef TAVIK_TEST_PLATFORM_TEST_UTIL_H
#define TAVIK_TEST_PLATFORM_TEST_UTIL_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ipc_object_stub.h"
#include "message_parcel.h"
#include "parcel.h"
#include "wire_bytes.h"

// `name, write` for a table row: a write on a parcel of type P, named by its own expression.
#define NAMED_WRITE(P, ...) #__VA_ARGS__, [](P & p) { return p.__VA_ARGS__; }

namespace Tavik {
namespace Test {

// Fills a parcel with raw little-endian words, bypassing the typed writes, to hand-build hostile input.
bool ParseWords(Parcel& parcel, const std::vector<uint32_t>& words);

// Largest single operator new request since the last Reset(), process-wide.
struct AllocationWatch {
    static void Reset();
    static size_t Largest();
};

// Three fields (int32, string, uint32), so "one write per field" and the
// strong-parcelable framing can be observed. Destruction sets `destroyed`.
class TestRecord : public Parcelable {
public:
    TestRecord(int32_t id = 0, std::string name = std::string(), uint32_t kind = 0, bool* destroyed = nullptr)
        : id_(id), name_(std::move(name)), kind_(kind), destroyed_(destroyed)
    {
    }
    ~TestRecord() override
    {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }
    bool Marshalling(Parcel& parcel) const override
    {
        return parcel.WriteInt32(id_) && parcel.WriteString(name_) && parcel.WriteUint32(kind_);
    }
    static sptr<TestRecord> Unmarshalling(Parcel& parcel)
    {
        sptr<TestRecord> record = sptr<TestRecord>::MakeSptr();
        bool ok = parcel.ReadInt32(record->id_) && parcel.ReadString(record->name_) && parcel.ReadUint32(record->kind_);
        return ok ? record : nullptr;
    }

    int32_t id_;
    std::string name_;
    uint32_t kind_;

private:
    bool* destroyed_;
};

// One of every write operation, each putting several words (or an object) on
// the wire, for the tests that refuse a write half-way: the write budget and
// the capacity limit.
struct NamedWrite {
    const char* name;
    std::function<bool(MessageParcel&)> write;
};
#define W(...) NAMED_WRITE(MessageParcel, __VA_ARGS__)
inline const std::vector<NamedWrite>& EveryWrite()
{
    static const std::vector<NamedWrite> writes = {
        {W(WriteBool(true))},
        {W(WriteInt32(1))},
        {W(WriteUint32(1))},
        {W(WriteInt64(1))},
        {W(WriteUint64(1))},
        {W(WriteString("abcd"))},  // the NUL in its own word
        {W(WriteString("abcdefgh"))},
        {W(WriteString16(u"abcd"))},
        {W(WriteBuffer("123456789", 9))},
        {W(WriteStringVector({"aaaa", "bbbb", "cccc"}))},
        {W(WriteUInt32Vector({1, 2, 3, 4, 5}))},
        {W(WriteInt32Vector({-1, -2, -3, -4, -5}))},
        {W(WriteStrongParcelable(new TestRecord(5, "abcdefg", 6)))},
        {W(WriteStrongParcelable(nullptr))},
        {W(WriteParcelable(std::make_unique<TestRecord>(1, "", 2).get()))},
        {W(WriteInterfaceToken(u"Tavik.Test.IFoo"))},
        {W(WriteRemoteObject(new IPCObjectStub(u"x")))},
    };
    return writes;
}
#undef W

}  // namespace Test
}  // namespace Tavik

#endif  // TAVIK_TEST_PLATFORM_TEST_UTIL_H
