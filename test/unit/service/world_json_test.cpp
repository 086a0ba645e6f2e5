// World files: every fault named by its field, the examples and the built-in
// world valid, and a world written out reading back the same.
#include <gtest/gtest.h>

#include <set>

#include "world_json.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

std::string ExamplesDir()
{
    return DD_SOURCE_DIR "/examples/worlds/";
}

const char* LOCAL = R"("local":{"udid":"l","networkId":"ln","name":"Me","type":"PHONE"})";

std::string WorldWith(const std::string& devices)
{
    return std::string("{") + LOCAL + ",\"devices\":[" + devices + "]}";
}

const char* DEVICE = R"({"udid":"u","networkId":"n","name":"TV","type":"TV")";

TEST(WorldJsonTest, FaultsNameTheirField)
{
    struct Case {
        std::string text;
        std::string error;
    };
    const Case cases[] = {
        {"{", "not valid JSON: "},
        {"[]", ": must be an object"},
        {R"({"devices":[]})", "local: missing"},
        {std::string("{") + LOCAL + "}", "devices: missing"},
        {std::string("{") + LOCAL + R"(,"devices":{}})", "devices: must be an array"},
        {std::string("{") + LOCAL + R"(,"devices":[],"extra":1})", "extra: unknown field"},
        {R"({"local":{"udid":"l","networkId":"ln","name":"Me"},"devices":[]})", "local.type: missing"},
        {R"({"local":{"udid":"","networkId":"ln","name":"Me","type":14},"devices":[]})",
         "local.udid: must not be empty"},
        {WorldWith(R"({"networkId":"n","name":"x","type":14})"), "devices[0].udid: missing"},
        {WorldWith(std::string(DEVICE) + "}," + R"({"udid":"u2","networkId":"n2","name":"x","type":"FRIDGE"})"),
         "devices[1].type: unknown device type name \"FRIDGE\""},
        {WorldWith(std::string(DEVICE) + R"(,"type":-1})"), "devices[0].type: must be a device type name"},
        {WorldWith(std::string(DEVICE) + R"(,"state":"asleep"})"), "devices[0].state: must be \"offline\""},
        {WorldWith(std::string(DEVICE) + R"(,"accountType":4294967296})"),
         "devices[0].accountType: must be an integer"},
        {WorldWith(std::string(DEVICE) + R"(,"switchStatus":"on"})"), "devices[0].switchStatus: must be a 32-bit"},
        {WorldWith(std::string(DEVICE) + R"(,"sameAccount":1})"), "devices[0].sameAccount: must be true or false"},
        {WorldWith(std::string(DEVICE) + R"(,"services":["a",2]})"), "devices[0].services[1]: must be a string"},
        {WorldWith(std::string(DEVICE) + R"(,"abilities":[{"bundle":"x"}]})"),
         "devices[0].abilities[0].bundle: unknown field"},
        {WorldWith(std::string(DEVICE) + R"(,"dynamicInfo":{"battery":80}})"),
         "devices[0].dynamicInfo.battery: must be a string"},
        {WorldWith(std::string(DEVICE) + R"(,"config":{"supportFoldScreen":true}})"),
         "devices[0].config.supportFoldScreen: must be an integer"},
        {WorldWith(std::string(DEVICE) + R"(,"onlin":true})"), "devices[0].onlin: unknown field"},
        {WorldWith(std::string(DEVICE) + "}," + R"({"udid":"u","networkId":"n3","name":"x","type":14})"),
         "devices[1].udid: \"u\" is already used"},
        {WorldWith(std::string(DEVICE) + "}," + R"({"udid":"u3","networkId":"ln","name":"x","type":14})"),
         "devices[1].networkId: \"ln\" is already used"},
    };
    for (const Case& c : cases) {
        World world = DefaultWorld();
        std::string error;
        EXPECT_FALSE(ParseWorld(c.text, world, error)) << c.text;
        EXPECT_EQ(error.compare(0, c.error.size(), c.error), 0) << "got \"" << error << "\" for " << c.text;
        EXPECT_EQ(world.devices.size(), DefaultWorld().devices.size()) << "a failed parse changed the world";
    }
}

