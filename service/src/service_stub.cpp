#include "service_stub.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "device_info.h"
#include "peer_identity.h"
#include "peer_log.h"
#include "record_convert.h"
#include "service_filter.h"
#include "sim_log.h"
#include "sim_protocol.h"
#include "sim_status.h"
#include "simulator.h"
#include "string_convert.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

const Device& AsDevice(const Device& device)
{
    return device;
}

const Device& AsDevice(const Device* device)
{
    return *device;
}

// Writes uint32 count, then count x DeviceInfo; `devices` holds Device
// values or pointers.
template <typename DeviceList>
int32_t WriteDeviceList(MessageParcel& reply, const DeviceList& devices)
{
    if (!reply.WriteUint32(static_cast<uint32_t>(devices.size()))) {
        return SIM_ERR_REPLY_WRITE_FAILED;
    }
    for (const auto& device : devices) {
        DeviceInfo info = ToDeviceInfo(AsDevice(device));
        if (!reply.WriteParcelable(&info)) {
            return SIM_ERR_REPLY_WRITE_FAILED;
        }
    }
    return SIM_OK;
}

// The status a request's handler put into its reply, for the statistics;
// the request's thread runs the handler, so it is the thread's own.
thread_local int32_t t_replyStatus = SIM_OK;

// Requests whose reply carries a status: the status is the reply, and the
// call itself succeeds.
int32_t ReplyStatus(MessageParcel& reply, int32_t status)
{
    t_replyStatus = status;
    return reply.WriteInt32(status) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

// "-7" -> -7; no sign other than a leading minus, no blanks, no overflow.
bool ParseDecimal(const std::string& text, int32_t& value)
{
    size_t digits = (!text.empty() && text[0] == '-') ? 1 : 0;
    if (text.size() == digits || text.find_first_not_of("0123456789", digits) != std::string::npos) {
        return false;
    }
    errno = 0;
    long long parsed = std::strtoll(text.c_str(), nullptr, 10);
    if (errno != 0 || parsed < INT32_MIN || parsed > INT32_MAX) {
        return false;
    }
    value = static_cast<int32_t>(parsed);
    return true;
}

}  // namespace

DeviceDetectServiceStub::DeviceDetectServiceStub(std::shared_ptr<Simulator> simulator, sptr<IPCObjectStub> control)
    : IPCObjectStub(Descriptor::DEVICE_DETECT), simulator_(std::move(simulator)), control_(std::move(control))
{
}

DeviceDetectServiceStub::~DeviceDetectServiceStub() = default;

bool DeviceDetectServiceStub::AddDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    if (recipient == nullptr) {
        return false;
    }
    std::lock_guard<std::mutex> lock(recipientsMutex_);
    recipients_.push_back(recipient);
    return true;
}

bool DeviceDetectServiceStub::RemoveDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    std::lock_guard<std::mutex> lock(recipientsMutex_);
    auto it = std::find(recipients_.begin(), recipients_.end(), recipient);
    if (it == recipients_.end()) {
        return false;
    }
    recipients_.erase(it);
    return true;
}

void DeviceDetectServiceStub::Stop()
{
    std::vector<sptr<DeathRecipient>> recipients;
    {
        std::lock_guard<std::mutex> lock(recipientsMutex_);
        recipients.swap(recipients_);
    }
    // Outside the lock: a recipient may look the service up again.
    wptr<IRemoteObject> self(static_cast<IRemoteObject*>(this));
    for (const sptr<DeathRecipient>& recipient : recipients) {
        recipient->OnRemoteDied(self);
    }
}

