#include "world.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

// Type codes of the built-in world; names come from the records' table.
constexpr uint32_t TYPE_PHONE = 14;
constexpr uint32_t TYPE_PAD = 17;
constexpr uint32_t TYPE_TV = 156;
constexpr uint32_t TYPE_CAR = 131;
constexpr uint32_t TYPE_WATCH = 109;
constexpr uint32_t TYPE_CAMERA = 8;
constexpr uint32_t TYPE_PC = 12;
constexpr uint32_t TYPE_SMART_DISPLAY = 2562;
constexpr uint32_t TYPE_2IN1 = 2607;

constexpr uint32_t ACCOUNT_NONE = 0;
constexpr uint32_t ACCOUNT_SAME = 1;
constexpr uint32_t ACCOUNT_OTHER = 2;

Device MakeDevice(const std::string& key, const std::string& name, uint32_t type, uint32_t accountType,
                  DeviceState state)
{
    Device device;
    device.udid = "udid-" + key + "-0001";
    device.networkId = "net-" + key + "-0001";
    device.name = name;
    device.type = type;
    device.accountType = accountType;
    device.state = state;
    device.sameAccount = accountType == ACCOUNT_SAME;
    device.hashId = "hash-" + key;
    device.brMac = "02:00:00:00:00:0" + std::to_string(type % 10);
    return device;
}

}  // namespace

World DefaultWorld()
{
    World world;
    world.local = {"udid-local-phone-0001", "net-local-phone-0001", "My Phone", TYPE_PHONE};

    Device tv = MakeDevice("tv", "Living Room TV", TYPE_TV, ACCOUNT_SAME, DeviceState::ONLINE);
    tv.switchStatus = 1;
    tv.services = {"castService", "screenMirror"};
    tv.abilities = {{"com.tavik.media", "page", "video player", "play"}};
    tv.dynamicInfo = {{"volume", "35"}, {"power", "on"}};
    tv.config = {"TV-X55", "{\"screen\":\"55in\",\"hdr\":true}", 0};
    tv.serviceRules = {"cast:allow"};

    Device pad = MakeDevice("pad", "Work Tablet", TYPE_PAD, ACCOUNT_SAME, DeviceState::ONLINE);
    pad.switchStatus = 1;
    pad.services = {"fileShare", "keyMouse"};
    pad.abilities = {{"com.tavik.notes", "page", "note editor", "edit"},
                     {"com.tavik.files", "service", "file sync", "sync"}};
    pad.dynamicInfo = {{"battery", "72"}, {"charging", "false"}};
    pad.config = {"PAD-11", "{\"screen\":\"11in\",\"pen\":true}", 0};

    Device car = MakeDevice("car", "Family Car", TYPE_CAR, ACCOUNT_OTHER, DeviceState::OFFLINE);
    car.services = {"navigation"};
    car.abilities = {{"com.tavik.maps", "page", "navigation", "navigate"}};
    car.dynamicInfo = {{"fuel", "40"}};
    car.config = {"CAR-7", "{\"seats\":5}", 0};

    Device watch = MakeDevice("watch", "Running Watch", TYPE_WATCH, ACCOUNT_SAME, DeviceState::ONLINE);
    watch.services = {"health"};
    watch.abilities = {{"com.tavik.health", "service", "heart rate", "measure"}};
    watch.dynamicInfo = {{"battery", "55"}, {"heartRate", "64"}};
    watch.config = {"WATCH-3", "{\"round\":true}", 0};

    Device pc = MakeDevice("pc", "Office PC", TYPE_PC, ACCOUNT_SAME, DeviceState::READY);
    pc.nextType = true;
    pc.switchStatus = 1;
    pc.services = {"keyMouse", "fileShare", "castService"};
    pc.abilities = {{"com.tavik.files", "service", "file sync", "sync"}};
    pc.dynamicInfo = {{"cpuLoad", "12"}};
    pc.config = {"PC-TOWER", "{\"monitors\":2}", 0};

    Device laptop = MakeDevice("laptop", "Travel Laptop", TYPE_2IN1, ACCOUNT_SAME, DeviceState::OFFLINE);
    laptop.nextType = true;
    laptop.services = {"fileShare"};
    laptop.dynamicInfo = {{"battery", "90"}};
    laptop.config = {"2IN1-13", "{\"hinge\":360}", 1};

    Device display = MakeDevice("display", "Kitchen Display", TYPE_SMART_DISPLAY, ACCOUNT_OTHER, DeviceState::ONLINE);
    display.services = {"castService"};
    display.abilities = {{"com.tavik.media", "page", "video player", "play"}};
    display.config = {"DISPLAY-8", "{\"screen\":\"8in\"}", 0};

    Device camera = MakeDevice("camera", "Door Camera", TYPE_CAMERA, ACCOUNT_NONE, DeviceState::OFFLINE);
    camera.services = {"videoStream"};
    camera.config = {"CAM-1", "{\"resolution\":\"1080p\"}", 0};

    world.devices = {tv, pad, car, watch, pc, laptop, display, camera};
    return world;
}

int FindDevice(const World& world, const std::string& id)
{
    if (id.empty()) {
        return -1;
    }
    for (size_t i = 0; i < world.devices.size(); ++i) {
        if (world.devices[i].udid == id || world.devices[i].networkId == id) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
