// Operating-system independent part of the crash handler: which stream says where the dump is,
// and where dumps go. crash_handler_posix.cpp catches the fault and writes the dump.
#include "ydebug.h"

#include "crash_handler_p.h"
#include "ydebug_sink_p.h"

#include <QDir>
#include <QFile>

YDebug::StreamId YDebug::_crashStream(1);
void* YDebug::_previousCrashFilter = nullptr;

void YDebug::registerCrashHandler(StreamId stream)
{
    _crashStream = stream;
    YDebugSink* sink = getSink(stream);
    YCrashHandlerSys::LogTarget target;
    target.fd = sink->_file ? fileno(sink->_file) : -1;
    target.prefix = sink->_prefix;
    target.printProcessIdAndThreadId = &_printProcessIdAndThreadId;
    target.timestampFormat = &_timestampFormat;
    target.formatWithMilliseconds = _TIMESTAMP_FORMAT_WITH_MILLISECONDS;
    YCrashHandlerSys::setLogTarget(target);

    // Once a handler was found in place, it stays the one kept, and ours stays installed.
    if (_previousCrashFilter)
        return;
    const QString folder
        = QDir::toNativeSeparators(QDir::tempPath() + QStringLiteral("/yovo_dump"));
    const QString head = QDir::toNativeSeparators(folder + QStringLiteral("/p"));
    _previousCrashFilter
        = YCrashHandlerSys::install(QFile::encodeName(folder), QFile::encodeName(head), ".mdmp");
}
