-- Wireshark dissector for devicedetect captures (`devicedetect monitor --pcap`).
--
-- Open a capture with
--     wireshark -X lua_script:/usr/share/devicedetect/wireshark/devicedetect.lua FILE.pcap
--     tshark -X lua_script:.../devicedetect.lua -r FILE.pcap -V
-- or copy this file into ~/.local/lib/wireshark/plugins/.
--
-- A capture is a classic pcap file with link type 147 (LINKTYPE_USER0). Each
-- packet is our 24-byte capture header, then one transport frame as it
-- crossed the socket: the 32-byte frame header, the parcel data, the object
-- entries. docs/wire-format.md ("Captures") and docs/transport.md ("Frames")
-- draw them byte by byte.
--
-- The tables below restate the request codes, interface tokens, record
-- layouts and status values of the C++ sources they name. The capture test
-- (test/tools/capture_test.cpp) fails when a code or status name here no
-- longer matches them, or when a layout no longer reads what the real proxy,
-- service and callback senders write.
--
-- Every read is checked against the captured and the announced lengths
-- first: a frame cut at the capture limit decodes as far as it goes and says
-- where it was cut; data that breaks the parcel rules gets an expert info and
-- ends the decoding of that packet. Nothing here raises a Lua error on bad
-- input.

local proto = Proto("devicedetect", "devicedetect IPC")

local CAPTURE_HEADER_SIZE = 24
local FRAME_HEADER_SIZE = 32
local OBJECT_ENTRY_SIZE = 8
-- Frame header fields, from the start of the packet.
local CALL_ID_OFFSET = CAPTURE_HEADER_SIZE + 8
local CODE_OFFSET = CAPTURE_HEADER_SIZE + 20

local KIND_TRANSACTION = 1
local KIND_REPLY = 2
local KIND_RELEASE = 3

local DIRECTION_TO_SERVICE = 1
local DIRECTION_FROM_SERVICE = 2

---------------------------------------------------------------------------
-- Value names

-- platform/include/ipc_status.h, interfaces/innerkits/include/device_detect_status.h,
-- service/include/sim_status.h: the values a reply's status or a status item
-- may carry. The three tables do not overlap except in 0.
local STATUS_NAMES = {
    [0] = "OK",
    [-12] = "IPC_ERR_NO_MEMORY",
    [-13] = "IPC_ERR_PERMISSION_DENIED",
    [-22] = "IPC_ERR_INVALID_DATA",
    [-32] = "IPC_ERR_DEAD_OBJECT",
    [-74] = "IPC_ERR_UNKNOWN_TRANSACTION",
    [-90] = "IPC_ERR_TOO_LARGE",
    [-107] = "IPC_ERR_NOT_CONNECTED",
    [-110] = "IPC_ERR_TIMED_OUT",
    [-1] = "DD_FAILED",
    [1001] = "DD_ERR_READ_FAILED",
    [1006] = "DD_ERR_WRITE_TOKEN_FAILED",
    [1007] = "DD_ERR_WRITE_ARG_FAILED",
    [1008] = "DD_ERR_SEND_REQUEST_FAILED",
    [1010] = "DD_ERR_WRONG_TOKEN",
    [1011] = "DD_ERR_WRITE_OBJECT_FAILED",
    [1019] = "DD_ERR_RECORD_MISSING",
    [1021] = "DD_ERR_WRITE_PARAM_FAILED",
    [1022] = "DD_ERR_READ_REPLY_FAILED",
    [1023] = "DD_ERR_DEVICE_NUM_EXCEEDED",
    [2202] = "DD_ERR_RESULT_COUNT_MISMATCH",
    [3001] = "SIM_ERR_INVALID_ARGUMENT",
    [3002] = "SIM_ERR_NO_SUCH_DEVICE",
    [3003] = "SIM_ERR_NO_SUCH_LISTENER",
    [3004] = "SIM_ERR_NULL_CALLBACK",
    [3005] = "SIM_ERR_TOO_MANY_REGISTRATIONS",
    [3006] = "SIM_ERR_NOT_REGISTERED",
    [3007] = "SIM_ERR_DEVICE_EXISTS",
    [3008] = "SIM_ERR_WRONG_TOKEN",
    [3009] = "SIM_ERR_REPLY_WRITE_FAILED",
    [3010] = "SIM_ERR_BAD_WORLD",
    [3011] = "SIM_ERR_WORLD_FULL",
    [3012] = "SIM_ERR_NO_SCENARIO",
    [3013] = "SIM_ERR_CONDITION_TIMEOUT",
}

-- interfaces/innerkits/src/ability_filter.cpp (ServiceFilter::ConvertDeviceType).
local DEVICE_TYPE_NAMES = {
    [0x00] = "UNKNOWN",
    [0x0E] = "PHONE",
    [0x11] = "PAD",
    [0x9C] = "TV",
    [0x83] = "CAR",
    [0x6D] = "WATCH",
    [0x08] = "WiFiCamera",
    [0x0C] = "PC",
    [0xA02] = "SMART_DISPLAY",
    [0xA2F] = "2IN1",
}

-- service/include/sim_protocol.h: the simulator's own numbers.
local DEVICE_STATE_NAMES = { [0] = "offline", [1] = "online", [2] = "ready" }
local SERVICE_CHANGE_EVENT_NAMES = { [1] = "DEVICE_ONLINE", [2] = "DEVICE_OFFLINE", [3] = "SERVICES_CHANGED" }
local DETECT_EVENT_NAMES = { [1] = "FOUND", [2] = "LOST" }
local PUBLISH_EVENT_NAMES = { [1] = "REQUESTED", [2] = "WITHDRAWN" }

