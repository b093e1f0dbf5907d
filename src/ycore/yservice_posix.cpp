// The service manager is systemd. It announces itself with NOTIFY_SOCKET, takes reports as
// sd_notify() datagrams, and sends control requests as signals. A signal handler may do
// almost nothing safely, while the virtual operations that a request ends in take locks, log
// and may even exit(); so the handler only writes the signal's number into a pipe, and one
// thread of the frame reads it and makes the call. That thread plays the part of the manager's
// control thread. It is detached and never ends: a daemon may leave through exit() from any
// thread at any moment.
#include "yservice_p.h"

#include "yunix_p.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <syslog.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>
#include <time.h>
#include <unistd.h>

namespace {

int relayPipe[2] = {-1, -1};
std::atomic<YServiceSys::SignalCallback> relayCallbacks[4];
int lastErrorCode = 0;

const int signalNumbers[4] = {SIGTERM, SIGINT, SIGUSR1, SIGUSR2};

void relayHandler(int signo)
{
    const int saved = errno;
    for (unsigned char which = 0; which < 4; ++which) {
        if (signalNumbers[which] == signo) {
            ssize_t ignored;
            Y_EINTR_LOOP(ignored, write(relayPipe[1], &which, 1));
            (void)ignored;
        }
    }
    errno = saved;
}

void* relayLoop(void*)
{
    for (;;) {
        unsigned char which;
        ssize_t count;
        Y_EINTR_LOOP(count, read(relayPipe[0], &which, 1));
        if (count != 1)
            return nullptr;
        const YServiceSys::SignalCallback callback = relayCallbacks[which].load();
        if (callback)
            callback(which);
    }
}

bool startRelay()
{
    static std::once_flag once;
    static bool started = false;
    std::call_once(once, [] {
        if (pipe2(relayPipe, O_CLOEXEC) != 0) {
            lastErrorCode = errno;
            return;
        }
        // A flood of signals must never block the handler: surplus ones are dropped.
        fcntl(relayPipe[1], F_SETFL, O_NONBLOCK);
        sigset_t all, previous;
        sigfillset(&all);
        // The relay thread takes no signals of its own, so that they reach the daemon's threads.
        pthread_sigmask(SIG_SETMASK, &all, &previous);
        pthread_t thread;
        const int rc = pthread_create(&thread, nullptr, relayLoop, nullptr);
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        if (rc != 0) {
            lastErrorCode = rc;
            return;
        }
        pthread_setname_np(thread, "yservice-ctrl");
        pthread_detach(thread);
        started = true;
    });
    return started;
}

} // namespace

bool YServiceSys::relaySignal(Signal which, SignalCallback callback)
{
    if (!startRelay())
        return false;
    relayCallbacks[which].store(callback);
    struct sigaction action = {};
    action.sa_handler = relayHandler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    if (sigaction(signalNumbers[which], &action, nullptr) != 0) {
        lastErrorCode = errno;
        return false;
    }
    return true;
}

int YServiceSys::lastError()
{
    return lastErrorCode;
}

bool YServiceSys::managerPresent()
{
    const char* socket = getenv("NOTIFY_SOCKET");
    return socket && *socket;
}

int YServiceSys::noManagerError()
{
    return ENOTCONN;
}

int YServiceSys::notify(const QByteArray& state)
{
    if (!managerPresent())
        return noManagerError();
    const int rc = sd_notify(0, state.constData());
    return rc > 0 ? 0 : (rc < 0 ? -rc : noManagerError());
}

qint64 YServiceSys::watchdogMicroseconds()
{
    uint64_t usec = 0;
    return sd_watchdog_enabled(0, &usec) > 0 ? qint64(usec) : 0;
}

qint64 YServiceSys::monotonicMicroseconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void YServiceSys::debugOutput(const QByteArray& text)
{
    sd_journal_print(LOG_DEBUG, "%s", text.constData());
}
