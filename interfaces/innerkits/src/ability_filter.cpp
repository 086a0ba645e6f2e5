// The records that log under ability_filter: DeviceInfo, DeviceServiceInfo,
// LocalInfo, AbilityFilter, DeviceFilter, PickerResult and ServiceFilter,
// plus the log anonymiser.
//
// Every Marshalling writes one parcel operation per field and stops at the
// first refusal; what was written before it stays in the parcel (the caller
// owns the parcel and decides whether to rewind). Unmarshalling takes the
// value reads as they come, so a short parcel gives empty strings and zeros
// rather than a failure, except where a record says otherwise.
#include "ability_filter.h"

#include <new>
#include <unordered_map>
#include <utility>

#include "device_info_reader.h"
#include "syntavo_log.h"

namespace Tavik {
namespace Syntavo {
namespace {

constexpr uint32_t ANONYMOUS_KEEP_BYTES = 3;
const char* const ANONYMOUS_MASK = "****";

// Names of the device type codes. ConvertDeviceType builds its table from
// these on every call.
const std::string DEVICE_TYPE_UNKNOWN = "UNKNOWN";              // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_PHONE = "PHONE";                  // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_PAD = "PAD";                      // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_TV = "TV";                        // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_CAR = "CAR";                      // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_WATCH = "WATCH";                  // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_WIFI_CAMERA = "WiFiCamera";       // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_PC = "PC";                        // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_SMART_DISPLAY = "SMART_DISPLAY";  // NOLINT(cert-err58-cpp)
const std::string DEVICE_TYPE_2IN1 = "2IN1";                    // NOLINT(cert-err58-cpp)

constexpr uint32_t DEVICE_TYPE_CODE_UNKNOWN = 0x00;
constexpr uint32_t DEVICE_TYPE_CODE_PHONE = 0x0E;
constexpr uint32_t DEVICE_TYPE_CODE_PAD = 0x11;
constexpr uint32_t DEVICE_TYPE_CODE_TV = 0x9C;
constexpr uint32_t DEVICE_TYPE_CODE_CAR = 0x83;
constexpr uint32_t DEVICE_TYPE_CODE_WATCH = 0x6D;
constexpr uint32_t DEVICE_TYPE_CODE_WIFI_CAMERA = 0x08;
constexpr uint32_t DEVICE_TYPE_CODE_PC = 0x0C;
constexpr uint32_t DEVICE_TYPE_CODE_SMART_DISPLAY = 0xA02;
constexpr uint32_t DEVICE_TYPE_CODE_2IN1 = 0xA2F;

// 1 when the member is unset, 0 when set: the form the PickerResult lines
// print.
template <typename T>
int IsNull(const sptr<T>& member)
{
    return member == nullptr ? 1 : 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// DeviceInfo

namespace {

// The destructor's line; AppendDeviceInfo writes it too, for the decoded
// record it no longer makes.
void LogDeviceInfoDestroyed(const std::string& networkId, const std::string& deviceName, uint32_t deviceType)
{
    SYNT_LOG_AT(CLIENT_LABEL, LOG_INFO, "~DeviceInfo",
                "destory:device = %{public}s, deviceName= %{public}s, deviceType = %{public}u",
                PickerResult::StringToAnonymous(networkId).c_str(), deviceName.c_str(), deviceType);
}

}  // namespace

DeviceInfo::DeviceInfo(std::string udid, std::string networkId, std::string deviceName, uint32_t deviceType)
    : udid_(std::move(udid)),
      networkId_(std::move(networkId)),
      deviceName_(std::move(deviceName)),
      deviceType_(deviceType)
{
    SYNT_LOGI(CLIENT_LABEL, "create:device = %{public}s, deviceName= %{public}s, deviceType = %{public}u",
              PickerResult::StringToAnonymous(networkId_).c_str(), deviceName_.c_str(), deviceType_);
}

DeviceInfo::~DeviceInfo()
{
    LogDeviceInfoDestroyed(networkId_, deviceName_, deviceType_);
}

bool DeviceInfo::Marshalling(Parcel& parcel) const
{
    bool written = parcel.WriteString(udid_) && parcel.WriteString(networkId_) && parcel.WriteString(deviceName_) &&
                   parcel.WriteUint32(deviceType_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL,
                  "failed:udid_:%{public}s, networkId_:%{public}s, deviceName_:%{public}s, deviceType:%{public}u",
                  PickerResult::StringToAnonymous(udid_).c_str(), networkId_.c_str(), deviceName_.c_str(), deviceType_);
        return false;
    }
    SYNT_LOGI(CLIENT_LABEL,
              "success:udid_:%{public}s, networkId_:%{public}s, deviceName_:%{public}s, deviceType:%{public}u",
              PickerResult::StringToAnonymous(udid_).c_str(), PickerResult::StringToAnonymous(networkId_).c_str(),
              deviceName_.c_str(), deviceType_);
    return true;
}

sptr<DeviceInfo> DeviceInfo::Unmarshalling(Parcel& parcel)
{
    std::string udid = parcel.ReadString();
    std::string networkId = parcel.ReadString();
    std::string deviceName = parcel.ReadString();
    uint32_t deviceType = parcel.ReadUint32();
    // The arguments are moved only once the allocation has succeeded (a
    // failed non-throwing new constructs nothing), so the line below still
    // prints what was read.
    sptr<DeviceInfo> info =
        new (std::nothrow) DeviceInfo(std::move(udid), std::move(networkId), std::move(deviceName), deviceType);
    if (info == nullptr) {
        SYNT_LOGE(CLIENT_LABEL,
                  "new DeviceInfo failed, udid:%{public}s, networkId:%{public}s, deviceName:%{public}s,"
                  "deviceType:%{public}u",
                  PickerResult::StringToAnonymous(udid).c_str(), networkId.c_str(), deviceName.c_str(), deviceType);
        return nullptr;
    }
    return info;
}

bool AppendDeviceInfo(Parcel& parcel, std::vector<DeviceInfo>& list)
{
    if (parcel.ReadInt32() == 0) {
        return false;
    }
    std::string udid = parcel.ReadString();
    std::string networkId = parcel.ReadString();
    std::string deviceName = parcel.ReadString();
    uint32_t deviceType = parcel.ReadUint32();
    const DeviceInfo& info =
        list.emplace_back(std::move(udid), std::move(networkId), std::move(deviceName), deviceType);
    if (IsLogLevelEnabled(LOG_INFO)) {
        LogDeviceInfoDestroyed(info.GetDeviceNetworkId(), info.GetDeviceName(), info.GetDeviceType());
    }
    return true;
}

// ---------------------------------------------------------------------------
// DeviceServiceInfo

DeviceServiceInfo::DeviceServiceInfo(std::string deviceName, uint32_t deviceType, std::string deviceHashId,
                                     std::string deviceId, std::vector<std::string> serviceRuleList,
                                     std::string networkId, std::string brMac, std::string extraInfo)
    : deviceName_(std::move(deviceName)),
      deviceType_(deviceType),
      deviceHashId_(std::move(deviceHashId)),
      deviceId_(std::move(deviceId)),
      serviceRuleList_(std::move(serviceRuleList)),
      networkId_(std::move(networkId)),
      brMac_(std::move(brMac)),
      extraInfo_(std::move(extraInfo))
{
    SYNT_LOGI(CLIENT_LABEL, "create:device = %{public}s, deviceName= %{public}s, deviceType = %{public}u",
              PickerResult::StringToAnonymous(networkId_).c_str(), deviceName_.c_str(), deviceType_);
}

DeviceServiceInfo::~DeviceServiceInfo()
{
    SYNT_LOGI(CLIENT_LABEL, "destory:device = %{public}s, deviceName= %{public}s, deviceType = %{public}u",
              PickerResult::StringToAnonymous(networkId_).c_str(), deviceName_.c_str(), deviceType_);
}

bool DeviceServiceInfo::Marshalling(Parcel& parcel) const
{
    bool written = parcel.WriteString(deviceName_) && parcel.WriteUint32(deviceType_) &&
                   parcel.WriteString(deviceHashId_) && parcel.WriteString(deviceId_) &&
                   parcel.WriteStringVector(serviceRuleList_) && parcel.WriteString(networkId_) &&
                   parcel.WriteString(brMac_) && parcel.WriteString(extraInfo_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL,
                  "failed:udid_:%{public}s, networkId_:%{public}s, deviceName_:%{public}s, deviceType:%{public}u",
                  PickerResult::StringToAnonymous(deviceId_).c_str(), networkId_.c_str(), deviceName_.c_str(),
                  deviceType_);
        return false;
    }
    SYNT_LOGI(CLIENT_LABEL,
              "success:udid_:%{public}s, networkId_:%{public}s, deviceName_:%{public}s, deviceType:%{public}u",
              PickerResult::StringToAnonymous(deviceId_).c_str(), PickerResult::StringToAnonymous(networkId_).c_str(),
              deviceName_.c_str(), deviceType_);
    return true;
}

sptr<DeviceServiceInfo> DeviceServiceInfo::Unmarshalling(Parcel& parcel)
{
    std::string deviceName = parcel.ReadString();
    uint32_t deviceType = parcel.ReadUint32();
    std::string deviceHashId = parcel.ReadString();
    std::string deviceId = parcel.ReadString();
    // An unreadable list leaves the rules empty; the fields after it are
    // still read, and come out empty if the parcel is damaged past that point.
    std::vector<std::string> serviceRuleList;
    (void)parcel.ReadStringVector(&serviceRuleList);
    std::string networkId = parcel.ReadString();
    std::string brMac = parcel.ReadString();
    std::string extraInfo = parcel.ReadString();
    sptr<DeviceServiceInfo> info =
        new (std::nothrow) DeviceServiceInfo(deviceName, deviceType, deviceHashId, deviceId, std::move(serviceRuleList),
                                             networkId, std::move(brMac), std::move(extraInfo));
    if (info == nullptr) {
        SYNT_LOGE(CLIENT_LABEL,
                  "new DeviceServiceInfo failed, udid:%{public}s, networkId:%{public}s, deviceName:%{public}s,"
                  "deviceType:%{public}u",
                  PickerResult::StringToAnonymous(deviceId).c_str(), networkId.c_str(), deviceName.c_str(), deviceType);
        return nullptr;
    }
    return info;
}

// ---------------------------------------------------------------------------
// LocalInfo

LocalInfo::LocalInfo(std::string localAbilityName, std::string localBundleName, std::string localDeviceId,
                     std::string localModuleName, uint32_t localDeviceType)
    : localAbilityName_(std::move(localAbilityName)),
      localBundleName_(std::move(localBundleName)),
      localDeviceId_(std::move(localDeviceId)),
      localModuleName_(std::move(localModuleName)),
      localDeviceType_(localDeviceType)
{
    SYNT_LOGI(CLIENT_LABEL,
              "localAbilityName=%{public}s, localBundleName=%{public}s,localDeviceId=%{public}s, "
              "localModuleName=%{public}s, localDeviceType=%{public}u",
              PickerResult::StringToAnonymous(localAbilityName_).c_str(), localBundleName_.c_str(),
              PickerResult::StringToAnonymous(localDeviceId_).c_str(), localModuleName_.c_str(), localDeviceType_);
}

LocalInfo::~LocalInfo()
{
    SYNT_LOGI(CLIENT_LABEL,
              "destory:localAbilityName = %{public}s, localBundleName = %{public}s, localDeviceId = %{public}s, "
              "localModuleName=%{public}s, localDeviceType = %{public}u",
              localAbilityName_.c_str(), localBundleName_.c_str(),
              PickerResult::StringToAnonymous(localDeviceId_).c_str(), localModuleName_.c_str(), localDeviceType_);
}

bool LocalInfo::Marshalling(Parcel& parcel) const
{
    bool written = parcel.WriteString(localAbilityName_) && parcel.WriteString(localBundleName_) &&
                   parcel.WriteString(localDeviceId_) && parcel.WriteString(localModuleName_) &&
                   parcel.WriteUint32(localDeviceType_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL,
                  "failed:localAbilityName_:%{public}s, localBundleName_:%{public}s, localDeviceId_:%{public}s, "
                  "localModuleName_:%{public}s, localDeviceType_:%{public}u",
                  localAbilityName_.c_str(), localBundleName_.c_str(),
                  PickerResult::StringToAnonymous(localDeviceId_).c_str(), localModuleName_.c_str(), localDeviceType_);
        return false;
    }
    SYNT_LOGI(CLIENT_LABEL,
              "localAbilityName_:%{public}s, localBundleName_:%{public}s, localDeviceId_:%{public}s, "
              "localModuleName_:%{public}s, localDeviceType_:%{public}u",
              localAbilityName_.c_str(), localBundleName_.c_str(),
              PickerResult::StringToAnonymous(localDeviceId_).c_str(), localModuleName_.c_str(), localDeviceType_);
    return true;
}

sptr<LocalInfo> LocalInfo::Unmarshalling(Parcel& parcel)
{
    std::string localAbilityName = parcel.ReadString();
    std::string localBundleName = parcel.ReadString();
    std::string localDeviceId = parcel.ReadString();
    std::string localModuleName = parcel.ReadString();
    uint32_t localDeviceType = parcel.ReadUint32();
    sptr<LocalInfo> info = new (std::nothrow)
        LocalInfo(localAbilityName, localBundleName, localDeviceId, localModuleName, localDeviceType);
    if (info == nullptr) {
        SYNT_LOGE(CLIENT_LABEL,
                  "new LocalInfo failed, localAbilityName:%{public}s, localBundleName:%{public}s, "
                  "localDeviceId:%{public}s, localModuleNam:%{public}s, localDeviceType:%{public}u",
                  localAbilityName.c_str(), localBundleName.c_str(),
                  PickerResult::StringToAnonymous(localDeviceId).c_str(), localModuleName.c_str(), localDeviceType);
        return nullptr;
    }
    return info;
}

// ---------------------------------------------------------------------------
// AbilityFilter

AbilityFilter::AbilityFilter(std::string bundleName, std::string abilityType, std::string abilityDescription,
                             uint32_t deviceType, uint32_t accountType)
    : bundleName_(std::move(bundleName)),
      abilityType_(std::move(abilityType)),
      abilityDescription_(std::move(abilityDescription)),
      deviceType_(deviceType),
      accountType_(accountType)
{
    SYNT_LOGI(CLIENT_LABEL,
              "bundleName = %{public}s, abilityType = %{public}s, description = %{public}s,"
              "deviceType = %{public}u, accountType = %{public}u",
              bundleName_.c_str(), abilityType_.c_str(), abilityDescription_.c_str(), deviceType_, accountType_);
}

AbilityFilter::~AbilityFilter()
{
    SYNT_LOGI(CLIENT_LABEL, "destory=%{public}s, description=%{public}s, deviceType=%{public}u, accountType=%{public}u",
              abilityType_.c_str(), abilityDescription_.c_str(), deviceType_, accountType_);
}

bool AbilityFilter::Marshalling(Parcel& parcel) const
{
    bool written = parcel.WriteString(bundleName_) && parcel.WriteString(abilityType_) &&
                   parcel.WriteString(abilityDescription_) && parcel.WriteUint32(deviceType_) &&
                   parcel.WriteUint32(accountType_) && parcel.WriteString(action_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL,
                  "failed: bundleName: %{public}s, abilityType: %{public}s, abilityDescription: %{public}s,"
                  "deviceType:%{public}u, , accountType:%{public}u",
                  bundleName_.c_str(), abilityType_.c_str(), abilityDescription_.c_str(), deviceType_, accountType_);
        return false;
    }
    return true;
}

