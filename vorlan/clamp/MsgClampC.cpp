#include "vorlan/clamp/MsgClampC.h"

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/clamp/MsgClampInternal.h"
#include "vorlan/foundation/ScopeLock.h"

#include <cstdio>

extern "C" bool clampedMsg(MsgClamp** site) {
    if (site == nullptr) {
        return false;
    }
    if (*site == nullptr) {
        *site = new MsgClamp;
    }
    return (*site)->clamped();
}

extern "C" char const* droppedMsg(MsgClamp** site) {
    if (site == nullptr || *site == nullptr) {
        return nullptr;
    }
    // The flusher may build the site's next prefix while the caller still prints this one: each thread gets
    // a copy of its own. A prefix has 63 characters at most.
    static thread_local char taken[64];
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(MsgClampInternal::getRef().getLock());
    char const* const prefix = (*site)->resetDrop();
    if (*prefix == '\0') {
        return "";
    }
    std::snprintf(taken, sizeof taken, "%s", prefix);
    return taken;
}