TEST(WorldJsonTest, ValuesAndDefaults)
{
    World world;
    std::string error;
    std::string text = WorldWith(
        std::string(DEVICE) + R"(,"type":2607,"state":"ready","config":{"modelId":"M","json":{"a":[1,2]}}},)" +
        R"({"udid":"u2","networkId":"n2","name":"Cam","type":"WiFiCamera",)" + R"("config":{"json":"not json"}})");
    ASSERT_TRUE(ParseWorld(text, world, error)) << error;
    ASSERT_EQ(world.devices.size(), 2u);
    EXPECT_EQ(world.local.type, 14u);
    EXPECT_EQ(world.devices[0].type, 2607u);
    EXPECT_EQ(world.devices[0].state, DeviceState::READY);
    EXPECT_EQ(world.devices[0].config.json, R"({"a":[1,2]})");
    EXPECT_EQ(world.devices[1].type, 8u);
    EXPECT_EQ(world.devices[1].state, DeviceState::OFFLINE);
    EXPECT_EQ(world.devices[1].config.json, "not json");
    EXPECT_FALSE(world.devices[1].sameAccount);
}

TEST(WorldJsonTest, WrittenWorldsReadBackTheSame)
{
    World world = DefaultWorld();
    world.devices[0].type = 4242;  // a code without a name is written as a number
    world.devices[1].dynamicInfo["quote\"d"] = "line\nbreak";
    World back;
    std::string error;
    ASSERT_TRUE(ParseWorld(WorldToJson(world), back, error)) << error;
    EXPECT_EQ(WorldToJson(back), WorldToJson(world));
    EXPECT_EQ(back.devices[0].type, 4242u);

    Device device;
    ASSERT_TRUE(ParseDevice(DeviceToJson(world.devices[2]), device, error)) << error;
    EXPECT_EQ(DeviceToJson(device), DeviceToJson(world.devices[2]));
}

TEST(WorldJsonTest, BuiltInWorldHasSixOrMoreTypes)
{
    World world = DefaultWorld();
    std::set<uint32_t> types;
    for (const Device& device : world.devices) {
        types.insert(device.type);
        EXPECT_GE(FindDevice(world, device.networkId), 0);
    }
    EXPECT_GE(types.size(), 6u);
    EXPECT_EQ(types.count(world.local.type), 0u);
    EXPECT_EQ(FindDevice(world, ""), -1);
}

TEST(WorldJsonTest, ExampleWorldsLoad)
{
    for (const char* name : {"home.json", "office.json"}) {
        World world;
        std::string error;
        EXPECT_TRUE(LoadWorldFile(ExamplesDir() + name, world, error)) << name << ": " << error;
        EXPECT_FALSE(world.devices.empty()) << name;
    }
    World world;
    std::string error;
    EXPECT_FALSE(LoadWorldFile(ExamplesDir() + "missing.json", world, error));
    EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

TEST(WorldJsonTest, DeviceTypeNamesAndCodes)
{
    uint32_t code = 0;
    EXPECT_TRUE(ParseDeviceType("2IN1", code));
    EXPECT_EQ(code, 2607u);
    EXPECT_TRUE(ParseDeviceType("4294967295", code));
    EXPECT_EQ(code, 4294967295u);
    EXPECT_FALSE(ParseDeviceType("4294967296", code));
    EXPECT_FALSE(ParseDeviceType("phone", code));
    EXPECT_FALSE(ParseDeviceType("", code));
    EXPECT_EQ(DeviceTypeName(8), "WiFiCamera");
    EXPECT_EQ(DeviceTypeName(1), "1");
}

}  // namespace
}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