sptr<AbilityFilter> AbilityFilter::Unmarshalling(Parcel& parcel)
{
    std::string bundleName = parcel.ReadString();
    std::string abilityType = parcel.ReadString();
    std::string abilityDescription = parcel.ReadString();
    uint32_t deviceType = parcel.ReadUint32();
    uint32_t accountType = parcel.ReadUint32();
    std::string action = parcel.ReadString();
    sptr<AbilityFilter> filter =
        new (std::nothrow) AbilityFilter(bundleName, abilityType, abilityDescription, deviceType, accountType);
    if (filter == nullptr) {
        SYNT_LOGE(CLIENT_LABEL,
                  "new AbilityFilter failed, bundleName = %{public}s, abilityType:%{public}s, "
                  "abilityDescription:%{public}s,deviceType:%{public}u, accountType:%{public}u",
                  bundleName.c_str(), abilityType.c_str(), abilityDescription.c_str(), deviceType, accountType);
        return nullptr;
    }
    filter->SetAction(std::move(action));
    return filter;
}

// ---------------------------------------------------------------------------
// DeviceFilter

DeviceFilter::DeviceFilter(std::vector<uint32_t> deviceTypes, std::vector<uint32_t> accountTypes)
    : deviceTypes_(std::move(deviceTypes)), accountTypes_(std::move(accountTypes))
{
}

