// Operating-system independent part of YMutex; the lock itself is in ymutex_posix.cpp.
#include "ymutex.h"

#include "yassert.h"

bool YMutex::_ignoreErrorsInDtor = false;

YMutex::YMutex()
    : _lockCounter(0)
{
    initSys();
}

// kept: mutex-copy-unlocked
YMutex::YMutex(const YMutex&)
    : YPrintable()
    , _lockCounter(0)
{
    initSys();
}

YMutex::~YMutex()
{
    destroySys();
}

void YMutex::lock()
{
    // Read without the lock on purpose: a negative counter is corruption, not a race to win.
    if (_lockCounter < 0)
        failedAssertion(__FILE__, __LINE__, "(_lockCounter >= 0)",
            qPrintable(QStringLiteral("Illegal counter value: %1").arg(_lockCounter)),
            YDebug::STDERR);
    lockSys();
    ++_lockCounter;
}

void YMutex::unlock()
{
    if (_lockCounter < 1)
        failedAssertion(__FILE__, __LINE__, "(_lockCounter > 0)",
            qPrintable(QStringLiteral("Illegal counter value: %1").arg(_lockCounter)),
            YDebug::STDERR);
    --_lockCounter;
    unlockSys();
}

QString YMutex::toString() const
{
    return QStringLiteral("instance of YMutex: lockCounter %1")
        .arg(_lockCounter.load(std::memory_order_relaxed));
}

void YMutex::setIgnoreErrorsInDtor(bool ignore)
{
    _ignoreErrorsInDtor = ignore;
}
