#include "test_support.h"

#include <QAtomicInt>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QUuid>

#include <unistd.h>

namespace yovotest {

QString uniqueName(const char* prefix)
{
    static QAtomicInt counter;
    return QStringLiteral("%1_%2_%3_%4")
        .arg(QString::fromLatin1(prefix))
        .arg(getpid())
        .arg(counter.fetchAndAddRelaxed(1))
        .arg(QUuid::createUuid().toString(QUuid::Id128).left(8));
}

TempDir::TempDir()
{
    _path = QDir::tempPath() + QLatin1Char('/') + uniqueName("yovotest");
    QDir().mkpath(_path);
}

TempDir::~TempDir()
{
    QDir(_path).removeRecursively();
}

QString helperPath(const char* name)
{
    return QStringLiteral(YOVO_TEST_HELPER_DIR "/") + QString::fromLatin1(name);
}

int runProgram(
    const QString& program, const QStringList& arguments, int timeoutMs, QByteArray* output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted(10000))
        return -1;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(5000);
        return -1;
    }
    if (output)
        *output = process.readAll();
    if (process.exitStatus() != QProcess::NormalExit)
        return -1;
    return process.exitCode();
}

int runHelper(const char* name, const QStringList& arguments, int timeoutMs, QByteArray* output)
{
    return runProgram(helperPath(name), arguments, timeoutMs, output);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

QByteArray maskTimestamps(const QByteArray& text)
{
    static const QRegularExpression stamp(
        QStringLiteral("\\d\\d\\.\\d\\d\\.\\d\\d\\d\\d \\d\\d:\\d\\d:\\d\\d(\\.\\d\\d\\d)?"));
    return QString::fromLatin1(text).replace(stamp, QStringLiteral("<TS>")).toLatin1();
}

QString corpusPath(const QString& relative)
{
    return QStringLiteral(YOVO_SHARED_DIR "/corpora/") + relative;
}

std::string thrownBy(const std::function<void()>& action)
{
    try {
        action();
    } catch (const YException& e) {
        return e.what();
    }
    return std::string();
}

void Gate::open()
{
    std::lock_guard<std::mutex> locker(_mutex);
    _open = true;
    _changed.notify_all();
}

void Gate::wait()
{
    std::unique_lock<std::mutex> locker(_mutex);
    _changed.wait(locker, [this] { return _open; });
}

Args::Args(std::initializer_list<const char*> items)
{
    for (const char* item : items)
        _storage.emplace_back(item);
    // Pointers only once the strings are all in place: growing the vector would move them.
    for (std::string& s : _storage)
        _pointers.push_back(&s[0]);
    _pointers.push_back(nullptr);
}

LogFile::LogFile(const char* streamName, const char* fileName, int level)
{
    _path = _dir.file(QString::fromLatin1(fileName));
    _stream = YDebug::registerStream(streamName, QFile::encodeName(_path).constData());
    YDebug::setDebugLevel(_stream, level);
}

LogFile::~LogFile()
{
    YDebug::unregisterStream(_stream);
}

QByteArray LogFile::text() const
{
    return maskTimestamps(readFile(_path));
}

} // namespace yovotest
