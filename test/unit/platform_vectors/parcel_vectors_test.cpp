// Malformed (and a few well-formed) parcels, byte by byte, with the outcome
// each read must have. Well-formed items and every cut of one are pinned by
// the platform tests (golden bytes, round trips, the prefix sweep, hostile
// counts); the rows here are the byte patterns those cannot produce.
//
// Each vector names its bytes (see vector_spec.h), the size of the parcel's
// object table, the reads to run one after another, and the expected
// outcome of every read, joined by " | ":
//   ok VALUE @POS    the read succeeded with VALUE, the position is now POS
//   ok @POS          a read without a value (rewind) succeeded
//   fail @POS        the read failed; POS shows where the position stayed
//   null @POS        a strong parcelable read returned null
// Values: integers in decimal, "text" and u"text" with \xNN and \uNNNN
// escapes, [a, b] for vectors, hex for
// raw buffers ("-" when empty), {f1, f2, ...} for a record's fields.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "ability_filter.h"
#include "ipc_object_stub.h"
#include "message_parcel.h"
#include "vector_spec.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

struct ParcelVector {
    const char* name;
    const char* bytes;
    const char* reads;
    const char* expected;
    size_t objects = 0;
};

// Names the vector in gtest's messages instead of dumping its bytes.
void PrintTo(const ParcelVector& vector, std::ostream* out)
{
    *out << vector.name;
}

// Renders a value read: text escaped in quotes (u"..." for UTF-16), vectors
// in brackets, numbers and bools as they print.
template <typename C>
std::string Show(const std::basic_string<C>& text)
{
    std::string out = sizeof(C) == 1 ? "\"" : "u\"";
    for (C c : text) {
        auto unit = static_cast<unsigned>(static_cast<std::make_unsigned_t<C>>(c));
        char buffer[8];
        std::snprintf(buffer, sizeof(buffer), sizeof(C) == 1 ? "\\x%02x" : "\\u%04x", unit);
        out += unit >= 0x20 && unit < 0x7f && unit != '"' && unit != '\\' ? std::string(1, char(unit)) : buffer;
    }
    return out + "\"";
}

template <typename T>
std::string Show(const T& value)
{
    std::ostringstream text;
    text << std::boolalpha << value;
    return text.str();
}

template <typename T>
std::string Show(const std::vector<T>& items)
{
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i) {
        out += (i == 0 ? "" : ", ") + Show(items[i]);
    }
    return out + "]";
}

std::string Show(const DeviceInfo& info)
{
    return "{" + Show(info.GetDeviceUdid()) + ", " + Show(info.GetDeviceNetworkId()) + ", " +
           Show(info.GetDeviceName()) + ", " + std::to_string(info.GetDeviceType()) + "}";
}

class VectorReader {
public:
    VectorReader(const ParcelVector& vector, const std::vector<sptr<IRemoteObject>>& table)
    {
        std::vector<uint8_t> bytes = DdTest::ParseSpec(vector.bytes);
        EXPECT_TRUE(parcel_.ParseFrom(bytes.data(), bytes.size()));
        parcel_.SetObjects(std::vector<sptr<IRemoteObject>>(table.begin(), table.begin() + vector.objects));
    }

