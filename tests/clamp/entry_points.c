/* The C entry points as C code uses them: one message, with its prefix, unless it is refused. */
#include "vorlan/clamp/MsgClampC.h"
#include "vorlan/foundation/MessageServices.h"

bool sendFromC(MsgClamp** site, int number) {
    if (clampedMsg(site)) {
        return false;
    }
    errorMsg("%stick %d\n", droppedMsg(site), number);
    return true;
}
