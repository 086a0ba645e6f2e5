// Bytes of a parcel as the wire tests compare them.
#ifndef TAVIK_TEST_WIRE_BYTES_H
#define TAVIK_TEST_WIRE_BYTES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "parcel.h"

namespace Tavik {
namespace Test {

// Lower-case hex of the bytes, no blanks.
inline std::string ToHex(const uint8_t* data, size_t size)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        out.push_back(digits[data[i] >> 4]);
        out.push_back(digits[data[i] & 0x0f]);
    }
    return out;
}

inline std::string ToHex(const Parcel& parcel)
{
    return ToHex(parcel.GetData(), parcel.GetDataSize());
}

// The tables group words with blanks for the reader: "02000000 61620000".
inline std::string CompactHex(std::string spaced)
{
    spaced.erase(std::remove(spaced.begin(), spaced.end(), ' '), spaced.end());
    return spaced;
}

inline std::vector<uint8_t> Bytes(const Parcel& parcel)
{
    return std::vector<uint8_t>(parcel.GetData(), parcel.GetData() + parcel.GetDataSize());
}

// Marshals without any write failure; an empty vector when it fails.
inline std::vector<uint8_t> Encode(const Parcelable& record)
{
    Parcel parcel;
    return record.Marshalling(parcel) ? Bytes(parcel) : std::vector<uint8_t>();
}

}  // namespace Test
}  // namespace Tavik

#endif  // TAVIK_TEST_WIRE_BYTES_H
