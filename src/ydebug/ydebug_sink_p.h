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

class YSemaphore;

class YDebug::YDebugSink
{
public:
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
    bool isRotating() const { return _rotatable && _rotationSize != 0; }

    // Level and the cache's flags are read by every statement on any thread without a lock;
    // relaxed atomics give exactly that, without a data race.
    std::atomic<int> _level;
    FILE* _file;
    QByteArray _prefix;
    QByteArray _fileName;
    bool _rotatable;
    int _rotationSize;
    std::atomic<bool> _cacheEnabled;
    long _cacheLogSize;
    YCyclicBuffer<YMutex>* _cacheBuffer;
    std::atomic<bool> _dropping;
    unsigned int _secForVerbosityFive;
    int _savedLevel;
    QDateTime _raiseTime;
    std::atomic<bool> _verbosityRaised;
    unsigned int _errorIdForBufferDrop;
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
