// YThread on POSIX threads.
//
// Killing a thread. The destructor of a YThread that wasn't joined kills the thread wherever it
// is, and none of the thread's code runs after that: its frames are abandoned, not unwound, as
// with the kill of the system this library grew up on. Cancellation (pthread_cancel) can't give
// that. A deferred cancellation acts only at a cancellation point, so a thread in a busy loop or
// blocked on a mutex never dies. An asynchronous one unwinds the stack from wherever the thread
// was, and the C++ runtime calls std::terminate as soon as that point lies between two calls of
// a function with destructors to run, which is nearly always (a loop with a QString in it; under
// the race detector, every instrumented function): the whole process would die. Both kinds abort
// the process, too, when user code catches everything without rethrowing.
//
// So a kill is a real-time signal of the library's own (SIGRTMIN + 4). Its handler jumps back to
// the thread's start routine, which returns, and the system ends the thread as usual (thread-local
// destructors and the join bookkeeping run). The signal is blocked from the creation of the
// thread until its jump point is set, and again once the thread's code has returned, so a kill
// never lands outside that window. The handler is installed with the C library's own sigaction:
// a runtime that wraps signal handlers (the race detector defers signals to its own safe points)
// would otherwise hold a kill back from a busy loop for ever.
//
// The price is the one the original kill has as well: a thread killed inside malloc or between
// taking and releasing a lock leaves that lock taken. The destructor's kill is a last resort;
// daemons stop and join their threads. Because the killed thread still runs the system's exit
// path, the destructor waits for its end, outside the registry lock and for at most five
// seconds; a thread not gone by then (stuck on a lock that it held itself) is detached. A thread
// that destroys its own YThread is not killed: it would die inside the destructor.
//
// A thread's id is the kernel's gettid(), as in log lines and /proc. pthread_create returns only
// a handle, so the new thread tells its id to start() before start() returns.
#include "ythread_p.h"

#include "ythread.h"
#include "yunix_p.h"

#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <semaphore.h>
#include <unistd.h>

namespace {

constexpr int KILLED_THREAD_GRACE_SECONDS = 5;

int killSignal()
{
    return SIGRTMIN + 4;
}

void killSignalOnly(sigset_t* set)
{
    sigemptyset(set);
    sigaddset(set, killSignal());
}

// Where a killed thread's code is abandoned; set only while the thread's own code runs. Read by
// the signal handler, hence a plain word in the static TLS block.
thread_local sigjmp_buf* killPoint __attribute__((tls_model("initial-exec"))) = nullptr;

extern "C" __attribute__((no_sanitize_thread)) void yovoKillHandler(int)
{
    sigjmp_buf* point = killPoint;
    if (point)
        siglongjmp(*point, 1);
}

void installKillHandler()
{
    static const bool installed = [] {
        typedef int (*SigactionFunction)(int, const struct sigaction*, struct sigaction*);
        SigactionFunction install = &sigaction;
        if (void* libc = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD)) {
            if (void* symbol = dlsym(libc, "sigaction"))
                install = reinterpret_cast<SigactionFunction>(symbol);
            dlclose(libc);
        }
        struct sigaction action;
        memset(&action, 0, sizeof action);
        action.sa_handler = yovoKillHandler;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        return install(killSignal(), &action, nullptr) == 0;
    }();
    (void)installed;
}

// Lives on the stack of startSys() until the new thread has told its id.
struct StartBlock
{
    YThread* thread;
    pid_t id;
    sem_t started;
};

extern "C" void* yovoThreadStart(void* argument)
{
    StartBlock* block = static_cast<StartBlock*>(argument);
    YThread* thread = block->thread;
    block->id = gettid();
    // After this the block may be gone: startSys() returns.
    sem_post(&block->started);

    sigset_t killOnly;
    killSignalOnly(&killOnly);
    sigjmp_buf point;
    // The mask saved here has the kill blocked, and a kill's jump restores it.
    if (sigsetjmp(point, 1) == 0) {
        killPoint = &point;
        pthread_sigmask(SIG_UNBLOCK, &killOnly, nullptr);
        YThreadPrivate::enter(thread);
        pthread_sigmask(SIG_BLOCK, &killOnly, nullptr);
    }
    killPoint = nullptr;
    return nullptr;
}

} // namespace

bool YThreadPrivate::startSys(YThread* thread)
{
    installKillHandler();
    StartBlock block;
    block.thread = thread;
    block.id = 0;
    sem_init(&block.started, 0, 0);

    // The new thread inherits the mask: it starts with the kill blocked.
    sigset_t killOnly, previous;
    killSignalOnly(&killOnly);
    pthread_sigmask(SIG_BLOCK, &killOnly, &previous);
    pthread_t handle;
    const int created = pthread_create(&handle, nullptr, yovoThreadStart, &block);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (created != 0) {
        sem_destroy(&block.started);
        return false;
    }
    int rc;
    Y_EINTR_LOOP(rc, sem_wait(&block.started));
    sem_destroy(&block.started);
    _thread = handle;
    _id = quint32(block.id);
    return true;
}

bool YThreadPrivate::waitSys()
{
    return pthread_join(_thread, nullptr) == 0;
}

bool YThreadPrivate::terminateSys()
{
    if (pthread_equal(_thread, pthread_self()))
        return false;
    return pthread_kill(_thread, killSignal()) == 0;
}

void YThreadPrivate::reapSys(YThreadSysHandle thread)
{
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += KILLED_THREAD_GRACE_SECONDS;
    if (pthread_timedjoin_np(thread, nullptr, &deadline) != 0)
        pthread_detach(thread);
}

unsigned long YThreadPrivate::currentThreadIdSys()
{
    return static_cast<unsigned long>(gettid());
}

void YThreadPrivate::sleepSys(unsigned int milliseconds)
{
    struct timespec remaining;
    remaining.tv_sec = time_t(milliseconds / 1000);
    remaining.tv_nsec = long(milliseconds % 1000) * 1000000L;
    // A signal doesn't shorten the sleep: the rest is slept again.
    while (nanosleep(&remaining, &remaining) == -1 && errno == EINTR) { }
}
