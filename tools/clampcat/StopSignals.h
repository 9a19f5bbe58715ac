// StopSignals.h: SIGHUP, SIGINT and SIGTERM as something that a waiting reader wakes up for.
#pragma once

namespace Clampcat {

/// Catches the signals that ask a program to end, and ends it by them later.
///
/// The first signal is only noted; its second coming ends the process at once, for a user who sees that
/// the orderly end hangs in a write. A signal that the process was told to ignore stays ignored.
/// Threading: one object a process, used by the thread that reads.
class StopSignals {
public:
    /// Throws std::system_error where no pipe can be made.
    StopSignals();
    StopSignals(StopSignals const&) = delete;
    StopSignals& operator=(StopSignals const&) = delete;

    /// Waits until `fd` can be read without blocking, or a signal has come.
    void waitForInput(int fd) const;

    /// The signal that has come, or 0.
    static int caught();

    /// Ends the process as `signal` ends one that does not catch it.
    [[noreturn]] static void endBy(int signal);

private:
    int m_wakeUp; // readable once a signal has come
};

} // namespace Clampcat
