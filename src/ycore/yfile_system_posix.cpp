// Files through plain descriptors: a handle is the descriptor value in a pointer, the same
// convention as the file time stamps, so that callers can pass what open() gave them.
#include "yfile_system_p.h"

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

bool YFileSystemSys::exists(const char* path)
{
    struct stat info;
    return path && stat(path, &info) == 0;
}

bool YFileSystemSys::canReadWrite(const char* path)
{
    return path && access(path, R_OK | W_OK) == 0;
}

int YFileSystemSys::makeDir(const char* path)
{
    if (!path)
        return EINVAL;
    if (mkdir(path, 0777) == 0 || errno == EEXIST)
        return 0;
    return errno;
}

qint64 YFileSystemSys::size(void* handle)
{
    struct stat info;
    const int fd = toDescriptor(handle);
    if (fd < 0 || fstat(fd, &info) != 0)
        return -1;
    return qint64(info.st_size);
}

qint64 YFileSystemSys::read(void* handle, char* data, qint64 length)
{
    ssize_t done;
    Y_EINTR_LOOP(done, ::read(toDescriptor(handle), data, size_t(length)));
    return done;
}

qint64 YFileSystemSys::write(void* handle, const char* data, qint64 length)
{
    ssize_t done;
    Y_EINTR_LOOP(done, ::write(toDescriptor(handle), data, size_t(length)));
    return done;
}

void YFileSystemSys::close(void* handle)
{
    const int fd = toDescriptor(handle);
    if (fd >= 0)
        ::close(fd);
}

bool YFileSystemSys::isInvalid(void* handle)
{
    return toDescriptor(handle) < 0;
}
