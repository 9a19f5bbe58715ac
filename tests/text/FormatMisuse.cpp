// Compiled by ctest, once for each call that it puts in the place of CALL; never linked.
#include "vorlan/text/FormatStr.h"

void use(FormatStr& text, va_list args) {
    CALL;
}
