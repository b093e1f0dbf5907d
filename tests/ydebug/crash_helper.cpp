// Registers the crash handler and then dies in the way the first argument names, so that the
// tests can look at the dump and the log line it leaves.
//
//   crash_helper <null|abort|malloc|thread|overflow> <log file or -> [--ids] [--fsize=<bytes>]
//                [--restream=<second log file>] [--delay=<milliseconds>]
#include <yovolib/yovolib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

int* volatile g_nowhere = nullptr;
volatile int g_sink = 0;
volatile bool g_stop = false;

__attribute__((noinline)) void crashWithNullPointer()
{
    *g_nowhere = 42;
    g_sink = 1;
}

__attribute__((noinline)) void crashWithAbort()
{
    g_sink = 2;
    abort();
}

void* idle(void*)
{
    while (!g_stop)
        pause();
    return nullptr;
}

// Breaks the size of the heap's top chunk, so that the next allocation from it fails its check
// inside malloc and aborts there. A second thread makes malloc take its arena lock, which the
// crashing thread then holds while the handler runs.
__attribute__((noinline)) void crashInsideMalloc()
{
    pthread_t other;
    pthread_create(&other, nullptr, idle, nullptr);
    char* volatile block = static_cast<char*>(malloc(100000));
    const size_t usable = malloc_usable_size(block);
    char* volatile topSize = block + usable;
    memset(topSize, 0xff, 8);
    void* volatile again = malloc(100000);
    g_sink = again != nullptr;
}

__attribute__((noinline)) void* crashOnWorkerThread(void*)
{
    *g_nowhere = 7;
    g_sink = 3;
    return nullptr;
}

__attribute__((noinline)) int recurseForever(int depth)
{
    volatile char frame[512];
    frame[0] = char(depth);
    if (g_stop)
        return frame[0];
    return recurseForever(depth + 1) + frame[0];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: crash_helper <mode> <log file or -> [options]\n");
        return 2;
    }
    // No core files from the tests' crashes.
    struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);

    const char* mode = argv[1];
    YDebug::StreamId stream = YDebug::STDERR;
    if (strcmp(argv[2], "-") != 0)
        stream = YDebug::registerStream("CRASH", argv[2]);
    long fileSizeLimit = 0;
    const char* secondLog = nullptr;
    long delayMs = 0;
    for (int i = 3; i < argc; ++i) {
        if (strcmp(argv[i], "--ids") == 0) {
            YDebug::setPrintProcessIdAndThreadId(true);
            YDebug::setTimestampWithMilliseconds(true);
        } else if (strncmp(argv[i], "--fsize=", 8) == 0) {
            fileSizeLimit = atol(argv[i] + 8);
        } else if (strncmp(argv[i], "--restream=", 11) == 0) {
            secondLog = argv[i] + 11;
        } else if (strncmp(argv[i], "--delay=", 8) == 0) {
            delayMs = atol(argv[i] + 8);
        }
    }
    YDebug::registerCrashHandler(stream);
    if (secondLog)
        YDebug::registerCrashHandler(YDebug::registerStream("SECOND", secondLog));
    YLOG_ERROR(stream) << "helper" << mode << "ready" << yflush;
    if (delayMs > 0)
        usleep(useconds_t(delayMs) * 1000);
    if (fileSizeLimit > 0) {
        struct rlimit limit = {rlim_t(fileSizeLimit), rlim_t(fileSizeLimit)};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    if (strcmp(mode, "null") == 0) {
        crashWithNullPointer();
    } else if (strcmp(mode, "abort") == 0) {
        crashWithAbort();
    } else if (strcmp(mode, "malloc") == 0) {
        crashInsideMalloc();
    } else if (strcmp(mode, "thread") == 0) {
        pthread_t worker;
        pthread_create(&worker, nullptr, crashOnWorkerThread, nullptr);
        pthread_join(worker, nullptr);
    } else if (strcmp(mode, "overflow") == 0) {
        g_sink = recurseForever(0);
    } else {
        fprintf(stderr, "unknown mode %s\n", mode);
        return 2;
    }
    fprintf(stderr, "survived %s\n", mode);
    return 3;
}
