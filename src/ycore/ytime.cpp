// Operating-system independent: the counter itself is in ytime_posix.cpp.
#include "ytime.h"

#include "ytime_p.h"

qint64 YTime::_s_perfcountFreq = 0;

YTime::YTime()
    : _unused(0)
    , _start {0, 0}
    , _started(false)
{
    if (_s_perfcountFreq == 0)
        _s_perfcountFreq = YTimeSys::frequency();
}

YTime::~YTime() = default;

void YTime::getTimestamp(_TimeVal& value)
{
    const qint64 frequency = _s_perfcountFreq;
    // A division by a frequency of 0 would end the process; an all-zero time is harmless.
    if (frequency == 0) {
        value.seconds = 0;
        value.microseconds = 0;
        return;
    }
    const qint64 ticks = YTimeSys::counter();
    value.seconds = ticks / frequency;
    value.microseconds = qint64(double(ticks % frequency) * 1000000.0 / double(frequency));
}

void YTime::start()
{
    _TimeVal now;
    getTimestamp(now);
    start(now);
}

void YTime::start(const _TimeVal& value)
{
    _start = value;
    _started = true;
}

long long YTime::stop()
{
    _TimeVal now;
    getTimestamp(now);
    return stop(now);
}

long long YTime::stop(const _TimeVal& end)
{
    if (!_started)
        return 0;
    _started = false;
    _TimeVal difference;
    if (end.microseconds >= _start.microseconds) {
        difference.seconds = end.seconds - _start.seconds;
        difference.microseconds = end.microseconds - _start.microseconds;
    } else {
        difference.seconds = end.seconds - _start.seconds - 1;
        difference.microseconds = end.microseconds + 1000000 - _start.microseconds;
    }
    if (difference.microseconds > 1000000) {
        difference.seconds += difference.microseconds / 1000000;
        difference.microseconds %= 1000000;
    }
    _start.seconds = 0;
    _start.microseconds = 0;
    return difference.seconds * 1000000LL + difference.microseconds;
}

void YTime::reset()
{
    _unused = 0;
    _start.seconds = 0;
    _start.microseconds = 0;
    _started = false;
}
