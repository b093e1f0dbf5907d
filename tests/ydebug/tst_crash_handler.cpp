// The crash handler, for real: a helper program registers it and then dies, and the tests look at
// how it died, at the dump it left, at the line it logged, and at what a debugger makes of the
// dump.
#include "test_support.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <cstring>
#include <vector>

#include <elf.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace {

#if defined(YOVO_SANITIZE_ADDRESS)
const bool ADDRESS_SANITIZER = true;
#else
const bool ADDRESS_SANITIZER = false;
#endif
#if defined(YOVO_SANITIZE_THREAD)
const bool THREAD_SANITIZER = true;
#else
const bool THREAD_SANITIZER = false;
#endif
#if defined(YOVO_SANITIZE_UNDEFINED)
const bool UNDEFINED_SANITIZER = true;
#else
const bool UNDEFINED_SANITIZER = false;
#endif

// A run that takes longer than this has hung.
const int CRASH_TIMEOUT_MS = 10000;

struct Outcome
{
    bool ended = false;
    bool signaled = false;
    int signal = 0;
    int exitCode = -1;
    pid_t pid = -1;
};

QString helperBinary()
{
    return QFileInfo(yovotest::helperPath("crash_helper")).canonicalFilePath();
}

// Runs the helper with TMPDIR (and TZ when given) set, its output going to a file.
Outcome runCrash(const QStringList& arguments, const QString& tmpDir, const QString& outputFile,
    const QByteArray& tz = QByteArray())
{
    std::vector<QByteArray> storage;
    storage.push_back(QFile::encodeName(helperBinary()));
    for (const QString& a : arguments)
        storage.push_back(a.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& a : storage)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    std::vector<QByteArray> envStorage;
    for (char** e = environ; *e; ++e) {
        if (strncmp(*e, "TMPDIR=", 7) != 0 && (tz.isEmpty() || strncmp(*e, "TZ=", 3) != 0))
            envStorage.push_back(QByteArray(*e));
    }
    envStorage.push_back("TMPDIR=" + QFile::encodeName(tmpDir));
    if (!tz.isEmpty())
        envStorage.push_back("TZ=" + tz);
    std::vector<char*> envp;
    for (QByteArray& e : envStorage)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    const QByteArray output = QFile::encodeName(outputFile);

    Outcome outcome;
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(output.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            dup2(fd, 1);
            dup2(fd, 2);
        }
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    if (pid < 0)
        return outcome;
    outcome.pid = pid;
    int status = 0;
    for (int waited = 0; waited <= CRASH_TIMEOUT_MS; waited += 10) {
        if (waitpid(pid, &status, WNOHANG) == pid) {
            outcome.ended = true;
            break;
        }
        struct timespec pause = {0, 10 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    if (!outcome.ended) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return outcome;
    }
    outcome.signaled = WIFSIGNALED(status);
    outcome.signal = outcome.signaled ? WTERMSIG(status) : 0;
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

QByteArray runLldb(const QString& dump, QString* error)
{
    const QString lldb = QStandardPaths::findExecutable(QStringLiteral("lldb"));
    if (lldb.isEmpty()) {
        *error = QStringLiteral("lldb not found (Debian package lldb)");
        return QByteArray();
    }
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(lldb,
        {QStringLiteral("--batch"), QStringLiteral("-c"), dump, helperBinary(),
            QStringLiteral("-o"), QStringLiteral("bt 12")});
    if (!process.waitForFinished(120000)) {
        process.kill();
        process.waitForFinished();
        *error = QStringLiteral("lldb did not finish");
    }
    return process.readAll();
}

// The parts of a dump the tests look at, read by the format's offsets.
struct Dump
{
    QByteArray bytes;

    quint32 u32(qint64 at) const
    {
        quint32 v = 0;
        if (at >= 0 && at + 4 <= bytes.size())
            memcpy(&v, bytes.constData() + at, 4);
        return v;
    }
    quint64 u64(qint64 at) const
    {
        quint64 v = 0;
        if (at >= 0 && at + 8 <= bytes.size())
            memcpy(&v, bytes.constData() + at, 8);
        return v;
    }
    // The stream's offset and size, or an offset of -1 when there is none.
    QPair<qint64, quint32> stream(quint32 type) const
    {
        const quint32 count = u32(8);
        const quint32 directory = u32(12);
        for (quint32 i = 0; i < count; ++i) {
            const qint64 entry = qint64(directory) + qint64(i) * 12;
            if (u32(entry) == type)
                return qMakePair(qint64(u32(entry + 8)), u32(entry + 4));
        }
        return qMakePair(qint64(-1), quint32(0));
    }
    QString string(qint64 rva) const
    {
        const quint32 length = u32(rva);
        if (rva < 0 || rva + 4 + qint64(length) > bytes.size())
            return QString();
        return QString::fromUtf16(
            reinterpret_cast<const char16_t*>(bytes.constData() + rva + 4), int(length / 2));
    }
};

QByteArray buildIdOfFile(const QString& path)
{
    const QByteArray file = yovotest::readFile(path);
    if (file.size() < int(sizeof(Elf64_Ehdr)))
        return QByteArray();
    Elf64_Ehdr header;
    memcpy(&header, file.constData(), sizeof header);
    for (int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr ph;
        memcpy(&ph, file.constData() + header.e_phoff + i * sizeof ph, sizeof ph);
        if (ph.p_type != PT_NOTE)
            continue;
        quint64 at = ph.p_offset;
        const quint64 end = ph.p_offset + ph.p_filesz;
        while (at + sizeof(Elf64_Nhdr) <= end) {
            Elf64_Nhdr nh;
            memcpy(&nh, file.constData() + at, sizeof nh);
            const quint64 name = at + sizeof nh;
            const quint64 desc = name + ((nh.n_namesz + 3) & ~3u);
            if (nh.n_type == NT_GNU_BUILD_ID && nh.n_namesz == 4
                && memcmp(file.constData() + name, "GNU", 4) == 0)
                return file.mid(int(desc), int(nh.n_descsz));
            at = desc + ((nh.n_descsz + 3) & ~3u);
        }
    }
    return QByteArray();
}

class CrashHandler : public ::testing::Test
{
protected:
    QString dumpPath(pid_t pid) const
    {
        return _tmp.path() + QStringLiteral("/yovo_dump/p%1.mdmp").arg(pid);
    }
    QString log() const { return _tmp.file(QStringLiteral("crash.log")); }
    QString output() const { return _tmp.file(QStringLiteral("output.txt")); }
    QByteArray expectedSuccessLine(pid_t pid) const
    {
        return QStringLiteral("[CRASH <TS> ERROR] %1 (pid %2) has exited unexpectedly. Minidump "
                              "is at %3 \r\n")
            .arg(helperBinary())
            .arg(pid)
            .arg(dumpPath(pid))
            .toLocal8Bit();
    }
    // The crash line is the log's last line, behind the helper's own "ready" line.
    QByteArray crashLine() const
    {
        const QByteArray text = yovotest::readFile(log());
        const int ready = text.indexOf("ready \r\n");
        return ready < 0 ? QByteArray() : text.mid(ready + 8);
    }

    // A crash that leaves a dump: how the process ended, the file, the line, and the debugger's
    // backtrace, which must name the given function.
    void expectDumpedCrash(const char* mode, int signal, const char* function, Dump* dump,
        QByteArray* backtrace = nullptr)
    {
        const Outcome outcome = runCrash({QString::fromLatin1(mode), log()}, _tmp.path(), output());
        ASSERT_TRUE(outcome.ended) << mode << " hung";
        EXPECT_TRUE(outcome.signaled)
            << "exit code " << outcome.exitCode << ": " << yovotest::readFile(output()).constData();
        EXPECT_EQ(signal, outcome.signal);
        dump->bytes = yovotest::readFile(dumpPath(outcome.pid));
        ASSERT_GT(dump->bytes.size(), 32);
        EXPECT_EQ(QByteArray("MDMP"), dump->bytes.left(4));
        EXPECT_EQ(0xa793u, dump->u32(4) & 0xffff);
        EXPECT_EQ(expectedSuccessLine(outcome.pid), yovotest::maskTimestamps(crashLine()));

        const auto exception = dump->stream(6);
        ASSERT_GE(exception.first, 0);
        EXPECT_EQ(quint32(signal), dump->u32(exception.first + 8));
        const auto misc = dump->stream(15);
        ASSERT_GE(misc.first, 0);
        EXPECT_EQ(quint32(outcome.pid), dump->u32(misc.first + 8));

        QString error;
        const QByteArray bt = runLldb(dumpPath(outcome.pid), &error);
        ASSERT_TRUE(error.isEmpty()) << error.toStdString();
        EXPECT_TRUE(bt.contains(QByteArray("stop reason = signal ") + strsignalName(signal)))
            << bt.constData();
        EXPECT_TRUE(bt.contains(function)) << bt.constData();
        if (backtrace)
            *backtrace = bt;
    }

    static const char* strsignalName(int signal)
    {
        switch (signal) {
        case SIGSEGV:
            return "SIGSEGV";
        case SIGABRT:
            return "SIGABRT";
        default:
            return "?";
        }
    }

    yovotest::TempDir _tmp;
};

#define SKIP_NULL_STORE_UNDER_SANITIZER()                                                          \
    do {                                                                                           \
        if (UNDEFINED_SANITIZER)                                                                   \
            GTEST_SKIP() << "the undefined-behaviour sanitizer stops a store through a null "      \
                            "pointer itself, before any signal";                                   \
    } while (false)

TEST_F(CrashHandler, NullPointerLeavesADumpThatTheDebuggerUnwinds)
{
    SKIP_NULL_STORE_UNDER_SANITIZER();
    Dump dump;
    expectDumpedCrash("null", SIGSEGV, "crashWithNullPointer", &dump);
    if (HasFatalFailure())
        return;
    // The fault address is the null pointer itself, on the main thread.
    const auto exception = dump.stream(6);
    EXPECT_EQ(0u, dump.u64(exception.first + 8 + 16));
    const quint32 threadId = dump.u32(exception.first);
    const auto threads = dump.stream(3);
    ASSERT_GE(threads.first, 0);
    EXPECT_EQ(1u, dump.u32(threads.first));
    EXPECT_EQ(threadId, dump.u32(threads.first + 4));
    EXPECT_EQ(dump.u32(dump.stream(15).first + 8), threadId);
    // The thread's stack memory and its AMD64 context.
    EXPECT_GT(dump.u32(threads.first + 4 + 24 + 8), 0u);
    const quint32 contextSize = dump.u32(threads.first + 4 + 40);
    const quint32 context = dump.u32(threads.first + 4 + 44);
    EXPECT_EQ(1232u, contextSize);
    EXPECT_EQ(0x00100000u, dump.u32(context + 0x30) & 0x00100000u);
}

TEST_F(CrashHandler, AbortLeavesADumpThatTheDebuggerUnwinds)
{
    Dump dump;
    expectDumpedCrash("abort", SIGABRT, "crashWithAbort", &dump);
}

TEST_F(CrashHandler, FaultInsideMallocDoesNotDeadlock)
{
    if (ADDRESS_SANITIZER || THREAD_SANITIZER)
        GTEST_SKIP() << "the sanitizer replaces malloc with an allocator of its own, which "
                        "reports or ignores the corruption instead of faulting inside malloc";
    Dump dump;
    QByteArray backtrace;
    expectDumpedCrash("malloc", SIGABRT, "crashInsideMalloc", &dump, &backtrace);
    EXPECT_TRUE(backtrace.contains("malloc")) << backtrace.constData();
}

TEST_F(CrashHandler, FaultOnAWorkerThreadNamesThatThread)
{
    SKIP_NULL_STORE_UNDER_SANITIZER();
    const Outcome outcome = runCrash(
        {QStringLiteral("thread"), log(), QStringLiteral("--ids")}, _tmp.path(), output());
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGSEGV, outcome.signal);
    Dump dump;
    dump.bytes = yovotest::readFile(dumpPath(outcome.pid));
    const auto exception = dump.stream(6);
    ASSERT_GE(exception.first, 0);
    const quint32 tid = dump.u32(exception.first);
    EXPECT_NE(quint32(outcome.pid), tid);
    const auto threads = dump.stream(3);
    EXPECT_EQ(tid, dump.u32(threads.first + 4));
    // Process and thread ids and milliseconds, as the streams were told to print them.
    EXPECT_EQ(QStringLiteral("[CRASH <TS> p%1/t%2 ERROR] %3 (pid %1) has exited unexpectedly. "
                             "Minidump is at %4 \r\n")
                  .arg(outcome.pid)
                  .arg(tid)
                  .arg(helperBinary())
                  .arg(dumpPath(outcome.pid))
                  .toLocal8Bit(),
        yovotest::maskTimestamps(crashLine()));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\[CRASH \\d\\d\\.\\d\\d\\.\\d{4} "
                                                  "\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d p"))
                    .match(QString::fromLatin1(crashLine()))
                    .hasMatch())
        << crashLine().constData();
    QString error;
    const QByteArray bt = runLldb(dumpPath(outcome.pid), &error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_TRUE(bt.contains("crashOnWorkerThread")) << bt.constData();
}

