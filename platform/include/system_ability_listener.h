// SystemAbilityListener: told when a system ability becomes available and
// when it goes away (ISystemAbilityManager::SubscribeSystemAbility).
//
// Available means that GetSystemAbility(id) returns the ability's object
// now: it was added in this process, published by this process, or its
// socket accepted a connection from a server we trust. Gone means that this
// object is no longer the one to talk to: it was removed or unpublished, or
// the connection to its process died. A service that restarts is reported
// as gone and then available again; an object replaced in the in-process
// table likewise.
//
// Threads: notifications run on a platform IPC thread, never under a lock
// of the platform's, one at a time per listener object and in the order
// the changes happened. A listener may call back into the platform,
// including GetSystemAbility and UnsubscribeSystemAbility of itself. It
// should return soon: while it runs, its later notifications wait (see
// docs/transport.md, "Being told when an ability comes and goes").
#ifndef TAVIK_PLATFORM_SYSTEM_ABILITY_LISTENER_H
#define TAVIK_PLATFORM_SYSTEM_ABILITY_LISTENER_H

#include <cstdint>

#include "refbase.h"

namespace Tavik {

class SystemAbilityListener : public virtual RefBase {
public:
    ~SystemAbilityListener() override = default;

    virtual void OnSystemAbilityAvailable(int32_t systemAbilityId) = 0;
    virtual void OnSystemAbilityGone(int32_t systemAbilityId) = 0;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_SYSTEM_ABILITY_LISTENER_H
