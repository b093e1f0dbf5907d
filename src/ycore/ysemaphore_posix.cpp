// Named semaphores on Linux.
//
// POSIX named semaphores (sem_open) can't wait for a millisecond on every libc we care about,
// can't release n tokens at once against a maximum, and have no notion of a last user. So the
// semaphore is a small shared-memory object of our own: a count and a maximum under a
// process-shared, robust mutex. A process that dies inside the mutex leaves it recoverable
// (EOWNERDEAD); tokens it held stay taken, as they would on the system this library models. The
// object's lifetime follows YNamedObjectSys.
//
// Waiters sleep on a futex word that every release bumps, not on a process-shared condition
// variable: a condition variable keeps an internal lock of its own in the shared memory, and a
// process killed while it holds that lock (inside a wait, a time-out or a broadcast) leaves every
// later waiter and releaser of the name stuck for good. A futex keeps no state that a dead process
// could leave behind.
#include "ysemaphore_p.h"

#include "ynamed_object_posix_p.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const uint32_t SEMAPHORE_MAGIC = 0x59534d32; // "YSM2": a futex word, no condition variable

struct SharedSemaphore
{
    uint32_t magic;
    uint32_t size;
    int64_t count;
    int64_t maximum;
    pthread_mutex_t mutex;
    uint32_t releases; ///< bumped by every release; waiters sleep on it
    uint32_t reserved;
};

struct Counts
{
    unsigned int initial;
    unsigned int maximum;
};

void initialize(void* address, std::size_t, void* context)
{
    const Counts* counts = static_cast<const Counts*>(context);
    SharedSemaphore* s = static_cast<SharedSemaphore*>(address);
    pthread_mutexattr_t mutexAttr;
    pthread_mutexattr_init(&mutexAttr);
    pthread_mutexattr_setpshared(&mutexAttr, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&mutexAttr, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&s->mutex, &mutexAttr);
    pthread_mutexattr_destroy(&mutexAttr);
    s->releases = 0;
    s->reserved = 0;
    s->count = counts->initial;
    s->maximum = counts->maximum;
    s->size = sizeof(SharedSemaphore);
    s->magic = SEMAPHORE_MAGIC;
}

// The counter's invariants hold at every instant the mutex could be lost, so a mutex whose owner
// died is simply declared consistent again.
int lockShared(SharedSemaphore* s)
{
    int rc = pthread_mutex_lock(&s->mutex);
    if (rc == EOWNERDEAD)
        rc = pthread_mutex_consistent(&s->mutex);
    return rc;
}

// Sleeps while the word still holds `seen`, at most until `deadline` on the monotonic clock.
// Shared, not private: the word lies at another address in every process that maps it.
void sleepOn(uint32_t* word, uint32_t seen, const timespec* deadline)
{
    syscall(SYS_futex, word, FUTEX_WAIT_BITSET, seen, deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
}

void wakeAll(uint32_t* word)
{
    syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

bool passed(const timespec& deadline)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > deadline.tv_sec
        || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

} // namespace

struct YSemaphoreHandle
{
    YNamedObjectSys object;
    SharedSemaphore* semaphore = nullptr;
};

QByteArray YSemaphoreSys::objectName(const QByteArray& systemName)
{
    QByteArray name = systemName;
    name.replace('\\', '.').replace('/', '.');
    return "/ysem." + name;
}

YSemaphoreHandle* YSemaphoreSys::create(const QByteArray& systemName, unsigned int initialCount,
    unsigned int maximumCount, unsigned short permissions, int* error)
{
    YSemaphoreHandle* handle = new YSemaphoreHandle;
    Counts counts = {initialCount, maximumCount};
    if (!handle->object.open(objectName(systemName), sizeof(SharedSemaphore),
            YNamedObjectSys::CreateOrOpen, permissions, initialize, &counts)) {
        *error = handle->object.error();
        delete handle;
        return nullptr;
    }
    SharedSemaphore* s = static_cast<SharedSemaphore*>(handle->object.address());
    // Someone else's object under our name: don't touch a mutex that was never made.
    if (handle->object.size() < sizeof(SharedSemaphore) || s->magic != SEMAPHORE_MAGIC
        || s->size != sizeof(SharedSemaphore)) {
        *error = EINVAL;
        delete handle;
        return nullptr;
    }
    handle->semaphore = s;
    return handle;
}

YSemaphoreSys::WaitResult YSemaphoreSys::wait(YSemaphoreHandle* handle, int timeoutMs, int* error)
{
    SharedSemaphore* s = handle->semaphore;
    timespec deadline = {0, 0};
    if (timeoutMs >= 0) {
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_nsec += long(timeoutMs % 1000) * 1000000L;
        deadline.tv_sec += timeoutMs / 1000 + deadline.tv_nsec / 1000000000L;
        deadline.tv_nsec %= 1000000000L;
    }
    int rc = lockShared(s);
    if (rc != 0) {
        *error = rc;
        return WaitFailed;
    }
    while (s->count <= 0) {
        const uint32_t seen = __atomic_load_n(&s->releases, __ATOMIC_ACQUIRE);
        pthread_mutex_unlock(&s->mutex);
        timespec until = deadline;
        if (timeoutMs < 0) {
            // An endless wait still looks again every second: a releaser killed between its
            // count and its wake-up must not leave us asleep next to a free token.
            clock_gettime(CLOCK_MONOTONIC, &until);
            until.tv_sec += 1;
        }
        sleepOn(&s->releases, seen, &until);
        rc = lockShared(s);
        if (rc != 0) {
            *error = rc;
            return WaitFailed;
        }
        if (s->count <= 0 && timeoutMs >= 0 && passed(deadline)) {
            pthread_mutex_unlock(&s->mutex);
            *error = ETIMEDOUT;
            return WaitTimeout;
        }
    }
    --s->count;
    pthread_mutex_unlock(&s->mutex);
    *error = 0;
    return WaitObject0;
}

bool YSemaphoreSys::release(YSemaphoreHandle* handle, unsigned int n, int* error)
{
    if (n == 0)
        return true;
    SharedSemaphore* s = handle->semaphore;
    int rc = lockShared(s);
    if (rc != 0) {
        *error = rc;
        return false;
    }
    if (s->count + int64_t(n) > s->maximum) {
        pthread_mutex_unlock(&s->mutex);
        *error = EOVERFLOW;
        return false;
    }
    s->count += n;
    __atomic_add_fetch(&s->releases, 1, __ATOMIC_RELEASE);
    pthread_mutex_unlock(&s->mutex);
    wakeAll(&s->releases);
    return true;
}

void YSemaphoreSys::close(YSemaphoreHandle* handle)
{
    delete handle;
}