local DIRECTION_NAMES = { [DIRECTION_TO_SERVICE] = "to the service", [DIRECTION_FROM_SERVICE] = "from the service" }
local KIND_NAMES = { [KIND_TRANSACTION] = "TRANSACTION", [KIND_REPLY] = "REPLY", [KIND_RELEASE] = "RELEASE" }
local OWNER_NAMES = { [0] = "sender", [1] = "receiver" }

---------------------------------------------------------------------------
-- Fields

local fields = {}
local function add_field(f)
    fields[#fields + 1] = f
    return f
end

local hf = {
    capture = add_field(ProtoField.none("devicedetect.capture", "Capture header")),
    cap_version = add_field(ProtoField.uint8("devicedetect.capture.version", "version")),
    cap_direction = add_field(ProtoField.uint8("devicedetect.capture.direction", "direction", base.DEC, DIRECTION_NAMES)),
    cap_reserved = add_field(ProtoField.uint16("devicedetect.capture.reserved", "reserved")),
    cap_pid = add_field(ProtoField.int32("devicedetect.capture.pid", "pid")),
    cap_connection = add_field(ProtoField.uint64("devicedetect.capture.connection", "connection")),
    cap_time = add_field(ProtoField.absolute_time("devicedetect.capture.time", "time", base.UTC)),

    frame = add_field(ProtoField.none("devicedetect.frame", "Frame header")),
    length = add_field(ProtoField.uint32("devicedetect.frame.length", "length")),
    magic = add_field(ProtoField.string("devicedetect.frame.magic", "magic")),
    version = add_field(ProtoField.uint8("devicedetect.frame.version", "version")),
    kind = add_field(ProtoField.uint8("devicedetect.frame.kind", "kind", base.DEC, KIND_NAMES)),
    call_id = add_field(ProtoField.uint64("devicedetect.frame.call_id", "call id")),
    target = add_field(ProtoField.uint32("devicedetect.frame.target", "target")),
    code = add_field(ProtoField.uint32("devicedetect.frame.code", "code")),
    status = add_field(ProtoField.int32("devicedetect.frame.status", "status", base.DEC, STATUS_NAMES)),
    references = add_field(ProtoField.uint32("devicedetect.frame.references", "references released")),
    flags = add_field(ProtoField.uint32("devicedetect.frame.flags", "flags", base.HEX)),
    flag_async = add_field(ProtoField.bool("devicedetect.frame.flags.async", "TF_ASYNC", 32, nil, 0x1)),
    object_count = add_field(ProtoField.uint16("devicedetect.frame.object_count", "object count")),
    frame_reserved = add_field(ProtoField.uint16("devicedetect.frame.reserved", "reserved")),

    objects = add_field(ProtoField.none("devicedetect.objects", "Object entries")),
    object_id = add_field(ProtoField.uint32("devicedetect.object.id", "id")),
    object_owner = add_field(ProtoField.uint8("devicedetect.object.owner", "owner", base.DEC, OWNER_NAMES)),
    object_reserved = add_field(ProtoField.bytes("devicedetect.object.reserved", "reserved")),

    parcel = add_field(ProtoField.none("devicedetect.parcel", "Parcel")),
    token = add_field(ProtoField.string("devicedetect.token", "interface token")),
    request = add_field(ProtoField.string("devicedetect.request", "request")),
    control = add_field(ProtoField.string("devicedetect.control", "control request")),
    callback = add_field(ProtoField.string("devicedetect.callback", "callback")),
    reply_to = add_field(ProtoField.string("devicedetect.reply_to", "reply to")),
    request_frame = add_field(ProtoField.framenum("devicedetect.request_frame", "request in frame")),
    presence = add_field(ProtoField.int32("devicedetect.presence", "presence")),
    undecoded = add_field(ProtoField.bytes("devicedetect.undecoded", "undecoded data")),
}

local ef = {
    malformed = ProtoExpert.new("devicedetect.malformed", "Malformed devicedetect data", expert.group.MALFORMED,
        expert.severity.ERROR),
    cut = ProtoExpert.new("devicedetect.cut", "Frame cut at the capture limit", expert.group.UNDECODED,
        expert.severity.NOTE),
    unknown = ProtoExpert.new("devicedetect.unknown", "Unknown interface or code", expert.group.UNDECODED,
        expert.severity.WARN),
    trailing = ProtoExpert.new("devicedetect.trailing", "Bytes after the last item", expert.group.PROTOCOL,
        expert.severity.WARN),
    short_reply = ProtoExpert.new("devicedetect.short_reply", "The reply of a failed call ends early",
        expert.group.PROTOCOL, expert.severity.NOTE),
    no_request = ProtoExpert.new("devicedetect.no_request", "Reply to a call that is not in the capture",
        expert.group.SEQUENCE, expert.severity.NOTE),
}

---------------------------------------------------------------------------
-- Layouts
--
-- A layout is a list of items in wire order; each item makes its own field,
-- "devicedetect.<scope>.<name>", so that every argument and record field
-- can be filtered on by name.

local field_by_abbrev = {}

local function make_field(abbrev, name, kind, names)
    local existing = field_by_abbrev[abbrev]
    if existing then
        if existing.kind ~= kind then
            error("devicedetect.lua: field " .. abbrev .. " declared as " .. existing.kind .. " and " .. kind)
        end
        return existing.field
    end
    local f
    if kind == "string" then
        f = ProtoField.string(abbrev, name)
    elseif kind == "int32" then
        f = ProtoField.int32(abbrev, name, base.DEC, names)
    elseif kind == "uint32" then
        f = ProtoField.uint32(abbrev, name, base.DEC, names)
    elseif kind == "bool" then
        f = ProtoField.bool(abbrev, name)
    else
        error("devicedetect.lua: no field kind " .. kind)
    end
    field_by_abbrev[abbrev] = { kind = kind, field = f }
    return add_field(f)
end

-- Items. `scope` is filled in when the layout is bound (bind below).
local function STR(name) return { t = "string", n = name } end
local function I32(name, names) return { t = "int32", n = name, vs = names } end
local function U32(name, names) return { t = "uint32", n = name, vs = names } end
local function BOOL(name) return { t = "bool", n = name } end
local function STRVEC(name) return { t = "strvec", n = name } end
local function U32VEC(name, names) return { t = "u32vec", n = name, vs = names } end
local function OBJ(name) return { t = "object", n = name } end
-- A record in strong-parcelable form: int32 presence, then its fields.
local function REC(name, record) return { t = "record", n = name, r = record } end
-- uint32 count, then `count` times the items of `element`.
local function LIST(name, element) return { t = "list", n = name, e = element } end
local function STATUS(name) return I32(name or "status", STATUS_NAMES) end

-- interfaces/innerkits/src/*.cpp, each record's Marshalling: the records that
-- requests, replies and callbacks carry (LocalInfo, PickerResult and
-- ServicePublishInfo travel in none of them).
local RECORDS = {
    DeviceInfo = { STR("udid"), STR("networkId"), STR("deviceName"), U32("deviceType", DEVICE_TYPE_NAMES) },
    DeviceServiceInfo = { STR("deviceName"), U32("deviceType", DEVICE_TYPE_NAMES), STR("deviceHashId"),
        STR("deviceId"), STRVEC("serviceRuleList"), STR("networkId"), STR("brMac"), STR("extraInfo") },
    AbilityFilter = { STR("bundleName"), STR("abilityType"), STR("abilityDescription"),
        U32("deviceType", DEVICE_TYPE_NAMES), U32("accountType"), STR("action") },
    DeviceFilter = { U32VEC("deviceTypes", DEVICE_TYPE_NAMES), U32VEC("accountTypes") },
    ServiceFilter = { STR("serviceName"), STRVEC("deviceType") },
    DeviceConfigInfo = { STR("modelId"), STR("originJson"), STR("deviceName"), U32("deviceType", DEVICE_TYPE_NAMES),
        U32("supportFoldScreen") },
    DeviceDynamicInfo = { STR("key"), STR("value") },
    RequestResultInfo = { U32("eventCode", PUBLISH_EVENT_NAMES), U32("resultCode") },
}

local DEVICE_LIST = { LIST("devices", { REC("device", "DeviceInfo") }) }

-- interfaces/innerkits/include/device_detect_request_code.h; requests as
-- device_picker/device_detect/src/device_detect_proxy.cpp writes them,
-- replies as service/src/service_stub.cpp writes them.
local REQUESTS = {
    [1] = { name = "GET_TRUSTED_DEVICE_LIST", req = { STR("str") }, rep = DEVICE_LIST },
    [4] = { name = "GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER",
        req = { LIST("abilityFilters", { REC("abilityFilter", "AbilityFilter") }) },
        rep = { LIST("devices", { REC("device", "DeviceInfo"), LIST("abilities", { REC("ability", "AbilityFilter") }) }) } },
    [6] = { name = "GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER",
        req = { REC("serviceFilter", "ServiceFilter"), STR("str") }, rep = DEVICE_LIST },
    [7] = { name = "REGISTER_DEV_CHANGED_CALLBACK",
        req = { REC("abilityFilter", "AbilityFilter"), STR("str"), OBJ("callback") },
        rep = { STATUS(), U32("listenerId") } },
    [8] = { name = "UNREGISTER_DEV_CHANGED_CALLBACK", req = { I32("listenerId") }, rep = { STATUS() } },
    [9] = { name = "REGISTER_CALLBACK_WITH_SERVICE_FILTER",
        req = { REC("serviceFilter", "ServiceFilter"), STR("str"), OBJ("callback") },
        rep = { STATUS(), U32("listenerId") } },
    [10] = { name = "UNREGISTER_SERVICE_FILTER_LISTENER", req = { I32("listenerId") }, rep = { STATUS() } },
    [11] = { name = "REGISTER_SERVICE_CHANGED_CALLBACK", req = { OBJ("callback") }, rep = { STATUS() } },
    [12] = { name = "UNREGISTER_SERVICE_CHANGED_CALLBACK", req = {}, rep = { STATUS() } },
    [13] = { name = "GET_LOCAL_DEVICE_INFO", req = {}, rep = { REC("deviceInfo", "DeviceInfo") } },
    [14] = { name = "GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER",
        req = { REC("deviceFilter", "DeviceFilter"), OBJ("callback") }, rep = DEVICE_LIST },
    [15] = { name = "GET_REMOTE_DEVICE_DYNAMIC_INFO", req = { STR("remoteDeviceId"), STRVEC("keyList") },
        rep = { LIST("results", { REC("dynamicInfo", "DeviceDynamicInfo") }) } },
    [16] = { name = "QUERY_DEVICE_CONFIG_INFO", req = { STR("configQuery") },
        rep = { REC("deviceConfigInfo", "DeviceConfigInfo") } },
    [17] = { name = "REGISTER_SERVICE_DELIVER_CALLBACK", req = { STR("deliverCode"), OBJ("callback") },
        rep = { STATUS() } },
    [18] = { name = "SET_DIALOG_EVENT_CALLBACK", req = { OBJ("callback") }, rep = {} },
    [19] = { name = "NOTIFY_APP_DIALOG_EVENT", req = { STR("dialogEvent") }, rep = {} },
    [20] = { name = "REQUEST_SERVICE", req = { STR("pkgName"), OBJ("callback") }, rep = { STATUS() } },
    [21] = { name = "UN_REQUEST_SERVICE", req = { STR("pkgName") }, rep = { STATUS() } },
    [22] = { name = "GET_DEVICE_SWITCH", req = { STR("deviceId") }, rep = { STATUS("deviceStatus") } },
    [23] = { name = "REGISTER_KEY_MOUSE_CALLBACK", req = { STR("callerId"), OBJ("callback") }, rep = { STATUS() } },
    [24] = { name = "UNREGISTER_KEY_MOUSE_CALLBACK", req = { STR("callerId") }, rep = { STATUS() } },
    [25] = { name = "UPDATE_KEY_MOUSE_EDGE_SWITCH", req = { BOOL("edgeSwitchOn") }, rep = { STATUS() } },
    [26] = { name = "GET_IS_SAME_DEVICE_ACCOUNT", req = { STR("networkId") }, rep = { BOOL("sameAccount") } },
    [27] = { name = "GET_BIND_KEYMOUSE_SERVICE_REQ", req = { BOOL("bindKeymouseService") }, rep = {} },
    [28] = { name = "GET_IS_NEXT_TYPE_DEVICE", req = { STR("networkId") }, rep = { BOOL("isNextType") } },
}

-- service/include/sim_protocol.h (ControlCode): every reply starts with
-- int32 status and a string detail.
local CONTROL_REPLY = { STATUS(), STR("detail") }
local CONTROLS = {
    [1] = { name = "SET_DEVICE_STATE", req = { STR("deviceId"), I32("state", DEVICE_STATE_NAMES) }, rep = CONTROL_REPLY },
    [2] = { name = "ADD_DEVICE", req = { STR("deviceJson") }, rep = CONTROL_REPLY },
    [3] = { name = "REMOVE_DEVICE", req = { STR("deviceId") }, rep = CONTROL_REPLY },
    [4] = { name = "SET_DYNAMIC_INFO", req = { STR("deviceId"), STR("key"), STR("value") }, rep = CONTROL_REPLY },
    [5] = { name = "NOTIFY_SERVICE_CHANGE", req = { I32("event", SERVICE_CHANGE_EVENT_NAMES), STRVEC("deviceIds") },
        rep = CONTROL_REPLY },
    [6] = { name = "DELIVER", req = { BOOL("allCodes"), I32("deliverCode"), STR("info") }, rep = CONTROL_REPLY },
    [7] = { name = "PUBLISH_RESULT",
        req = { STR("pkgName"), U32("eventCode", PUBLISH_EVENT_NAMES), U32("resultCode") }, rep = CONTROL_REPLY },
    [8] = { name = "DIALOG_REPLY", req = { STR("reply") }, rep = CONTROL_REPLY },
    [9] = { name = "DETECT_EVENT", req = { STR("deviceId"), I32("event", DETECT_EVENT_NAMES) }, rep = CONTROL_REPLY },
    [10] = { name = "GET_WORLD", req = {}, rep = { STATUS(), STR("detail"), STR("worldJson") } },
    [11] = { name = "LOAD_WORLD", req = { STR("worldJson") }, rep = CONTROL_REPLY },
    [12] = { name = "GET_REGISTRATIONS", req = {}, rep = { STATUS(), STR("detail"), STR("registrationsJson") } },
    [13] = { name = "STEP", req = {}, rep = CONTROL_REPLY },
    [14] = { name = "DUMP", req = {}, rep = { STATUS(), STR("detail"), STR("dumpJson") } },
}

-- The callback interfaces (service/src/callback_sender.cpp writes them; the
-- stubs in interfaces/innerkits/src and device_picker/device_detect/src read
-- them). A callback's reply carries no data: its status is the handler's.
local function ON_EVENT(req) return { [0] = { name = "ON_EVENT", req = req, rep = {} } } end
local DEVICE_EVENT = { REC("deviceInfo", "DeviceInfo") }

-- interfaces/innerkits/include/device_detect_descriptors.h and
-- service/include/sim_protocol.h (CONTROL_DESCRIPTOR).
local INTERFACES = {
    ["Tavik.Syntavo.IDeviceDetect"] = { scope = "request", role = "request", codes = REQUESTS },
    ["Tavik.Syntavo.IDeviceDetectControl"] = { scope = "control", role = "control", codes = CONTROLS },
    ["Tavik.Syntavo.IDeviceStateChangedCallback"] = { scope = "devicechanged", role = "callback", codes = {
        [0] = { name = "ON_DEVICE_ONLINE", req = DEVICE_EVENT, rep = {} },
        [1] = { name = "ON_DEVICE_OFFLINE", req = DEVICE_EVENT, rep = {} },
        [3] = { name = "ON_DEVICE_READY", req = DEVICE_EVENT, rep = {} },
    } },
    ["Tavik.Syntavo.IServiceChangedCallback"] = { scope = "servicechanged", role = "callback", codes = ON_EVENT({
        I32("event", SERVICE_CHANGE_EVENT_NAMES), LIST("services", { REC("service", "DeviceServiceInfo") }) }) },
    ["Tavik.Syntavo.IDeviceDetectCallback"] = { scope = "detect", role = "callback", codes = ON_EVENT({
        I32("event", DETECT_EVENT_NAMES), REC("deviceInfo", "DeviceInfo") }) },
    ["Tavik.Syntavo.IServiceDeliverCallback"] = { scope = "deliver", role = "callback",
        codes = ON_EVENT({ STR("info") }) },
    ["Tavik.Syntavo.IDialogEventCallback"] = { scope = "dialog", role = "callback",
        codes = ON_EVENT({ STR("info") }) },
    ["Tavik.Syntavo.IServicePublishCallback"] = { scope = "publish", role = "callback", codes = ON_EVENT({
        REC("info", "RequestResultInfo") }) },
}

-- Gives every item of a layout its field(s), "devicedetect.<scope>.<name>".
-- Records are bound once, under their own name as scope.
local bind
local bound_records = {}

local function bind_record(name)
    local layout = RECORDS[name]
    if not layout then
        error("devicedetect.lua: no record " .. name)
    end
    if not bound_records[name] then
        bound_records[name] = true
        bind(layout, string.lower(name))
    end
end

bind = function(layout, scope)
    for _, item in ipairs(layout) do
        if not item.f then
            local abbrev = "devicedetect." .. scope .. "." .. string.lower(item.n)
            if item.t == "string" or item.t == "int32" or item.t == "uint32" or item.t == "bool" then
                item.f = make_field(abbrev, item.n, item.t, item.vs)
            elseif item.t == "object" then
                item.f = make_field(abbrev, item.n, "uint32")
            elseif item.t == "strvec" then
                item.f = make_field(abbrev, item.n, "int32")
                item.ef = make_field(abbrev .. ".entry", item.n, "string")
            elseif item.t == "u32vec" then
                item.f = make_field(abbrev, item.n, "int32")
                item.ef = make_field(abbrev .. ".entry", item.n, "uint32", item.vs)
            elseif item.t == "list" then
                item.f = make_field(abbrev, item.n, "uint32")
                bind(item.e, scope .. "." .. string.lower(item.n))
            elseif item.t == "record" then
                bind_record(item.r)
            end
        end
    end
end

for name, _ in pairs(RECORDS) do
    bind_record(name)
end
for _, interface in pairs(INTERFACES) do
    for _, entry in pairs(interface.codes) do
        bind(entry.req, interface.scope)
        bind(entry.rep, interface.scope .. ".reply")
    end
end

proto.fields = fields
proto.experts = { ef.malformed, ef.cut, ef.unknown, ef.trailing, ef.short_reply, ef.no_request }

---------------------------------------------------------------------------
-- The parcel reader

local Reader = {}
Reader.__index = Reader

-- Reads the parcel data in [pos, data_end) of tvb; data_end is where the
-- data ends as announced, captured_end where the capture stops.
function Reader.new(tvb, pinfo, pos, data_end, objects)
    local self = setmetatable({}, Reader)
    self.tvb = tvb
    self.pinfo = pinfo
    self.pos = pos
    self.data_end = data_end
    self.captured_end = math.min(data_end, tvb:len())
    self.objects = objects
    self.stopped = false
    -- Set for the reply of a failed call, which may hold any part of its
    -- layout: running out of data there is a note, not a fault.
    self.lenient = false
    return self
end

-- Ends the decoding of this packet with an expert info on `tree`.
function Reader:stop(tree, expert_field, text)
    if not self.stopped then
        self.stopped = true
        tree:add_proto_expert_info(expert_field, text)
    end
end

function Reader:remaining()
    return self.data_end - self.pos
end

-- The data ends before `text`'s item does.
function Reader:past_end(tree, text)
    self:stop(tree, self.lenient and ef.short_reply or ef.malformed, text)
end

-- True when n bytes from the current position are captured. Otherwise stops,
-- saying whether the capture limit or the data itself ended first.
function Reader:need(tree, n, what)
    if self.stopped then
        return false
    end
    if self.pos + n <= self.captured_end then
        return true
    end
    if self.pos + n <= self.data_end then
        self.cut = true
        self:stop(tree, ef.cut, string.format("%s: the capture stops here, %d bytes of the frame's data were not captured",
            what, self.data_end - self.captured_end))
    else
        self:past_end(tree, string.format("%s needs %d bytes, the parcel has %d left", what, n, self:remaining()))
    end
    return false
end

-- A count of elements that take at least `min_size` bytes each must fit in
-- what remains of the data (captured or not).
function Reader:check_count(tree, count, min_size, what)
    if count < 0 then
        self:stop(tree, ef.malformed, string.format("%s: negative count %d", what, count))
        return false
    end
    if count * min_size > self:remaining() then
        self:past_end(tree, string.format("%s: count %d cannot fit in the %d bytes left", what, count,
            self:remaining()))
        return false
    end
    return true
end

local function round4(n)
    return n + (4 - n % 4) % 4
end

-- The item of `size` bytes plus its padding, except that the last item of
-- the data may lack its padding (and a cut frame the padding after the
-- last captured item).
function Reader:advance_padded(size)
    self.pos = math.min(self.pos + round4(size), self.captured_end)
end

function Reader:int32(tree, field, what)
    if not self:need(tree, 4, what) then
        return nil
    end
    local range = self.tvb(self.pos, 4)
    local value = range:le_int()
    local item = field and tree:add(field, range, value)
    self.pos = self.pos + 4
    return value, item
end

function Reader:uint32(tree, field, what)
    if not self:need(tree, 4, what) then
        return nil
    end
    local range = self.tvb(self.pos, 4)
    local value = range:le_uint()
    local item = field and tree:add(field, range, value)
    self.pos = self.pos + 4
    return value, item
end

-- int32 length, the bytes, a NUL, padding. `unit` is 1 for std::string and
-- 2 for std::u16string.
function Reader:string(tree, field, what, unit)
    unit = unit or 1
    if not self:need(tree, 4, what) then
        return nil
    end
    local start = self.pos
    local length = self.tvb(start, 4):le_int()
    if length < 0 then
        self:stop(tree, ef.malformed, string.format("%s: negative length %d", what, length))
        return nil
    end
    local bytes = length * unit
    -- Checked against the announced data before the captured bytes, so a
    -- length that no parcel could hold reads as malformed, not as cut.
    if 4 + bytes + unit > self:remaining() then
        self:past_end(tree, string.format("%s: length %d runs past the end of the parcel (%d bytes left)", what,
            length, self:remaining() - 4))
        return nil
    end
    if not self:need(tree, 4 + bytes + unit, what) then
        return nil
    end
    local terminator = unit == 1 and self.tvb(start + 4 + bytes, 1):uint() or self.tvb(start + 4 + bytes, 2):le_uint()
    local value = ""
    if length > 0 then
        if unit == 1 then
            value = self.tvb(start + 4, bytes):string(ENC_UTF_8)
        else
            value = self.tvb(start + 4, bytes):le_ustring()
        end
    end
    self:advance_padded(4 + bytes + unit)
    local item
    if field then
        item = tree:add(field, self.tvb(start, self.pos - start), value)
    end
    if terminator ~= 0 then
        self:stop(item or tree, ef.malformed, what .. ": the string does not end in NUL")
        return nil
    end
    return value, item
end

function Reader:object(tree, field, what)
    local index, item = self:uint32(tree, field, what)
    if index == nil then
        return nil
    end
    local entry = self.objects[index]
    if entry == nil then
        if index >= self.objects.count then
            item:add_proto_expert_info(ef.malformed, string.format("object %d: the frame carries %d object entries",
                index, self.objects.count))
        else
            item:append_text(" (entry not captured)")
        end
    else
        item:append_text(string.format(" (object id %d, lives in the %s)", entry.id,
            OWNER_NAMES[entry.owner] or ("owner " .. entry.owner)))
    end
    return index
end

local read_layout

-- One item of a layout; `label` decorates elements of lists ("device #2").
local function read_item(r, tree, item, label)
    local what = label or item.n
    if item.t == "string" then
        return r:string(tree, item.f, what) ~= nil
    elseif item.t == "int32" then
        return r:int32(tree, item.f, what) ~= nil
    elseif item.t == "uint32" then
        return r:uint32(tree, item.f, what) ~= nil
    elseif item.t == "bool" then
        if not r:need(tree, 4, what) then
            return false
        end
        tree:add(item.f, r.tvb(r.pos, 4), r.tvb(r.pos, 4):le_int() ~= 0)
        r.pos = r.pos + 4
        return true
    elseif item.t == "object" then
        return r:object(tree, item.f, what) ~= nil
    elseif item.t == "strvec" or item.t == "u32vec" then
        local count, sub = r:int32(tree, item.f, what)
        if count == nil then
            return false
        end
        local min_size = item.t == "strvec" and 8 or 4
        if not r:check_count(sub, count, min_size, what) then
            return false
        end
        for i = 1, count do
            local entry = string.format("%s[%d]", what, i - 1)
            local ok
            if item.t == "strvec" then
                ok = r:string(sub, item.ef, entry) ~= nil
            else
                ok = r:uint32(sub, item.ef, entry) ~= nil
            end
            if not ok then
                return false
            end
        end
        return true
    elseif item.t == "record" then
        if not r:need(tree, 4, what) then
            return false
        end
        local start = r.pos
        local sub = tree:add(proto, r.tvb(start, 4), string.format("%s (%s)", what, item.r))
        local presence = r:int32(sub, hf.presence, what)
        if presence == 0 then
            sub:append_text(": null")
            return true
        end
        local ok = read_layout(r, sub, RECORDS[item.r])
        sub:set_len(r.pos - start)
        return ok
    elseif item.t == "list" then
        local count, sub = r:uint32(tree, item.f, what)
        if count == nil then
            return false
        end
        -- Every element starts with at least one 4-byte item.
        if not r:check_count(sub, count, 4, what) then
            return false
        end
        for i = 1, count do
            local element_label = string.format("%s #%d", item.e[1].n, i)
            local ok
            if #item.e == 1 then
                ok = read_item(r, sub, item.e[1], element_label)
            elseif r:need(sub, 4, element_label) then
                local start = r.pos
                local element = sub:add(proto, r.tvb(start, 4), element_label)
                ok = read_layout(r, element, item.e, element_label)
                element:set_len(r.pos - start)
            end
            if not ok then
                if r.cut then
                    sub:append_text(string.format(" (%d of %d %s decoded: the frame is cut at the capture limit)",
                        i - 1, count, what))
                end
                return false
            end
        end
        return true
    end
    return false
end

read_layout = function(r, tree, layout, label)
    for index, item in ipairs(layout) do
        -- Within a composite element only the first item carries the label.
        if not read_item(r, tree, item, index == 1 and label or nil) then
            return false
        end
    end
    return true
end

---------------------------------------------------------------------------
-- Calls and their replies

-- What each call was, by "<connection>/<direction>/<call id>", so that its
-- reply is decoded with the call's layout. Filled on the first pass over the
-- capture; replies remember their call by packet number, so that later
-- passes in any order give the same tree.
local calls = {}
local replies = {}

function proto.init()
    calls = {}
    replies = {}
end

local function call_key(connection, direction, call_id)
    return tostring(connection) .. "/" .. direction .. "/" .. tostring(call_id)
end

---------------------------------------------------------------------------
-- The dissector

local function frame_direction_text(direction, pid)
    if direction == DIRECTION_TO_SERVICE then
        return string.format("pid %d -> service", pid)
    end
    return string.format("service -> pid %d", pid)
end

local function dissect_capture_header(tvb, pinfo, root)
    local sub = root:add(hf.capture, tvb(0, CAPTURE_HEADER_SIZE))
    local version = tvb(0, 1):uint()
    sub:add(hf.cap_version, tvb(0, 1))
    local direction = tvb(1, 1):uint()
    local direction_item = sub:add(hf.cap_direction, tvb(1, 1))
    sub:add_le(hf.cap_reserved, tvb(2, 2))
    local pid = tvb(4, 4):le_int()
    sub:add_le(hf.cap_pid, tvb(4, 4))
    local connection = tvb(8, 8):le_uint64()
    sub:add_le(hf.cap_connection, tvb(8, 8))
    local ns = tvb(16, 8):le_uint64()
    local seconds = (ns / 1000000000):tonumber()
    local nanoseconds = (ns % 1000000000):tonumber()
    sub:add(hf.cap_time, tvb(16, 8), NSTime.new(seconds, nanoseconds))
    if version ~= 1 then
        sub:add_proto_expert_info(ef.malformed, string.format("capture header version %d, this dissector reads 1",
            version))
        return nil
    end
    if DIRECTION_NAMES[direction] == nil then
        direction_item:add_proto_expert_info(ef.malformed, string.format("direction %d is neither 1 nor 2", direction))
        return nil
    end
    sub:append_text(string.format(", %s, connection %s", frame_direction_text(direction, pid), tostring(connection)))
    if direction == DIRECTION_TO_SERVICE then
        pinfo.cols.src = string.format("pid %d", pid)
        pinfo.cols.dst = "service"
    else
        pinfo.cols.src = "service"
        pinfo.cols.dst = string.format("pid %d", pid)
    end
    return direction, pid, connection
end

-- Object entries after the data: index -> {id, owner}; count = announced.
local function dissect_objects(tvb, root, start, count)
    local objects = { count = count }
    if count == 0 then
        return objects
    end
    local captured = tvb:len()
    if start >= captured then
        root:add_proto_expert_info(ef.cut, string.format("the %d object entries were not captured", count))
        return objects
    end
    local length = math.min(count * OBJECT_ENTRY_SIZE, captured - start)
    local sub = root:add(hf.objects, tvb(start, length))
    for i = 0, count - 1 do
        local at = start + i * OBJECT_ENTRY_SIZE
        if at + OBJECT_ENTRY_SIZE > captured then
            sub:add_proto_expert_info(ef.cut, string.format("object entries from %d on were not captured", i))
            break
        end
        local entry = sub:add(proto, tvb(at, OBJECT_ENTRY_SIZE), string.format("object %d", i))
        local id = tvb(at, 4):le_uint()
        local owner = tvb(at + 4, 1):uint()
        entry:add_le(hf.object_id, tvb(at, 4))
        local owner_item = entry:add(hf.object_owner, tvb(at + 4, 1))
        entry:add(hf.object_reserved, tvb(at + 5, 3))
        entry:append_text(string.format(": id %d in the %s's table", id, OWNER_NAMES[owner] or "unknown owner"))
        if OWNER_NAMES[owner] == nil then
            owner_item:add_proto_expert_info(ef.malformed, string.format("owner %d is neither 0 nor 1", owner))
        end
        if tvb(at + 5, 3):le_uint() ~= 0 then
            entry:add_proto_expert_info(ef.malformed, "reserved bytes are not zero")
        end
        objects[i] = { id = id, owner = owner }
    end
    return objects
end

-- The rest of the data after a decoded layout: nothing, or a warning.
local function finish(r, tree)
    if not r.stopped and r.pos < r.data_end then
        local shown = math.min(r.data_end, r.captured_end) - r.pos
        local item = shown > 0 and tree:add(hf.undecoded, r.tvb(r.pos, shown)) or tree
        item:add_proto_expert_info(ef.trailing, string.format("%d bytes after the last item", r.data_end - r.pos))
    end
end

local function dissect_transaction(r, parcel, pinfo, header)
    local token, token_item = r:string(parcel, hf.token, "interface token", 2)
    if token == nil then
        return "transaction"
    end
    local interface = INTERFACES[token]
    if interface == nil then
        token_item:add_proto_expert_info(ef.unknown, "not an interface of the device-detect service")
        return string.format("code %d to an unknown interface", header.code)
    end
    local entry = interface.codes[header.code]
    local role_field = hf[interface.role]
    if entry == nil then
        local item = parcel:add(role_field, r.tvb(CODE_OFFSET, 4), string.format("unknown code %d", header.code))
        item:set_generated()
        item:add_proto_expert_info(ef.unknown, string.format("code %d is not one of %s", header.code, token))
        return string.format("unknown %s code %d", interface.role, header.code)
    end
    local name_item = parcel:add(role_field, r.tvb(CODE_OFFSET, 4), entry.name)
    name_item:set_generated()
    header.code_item:append_text(" (" .. entry.name .. ")")
    if not header.one_way and not pinfo.visited then
        calls[call_key(header.connection, header.direction, header.call_id)] = {
            interface = interface, entry = entry, frame = pinfo.number }
    end
    read_layout(r, parcel, entry.req)
    finish(r, parcel)
    if interface.role == "callback" then
        return string.format("%s %s", entry.name, string.match(token, "[^.]+$"))
    end
    return entry.name
end

local function dissect_reply(r, parcel, pinfo, header)
    if not pinfo.visited then
        local other = header.direction == DIRECTION_TO_SERVICE and DIRECTION_FROM_SERVICE or DIRECTION_TO_SERVICE
        replies[pinfo.number] = calls[call_key(header.connection, other, header.call_id)]
    end
    local call = replies[pinfo.number]
    local status_name = STATUS_NAMES[header.status] or tostring(header.status)
    if call == nil then
        parcel:add_proto_expert_info(ef.no_request, string.format("call %s was made before the capture started",
            tostring(header.call_id)))
        if r.data_end > r.pos and r.captured_end > r.pos then
            parcel:add(hf.undecoded, r.tvb(r.pos, r.captured_end - r.pos))
        end
        return string.format("reply %s", status_name)
    end
    local to_item = parcel:add(hf.reply_to, r.tvb(CALL_ID_OFFSET, 8), call.entry.name)
    to_item:set_generated()
    parcel:add(hf.request_frame, r.tvb(CALL_ID_OFFSET, 8), call.frame):set_generated()
    -- A failed call may come back without the reply's layout, or part of it.
    if header.status ~= 0 then
        if r.data_end == r.pos then
            return string.format("reply %s %s", call.entry.name, status_name)
        end
        r.lenient = true
    end
    read_layout(r, parcel, call.entry.rep)
    finish(r, parcel)
    return string.format("reply %s %s", call.entry.name, status_name)
end

function proto.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "DEVICEDETECT"
    local captured = tvb:len()
    local reported = tvb:reported_len()
    local tree = root:add(proto, tvb())
    if captured < CAPTURE_HEADER_SIZE + FRAME_HEADER_SIZE then
        tree:add_proto_expert_info(ef.malformed, string.format("%d bytes: shorter than the capture and frame headers",
            captured))
        return
    end
    local direction, pid, connection = dissect_capture_header(tvb, pinfo, tree)
    if direction == nil then
        return
    end

    local f = CAPTURE_HEADER_SIZE
    local header = { direction = direction, connection = connection }
    local fh = tree:add(hf.frame, tvb(f, FRAME_HEADER_SIZE))
    local length = tvb(f, 4):le_uint()
    local length_item = fh:add_le(hf.length, tvb(f, 4))
    local magic_item = fh:add(hf.magic, tvb(f + 4, 2))
    local version = tvb(f + 6, 1):uint()
    local version_item = fh:add(hf.version, tvb(f + 6, 1))
    local kind = tvb(f + 7, 1):uint()
    local kind_item = fh:add(hf.kind, tvb(f + 7, 1))
    header.call_id = tvb(f + 8, 8):le_uint64()
    header.one_way = tvb(f + 8, 4):le_uint() == 0 and tvb(f + 12, 4):le_uint() == 0
    fh:add_le(hf.call_id, tvb(f + 8, 8))
    local target = tvb(f + 16, 4):le_uint()
    fh:add_le(hf.target, tvb(f + 16, 4))
    header.code = tvb(f + 20, 4):le_uint()
    header.status = tvb(f + 20, 4):le_int()
    if kind == KIND_REPLY then
        header.code_item = fh:add_le(hf.status, tvb(f + 20, 4))
    elseif kind == KIND_RELEASE then
        header.code_item = fh:add_le(hf.references, tvb(f + 20, 4))
    else
        header.code_item = fh:add_le(hf.code, tvb(f + 20, 4))
    end
    local flags_item = fh:add_le(hf.flags, tvb(f + 24, 4))
    flags_item:add_le(hf.flag_async, tvb(f + 24, 4))
    local object_count = tvb(f + 28, 2):le_uint()
    fh:add_le(hf.object_count, tvb(f + 28, 2))
    local reserved_item = fh:add_le(hf.frame_reserved, tvb(f + 30, 2))

    local bad = false
    if tvb(f + 4, 2):string() ~= "TV" then
        magic_item:add_proto_expert_info(ef.malformed, "the magic is not 'TV'")
        bad = true
    end
    if version ~= 1 then
        version_item:add_proto_expert_info(ef.malformed, string.format("frame version %d, this dissector reads 1",
            version))
        bad = true
    end
    if KIND_NAMES[kind] == nil then
        kind_item:add_proto_expert_info(ef.malformed, string.format("kind %d is not 1, 2 or 3", kind))
        bad = true
    end
    if tvb(f + 30, 2):le_uint() ~= 0 then
        reserved_item:add_proto_expert_info(ef.malformed, "reserved bytes are not zero")
    end
    local object_bytes = object_count * OBJECT_ENTRY_SIZE
    if length < object_bytes then
        length_item:add_proto_expert_info(ef.malformed, string.format("length %d is shorter than the %d object entries",
            length, object_count))
        bad = true
    elseif CAPTURE_HEADER_SIZE + FRAME_HEADER_SIZE + length ~= reported then
        length_item:add_proto_expert_info(ef.malformed, string.format(
            "length %d, but the packet holds %d bytes after the headers", length,
            reported - CAPTURE_HEADER_SIZE - FRAME_HEADER_SIZE))
        bad = true
    end
    fh:append_text(string.format(", %s, call %s", KIND_NAMES[kind] or "unknown kind", tostring(header.call_id)))
    if bad then
        pinfo.cols.info = "malformed frame"
        return
    end

    local data_start = f + FRAME_HEADER_SIZE
    local data_end = data_start + length - object_bytes
    local objects = dissect_objects(tvb, tree, data_end, object_count)
    if captured < reported then
        tree:add_proto_expert_info(ef.cut, string.format("%d of %d bytes captured: the frame is cut at the capture limit",
            captured, reported))
    end

    local summary
    if kind == KIND_RELEASE then
        summary = string.format("release of object id %d, %d references", target, header.code)
    else
        local size = data_end - data_start
        local parcel = tree:add(hf.parcel, tvb(data_start, math.min(size, captured - data_start)))
        parcel:append_text(string.format(", %d bytes", size))
        local r = Reader.new(tvb, pinfo, data_start, data_end, objects)
        if kind == KIND_TRANSACTION then
            summary = dissect_transaction(r, parcel, pinfo, header)
        else
            summary = dissect_reply(r, parcel, pinfo, header)
        end
    end
    pinfo.cols.info = string.format("%s (call %s)", summary, tostring(header.call_id))
end

DissectorTable.get("wtap_encap"):add(wtap_encaps.USER0, proto)
