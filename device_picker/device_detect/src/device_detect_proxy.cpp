#include "device_detect_proxy.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <new>

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "device_info_reader.h"
#include "ipc_status.h"
#include "message_option.h"
#include "syntavo_log.h"
#include "system_ability_manager.h"

namespace Tavik {
namespace Syntavo {

namespace {

// Every request is synchronous and waits at most this many seconds.
constexpr int REQUEST_WAIT_SECONDS = 8;
// Largest device count a list reply may announce.
constexpr uint32_t MAX_DEVICE_NUM = 1024;
// Largest number of ability filters one request may carry.
constexpr uint32_t MAX_ABILITY_FILTER_NUM = 1024;
// Every record in a reply takes at least its 4-byte presence value.
constexpr size_t MIN_RECORD_BYTES = sizeof(int32_t);

// What a method returns, and the ERROR text it logs, when one step of its
// request fails. Methods that report failure as false (or not at all) use
// DD_FAILED here and map it themselves.
struct OnFailure {
    int32_t value;
    const char* text;
};

// One argument of a request: how it is written and what its failure means.
struct Arg {
    std::function<bool(MessageParcel&)> write;
    OnFailure failure;
};

// The frame every request shares: the entry line, the request and reply
// parcels, the option, the interface token, the method's arguments in order
// and the send. A failed step logs the method's ERROR text on its behalf
// (the prefix names the method) and ends the request, so nothing is sent
// after a failed write. The reply stays here for the method's own reads.
// A frame lives on the stack of one call and is used by one thread.
class RequestFrame {
public:
    // entryDetail is appended to the entry text (RequestService logs the
    // package name that way).
    RequestFrame(const char* method, const char* entryText, const std::string& entryDetail = std::string())
        : method_(method)
    {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_INFO, method_, "%{public}s%{public}s", entryText, entryDetail.c_str());
    }

    // DD_OK once the reply has arrived; otherwise the failed step's value.
    // No method uses DD_OK as a failure value, so the two never mix.
    int32_t Send(const sptr<IRemoteObject>& remote, DeviceDetectRequestCode code, const OnFailure& token,
                 std::initializer_list<Arg> args, const OnFailure& send)
    {
        if (!data_.WriteInterfaceToken(IDeviceDetect::GetDescriptor())) {
            return Fail(token);
        }
        for (const Arg& arg : args) {
            if (!arg.write(data_)) {
                return Fail(arg.failure);
            }
        }
        // A proxy built around no object at all fails where a dead one would.
        if (remote == nullptr || remote->SendRequest(ToCode(code), data_, reply_, option_) != IPC_OK) {
            return Fail(send);
        }
        return DD_OK;
    }

    MessageParcel& Reply() { return reply_; }
    const char* Method() const { return method_; }

private:
    int32_t Fail(const OnFailure& failure)
    {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, method_, "%{public}s", failure.text);
        return failure.value;
    }

    const char* method_;
    MessageParcel data_;
    MessageParcel reply_;
    MessageOption option_{MessageOption::TF_SYNC, REQUEST_WAIT_SECONDS};
};

// Reads count DeviceInfo records in strong-parcelable form and appends each
// to deviceList. An absent record is logged and skipped; a reply that ends
// early reads as absent records. count is bounded by the caller, so a
// hostile count costs at most MAX_DEVICE_NUM cheap reads.
void AppendDeviceInfos(MessageParcel& reply, uint32_t count, std::vector<DeviceInfo>& deviceList, const char* method,
                       const char* nullText)
{
    // Records are built in place, so the vector must not grow under them:
    // growing copies every record (DeviceInfo has no move constructor). A
    // present record takes at least its int32 presence value of the reply,
    // which bounds what a hostile count reserves.
    size_t present = std::min<size_t>(count, reply.GetReadableBytes() / MIN_RECORD_BYTES);
    deviceList.reserve(deviceList.size() + present);
    for (uint32_t i = 0; i < count; ++i) {
        if (!AppendDeviceInfo(reply, deviceList)) {
            SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, method, "%{public}s", nullText);
        }
    }
}

