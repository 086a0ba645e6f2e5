// Golden bytes: each entry writes something into a fresh parcel and names the
// exact bytes it must produce. docs/wire-format.md quotes these entries; a
// hex example there that is not in this table is not checked.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ipc_object_stub.h"
#include "message_parcel.h"
#include "platform_test_util.h"

namespace Tavik {
namespace {

using Test::CompactHex;
using Test::TestRecord;
using Test::ToHex;

// The DeviceInfo layout (udid, networkId, deviceName, deviceType), to pin the worked example.
bool WriteDeviceInfoFields(Parcel& p)
{
    return p.WriteString("a1b2") && p.WriteString("net") && p.WriteString("Phone") && p.WriteUint32(14);
}

class DeviceInfoShape : public Parcelable {
public:
    bool Marshalling(Parcel& parcel) const override { return WriteDeviceInfoFields(parcel); }
};

struct GoldenCase {
    const char* name;
    std::function<bool(MessageParcel&)> write;
    const char* hex;  // words separated by spaces for the reader; spaces are ignored
};

#define W(...) NAMED_WRITE(MessageParcel, __VA_ARGS__)

const std::vector<GoldenCase>& GoldenCases()
{
    static const std::vector<GoldenCase> cases = {
        {W(WriteInt32(1)), "01000000"},
        {W(WriteInt32(-2)), "feffffff"},
        {W(WriteInt32(0x12345678)), "78563412"},
        {W(WriteUint32(0xdeadbeefu)), "efbeadde"},
        {W(WriteBool(true)), "01000000"},
        {W(WriteBool(false)), "00000000"},
        {W(WriteInt64(0x0102030405060708)), "08070605 04030201"},
        {W(WriteInt64(-1)), "ffffffff ffffffff"},
        {W(WriteUint64(0x8000000000000001u)), "01000000 00000080"},
        // Strings: length, bytes, one NUL, zero padding to the next word.
        {W(WriteString("")), "00000000 00000000"},
        {W(WriteString("a")), "01000000 61000000"},
        {W(WriteString("ab")), "02000000 61620000"},
        {W(WriteString("abc")), "03000000 61626300"},
        {W(WriteString("abcd")), "04000000 61626364 00000000"},
        {W(WriteString("abcde")), "05000000 61626364 65000000"},
        {W(WriteString(std::string("a\0b", 3))), "03000000 61006200"},
        {W(WriteString("\xc3\xa9")), "02000000 c3a90000"},
        // UTF-16 strings: length in code units, the units, one NUL unit, padding.
        {W(WriteString16(u"")), "00000000 00000000"},
        {W(WriteString16(u"A")), "01000000 41000000"},
        {W(WriteString16(u"AB")), "02000000 41004200 00000000"},
        {W(WriteString16(u"ABC")), "03000000 41004200 43000000"},
        {W(WriteString16(u"\u00e9")), "01000000 e9000000"},
        {W(WriteString16(u"\U0001F600")), "02000000 3dd800de 00000000"},
        {W(WriteBuffer("\x01\x02\x03", 3)), "01020300"},
        {W(WriteBuffer("", 0)), ""},
        // Vectors: count, then each element as its own item.
        {W(WriteStringVector({})), "00000000"},
        {W(WriteStringVector({"a", "", "abcd"})),
         "03000000 01000000 61000000 00000000 00000000 04000000 61626364 00000000"},
        {W(WriteUInt32Vector({1, 0xffffffffu})), "02000000 01000000 ffffffff"},
        {W(WriteUInt32Vector({})), "00000000"},
        {W(WriteInt32Vector({-1, 2})), "02000000 ffffffff 02000000"},
        // Parcelables: presence, then the record's own fields.
        {W(WriteStrongParcelable(new TestRecord(7, "ab", 9))), "01000000 07000000 02000000 61620000 09000000"},
        {W(WriteStrongParcelable(nullptr)), "00000000"},
        {W(WriteParcelable(std::make_unique<TestRecord>(-1, "", 0).get())),
         "01000000 ffffffff 00000000 00000000 00000000"},
        {W(WriteParcelable(nullptr)), "00000000"},
        // The worked DeviceInfo example of docs/wire-format.md, bare and framed.
        {"DeviceInfo fields", WriteDeviceInfoFields,
         "04000000 61316232 00000000 03000000 6e657400 05000000 50686f6e 65000000 0e000000"},
        {W(WriteStrongParcelable(new DeviceInfoShape())),
         "01000000 04000000 61316232 00000000 03000000 6e657400 05000000 50686f6e 65000000 0e000000"},
        // The interface token is one u16string.
        {W(WriteInterfaceToken(u"T.I")), "03000000 54002e00 49000000"},
        {W(WriteInterfaceToken(u"Tavik.Syntavo.IDeviceDetect")),
         "1b000000 54006100 76006900 6b002e00 53007900 6e007400 61007600 6f002e00 49004400 65007600 69006300 "
         "65004400 65007400 65006300 74000000"},
        // Remote objects: a uint32 index into the object table beside the data; a repeat gets a new slot.
        {W(WriteRemoteObject(new IPCObjectStub(u"a")) && p.WriteRemoteObject(new IPCObjectStub(u"b"))),
         "00000000 01000000"},
        {"int32 42, then objects B, A, B",
         [](MessageParcel& p) {
             sptr<IRemoteObject> a(new IPCObjectStub(u"A"));
             sptr<IRemoteObject> b(new IPCObjectStub(u"B"));
             return p.WriteInt32(42) && p.WriteRemoteObject(b) && p.WriteRemoteObject(a) && p.WriteRemoteObject(b);
         },
         "2a000000 00000000 01000000 02000000"},
        // Items follow each other with no gaps: every item starts on a word.
        {W(WriteInt32(5) && p.WriteString("abcde") && p.WriteBool(true) && p.WriteInt64(2)),
         "05000000 05000000 61626364 65000000 01000000 02000000 00000000"},
    };
    return cases;
}

TEST(ParcelGoldenTest, EachWriteProducesItsBytes)
{
    for (const GoldenCase& c : GoldenCases()) {
        MessageParcel parcel;
        ASSERT_TRUE(c.write(parcel)) << "write failed: " << c.name;
        EXPECT_EQ(ToHex(parcel), CompactHex(c.hex)) << "wrong bytes for: " << c.name;
        EXPECT_EQ(parcel.GetDataSize() % 4, 0u) << "not word-aligned: " << c.name;
        EXPECT_EQ(parcel.GetWritePosition(), parcel.GetDataSize()) << c.name;
    }
}

// The hex examples of docs/wire-format.md: the contents of its ```hex
// blocks, comments after '#' dropped, consecutive lines joined into one
// example, examples separated by blank lines.
std::vector<std::string> DocumentExamples(const std::string& path)
{
    std::ifstream in(path);
    std::vector<std::string> examples;
    std::string line;
    bool inBlock = false;
    std::string current;
    auto flush = [&] {
        if (!current.empty()) {
            examples.push_back(current);
            current.clear();
        }
    };
    while (std::getline(in, line)) {
        if (line.rfind("```", 0) == 0) {
            flush();
            inBlock = !inBlock && line == "```hex";
            continue;
        }
        if (!inBlock) {
            continue;
        }
        std::string hex = CompactHex(line.substr(0, line.find('#')));
        if (hex.empty()) {
            flush();
        } else {
            current += hex;
        }
    }
    flush();
    return examples;
}

TEST(ParcelGoldenTest, DocumentExamplesAreGolden)
{
    const std::string path = DD_SOURCE_DIR "/docs/wire-format.md";

    std::set<std::string> golden;
    for (const GoldenCase& c : GoldenCases()) {
        MessageParcel parcel;
        ASSERT_TRUE(c.write(parcel)) << c.name;
        golden.insert(ToHex(parcel));
    }
    std::vector<std::string> examples = DocumentExamples(path);
    EXPECT_GE(examples.size(), 30u) << "too few hex examples found in " << path;
    for (const std::string& example : examples) {
        EXPECT_EQ(example.find_first_not_of("0123456789abcdef"), std::string::npos) << "not hex: " << example;
        EXPECT_EQ(golden.count(example), 1u) << "example in " << path << " matches no golden entry: " << example;
    }
}

}  // namespace
}  // namespace Tavik
