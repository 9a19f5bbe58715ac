// glog_sink: a program whose messages all go into glog, each at its severity; debug messages as VLOG(1).

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/services/Messages.h"
#include "vorlan/text/FormatStr.h"

#include <glog/logging.h>

VORLAN_PRINTF(2, 0) static bool toGlog(VorlanPosix::MessageKind kind, char const* fmt, va_list args) {
    FormatStr text(0);
    text.vformat(fmt, args);
    switch (kind) {
    case VorlanPosix::MessageKind::Error:
        LOG(ERROR) << text.get();
        break;
    case VorlanPosix::MessageKind::Warning:
        LOG(WARNING) << text.get();
        break;
    case VorlanPosix::MessageKind::Info:
        LOG(INFO) << text.get();
        break;
    case VorlanPosix::MessageKind::Debug:
        VLOG(1) << text.get();
    }
    return true;
}

int main(int /*argc*/, char** argv) {
    FLAGS_logtostderr = true;
    FLAGS_v = 1;
    google::InitGoogleLogging(argv[0]);
    VorlanPosix::setMessageHandler(toGlog);

    static MsgClamp clamp;
    infoMsg("twenty times the same error");
    for (int pump = 1; pump <= 20; ++pump) {
        clamp.error("pump %d: no answer", pump);
    }
    MsgClamp::flushAll();
    warningMsg("that was too much");
    debugMsg("going home");

    // glog ends here, messages of exit handlers come later.
    VorlanPosix::setMessageHandler(nullptr);
    google::ShutdownGoogleLogging();
}