// The texts and values a device-list reply is read with; they differ from
// method to method on purpose.
struct DeviceListReading {
    OnFailure countUnreadable;
    OnFailure countTooLarge;
    const char* countPrefix;  // put before "deviceNum:<count>"
    const char* nullText;
    const char* endText;  // null where the method logs no end line
};

// A device count bounded by MAX_DEVICE_NUM, then that many records appended
// to deviceList; nothing is appended when the count is refused.
int32_t ReadDeviceList(MessageParcel& reply, std::vector<DeviceInfo>& deviceList, const char* method,
                       const DeviceListReading& reading)
{
    uint32_t deviceNum = 0;
    const OnFailure* failure = nullptr;
    if (!reply.ReadUint32(deviceNum)) {
        failure = &reading.countUnreadable;
    } else if (deviceNum > MAX_DEVICE_NUM) {
        failure = &reading.countTooLarge;
    }
    if (failure != nullptr) {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, method, "%{public}s", failure->text);
        return failure->value;
    }
    SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_INFO, method, "%{public}sdeviceNum:%{public}d", reading.countPrefix,
                static_cast<int32_t>(deviceNum));
    AppendDeviceInfos(reply, deviceNum, deviceList, method, reading.nullText);
    if (reading.endText != nullptr) {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_INFO, method, "%{public}s", reading.endText);
    }
    return DD_OK;
}

}  // namespace

// Initialisation order: the creator is registered before the cache and its
// lock exist; unloading releases the cache first and unregisters last.
BrokerDelegator<DeviceDetectProxy> DeviceDetectProxy::delegator_;
std::shared_mutex DeviceDetectProxy::mutex_;
sptr<DeviceDetectProxy> DeviceDetectProxy::instance_ = nullptr;

DeviceDetectProxy::DeviceDetectProxy(const sptr<IRemoteObject>& impl) : IRemoteProxy<IDeviceDetect>(impl)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "DeviceDetectProxy constructor");
}

DeviceDetectProxy::~DeviceDetectProxy()
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "DeviceDetectProxy destructor");
}

sptr<DeviceDetectProxy> DeviceDetectProxy::GetInstance()
{
    {
        std::shared_lock<std::shared_mutex> lock(mutex_);
        if (instance_ != nullptr) {
            return instance_;
        }
    }
    // The whole lookup runs under the exclusive lock, so one thread looks the
    // service up and the others waiting here find its proxy in the cache.
    std::unique_lock<std::shared_mutex> lock(mutex_);
    if (instance_ != nullptr) {
        return instance_;
    }
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "failed to get system manager");
        return nullptr;
    }
    sptr<IRemoteObject> object = manager->GetSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    if (object == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "failed to get SYNTAVO_DEVICE_DETECT_SA_ID");
        return nullptr;
    }
    sptr<DeviceDetectProxy> proxy = iface_cast<DeviceDetectProxy>(object);
    if (proxy == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "iface_cast failed");
        return nullptr;
    }
    sptr<DeviceDetectProxyDeathRecipient> recipient = new (std::nothrow) DeviceDetectProxyDeathRecipient();
    if (recipient == nullptr) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "new DeviceDetectProxyDeathRecipient failed");
        return nullptr;
    }
    // On the service's object, not on the proxy: the object is what dies. From
    // here on the object alone keeps the recipient.
    if (!object->AddDeathRecipient(recipient)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "AddDeathRecipient for DeviceDetectProxy failed");
        return nullptr;
    }
    instance_ = proxy;
    return instance_;
}

void DeviceDetectProxy::CleanupInstance()
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "Cleanup the instance");
    // When nobody else holds the proxy, its destructor runs here, under the
    // lock; it only logs, so it cannot come back for the lock.
    std::unique_lock<std::shared_mutex> lock(mutex_);
    instance_ = nullptr;
}

void DeviceDetectProxyDeathRecipient::OnRemoteDied(const wptr<IRemoteObject>& /* remote */)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "DeviceDetectProxy remote died");
    DeviceDetectProxy::CleanupInstance();
}

// --- trusted device lists ---------------------------------------------------

