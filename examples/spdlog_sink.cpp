// spdlog_sink: a program whose messages all go into spdlog, each at its level.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/services/Messages.h"
#include "vorlan/text/FormatStr.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

static spdlog::level::level_enum levelOf(VorlanPosix::MessageKind kind) {
    switch (kind) {
    case VorlanPosix::MessageKind::Error:
        return spdlog::level::err;
    case VorlanPosix::MessageKind::Warning:
        return spdlog::level::warn;
    case VorlanPosix::MessageKind::Info:
        return spdlog::level::info;
    case VorlanPosix::MessageKind::Debug:
        break;
    }
    return spdlog::level::debug;
}

VORLAN_PRINTF(2, 0) static bool toSpdlog(VorlanPosix::MessageKind kind, char const* fmt, va_list args) {
    FormatStr text(0);
    text.vformat(fmt, args);
    // As an argument: a brace in the text is no placeholder.
    spdlog::log(levelOf(kind), "{}", text.get());
    return true;
}

int main() {
    spdlog::set_default_logger(spdlog::stdout_logger_mt("pumps"));
    spdlog::set_level(spdlog::level::debug);
    spdlog::set_pattern("%n %l: %v");
    VorlanPosix::setMessageHandler(toSpdlog);

    static MsgClamp clamp;
    infoMsg("twenty times the same {error}");
    for (int pump = 1; pump <= 20; ++pump) {
        clamp.error("pump %d: no answer", pump);
    }
    MsgClamp::flushAll();
    warningMsg("that was too much");
    debugMsg("going home");

    // spdlog ends with main, messages of exit handlers come later.
    VorlanPosix::setMessageHandler(nullptr);
}
