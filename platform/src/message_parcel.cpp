#include "message_parcel.h"

namespace Tavik {

namespace {
// A request carries a handful of callback objects at most; a table larger
// than this is refused rather than grown without bound.
constexpr size_t MAX_OBJECTS_PER_PARCEL = 1024;
}  // namespace

bool MessageParcel::WriteInterfaceToken(const std::u16string& name)
{
    WriteScope scope;
    return scope.Allowed() && WriteString16(name);
}

std::u16string MessageParcel::ReadInterfaceToken()
{
    return ReadString16();
}

bool MessageParcel::WriteRemoteObject(const sptr<IRemoteObject>& object)
{
    WriteScope scope;
    if (!scope.Allowed() || object == nullptr || objects_.size() >= MAX_OBJECTS_PER_PARCEL) {
        return false;
    }
    if (!WriteUint32(static_cast<uint32_t>(objects_.size()))) {
        return false;
    }
    objects_.push_back(object);
    return true;
}

sptr<IRemoteObject> MessageParcel::ReadRemoteObject()
{
    size_t start = GetReadPosition();
    uint32_t index = 0;
    if (!ReadUint32(index)) {
        return nullptr;
    }
    if (index >= objects_.size()) {
        RewindRead(start);
        return nullptr;
    }
    return objects_[index];
}

}  // namespace Tavik
