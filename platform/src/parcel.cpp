#include "parcel.h"

#include <climits>
#include <cstring>

#include "parcel_test_seam.h"

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the parcel wire format is little-endian; this build copies values as they lie in memory"
#endif

namespace Tavik {

namespace {

// Per-thread write budget of the test seam: -1 is unlimited.
thread_local int g_writeBudget = -1;
// Nesting depth of public write calls on this thread; only depth 0 calls
// are "writes" for the budget.
thread_local int g_writeDepth = 0;

constexpr size_t ALIGNMENT = 4;

// Callers check size against the capacity first, so this cannot overflow.
constexpr size_t PadSize(size_t size)
{
    return (size + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
}

// Upper bound of a length the wire may carry (int32).
constexpr size_t MAX_WIRE_LENGTH = static_cast<size_t>(INT32_MAX);

}  // namespace

namespace ParcelTestSeam {

void FailWritesAfter(int allowedWrites)
{
    g_writeBudget = allowedWrites < 0 ? 0 : allowedWrites;
}

void ResetWriteFailures()
{
    g_writeBudget = -1;
}

int RemainingWrites()
{
    return g_writeBudget;
}

}  // namespace ParcelTestSeam

Parcel::WriteScope::WriteScope() : allowed_(true)
{
    if (g_writeDepth == 0 && g_writeBudget >= 0) {
        if (g_writeBudget == 0) {
            allowed_ = false;
        } else {
            --g_writeBudget;
        }
    }
    ++g_writeDepth;
}

Parcel::WriteScope::~WriteScope()
{
    --g_writeDepth;
}

Parcel::Parcel() = default;
Parcel::~Parcel() = default;
Parcel::Parcel(Parcel&&) noexcept = default;
Parcel& Parcel::operator=(Parcel&&) noexcept = default;

bool Parcel::SetMaxCapacity(size_t maxCapacity)
{
    if (maxCapacity < data_.size()) {
        return false;
    }
    maxCapacity_ = maxCapacity;
    return true;
}

bool Parcel::RewindRead(size_t newPosition)
{
    if (newPosition > data_.size()) {
        return false;
    }
    readPos_ = newPosition;
    return true;
}

bool Parcel::RewindWrite(size_t newPosition)
{
    if (newPosition > data_.size()) {
        return false;
    }
    data_.resize(newPosition);
    if (readPos_ > newPosition) {
        readPos_ = newPosition;
    }
    return true;
}

bool Parcel::SkipBytes(size_t bytes)
{
    if (bytes > GetReadableBytes()) {
        return false;
    }
    size_t padded = PadSize(bytes);
    readPos_ += padded <= GetReadableBytes() ? padded : GetReadableBytes();
    return true;
}

bool Parcel::ParseFrom(const uint8_t* data, size_t size)
{
    if (size > maxCapacity_ || (data == nullptr && size != 0)) {
        return false;
    }
    data_.assign(data, data + size);
    readPos_ = 0;
    return true;
}

void Parcel::FlushBuffer()
{
    data_.clear();
    readPos_ = 0;
}

// --- writes ----------------------------------------------------------------

bool Parcel::WriteRaw(const void* data, size_t size)
{
    if (size > maxCapacity_) {
        return false;
    }
    size_t padded = PadSize(size);
    if (padded > maxCapacity_ - data_.size()) {
        return false;
    }
    // One resize: the padding comes out of it as zeros.
    size_t start = data_.size();
    data_.resize(start + padded);
    if (size > 0) {
        std::memcpy(data_.data() + start, data, size);
    }
    return true;
}

template <typename T>
bool Parcel::WritePod(T value)
{
    WriteScope scope;
    return scope.Allowed() && WriteRaw(&value, sizeof(value));
}

bool Parcel::WriteBool(bool value)
{
    return WritePod<int32_t>(value ? 1 : 0);
}

bool Parcel::WriteInt32(int32_t value)
{
    return WritePod(value);
}

bool Parcel::WriteUint32(uint32_t value)
{
    return WritePod(value);
}

bool Parcel::WriteInt64(int64_t value)
{
    return WritePod(value);
}

bool Parcel::WriteUint64(uint64_t value)
{
    return WritePod(value);
}

bool Parcel::WriteString(const std::string& value)
{
    WriteScope scope;
    if (!scope.Allowed() || value.size() >= MAX_WIRE_LENGTH || value.size() + 1 > maxCapacity_) {
        return false;
    }
    // Check the whole item first so that a refused string writes nothing.
    size_t total = sizeof(int32_t) + PadSize(value.size() + 1);
    if (total > maxCapacity_ - data_.size()) {
        return false;
    }
    auto length = static_cast<int32_t>(value.size());
    size_t start = data_.size();
    // The terminator and the padding come out of the resize as zeros.
    data_.resize(start + total);
    std::memcpy(data_.data() + start, &length, sizeof(length));
    std::memcpy(data_.data() + start + sizeof(length), value.data(), value.size());
    return true;
}

bool Parcel::WriteString16(const std::u16string& value)
{
    WriteScope scope;
    if (!scope.Allowed() || value.size() >= MAX_WIRE_LENGTH / sizeof(char16_t) ||
        (value.size() + 1) * sizeof(char16_t) > maxCapacity_) {
        return false;
    }
    size_t bytes = (value.size() + 1) * sizeof(char16_t);
    size_t total = sizeof(int32_t) + PadSize(bytes);
    if (total > maxCapacity_ - data_.size()) {
        return false;
    }
    auto length = static_cast<int32_t>(value.size());
    WriteRaw(&length, sizeof(length));
    size_t start = data_.size();
    data_.resize(start + PadSize(bytes), 0);
    std::memcpy(data_.data() + start, value.data(), value.size() * sizeof(char16_t));
    return true;
}

bool Parcel::WriteBuffer(const void* data, size_t size)
{
    WriteScope scope;
    if (!scope.Allowed() || (data == nullptr && size != 0)) {
        return false;
    }
    return WriteRaw(data, size);
}

bool Parcel::WriteStringVector(const std::vector<std::string>& value)
{
    WriteScope scope;
    if (!scope.Allowed() || value.size() > MAX_WIRE_LENGTH) {
        return false;
    }
    size_t start = data_.size();
    bool ok = WriteInt32(static_cast<int32_t>(value.size()));
    for (auto it = value.begin(); ok && it != value.end(); ++it) {
        ok = WriteString(*it);
    }
    if (!ok) {
        RewindWrite(start);
    }
    return ok;
}

bool Parcel::WriteUInt32Vector(const std::vector<uint32_t>& value)
{
    WriteScope scope;
    if (!scope.Allowed() || value.size() > MAX_WIRE_LENGTH / sizeof(uint32_t)) {
        return false;
    }
    size_t total = sizeof(int32_t) + value.size() * sizeof(uint32_t);
    if (total > maxCapacity_ - data_.size()) {
        return false;
    }
    auto count = static_cast<int32_t>(value.size());
    WriteRaw(&count, sizeof(count));
    return WriteRaw(value.data(), value.size() * sizeof(uint32_t));
}

bool Parcel::WriteInt32Vector(const std::vector<int32_t>& value)
{
    WriteScope scope;
    if (!scope.Allowed() || value.size() > MAX_WIRE_LENGTH / sizeof(int32_t)) {
        return false;
    }
    size_t total = sizeof(int32_t) + value.size() * sizeof(int32_t);
    if (total > maxCapacity_ - data_.size()) {
        return false;
    }
    auto count = static_cast<int32_t>(value.size());
    WriteRaw(&count, sizeof(count));
    return WriteRaw(value.data(), value.size() * sizeof(int32_t));
}

bool Parcel::WriteParcelable(const Parcelable* object)
{
    WriteScope scope;
    if (!scope.Allowed()) {
        return false;
    }
    if (object == nullptr) {
        return WriteInt32(0);
    }
    size_t start = data_.size();
    if (!WriteInt32(1) || !object->Marshalling(*this)) {
        RewindWrite(start);
        return false;
    }
    return true;
}

bool Parcel::WriteStrongParcelable(const sptr<Parcelable>& object)
{
    return WriteParcelable(object.GetRefPtr());
}

// --- reads -------------------------------------------------------------------

const uint8_t* Parcel::ReadRaw(size_t size)
{
    size_t readable = GetReadableBytes();
    if (size > readable) {
        return nullptr;
    }
    // An empty parcel may have no storage at all, yet a zero-byte read of it
    // succeeds and must not look like a failure.
    static const uint8_t noBytes = 0;
    const uint8_t* result = data_.empty() ? &noBytes : data_.data() + readPos_;
    size_t padded = PadSize(size);
    // The last item of a parcel may come without its padding.
    readPos_ += padded <= readable ? padded : readable;
    return result;
}

template <typename T>
bool Parcel::ReadPod(T& value)
{
    const uint8_t* bytes = ReadRaw(sizeof(T));
    if (bytes == nullptr) {
        return false;
    }
    std::memcpy(&value, bytes, sizeof(T));
    return true;
}

bool Parcel::ReadBool(bool& value)
{
    int32_t raw = 0;
    if (!ReadPod(raw)) {
        return false;
    }
    value = raw != 0;
    return true;
}

bool Parcel::ReadInt32(int32_t& value)
{
    return ReadPod(value);
}

bool Parcel::ReadUint32(uint32_t& value)
{
    return ReadPod(value);
}

bool Parcel::ReadInt64(int64_t& value)
{
    return ReadPod(value);
}

bool Parcel::ReadUint64(uint64_t& value)
{
    return ReadPod(value);
}

bool Parcel::ReadString(std::string& value)
{
    size_t start = readPos_;
    int32_t length = 0;
    if (!ReadPod(length)) {
        return false;
    }
    // Bound the length by what is left before touching memory: a hostile
    // length fails here without any allocation.
    if (length < 0 || static_cast<size_t>(length) >= GetReadableBytes()) {
        readPos_ = start;
        return false;
    }
    const uint8_t* bytes = data_.data() + readPos_;
    if (bytes[length] != 0) {
        readPos_ = start;
        return false;
    }
    const auto* text = reinterpret_cast<const char*>(bytes);
    if (value.capacity() >= static_cast<size_t>(length)) {
        value.assign(text, static_cast<size_t>(length));
    } else {
        // A new string is allocated to its size; growing `value` would
        // round its capacity up (to twice the short-string buffer at least).
        value = std::string(text, static_cast<size_t>(length));
    }
    ReadRaw(static_cast<size_t>(length) + 1);
    return true;
}

bool Parcel::ReadString16(std::u16string& value)
{
    size_t start = readPos_;
    int32_t length = 0;
    if (!ReadPod(length)) {
        return false;
    }
    if (length < 0 || static_cast<size_t>(length) >= GetReadableBytes() / sizeof(char16_t)) {
        readPos_ = start;
        return false;
    }
    size_t units = static_cast<size_t>(length);
    const uint8_t* bytes = data_.data() + readPos_;
    char16_t terminator = 0;
    std::memcpy(&terminator, bytes + units * sizeof(char16_t), sizeof(char16_t));
    if (terminator != 0) {
        readPos_ = start;
        return false;
    }
    std::u16string result(units, u'\0');
    std::memcpy(&result[0], bytes, units * sizeof(char16_t));
    value.swap(result);
    ReadRaw((units + 1) * sizeof(char16_t));
    return true;
}

const uint8_t* Parcel::ReadBuffer(size_t size)
{
    return ReadRaw(size);
}

bool Parcel::ReadStringVector(std::vector<std::string>* value)
{
    if (value == nullptr) {
        return false;
    }
    size_t start = readPos_;
    int32_t count = 0;
    if (!ReadPod(count)) {
        return false;
    }
    // Each string takes at least 8 bytes (length and padded NUL), so a count
    // the remaining bytes cannot hold is refused before anything is built.
    if (count < 0 || static_cast<size_t>(count) > GetReadableBytes() / (2 * sizeof(int32_t))) {
        readPos_ = start;
        return false;
    }
    std::vector<std::string> result;
    for (int32_t i = 0; i < count; ++i) {
        std::string item;
        if (!ReadString(item)) {
            readPos_ = start;
            return false;
        }
        result.push_back(std::move(item));
    }
    value->swap(result);
    return true;
}

namespace {

template <typename T>
bool ReadPodVector(Parcel& parcel, std::vector<T>* value)
{
    if (value == nullptr) {
        return false;
    }
    size_t start = parcel.GetReadPosition();
    int32_t count = 0;
    if (!parcel.ReadInt32(count)) {
        return false;
    }
    if (count < 0 || static_cast<size_t>(count) > parcel.GetReadableBytes() / sizeof(T)) {
        parcel.RewindRead(start);
        return false;
    }
    const uint8_t* bytes = parcel.ReadBuffer(static_cast<size_t>(count) * sizeof(T));
    std::vector<T> result(static_cast<size_t>(count));
    if (count > 0) {
        std::memcpy(result.data(), bytes, result.size() * sizeof(T));
    }
    value->swap(result);
    return true;
}

}  // namespace

bool Parcel::ReadUInt32Vector(std::vector<uint32_t>* value)
{
    return ReadPodVector(*this, value);
}

bool Parcel::ReadInt32Vector(std::vector<int32_t>* value)
{
    return ReadPodVector(*this, value);
}

namespace {

// The value form of a read: what the checked form read, or a value-initialised
// one when it failed.
template <typename T>
T ReadOrDefault(Parcel& parcel, bool (Parcel::*read)(T&))
{
    T value{};
    (parcel.*read)(value);
    return value;
}

}  // namespace

bool Parcel::ReadBool()
{
    return ReadOrDefault(*this, &Parcel::ReadBool);
}

int32_t Parcel::ReadInt32()
{
    return ReadOrDefault(*this, &Parcel::ReadInt32);
}

uint32_t Parcel::ReadUint32()
{
    return ReadOrDefault(*this, &Parcel::ReadUint32);
}

int64_t Parcel::ReadInt64()
{
    return ReadOrDefault(*this, &Parcel::ReadInt64);
}

uint64_t Parcel::ReadUint64()
{
    return ReadOrDefault(*this, &Parcel::ReadUint64);
}

std::string Parcel::ReadString()
{
    return ReadOrDefault(*this, &Parcel::ReadString);
}

std::u16string Parcel::ReadString16()
{
    return ReadOrDefault(*this, &Parcel::ReadString16);
}

}  // namespace Tavik
