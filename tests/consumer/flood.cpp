// A user's first program: one place that repeats itself twenty times.

#include "vorlan/clamp/MsgClamp.h"

int main() {
    static MsgClamp clamp;
    for (int pump = 1; pump <= 20; ++pump) {
        clamp.error("pump %d: no answer", pump);
    }
    clamp.flush();
    return 0;
}
