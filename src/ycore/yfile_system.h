#ifndef YOVOLIB_YFILE_SYSTEM_H
#define YOVOLIB_YFILE_SYSTEM_H

#include "yovolib_export.h"

#include <QByteArray>

/// File operations with the library's logging. A handle is a file descriptor carried in a
/// pointer; -1 is the invalid handle.
class YOVOLIB_EXPORT YFileSystemImpl
{
public:
    /// The path may be read and written.
    bool checkAccess(const char* path) const;
    /// Makes one folder; one that exists already counts as made.
    bool createDir(const char* path) const;
    /// base + relative when that exists; otherwise makes base/part for each part of relative in
    /// turn and returns that path. Empty when base is missing or a folder can't be made.
    QByteArray makePath(const QByteArray& base, const QByteArray& relative);
    /// The whole file in a malloc() block that the caller frees. A failed read closes the handle;
    /// success leaves it open: deliberate, callers rely on either.
    char* readFromFile(void* handle, unsigned int* size);
    /// True only when all bytes were written; failures are logged on STDERR.
    bool writeToFile(void* handle, const char* data, unsigned int length);
};

#endif // YOVOLIB_YFILE_SYSTEM_H
