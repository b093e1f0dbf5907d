// The periodic rotation of a log written by someone else. Operating-system independent.
#include "periodic_log_rotator.h"

#include "yexception.h"
#include "ythread.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

QSet<QString> YPeriodicLogRotator::_registeredFileNames;
YMutex YPeriodicLogRotator::_mutex;
const QString YPeriodicLogRotator::_fileExtension = QStringLiteral(".log");

/// The rotator's thread: a check at once, then one after every period. It never ends and is
/// never joined; it dies with the process.
class YPeriodicLogRotator::LogRotationTask : public YThread
{
public:
    explicit LogRotationTask(YPeriodicLogRotator* rotator)
        : YThread("thread")
        , _rotator(rotator)
    {
    }

    void run() override
    {
        for (;;) {
            _rotator->rotateLog(true);
            YThread::sleep(_rotator->_periodSeconds);
        }
    }

private:
    YPeriodicLogRotator* _rotator;
};

YPeriodicLogRotator::YPeriodicLogRotator(YDebug::StreamId stream, const char* directory,
    const char* fileName, long long maxSizeKb, unsigned int periodSeconds)
    : _stream(stream)
    , _baseName(QFile::decodeName(fileName))
    , _directory(QFile::decodeName(directory))
    , _maxSizeKb(maxSizeKb)
    , _periodSeconds(periodSeconds)
{
    if (_baseName.endsWith(_fileExtension, Qt::CaseSensitive))
        _baseName.chop(_fileExtension.size());
    _fileInfo.setFile(currentPath());
    // The size must be read afresh at every check.
    _fileInfo.setCaching(false);

    const QString absolutePath = _fileInfo.absoluteFilePath();
    YMutexLocker locker(_mutex);
    if (_registeredFileNames.contains(absolutePath))
        throw YException(
            QStringLiteral("File \"%1\" is already handled by a log rotator").arg(absolutePath));
    _registeredFileNames.insert(absolutePath);
}

YPeriodicLogRotator::~YPeriodicLogRotator() = default;

void YPeriodicLogRotator::start()
{
    LogRotationTask* task = new LogRotationTask(this);
    task->start();
}

QString YPeriodicLogRotator::currentPath() const
{
    return _directory + QDir::separator() + _baseName + _fileExtension;
}

void YPeriodicLogRotator::rotateLog(bool checkSize)
{
    if (checkSize && _fileInfo.size() < _maxSizeKb * 1024)
        return;
    const QString current = currentPath();
    // Two rotations within one second get the same name, and the second rename fails.
    const QString rotated = _directory + QDir::separator() + _baseName + QLatin1Char('_')
        + QDateTime::currentDateTime().toString(QStringLiteral("ddMMyy_hhmmss")) + _fileExtension;
    if (QFile::rename(current, rotated)) {
        // Fails harmlessly when nobody has made the file again.
        QFile::resize(current, 0);
        return;
    }
    YLOG_WARNING(_stream) << QStringLiteral("%1:%2").arg(QLatin1String(__FILE__)).arg(__LINE__)
                          << "rotation of log failed" << yflush << "failed to rename"
                          << "YPeriodicLogRotator::rotateLog" << current << rotated << yflush;
}
