#include "world_json.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "service_filter.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

using nlohmann::json;

// Walks one JSON object, remembering the path for the error message and
// refusing keys it was not asked about (a misspelt key is an error, not a
// silently ignored default).
class ObjectReader {
public:
    ObjectReader(const json& object, std::string path, std::string& error)
        : object_(object), path_(std::move(path)), error_(error)
    {
    }

    bool IsObject()
    {
        if (!object_.is_object()) {
            return Fail(path_, "must be an object");
        }
        return true;
    }

    bool String(const char* key, std::string& out, bool required)
    {
        const json* value = Find(key, required);
        if (value == nullptr) {
            return ok_;
        }
        if (!value->is_string()) {
            return Fail(Path(key), "must be a string");
        }
        out = value->get<std::string>();
        if (required && out.empty()) {
            return Fail(Path(key), "must not be empty");
        }
        return true;
    }

    bool Bool(const char* key, bool& out)
    {
        const json* value = Find(key, false);
        if (value == nullptr) {
            return ok_;
        }
        if (!value->is_boolean()) {
            return Fail(Path(key), "must be true or false");
        }
        out = value->get<bool>();
        return true;
    }

    bool Uint32(const char* key, uint32_t& out)
    {
        const json* value = Find(key, false);
        if (value == nullptr) {
            return ok_;
        }
        if (!value->is_number_unsigned() || value->get<uint64_t>() > UINT32_MAX) {
            return Fail(Path(key), "must be an integer from 0 to 4294967295");
        }
        out = static_cast<uint32_t>(value->get<uint64_t>());
        return true;
    }

    bool Int32(const char* key, int32_t& out)
    {
        const json* value = Find(key, false);
        if (value == nullptr) {
            return ok_;
        }
        if (!value->is_number_integer() || value->get<int64_t>() < INT32_MIN || value->get<int64_t>() > INT32_MAX) {
            return Fail(Path(key), "must be a 32-bit integer");
        }
        out = static_cast<int32_t>(value->get<int64_t>());
        return true;
    }

    bool StringList(const char* key, std::vector<std::string>& out)
    {
        const json* value = Find(key, false);
        if (value == nullptr) {
            return ok_;
        }
        if (!value->is_array()) {
            return Fail(Path(key), "must be an array of strings");
        }
        std::vector<std::string> list;
        for (size_t i = 0; i < value->size(); ++i) {
            if (!(*value)[i].is_string()) {
                return Fail(Path(key) + "[" + std::to_string(i) + "]", "must be a string");
            }
            list.push_back((*value)[i].get<std::string>());
        }
        out = std::move(list);
        return true;
    }

    bool DeviceType(const char* key, uint32_t& out, bool required)
    {
        const json* value = Find(key, required);
        if (value == nullptr) {
            return ok_;
        }
        if (value->is_string()) {
            if (!ParseDeviceType(value->get<std::string>(), out)) {
                return Fail(Path(key), "unknown device type name \"" + value->get<std::string>() + "\"");
            }
            return true;
        }
        if (!value->is_number_unsigned() || value->get<uint64_t>() > UINT32_MAX) {
            return Fail(Path(key), "must be a device type name (\"PHONE\", ...) or a code from 0 to 4294967295");
        }
        out = static_cast<uint32_t>(value->get<uint64_t>());
        return true;
    }

    // The value under key, or null (missing and optional, or an error).
    const json* Find(const char* key, bool required)
    {
        seen_.insert(key);
        auto it = object_.find(key);
        if (it == object_.end()) {
            if (required) {
                Fail(Path(key), "missing");
            }
            return nullptr;
        }
        return &*it;
    }

    // Fails on the first key that no accessor asked for.
    bool NoUnknownKeys()
    {
        for (auto it = object_.begin(); it != object_.end(); ++it) {
            if (seen_.count(it.key()) == 0) {
                return Fail(Path(it.key().c_str()), "unknown field");
            }
        }
        return true;
    }

    std::string Path(const std::string& key) const { return path_.empty() ? key : path_ + "." + key; }

    bool Fail(const std::string& where, const std::string& what)
    {
        if (ok_) {
            error_ = where + ": " + what;
            ok_ = false;
        }
        return false;
    }

    bool Ok() const { return ok_; }

private:
    const json& object_;
    std::string path_;
    std::string& error_;
    std::set<std::string> seen_;
    bool ok_ = true;
};

bool ReadAbility(const json& value, const std::string& path, Ability& ability, std::string& error)
{
    ObjectReader reader(value, path, error);
    return reader.IsObject() && reader.String("bundleName", ability.bundleName, false) &&
           reader.String("abilityType", ability.abilityType, false) &&
           reader.String("description", ability.description, false) && reader.String("action", ability.action, false) &&
           reader.NoUnknownKeys();
}