TEST_F(CrashHandler, StackOverflowIsHandledOnTheAlternateStack)
{
    const Outcome outcome = runCrash({QStringLiteral("overflow"), log()}, _tmp.path(), output());
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGSEGV, outcome.signal);
    EXPECT_EQ(expectedSuccessLine(outcome.pid), yovotest::maskTimestamps(crashLine()));
    QString error;
    const QByteArray bt = runLldb(dumpPath(outcome.pid), &error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_TRUE(bt.contains("recurseForever")) << bt.constData();
}

TEST_F(CrashHandler, DumpDescribesTheSystemModulesAndMaps)
{
    Dump dump;
    expectDumpedCrash("abort", SIGABRT, "crashWithAbort", &dump);
    if (HasFatalFailure())
        return;
    const auto system = dump.stream(7);
    ASSERT_EQ(56u, system.second);
    EXPECT_EQ(9u, dump.u32(system.first) & 0xffff); // AMD64
    EXPECT_EQ(0x8201u, dump.u32(system.first + 20)); // Linux
    EXPECT_TRUE(dump.string(dump.u32(system.first + 24)).startsWith(QStringLiteral("Linux ")));

    // The helper's module carries the build id of its file, by which a debugger finds it.
    const auto modules = dump.stream(4);
    ASSERT_GE(modules.first, 0);
    const quint32 count = dump.u32(modules.first);
    EXPECT_EQ(4 + 108 * count, modules.second);
    const auto threads = dump.stream(3);
    const quint64 rip = dump.u64(dump.u32(threads.first + 4 + 44) + 0xf8);
    bool found = false;
    QString faulted;
    for (quint32 i = 0; i < count; ++i) {
        const qint64 module = modules.first + 4 + qint64(i) * 108;
        const QString name = dump.string(dump.u32(module + 20));
        const quint64 base = dump.u64(module);
        if (rip >= base && rip < base + dump.u32(module + 8))
            faulted = name;
        if (name != helperBinary())
            continue;
        found = true;
        const quint32 cvSize = dump.u32(module + 76);
        const quint32 cv = dump.u32(module + 80);
        EXPECT_EQ(QByteArray("LEpB"), dump.bytes.mid(int(cv), 4));
        EXPECT_EQ(buildIdOfFile(helperBinary()), dump.bytes.mid(int(cv) + 4, int(cvSize) - 4));
    }
    EXPECT_TRUE(found);
    // abort() ends in the C library, and the instruction pointer lies in its image.
    EXPECT_TRUE(QFileInfo(faulted).fileName().startsWith(QStringLiteral("libc")))
        << faulted.toStdString();

    const auto maps = dump.stream(0x47670009);
    ASSERT_GE(maps.first, 0);
    EXPECT_TRUE(dump.bytes.mid(int(maps.first), int(maps.second))
                    .contains(QFile::encodeName(helperBinary())));
    const auto infos = dump.stream(16);
    ASSERT_GE(infos.first, 0);
    EXPECT_EQ(16u, dump.u32(infos.first));
    EXPECT_EQ(48u, dump.u32(infos.first + 4));
    EXPECT_EQ(dump.bytes.mid(int(maps.first), int(maps.second)).count('\n'),
        int(dump.u64(infos.first + 8)));
    const auto memory = dump.stream(5);
    ASSERT_GE(memory.first, 0);
    EXPECT_GE(dump.u32(memory.first), 1u);

    // Readable by its owner only, in a folder open to all daemons as the temporary folder is.
    struct stat st;
    ASSERT_EQ(
        0, stat(QFile::encodeName(_tmp.path() + QStringLiteral("/yovo_dump")).constData(), &st));
    EXPECT_EQ(01777u, st.st_mode & 07777);
}

