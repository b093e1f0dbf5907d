#ifndef YOVOLIB_YTIME_H
#define YOVOLIB_YTIME_H

#include "yovolib_export.h"

#include <QtGlobal>

/// A point in time from the performance counter, split in whole seconds and microseconds.
struct _TimeVal
{
    qint64 seconds;
    qint64 microseconds;
};

/// A stopwatch with microsecond resolution. Single-threaded.
class YOVOLIB_EXPORT YTime
{
public:
    /// The first one built queries the counter's frequency, which getTimestamp divides by.
    YTime();
    virtual ~YTime();

    /// Now. Before the first YTime exists the frequency is still 0 and the result is all zeros.
    static void getTimestamp(_TimeVal& value);

    void start();
    void start(const _TimeVal& value);
    /// Elapsed microseconds since start, and stops; 0 when not started.
    long long stop();
    long long stop(const _TimeVal& end);
    bool isStarted() { return _started; }
    void reset();
    /// Doesn't touch the started state.
    void setStart(const _TimeVal& value) { _start = value; }
    const _TimeVal& getStart() const { return _start; }

private:
    qint64 _unused;
    _TimeVal _start;
    bool _started;

    static qint64 _s_perfcountFreq;
};

#endif // YOVOLIB_YTIME_H
