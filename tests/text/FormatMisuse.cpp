// Compiled by ctest, once for each call that it puts in the place of CALL; never linked.
#include "vorlan/text/FormatStr.h"

void use(FormatStr& text, va_list args);

void use(FormatStr& text, va_list args) {
    static_cast<void>(text);
    static_cast<void>(args);
    CALL;
}