bool ReadConfig(const json& value, const std::string& path, DeviceConfig& config, std::string& error)
{
    ObjectReader reader(value, path, error);
    if (!reader.IsObject() || !reader.String("modelId", config.modelId, false) ||
        !reader.Uint32("supportFoldScreen", config.supportFoldScreen)) {
        return false;
    }
    const json* text = reader.Find("json", false);
    if (!reader.Ok()) {
        return false;
    }
    if (text != nullptr) {
        // A string is sent as it stands (it need not even be valid JSON);
        // any other value is serialised compactly.
        config.json = text->is_string() ? text->get<std::string>() : text->dump();
    }
    return reader.NoUnknownKeys();
}

bool ReadDevice(const json& value, const std::string& path, Device& device, std::string& error)
{
    ObjectReader reader(value, path, error);
    if (!reader.IsObject() || !reader.String("udid", device.udid, true) ||
        !reader.String("networkId", device.networkId, true) || !reader.String("name", device.name, true) ||
        !reader.DeviceType("type", device.type, true) || !reader.Uint32("accountType", device.accountType) ||
        !reader.Bool("sameAccount", device.sameAccount) || !reader.Bool("nextType", device.nextType) ||
        !reader.Int32("switchStatus", device.switchStatus) || !reader.StringList("services", device.services) ||
        !reader.String("hashId", device.hashId, false) || !reader.String("brMac", device.brMac, false) ||
        !reader.String("extraInfo", device.extraInfo, false) ||
        !reader.StringList("serviceRules", device.serviceRules)) {
        return false;
    }
    if (const json* state = reader.Find("state", false)) {
        if (!state->is_string() || !ParseDeviceState(state->get<std::string>(), device.state)) {
            return reader.Fail(reader.Path("state"), "must be \"offline\", \"online\" or \"ready\"");
        }
    }
    if (const json* abilities = reader.Find("abilities", false)) {
        if (!abilities->is_array()) {
            return reader.Fail(reader.Path("abilities"), "must be an array of objects");
        }
        for (size_t i = 0; i < abilities->size(); ++i) {
            Ability ability;
            if (!ReadAbility((*abilities)[i], reader.Path("abilities") + "[" + std::to_string(i) + "]", ability,
                             error)) {
                return false;
            }
            device.abilities.push_back(ability);
        }
    }
    if (const json* info = reader.Find("dynamicInfo", false)) {
        if (!info->is_object()) {
            return reader.Fail(reader.Path("dynamicInfo"), "must be an object of strings");
        }
        for (auto it = info->begin(); it != info->end(); ++it) {
            if (!it->is_string()) {
                return reader.Fail(reader.Path("dynamicInfo") + "." + it.key(), "must be a string");
            }
            device.dynamicInfo[it.key()] = it->get<std::string>();
        }
    }
    if (const json* config = reader.Find("config", false)) {
        if (!ReadConfig(*config, reader.Path("config"), device.config, error)) {
            return false;
        }
    }
    return reader.Ok() && reader.NoUnknownKeys();
}

bool ParseText(const std::string& text, json& value, std::string& error)
{
    try {
        value = json::parse(text);
    } catch (const json::parse_error& e) {
        // "[json.exception.parse_error.101] parse error at line 3, ..." without the bracketed id.
        std::string what = e.what();
        size_t close = what.find("] ");
        error = "not valid JSON: " + (close == std::string::npos ? what : what.substr(close + 2));
        return false;
    }
    return true;
}

json AbilityToJson(const Ability& ability)
{
    return json{{"bundleName", ability.bundleName},
                {"abilityType", ability.abilityType},
                {"description", ability.description},
                {"action", ability.action}};
}

json TypeToJson(uint32_t type)
{
    std::string name = ServiceFilter::ConvertDeviceType(type);
    return name.empty() ? json(type) : json(name);
}

json DeviceValue(const Device& device)
{
    json abilities = json::array();
    for (const Ability& ability : device.abilities) {
        abilities.push_back(AbilityToJson(ability));
    }
    return json{{"udid", device.udid},
                {"networkId", device.networkId},
                {"name", device.name},
                {"type", TypeToJson(device.type)},
                {"accountType", device.accountType},
                {"state", DeviceStateToString(device.state)},
                {"sameAccount", device.sameAccount},
                {"nextType", device.nextType},
                {"switchStatus", device.switchStatus},
                {"services", device.services},
                {"abilities", abilities},
                {"dynamicInfo", device.dynamicInfo},
                {"config",
                 {{"modelId", device.config.modelId},
                  {"json", device.config.json},
                  {"supportFoldScreen", device.config.supportFoldScreen}}},
                {"hashId", device.hashId},
                {"brMac", device.brMac},
                {"extraInfo", device.extraInfo},
                {"serviceRules", device.serviceRules}};
}

}  // namespace

