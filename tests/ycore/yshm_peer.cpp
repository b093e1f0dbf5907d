// The other process of the shared-memory, locker, pipe and single-instance tests. The first
// argument names the role; interactive roles answer one line per command read on stdin.
#include "shm_test_util.h"

#include "ymmap_allocator.h"
#include "ymmap_hash.h"
#include "ynamed_pipe.h"
#include "yreader_writer_locker.h"
#include "ysemaphore.h"
#include "ysingle_instance_checker.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QSet>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <sched.h>
#include <string>
#include <unistd.h>

using shmtest::checkValue;
using shmtest::makeValue;
using shmtest::ValueInfo;

namespace {

void say(const QByteArray& line)
{
    fprintf(stdout, "%s\n", line.constData());
    fflush(stdout);
}

bool nextCommand(QList<QByteArray>* words)
{
    char buffer[4096];
    if (!fgets(buffer, sizeof(buffer), stdin))
        return false;
    *words = QByteArray(buffer).trimmed().split(' ');
    return true;
}

// Creates the segment argv[3] names ("create", with argv[4] or else 4096 bytes) or attaches to
// it, and says "ready" or why it failed.
template<typename Segment> bool openSegment(Segment& segment, int argc, char** argv)
{
    const bool ok = strcmp(argv[2], "create") == 0
        ? segment.create(argv[3], argc > 4 ? unsigned(atol(argv[4])) : 4096)
        : segment.attach(argv[3]);
    if (!ok) {
        say("failed " + segment.errorString().toLatin1());
        return false;
    }
    say("ready");
    return true;
}

// Answers the commands read until "quit" or the end of the input; the handler gives false for a
// command it does not know.
template<typename Handler> int serve(Handler handle)
{
    QList<QByteArray> w;
    while (nextCommand(&w)) {
        if (w[0] == "quit")
            return 0;
        if (!handle(w))
            say("unknown");
    }
    return 0;
}

void sayUsage(const YMMapAllocator& allocator)
{
    say("usage " + QByteArray::number(qlonglong(allocator.memUsage())) + ' '
        + QByteArray::number(qlonglong(allocator.memSize())));
}

// Attaches to the table another process made, or says why it can't.
bool attachTable(YMMapHash& hash, const char* name)
{
    if (hash.attach(name))
        return true;
    say("failed " + hash.errorString().toLatin1());
    return false;
}

int hashRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YMMapHash hash;
    if (!openSegment(hash, argc, argv))
        return 1;
    return serve([&](const QList<QByteArray>& w) {
        const QByteArray& c = w[0];
        const QByteArray key = w.value(1);
        if (c == "put" || c == "aput") {
            const bool done
                = c == "put" ? hash.insert(key, w.value(2)) : hash.atomicInsert(key, w.value(2));
            say(done ? "ok" : "fail " + hash.errorString().toLatin1());
        } else if (c == "get") {
            QByteArray value;
            say(hash.value(key, value) ? "value " + value : QByteArray("missing"));
        } else if (c == "contains") {
            say(hash.contains(key) ? "yes" : "no");
        } else if (c == "del") {
            say(hash.remove(key) ? "ok" : "missing");
        } else if (c == "clear") {
            hash.clear();
            say("ok");
        } else if (c == "count") {
            say("count " + QByteArray::number(hash.getEntriesCount()));
        } else if (c == "usage") {
            sayUsage(hash.getAllocator());
        } else {
            return false;
        }
        return true;
    });
}

int allocRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YMMapAllocator allocator;
    if (!openSegment(allocator, argc, argv))
        return 1;
    return serve([&](const QList<QByteArray>& w) {
        const QByteArray& c = w[0];
        if (c == "usage") {
            sayUsage(allocator);
        } else if (c == "base") {
            say("base " + QByteArray::number(quintptr(allocator.baseAddress()), 16));
        } else if (c == "read") {
            const char* p = static_cast<const char*>(allocator.offsetToPtr(w.value(1).toLong()));
            say(p ? "bytes " + QByteArray(p, w.value(2).toInt()) : QByteArray("null"));
        } else if (c == "write") {
            char* p = static_cast<char*>(allocator.offsetToPtr(w.value(1).toLong()));
            if (p)
                memcpy(p, w.value(2).constData(), size_t(w.value(2).size()));
            say(p ? "ok" : "null");
        } else if (c == "alloc") {
            void* p = allocator.allocate(w.value(1).toUInt());
            say(p ? "offset " + QByteArray::number(qlonglong(allocator.ptrToOffset(p)))
                  : "fail " + allocator.errorString().toLatin1());
        } else {
            return false;
        }
        return true;
    });
}

