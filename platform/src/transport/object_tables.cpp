#include "transport/object_tables.h"

#include <new>

#include "transport/socket_proxy.h"
#include "transport/transport_log.h"

namespace Tavik {
namespace Transport {

ObjectTables::ObjectTables(const Connection* owner, const sptr<IRemoteObject>& root) : owner_(owner)
{
    if (root != nullptr) {
        exports_[ROOT_OBJECT_ID] = ExportEntry{root, 0};
        exportIds_[root.GetRefPtr()] = ROOT_OBJECT_ID;
    }
}

bool ObjectTables::Export(const std::vector<sptr<IRemoteObject>>& objects, std::vector<ObjectEntry>& entries)
{
    for (const auto& object : objects) {
        if (object == nullptr) {
            TRANSPORT_LOGW("null entry in a parcel's object table");
            return false;
        }
    }
    entries.clear();
    entries.reserve(objects.size());
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) {
        return false;
    }
    for (const auto& object : objects) {
        ObjectEntry entry{};
        auto* proxy = dynamic_cast<SocketProxy*>(object.GetRefPtr());
        if (proxy != nullptr && proxy->GetConnection().get() == owner_) {
            entry.owner = static_cast<uint8_t>(ObjectOwner::RECEIVER);
            entry.id = proxy->GetId();
        } else {
            entry.owner = static_cast<uint8_t>(ObjectOwner::SENDER);
            entry.id = ExportLocked(object);
        }
        entries.push_back(entry);
    }
    return true;
}

uint32_t ObjectTables::ExportLocked(const sptr<IRemoteObject>& object)
{
    auto known = exportIds_.find(object.GetRefPtr());
    if (known != exportIds_.end()) {
        if (known->second != ROOT_OBJECT_ID) {
            ++exports_[known->second].sentReferences;
        }
        return known->second;
    }
    uint32_t id = 0;
    do {
        id = nextExportId_++;
    } while (id == ROOT_OBJECT_ID || exports_.count(id) != 0);
    exports_[id] = ExportEntry{object, 1};
    exportIds_[object.GetRefPtr()] = id;
    return id;
}

void ObjectTables::Unexport(const std::vector<ObjectEntry>& entries, std::vector<sptr<IRemoteObject>>& dropped)
{
    std::lock_guard<std::mutex> lock(mu_);
    for (const auto& entry : entries) {
        if (entry.owner != static_cast<uint8_t>(ObjectOwner::SENDER) || entry.id == ROOT_OBJECT_ID) {
            continue;
        }
        auto it = exports_.find(entry.id);
        if (it == exports_.end()) {
            continue;
        }
        if (--it->second.sentReferences == 0) {
            exportIds_.erase(it->second.object.GetRefPtr());
            dropped.push_back(std::move(it->second.object));
            exports_.erase(it);
        }
    }
}

FrameError ObjectTables::FindTarget(uint32_t id, sptr<IRemoteObject>& target)
{
    std::lock_guard<std::mutex> lock(mu_);
    auto it = exports_.find(id);
    if (it == exports_.end()) {
        return FrameError::UNKNOWN_OBJECT;
    }
    target = it->second.object;
    return FrameError::NONE;
}

FrameError ObjectTables::Import(const std::shared_ptr<Connection>& connection, const ObjectEntry* entries,
                                size_t count, std::vector<sptr<IRemoteObject>>& objects)
{
    for (size_t i = 0; i < count; ++i) {
        FrameError error = CheckObjectEntry(entries[i]);
        if (error != FrameError::NONE) {
            return error;
        }
    }
    objects.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        if (entries[i].owner == static_cast<uint8_t>(ObjectOwner::RECEIVER)) {
            sptr<IRemoteObject> own;
            FrameError error = FindTarget(entries[i].id, own);
            if (error != FrameError::NONE) {
                return error;
            }
            objects.push_back(std::move(own));
        } else {
            sptr<IRemoteObject> proxy = ImportProxy(connection, entries[i].id);
            if (proxy == nullptr) {
                return FrameError::OVERLOAD;
            }
            objects.push_back(std::move(proxy));
        }
    }
    return FrameError::NONE;
}

sptr<IRemoteObject> ObjectTables::ImportProxy(const std::shared_ptr<Connection>& connection, uint32_t id)
{
    // Declared before the lock: a proxy that loses its last reference here
    // (a promotion racing its destructor) must not go under mu_.
    sptr<SocketProxy> proxy;
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) {
        return nullptr;
    }
    uint64_t counted = id == ROOT_OBJECT_ID ? 0 : 1;
    auto it = imports_.find(id);
    if (it != imports_.end()) {
        proxy = it->second.proxy.promote();
        if (proxy == nullptr) {
            // The previous proxy is on its way out; its references carry
            // over to the new one, whose destructor releases them all.
            proxy = new (std::nothrow) SocketProxy(connection, id);
            if (proxy == nullptr) {
                return nullptr;
            }
            it->second.proxy = proxy;
            it->second.raw = proxy.GetRefPtr();
        }
        it->second.receivedReferences += counted;
        return proxy;
    }
    proxy = new (std::nothrow) SocketProxy(connection, id);
    if (proxy == nullptr) {
        return nullptr;
    }
    imports_[id] = ImportEntry{proxy, proxy.GetRefPtr(), counted};
    return proxy;
}

FrameError ObjectTables::Release(uint32_t id, uint32_t count, std::vector<sptr<IRemoteObject>>& dropped)
{
    std::lock_guard<std::mutex> lock(mu_);
    auto it = exports_.find(id);
    if (it == exports_.end() || count > it->second.sentReferences) {
        return FrameError::UNKNOWN_OBJECT;
    }
    it->second.sentReferences -= count;
    if (it->second.sentReferences == 0) {
        exportIds_.erase(it->second.object.GetRefPtr());
        dropped.push_back(std::move(it->second.object));
        exports_.erase(it);
    }
    return FrameError::NONE;
}

uint64_t ObjectTables::ForgetProxy(uint32_t id, const SocketProxy* proxy)
{
    std::lock_guard<std::mutex> lock(mu_);
    auto it = imports_.find(id);
    if (it == imports_.end() || it->second.raw != proxy) {
        return 0;
    }
    uint64_t references = it->second.receivedReferences;
    imports_.erase(it);
    return references;
}

void ObjectTables::Close(std::vector<sptr<IRemoteObject>>& dropped, std::vector<sptr<SocketProxy>>& proxies)
{
    std::lock_guard<std::mutex> lock(mu_);
    closed_ = true;
    for (auto& entry : exports_) {
        dropped.push_back(std::move(entry.second.object));
    }
    exports_.clear();
    exportIds_.clear();
    for (auto& entry : imports_) {
        sptr<SocketProxy> proxy = entry.second.proxy.promote();
        if (proxy != nullptr) {
            proxies.push_back(std::move(proxy));
        }
    }
    imports_.clear();
}

size_t ObjectTables::ExportCount() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return exports_.size() - exports_.count(ROOT_OBJECT_ID);
}

size_t ObjectTables::ImportCount() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return imports_.size() - imports_.count(ROOT_OBJECT_ID);
}

}  // namespace Transport
}  // namespace Tavik
