#ifndef YOVOLIB_TEST_SUPPORT_H
#define YOVOLIB_TEST_SUPPORT_H

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace yovotest {

/// A name no other test or run uses: prefix, process id and a counter.
QString uniqueName(const char* prefix);

/// A fresh folder under the system's temporary folder, removed with the object.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const QString& path() const { return _path; }
    QString file(const QString& name) const { return _path + QLatin1Char('/') + name; }

private:
    QString _path;
};

/// The path of a helper program built beside the tests.
QString helperPath(const char* name);

/// Runs a helper to its end; returns its exit code, or -1 when it did not start or end in time.
int runHelper(const char* name, const QStringList& arguments, int timeoutMs = 60000,
    QByteArray* output = nullptr);

QByteArray readFile(const QString& path);

/// Replaces every "dd.MM.yyyy hh:mm:ss" stamp (with ".zzz" if present) by "<TS>", so that a log
/// line can be compared byte for byte with all else pinned.
QByteArray maskTimestamps(const QByteArray& text);

/// The path of a file in the shared corpora folder.
QString corpusPath(const QString& relative);

} // namespace yovotest

#endif // YOVOLIB_TEST_SUPPORT_H