// A counter in a segment that a writer makes odd while inside and even again before leaving:
// an odd value seen by a reader, or a lost increment, means that the lock let two in.
int lockerRole(int argc, char** argv)
{
    if (argc < 8)
        return 2;
    YMMapAllocator segment;
    if (!segment.attach(argv[2])) {
        say("failed attach");
        return 1;
    }
    YSemaphore tokens(unsigned(atoi(argv[5])), argv[3]);
    YOneLockSemaphore gate(argv[4]);
    const bool writer = strcmp(argv[6], "writer") == 0;
    const int iterations = atoi(argv[7]);
    volatile quint32* counter = static_cast<volatile quint32*>(segment.offsetToPtr(0));
    volatile quint32* inside = static_cast<volatile quint32*>(segment.offsetToPtr(4));
    say("ready");
    int bad = 0;
    quint32 mostReaders = 0;
    for (int i = 0; i < iterations; ++i) {
        if (writer) {
            YWriterLocker locker(&tokens, &gate);
            if (!locker.isLocked()) {
                ++bad;
                continue;
            }
            const quint32 value = *counter;
            if (value % 2 != 0 || *inside != 0)
                ++bad;
            *counter = value + 1;
            sched_yield();
            *counter = value + 2;
        } else {
            YReaderLocker locker(&tokens, nullptr);
            if (!locker.isLocked()) {
                ++bad;
                continue;
            }
            const quint32 readers = __atomic_add_fetch(inside, 1, __ATOMIC_SEQ_CST);
            mostReaders = qMax(mostReaders, readers);
            if (*counter % 2 != 0)
                ++bad;
            sched_yield();
            __atomic_sub_fetch(inside, 1, __ATOMIC_SEQ_CST);
        }
    }
    say("done " + QByteArray::number(bad) + ' ' + QByteArray::number(mostReaders));
    return bad == 0 ? 0 : 1;
}

QByteArray privateKey(int writer, int i)
{
    return "w" + QByteArray::number(writer) + "-" + QByteArray::number(i);
}

QByteArray sharedKey(int i)
{
    return "shared-" + QByteArray::number(i);
}

int rwWriterRole(int argc, char** argv)
{
    if (argc < 10)
        return 2;
    YMMapHash hash;
    if (!attachTable(hash, argv[2]))
        return 1;
    YSemaphore tokens(unsigned(atoi(argv[5])), argv[3]);
    YOneLockSemaphore gate(argv[4]);
    const int id = atoi(argv[6]);
    const int seconds = atoi(argv[7]);
    const int shared = atoi(argv[8]);
    const int privateCount = atoi(argv[9]);
    std::mt19937 random {unsigned(getpid())};
    QSet<int> live;
    quint64 seq = 0;
    quint64 operations = 0;
    int failures = 0;
    QByteArray lastError;
    auto write = [&](const QByteArray& key) {
        const QByteArray value = makeValue(key, id, ++seq, int(random() % 41));
        YWriterLocker locker(&tokens, &gate);
        if (!locker.isLocked()) {
            ++failures;
            return false;
        }
        if (!hash.insert(key, value)) {
            ++failures;
            lastError = hash.errorString().toLatin1();
            return false;
        }
        QByteArray back;
        if (!hash.value(key, back) || back != value)
            ++failures;
        return true;
    };
    for (int i = 0; i < shared; ++i)
        write(sharedKey(i));
    say("ready");
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < seconds * 1000) {
        ++operations;
        // Inserts only: remove() trusts prev links that a removal before it left stale, so a
        // chain that lost its head can't be relied on to lose its next entry as well.
        if (random() % 10 < 3) {
            write(sharedKey(int(random() % unsigned(shared))));
        } else {
            const int i = int(random() % unsigned(privateCount));
            if (write(privateKey(id, i)))
                live.insert(i);
        }
    }
    QByteArray keys;
    for (int i : live)
        keys += ' ' + QByteArray::number(i);
    say("live" + keys);
    say("done " + QByteArray::number(qulonglong(operations)) + ' ' + QByteArray::number(failures)
        + ' ' + lastError);
    return failures == 0 ? 0 : 1;
}