DeviceFilter::~DeviceFilter() = default;

bool DeviceFilter::Marshalling(Parcel& parcel) const
{
    if (!parcel.WriteUInt32Vector(deviceTypes_) || !parcel.WriteUInt32Vector(accountTypes_)) {
        SYNT_LOGE(CLIENT_LABEL, "write failed, dt:%{public}lu at:%{public}lu",
                  static_cast<unsigned long>(deviceTypes_.size()), static_cast<unsigned long>(accountTypes_.size()));
        return false;
    }
    return true;
}

sptr<DeviceFilter> DeviceFilter::Unmarshalling(Parcel& parcel)
{
    std::vector<uint32_t> deviceTypes;
    std::vector<uint32_t> accountTypes;
    if (!parcel.ReadUInt32Vector(&deviceTypes) || !parcel.ReadUInt32Vector(&accountTypes)) {
        SYNT_LOGE(CLIENT_LABEL, "read vector failed");
        return nullptr;
    }
    // An allocation failure here gives null without a line of its own.
    return new (std::nothrow) DeviceFilter(std::move(deviceTypes), std::move(accountTypes));
}

bool DeviceFilter::isDeviceTypeMatch(uint32_t deviceType)
{
    for (uint32_t accepted : deviceTypes_) {
        if (accepted == deviceType) {
            return true;
        }
    }
    return false;
}

