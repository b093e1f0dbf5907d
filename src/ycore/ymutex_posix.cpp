// YMutex on POSIX threads. A recursive mutex is the counterpart of a critical section: the owning
// thread may enter again, and the counter in ymutex.cpp holds the depth.
#include "ymutex.h"

void YMutex::initSys()
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&_lock, &attr);
    pthread_mutexattr_destroy(&attr);
}

void YMutex::destroySys()
{
    pthread_mutex_destroy(&_lock);
}

void YMutex::lockSys()
{
    pthread_mutex_lock(&_lock);
}

void YMutex::unlockSys()
{
    pthread_mutex_unlock(&_lock);
}
