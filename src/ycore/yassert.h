#ifndef YOVOLIB_YASSERT_H
#define YOVOLIB_YASSERT_H

#include "ydebug.h"
#include "ymutex.h"
#include "yovolib_export.h"

#include <QList>

/// What a daemon wants done when an assertion fails; the library only calls it.
class YOVOLIB_EXPORT YAssertionFailedHandler
{
public:
    virtual void onAssertionFailed() = 0;
    virtual ~YAssertionFailedHandler();
};

/// The registry of assertion handlers and the wait-for-debugger flag.
class YOVOLIB_EXPORT YAssert
{
public:
    /// Appends the handler; no check for null or duplicates, so a handler added twice runs twice.
    static void registerAssertionFailedHandler(YAssertionFailedHandler* handler);
    /// Calls every handler in registration order, with the list's mutex held. Never stops the
    /// process: what happens next belongs to the code that detected the failure.
    static void handleFailedAssertion();
    static void setWaitForDebugger(bool wait);
    static bool shouldWaitForDebugger();

private:
    static QList<YAssertionFailedHandler*> _assertionFailedHandlers;
    static YMutex _assertionFailedHandlersMutex;
    static bool _waitForDebugger;
};

/// Writes the assertion record on the stream at SYSTEM level, then abort(). Never returns.
[[noreturn]] YOVOLIB_EXPORT void failedAssertion(const char* file, unsigned int line,
                                                 const char* condition, const char* message,
                                                 YDebug::StreamId stream);

/// The library's own invariant checks: a broken invariant ends the process, it never throws.
#define Y_ASSERT(condition)                                                                        \
    do {                                                                                           \
        if (!(condition))                                                                          \
            failedAssertion(__FILE__, __LINE__, "(" #condition ")", nullptr, YDebug::STDERR);      \
    } while (false)

#define Y_ASSERT_X(condition, message)                                                             \
    do {                                                                                           \
        if (!(condition))                                                                          \
            failedAssertion(__FILE__, __LINE__, "(" #condition ")", (message), YDebug::STDERR);    \
    } while (false)

#endif // YOVOLIB_YASSERT_H