int32_t DeviceDetectServiceStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                                 MessageOption& option)
{
    size_t start = data.GetReadPosition();
    std::u16string token = data.ReadInterfaceToken();
    if (control_ != nullptr && token == CONTROL_DESCRIPTOR) {
        data.RewindRead(start);
        return control_->OnRemoteRequest(code, data, reply, option);
    }
    if (token != Descriptor::DEVICE_DETECT) {
        SIM_PEER_LOG(GetCallingIdentity(), SIM_LOGE, "wrong interface token \"%{public}s\"",
                     Str16ToStr8(token).c_str());
        return SIM_ERR_WRONG_TOKEN;
    }
    const char* name = DeviceDetectRequestCodeToString(code);
    SIM_LOGD("request %{public}u %{public}s", code, name != nullptr ? name : "(unknown)");
    const auto began = std::chrono::steady_clock::now();
    t_replyStatus = SIM_OK;
    int32_t result = Dispatch(code, data, reply, option);
    simulator_->Requests().Record(code, result != SIM_OK ? result : t_replyStatus,
                                  std::chrono::steady_clock::now() - began);
    return result;
}

int32_t DeviceDetectServiceStub::Dispatch(uint32_t code, MessageParcel& data, MessageParcel& reply,
                                          MessageOption& option)
{
    using Code = DeviceDetectRequestCode;
    switch (static_cast<Code>(code)) {
        case Code::GET_TRUSTED_DEVICE_LIST:
            return GetTrustedDeviceList(data, reply);
        case Code::GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER:
            return GetTrustedDeviceListWithAbilityFilter(data, reply);
        case Code::GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER:
            return GetTrustedDeviceListWithServiceFilter(data, reply);
        case Code::REGISTER_DEV_CHANGED_CALLBACK:
            return RegisterListener(false, data, reply);
        case Code::UNREGISTER_DEV_CHANGED_CALLBACK:
            return UnregisterListener(false, data, reply);
        case Code::REGISTER_CALLBACK_WITH_SERVICE_FILTER:
            return RegisterListener(true, data, reply);
        case Code::UNREGISTER_SERVICE_FILTER_LISTENER:
            return UnregisterListener(true, data, reply);
        case Code::REGISTER_SERVICE_CHANGED_CALLBACK:
            return RegisterServiceChangedCallback(data, reply);
        case Code::UNREGISTER_SERVICE_CHANGED_CALLBACK:
            return UnregisterServiceChangedCallback(data, reply);
        case Code::GET_LOCAL_DEVICE_INFO:
            return GetLocalDeviceInfo(data, reply);
        case Code::GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER:
            return GetTrustedDeviceListWithDeviceFilter(data, reply);
        case Code::GET_REMOTE_DEVICE_DYNAMIC_INFO:
            return GetRemoteDeviceDynamicInfo(data, reply);
        case Code::QUERY_DEVICE_CONFIG_INFO:
            return QueryDeviceConfigInfo(data, reply);
        case Code::REGISTER_SERVICE_DELIVER_CALLBACK:
            return RegisterServiceDeliverCallback(data, reply);
        case Code::SET_DIALOG_EVENT_CALLBACK:
            return SetDialogEventCallback(data, reply);
        case Code::NOTIFY_APP_DIALOG_EVENT:
            return NotifyAppDialogEvent(data, reply);
        case Code::REQUEST_SERVICE:
            return RequestService(data, reply);
        case Code::UN_REQUEST_SERVICE:
            return UnRequestService(data, reply);
        case Code::GET_DEVICE_SWITCH:
            return GetDeviceSwitch(data, reply);
        case Code::REGISTER_KEY_MOUSE_CALLBACK:
            return RegisterKeyMouseCallback(data, reply);
        case Code::UNREGISTER_KEY_MOUSE_CALLBACK:
            return UnregisterKeyMouseCallback(data, reply);
        case Code::UPDATE_KEY_MOUSE_EDGE_SWITCH:
            return UpdateKeyMouseEdgeSwitch(data, reply);
        case Code::GET_IS_SAME_DEVICE_ACCOUNT:
            return GetIsSameDeviceAccount(data, reply);
        case Code::GET_BIND_KEYMOUSE_SERVICE_REQ:
            return GetBindKeymouseServiceReq(data, reply);
        case Code::GET_IS_NEXT_TYPE_DEVICE:
            return GetIsNextTypeDevice(data, reply);
    }
    SIM_PEER_LOG(GetCallingIdentity(), SIM_LOGE, "unknown request code %{public}u", code);
    return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
}

