// parcel_fuzzer: every read of Parcel and MessageParcel, in an order the
// input picks, over data the input supplies.
//
// Input layout:
//   byte 0        number k of operation bytes
//   byte 1        size of the object table (0 to 3 entries, modulo 4)
//   k bytes       operations; the low four bits pick the read, and a read
//                 that needs a size or a position takes the next byte as its
//                 argument
//   the rest      the parcel's data
//
// Each read is checked against the wire format read directly from the
// bytes: it must succeed exactly when a well-formed item lies at the read
// position, return that item, and move the position past it (and its
// padding, or to the end); a failed checked read leaves both its output and
// the position unchanged, and the value form of the same read returns the
// same value, or 0/empty where the checked form failed.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_common.h"
#include "ipc_object_stub.h"
#include "message_parcel.h"

namespace {

using namespace Tavik;

constexpr size_t HEADER_SIZE = 2;
constexpr size_t MAX_OBJECTS = 3;
// Each entry of a string vector takes at least its length and a padded NUL.
constexpr size_t MIN_STRING_ITEM = 8;

size_t Pad4(size_t size)
{
    return (size + 3) & ~static_cast<size_t>(3);
}

// Where a successful read of `size` bytes at `pos` leaves the position: past
// the padding, or at the end when the last item comes without it.
size_t After(const Parcel& parcel, size_t pos, size_t size)
{
    return pos + std::min(Pad4(size), parcel.GetDataSize() - pos);
}

template <typename T>
T Load(const Parcel& parcel, size_t pos)
{
    T value;
    std::memcpy(&value, parcel.GetData() + pos, sizeof(T));
    return value;
}

// The string (or u16string) item at `pos`, read straight from the bytes.
template <typename Char>
bool ExpectString(const Parcel& parcel, size_t pos, std::basic_string<Char>& value, size_t& end)
{
    size_t readable = parcel.GetDataSize() - pos;
    if (readable < sizeof(int32_t)) {
        return false;
    }
    int32_t length = Load<int32_t>(parcel, pos);
    if (length < 0) {
        return false;
    }
    size_t units = static_cast<size_t>(length);
    size_t bytes = (units + 1) * sizeof(Char);
    size_t body = pos + sizeof(int32_t);
    if (bytes > readable - sizeof(int32_t) || Load<Char>(parcel, body + units * sizeof(Char)) != 0) {
        return false;
    }
    value.resize(units);
    std::memcpy(&value[0], parcel.GetData() + body, units * sizeof(Char));
    end = After(parcel, body, bytes);
    return true;
}

template <typename T>
bool ExpectPodVector(const Parcel& parcel, size_t pos, std::vector<T>& value, size_t& end)
{
    size_t readable = parcel.GetDataSize() - pos;
    if (readable < sizeof(int32_t)) {
        return false;
    }
    int32_t count = Load<int32_t>(parcel, pos);
    if (count < 0 || static_cast<size_t>(count) > (readable - sizeof(int32_t)) / sizeof(T)) {
        return false;
    }
    value.resize(static_cast<size_t>(count));
    for (size_t i = 0; i < value.size(); ++i) {
        value[i] = Load<T>(parcel, pos + sizeof(int32_t) + i * sizeof(T));
    }
    end = pos + sizeof(int32_t) + value.size() * sizeof(T);
    return true;
}

bool ExpectStringVector(const Parcel& parcel, size_t pos, std::vector<std::string>& value, size_t& end)
{
    size_t readable = parcel.GetDataSize() - pos;
    if (readable < sizeof(int32_t)) {
        return false;
    }
    int32_t count = Load<int32_t>(parcel, pos);
    if (count < 0 || static_cast<size_t>(count) > (readable - sizeof(int32_t)) / MIN_STRING_ITEM) {
        return false;
    }
    value.clear();
    end = pos + sizeof(int32_t);
    for (int32_t i = 0; i < count; ++i) {
        std::string item;
        if (!ExpectString(parcel, end, item, end)) {
            return false;
        }
        value.push_back(std::move(item));
    }
    return true;
}

// Runs the checked form, then the value form from the same place, against
// the expected outcome.
template <typename T, typename Checked, typename ValueForm>
void CheckRead(MessageParcel& parcel, bool expectOk, const T& expected, size_t end, const T& sentinel, Checked checked,
               ValueForm valueForm)
{
    size_t start = parcel.GetReadPosition();
    T out = sentinel;
    bool ok = checked(parcel, out);
    FUZZ_CHECK(ok == expectOk);
    FUZZ_CHECK(out == (ok ? expected : sentinel));
    FUZZ_CHECK(parcel.GetReadPosition() == (ok ? end : start));

    FUZZ_CHECK(parcel.RewindRead(start));
    T value = valueForm(parcel);
    FUZZ_CHECK(value == (ok ? expected : T{}));
    FUZZ_CHECK(parcel.GetReadPosition() == (ok ? end : start));
}

template <typename Wire, typename T, typename Checked, typename ValueForm>
void CheckPod(MessageParcel& parcel, const T& sentinel, Checked checked, ValueForm valueForm)
{
    size_t pos = parcel.GetReadPosition();
    bool expectOk = parcel.GetReadableBytes() >= sizeof(Wire);
    T expected = expectOk ? static_cast<T>(Load<Wire>(parcel, pos)) : T{};
    CheckRead(parcel, expectOk, expected, pos + sizeof(Wire), sentinel, checked, valueForm);
}

template <typename Char, typename Checked, typename ValueForm>
void CheckString(MessageParcel& parcel, Checked checked, ValueForm valueForm)
{
    std::basic_string<Char> expected;
    size_t end = 0;
    bool expectOk = ExpectString(parcel, parcel.GetReadPosition(), expected, end);
    // Longer than the small-string buffer, so a stray write into it shows.
    const std::basic_string<Char> sentinel(40, static_cast<Char>('s'));
    CheckRead(parcel, expectOk, expected, end, sentinel, checked, valueForm);
}

// The vector reads have no value form; a null output must fail in place.
template <typename T, typename Expect, typename Read>
void CheckVector(MessageParcel& parcel, const T& sentinel, Expect expect, Read read)
{
    size_t start = parcel.GetReadPosition();
    FUZZ_CHECK(!read(parcel, nullptr));
    FUZZ_CHECK(parcel.GetReadPosition() == start);

    T expected;
    size_t end = 0;
    bool expectOk = expect(parcel, start, expected, end);
    T out = sentinel;
    bool ok = read(parcel, &out);
    FUZZ_CHECK(ok == expectOk);
    FUZZ_CHECK(out == (ok ? expected : sentinel));
    FUZZ_CHECK(parcel.GetReadPosition() == (ok ? end : start));
}

void CheckRemoteObject(MessageParcel& parcel)
{
    size_t start = parcel.GetReadPosition();
    bool expectOk =
        parcel.GetReadableBytes() >= sizeof(uint32_t) && Load<uint32_t>(parcel, start) < parcel.GetObjectCount();
    sptr<IRemoteObject> object = parcel.ReadRemoteObject();
    if (!expectOk) {
        FUZZ_CHECK(object == nullptr);
        FUZZ_CHECK(parcel.GetReadPosition() == start);
        return;
    }
    FUZZ_CHECK(object == parcel.GetObjects()[Load<uint32_t>(parcel, start)]);
    FUZZ_CHECK(parcel.GetReadPosition() == start + sizeof(uint32_t));
}

// ReadBuffer and SkipBytes: size bytes and their padding, or nothing.
void CheckBuffer(MessageParcel& parcel, size_t size, bool skip)
{
    size_t start = parcel.GetReadPosition();
    bool expectOk = size <= parcel.GetReadableBytes();
    bool ok = false;
    if (skip) {
        ok = parcel.SkipBytes(size);
    } else {
        const uint8_t* bytes = parcel.ReadBuffer(size);
        ok = bytes != nullptr;
        // An empty parcel has no storage to point into.
        FUZZ_CHECK(!ok || parcel.GetDataSize() == 0 || bytes == parcel.GetData() + start);
    }
    FUZZ_CHECK(ok == expectOk);
    FUZZ_CHECK(parcel.GetReadPosition() == (ok ? After(parcel, start, size) : start));
}

void CheckRewind(MessageParcel& parcel, size_t position)
{
    size_t start = parcel.GetReadPosition();
    bool ok = parcel.RewindRead(position);
    FUZZ_CHECK(ok == (position <= parcel.GetDataSize()));
    FUZZ_CHECK(parcel.GetReadPosition() == (ok ? position : start));
}

class OperationStream {
public:
    OperationStream(const uint8_t* ops, size_t count) : ops_(ops), count_(count) {}