TEST_F(CrashHandler, DumpThatCannotBeCreatedIsLogged)
{
    // A file where the folder should be: the folder can't be made, and the dump not created.
    QFile blocker(_tmp.file(QStringLiteral("yovo_dump")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const Outcome outcome = runCrash({QStringLiteral("abort"), log()}, _tmp.path(), output());
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGABRT, outcome.signal);
    EXPECT_EQ(QStringLiteral("[CRASH <TS> ERROR] %1 (pid %2) has exited unexpectedly. Unable to "
                             "create minidump at %3 . Error %4 \r\n")
                  .arg(helperBinary())
                  .arg(outcome.pid)
                  .arg(dumpPath(outcome.pid))
                  .arg(ENOTDIR)
                  .toLocal8Bit(),
        yovotest::maskTimestamps(crashLine()));
}

TEST_F(CrashHandler, DumpThatCannotBeWrittenIsLoggedAndTheSignalStillEndsTheProcess)
{
    // Over the file size limit a write fails with EFBIG, and the SIGXFSZ it raises is not what
    // ends the process.
    const Outcome outcome = runCrash(
        {QStringLiteral("abort"), log(), QStringLiteral("--fsize=4096")}, _tmp.path(), output());
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGABRT, outcome.signal);
    EXPECT_EQ(QStringLiteral("[CRASH <TS> ERROR] %1 (pid %2) has exited unexpectedly. Unable to "
                             "write minidump at %3 . Error %4 \r\n")
                  .arg(helperBinary())
                  .arg(outcome.pid)
                  .arg(dumpPath(outcome.pid))
                  .arg(EFBIG)
                  .toLocal8Bit(),
        yovotest::maskTimestamps(crashLine()));
}