    // Runs one read ("string", "buffer:3", ...) and renders its outcome.
    std::string Read(const std::string& read)
    {
        std::string op = read.substr(0, read.find(':'));
        size_t argument = read.find(':') == std::string::npos ? 0 : std::stoul(read.substr(read.find(':') + 1));
        std::string value;
        bool ok = Dispatch(op, argument, value);
        std::string where = "@" + std::to_string(parcel_.GetReadPosition());
        if (!ok) {
            return (op == "DeviceInfo?" ? "null " : "fail ") + where;
        }
        return value.empty() ? "ok " + where : "ok " + value + " " + where;
    }

private:
    bool Dispatch(const std::string& op, size_t argument, std::string& value)
    {
// One read whose output `out` of type T is rendered into `value`.
#define VALUE_READ(name, T, call) \
    if (op == name) {             \
        T out{};                  \
        bool ok = call;           \
        value = Show(out);        \
        return ok;                \
    }
        VALUE_READ("bool", bool, parcel_.ReadBool(out));
        VALUE_READ("int32", int32_t, parcel_.ReadInt32(out));
        VALUE_READ("int64", int64_t, parcel_.ReadInt64(out));
        VALUE_READ("string", std::string, parcel_.ReadString(out));
        VALUE_READ("string16", std::u16string, parcel_.ReadString16(out));
        // The token read has no failure flag: no token is empty.
        VALUE_READ("token", std::u16string, !(out = parcel_.ReadInterfaceToken()).empty());
        VALUE_READ("strings", std::vector<std::string>, parcel_.ReadStringVector(&out));
        VALUE_READ("uint32s", std::vector<uint32_t>, parcel_.ReadUInt32Vector(&out));
        VALUE_READ("int32s", std::vector<int32_t>, parcel_.ReadInt32Vector(&out));
#undef VALUE_READ
        if (op == "object") {
            return parcel_.ReadRemoteObject() != nullptr;
        }
        if (op == "buffer") {
            const uint8_t* bytes = parcel_.ReadBuffer(argument);
            value = argument == 0 ? "-" : "";
            for (size_t i = 0; bytes != nullptr && i < argument; ++i) {
                char hex[3];
                std::snprintf(hex, sizeof(hex), "%02x", bytes[i]);
                value += hex;
            }
            return bytes != nullptr;
        }
        if (op == "rewind") {
            return parcel_.RewindRead(argument);
        }
        if (op == "DeviceInfo?") {
            sptr<DeviceInfo> info = parcel_.ReadStrongParcelable<DeviceInfo>();
            value = info == nullptr ? "" : Show(*info);
            return info != nullptr;
        }
        ADD_FAILURE() << "unknown read '" << op << "'";
        return false;
    }

    MessageParcel parcel_;
};

