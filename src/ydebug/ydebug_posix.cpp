// The operating system's side of the debug streams: thread ids, local time and the file locks
// that make rotation safe.
//
// A stream rotates by copying its file and truncating it. Between the copy and the truncation
// another process, or another thread, may append a line that would then be lost. Writers of a
// rotating stream therefore hold a shared flock(2) on the file while they append, and the
// rotation an exclusive one while it copies and truncates. flock rather than fcntl locks: fcntl
// locks belong to the process, so a second descriptor on the same file in the same process would
// silently release them.
#include "ydebug_sink_p.h"

#include "yunix_p.h"

#include <sys/file.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

long YDebugSys::threadId()
{
    static thread_local long id Y_INITIAL_EXEC_TLS = long(syscall(SYS_gettid));
    return id;
}

long YDebugSys::processId()
{
    return long(getpid());
}

void YDebugSys::localTime(long long secondsSinceEpoch, int* day, int* month, int* year, int* hour,
    int* minute, int* second)
{
    time_t t = time_t(secondsSinceEpoch);
    struct tm parts;
    localtime_r(&t, &parts);
    *day = parts.tm_mday;
    *month = parts.tm_mon + 1;
    *year = parts.tm_year + 1900;
    *hour = parts.tm_hour;
    *minute = parts.tm_min;
    *second = parts.tm_sec;
}

void YDebugSys::now(long long* seconds, int* milliseconds)
{
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    *seconds = ts.tv_sec;
    *milliseconds = int(ts.tv_nsec / 1000000);
}

void YDebugSys::lockShared(int fd)
{
    int rc;
    Y_EINTR_LOOP(rc, flock(fd, LOCK_SH));
}

void YDebugSys::lockExclusive(int fd)
{
    int rc;
    Y_EINTR_LOOP(rc, flock(fd, LOCK_EX));
}

void YDebugSys::unlock(int fd)
{
    flock(fd, LOCK_UN);
}