TEST_F(CrashHandler, LaterRegistrationMovesTheLineToItsStream)
{
    const QString second = _tmp.file(QStringLiteral("second.log"));
    const Outcome outcome
        = runCrash({QStringLiteral("abort"), log(), QStringLiteral("--restream=") + second},
            _tmp.path(), output());
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGABRT, outcome.signal);
    EXPECT_EQ(QByteArray(), crashLine());
    EXPECT_EQ(QStringLiteral("[SECOND <TS> ERROR] %1 (pid %2) has exited unexpectedly. Minidump "
                             "is at %3 \r\n")
                  .arg(helperBinary())
                  .arg(outcome.pid)
                  .arg(dumpPath(outcome.pid))
                  .toLocal8Bit(),
        yovotest::maskTimestamps(yovotest::readFile(second)));
}

TEST_F(CrashHandler, StandardErrorTakesTheLineWithoutPrefix)
{
    const Outcome outcome
        = runCrash({QStringLiteral("abort"), QStringLiteral("-")}, _tmp.path(), output());
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGABRT, outcome.signal);
    const QByteArray text = yovotest::maskTimestamps(yovotest::readFile(output()));
    EXPECT_TRUE(text.contains(QStringLiteral("\n[<TS> ERROR] %1 (pid %2) has exited unexpectedly. "
                                             "Minidump is at %3 \r\n")
                                  .arg(helperBinary())
                                  .arg(outcome.pid)
                                  .arg(dumpPath(outcome.pid))
                                  .toLocal8Bit()))
        << text.constData();
}

