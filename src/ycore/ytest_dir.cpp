#include "ytest_dir.h"

#include <QFile>
#include <QFileInfo>

YTestDir::YTestDir(const char* root, const char* module, const char* name)
    : _dir(QStringLiteral("%1/%2/%3")
               .arg(QString::fromLocal8Bit(root), QString::fromLocal8Bit(module),
                   QString::fromLocal8Bit(name)))
{
    _dir.mkpath(QStringLiteral("."));
    clean();
}

QString YTestDir::getAbsoluteDirName()
{
    return _dir.absolutePath();
}

QString YTestDir::getAbsoluteFileName(const char* file)
{
    return _dir.absoluteFilePath(QString::fromLocal8Bit(file));
}

void YTestDir::clean()
{
    const QFileInfoList entries
        = _dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries)
        recursiveClean(entry.absoluteFilePath());
    // rmpath() of the last subfolder takes the emptied folder along; it is to stay.
    _dir.mkpath(QStringLiteral("."));
}

void YTestDir::recursiveClean(const QString& path)
{
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink()) {
        const QDir dir(path);
        const QFileInfoList entries = dir.entryInfoList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        for (const QFileInfo& entry : entries)
            recursiveClean(entry.absoluteFilePath());
        // kept: test-dir-rmpath
        QDir().rmpath(info.absoluteFilePath());
    } else {
        QFile::remove(path);
    }
}

QString YTestDir::getUnittestsDirName(const QString& base)
{
    return QStringLiteral("%1/%2").arg(base, QStringLiteral("unittests"));
}

QString YTestDir::getInputDirName(const QString& base)
{
    return QStringLiteral("%1/%2").arg(getUnittestsDirName(base), QStringLiteral("input"));
}

QString YTestDir::getOutputDirName(const QString& base)
{
    return QStringLiteral("%1/%2").arg(getUnittestsDirName(base), QStringLiteral("output"));
}
