// Which system abilities are available, and who wants to know (private to
// the platform). Behind ISystemAbilityManager::SubscribeSystemAbility of the
// default manager.
//
// One watch per subscribed id. An id is available while any of these holds:
//   - an object is in the in-process table (AddSystemAbility), told here
//     directly by the default manager;
//   - this process publishes it on a socket, told here by
//     PublishSystemAbility and UnpublishSystemAbility;
//   - the watch holds a connection to the ability's server: made when the
//     socket appears in the runtime directory (inotify), when the watch
//     starts, and after the previous connection died; the proxy's death
//     recipient ends it.
// Each change of that answer becomes one notice for every subscribed
// listener.
//
// Runtime directory: one inotify descriptor per process, open while any
// watch lives. A watch whose directory exists watches it for the socket
// appearing (created or renamed into place) and for its own removal or
// replacement; one whose directory does not exist yet watches the nearest
// existing ancestor for the next component of the path instead, and moves
// down as the folders appear (and up again when they go). No timer, no
// polling.
//
// Notices: each listener object has one queue, delivered by one IPC task at
// a time (so never two calls at once for one listener) in the order the
// changes happened, with no lock held. A queued "available" whose "gone"
// arrives before it was delivered is dropped together with that "gone", so
// at most two notices per listener and id ever wait: a slow listener costs
// memory bounded by the ids it subscribed, and never misses the last state
// nor a restart (gone, then available) that it has not seen yet.
//
// Locks: one mutex, taken last; nothing is called under it except inotify
// system calls and IpcRuntime::Post. Connecting, death recipients and
// listeners run outside it.
#ifndef TAVIK_PLATFORM_TRANSPORT_ABILITY_WATCH_H
#define TAVIK_PLATFORM_TRANSPORT_ABILITY_WATCH_H

#include <cstdint>

#include "refbase.h"
#include "system_ability_listener.h"

namespace Tavik {
namespace Transport {

// 0, or IPC_ERR_INVALID_DATA for a null listener or a negative id (and, for
// Unsubscribe, a listener that was not subscribed to the id).
int32_t SubscribeAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener);
int32_t UnsubscribeAbility(int32_t systemAbilityId, const sptr<SystemAbilityListener>& listener);

// The in-process table changed: `present` after AddSystemAbility (also when
// it replaced an object, which is reported as gone and back), false after
// RemoveSystemAbility.
void NoteLocalAbility(int32_t systemAbilityId, bool present);
// This process is about to put a socket for the id in place: the watch
// must not take it for another server (it would connect to itself).
void NotePublishing(int32_t systemAbilityId);
// This process started serving the id on a socket, or stopped (or gave up
// before it started).
void NotePublished(int32_t systemAbilityId, bool published);

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_ABILITY_WATCH_H
