// File times on Linux: stat() for reading, futimens() on a descriptor opened for writing for
// setting, so that setting needs the same right to write that the system this library models
// asks for. Linux keeps no creation time; access and modification times are set. A handle is a
// file descriptor carried in a pointer.
#include "yfile_time_stamp_p.h"

#include "yunix_p.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int toDescriptor(void* handle)
{
    const intptr_t value = reinterpret_cast<intptr_t>(handle);
    return value < 0 || value > INT32_MAX ? -1 : int(value);
}

} // namespace

bool YFileTimeSys::modificationSeconds(const char* path, long* seconds)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return false;
    *seconds = long(info.st_mtime);
    return true;
}

bool YFileTimeSys::modificationFileTime(void* handle, qint64* fileTime)
{
    const int fd = toDescriptor(handle);
    struct stat info;
    if (fd < 0 || fstat(fd, &info) != 0)
        return false;
    *fileTime
        = qint64(info.st_mtim.tv_sec) * 10000000LL + info.st_mtim.tv_nsec / 100 + EPOCH_DIFFERENCE;
    return true;
}

void* YFileTimeSys::openForWriting(const char* path)
{
    // O_NONBLOCK: a FIFO without a reader must fail here, not hang the caller.
    int fd;
    Y_EINTR_LOOP(fd, open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return reinterpret_cast<void*>(intptr_t(fd));
}

void YFileTimeSys::close(void* handle)
{
    const int fd = toDescriptor(handle);
    if (fd >= 0)
        ::close(fd);
}

bool YFileTimeSys::setFileTimes(void* handle, qint64 fileTime)
{
    const int fd = toDescriptor(handle);
    if (fd < 0)
        return false;
    const qint64 units = fileTime - EPOCH_DIFFERENCE;
    qint64 seconds = units / 10000000LL;
    qint64 remainder = units % 10000000LL;
    if (remainder < 0) {
        remainder += 10000000LL;
        --seconds;
    }
    timespec times[2];
    times[0].tv_sec = time_t(seconds);
    times[0].tv_nsec = long(remainder * 100);
    times[1] = times[0];
    return futimens(fd, times) == 0;
}