int rwReaderRole(int argc, char** argv)
{
    if (argc < 10)
        return 2;
    YMMapHash hash;
    if (!attachTable(hash, argv[2]))
        return 1;
    YSemaphore tokens(unsigned(atoi(argv[5])), argv[3]);
    YOneLockSemaphore gate(argv[4]);
    const int seconds = atoi(argv[6]);
    const int shared = atoi(argv[7]);
    const int privateCount = atoi(argv[8]);
    const int writers = atoi(argv[9]);
    std::mt19937 random {unsigned(getpid())};
    std::map<QByteArray, quint64> lastSeq;
    quint64 reads = 0, found = 0, bad = 0;
    say("ready");
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < seconds * 1000) {
        const unsigned pick = random() % unsigned(shared + writers * privateCount);
        const bool isShared = pick < unsigned(shared);
        const int writer = isShared ? -1 : int((pick - unsigned(shared)) / unsigned(privateCount));
        const QByteArray key = isShared
            ? sharedKey(int(pick))
            : privateKey(writer, int((pick - unsigned(shared)) % unsigned(privateCount)));
        QByteArray value;
        bool present;
        {
            YReaderLocker locker(&tokens, &gate);
            if (!locker.isLocked()) {
                ++bad;
                continue;
            }
            present = hash.value(key, value);
        }
        ++reads;
        if (!present)
            continue;
        ++found;
        ValueInfo info;
        if (!checkValue(key, value.constData(), value.size(), &info)
            || (!isShared && info.writer != writer) || info.writer < 0 || info.writer >= writers) {
            ++bad;
            fprintf(stderr, "bad value for %s: %s\n", key.constData(), value.constData());
            continue;
        }
        // One writer per private key: what readers see of it never goes back in time.
        if (!isShared) {
            quint64& last = lastSeq[key];
            if (info.seq < last)
                ++bad;
            last = info.seq;
        }
    }
    say("done " + QByteArray::number(qulonglong(reads)) + ' '
        + QByteArray::number(qulonglong(found)) + ' ' + QByteArray::number(qulonglong(bad)));
    return bad == 0 ? 0 : 1;
}

// The only writer of a table that readers read without a lock: atomicInsert only.
int atomicWriterRole(int argc, char** argv)
{
    if (argc < 5)
        return 2;
    YMMapHash hash;
    if (!attachTable(hash, argv[2]))
        return 1;
    const int keys = atoi(argv[3]);
    const int rounds = atoi(argv[4]);
    say("ready");
    QList<QByteArray> w;
    nextCommand(&w); // "go", once the readers run
    quint64 seq = 0;
    int failures = 0;
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < keys; ++i) {
            const QByteArray key = "key-" + QByteArray::number(i);
            ++seq;
            if (!hash.atomicInsert(key, makeValue(key, 0, seq, int(seq % 61))))
                ++failures;
        }
    }
    hash.atomicInsert("done", "1");
    say("done " + QByteArray::number(qulonglong(seq)) + ' ' + QByteArray::number(failures));
    return failures == 0 ? 0 : 1;
}

int atomicReaderRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YMMapHash hash;
    if (!attachTable(hash, argv[2]))
        return 1;
    const int keys = atoi(argv[3]);
    std::mt19937 random {unsigned(getpid())};
    quint64 reads = 0, found = 0, bad = 0;
    say("ready");
    while (!hash.contains("done")) {
        const QByteArray key = "key-" + QByteArray::number(int(random() % unsigned(keys)));
        ++reads;
        ValueInfo info;
        if (reads % 2) {
            QByteArray value;
            if (!hash.value(key, value))
                continue;
            ++found;
            if (!checkValue(key, value.constData(), value.size(), &info))
                ++bad;
        } else {
            void* data = nullptr;
            int length = 0;
            if (!hash.value(key, &data, length))
                continue;
            ++found;
            if (!checkValue(key, static_cast<const char*>(data), length, &info))
                ++bad;
        }
    }
    say("done " + QByteArray::number(qulonglong(reads)) + ' '
        + QByteArray::number(qulonglong(found)) + ' ' + QByteArray::number(qulonglong(bad)));
    return bad == 0 ? 0 : 1;
}

int pipeClientRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YNamedPipeClient client(argv[2], QByteArray());
    if (!client.connect(0)) {
        say("failed " + QByteArray::number(client.getLastErrorCode()));
        return 1;
    }
    say("connected");
    const QByteArray scenario = argv[3];
    unsigned int written = 0;
    if (scenario == "echo") {
        if (!client.write("hello", 5, &written, 5000) || written != 5) {
            say("write failed " + QByteArray::number(client.getLastErrorCode()));
            return 1;
        }
        QByteArray answer;
        if (!client.readMsg(5, answer, 20)) {
            say("read failed " + QByteArray::number(client.getLastErrorCode()));
            return 1;
        }
        say("got " + answer);
        return 0;
    }
    if (scenario == "partial") {
        client.write("abcd", 4, &written, 5000);
        say("sent");
        QList<QByteArray> w;
        nextCommand(&w); // stays connected and silent until told
        return 0;
    }
    if (scenario == "wait-lost") {
        // Reads until the server is gone.
        QByteArray message;
        const bool got = client.readMsg(4, message, 20);
        say("got " + (got ? message : QByteArray("nothing")));
        char byte;
        unsigned int received = 0;
        while (client.read(&byte, 1, &received, 1000) || client.getLastErrorCode() == -2) { }
        say("lost " + QByteArray(client.isLostConnection() ? "1" : "0") + ' '
            + QByteArray::number(client.getLastErrorCode()));
        return 0;
    }
    return 2;
}

int pipeServerRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YNamedPipeConnectionsServer server(argv[2]);
    void* pending = YNamedPipe::invalidHandle();
    // An instance exists before anyone is told to connect.
    YNamedPipe* pipe = server.waitForNewConnection(0, &pending);
    say("listening");
    for (int i = 0; i < 300 && !pipe; ++i)
        pipe = server.waitForNewConnection(100, &pending);
    if (!pipe) {
        say("no client " + QByteArray::number(server.getLastErrorCode()));
        return 1;
    }
    say("accepted");
    const QByteArray scenario = argv[3];
    unsigned int written = 0;
    if (scenario == "echo") {
        QByteArray message;
        if (!pipe->readMsg(5, message, 20)) {
            say("read failed");
            return 1;
        }
        const QByteArray answer = message.toUpper();
        pipe->write(answer.constData(), unsigned(answer.size()), &written, 5000);
        delete pipe; // waits until the client has read the answer
        say("done " + message);
        return 0;
    }
    if (scenario == "hold") {
        pipe->write("ping", 4, &written, 5000);
        say("sent");
        QList<QByteArray> w;
        nextCommand(&w); // the test ends this process here
        delete pipe;
        return 0;
    }
    return 2;
}

// Takes and gives back one token of a semaphore for ever, so that a kill at any moment may
// find it anywhere: opening, inside the semaphore's own lock, holding a token or not.
int semaphoreChurnRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YSemaphore semaphore(unsigned(atoi(argv[3])), argv[2]);
    if (!semaphore.isOk() || !semaphore.acquire(1)) {
        say("failed");
        return 1;
    }
    say("ready");
    for (;;) {
        semaphore.release(1);
        semaphore.acquire(1);
    }
}

