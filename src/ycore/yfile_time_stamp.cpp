// Operating-system independent part of YFileTimeStamp: the file-time arithmetic.
#include "yfile_time_stamp.h"

#include "yfile_time_stamp_p.h"

#include <cstdint>
#include <sys/stat.h>

namespace {

void* const NO_FILE = reinterpret_cast<void*>(intptr_t(-1));

} // namespace

qint64 YFileTimeStamp::toFileTime(long seconds)
{
    return qint64(seconds) * 10000000LL + YFileTimeSys::EPOCH_DIFFERENCE;
}

long YFileTimeStamp::getFileTimeStamp(const char* path)
{
    long seconds = -1;
    if (!path || !YFileTimeSys::modificationSeconds(path, &seconds))
        return -1;
    return seconds;
}

long YFileTimeStamp::getFileTimeStamp(struct stat* info)
{
    return info ? long(info->st_mtime) : -1;
}

_FILETIME YFileTimeStamp::getFileTimeStamp(void* handle)
{
    _FILETIME result = {0, 0};
    qint64 fileTime = 0;
    if (handle != NO_FILE && YFileTimeSys::modificationFileTime(handle, &fileTime)) {
        result.dwLowDateTime = quint32(quint64(fileTime) & 0xFFFFFFFFu);
        result.dwHighDateTime = quint32(quint64(fileTime) >> 32);
    }
    return result;
}

bool YFileTimeStamp::setFileTimeStamp(const char* path, long seconds)
{
    if (!path)
        return false;
    void* handle = YFileTimeSys::openForWriting(path);
    if (handle == NO_FILE)
        return false;
    const bool result = YFileTimeSys::setFileTimes(handle, toFileTime(seconds));
    YFileTimeSys::close(handle);
    return result;
}

bool YFileTimeStamp::setFileTimeStamp(void* handle, long seconds)
{
    if (handle == NO_FILE)
        return false;
    return YFileTimeSys::setFileTimes(handle, toFileTime(seconds));
}