int32_t DeviceDetectProxy::GetTrustedDeviceList(const std::string& str, std::vector<DeviceInfo>& deviceList)
{
    RequestFrame frame(__FUNCTION__, "GetTrustedDeviceList");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST,
                                {DD_FAILED, "GetTrustedDeviceList WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(str); },
                                  {DD_FAILED, "GetTrustedDeviceList WriteString failed"}}},
                                {DD_FAILED, "GetTrustedDeviceList SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    return ReadDeviceList(frame.Reply(), deviceList, __FUNCTION__,
                          {{DD_FAILED, "GetTrustedDeviceList ReadUint32 failed"},
                           {DD_FAILED, "Devicenum exceed maximum"},
                           "GetTrustedDeviceList ",
                           "GetTrustedDeviceList ReadStrongParcelable nullptr",
                           "GetTrustedDeviceList end"});
}

int32_t DeviceDetectProxy::GetTrustedDeviceList(const std::string& /* str */,
                                                sptr<IDeviceChangedCallback> /* callback */,
                                                std::vector<DeviceInfo>& /* deviceList */)
{
    SYNT_LOGW(DEVICE_DETECT_LABEL, "GetTrustedDeviceList");
    return DD_OK;
}

int32_t DeviceDetectProxy::GetTrustedDeviceListWithAbilityFilter(sptr<AbilityFilter> /* abilityFilter */,
                                                                 const std::string& /* str */,
                                                                 std::vector<DeviceInfo>& /* deviceList */,
                                                                 std::shared_ptr<IDeviceChangedCallback> /* callback */)
{
    SYNT_LOGW(DEVICE_DETECT_LABEL, "GetTrustedDeviceListWithAbilityFilter");
    return DD_OK;
}

bool DeviceDetectProxy::WriteAbilityFilterList(MessageParcel& data, std::vector<sptr<AbilityFilter>>& abilityFilterList)
{
    SYNT_LOGI(DEVICE_DETECT_LABEL, "abilityFilterList length:%{public}d",
              static_cast<int32_t>(abilityFilterList.size()));
    if (abilityFilterList.size() > MAX_ABILITY_FILTER_NUM) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "listLength exceed maximum");
        return false;
    }
    if (!data.WriteUint32(static_cast<uint32_t>(abilityFilterList.size()))) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "GetTrustedDeviceList WriteUint32 failed");
        return false;
    }
    for (const sptr<AbilityFilter>& abilityFilter : abilityFilterList) {
        if (!data.WriteStrongParcelable(abilityFilter)) {
            SYNT_LOGE(DEVICE_DETECT_LABEL, "GetTrustedDeviceList WriteStrongParcelable failed");
            return false;
        }
    }
    return true;
}

int32_t DeviceDetectProxy::GetTrustedDeviceListWithAbilityFilter(
    std::vector<sptr<AbilityFilter>>& abilityFilterList,
    std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>>& deviceList)
{
    RequestFrame frame(__FUNCTION__, "GetTrustedDeviceListWithAbilityFilter");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST_WITH_ABILITY_FILTER,
                                {DD_FAILED, "GetTrustedDeviceList WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return WriteAbilityFilterList(data, abilityFilterList); },
                                  {DD_FAILED, "GetTrustedDeviceList WriteStrongParcelable failed"}}},
                                {DD_FAILED, "GetTrustedDeviceList SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    MessageParcel& reply = frame.Reply();
    uint32_t deviceNum = 0;
    if (!reply.ReadUint32(deviceNum)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "GetTrustedDeviceList ReadUint32 failed");
        return DD_FAILED;
    }
    if (deviceNum > MAX_DEVICE_NUM) {
        return DD_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "GetTrustedDeviceList deviceNum:%{public}d", static_cast<int32_t>(deviceNum));
    for (uint32_t i = 0; i < deviceNum; ++i) {
        sptr<DeviceInfo> deviceInfo = reply.ReadStrongParcelable<DeviceInfo>();
        if (deviceInfo == nullptr) {
            SYNT_LOGE(DEVICE_DETECT_LABEL, "GetTrustedDeviceList ReadStrongParcelable nullptr");
            continue;
        }
        uint32_t filterNum = 0;
        if (!reply.ReadUint32(filterNum)) {
            SYNT_LOGE(DEVICE_DETECT_LABEL, "GetTrustedDeviceList ReadUint32 failed");
            return DD_FAILED;
        }
        // The per-device count has no limit of its own, but every filter takes
        // at least its presence value: a count the rest of the reply cannot
        // hold is a lie, and believing it would fill memory with null entries.
        if (filterNum > reply.GetReadableBytes() / MIN_RECORD_BYTES) {
            SYNT_LOGE(DEVICE_DETECT_LABEL, "GetTrustedDeviceList abilityFilterNum:%{public}u exceeds the reply",
                      filterNum);
            return DD_FAILED;
        }
        std::list<sptr<AbilityFilter>> abilityFilters;
        for (uint32_t j = 0; j < filterNum; ++j) {
            abilityFilters.push_back(reply.ReadStrongParcelable<AbilityFilter>());
        }
        deviceList.emplace_back(*deviceInfo, std::move(abilityFilters));
    }
    return DD_OK;
}