// Creates a table or attaches to one, then replaces and adds entries with atomicInsert for
// ever, so that a kill lands in the middle of one.
int hashChurnRole(int argc, char** argv)
{
    if (argc < 5)
        return 2;
    YMMapHash hash;
    const bool ok = strcmp(argv[2], "create") == 0 ? hash.create(argv[3], unsigned(atol(argv[4])))
                                                   : hash.attach(argv[3]);
    if (!ok) {
        say("failed " + hash.errorString().toLatin1());
        return 1;
    }
    const int keys = argc > 5 ? atoi(argv[5]) : 64;
    say("ready");
    std::mt19937 random {unsigned(getpid())};
    for (quint64 seq = 1;; ++seq) {
        const QByteArray key = "key-" + QByteArray::number(int(random() % unsigned(keys)));
        // A full table only refuses: the values already in it stay whole.
        hash.atomicInsert(key, makeValue(key, 0, seq, int(random() % 61)));
    }
}

// One client of the pipe soak: sends a length-prefixed request and reads the answer, or, told
// to die, sends part of its request and kills itself.
int pipeSoakClientRole(int argc, char** argv)
{
    if (argc < 5)
        return 2;
    YNamedPipeClient client(argv[2], QByteArray());
    if (!client.connect(0)) {
        say("failed " + QByteArray::number(client.getLastErrorCode()));
        return 1;
    }
    const QByteArray body = QByteArray(argv[4]).repeated(7);
    const quint32 length = quint32(body.size());
    const QByteArray request = QByteArray(reinterpret_cast<const char*>(&length), 4) + body;
    unsigned int written = 0;
    if (strcmp(argv[3], "die") == 0) {
        // Some die inside the length, the others inside the body.
        const int cut = 1 + int(quint32(getpid()) % unsigned(request.size() - 1));
        client.write(request.constData(), unsigned(cut), &written, 5000);
        ::kill(getpid(), SIGKILL);
    }
    if (!client.write(request.constData(), unsigned(request.size()), &written, 5000)
        || written != unsigned(request.size())) {
        say("write failed " + QByteArray::number(client.getLastErrorCode()));
        return 1;
    }
    QByteArray answer;
    if (!client.readMsg(unsigned(body.size()), answer, 20)) {
        say("read failed " + QByteArray::number(client.getLastErrorCode()));
        return 1;
    }
    say(answer == body.toUpper() ? "served" : "wrong " + answer);
    return 0;
}

int singleRole(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    YSingleInstanceChecker checker(QString::fromLatin1(argv[2]));
    if (strcmp(argv[3], "check") == 0) {
        say(checker.isAnotherRunning() ? "another 1" : "another 0");
        return 0;
    }
    say(checker.markAsRunning() ? "marked 1" : "marked 0");
    QList<QByteArray> w;
    while (nextCommand(&w)) {
        if (w[0] == "release")
            say(checker.markAsNotRunning() ? "released 1" : "released 0");
        else if (w[0] == "check")
            say(checker.isAnotherRunning() ? "another 1" : "another 0");
        else if (w[0] == "quit")
            return 0;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    const std::string role = argv[1];
    if (role == "hash")
        return hashRole(argc, argv);
    if (role == "alloc")
        return allocRole(argc, argv);
    if (role == "locker")
        return lockerRole(argc, argv);
    if (role == "rw-writer")
        return rwWriterRole(argc, argv);
    if (role == "rw-reader")
        return rwReaderRole(argc, argv);
    if (role == "atomic-writer")
        return atomicWriterRole(argc, argv);
    if (role == "atomic-reader")
        return atomicReaderRole(argc, argv);
    if (role == "pipe-client")
        return pipeClientRole(argc, argv);
    if (role == "pipe-server")
        return pipeServerRole(argc, argv);
    if (role == "single")
        return singleRole(argc, argv);
    if (role == "semaphore-churn")
        return semaphoreChurnRole(argc, argv);
    if (role == "hash-churn")
        return hashChurnRole(argc, argv);
    if (role == "pipe-soak-client")
        return pipeSoakClientRole(argc, argv);
    return 2;
}
