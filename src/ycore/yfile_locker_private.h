#ifndef YOVOLIB_YFILE_LOCKER_PRIVATE_H
#define YOVOLIB_YFILE_LOCKER_PRIVATE_H

#include "ymutex.h"
#include "yovolib_export.h"

/// A reader and writer lock on a file. It has no working body in this library: the lock
/// operations are deliberately empty, and the class exists for code that names it.
class YOVOLIB_EXPORT YFileLockerPrivate
{
public:
    /// Keeps `fileName` as given, without a copy.
    explicit YFileLockerPrivate(const char* fileName);
    /// Not implemented: closes nothing.
    ~YFileLockerPrivate();

    /// Not implemented: does nothing.
    void readLock();
    /// Not implemented: does nothing.
    void writeLock();
    /// Not implemented: does nothing.
    void unlock();

    /// The name given to the constructor.
    const char* fileName() const { return _fileName; }
    /// Always -1: no lock file is ever opened.
    int fileDescriptor() const { return _fd; }

private:
    int openLockFile();

    const char* _fileName;
    int _fd;
    YMutex _mutex;
};

#endif // YOVOLIB_YFILE_LOCKER_PRIVATE_H
