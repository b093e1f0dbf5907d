// The counter is CLOCK_MONOTONIC in nanoseconds: it never jumps with the wall clock, so a
// stopwatch that spans a clock adjustment still measures what passed.
#include "ytime_p.h"

#include <time.h>

qint64 YTimeSys::frequency()
{
    return 1000000000LL;
}

qint64 YTimeSys::counter()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000000LL + now.tv_nsec;
}
