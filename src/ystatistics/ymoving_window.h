#ifndef YOVOLIB_YMOVING_WINDOW_H
#define YOVOLIB_YMOVING_WINDOW_H

#include "yovolib_export.h"

#include <QtGlobal>

#include <list>

/// Sums of values over the recent past, kept in buckets of a fixed number of seconds.
class YOVOLIB_EXPORT YMovingWindow
{
public:
    /// A window of 'size' buckets, each 'bucketSeconds' long. A bucket length of 0 ends the
    /// process through a failed assertion at the first value.
    YMovingWindow(int size, long bucketSeconds);

    /// Adds the value to the bucket of the present period. The clock set back ends the process
    /// through a failed assertion.
    YMovingWindow& operator<<(double value);
    /// Sum of the newest 'buckets' periods (-1: the whole window), counted back from the newest
    /// bucket rather than from now, so gaps count as periods.
    double total(long buckets);
    /// total(-1) divided by 'buckets' (-1: the window's size). The sum is always the whole
    /// window's, whatever 'buckets' says: only the divisor follows it, as callers expect.
    double average(long buckets);
    /// Drops buckets older than the window. One walk may leave some stale buckets behind for the
    /// next walk: the bucket after an erased one is not looked at.
    void trimWindow();
    /// Prints the buckets through qDebug, for debugging.
    void printList();

private:
    struct Bucket
    {
        qint64 _idx; // period since the start
        unsigned int _time; // creation time; later values don't move it
        double _value;
    };

    static unsigned int now();

    int _size;
    long _bucketSeconds;
    std::list<Bucket> _buckets; // oldest first; only periods that received a value
    qint64 _start;
};

#endif // YOVOLIB_YMOVING_WINDOW_H
