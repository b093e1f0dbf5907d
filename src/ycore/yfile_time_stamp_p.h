// Not part of the YovoLib API: the operating system's side of YFileTimeStamp.
#ifndef YOVOLIB_YFILE_TIME_STAMP_P_H
#define YOVOLIB_YFILE_TIME_STAMP_P_H

#include <QtGlobal>

namespace YFileTimeSys {

/// The 100-nanosecond units between 1601 and 1970.
const qint64 EPOCH_DIFFERENCE = 0x19DB1DED53E8000LL;

/// The modification time in seconds, or false.
bool modificationSeconds(const char* path, long* seconds);
/// The modification time as a file time, or false.
bool modificationFileTime(void* handle, qint64* fileTime);
/// An existing file opened for writing, or (void *)-1.
void* openForWriting(const char* path);
void close(void* handle);
/// Sets every time that the system keeps for the file to the file time.
bool setFileTimes(void* handle, qint64 fileTime);

} // namespace YFileTimeSys

#endif // YOVOLIB_YFILE_TIME_STAMP_P_H
