#include "yassert.h"

#include <cstdlib>

YAssertionFailedHandler::~YAssertionFailedHandler() = default;

QList<YAssertionFailedHandler*> YAssert::_assertionFailedHandlers;
YMutex YAssert::_assertionFailedHandlersMutex;
bool YAssert::_waitForDebugger = false;

void YAssert::registerAssertionFailedHandler(YAssertionFailedHandler* handler)
{
    YMutexLocker locker(_assertionFailedHandlersMutex);
    _assertionFailedHandlers.append(handler);
}

void YAssert::handleFailedAssertion()
{
    // The mutex is recursive, so a handler may itself assert or register without deadlock.
    YMutexLocker locker(_assertionFailedHandlersMutex);
    for (int i = 0; i < _assertionFailedHandlers.size(); ++i)
        _assertionFailedHandlers.at(i)->onAssertionFailed();
}

// kept: wait-for-debugger-stored-only
void YAssert::setWaitForDebugger(bool wait)
{
    _waitForDebugger = wait;
}

bool YAssert::shouldWaitForDebugger()
{
    return _waitForDebugger;
}

void failedAssertion(const char* file, unsigned int line, const char* condition,
    const char* message, YDebug::StreamId stream)
{
    YLOG(stream, YDebug::SYSTEM) << '[' << file << ':' << line << ']' << condition << yflush
                                 << (message ? message : "") << (message ? "\n" : "");
    abort();
}