bool DeviceFilter::isAccountTypeMatch(uint32_t accountType)
{
    for (uint32_t accepted : accountTypes_) {
        if (accepted == accountType) {
            return true;
        }
    }
    return false;
}

// ---------------------------------------------------------------------------
// PickerResult

PickerResult::PickerResult()
{
    SYNT_LOGI(CLIENT_LABEL, "create: abilityFilter_ = %{public}d, deviceInfo_= %{public}d ", IsNull(abilityFilter_),
              IsNull(deviceInfo_));
}

// The members are released after the line, local info first (reverse
// declaration order).
PickerResult::~PickerResult()
{
    SYNT_LOGI(CLIENT_LABEL, "destory: abilityFilter_ = %{public}d, deviceInfo_= %{public}d ", IsNull(abilityFilter_),
              IsNull(deviceInfo_));
}

bool PickerResult::Marshalling(Parcel& parcel) const
{
    // Each conversion to sptr<Parcelable> holds a strong reference for the
    // duration of its write. A null member is written as presence 0.
    bool written = parcel.WriteStrongParcelable(abilityFilter_) && parcel.WriteStrongParcelable(deviceInfo_) &&
                   parcel.WriteStrongParcelable(localInfo_);
    if (!written) {
        SYNT_LOGE(CLIENT_LABEL,
                  "write PickerResult failed: abilityFilter_ = %{public}d, deviceInfo_= %{public}d localInfo_= "
                  "%{public}d",
                  IsNull(abilityFilter_), IsNull(deviceInfo_), IsNull(localInfo_));
        return false;
    }
    return true;
}

