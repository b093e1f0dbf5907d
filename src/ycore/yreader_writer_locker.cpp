#include "yreader_writer_locker.h"

#include "ydebug.h"
#include "ysemaphore.h"

// The failures below are already reported at ERROR by the semaphore layer; here they are only
// a trace of which guard saw them, deliberately at DBG1.

YWriterLocker::YWriterLocker(YSemaphore* semaphore, YOneLockSemaphore* writerSemaphore)
    : _semaphore(semaphore)
    , _writerSemaphore(writerSemaphore)
    , _hasTokens(true)
    , _hasWriterSemaphore(true)
{
    // The gate comes first: tokens are taken one at a time, and two writers without the gate
    // could each hold part of the count for ever.
    if (!_writerSemaphore->acquire()) {
        _hasTokens = false;
        _hasWriterSemaphore = false;
        // kept: locker-failures-at-dbg1
        YLOG_DBG1(YDebug::STDERR) << "YWriterLocker : Error getting writer semaphore" << yflush;
        return;
    }
    if (!_semaphore->acquire(_semaphore->getMaxCount())) {
        // The gate stays held until the destructor gives it back.
        _hasTokens = false;
        YLOG_DBG1(YDebug::STDERR) << "YWriterLocker : Error getting semaphore" << yflush;
    }
}

YWriterLocker::~YWriterLocker()
{
    if (_hasTokens && !_semaphore->release(_semaphore->getMaxCount()))
        YLOG_DBG1(YDebug::STDERR) << "~YWriterLocker : Error releasing semaphore" << yflush;
    if (_hasWriterSemaphore && !_writerSemaphore->release())
        YLOG_DBG1(YDebug::STDERR) << "~YWriterLocker : Error releasing writer semaphore" << yflush;
}

YReaderLocker::YReaderLocker(YSemaphore* semaphore, YOneLockSemaphore*)
    : _semaphore(semaphore)
    , _writerSemaphore(nullptr)
    , _hasTokens(true)
    , _hasWriterSemaphore(true)
{
    if (!_semaphore->acquire(1)) {
        _hasTokens = false;
        YLOG_DBG1(YDebug::STDERR) << "YReaderLocker : Error getting semaphore" << yflush;
    }
}

YReaderLocker::~YReaderLocker()
{
    if (_hasTokens && !_semaphore->release(1))
        YLOG_DBG1(YDebug::STDERR) << "YReaderLocker : Error releasing semaphore" << yflush;
}
