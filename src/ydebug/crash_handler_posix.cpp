// The crash handler for Linux: signal handlers for the fatal signals, on an alternate stack.
//
// A fatal signal can arrive anywhere, inside malloc with the allocator's lock held, inside stdio
// with a stream's lock held, or on a thread whose stack has just overflowed. The handler therefore
// runs on a stack of its own and does only what is safe there: everything that needs the heap,
// a lock or the time zone database (the folder and file name, the program's path, the table of
// the local time's offsets for the years ahead, the system's description, scratch memory for the
// dump) is gathered at registration, and at the crash the handler makes the folder, writes the
// dump and formats its one log line by hand into static memory, then writes that line with
// write(2) on the crash stream's descriptor, bypassing stdio and its lock. The line has exactly
// the form of a statement at level ERROR on that stream.
//
// The fatal signals, and the two that writing may raise itself (SIGXFSZ for a file over its size
// limit, SIGPIPE for a log that is a closed pipe), are blocked while the handler runs: a second
// fault inside the handler then ends the process at once, as the kernel does with a blocked
// synchronous signal, instead of entering the handler again; and a full disk or a closed pipe
// shows as the error of a write. When a second thread faults while the first is still writing,
// it waits: the process ends when the first is done.
//
// Afterwards the default action is back in place and the signal takes its course: a fault raised
// by an instruction recurs when the handler returns, and a signal that was sent (abort(), kill)
// is sent again to the same thread. So the process ends by the same signal as without the handler,
// and a core dump, where the system makes one, shows the same thing.
//
// The dump folder is made with the sticky bit and open to all, as /tmp itself, because the daemons
// of one machine run under different accounts and share the temporary folder; the dump itself is
// readable by its owner only (it holds the process's memory), and is never opened through a
// symbolic link, which another account could have planted in that folder.
#include "crash_handler_p.h"

#include "minidump_writer_p.h"
#include "yunix_p.h"

#include <climits>
#include <cstring>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

const int FATAL_SIGNALS[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
const size_t ALT_STACK_SIZE = 256 * 1024;
const int MAX_ZONE_CHANGES = 64;
const long long ZONE_TABLE_DAYS = 3660;

// The offset of local time from UTC, from a moment on.
struct ZoneTable
{
    long long from[MAX_ZONE_CHANGES];
    long offset[MAX_ZONE_CHANGES];
    int count;
};

struct Settings
{
    char folder[PATH_MAX];
    char pathHead[PATH_MAX];
    char pathTail[32];
    char program[PATH_MAX];
    bool haveProgram;
    ZoneTable zones;
};

struct LogState
{
    int fd;
    char prefix[256];
    size_t prefixLength;
    const std::atomic<bool>* printProcessIdAndThreadId;
    const std::atomic<const char*>* timestampFormat;
    const char* formatWithMilliseconds;
};

// One line, built without the heap.
struct Line
{
    char text[3 * PATH_MAX];
    size_t length;

    void add(const char* s, size_t n)
    {
        if (n > sizeof text - length)
            n = sizeof text - length;
        memcpy(text + length, s, n);
        length += n;
    }
    void add(const char* s) { add(s, strlen(s)); }
    void add(char c) { add(&c, 1); }
    void addNumber(long long value)
    {
        char digits[24];
        int n = 0;
        const bool negative = value < 0;
        unsigned long long v = negative ? 0ULL - static_cast<unsigned long long>(value)
                                        : static_cast<unsigned long long>(value);
        do {
            digits[n++] = char('0' + v % 10);
            v /= 10;
        } while (v);
        if (negative)
            add('-');
        while (n > 0)
            add(digits[--n]);
    }
    void addDigits(int value, int width)
    {
        char digits[8];
        for (int i = width - 1; i >= 0; --i, value /= 10)
            digits[i] = char('0' + value % 10);
        add(digits, size_t(width));
    }
    void terminate() { text[length < sizeof text ? length : sizeof text - 1] = '\0'; }
};

Settings g_settings;
LogState g_log = {-1, {}, 0, nullptr, nullptr, nullptr};
std::atomic<int> g_handling(0);
Line g_path;
Line g_description;
Line g_line;

void copyText(char* destination, size_t capacity, const QByteArray& text)
{
    const size_t n = size_t(text.size()) < capacity - 1 ? size_t(text.size()) : capacity - 1;
    memcpy(destination, text.constData(), n);
    destination[n] = '\0';
}

long gmtOffset(long long t)
{
    const time_t moment = time_t(t);
    struct tm parts;
    if (!localtime_r(&moment, &parts))
        return 0;
    return parts.tm_gmtoff;
}

// localtime_r takes a lock and may read the zone files, so the changes of the offset over the
// next ten years are found now, day by day and then to the second.
void buildZoneTable(ZoneTable* table)
{
    const long long start = (long long)time(nullptr) - 86400;
    table->from[0] = LLONG_MIN;
    table->offset[0] = gmtOffset(start);
    table->count = 1;
    for (long long day = 0; day < ZONE_TABLE_DAYS && table->count < MAX_ZONE_CHANGES; ++day) {
        long long low = start + day * 86400;
        long long high = low + 86400;
        const long current = table->offset[table->count - 1];
        if (gmtOffset(high) == current)
            continue;
        while (high - low > 1) {
            const long long middle = low + (high - low) / 2;
            if (gmtOffset(middle) == current)
                low = middle;
            else
                high = middle;
        }
        table->from[table->count] = high;
        table->offset[table->count] = gmtOffset(high);
        ++table->count;
    }
}

long offsetAt(const ZoneTable& table, long long t)
{
    long offset = table.offset[0];
    for (int i = 1; i < table.count && t >= table.from[i]; ++i)
        offset = table.offset[i];
    return offset;
}

// Days since 1970-01-01 to a calendar date, in the proleptic Gregorian calendar.
void civilFromDays(long long days, int* year, int* month, int* day)
{
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const long long dayOfEra = days - era * 146097;
    const long long yearOfEra
        = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long long mp = (5 * dayOfYear + 2) / 153;
    *day = int(dayOfYear - (153 * mp + 2) / 5 + 1);
    *month = int(mp < 10 ? mp + 3 : mp - 9);
    *year = int(yearOfEra + era * 400 + (*month <= 2 ? 1 : 0));
}

// "dd.MM.yyyy hh:mm:ss", with ".zzz" when the streams print milliseconds.
void addTimestamp(Line& line, bool withMilliseconds)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const long long local = (long long)now.tv_sec + offsetAt(g_settings.zones, now.tv_sec);
    long long days = local / 86400;
    long long second = local % 86400;
    if (second < 0) {
        second += 86400;
        --days;
    }
    int year, month, day;
    civilFromDays(days, &year, &month, &day);
    line.addDigits(day, 2);
    line.add('.');
    line.addDigits(month, 2);
    line.add('.');
    line.addDigits(year, 4);
    line.add(' ');
    line.addDigits(int(second / 3600), 2);
    line.add(':');
    line.addDigits(int(second / 60 % 60), 2);
    line.add(':');
    line.addDigits(int(second % 60), 2);
    if (withMilliseconds) {
        line.add('.');
        line.addDigits(int(now.tv_nsec / 1000000), 3);
    }
}

int writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t n;
        Y_EINTR_LOOP(n, ::write(fd, data, size));
        if (n <= 0)
            return n < 0 ? errno : EIO;
        data += n;
        size -= size_t(n);
    }
    return 0;
}

// The statement's line: "[prefix dd.MM.yyyy hh:mm:ss ERROR] " and each item followed by a blank,
// then CR LF. An error number, when not negative, is the last item.
int logCrash(const char* message, long errorNumber, long pid, long tid)
{
    if (g_log.fd < 0)
        return 0;
    Line& line = g_line;
    line.length = 0;
    line.add('[');
    if (g_log.prefixLength) {
        line.add(g_log.prefix, g_log.prefixLength);
        line.add(' ');
    }
    const bool withMilliseconds = g_log.timestampFormat && g_log.formatWithMilliseconds
        && g_log.timestampFormat->load(std::memory_order_relaxed) == g_log.formatWithMilliseconds;
    addTimestamp(line, withMilliseconds);
    line.add(' ');
    if (g_log.printProcessIdAndThreadId
        && g_log.printProcessIdAndThreadId->load(std::memory_order_relaxed)) {
        line.add('p');
        line.addNumber(pid);
        line.add("/t");
        line.addNumber(tid);
        line.add(' ');
    }
    line.add("ERROR] ");
    line.add(g_description.text, g_description.length);
    line.add(' ');
    line.add(message);
    line.add(' ');
    line.add(g_path.text, g_path.length);
    line.add(' ');
    if (errorNumber >= 0) {
        line.add(". Error ");
        line.addNumber(errorNumber);
        line.add(' ');
    }
    line.add("\r\n");
    return writeAll(g_log.fd, line.text, line.length);
}

void discardPending(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigset_t pending;
    if (sigpending(&pending) != 0 || !sigismember(&pending, signal))
        return;
    struct timespec zero = {0, 0};
    // The kernel's signal set is _NSIG bits, smaller than the library's sigset_t.
    ::syscall(SYS_rt_sigtimedwait, &set, nullptr, &zero, size_t(_NSIG / 8));
}

