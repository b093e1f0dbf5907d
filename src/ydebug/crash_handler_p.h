// Not part of the YovoLib API: what the portable side of the crash handler hands to the system's.
#ifndef YOVOLIB_CRASH_HANDLER_P_H
#define YOVOLIB_CRASH_HANDLER_P_H

#include <QByteArray>

#include <atomic>

namespace YCrashHandlerSys {

/// The crash stream, as the handler writes to it: a file descriptor and what the line's header
/// needs. The settings of all streams are read at the crash through the two pointers.
struct LogTarget
{
    int fd;
    QByteArray prefix;
    const std::atomic<bool>* printProcessIdAndThreadId;
    const std::atomic<const char*>* timestampFormat;
    const char* formatWithMilliseconds;
};

/// Where the crash line goes; copied into memory that the handler may read.
void setLogTarget(const LogTarget& target);

/// Installs the handler for the fatal signals. The dump of process <pid> goes to the file
/// pathHead + <pid> + pathTail, in the folder that is made first. Returns the handler that was
/// installed before, or null when there was none.
void* install(const QByteArray& folder, const QByteArray& pathHead, const QByteArray& pathTail);

} // namespace YCrashHandlerSys

#endif // YOVOLIB_CRASH_HANDLER_P_H
