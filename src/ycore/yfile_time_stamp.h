#ifndef YOVOLIB_YFILE_TIME_STAMP_H
#define YOVOLIB_YFILE_TIME_STAMP_H

#include "yovolib_export.h"

#include <QtGlobal>

struct stat;

#ifndef _WIN32
/// A file time as the system this library models counts it: 100-nanosecond units since
/// 1 January 1601, in two 32-bit halves.
struct _FILETIME
{
    quint32 dwLowDateTime;
    quint32 dwHighDateTime;
};
#endif

/// Reads and sets a file's modification time in seconds since 1970. A handle is an open file
/// descriptor, as a pointer; (void *)-1 is no file.
class YOVOLIB_EXPORT YFileTimeStamp
{
public:
    YFileTimeStamp() = default;
    ~YFileTimeStamp() = default;
    YFileTimeStamp& operator=(const YFileTimeStamp&) { return *this; }

    /// The modification time, or -1 for a null or missing path.
    static long getFileTimeStamp(const char* path);
    /// `st_mtime`, or -1 for null.
    static long getFileTimeStamp(struct stat* info);
    /// The modification time of an open file as a file time; zero when it can't be read.
    static _FILETIME getFileTimeStamp(void* handle);
    /// Sets the access and modification times of an existing, writable file; Linux keeps no
    /// creation time to set.
    static bool setFileTimeStamp(const char* path, long seconds);
    /// The same on an open file; false for (void *)-1.
    static bool setFileTimeStamp(void* handle, long seconds);

    /// `seconds` since 1970 as a file time: seconds x 10,000,000 + 0x19DB1DED53E8000.
    static qint64 toFileTime(long seconds);
};

#endif // YOVOLIB_YFILE_TIME_STAMP_H
