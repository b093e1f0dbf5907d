#include "yfile_locker_private.h"

#include "yassert.h"

// Every operation is an assertion on a string literal, which can never fail: the marker keeps the
// places where a file lock would go visible without giving the class a body it doesn't have.

YFileLockerPrivate::YFileLockerPrivate(const char* fileName)
    : _fileName(fileName)
    , _fd(-1)
{
}

YFileLockerPrivate::~YFileLockerPrivate()
{
    Y_ASSERT("not implemented");
}

void YFileLockerPrivate::readLock()
{
    Y_ASSERT("not implemented");
}

void YFileLockerPrivate::writeLock()
{
    Y_ASSERT("not implemented");
}

void YFileLockerPrivate::unlock()
{
    Y_ASSERT("not implemented");
}

int YFileLockerPrivate::openLockFile()
{
    return -1;
}
