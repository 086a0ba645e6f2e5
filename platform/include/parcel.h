// Parcel: the flat little-endian buffer that carries values across the
// process boundary, and Parcelable, the base of every value that can write
// itself into one.
//
// Wire format (see docs/wire-format.md for the byte-by-byte picture):
//   - every item starts on a 4-byte boundary; padding bytes are zero;
//   - int32, uint32 and bool (int32 0 or 1) take 4 bytes; 64-bit values 8;
//   - std::string: int32 byte length, the bytes, one NUL, padding;
//   - std::u16string: int32 length in code units, the units, one NUL unit,
//     padding;
//   - vectors: int32 count, then each element as its own item;
//   - strong parcelable: int32 presence (1, or 0 for a null pointer, which is
//     a successful write), then the record's Marshalling.
//
// Writes: a write that would take the parcel past its maximum capacity
// writes nothing and returns false. Composite writes (vectors, parcelables)
// are all-or-nothing as well: on failure the parcel is rolled back to where
// the write started.
//
// Reads come in two forms. The value forms (ReadInt32(), ReadString(), ...)
// return 0 or an empty value when the parcel runs short. The checked forms
// (ReadInt32(int32_t&), ...) return false and leave both their output and
// the read position unchanged. Every length and count is checked against the
// bytes that remain before anything is allocated, so no input can make a
// reader allocate more than the parcel's own size.
//
// A Parcel is a resource type: movable, not copyable, used by one thread at
// a time.
#ifndef TAVIK_PLATFORM_PARCEL_H
#define TAVIK_PLATFORM_PARCEL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "refbase.h"

namespace Tavik {

class Parcel;

class Parcelable : public virtual RefBase {
public:
    Parcelable() = default;
    Parcelable(const Parcelable&) = default;
    Parcelable& operator=(const Parcelable&) = default;
    ~Parcelable() override = default;

    // Writes the value's fields; true when every write succeeded.
    virtual bool Marshalling(Parcel& parcel) const = 0;
};

class Parcel {
public:
    // Default ceiling of one parcel's data; matches the transport's frame
    // limit so that anything a parcel accepts can also be sent.
    static constexpr size_t DEFAULT_MAX_CAPACITY = 1024 * 1024;

    Parcel();
    virtual ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;
    Parcel(Parcel&&) noexcept;
    Parcel& operator=(Parcel&&) noexcept;

    // --- buffer ---------------------------------------------------------
    // Caps this parcel's data size. Fails (and changes nothing) when the
    // parcel already holds more than maxCapacity bytes.
    bool SetMaxCapacity(size_t maxCapacity);
    size_t GetMaxCapacity() const { return maxCapacity_; }
    size_t GetDataSize() const { return data_.size(); }
    size_t GetWritePosition() const { return data_.size(); }
    size_t GetReadPosition() const { return readPos_; }
    size_t GetReadableBytes() const { return data_.size() - readPos_; }
    const uint8_t* GetData() const { return data_.data(); }
    // Moves the read position; fails past the end of the data.
    bool RewindRead(size_t newPosition);
    // Truncates the data to newPosition (which must not be past the end);
    // the read position is clamped.
    bool RewindWrite(size_t newPosition);
    // Skips bytes (rounded up to the 4-byte boundary); fails past the end.
    bool SkipBytes(size_t bytes);
    // Replaces the content with a copy of size bytes; read position 0.
    // Fails when size exceeds the maximum capacity.
    bool ParseFrom(const uint8_t* data, size_t size);
    // Empties the parcel (data and read position; capacity is kept).
    void FlushBuffer();

    // --- writes ---------------------------------------------------------
    bool WriteBool(bool value);
    bool WriteInt32(int32_t value);
    bool WriteUint32(uint32_t value);
    bool WriteInt64(int64_t value);
    bool WriteUint64(uint64_t value);
    bool WriteString(const std::string& value);
    bool WriteString16(const std::u16string& value);
    // Raw bytes, padded to the 4-byte boundary.
    bool WriteBuffer(const void* data, size_t size);
    bool WriteStringVector(const std::vector<std::string>& value);
    bool WriteUInt32Vector(const std::vector<uint32_t>& value);
    bool WriteInt32Vector(const std::vector<int32_t>& value);
    // Presence value, then object->Marshalling(*this); a null object is
    // written as presence 0 alone and succeeds.
    bool WriteParcelable(const Parcelable* object);
    bool WriteStrongParcelable(const sptr<Parcelable>& object);

    // --- reads, value forms ---------------------------------------------
    bool ReadBool();
    int32_t ReadInt32();
    uint32_t ReadUint32();
    int64_t ReadInt64();
    uint64_t ReadUint64();
    std::string ReadString();
    std::u16string ReadString16();

    // --- reads, checked forms -------------------------------------------
    bool ReadBool(bool& value);
    bool ReadInt32(int32_t& value);
    bool ReadUint32(uint32_t& value);
    bool ReadInt64(int64_t& value);
    bool ReadUint64(uint64_t& value);
    bool ReadString(std::string& value);
    bool ReadString16(std::u16string& value);
    // Returns a pointer to size readable bytes (and skips their padding), or
    // null when fewer remain. The pointer is valid until the next write.
    const uint8_t* ReadBuffer(size_t size);
    // Vector reads replace *value only on success; a null pointer fails.
    bool ReadStringVector(std::vector<std::string>* value);
    bool ReadUInt32Vector(std::vector<uint32_t>* value);
    bool ReadInt32Vector(std::vector<int32_t>* value);

    // Presence value, then T::Unmarshalling; null when absent or when the
    // record cannot be read.
    template <typename T>
    sptr<T> ReadStrongParcelable();

protected:
    // Called by every public write before it touches the buffer; see
    // parcel_test_seam.h. Nested writes (the fields of a record inside
    // WriteStrongParcelable) run inside the outermost write's scope.
    class WriteScope {
    public:
        WriteScope();
        ~WriteScope();
        WriteScope(const WriteScope&) = delete;
        WriteScope& operator=(const WriteScope&) = delete;
        bool Allowed() const { return allowed_; }

    private:
        bool allowed_;
    };

    // Appends size bytes plus zero padding; false when over capacity.
    bool WriteRaw(const void* data, size_t size);
    // Pointer to size bytes at the read position, advancing past them and
    // their padding; null (position unchanged) when fewer remain.
    const uint8_t* ReadRaw(size_t size);

private:
    template <typename T>
    bool WritePod(T value);
    template <typename T>
    bool ReadPod(T& value);

    std::vector<uint8_t> data_;
    size_t readPos_ = 0;
    size_t maxCapacity_ = DEFAULT_MAX_CAPACITY;
};

template <typename T>
sptr<T> Parcel::ReadStrongParcelable()
{
    if (ReadInt32() == 0) {
        return nullptr;
    }
    return T::Unmarshalling(*this);
}

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_PARCEL_H
