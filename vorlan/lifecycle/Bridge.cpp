#include "vorlan/lifecycle/Bridge.h"

#include "vorlan/foundation/MessageServices.h"

void BridgeBase::noteIsInvalid() const {
    errorMsg("BridgeHook(%p) is invalid; callback cancelled\n", static_cast<void const*>(this));
}
