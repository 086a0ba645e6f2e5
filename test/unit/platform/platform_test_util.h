// Helpers shared by the platform tests: hex dumps, a tiny record, and the
// allocation watch backed by the counting operator new of this binary.
#ifndef TAVIK_TEST_PLATFORM_TEST_UTIL_H
#define TAVIK_TEST_PLATFORM_TEST_UTIL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "parcel.h"

namespace Tavik {
namespace Test {

// Lower-case hex of the bytes, no separators.
std::string ToHex(const uint8_t* data, size_t size);
inline std::string ToHex(const Parcel& parcel)
{
    return ToHex(parcel.GetData(), parcel.GetDataSize());
}
// Drops the spaces that the golden tables use to group words.
std::string CompactHex(const std::string& spaced);

// Fills a parcel with raw words (little-endian int32s), bypassing the typed
// writes, so a test can hand-build hostile input.
bool ParseWords(Parcel& parcel, const std::vector<uint32_t>& words);

// Largest single operator new request since the last Reset(), process-wide.
class AllocationWatch {
public:
    static void Reset();
    static size_t Largest();
};

// A record with three fields (int32 id, string name, uint32 kind), so that
// "one write per field" and the strong-parcelable framing can be observed.
// Destruction sets the flag it was given, if any.
class TestRecord : public Parcelable {
public:
    TestRecord(int32_t id = 0, std::string name = std::string(), uint32_t kind = 0, bool* destroyed = nullptr)
        : id_(id), name_(std::move(name)), kind_(kind), destroyed_(destroyed)
    {
    }
    TestRecord(const TestRecord&) = default;
    TestRecord& operator=(const TestRecord&) = default;
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
        int32_t id = 0;
        std::string name;
        uint32_t kind = 0;
        if (!parcel.ReadInt32(id) || !parcel.ReadString(name) || !parcel.ReadUint32(kind)) {
            return nullptr;
        }
        return sptr<TestRecord>::MakeSptr(id, name, kind);
    }

    int32_t id_;
    std::string name_;
    uint32_t kind_;

private:
    bool* destroyed_;
};

}  // namespace Test
}  // namespace Tavik

#endif  // TAVIK_TEST_PLATFORM_TEST_UTIL_H