int32_t DeviceDetectServiceStub::GetTrustedDeviceList(MessageParcel& data, MessageParcel& reply)
{
    std::string extra;
    if (!data.ReadString(extra)) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    uint64_t version = simulator_->WorldVersion();
    std::shared_ptr<const std::vector<uint8_t>> encoded;
    {
        std::lock_guard<std::mutex> lock(listCacheMutex_);
        if (listCache_ != nullptr && listCacheVersion_ == version) {
            encoded = listCache_;
        }
    }
    if (encoded == nullptr) {
        MessageParcel list;
        int32_t status = SIM_OK;
        version = simulator_->WithOnlineDevices(
            [&](const std::vector<const Device*>& devices) { status = WriteDeviceList(list, devices); });
        if (status != SIM_OK) {
            return status;
        }
        encoded = std::make_shared<const std::vector<uint8_t>>(list.GetData(), list.GetData() + list.GetDataSize());
        std::lock_guard<std::mutex> lock(listCacheMutex_);
        listCache_ = encoded;
        listCacheVersion_ = version;
    }
    // The bytes WriteDeviceList puts in a reply, copied in one go.
    return reply.WriteBuffer(encoded->data(), encoded->size()) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

int32_t DeviceDetectServiceStub::GetTrustedDeviceListWithAbilityFilter(MessageParcel& data, MessageParcel& reply)
{
    uint32_t count = 0;
    if (!data.ReadUint32(count) || count > MAX_REQUEST_ITEMS) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    std::vector<sptr<AbilityFilter>> filters;
    for (uint32_t i = 0; i < count; ++i) {
        // An absent filter (presence 0, or a request that ends early) stays
        // null and matches nothing.
        filters.push_back(data.ReadStrongParcelable<AbilityFilter>());
    }
    std::vector<AbilityMatch> matches = simulator_->DevicesWithAbilities(filters);
    if (!reply.WriteUint32(static_cast<uint32_t>(matches.size()))) {
        return SIM_ERR_REPLY_WRITE_FAILED;
    }
    for (const AbilityMatch& match : matches) {
        DeviceInfo info = ToDeviceInfo(match.device);
        if (!reply.WriteParcelable(&info) || !reply.WriteUint32(static_cast<uint32_t>(match.abilities.size()))) {
            return SIM_ERR_REPLY_WRITE_FAILED;
        }
        for (const Ability& ability : match.abilities) {
            sptr<AbilityFilter> filter = ToAbilityFilter(match.device, ability);
            if (filter == nullptr || !reply.WriteStrongParcelable(filter)) {
                return SIM_ERR_REPLY_WRITE_FAILED;
            }
        }
    }
    return SIM_OK;
}

int32_t DeviceDetectServiceStub::GetTrustedDeviceListWithServiceFilter(MessageParcel& data, MessageParcel& reply)
{
    sptr<ServiceFilter> filter = data.ReadStrongParcelable<ServiceFilter>();
    std::string extra;
    if (filter == nullptr || !data.ReadString(extra)) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    return WriteDeviceList(reply, simulator_->DevicesByServiceFilter(*filter));
}

int32_t DeviceDetectServiceStub::RegisterListener(bool byServiceFilter, MessageParcel& data, MessageParcel& reply)
{
    std::pair<int32_t, uint32_t> result{SIM_ERR_INVALID_ARGUMENT, 0};
    sptr<AbilityFilter> abilityFilter;
    sptr<ServiceFilter> serviceFilter;
    if (byServiceFilter) {
        serviceFilter = data.ReadStrongParcelable<ServiceFilter>();
    } else {
        abilityFilter = data.ReadStrongParcelable<AbilityFilter>();
    }
    std::string extra;
    bool filterRead = abilityFilter != nullptr || serviceFilter != nullptr;
    if (filterRead && data.ReadString(extra)) {
        sptr<IRemoteObject> callback = data.ReadRemoteObject();
        result = byServiceFilter ? simulator_->AddServiceFilterListener(serviceFilter, extra, callback)
                                 : simulator_->AddAbilityListener(abilityFilter, extra, callback);
    }
    t_replyStatus = result.first;
    if (!reply.WriteInt32(result.first) || !reply.WriteUint32(result.second)) {
        return SIM_ERR_REPLY_WRITE_FAILED;
    }
    return SIM_OK;
}

int32_t DeviceDetectServiceStub::UnregisterListener(bool byServiceFilter, MessageParcel& data, MessageParcel& reply)
{
    int32_t id = 0;
    if (!data.ReadInt32(id)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    // The id travels as int32 carrying the uint32's bits.
    auto listenerId = static_cast<uint32_t>(id);
    return ReplyStatus(reply, byServiceFilter ? simulator_->RemoveServiceFilterListener(listenerId)
                                              : simulator_->RemoveAbilityListener(listenerId));
}

int32_t DeviceDetectServiceStub::RegisterServiceChangedCallback(MessageParcel& data, MessageParcel& reply)
{
    return ReplyStatus(reply, simulator_->AddServiceChangedCallback(data.ReadRemoteObject()));
}

int32_t DeviceDetectServiceStub::UnregisterServiceChangedCallback(MessageParcel&, MessageParcel& reply)
{
    return ReplyStatus(reply, simulator_->RemoveServiceChangedCallbacks());
}

int32_t DeviceDetectServiceStub::GetLocalDeviceInfo(MessageParcel&, MessageParcel& reply)
{
    DeviceInfo info = ToDeviceInfo(simulator_->Local());
    return reply.WriteParcelable(&info) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

int32_t DeviceDetectServiceStub::GetTrustedDeviceListWithDeviceFilter(MessageParcel& data, MessageParcel& reply)
{
    sptr<DeviceFilter> filter = data.ReadStrongParcelable<DeviceFilter>();
    if (filter == nullptr) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    sptr<IRemoteObject> callback = data.ReadRemoteObject();
    if (callback == nullptr) {
        return SIM_ERR_NULL_CALLBACK;
    }
    return WriteDeviceList(reply, simulator_->DevicesByDeviceFilter(filter, callback));
}

int32_t DeviceDetectServiceStub::GetRemoteDeviceDynamicInfo(MessageParcel& data, MessageParcel& reply)
{
    std::string id;
    std::vector<std::string> keys;
    if (!data.ReadString(id) || !data.ReadStringVector(&keys) || keys.size() > MAX_REQUEST_ITEMS) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    Device device;
    if (!simulator_->FindDevice(id, device)) {
        return SIM_ERR_NO_SUCH_DEVICE;
    }
    if (!reply.WriteUint32(static_cast<uint32_t>(keys.size()))) {
        return SIM_ERR_REPLY_WRITE_FAILED;
    }
    // One record per key, in the keys' order; an unknown key has an empty value.
    for (const std::string& key : keys) {
        auto it = device.dynamicInfo.find(key);
        DeviceDynamicInfo info(key, it == device.dynamicInfo.end() ? std::string() : it->second);
        if (!reply.WriteParcelable(&info)) {
            return SIM_ERR_REPLY_WRITE_FAILED;
        }
    }
    return SIM_OK;
}

int32_t DeviceDetectServiceStub::QueryDeviceConfigInfo(MessageParcel& data, MessageParcel& reply)
{
    std::string id;
    if (!data.ReadString(id)) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    Device device;
    if (!simulator_->FindDevice(id, device)) {
        // The layout's own "no record": the client reports it as unreadable.
        return reply.WriteInt32(0) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
    }
    DeviceConfigInfo info(device.config.modelId, device.config.json, device.name, device.type,
                          device.config.supportFoldScreen);
    return reply.WriteParcelable(&info) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

int32_t DeviceDetectServiceStub::RegisterServiceDeliverCallback(MessageParcel& data, MessageParcel& reply)
{
    std::string codeText;
    int32_t deliverCode = 0;
    if (!data.ReadString(codeText) || !ParseDecimal(codeText, deliverCode)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    return ReplyStatus(reply, simulator_->AddDeliverCallback(deliverCode, data.ReadRemoteObject()));
}

int32_t DeviceDetectServiceStub::SetDialogEventCallback(MessageParcel& data, MessageParcel&)
{
    return simulator_->AddDialogCallback(data.ReadRemoteObject());
}

int32_t DeviceDetectServiceStub::NotifyAppDialogEvent(MessageParcel& data, MessageParcel&)
{
    std::string dialogEvent;
    if (!data.ReadString(dialogEvent)) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    return simulator_->NotifyDialogEvent(dialogEvent);
}

int32_t DeviceDetectServiceStub::RequestService(MessageParcel& data, MessageParcel& reply)
{
    std::string pkgName;
    if (!data.ReadString(pkgName)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    return ReplyStatus(reply, simulator_->RequestService(pkgName, data.ReadRemoteObject()));
}

int32_t DeviceDetectServiceStub::UnRequestService(MessageParcel& data, MessageParcel& reply)
{
    std::string pkgName;
    if (!data.ReadString(pkgName)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    return ReplyStatus(reply, simulator_->UnRequestService(pkgName));
}

int32_t DeviceDetectServiceStub::GetDeviceSwitch(MessageParcel& data, MessageParcel& reply)
{
    std::string id;
    Device device;
    if (!data.ReadString(id)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    // The switch status and the service's status share the one int32.
    return ReplyStatus(reply, simulator_->FindDevice(id, device) ? device.switchStatus : SIM_ERR_NO_SUCH_DEVICE);
}

int32_t DeviceDetectServiceStub::RegisterKeyMouseCallback(MessageParcel& data, MessageParcel& reply)
{
    std::string callerId;
    if (!data.ReadString(callerId)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    return ReplyStatus(reply, simulator_->AddKeyMouseCallback(callerId, data.ReadRemoteObject()));
}

int32_t DeviceDetectServiceStub::UnregisterKeyMouseCallback(MessageParcel& data, MessageParcel& reply)
{
    std::string callerId;
    if (!data.ReadString(callerId)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    return ReplyStatus(reply, simulator_->RemoveKeyMouseCallback(callerId));
}

int32_t DeviceDetectServiceStub::UpdateKeyMouseEdgeSwitch(MessageParcel& data, MessageParcel& reply)
{
    bool on = false;
    if (!data.ReadBool(on)) {
        return ReplyStatus(reply, SIM_ERR_INVALID_ARGUMENT);
    }
    simulator_->SetKeyMouseEdgeSwitch(on);
    return ReplyStatus(reply, SIM_OK);
}

int32_t DeviceDetectServiceStub::GetIsSameDeviceAccount(MessageParcel& data, MessageParcel& reply)
{
    std::string id;
    Device device;
    bool same = data.ReadString(id) && simulator_->FindDevice(id, device) && device.sameAccount;
    return reply.WriteBool(same) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

int32_t DeviceDetectServiceStub::GetBindKeymouseServiceReq(MessageParcel& data, MessageParcel&)
{
    bool bind = false;
    if (!data.ReadBool(bind)) {
        return SIM_ERR_INVALID_ARGUMENT;
    }
    simulator_->SetBindKeymouseService(bind);
    return SIM_OK;
}

int32_t DeviceDetectServiceStub::GetIsNextTypeDevice(MessageParcel& data, MessageParcel& reply)
{
    std::string id;
    Device device;
    bool nextType = data.ReadString(id) && simulator_->FindDevice(id, device) && device.nextType;
    return reply.WriteBool(nextType) ? SIM_OK : SIM_ERR_REPLY_WRITE_FAILED;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
