// Messages.h: sends the library's messages elsewhere than to stderr.
//
// The default sinks write each message as one line to stderr, with one write() a message:
//
//     2026-03-01 12:00:00.250 error [drop...] pump 3: no answer
//     2026-03-01 12:01:00.251 error [4711] [57 delayed 00:01:00] pump 3: no answer
//
// Local time with milliseconds, the kind, the id of the sending thread where setLoggingFlags() asks for it,
// the text. A line feed ends the line whether the message brought one or not. Lines of two threads never mix;
// those of two processes on one pipe don't as long as they fit its atomic size (PIPE_BUF, 4096 bytes on
// Linux). On a stderr that can't take more at the moment a sink waits, one that is set not to block included.
// No sink is meant for signal handlers: formatting and the time zone are not safe there.
#pragma once

#include "vorlan/foundation/Compiler.h"

#include <cstdarg>

namespace VorlanPosix {

/// The four kinds of message, each with its own sink.
enum class MessageKind { Error, Warning, Info, Debug };

/// Takes one message, a printf format with its arguments, and gives false if it could not be delivered.
///
/// It runs on the sender's thread with the sender's errno, which "%m" prints and which is put back after it,
/// from any number of threads at once, and possibly under the lock of the clamp system: it must not use a
/// MsgClamp, and it must not call the sinks, which would come back to it.
using MessageHandler = bool (*)(MessageKind kind, char const* fmt, va_list args);

/// Sends all messages from now on to `handler`, or to stderr again where it is null. Gives the handler before
/// it, null for stderr. A message that is on its way meanwhile may still reach that one.
VORLAN_API MessageHandler setMessageHandler(MessageHandler handler);

/// The handler in place of which others stand: one line of stderr, as told above. A handler may call it.
///
/// False if the line could not be written, or not whole. A reader that has closed its pipe raises SIGPIPE as
/// for any write; a process that ignores that signal gets the false. A message for whose length there is no
/// memory is shown cut, and says so.
VORLAN_API bool stderrHandler(MessageKind kind, char const* fmt, va_list args) VORLAN_PRINTF(2, 0);

/// Sends to syslog(3), with the priorities LOG_ERR, LOG_WARNING, LOG_INFO and LOG_DEBUG. The program calls
/// openlog() if it wants a name or a facility of its own. Always true: syslog tells of no failure.
VORLAN_API bool syslogHandler(MessageKind kind, char const* fmt, va_list args) VORLAN_PRINTF(2, 0);

} // namespace VorlanPosix
