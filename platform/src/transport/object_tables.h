// The wire state of one connection (private to the transport): which of
// this process's objects the peer may name, and which proxies stand for the
// peer's objects.
//
// Exports: id -> (object, references sent). A stub (or a proxy of another
// connection, which is then forwarded) written into a parcel gets an id,
// the same one again while it is exported, and one more reference each time
// it is sent. Id 0 is the root, the published object of a server
// connection: never counted, never released. The peer returns references
// with release frames; at zero the id leaves the table and the object is
// dropped.
//
// Imports: id -> (proxy, references received). The proxy is held weakly:
// the application owns it. When its last strong reference goes, the proxy
// asks for its entry to be forgotten and the connection releases every
// reference received for the id in one frame.
//
// Guarded by mu_, a leaf lock: nothing else is locked under it and no
// object's last reference goes while it is held (dropped objects are handed
// back to the caller, who lets them go with no lock held).
#ifndef TAVIK_PLATFORM_TRANSPORT_OBJECT_TABLES_H
#define TAVIK_PLATFORM_TRANSPORT_OBJECT_TABLES_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "iremote_object.h"
#include "transport/frame.h"

namespace Tavik {
namespace Transport {

class Connection;
class SocketProxy;

class ObjectTables {
public:
    // `owner` is the connection the tables belong to: a proxy of it is sent
    // back as the receiver's own object. `root` (may be null) answers id 0.
    ObjectTables(const Connection* owner, const sptr<IRemoteObject>& root);
    ObjectTables(const ObjectTables&) = delete;
    ObjectTables& operator=(const ObjectTables&) = delete;

    // --- sending ---
    // The entries for a parcel's object table, counting one reference per
    // exported entry. False for a null object or closed tables (nothing is
    // counted then).
    bool Export(const std::vector<sptr<IRemoteObject>>& objects, std::vector<ObjectEntry>& entries);
    // Takes back the references of entries that never reached the peer.
    void Unexport(const std::vector<ObjectEntry>& entries, std::vector<sptr<IRemoteObject>>& dropped);

    // --- receiving ---
    // The exported object a transaction names as its target.
    FrameError FindTarget(uint32_t id, sptr<IRemoteObject>& target);
    // The objects of a received frame: our own for owner-1 entries, proxies
    // of `connection` for the others.
    FrameError Import(const std::shared_ptr<Connection>& connection, const ObjectEntry* entries, size_t count,
                      std::vector<sptr<IRemoteObject>>& objects);
    sptr<IRemoteObject> ImportProxy(const std::shared_ptr<Connection>& connection, uint32_t id);
    // A release frame: the peer gives back `count` references to `id`.
    FrameError Release(uint32_t id, uint32_t count, std::vector<sptr<IRemoteObject>>& dropped);
    // The proxy for `id` is being destroyed: forgets it and returns the
    // references to give back (0 when a newer proxy took over the id).
    uint64_t ForgetProxy(uint32_t id, const SocketProxy* proxy);

    // --- the end ---
    // Empties both tables for good: the exported objects and the live
    // proxies are handed back (the proxies to be told of the death).
    void Close(std::vector<sptr<IRemoteObject>>& dropped, std::vector<sptr<SocketProxy>>& proxies);

    // The root is not counted.
    size_t ExportCount() const;
    size_t ImportCount() const;

private:
    uint32_t ExportLocked(const sptr<IRemoteObject>& object);

    const Connection* const owner_;

    mutable std::mutex mu_;
    bool closed_ = false;
    struct ExportEntry {
        sptr<IRemoteObject> object;
        uint64_t sentReferences;
    };
    std::unordered_map<uint32_t, ExportEntry> exports_;
    std::unordered_map<const IRemoteObject*, uint32_t> exportIds_;
    uint32_t nextExportId_ = 1;
    struct ImportEntry {
        wptr<SocketProxy> proxy;
        // Identity of the proxy the entry belongs to; compared, never
        // dereferenced.
        const SocketProxy* raw;
        uint64_t receivedReferences;
    };
    std::unordered_map<uint32_t, ImportEntry> imports_;
};

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_OBJECT_TABLES_H
