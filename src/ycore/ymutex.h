#ifndef YOVOLIB_YMUTEX_H
#define YOVOLIB_YMUTEX_H

#include "yovolib_export.h"
#include "yprintable.h"

#include <pthread.h>

/// The recursive in-process lock that every class of the library uses.
class YOVOLIB_EXPORT YMutex : public YPrintable
{
public:
    YMutex();
    /// Builds a fresh, unlocked mutex: neither the lock nor the counter of the source is taken over.
    YMutex(const YMutex&);
    YMutex& operator=(const YMutex&) = delete;
    ~YMutex() override;

    /// Ends the process through a failed assertion if the counter is negative.
    void lock();
    /// Ends the process through a failed assertion if the mutex is not locked.
    void unlock();

    /// "instance of YMutex: lockCounter <n>".
    QString toString() const override;

    /// Kept for callers that set it; the destructor has no error path to ignore.
    static void setIgnoreErrorsInDtor(bool ignore);

private:
    void initSys();
    void destroySys();
    void lockSys();
    void unlockSys();

    pthread_mutex_t _lock;
    int _lockCounter;

    static bool _ignoreErrorsInDtor;
};

/// The do-nothing stand-in for YMutex where a lock type is a parameter and no locking is needed.
class YOVOLIB_EXPORT DUMMY_LOCKER
{
public:
    DUMMY_LOCKER() = default;
    ~DUMMY_LOCKER() = default;
    DUMMY_LOCKER& operator=(const DUMMY_LOCKER&) { return *this; }
    void lock() {}
    void unlock() {}
};

/// Holds a YMutex for the life of a scope.
class YMutexLocker
{
public:
    explicit YMutexLocker(YMutex& mutex) : _mutex(mutex) { _mutex.lock(); }
    ~YMutexLocker() { _mutex.unlock(); }
    YMutexLocker(const YMutexLocker&) = delete;
    YMutexLocker& operator=(const YMutexLocker&) = delete;

private:
    YMutex& _mutex;
};

#endif // YOVOLIB_YMUTEX_H
