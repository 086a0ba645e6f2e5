// The records on the wire: round trips, the exact bytes, and input that is
// short or damaged.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "record_samples.h"

namespace DdTest {
namespace {

// Writes each filled record, reads it back and checks every field; the read
// must stop exactly where the write ended, and the record read must write
// the same bytes again.
TEST(RecordWireTest, RoundTripKeepsEveryFieldAndConsumesExactlyTheWrite)
{
    LogCapture quiet;
    for (const RecordCase& c : AllRecords()) {
        SCOPED_TRACE(c.name);
        sptr<Parcelable> original = c.fill();
        Parcel parcel;
        ASSERT_TRUE(original->Marshalling(parcel));
        size_t written = parcel.GetWritePosition();

        sptr<Parcelable> read = c.read(parcel);
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(parcel.GetReadPosition(), written);
        c.check(*read);
        EXPECT_EQ(Encode(*read), Bytes(parcel));
    }
}

// A copy is a value that writes the same bytes as its source; it is made
// without a creation line but destroyed with one. PickerResult alone shares
// its members.
TEST(RecordWireTest, CopiesWriteTheSameBytesAndLogOnlyTheirDestruction)
{
    sptr<DeviceInfo> device = FillDeviceInfo();
    sptr<DeviceServiceInfo> service = FillDeviceServiceInfo();
    {
        LogCapture quiet;
        EXPECT_EQ(Encode(DeviceInfo(*device)), Encode(*device));
        EXPECT_EQ(Encode(DeviceServiceInfo(*service)), Encode(*service));
        EXPECT_EQ(Encode(AbilityFilter(*FillAbilityFilter())), Encode(*FillAbilityFilter()));
        DeviceConfigInfo assigned;
        assigned = *FillDeviceConfigInfo();
        EXPECT_EQ(Encode(assigned), Encode(*FillDeviceConfigInfo()));
    }
    LogCapture capture;
    {
        DeviceInfo copy(*device);
        DeviceServiceInfo serviceCopy(*service);
        DeviceInfo assigned;
        capture.Clear();
        assigned = copy;
    }
    EXPECT_TRUE(LoggedSequence(
        capture, {"~DeviceInfo# destory:device = net****def, deviceName= Living room TV, deviceType = 156",
                  "~DeviceServiceInfo# destory:device = net****-42, deviceName= Kitchen pad, deviceType = 17",
                  "~DeviceInfo# destory:device = net****def, deviceName= Living room TV, deviceType = 156"}));

    sptr<PickerResult> original = FillPickerResult();
    PickerResult copy(*original);
    EXPECT_EQ(copy.GetDeviceInfo(), original->GetDeviceInfo());
    EXPECT_EQ(copy.GetAbilityFilter(), original->GetAbilityFilter());
    EXPECT_EQ(copy.GetLocalDeviceInfo(), original->GetLocalDeviceInfo());
}

TEST(RecordWireTest, GoldenBytes)
{
    LogCapture quiet;
    sptr<AbilityFilter> smallFilter = new AbilityFilter("b", "t", "", 8, 1);
    smallFilter->SetAction("go");
    sptr<PickerResult> full = new PickerResult();
    full->SetAbilityFilter(smallFilter);
    full->SetDeviceInfo(new DeviceInfo("ab", "netw", "x", 14));
    full->SetLocalDeviceInfo(new LocalInfo("a", "b", "c", "d", 12));
    const std::string deviceInfoHex = "02000000 61620000 04000000 6e657477 00000000 01000000 78000000 0e000000";
    const std::string abilityFilterHex =
        "01000000 62000000 01000000 74000000 00000000 00000000 08000000 01000000 02000000 676f0000";
    const std::string localInfoHex = "01000000 61000000 01000000 62000000 01000000 63000000 01000000 64000000 0c000000";
    const std::vector<std::tuple<std::string, sptr<Parcelable>, std::string>> cases = {
        {"DeviceInfo: three strings, then the type", full->GetDeviceInfo(), deviceInfoHex},
        {"AbilityFilter: the action travels last", smallFilter, abilityFilterHex},
        {"DeviceFilter: two uint32 vectors, the second empty", new DeviceFilter({14, 17}, {}),
         "02000000 0e000000 11000000 00000000"},
        {"DeviceFilter: two empty lists", new DeviceFilter(), "00000000 00000000"},
        {"ServiceFilter: name, then the list with an empty name", new ServiceFilter("tv", {"PAD", ""}),
         "02000000 74760000 02000000 03000000 50414400 00000000 00000000"},
        {"LocalInfo: four strings, then the type", full->GetLocalDeviceInfo(), localInfoHex},
        {"DeviceServiceInfo: the type second, the rules fifth",
         new DeviceServiceInfo("n", 14, "h", "i", {"r"}, "w", "m", "e"),
         "01000000 6e000000 0e000000 01000000 68000000 01000000 69000000 01000000 01000000 72000000 "
         "01000000 77000000 01000000 6d000000 01000000 65000000"},
        {"PickerResult: three present members", full,
         "01000000 " + abilityFilterHex + " 01000000 " + deviceInfoHex + " 01000000 " + localInfoHex},
        {"PickerResult: fresh, three absent members", new PickerResult(), "00000000 00000000 00000000"},
        {"DeviceDynamicInfo: two empty strings", new DeviceDynamicInfo("", ""), "00000000 00000000 00000000 00000000"},
        {"DeviceConfigInfo: three strings, then two numbers", new DeviceConfigInfo("m", "{}", "", 2607, 1),
         "01000000 6d000000 02000000 7b7d0000 00000000 00000000 2f0a0000 01000000"},
        {"RequestResultInfo(7, 0)", new RequestResultInfo(7, 0), "07000000 00000000"},
        {"ServicePublishInfo: publish id, service code, mode", new ServicePublishInfo(1, 2, 3),
         "01000000 02000000 03000000"},
    };
    for (const auto& [name, record, hex] : cases) {
        Parcel parcel;
        EXPECT_TRUE(record->Marshalling(parcel)) << name;
        EXPECT_EQ(ToHex(parcel), CompactHex(hex)) << name;
    }
}

// Every truncation of a good encoding reads as a record, the empty parcel as
// an empty one (the bytes of a default-constructed record), except for the
// two records that insist on their content. Bit flips are the fuzzer's job.
TEST(RecordWireTest, TruncatedInputGivesEmptyFieldsOrNull)
{
    LogCapture quiet;
    for (const RecordCase& c : AllRecords()) {
        std::vector<uint8_t> good = Encode(*c.fill());
        ASSERT_FALSE(good.empty()) << c.name;
        for (size_t length = 0; length < good.size(); ++length) {
            Parcel parcel;
            ASSERT_TRUE(parcel.ParseFrom(good.data(), length));
            sptr<Parcelable> read = c.read(parcel);
            EXPECT_LE(parcel.GetReadPosition(), length) << c.name << " truncated to " << length;
            if (!c.toleratesShortParcel) {
                EXPECT_TRUE(length != 0 || read == nullptr) << c.name;
                continue;
            }
            ASSERT_NE(read, nullptr) << c.name << " truncated to " << length;
            if (length == 0) {
                EXPECT_EQ(Encode(*read), Encode(*c.makeEmpty())) << c.name;
            }
        }
    }
}

TEST(RecordWireTest, DeviceFilterNeedsBothLists)
{
    struct Case {
        std::string name;
        std::function<void(Parcel&)> write;
    };
    const std::vector<Case> cases = {
        {"nothing at all", [](Parcel&) {}},
        {"device types but no account types",
         [](Parcel& p) {
             p.WriteUInt32Vector({14, 17});
         }},
        {"account type count past the end",
         [](Parcel& p) {
             p.WriteUInt32Vector({14});
             p.WriteInt32(2);
             p.WriteUint32(1);
         }},
    };
    for (const Case& c : cases) {
        LogCapture capture;
        Parcel parcel;
        c.write(parcel);
        EXPECT_EQ(DeviceFilter::Unmarshalling(parcel), nullptr) << c.name;
        EXPECT_EQ(capture.Records().size(), 1u) << c.name;
        EXPECT_TRUE(Logged(capture, AbilityFilterFileLine(LOG_ERROR, "Unmarshalling", "read vector failed"))) << c.name;
    }
}

// The lists of ServiceFilter and DeviceServiceInfo are read without a check:
// a list the platform refuses leaves it empty and the record still comes back.
TEST(RecordWireTest, UnreadableStringListsDoNotFailTheRecord)
{
    LogCapture quiet;
    Parcel filterParcel;
    filterParcel.WriteString("cast");
    filterParcel.WriteInt32(1000);  // a count the parcel cannot hold
    sptr<ServiceFilter> filter = ServiceFilter::Unmarshalling(filterParcel);
    ASSERT_NE(filter, nullptr);
    EXPECT_EQ(filter->GetServiceName(), "cast");
    EXPECT_TRUE(filter->GetDeviceType().empty());

    Parcel infoParcel;
    infoParcel.WriteString("name");
    infoParcel.WriteUint32(14);
    infoParcel.WriteString("hash");
    infoParcel.WriteString("id");
    infoParcel.WriteInt32(-5);
    sptr<DeviceServiceInfo> info = DeviceServiceInfo::Unmarshalling(infoParcel);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->GetDeviceId(), "id");
    EXPECT_TRUE(info->GetServiceRuleList().empty());
}

TEST(RecordWireTest, PickerResultNeedsAllThreeMembers)
{
    struct Case {
        std::string name;
        std::function<void(PickerResult&)> unset;
    };
    const std::vector<Case> cases = {
        {"ability filter", [](PickerResult& r) { r.SetAbilityFilter(nullptr); }},
        {"device info", [](PickerResult& r) { r.SetDeviceInfo(nullptr); }},
        {"local info", [](PickerResult& r) { r.SetLocalDeviceInfo(nullptr); }},
    };
    for (const Case& c : cases) {
        sptr<PickerResult> written = FillPickerResult();
        c.unset(*written);
        Parcel parcel;
        ASSERT_TRUE(written->Marshalling(parcel)) << c.name;
        LogCapture capture;
        EXPECT_EQ(PickerResult::Unmarshalling(parcel), nullptr) << c.name;
        EXPECT_TRUE(Logged(
            capture, AbilityFilterFileLine(LOG_ERROR, "Unmarshalling", "read abilityFilter_ or deviceInfo_ failed")))
            << c.name;
        // The members after a missing one are still read.
        EXPECT_EQ(parcel.GetReadPosition(), parcel.GetDataSize()) << c.name;
        EXPECT_TRUE(Logged(
            capture, AbilityFilterFileLine(LOG_INFO, "~PickerResult", "destory: abilityFilter_ = 1, deviceInfo_= 1 ")))
            << c.name;
    }
}

}  // namespace
}  // namespace DdTest