const ParcelVector PARCEL_VECTORS[] = {
    // --- fixed-size values ---------------------------------------------------
    {"int64 lowest bit and sign bit", "01000000 00000080", "int64", "ok -9223372036854775807 @8"},
    {"bool: any non-zero int32 is true", "02000000", "bool", "ok true @4"},

    // --- strings ---------------------------------------------------------------
    {"last string without its padding", "04000000 \"abcd\" 00", "string", "ok \"abcd\" @9"},
    {"string whose NUL is an x", "03000000 \"abcx\"", "string", "fail @0"},
    {"string length past the end", "10000000 \"abc\" 00", "string", "fail @0"},
    {"string length -1", "ffffffff 00000000", "string", "fail @0"},
    {"string length INT32_MIN", "00000080 00000000", "string", "fail @0"},

    // --- u16 strings and interface tokens ------------------------------------------
    {"u16string whose NUL unit is an x", "02000000 u\"abx\"", "string16", "fail @0"},
    {"u16string length -2", "feffffff 00000000", "string16", "fail @0"},
    {"token", "1b000000 u\"Tavik.Syntavo.IDeviceDetect\" 0000", "token", "ok u\"Tavik.Syntavo.IDeviceDetect\" @60"},
    {"token of another interface reads as what it is", "0a000000 u\"Tavik.Fake\" 00000000", "token",
     "ok u\"Tavik.Fake\" @28"},
    {"token cut after 21 of 27 units", "1b000000 u\"Tavik.Syntavo.IDevice\"", "token", "fail @0"},
    {"token length counting bytes, not units", "36000000 u\"Tavik.Syntavo.IDeviceDetect\" 0000", "token", "fail @0"},
    {"token written as an 8-bit string", "1b000000 \"Tavik.Syntavo.IDeviceDetect\" 00", "token", "fail @0"},
    {"token length past the end", "ff000000 u\"Tavik\" 0000", "token", "fail @0"},
    {"token from an empty parcel", "", "token", "fail @0"},

    // --- vectors -----------------------------------------------------------------
    {"string vector count -1", "ffffffff", "strings", "fail @0"},
    {"string vector with a broken second entry", "02000000 01000000 \"a\" 000000 05000000 \"b\" 000000", "strings",
     "fail @0"},
    {"string vector whose last entry lacks padding", "01000000 00000000 00", "strings", "fail @0"},
    {"uint32 vector count times 4 is 2^32", "00000040 01000000", "uint32s", "fail @0"},
    {"int32 vector count -2", "feffffff 01000000", "int32s", "fail @0"},

    // --- remote objects ----------------------------------------------------------------
    {"object index equal to the table size", "01000000", "object", "fail @0", 1},
    {"object index with an empty table", "00000000", "object", "fail @0", 0},
    {"object index 0xffffffff", "ffffffff", "object", "fail @0", 1},
    {"object index with the sign bit", "00000080", "object", "fail @0", 1},
    {"object index cut after 1 byte", "00", "object", "fail @0", 1},

    // --- raw buffers, skips, rewinds and odd positions ---------------------------------
    {"buffer of 0 from an empty parcel", "", "buffer:0", "ok - @0"},
    {"int32 at an odd position", "00010203 04050607", "rewind:1 int32", "ok @1 | ok 67305985 @5"},
    {"string at an odd position", "00 03000000 \"abc\" 00", "rewind:1 string", "ok @1 | ok \"abc\" @9"},

    // --- a record cut at every item boundary ------------------------------------------
    // DeviceInfo takes its fields as they come: a missing one reads empty.
    {"DeviceInfo cut after its presence", "01000000", "DeviceInfo?", "ok {\"\", \"\", \"\", 0} @4"},
    {"DeviceInfo cut after the udid", "01000000 01000000 \"u\" 000000", "DeviceInfo?", "ok {\"u\", \"\", \"\", 0} @12"},
    {"DeviceInfo cut after the network id", "01000000 01000000 \"u\" 000000 01000000 \"n\" 000000", "DeviceInfo?",
     "ok {\"u\", \"n\", \"\", 0} @20"},
    {"DeviceInfo cut after the name", "01000000 01000000 \"u\" 000000 01000000 \"n\" 000000 01000000 \"d\" 000000",
     "DeviceInfo?", "ok {\"u\", \"n\", \"d\", 0} @28"},
    {"DeviceInfo cut inside the type",
     "01000000 01000000 \"u\" 000000 01000000 \"n\" 000000 01000000 \"d\" 000000 0e00", "DeviceInfo?",
     "ok {\"u\", \"n\", \"d\", 0} @28"},
    // The three string reads fail in place, so the type is read from the
    // udid's length.
    {"DeviceInfo cut inside the udid", "01000000 01000000 \"u\"", "DeviceInfo?", "ok {\"\", \"\", \"\", 1} @8"},
    {"DeviceInfo presence -1 counts as present", "ffffffff 00000000 00000000 00000000 00000000", "DeviceInfo?",
     "ok {\"\", \"\", \"\", 0} @20"},
    {"DeviceInfo from an empty parcel", "", "DeviceInfo?", "null @0"},
};

class ParcelVectorTest : public testing::TestWithParam<ParcelVector> {};

TEST_P(ParcelVectorTest, ReadsAsExpected)
{
    static const std::vector<sptr<IRemoteObject>> table{new IPCObjectStub(u"vector.a"), new IPCObjectStub(u"vector.b")};
    const ParcelVector& vector = GetParam();
    ASSERT_LE(vector.objects, table.size());
    VectorReader reader(vector, table);
    std::istringstream reads(vector.reads);
    std::string read;
    std::string outcome;
    while (reads >> read) {
        outcome += (outcome.empty() ? "" : " | ") + reader.Read(read);
    }
    EXPECT_EQ(outcome, vector.expected) << "bytes: " << vector.bytes << "\nreads: " << vector.reads;
}

std::string VectorName(const testing::TestParamInfo<ParcelVector>& info)
{
    std::string name = std::to_string(info.index) + "_";
    for (const char* c = info.param.name; *c != '\0'; ++c) {
        name.push_back(std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_');
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Parcel, ParcelVectorTest, testing::ValuesIn(PARCEL_VECTORS), VectorName);

}  // namespace
