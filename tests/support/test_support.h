#ifndef YOVOLIB_TEST_SUPPORT_H
#define YOVOLIB_TEST_SUPPORT_H

#include "ydebug.h"
#include "yevent.h"
#include "yexception.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

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

/// Runs a program to its end, its output and errors merged; returns its exit code, or -1 when it
/// did not start or end in time.
int runProgram(const QString& program, const QStringList& arguments, int timeoutMs = 60000,
    QByteArray* output = nullptr);

/// Runs a helper to its end; returns its exit code, or -1 when it did not start or end in time.
int runHelper(const char* name, const QStringList& arguments, int timeoutMs = 60000,
    QByteArray* output = nullptr);

QByteArray readFile(const QString& path);

/// Replaces every "dd.MM.yyyy hh:mm:ss" stamp (with ".zzz" if present) by "<TS>", so that a log
/// line can be compared byte for byte with all else pinned.
QByteArray maskTimestamps(const QByteArray& text);

/// The path of a file in the shared corpora folder.
QString corpusPath(const QString& relative);

/// Runs the call and gives the text of the YException it raises, or "<none>".
template<typename F> QString exceptionText(F call)
{
    try {
        call();
    } catch (const YException& e) {
        return QString::fromLatin1(e.what());
    }
    return QStringLiteral("<none>");
}

/// Runs the action and gives the text of the YException it raises, or "" when it raises none.
std::string thrownBy(const std::function<void()>& action);

/// Client data that counts its deletions, to see who owns it.
struct Tracked : public YClientData
{
    explicit Tracked(int* deleted)
        : _deleted(deleted)
    {
    }
    ~Tracked() override { ++*_deleted; }
    int* _deleted;
};

/// A one-way signal from one thread to another.
class Gate
{
public:
    void open();
    void wait();

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _open = false;
};

/// argv with writable strings, as a program gets them.
class Args
{
public:
    Args(std::initializer_list<const char*> items);
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;
    int argc() const { return int(_storage.size()); }
    char** argv() { return _pointers.data(); }

private:
    std::vector<std::string> _storage;
    std::vector<char*> _pointers;
};

/// A stream of its own, at the most verbose level unless told otherwise, written to a file in
/// a folder of its own.
class LogFile
{
public:
    LogFile(const char* streamName, const char* fileName, int level = YDebug::DBG3);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    YDebug::StreamId stream() const { return _stream; }
    const QString& path() const { return _path; }
    /// The file's text with its timestamps masked.
    QByteArray text() const;

private:
    TempDir _dir;
    QString _path;
    YDebug::StreamId _stream;
};

} // namespace yovotest

#endif // YOVOLIB_TEST_SUPPORT_H