QDateTime stampOf(const QByteArray& line)
{
    const int start = line.indexOf(' ') + 1;
    return QDateTime::fromString(
        QString::fromLatin1(line.mid(start, 19)), QStringLiteral("dd.MM.yyyy hh:mm:ss"));
}

TEST_F(CrashHandler, CrashLineIsInLocalTime)
{
    // Far from UTC, so that a wrong offset can't pass for the right one.
    const Outcome outcome
        = runCrash({QStringLiteral("abort"), log()}, _tmp.path(), output(), "America/New_York");
    ASSERT_TRUE(outcome.ended) << "hung";
    const QByteArray text = yovotest::readFile(log());
    const QDateTime ready = stampOf(text.left(text.indexOf('\n')));
    const QDateTime crash = stampOf(crashLine());
    ASSERT_TRUE(ready.isValid() && crash.isValid()) << text.constData();
    EXPECT_GE(ready.secsTo(crash), 0) << text.constData();
    EXPECT_LE(ready.secsTo(crash), 60) << text.constData();
}

TEST_F(CrashHandler, CrashLineFollowsAChangeOfTheOffsetAfterRegistration)
{
    // A zone one hour ahead of UTC from three seconds after now: the helper registers before the
    // change and crashes after it.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const int day = now.date().dayOfYear() - 1;
    const int change = now.time().msecsSinceStartOfDay() / 1000 + 3;
    const int end = day + 100 <= 365 ? day + 100 : day - 200;
    const QByteArray tz = QStringLiteral("AAA0BBB-1,%1/%2:%3:%4,%5/0")
                              .arg(day)
                              .arg(change / 3600)
                              .arg(change / 60 % 60, 2, 10, QLatin1Char('0'))
                              .arg(change % 60, 2, 10, QLatin1Char('0'))
                              .arg(end)
                              .toLatin1();
    const Outcome outcome
        = runCrash({QStringLiteral("abort"), log(), QStringLiteral("--delay=5000")}, _tmp.path(),
            output(), tz);
    ASSERT_TRUE(outcome.ended) << "hung";
    EXPECT_EQ(SIGABRT, outcome.signal);
    const QByteArray text = yovotest::readFile(log());
    const QDateTime ready = stampOf(text.left(text.indexOf('\n')));
    const QDateTime crash = stampOf(crashLine());
    ASSERT_TRUE(ready.isValid() && crash.isValid()) << text.constData();
    EXPECT_GE(ready.secsTo(crash), 3600 + 3) << tz.constData() << "\n" << text.constData();
    EXPECT_LE(ready.secsTo(crash), 3600 + 60) << tz.constData() << "\n" << text.constData();
}

} // namespace
