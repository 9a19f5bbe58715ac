/* The same from C11, where the program sends its messages itself. */

#include "vorlan/clamp/MsgClampC.h"
#include "vorlan/foundation/MessageServices.h"

int main(void) {
    static MsgClamp* site;
    for (int pump = 1; pump <= 20; ++pump) {
        if (!clampedMsg(&site)) {
            errorMsg("%spump %d: no answer", droppedMsg(&site), pump);
        }
    }
    return 0;
}
