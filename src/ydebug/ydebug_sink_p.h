// Not part of the YovoLib API: the stream behind a StreamId.
#ifndef YOVOLIB_YDEBUG_SINK_P_H
#define YOVOLIB_YDEBUG_SINK_P_H

#include "ycyclic_buffer.h"
#include "ydebug.h"
#include "ymutex.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QStringList>

#include <atomic>
#include <cstdio>
#include <memory>

class YSemaphore;

class YDebug::YDebugSink
{
public:
    typedef YCyclicBuffer<YMutex> CacheBuffer;

    YDebugSink(FILE* file, int level, const QByteArray& prefix);
    /// A blank sink for a freed slot: no stream, `_free` set.
    YDebugSink();
    ~YDebugSink();
    YDebugSink(const YDebugSink&) = delete;
    YDebugSink& operator=(const YDebugSink&) = delete;

    /// One finished line and CR LF in one stdio call, then fflush. The line ends at an embedded
    /// NUL. The buffer is the caller's, about to be cleared, and is used to append CR LF.
    void write(QByteArray& line);
    void setRotationSize(int megabytes);
    /// Rotates when the file has grown past the limit; run after every flush.
    void checkRotation();
    bool isRotating() const
    {
        return _rotatable.load(std::memory_order_relaxed)
            && _rotationSize.load(std::memory_order_relaxed) != 0;
    }
    /// The cache as it is now. A statement holds its own reference for as long as it uses the
    /// buffer, so switching the cache off on another thread never frees it under the statement.
    std::shared_ptr<CacheBuffer> cacheBuffer() const { return std::atomic_load(&_cacheBuffer); }

    // Every field that a statement reads while an operator may change it at run time is atomic
    // (relaxed: each is a setting on its own, read without a lock), or is read under the lock
    // named beside it. The list of trigger ids is read under the cache settings' mutex, the
    // rotation's file and semaphore under _rotationMutex.
    std::atomic<int> _level;
    FILE* _file;
    QByteArray _prefix;
    QByteArray _fileName;
    std::atomic<bool> _rotatable;
    std::atomic<int> _rotationSize;
    std::atomic<bool> _cacheEnabled;
    std::atomic<long> _cacheLogSize;
    std::shared_ptr<CacheBuffer> _cacheBuffer; // only through std::atomic_load / atomic_store
    std::atomic<bool> _dropping;
    std::atomic<unsigned int> _secForVerbosityFive;
    std::atomic<int> _savedLevel;
    std::atomic<qint64> _raiseTime; // milliseconds since the epoch
    std::atomic<bool> _verbosityRaised;
    std::atomic<unsigned int> _errorIdForBufferDrop;
    QStringList _errorIdListBufferTrigger;
    QFile _logFile;
    YSemaphore* _rotationSemaphore;
    bool _free;
    YMutex* _rotationMutex;

private:
    void rotate();
};

namespace YDebugSys {

/// The kernel's id of the calling thread.
long threadId();
long processId();
/// Local time broken down, for the line's time stamp.
void localTime(long long secondsSinceEpoch, int* day, int* month, int* year, int* hour, int* minute,
    int* second);
/// Seconds and milliseconds of the wall clock.
void now(long long* seconds, int* milliseconds);
/// Locks that keep a writer's append and a rotation's copy-and-truncate apart across processes.
void lockShared(int fd);
void lockExclusive(int fd);
void unlock(int fd);

} // namespace YDebugSys

#endif // YOVOLIB_YDEBUG_SINK_P_H
