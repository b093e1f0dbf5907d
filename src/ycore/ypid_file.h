#ifndef YOVOLIB_YPID_FILE_H
#define YOVOLIB_YPID_FILE_H

#include "ydebug.h"
#include "yovolib_export.h"

#include <QString>

class YPidFileBody;

/// The handle of a pid file. Copies share one body; the file is removed when the last copy goes.
class YOVOLIB_EXPORT YPidFile
{
public:
    /// Invalid: an empty path, logging on STDERR.
    YPidFile();
    YPidFile(const QString& path, YDebug::StreamId stream);
    YPidFile(const YPidFile& other);
    YPidFile& operator=(const YPidFile& other);
    ~YPidFile();

    bool isValid();
    /// Deletes the file now; nothing for an invalid handle.
    void remove();

private:
    void release();

    YPidFileBody* _body;
};

#endif // YOVOLIB_YPID_FILE_H
