// Named semaphores on Linux.
//
// POSIX named semaphores (sem_open) can't wait for a millisecond on every libc we care about,
// can't release n tokens at once against a maximum, and have no notion of a last user. So the
// semaphore is a small shared-memory object of our own: a count and a maximum under a
// process-shared, robust mutex, with a condition variable on the monotonic clock. A process that
// dies inside the mutex leaves it recoverable (EOWNERDEAD); tokens it held stay taken, as they
// would on the system this library models. The object's lifetime follows YNamedObjectSys.
#include "ysemaphore_p.h"

#include "ynamed_object_posix_p.h"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <pthread.h>

namespace {

const uint32_t SEMAPHORE_MAGIC = 0x59534d31; // "YSM1"

struct SharedSemaphore
{
    uint32_t magic;
    uint32_t size;
    int64_t count;
    int64_t maximum;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
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
    pthread_condattr_t condAttr;
    pthread_condattr_init(&condAttr);
    pthread_condattr_setpshared(&condAttr, PTHREAD_PROCESS_SHARED);
    pthread_condattr_setclock(&condAttr, CLOCK_MONOTONIC);
    pthread_cond_init(&s->condition, &condAttr);
    pthread_condattr_destroy(&condAttr);
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

int waitShared(SharedSemaphore* s, const timespec* deadline)
{
    int rc = pthread_cond_timedwait(&s->condition, &s->mutex, deadline);
    if (rc == EOWNERDEAD)
        rc = pthread_mutex_consistent(&s->mutex);
    return rc;
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
    timespec deadline;
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
        if (timeoutMs < 0) {
            // An endless wait still wakes now and then: a waiter that was killed inside the
            // condition variable must not be able to swallow the wake-up meant for us.
            clock_gettime(CLOCK_MONOTONIC, &deadline);
            deadline.tv_sec += 1;
        }
        rc = waitShared(s, &deadline);
        if (rc == ETIMEDOUT && timeoutMs < 0)
            continue;
        if (rc == ETIMEDOUT) {
            pthread_mutex_unlock(&s->mutex);
            *error = ETIMEDOUT;
            return WaitTimeout;
        }
        if (rc != 0) {
            pthread_mutex_unlock(&s->mutex);
            *error = rc;
            return WaitFailed;
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
    pthread_cond_broadcast(&s->condition);
    pthread_mutex_unlock(&s->mutex);
    return true;
}

void YSemaphoreSys::close(YSemaphoreHandle* handle)
{
    delete handle;
}
