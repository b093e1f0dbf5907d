// Operating-system independent: the shell command and sleeping are in yglobals_posix.cpp.
#include "yglobals.h"

#include "yexception.h"
#include "yglobals_p.h"
#include "yovo_server_info.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRegExp>

#include <cerrno>
#include <cstring>

const QString YGlobals::PID_RESTART_AGENT = QStringLiteral("utils_restart.pid");
const QString YGlobals::PID_PAGECACHE_CLEANER = QStringLiteral("pagecache_cleaner.pid");

namespace {

QString pidFilePath(const YovoServerInfo& info, const QString& name)
{
    return info.getTmp() + QLatin1Char('/') + name;
}

// A folder counts as present when it exists or is a link, even a dangling one.
bool pathIsPresent(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

int YGlobals::execute(const QString& command, QByteArray& out, QByteArray& err,
    YDebug::StreamId stream, int timeoutSeconds, const QStringList& environment)
{
    YLOG_DBG2(stream) << "Executing:" << command << yflush;
    QProcess process;
    if (!environment.isEmpty())
        process.setEnvironment(QProcess::systemEnvironment() + environment);
    QStringList arguments = QProcess::splitCommand(command);
    const QString program = arguments.isEmpty() ? QString() : arguments.takeFirst();
    process.start(program, arguments, QIODevice::ReadWrite);
    if (!process.waitForStarted(30000)) {
        err = process.readAllStandardError();
        throw YException(QStringLiteral("Unable to start %1. %2. %3")
                             .arg(command, process.errorString(), QString::fromLocal8Bit(err)));
    }
    YLOG_DBG2(stream) << "Waiting for process to terminate..." << yflush;
    if (!process.waitForFinished(timeoutSeconds * 1000)) {
        QString text;
        if (process.error() == QProcess::Timedout) {
            text = QStringLiteral("%1 timed out").arg(command);
        } else {
            err = process.readAllStandardError();
            text = QStringLiteral("Error executing %1 . %2")
                       .arg(command, QString::fromLocal8Bit(err));
        }
        // The QProcess destructor kills the program and reaps it on the way out.
        throw YException(text);
    }
    YLOG_DBG2(stream) << "Waiting for process to terminate...done" << yflush;
    err = process.readAllStandardError();
    out = process.readAllStandardOutput();
    if (process.exitStatus() == QProcess::CrashExit) {
        throw YException(QStringLiteral("Process crashed with exit code %1. %2")
                             .arg(process.exitCode())
                             .arg(QString::fromLocal8Bit(err)));
    }
    return process.exitCode();
}

bool YGlobals::removeDir(const QString& path, YDebug::StreamId stream)
{
    if (!pathIsPresent(path)) {
        // kept: doesnt-exists
        YLOG_DBG2(stream) << path << "doesn't exists - no need to remove" << yflush;
        return true;
    }
    const QString command = YGlobalsSys::removeTreeCommand(toNativePath(path));
    int result = 0;
    for (int attempt = 0; attempt < 10; ++attempt) {
        YLOG_DBG2(stream) << "Executing:" << command << yflush;
        result = YGlobalsSys::runShell(command);
        if (!pathIsPresent(path))
            return true;
        YGlobalsSys::sleepSeconds(1);
    }
    const QString reason = QString::fromLocal8Bit(strerror(errno));
    if (result != 0) {
        YLOG_ERROR(stream) << QStringLiteral("Failed executing %1. Code %2 %3")
                                  .arg(command)
                                  .arg(result)
                                  .arg(reason)
                           << yflush;
    } else {
        YLOG_ERROR(stream) << QStringLiteral("Could not remove directory %1. %2").arg(path, reason)
                           << yflush;
    }
    return false;
}

void YGlobals::glob(const QString& directory, std::set<QString>& found, const QString& filter)
{
    QDirIterator it(directory, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        if (!info.isFile())
            continue;
        if (filter.isEmpty()) {
            found.insert(path);
            continue;
        }
        // kept: glob-unanchored
        QRegExp pattern(filter, Qt::CaseSensitive, QRegExp::Wildcard);
        if (pattern.indexIn(info.fileName()) != -1)
            found.insert(path);
    }
}

QString YGlobals::toNativePath(const QString& path)
{
    return QDir::toNativeSeparators(path);
}

bool YGlobals::canEnterDirectory(const QString& path)
{
    QDir dir(path);
    const QString name = dir.dirName();
    dir.cdUp();
    if (!dir.cd(name))
        return false;
    return !dir.entryInfoList().isEmpty();
}

bool YGlobals::canEnterDirectory(const QFileInfo& info)
{
    // kept: enter-directory-of-entry
    return canEnterDirectory(QDir(info.absolutePath()).absolutePath());
}

YPidFile YGlobals::createPidFile(
    YDebug::StreamId stream, const YovoServerInfo& info, const QString& name)
{
    const QString path = pidFilePath(info, name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        YLOG_ERROR(stream) << "Cannot create pid file" << path << file.errorString() << yflush;
        return YPidFile(QString(), stream);
    }
    file.write(QByteArray::number(YGlobalsSys::processId()) + '\n');
    file.close();
    return YPidFile(path, stream);
}

int YGlobals::getPidOf(YDebug::StreamId stream, const YovoServerInfo& info, const QString& name)
{
    const QString path = pidFilePath(info, name);
    QFile file(path);
    if (!file.exists()) {
        YLOG_DBG2(stream) << "pid file" << path << "does not exist" << yflush;
        return -1;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        YLOG_ERROR(stream) << "Cannot open pid file" << path << file.errorString() << yflush;
        return -1;
    }
    // kept: pid-of-garbage-is-zero
    return QString::fromLatin1(file.readAll()).toInt(nullptr, 10);
}
