// syslog: a program whose messages all go to syslog, through the handler that the library includes.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/services/Messages.h"

#include <syslog.h>

int main() {
    // Messages are sent to stderr too, so that this example shows something.
    openlog("pumps", LOG_PERROR, LOG_DAEMON);
    VorlanPosix::setMessageHandler(VorlanPosix::syslogHandler);

    static MsgClamp clamp;
    infoMsg("twenty times the same error");
    for (int pump = 1; pump <= 20; ++pump) {
        clamp.error("pump %d: no answer", pump);
    }
    MsgClamp::flushAll();
}
