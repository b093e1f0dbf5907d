#ifndef YOVOLIB_INI_TEST_UTIL_H
#define YOVOLIB_INI_TEST_UTIL_H

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

namespace yovotest {

inline void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot write %s", qPrintable(path));
    file.write(content);
}

/// The name under which the scanner's table knows a file.
inline QString tableName(const QString& path)
{
    return QDir::toNativeSeparators(QFileInfo(path).absoluteFilePath());
}

} // namespace yovotest

#endif // YOVOLIB_INI_TEST_UTIL_H