    bool Done() const { return next_ == count_; }
    uint8_t Next() { return Done() ? 0 : ops_[next_++]; }

    // Small values as they are; the top sixteen byte values name the sizes
    // at the edges: around the readable and total size, and the values
    // where padding or a cast to int32 overflows.
    size_t NextSize(const Parcel& parcel)
    {
        constexpr uint8_t EDGE_BASE = 0xF0;
        uint8_t byte = Next();
        if (byte < EDGE_BASE) {
            return byte;
        }
        size_t readable = parcel.GetReadableBytes();
        size_t size = parcel.GetDataSize();
        const size_t edges[] = {
            readable,
            readable + 1,
            readable == 0 ? 0 : readable - 1,
            readable + 3,
            size,
            size + 1,
            size == 0 ? 0 : size - 1,
            SIZE_MAX,
            SIZE_MAX - 1,
            SIZE_MAX - 3,
            SIZE_MAX - 4,
            INT32_MAX,
            static_cast<size_t>(INT32_MAX) + 1,
            UINT32_MAX,
            static_cast<size_t>(UINT32_MAX) + 1,
            size / 2,
        };
        return edges[byte - EDGE_BASE];
    }

private:
    const uint8_t* ops_;
    size_t count_;
    size_t next_ = 0;
};

void RunOperation(MessageParcel& parcel, OperationStream& ops)
{
    using namespace DdFuzz;  // the operations
// A read with a checked form `Read<name>(T&)` and a value form `Read<name>()`.
#define CHECKED(T, name) [](Parcel& p, T& v) { return p.Read##name(v); }
#define VALUE(name) [](Parcel& p) { return p.Read##name(); }
#define VECTOR_READ(T, name) [](Parcel& p, std::vector<T>* v) { return p.Read##name(v); }
    switch (static_cast<ParcelOp>(ops.Next() & 0x0F)) {
        case BOOL:
            CheckPod<int32_t>(parcel, true, CHECKED(bool, Bool), VALUE(Bool));
            break;
        case INT32:
            CheckPod<int32_t>(parcel, int32_t{0x5a5a5a5a}, CHECKED(int32_t, Int32), VALUE(Int32));
            break;
        case UINT32:
            CheckPod<uint32_t>(parcel, uint32_t{0xa5a5a5a5}, CHECKED(uint32_t, Uint32), VALUE(Uint32));
            break;
        case INT64:
            CheckPod<int64_t>(parcel, int64_t{0x5a5a5a5a5a5a5a5a}, CHECKED(int64_t, Int64), VALUE(Int64));
            break;
        case UINT64:
            CheckPod<uint64_t>(parcel, uint64_t{0xa5a5a5a5a5a5a5a5}, CHECKED(uint64_t, Uint64), VALUE(Uint64));
            break;
        case STRING:
            CheckString<char>(parcel, CHECKED(std::string, String), VALUE(String));
            break;
        case STRING16:
            CheckString<char16_t>(parcel, CHECKED(std::u16string, String16), VALUE(String16));
            break;
        case INTERFACE_TOKEN:
            // The token has only a value form; the checked u16string read
            // stands in for the checked side.
            CheckString<char16_t>(parcel, CHECKED(std::u16string, String16),
                                  [](Parcel& p) { return static_cast<MessageParcel&>(p).ReadInterfaceToken(); });
            break;
        case STRING_VECTOR:
            CheckVector(parcel, std::vector<std::string>{"sentinel"}, ExpectStringVector,
                        VECTOR_READ(std::string, StringVector));
            break;
        case UINT32_VECTOR:
            CheckVector(parcel, std::vector<uint32_t>{7}, ExpectPodVector<uint32_t>,
                        VECTOR_READ(uint32_t, UInt32Vector));
            break;
        case INT32_VECTOR:
            CheckVector(parcel, std::vector<int32_t>{-7}, ExpectPodVector<int32_t>, VECTOR_READ(int32_t, Int32Vector));
            break;
        case REMOTE_OBJECT:
            CheckRemoteObject(parcel);
            break;
        case BUFFER:
            CheckBuffer(parcel, ops.NextSize(parcel), false);
            break;
        case SKIP:
            CheckBuffer(parcel, ops.NextSize(parcel), true);
            break;
        case REWIND:
            CheckRewind(parcel, ops.NextSize(parcel));
            break;
        case REWIND_TO_START:
            CheckRewind(parcel, 0);
            break;
    }
#undef CHECKED
#undef VALUE
#undef VECTOR_READ
    FUZZ_CHECK(parcel.GetReadPosition() <= parcel.GetDataSize());
}

const std::vector<sptr<IRemoteObject>>& Objects()
{
    static const std::vector<sptr<IRemoteObject>> objects{new IPCObjectStub(u"fuzz.a"), new IPCObjectStub(u"fuzz.b"),
                                                          new IPCObjectStub(u"fuzz.c")};
    return objects;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    DdFuzz::QuietLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < HEADER_SIZE || size > DdFuzz::MAX_INPUT_SIZE) {
        return 0;
    }
    size_t opCount = std::min<size_t>(data[0], size - HEADER_SIZE);
    size_t objectCount = data[1] % (MAX_OBJECTS + 1);
    const uint8_t* ops = data + HEADER_SIZE;
    const uint8_t* body = ops + opCount;
    size_t bodySize = size - HEADER_SIZE - opCount;

    MessageParcel parcel;
    FUZZ_CHECK(parcel.ParseFrom(body, bodySize));
    parcel.SetObjects(std::vector<sptr<IRemoteObject>>(Objects().begin(), Objects().begin() + objectCount));
    OperationStream stream(ops, opCount);
    while (!stream.Done()) {
        RunOperation(parcel, stream);
    }
    return 0;
}
