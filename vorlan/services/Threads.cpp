// Threads over POSIX, and the end of a mutex that its own thread takes twice.

#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace {

constexpr std::size_t kSmallestStack = 256 * 1024;

// In whole pages: a size between two of them would be cut to the lower one, or refused.
std::size_t stackSize(std::size_t wanted) {
    auto const least = std::max(kSmallestStack, static_cast<std::size_t>(PTHREAD_STACK_MIN));
    auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (std::max(wanted, least) + page - 1) / page * page;
}

// A new thread inherits the mask of its maker, so that no signal can reach it before it could block them.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    AllSignalsBlocked(AllSignalsBlocked const&) = delete;
    AllSignalsBlocked& operator=(AllSignalsBlocked const&) = delete;

private:
    sigset_t m_before;
};

} // namespace

namespace VorlanPosix {

void JMutex::lockedTwice() {
    static constexpr char kLine[] =
        "VorlanPosix::JMutex: a thread locks a mutex that it holds already (does a message sink use a "
        "MsgClamp, "
        "or a phase callback call initSubsystems, shutdownSubsystems or System::exit?); aborting\n";
    if (write(STDERR_FILENO, kLine, sizeof kLine - 1) < 0) {
        // Nowhere left to say it; the abort below still tells.
    }
    std::abort();
}

} // namespace VorlanPosix

using Lock = VorlanPosix::ScopeLock<VorlanPosix::JMutex>;

BaseThread::BaseThread(char const* name, unsigned int priority, unsigned int stackSize)
    : m_priority(priority), m_stackSize(stackSize) {
    std::strncpy(m_name, name, sizeof m_name - 1);
    m_name[sizeof m_name - 1] = '\0';
}

BaseThread::~BaseThread() {
    stop(true);
}

void BaseThread::start() {
    Lock lock(m_mutex);
    forgetAfterForkLocked();
    if (m_running) {
        // A stop(true) under way waits for this run to end for good; only a stop(false) leaves room to go on.
        m_restart = stopRequested() && m_waiters == 0;
        return;
    }
    joinEndedLocked();
    if (!m_running) { // while the old thread was joined, another start() may have won
        m_stopRequested.store(false, std::memory_order_release);
        m_restart = false;
        ++m_runs;
        m_running = m_joinable = createLocked();
    }
}

void BaseThread::stop(bool wait) {
    Lock lock(m_mutex);
    forgetAfterForkLocked();
    m_stopRequested.store(true, std::memory_order_release);
    m_restart = false;
    bool const fromItself = m_joinable && pthread_equal(m_thread, pthread_self()) != 0;
    if (!wait || fromItself) {
        return;
    }
    unsigned int const run = m_runs;
    ++m_waiters;
    while (m_running && m_runs == run) {
        m_changed.wait(m_mutex);
    }
    --m_waiters;
    joinEndedLocked();
}

bool BaseThread::running() const {
    Lock lock(m_mutex);
    return m_running && m_process == getpid();
}

void* BaseThread::run(void* self) {
    auto* const thread = static_cast<BaseThread*>(self);
    pthread_setname_np(pthread_self(), thread->m_name);
    do {
        thread->startMethod();
    } while (!thread->endRun());
    return nullptr;
}

// True if the thread is to end; false if a start() came after the stop request, and it runs again.
bool BaseThread::endRun() {
    Lock lock(m_mutex);
    if (m_restart) {
        m_restart = false;
        m_stopRequested.store(false, std::memory_order_release);
        return false;
    }
    m_running = false;
    m_changed.notify_all();
    return true;
}

bool BaseThread::createLocked() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize(m_stackSize));
    int failed = 0;
    {
        AllSignalsBlocked const blocked;
        failed = pthread_create(&m_thread, &attributes, &BaseThread::run, this);
    }
    pthread_attr_destroy(&attributes);
    if (failed != 0) {
        errorMsg("BaseThread \"%s\" can't be started: %s\n", m_name,
                 std::generic_category().message(failed).c_str());
        return false;
    }
    return true;
}

// Waits until no ended thread is left to join. It gives the mutex back meanwhile, so that the ending thread
// can do its last step; one caller joins, the others wait for it.
void BaseThread::joinEndedLocked() {
    while (m_joinable && !m_running) {
        if (m_joining) {
            m_changed.wait(m_mutex);
            continue;
        }
        m_joining = true;
        pthread_t const ended = m_thread;
        m_mutex.unlock();
        pthread_join(ended, nullptr);
        m_mutex.lock();
        m_joining = false;
        m_joinable = false;
        m_changed.notify_all();
    }
}

// The threads of a parent process are not there to be waited for.
void BaseThread::forgetAfterForkLocked() {
    pid_t const process = getpid();
    if (m_process != process) {
        m_process = process;
        m_running = m_joinable = m_joining = m_restart = false;
        m_waiters = 0;
    }
}