int32_t DeviceDetectProxy::GetTrustedDeviceListWithServiceFilter(sptr<ServiceFilter> serviceFilter,
                                                                 const std::string& str,
                                                                 std::vector<DeviceInfo>& deviceList)
{
    RequestFrame frame(__FUNCTION__, "GetTrustedDeviceListWithServiceFilter");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST_WITH_SERVICE_FILTER,
                                {DD_ERR_WRITE_TOKEN_FAILED, "GetTrustedDeviceList WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteStrongParcelable(serviceFilter); },
                                  {DD_ERR_WRITE_ARG_FAILED, "GetTrustedDeviceList WriteStrongParcelable failed"}},
                                 {[&](MessageParcel& data) { return data.WriteString(str); },
                                  {DD_ERR_WRITE_PARAM_FAILED, "GetTrustedDeviceList WriteString failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "GetTrustedDeviceList SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    return ReadDeviceList(frame.Reply(), deviceList, __FUNCTION__,
                          {{DD_ERR_READ_REPLY_FAILED, "GetTrustedDeviceList ReadUint32 failed"},
                           {DD_ERR_DEVICE_NUM_EXCEEDED, "DeviceNum exceed maximum"},
                           "GetTrustedDeviceList ",
                           "GetTrustedDeviceList ReadStrongParcelable nullptr",
                           "GetTrustedDeviceList end"});
}

int32_t DeviceDetectProxy::GetTrustedDeviceListWithDeviceFilter(sptr<DeviceFilter> deviceFilter,
                                                                std::vector<DeviceInfo>& deviceList,
                                                                sptr<DeviceDetectCallbackStub> callback)
{
    RequestFrame frame(__FUNCTION__, "GetTrustedDeviceListWithDeviceFilter with callback enter");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST_WITH_DEVICE_FILTER,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteStrongParcelable(deviceFilter); },
                                  {DD_ERR_WRITE_ARG_FAILED, "WriteStrongParcelable failed"}},
                                 {[&](MessageParcel& data) { return data.WriteRemoteObject(callback); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteRemoteObject failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    return ReadDeviceList(frame.Reply(), deviceList, __FUNCTION__,
                          {{DD_ERR_READ_FAILED, "ReadUint32 failed"},
                           {DD_FAILED, "Devicenum exceed maximum"},
                           "",
                           "ReadStrongParcelable nullptr",
                           nullptr});
}

// --- listeners and callbacks ------------------------------------------------

namespace {

// The two listener registrations: one shape, two codes, two filter types.
// Logs on behalf of the calling method, whose name is `method`.
std::pair<int32_t, uint32_t> RegisterListener(const sptr<IRemoteObject>& remote, const char* method,
                                              DeviceDetectRequestCode code, const char* startText, const char* endText,
                                              const sptr<Parcelable>& filter, const std::string& str,
                                              const sptr<IRemoteObject>& callback)
{
    RequestFrame frame(method, startText);
    int32_t result = frame.Send(remote, code, {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteStrongParcelable(filter); },
                                  {DD_ERR_WRITE_ARG_FAILED, "WriteStrongParcelable failed"}},
                                 {[&](MessageParcel& data) { return data.WriteString(str); },
                                  {DD_ERR_WRITE_PARAM_FAILED, "WriteString failed"}},
                                 {[&](MessageParcel& data) { return data.WriteRemoteObject(callback); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteRemoteObject failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return {result, 0};
    }
    MessageParcel& reply = frame.Reply();
    int32_t status = 0;
    if (!reply.ReadInt32(status)) {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, method, "ReadInt32 failed");
        return {DD_ERR_READ_REPLY_FAILED, 0};
    }
    uint32_t listenerId = 0;
    if (!reply.ReadUint32(listenerId)) {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, method, "ReadUint32 failed");
        return {DD_ERR_READ_REPLY_FAILED, 0};
    }
    SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_INFO, method, "%{public}s", endText);
    return {status, listenerId};
}

}  // namespace

