// MessageParcel: a Parcel that can also carry an interface token and remote
// objects.
//
// Remote objects travel in an object table beside the data: writing one
// appends it to the table and writes its uint32 index into the data. A
// transport sends the table next to the bytes and rebuilds it on the other
// side (as proxies for the peer's objects), so the index stays meaningful.
#ifndef TAVIK_PLATFORM_MESSAGE_PARCEL_H
#define TAVIK_PLATFORM_MESSAGE_PARCEL_H

#include <string>
#include <vector>

#include "iremote_object.h"
#include "parcel.h"

namespace Tavik {

class MessageParcel : public Parcel {
public:
    MessageParcel() = default;
    ~MessageParcel() override = default;
    MessageParcel(MessageParcel&&) noexcept = default;
    MessageParcel& operator=(MessageParcel&&) noexcept = default;

    // The interface token is one std::u16string item.
    bool WriteInterfaceToken(const std::u16string& name);
    // Empty when no token can be read.
    std::u16string ReadInterfaceToken();

    // A null object is refused (returns false, writes nothing).
    bool WriteRemoteObject(const sptr<IRemoteObject>& object);
    // Null when the index is missing or does not name a table entry.
    sptr<IRemoteObject> ReadRemoteObject();

    // --- object table, for transports -----------------------------------
    const std::vector<sptr<IRemoteObject>>& GetObjects() const { return objects_; }
    size_t GetObjectCount() const { return objects_.size(); }
    void SetObjects(std::vector<sptr<IRemoteObject>> objects) { objects_ = std::move(objects); }
    void ClearObjects() { objects_.clear(); }

private:
    std::vector<sptr<IRemoteObject>> objects_;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_MESSAGE_PARCEL_H