sptr<PickerResult> PickerResult::Unmarshalling(Parcel& parcel)
{
    sptr<PickerResult> result = new (std::nothrow) PickerResult();
    if (result == nullptr) {
        SYNT_LOGE(CLIENT_LABEL, "new PickerResult failed");
        return nullptr;
    }
    // All three are read whatever the earlier ones gave, each from where the
    // previous read stopped.
    sptr<AbilityFilter> abilityFilter = parcel.ReadStrongParcelable<AbilityFilter>();
    sptr<DeviceInfo> deviceInfo = parcel.ReadStrongParcelable<DeviceInfo>();
    sptr<LocalInfo> localInfo = parcel.ReadStrongParcelable<LocalInfo>();
    if (abilityFilter == nullptr || deviceInfo == nullptr || localInfo == nullptr) {
        SYNT_LOGE(CLIENT_LABEL, "read abilityFilter_ or deviceInfo_ failed");
        return nullptr;
    }
    result->abilityFilter_ = std::move(abilityFilter);
    result->deviceInfo_ = std::move(deviceInfo);
    result->localInfo_ = std::move(localInfo);
    return result;
}

std::string PickerResult::StringToAnonymous(const std::string& str)
{
    // The length is taken as 32 bits; no identifier comes anywhere near that.
    uint32_t length = static_cast<uint32_t>(str.size());
    if (length < ANONYMOUS_KEEP_BYTES) {
        return ANONYMOUS_MASK;
    }
    std::string masked = str.substr(0, ANONYMOUS_KEEP_BYTES);
    masked += ANONYMOUS_MASK;
    masked += str.substr(length - ANONYMOUS_KEEP_BYTES);
    return masked;
}

// ---------------------------------------------------------------------------
// ServiceFilter

ServiceFilter::ServiceFilter(std::string serviceName, std::vector<std::string> deviceType)
    : serviceName_(std::move(serviceName)), deviceType_(std::move(deviceType))
{
}