void handleCrash(int signal, siginfo_t* info, ucontext_t* context)
{
    const long pid = long(::getpid());
    const long tid = long(::syscall(SYS_gettid));

    g_path.length = 0;
    g_path.add(g_settings.pathHead);
    g_path.addNumber(pid);
    g_path.add(g_settings.pathTail);
    g_path.terminate();

    g_description.length = 0;
    if (g_settings.haveProgram) {
        g_description.add(g_settings.program);
        g_description.add(" (pid ");
        g_description.addNumber(pid);
        g_description.add(')');
    } else {
        g_description.add("Process ");
        g_description.addNumber(pid);
    }

    // Usually the folder exists already.
    if (::mkdir(g_settings.folder, 01777) == 0)
        ::chmod(g_settings.folder, 01777);

    int fd;
    Y_EINTR_LOOP(
        fd, ::open(g_path.text, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    int logError;
    int dumpError = 0;
    if (fd < 0) {
        const int error = errno;
        logError
            = logCrash("has exited unexpectedly. Unable to create minidump at", error, pid, tid);
    } else {
        YMinidump::CrashInfo crash;
        crash.signal = signal;
        crash.code = info ? info->si_code : 0;
        crash.faultAddress = 0;
        if (info && info->si_code > 0 && signal != SIGABRT)
            crash.faultAddress = uint64_t(reinterpret_cast<uintptr_t>(info->si_addr));
        crash.threadId = pid_t(tid);
        crash.context = context;
        dumpError = YMinidump::write(fd, crash);
        if (dumpError == 0)
            logError = logCrash("has exited unexpectedly. Minidump is at", -1, pid, tid);
        else
            logError = logCrash(
                "has exited unexpectedly. Unable to write minidump at", dumpError, pid, tid);
        // The descriptor is left for the end of the process to close.
    }
    if (dumpError == EFBIG || logError == EFBIG)
        discardPending(SIGXFSZ);
    if (logError == EPIPE)
        discardPending(SIGPIPE);
}

void restoreDefaultActions()
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (int signal : FATAL_SIGNALS)
        sigaction(signal, &action, nullptr);
}

void crashSignalHandler(int signal, siginfo_t* info, void* context)
{
    const int savedErrno = errno;
    int expected = 0;
    if (g_handling.compare_exchange_strong(expected, 1)) {
        handleCrash(signal, info, static_cast<ucontext_t*>(context));
    } else {
        // Another thread is writing the dump: the process ends when it is done. Should it never
        // be, this thread ends it after half a minute.
        struct timespec pause = {0, 100 * 1000 * 1000};
        for (int i = 0; i < 300; ++i)
            nanosleep(&pause, nullptr);
    }
    restoreDefaultActions();
    // A signal that was sent rather than raised by the faulting instruction won't recur by itself.
    if (!info || info->si_code <= 0 || signal == SIGABRT)
        ::syscall(SYS_tgkill, ::getpid(), ::syscall(SYS_gettid), signal);
    errno = savedErrno;
}

// The signal stack of the calling thread; a thread that has one keeps it.
void installAlternateStack()
{
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE))
        return;
    size_t size = ALT_STACK_SIZE;
#ifdef _SC_SIGSTKSZ
    const long minimum = sysconf(_SC_SIGSTKSZ);
    if (minimum > 0 && size_t(minimum) > size)
        size = size_t(minimum);
#endif
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    void* memory = mmap(nullptr, size + page, PROT_READ | PROT_WRITE,
        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED)
        return;
    // A guard page below, so that an overflow of this stack faults instead of writing elsewhere.
    mprotect(memory, page, PROT_NONE);
    stack_t stack;
    stack.ss_sp = static_cast<char*>(memory) + page;
    stack.ss_size = size;
    stack.ss_flags = 0;
    if (sigaltstack(&stack, nullptr) != 0)
        munmap(memory, size + page);
}

void* handlerOf(const struct sigaction& action)
{
    if (action.sa_flags & SA_SIGINFO)
        return reinterpret_cast<void*>(action.sa_sigaction);
    if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN)
        return nullptr;
    return reinterpret_cast<void*>(action.sa_handler);
}

} // namespace

void YCrashHandlerSys::setLogTarget(const LogTarget& target)
{
    g_log.fd = -1;
    copyText(g_log.prefix, sizeof g_log.prefix, target.prefix);
    g_log.prefixLength = strlen(g_log.prefix);
    g_log.printProcessIdAndThreadId = target.printProcessIdAndThreadId;
    g_log.timestampFormat = target.timestampFormat;
    g_log.formatWithMilliseconds = target.formatWithMilliseconds;
    g_log.fd = target.fd;
}

void* YCrashHandlerSys::install(
    const QByteArray& folder, const QByteArray& pathHead, const QByteArray& pathTail)
{
    YMinidump::prepare();
    copyText(g_settings.folder, sizeof g_settings.folder, folder);
    copyText(g_settings.pathHead, sizeof g_settings.pathHead, pathHead);
    copyText(g_settings.pathTail, sizeof g_settings.pathTail, pathTail);
    const ssize_t n = readlink("/proc/self/exe", g_settings.program, sizeof g_settings.program - 1);
    g_settings.haveProgram = n > 0;
    g_settings.program[n > 0 ? n : 0] = '\0';
    buildZoneTable(&g_settings.zones);
    installAlternateStack();

    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = crashSignalHandler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signal : FATAL_SIGNALS)
        sigaddset(&action.sa_mask, signal);
    sigaddset(&action.sa_mask, SIGXFSZ);
    sigaddset(&action.sa_mask, SIGPIPE);

    void* previous = nullptr;
    for (int signal : FATAL_SIGNALS) {
        struct sigaction old;
        if (sigaction(signal, &action, &old) == 0 && signal == SIGSEGV)
            previous = handlerOf(old);
    }
    return previous;
}
