#include "vorlan/diagnostics/DebugActions.h"

#include "vorlan/foundation/MessageServices.h"

#include <cstdint>
#include <iterator>

namespace {

using Sink = bool (*)(char const* fmt, ...);

// Two lines of numbers, too long for any line buffer of the old kind.
void sendLong(Sink sink) {
    sink("%10d%10d%10d\n"
         "%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%10d%"
         "10d%10d"
         "%10d\n",
         1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27,
         28, 29, 30);
}

// Texts as a busy process sends them, one with its line feed and one without.
constexpr char kSample1[] =
    "BIO(0x2a43a80).extractSegs: (fnd=2)+(!fnd=0)!=(rclsz=3): "
    "rcList[3]={{align=2621440b@524288,req=30312b@3115416,buf=obuf[1]={sid=0},inLocalCache,cpy=t},"
    "{align=2621440b@524288,req=30312b@3115416,buf=obuf[1]={sid=0},inLocalCache,cpy=t},"
    "{align=2621440b@524288,req=30312b@3115416,buf=obuf[1]={sid=0},inLocalCache,cpy=t}}\n";
constexpr char kSample2[] =
    "[340 delayed 00:01:00] p0rec_31.td2x.sub: ht12381114/t6502/blk,repl "
    "f1153I=t6459/a1150/s250276:6/n1/r8/in/rdy/6of6/gi:59819,rl:1,rr:6113,fs:151722,pm:-153989,dur:531230 w/ "
    "f1153I=t6459/a1150/s250276:6/n1/r8/in/rdy/";

constexpr unsigned int kSamples = 8;

// By bit, in the order of the labels.
constexpr void (*kSendSample[kSamples])() = {
    [] { sendLong(errorMsg); },       [] { sendLong(infoMsg); },
    [] { sendLong(warningMsg); },     [] { errorMsg("short error\n"); },
    [] { infoMsg("short info\n"); },  [] { warningMsg("short warning\n"); },
    [] { debugMsg("%s", kSample1); }, [] { debugMsg("%s", kSample2); },
};

} // namespace

LoggingFlags::LoggingFlags()
    : DebuggerOn("loggingFlags", 2, "taskIds:non-info msgs", "taskIds:info msgs"),
      m_debugHook(*this, &LoggingFlags::debugCb) {
    set(&m_debugHook);
}

bool LoggingFlags::debugCb(DebugRecord const& record) {
    if (record.getVariable() == this) {
        std::uint32_t const value = get();
        if (setLoggingFlags(value) != value) {
            debugMsg("%s=%u\n", record.getName(), value);
        }
    }
    return true;
}

LogMessageDbg::LogMessageDbg()
    : DebuggerOn("LogMessage", kSamples, "long error msg", "long info msg", "long warning msg",
                 "short error msg", "short info msg", "short warning msg", "test1", "test2"),
      m_debugHook(*this, &LogMessageDbg::debugCb) {
    set(&m_debugHook);
}

bool LogMessageDbg::debugCb(DebugRecord const& record) {
    if (record.getVariable() != this) {
        return true;
    }
    for (unsigned int bit = 0; bit < kSamples; ++bit) {
        if (on(bit)) {
            kSendSample[bit]();
        }
    }
    setValue(0);
    return true;
}