std::pair<int32_t, uint32_t> DeviceDetectProxy::RegisterDevChangedCallback(sptr<AbilityFilter> abilityFilter,
                                                                           const std::string& str,
                                                                           sptr<DeviceChangedCallbackStub> callback)
{
    return RegisterListener(Remote(), __FUNCTION__, DeviceDetectRequestCode::REGISTER_DEV_CHANGED_CALLBACK,
                            "RegisterDevChangedCallback start", "RegisterDevChangedCallback end", abilityFilter, str,
                            callback);
}

std::pair<int32_t, uint32_t> DeviceDetectProxy::RegisterCallbackWithServiceFilter(
    sptr<ServiceFilter> serviceFilter, const std::string& str, sptr<DeviceChangedCallbackStub> callback)
{
    return RegisterListener(Remote(), __FUNCTION__, DeviceDetectRequestCode::REGISTER_CALLBACK_WITH_SERVICE_FILTER,
                            "RegisterCallbackWithServiceFilter start", "RegisterCallbackWithServiceFilter end",
                            serviceFilter, str, callback);
}

int32_t DeviceDetectProxy::UnregisterDevChangedCallback(uint32_t listenerId)
{
    RequestFrame frame(__FUNCTION__, "UnregisterDevChangedCallback start");
    // The id travels as the same 32 bits, top bit included.
    int32_t result =
        frame.Send(Remote(), DeviceDetectRequestCode::UNREGISTER_DEV_CHANGED_CALLBACK,
                   {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                   {{[&](MessageParcel& data) { return data.WriteInt32(static_cast<int32_t>(listenerId)); },
                     {DD_ERR_WRITE_PARAM_FAILED, "WriteInt32 failed"}}},
                   {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_WRITE_ARG_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "UnregisterDevChangedCallback end");
    return status;
}

int32_t DeviceDetectProxy::UnregisterServiceFilterListener(uint32_t listenerId)
{
    RequestFrame frame(__FUNCTION__, "UnregisterServiceFilterListener start");
    int32_t result =
        frame.Send(Remote(), DeviceDetectRequestCode::UNREGISTER_SERVICE_FILTER_LISTENER,
                   {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                   {{[&](MessageParcel& data) { return data.WriteInt32(static_cast<int32_t>(listenerId)); },
                     {DD_ERR_WRITE_PARAM_FAILED, "WriteInt32 failed"}}},
                   {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_WRITE_ARG_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "UnregisterServiceFilterListener end");
    return status;
}

int32_t DeviceDetectProxy::RegisterServiceChangedCallback(sptr<ServiceChangedCallbackStub> callback)
{
    RequestFrame frame(__FUNCTION__, "start");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::REGISTER_SERVICE_CHANGED_CALLBACK,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteRemoteObject(callback); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteRemoteObject failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_READ_REPLY_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "end");
    return status;
}

int32_t DeviceDetectProxy::UnregisterServiceChangedCallback()
{
    RequestFrame frame(__FUNCTION__, "start");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::UNREGISTER_SERVICE_CHANGED_CALLBACK,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"}, {},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_WRITE_ARG_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "end");
    return status;
}

// --- device information -----------------------------------------------------

int32_t DeviceDetectProxy::GetDeviceSwitch(std::string deviceId)
{
    RequestFrame frame(__FUNCTION__, "GetDeviceSwitch with deviceId enter");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_DEVICE_SWITCH,
                                {DD_ERR_WRITE_TOKEN_FAILED, "GetDeviceSwitch failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(deviceId); },
                                  {DD_ERR_WRITE_ARG_FAILED, "WriteDeciveId failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t deviceStatus = 0;
    if (!frame.Reply().ReadInt32(deviceStatus)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadUint32 failed");
        return DD_ERR_READ_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "deviceStatus:%{public}d", deviceStatus);
    return deviceStatus;
}

namespace {

// The two yes/no questions about a device: one shape, two codes. Every
// failure is a plain false. Logs on behalf of `method`; the success line is
// "<answerName>:<0 or 1>".
bool AskYesNo(const sptr<IRemoteObject>& remote, const char* method, DeviceDetectRequestCode code,
              const char* entryText, const char* tokenText, const char* readText, const char* answerName,
              const std::string& networkId)
{
    RequestFrame frame(method, entryText);
    int32_t result = frame.Send(
        remote, code, {DD_FAILED, tokenText},
        {{[&](MessageParcel& data) { return data.WriteString(networkId); }, {DD_FAILED, "WriteNetworkId failed"}}},
        {DD_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return false;
    }
    bool answer = false;
    if (!frame.Reply().ReadBool(answer)) {
        SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, method, "%{public}s", readText);
        return false;
    }
    SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_INFO, method, "%{public}s:%{public}d", answerName, answer ? 1 : 0);
    return answer;
}

}  // namespace

bool DeviceDetectProxy::GetIsSameDeviceAccount(std::string& networkId)
{
    return AskYesNo(Remote(), __FUNCTION__, DeviceDetectRequestCode::GET_IS_SAME_DEVICE_ACCOUNT,
                    "GetIsSameDeviceAccount with deviceId enter", "GetIsSameDeviceAccount failed", "Readint32 failed",
                    "DeviceAccount", networkId);
}

bool DeviceDetectProxy::GetIsNextTypeDevice(std::string& networkId)
{
    return AskYesNo(Remote(), __FUNCTION__, DeviceDetectRequestCode::GET_IS_NEXT_TYPE_DEVICE,
                    "GetIsNextTypeDevice with deviceId enter", "GetIsNextTypeDevice failed", "ReadUint32 failed",
                    "IsNextTypeDevice", networkId);
}

void DeviceDetectProxy::GetBindKeymouseServiceReq(bool bindKeymouseService)
{
    // The caller learns of no failure; the frame's lines are all there is.
    RequestFrame frame(__FUNCTION__, "GetBindKeymouseServiceReq");
    frame.Send(Remote(), DeviceDetectRequestCode::GET_BIND_KEYMOUSE_SERVICE_REQ,
               {DD_FAILED, "BindKeymouseService failed"},
               {{[&](MessageParcel& data) { return data.WriteBool(bindKeymouseService); },
                 {DD_FAILED, "WriteBindKeymouseService failed"}}},
               {DD_FAILED, "SendRequest failed"});
}

int32_t DeviceDetectProxy::GetLocalDeviceInfo(DeviceInfo& deviceInfo)
{
    RequestFrame frame(__FUNCTION__, "GetLocalDeviceInfo");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_LOCAL_DEVICE_INFO,
                                {DD_ERR_WRITE_TOKEN_FAILED, "GetLocalDeviceInfo WriteInterfaceToken failed"}, {},
                                {DD_ERR_SEND_REQUEST_FAILED, "GetLocalDeviceInfo SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    // An absent or undecodable record is reported by the value alone.
    sptr<DeviceInfo> localDeviceInfo = frame.Reply().ReadStrongParcelable<DeviceInfo>();
    if (localDeviceInfo == nullptr) {
        return DD_ERR_READ_FAILED;
    }
    deviceInfo = *localDeviceInfo;
    SYNT_LOGI(DEVICE_DETECT_LABEL, "GetLocalDeviceInfo end");
    return DD_OK;
}

int32_t DeviceDetectProxy::GetRemoteDeviceDynamicInfo(const std::string& remoteDeviceId,
                                                      const std::vector<std::string>& keyList,
                                                      std::vector<DeviceDynamicInfo>& resultList)
{
    RequestFrame frame(__FUNCTION__, "GetRemoteDeviceDynamicInfo");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::GET_REMOTE_DEVICE_DYNAMIC_INFO,
                                {DD_ERR_WRITE_TOKEN_FAILED, "GetRemoteDeviceDynamicInfo WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(remoteDeviceId); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteString failed"}},
                                 {[&](MessageParcel& data) { return data.WriteStringVector(keyList); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteStringVector failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "GetRemoteDeviceDynamicInfo SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    MessageParcel& reply = frame.Reply();
    uint32_t resultNum = 0;
    if (!reply.ReadUint32(resultNum)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadUint32 failed");
        return DD_ERR_READ_FAILED;
    }
    // The count must equal the number of keys sent, which bounds it by the
    // size of this very request.
    if (resultNum != keyList.size()) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "resultListLen is not the same as keyListLen");
        return DD_ERR_RESULT_COUNT_MISMATCH;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "resultListLen:%{public}d", static_cast<int32_t>(resultNum));
    for (uint32_t i = 0; i < resultNum; ++i) {
        sptr<DeviceDynamicInfo> dynamicInfo = reply.ReadStrongParcelable<DeviceDynamicInfo>();
        if (dynamicInfo == nullptr) {
            SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadStrongParcelable nullptr");
            return DD_ERR_RECORD_MISSING;
        }
        resultList.push_back(*dynamicInfo);
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "GetRemoteDeviceDynamicInfo end");
    return DD_OK;
}

int32_t DeviceDetectProxy::QueryDeviceConfigInfo(const std::string& configQuery, DeviceConfigInfo& deviceConfigInfo)
{
    RequestFrame frame(__FUNCTION__, "QueryDeviceConfigInfo");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::QUERY_DEVICE_CONFIG_INFO,
                                {DD_ERR_WRITE_TOKEN_FAILED, "QueryDeviceConfigInfo WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(configQuery); },
                                  {DD_ERR_WRITE_ARG_FAILED, "QueryDeviceConfigInfo WriteString failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "QueryDeviceConfigInfo SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    // An absent or undecodable record is reported by the value alone.
    sptr<DeviceConfigInfo> configInfo = frame.Reply().ReadStrongParcelable<DeviceConfigInfo>();
    if (configInfo == nullptr) {
        return DD_ERR_READ_FAILED;
    }
    deviceConfigInfo = *configInfo;
    SYNT_LOGI(DEVICE_DETECT_LABEL, "QueryDeviceConfigInfo end");
    return DD_OK;
}

// --- services, dialogs, key-mouse --------------------------------------------

int32_t DeviceDetectProxy::RegisterServiceDeliverCallback(int deliverCode, sptr<ServiceDeliverCallbackStub> callback)
{
    RequestFrame frame(__FUNCTION__, "RegisterServiceDeliverCallback");
    // The code travels as its decimal text.
    const std::string deliverCodeText = std::to_string(deliverCode);
    int32_t result =
        frame.Send(Remote(), DeviceDetectRequestCode::REGISTER_SERVICE_DELIVER_CALLBACK,
                   {DD_ERR_WRITE_TOKEN_FAILED, "RegisterServiceDeliverCallback WriteInterfaceToken failed"},
                   {{[&](MessageParcel& data) { return data.WriteString(deliverCodeText); },
                     {DD_ERR_WRITE_ARG_FAILED, "RegisterServiceDeliverCallback WriteString failed"}},
                    {[&](MessageParcel& data) { return data.WriteRemoteObject(callback); },
                     {DD_ERR_WRITE_ARG_FAILED, "RegisterServiceDeliverCallback WriteRemoteObject failed"}}},
                   {DD_ERR_SEND_REQUEST_FAILED, "RegisterServiceDeliverCallback SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    // A reply without a value reads as 0, indistinguishable from a 0 sent.
    int32_t status = frame.Reply().ReadInt32();
    SYNT_LOGI(DEVICE_DETECT_LABEL, "RegisterServiceDeliverCallback end");
    return status;
}

int32_t DeviceDetectProxy::SetDialogEventCallback(sptr<DialogEventCallbackStub> callback)
{
    RequestFrame frame(__FUNCTION__, "SetDialogEventCallback");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::SET_DIALOG_EVENT_CALLBACK,
                                {DD_FAILED, "SetDialogEventCallback WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) {
                                      // Logged at ERROR whether or not the callback is there; a null
                                      // one is still handed to the write.
                                      SYNT_LOG_AT(DEVICE_DETECT_LABEL, LOG_ERROR, frame.Method(),
                                                  "SetDialogEventCallback callback is null? : %{public}d",
                                                  callback == nullptr ? 1 : 0);
                                      return data.WriteRemoteObject(callback);
                                  },
                                  {DD_FAILED, "SetDialogEventCallback WriteRemoteObject failed"}}},
                                {DD_FAILED, "SetDialogEventCallback SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "SetDialogEventCallback end");
    return DD_OK;
}

int32_t DeviceDetectProxy::NotifyAppDialogEvent(const std::string& dialogEvent)
{
    RequestFrame frame(__FUNCTION__, "enter");
    int32_t result = frame.Send(
        Remote(), DeviceDetectRequestCode::NOTIFY_APP_DIALOG_EVENT, {DD_FAILED, "WriteInterfaceToken failed"},
        {{[&](MessageParcel& data) { return data.WriteString(dialogEvent); }, {DD_FAILED, "WriteString failed"}}},
        {DD_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "end");
    return DD_OK;
}

int32_t DeviceDetectProxy::RequestService(const std::string& pkgName, sptr<ServicePublishCallbackStub> callback)
{
    RequestFrame frame(__FUNCTION__, "enter, pkgName:", pkgName);
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::REQUEST_SERVICE,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(pkgName); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteString failed"}},
                                 {[&](MessageParcel& data) { return data.WriteRemoteObject(callback); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteRemoteObject failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    // A reply without a value reads as 0, indistinguishable from a 0 sent.
    return frame.Reply().ReadInt32();
}

int32_t DeviceDetectProxy::UnRequestService(const std::string& pkgName)
{
    RequestFrame frame(__FUNCTION__, "enter, pkgName:", pkgName);
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::UN_REQUEST_SERVICE,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(pkgName); },
                                  {DD_ERR_WRITE_OBJECT_FAILED, "WriteString failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    return frame.Reply().ReadInt32();
}

int32_t DeviceDetectProxy::RegisterKeyMouseCallback(const std::string& callerId, sptr<IRemoteObject> callback)
{
    RequestFrame frame(__FUNCTION__, "RegisterKeyMouseCallback start");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::REGISTER_KEY_MOUSE_CALLBACK,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(callerId); },
                                  {DD_ERR_WRITE_PARAM_FAILED, "WriteString failed"}},
                                 {[&](MessageParcel& data) { return data.WriteRemoteObject(callback); },
                                  {DD_ERR_WRITE_PARAM_FAILED, "WriteRemoteObject failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_READ_REPLY_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "RegisterKeyMouseCallback end");
    return status;
}

int32_t DeviceDetectProxy::UnregisterKeyMouseCallback(const std::string& callerId)
{
    RequestFrame frame(__FUNCTION__, "UnregisterKeyMouseCallback start");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::UNREGISTER_KEY_MOUSE_CALLBACK,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteString(callerId); },
                                  {DD_ERR_WRITE_PARAM_FAILED, "WriteString failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_READ_REPLY_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "UnregisterKeyMouseCallback end");
    return status;
}

int32_t DeviceDetectProxy::UpdateKeyMouseEdgeSwitch(bool edgeSwitchOn)
{
    RequestFrame frame(__FUNCTION__, "UpdateKeyMouseEdgeSwitch start");
    int32_t result = frame.Send(Remote(), DeviceDetectRequestCode::UPDATE_KEY_MOUSE_EDGE_SWITCH,
                                {DD_ERR_WRITE_TOKEN_FAILED, "WriteInterfaceToken failed"},
                                {{[&](MessageParcel& data) { return data.WriteBool(edgeSwitchOn); },
                                  {DD_ERR_WRITE_PARAM_FAILED, "WriteBool failed"}}},
                                {DD_ERR_SEND_REQUEST_FAILED, "SendRequest failed"});
    if (result != DD_OK) {
        return result;
    }
    int32_t status = 0;
    if (!frame.Reply().ReadInt32(status)) {
        SYNT_LOGE(DEVICE_DETECT_LABEL, "ReadInt32 failed");
        return DD_ERR_READ_REPLY_FAILED;
    }
    SYNT_LOGI(DEVICE_DETECT_LABEL, "UpdateKeyMouseEdgeSwitch end");
    return status;
}

}  // namespace Syntavo
}  // namespace Tavik