ServiceFilter::~ServiceFilter() = default;

bool ServiceFilter::Marshalling(Parcel& parcel) const
{
    if (!parcel.WriteString(serviceName_) || !parcel.WriteStringVector(deviceType_)) {
        SYNT_LOGE(CLIENT_LABEL, "write ServiceFilter failed: serviceName_ = %{public}s", serviceName_.c_str());
        return false;
    }
    return true;
}

sptr<ServiceFilter> ServiceFilter::Unmarshalling(Parcel& parcel)
{
    std::string serviceName = parcel.ReadString();
    // An unreadable list leaves the filter without types, which accepts
    // every device type.
    std::vector<std::string> deviceType;
    (void)parcel.ReadStringVector(&deviceType);
    sptr<ServiceFilter> filter = new (std::nothrow) ServiceFilter(std::move(serviceName), std::move(deviceType));
    if (filter == nullptr) {
        SYNT_LOGE(CLIENT_LABEL, "new ServiceFilter failed");
        return nullptr;
    }
    return filter;
}

bool ServiceFilter::IsMatch(std::shared_ptr<std::vector<std::string>> remoteServiceNames, const DeviceInfo& deviceInfo)
{
    if (!IsMatchServiceName(remoteServiceNames)) {
        SYNT_LOGI(CLIENT_LABEL, "filtered by service name");
        return false;
    }
    if (!IsMatchDeviceType(deviceInfo)) {
        SYNT_LOGI(CLIENT_LABEL, "filtered by device type");
        return false;
    }
    return true;
}

bool ServiceFilter::IsMatchServiceName(std::shared_ptr<std::vector<std::string>> remoteServiceNames)
{
    SYNT_LOGI(CLIENT_LABEL, "filter serviceName: %{public}s", serviceName_.c_str());
    if (serviceName_.empty()) {
        return true;
    }
    if (remoteServiceNames == nullptr) {
        SYNT_LOGI(CLIENT_LABEL, "GetRemoteServiceNames nullptr");
        return false;
    }
    SYNT_LOGI(CLIENT_LABEL, "get remote serviceNames size:%{public}zu", remoteServiceNames->size());
    for (const std::string& name : *remoteServiceNames) {
        if (name == serviceName_) {
            return true;
        }
    }
    return false;
}

bool ServiceFilter::IsMatchDeviceType(const DeviceInfo& deviceInfo)
{
    uint32_t remoteType = deviceInfo.GetDeviceType();
    SYNT_LOGI(CLIENT_LABEL, "filter deviceTypes size: %{public}zu, get remote device type:%{public}u",
              deviceType_.size(), remoteType);
    if (deviceType_.empty()) {
        return true;
    }
    for (const std::string& accepted : deviceType_) {
        if (ConvertDeviceType(remoteType) == accepted) {
            return true;
        }
    }
    return false;
}

std::string ServiceFilter::ConvertDeviceType(uint32_t deviceType)
{
    // Built per call from the load-time names; nothing is cached, so the
    // table can never be seen half-built by a concurrent caller.
    std::unordered_map<uint32_t, std::string> names;
    names.max_load_factor(1.0f);
    names.emplace(DEVICE_TYPE_CODE_UNKNOWN, DEVICE_TYPE_UNKNOWN);
    names.emplace(DEVICE_TYPE_CODE_PHONE, DEVICE_TYPE_PHONE);
    names.emplace(DEVICE_TYPE_CODE_PAD, DEVICE_TYPE_PAD);
    names.emplace(DEVICE_TYPE_CODE_TV, DEVICE_TYPE_TV);
    names.emplace(DEVICE_TYPE_CODE_CAR, DEVICE_TYPE_CAR);
    names.emplace(DEVICE_TYPE_CODE_WATCH, DEVICE_TYPE_WATCH);
    names.emplace(DEVICE_TYPE_CODE_WIFI_CAMERA, DEVICE_TYPE_WIFI_CAMERA);
    names.emplace(DEVICE_TYPE_CODE_PC, DEVICE_TYPE_PC);
    names.emplace(DEVICE_TYPE_CODE_SMART_DISPLAY, DEVICE_TYPE_SMART_DISPLAY);
    names.emplace(DEVICE_TYPE_CODE_2IN1, DEVICE_TYPE_2IN1);
    auto found = names.find(deviceType);
    if (found == names.end()) {
        return "";
    }
    return found->second;
}

}  // namespace Syntavo
}  // namespace Tavik