const std::vector<uint32_t>& KnownDeviceTypes()
{
    static const std::vector<uint32_t> codes{0, 14, 17, 156, 131, 109, 8, 12, 2562, 2607};
    return codes;
}

std::string DeviceTypeName(uint32_t type)
{
    std::string name = ServiceFilter::ConvertDeviceType(type);
    return name.empty() ? std::to_string(type) : name;
}

bool ParseDeviceType(const std::string& text, uint32_t& type)
{
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        errno = 0;
        unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
        if (errno != 0 || value > UINT32_MAX) {
            return false;
        }
        type = static_cast<uint32_t>(value);
        return true;
    }
    for (uint32_t code : KnownDeviceTypes()) {
        if (ServiceFilter::ConvertDeviceType(code) == text) {
            type = code;
            return true;
        }
    }
    return false;
}

bool ParseDevice(const std::string& text, Device& device, std::string& error)
{
    json value;
    if (!ParseText(text, value, error)) {
        return false;
    }
    Device parsed;
    if (!ReadDevice(value, "", parsed, error)) {
        return false;
    }
    device = std::move(parsed);
    return true;
}

bool ParseWorld(const std::string& text, World& world, std::string& error)
{
    json value;
    if (!ParseText(text, value, error)) {
        return false;
    }
    World parsed;
    ObjectReader reader(value, "", error);
    if (!reader.IsObject() || !reader.String("dialogReply", parsed.dialogReply, false)) {
        return false;
    }
    const json* local = reader.Find("local", true);
    if (local == nullptr) {
        return false;
    }
    ObjectReader localReader(*local, "local", error);
    if (!localReader.IsObject() || !localReader.String("udid", parsed.local.udid, true) ||
        !localReader.String("networkId", parsed.local.networkId, true) ||
        !localReader.String("name", parsed.local.name, true) ||
        !localReader.DeviceType("type", parsed.local.type, true) || !localReader.NoUnknownKeys()) {
        return false;
    }
    const json* devices = reader.Find("devices", true);
    if (devices == nullptr) {
        return false;
    }
    if (!devices->is_array()) {
        return reader.Fail("devices", "must be an array");
    }
    if (devices->size() > MAX_DEVICES) {
        return reader.Fail("devices", "more than " + std::to_string(MAX_DEVICES) + " devices");
    }
    std::set<std::string> ids{parsed.local.udid, parsed.local.networkId};
    for (size_t i = 0; i < devices->size(); ++i) {
        std::string path = "devices[" + std::to_string(i) + "]";
        Device device;
        if (!ReadDevice((*devices)[i], path, device, error)) {
            return false;
        }
        // Lookups take either identifier, so no identifier may name two devices.
        if (!ids.insert(device.udid).second) {
            return reader.Fail(path + ".udid", "\"" + device.udid + "\" is already used by another device");
        }
        if (!ids.insert(device.networkId).second) {
            return reader.Fail(path + ".networkId", "\"" + device.networkId + "\" is already used by another device");
        }
        parsed.devices.push_back(std::move(device));
    }
    if (!reader.NoUnknownKeys()) {
        return false;
    }
    world = std::move(parsed);
    return true;
}

bool ReadTextFile(const std::string& path, std::string& text, std::string& error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot open \"" + path + "\"";
        return false;
    }
    std::ostringstream contents;
    contents << in.rdbuf();
    text = contents.str();
    return true;
}

bool LoadWorldFile(const std::string& path, World& world, std::string& error)
{
    std::string text;
    if (!ReadTextFile(path, text, error)) {
        return false;
    }
    if (!ParseWorld(text, world, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

std::string DeviceToJson(const Device& device, int indent)
{
    return DeviceValue(device).dump(indent, ' ', false, json::error_handler_t::replace);
}

std::string WorldToJson(const World& world, int indent)
{
    json devices = json::array();
    for (const Device& device : world.devices) {
        devices.push_back(DeviceValue(device));
    }
    json value{{"local",
                {{"udid", world.local.udid},
                 {"networkId", world.local.networkId},
                 {"name", world.local.name},
                 {"type", TypeToJson(world.local.type)}}},
               {"devices", devices},
               {"dialogReply", world.dialogReply}};
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
