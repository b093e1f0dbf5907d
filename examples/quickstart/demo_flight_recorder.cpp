#include "demos.h"

#include <yovolib/yovolib.h>

#include <QFile>

/// Keeps the lines a low log level hides in the stream's in-memory cache, and writes them out when
/// a listed error id occurs: the log then shows what led up to the error.
int demoFlightRecorder(DemoContext& context)
{
    QTextStream& out = context.out;
    const QString logPath = context.workDir + QStringLiteral("/flight_recorder.log");
    QFile::remove(logPath);

    // What a daemon does at start-up: a quiet level, a cache of 50 hidden lines, the error ids
    // that empty the cache into the log, and a minute of full verbosity after that.
    const YDebug::StreamId log = YDebug::registerStream("FR", logPath.toLocal8Bit().constData());
    YDebug::setDebugLevel(log, YDebug::ERROR);
    YDebug::setCacheLogSize(log, 50);
    YDebug::setSecForVerbosityFive(log, 60);
    YDebug::setErrorIdListBufferTrigger(log, QStringLiteral("42,57"));
    YDebug::setCacheLogifEnabledValue(log, true);

    YLOG_NOTICE(log) << "request" << 1017 << "accepted from"
                     << "10.0.0.7" << yflush;
    YLOG_DBG1(log) << "calling payment service, attempt" << 1 << yflush;
    YLOG_DBG2(log) << "payment service answered" << 503 << yflush;
    YLOG_EX(17, log, YDebug::WARNING) << "retry budget at" << 2 << yflush;
    YLOG_EX(42, log, YDebug::ERROR) << "payment service unavailable for request" << 1017 << yflush;
    const bool raised = YDebug::getDebugLevel(log) == YDebug::DBG3;
    YLOG_DBG3(log) << "verbose for the next" << YDebug::getSecForVerbosityFive(log) << "seconds"
                   << yflush;
    YDebug::unregisterStream(log);

    QFile file(logPath);
    if (!file.open(QIODevice::ReadOnly)) {
        out << "log could not be read: " << logPath << "\n";
        return 1;
    }
    const QByteArray written = file.readAll();
    out << "log file: " << logPath << "\n"
        << "it holds:\n"
        << QString::fromLatin1(written);
    const bool ok = raised && written.contains("ERROR/PROBLEM!!!!")
        && written.contains("Dropping the contents of the in memory cache logger")
        && written.contains("DBG2]  payment service answered 503 \n")
        && written.contains("Fault 00042: payment service unavailable for request00042: 1017 ")
        && written.contains("DBG3] verbose for the next 60 seconds ");
    out << (ok ? "flight recorder demo: ok\n" : "flight recorder demo: FAILED\n");
    return ok ? 0 : 1;
}
