// Not part of the YovoLib API: the file calls of the platform behind YFileSystemImpl.
#ifndef YOVOLIB_YFILE_SYSTEM_P_H
#define YOVOLIB_YFILE_SYSTEM_P_H

#include <QtGlobal>

namespace YFileSystemSys {

bool exists(const char* path);
bool canReadWrite(const char* path);
/// 0 on success or when the folder exists, errno otherwise.
int makeDir(const char* path);
/// The size of the open file, or -1.
qint64 size(void* handle);
/// One read of up to length bytes into data; the count, or -1 with errno kept.
qint64 read(void* handle, char* data, qint64 length);
/// One write; the count, or -1 with errno kept.
qint64 write(void* handle, const char* data, qint64 length);
void close(void* handle);
bool isInvalid(void* handle);

} // namespace YFileSystemSys

#endif // YOVOLIB_YFILE_SYSTEM_P_H
