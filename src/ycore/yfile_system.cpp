// Operating-system independent: the calls themselves are in yfile_system_posix.cpp.
#include "yfile_system.h"

#include "ydebug.h"
#include "yfile_system_p.h"

#include <QList>

#include <cerrno>
#include <cstdlib>

bool YFileSystemImpl::checkAccess(const char* path) const
{
    return YFileSystemSys::canReadWrite(path);
}

bool YFileSystemImpl::createDir(const char* path) const
{
    return YFileSystemSys::makeDir(path) == 0;
}

QByteArray YFileSystemImpl::makePath(const QByteArray& base, const QByteArray& relative)
{
    if (!YFileSystemSys::exists(base.constData()))
        return QByteArray();
    // kept: make-path-concatenates
    const QByteArray joined = base + relative;
    if (YFileSystemSys::exists(joined.constData()))
        return joined;
    QByteArray path = base;
    const QList<QByteArray> parts = relative.split('/');
    for (const QByteArray& part : parts) {
        path += '/';
        path += part;
        if (!createDir(path.constData()))
            return QByteArray();
    }
    return path;
}

char* YFileSystemImpl::readFromFile(void* handle, unsigned int* size)
{
    if (!size || YFileSystemSys::isInvalid(handle)) {
        if (size)
            *size = 0;
        return nullptr;
    }
    const qint64 total = YFileSystemSys::size(handle);
    char* block = total >= 0 && total <= qint64(0xffffffffu)
        ? static_cast<char*>(malloc(size_t(total > 0 ? total : 1)))
        : nullptr;
    qint64 done = 0;
    bool failed = block == nullptr;
    while (!failed && done < total) {
        const qint64 count = YFileSystemSys::read(handle, block + done, total - done);
        if (count < 0)
            failed = true;
        else if (count == 0)
            break;
        else
            done += count;
    }
    if (failed) {
        // kept: read-failure-closes-handle
        YFileSystemSys::close(handle);
        free(block);
        *size = 0;
        return nullptr;
    }
    *size = unsigned(done);
    return block;
}

bool YFileSystemImpl::writeToFile(void* handle, const char* data, unsigned int length)
{
    if (YFileSystemSys::isInvalid(handle)) {
        YLOG_ERROR(YDebug::STDERR) << "Failed in writeToFile - invalid handle received." << yflush;
        return false;
    }
    if (!data) {
        YLOG_ERROR(YDebug::STDERR) << "Failed in writeToFile - null data received." << yflush;
        return false;
    }
    if (length == 0) {
        YLOG_ERROR(YDebug::STDERR)
            << "Failed in writeToFile - data with length 0 received." << yflush;
        return false;
    }
    const qint64 written = YFileSystemSys::write(handle, data, length);
    if (written < 0) {
        const int code = errno;
        YLOG_ERROR(YDebug::STDERR) << "Failed in writeToFile - error code" << code << yflush;
        return false;
    }
    if (written != qint64(length)) {
        YLOG_ERROR(YDebug::STDERR)
            << "Failed in writeToFile - wrote" << written << "out of" << length << yflush;
        return false;
    }
    return true;
}
