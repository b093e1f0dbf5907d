#ifndef YOVOLIB_PERIODIC_LOG_ROTATOR_H
#define YOVOLIB_PERIODIC_LOG_ROTATOR_H

#include "ydebug.h"
#include "ymutex.h"
#include "yovolib_export.h"

#include <QFileInfo>
#include <QSet>
#include <QString>

/// Rotates a log that some other writer produces, by size and on a timer: the log is renamed to
/// <base>_ddMMyy_hhmmss.log and emptied. The writer must reopen its file, or hold it with sharing
/// that permits a rename. One file is handled by one rotator only, in the whole process.
class YOVOLIB_EXPORT YPeriodicLogRotator
{
public:
    /// The log is <directory>/<fileName>, where a fileName without ".log" gets it. Throws
    /// YException when another rotator of the process already handles that file.
    YPeriodicLogRotator(YDebug::StreamId stream, const char* directory, const char* fileName,
        long long maxSizeKb, unsigned int periodSeconds);
    /// The name stays registered and the task keeps running: a started rotator must live to the
    /// end of the process.
    ~YPeriodicLogRotator();

    /// Starts the task that checks at once, and then after every period, for ever.
    void start();
    /// One rotation; with checkSize false it rotates whatever the size. A failed rename is only
    /// logged, on the stream at level WARNING: the next round tries again.
    void rotateLog(bool checkSize);

private:
    class LogRotationTask;

    YPeriodicLogRotator(const YPeriodicLogRotator&) = delete;
    YPeriodicLogRotator& operator=(const YPeriodicLogRotator&) = delete;

    QString currentPath() const;

    YDebug::StreamId _stream;
    QFileInfo _fileInfo;
    QString _baseName;
    QString _directory;
    qint64 _maxSizeKb;
    quint32 _periodSeconds;

    static QSet<QString> _registeredFileNames;
    static YMutex _mutex;
    static const QString _fileExtension;
};

#endif // YOVOLIB_PERIODIC_LOG_ROTATOR_H
