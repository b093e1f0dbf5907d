#include "demos.h"

#include <yovolib/yovolib.h>

#include <QFile>

int runDemoPeer(DemoContext& context, const QStringList& arguments)
{
    if (arguments.value(0) == QLatin1String("shared-table"))
        return demoSharedTablePeer(context, arguments);
    context.out << "unknown demo peer: " << arguments.join(QLatin1Char(' ')) << "\n";
    return 2;
}

int demoLogging(DemoContext& context)
{
    QTextStream& out = context.out;
    const QString logPath = context.workDir + QStringLiteral("/quickstart.log");
    QFile::remove(logPath);

    // What a daemon does in its start-up: one stream per log file, its level and rotation.
    const YDebug::StreamId log = YDebug::registerStream("QS", logPath.toLocal8Bit().constData());
    YDebug::setDebugLevel(log, context.logLevel);
    YDebug::setRotationSize(log, context.rotationMegabytes);

    YLOG_ERROR(log) << "database"
                    << "connect failed, attempt" << 3 << yflush;
    YLOG_WARNING(log) << "disk usage at" << 91.5 << "percent" << yflush;
    YLOG_NOTICE(log) << "service started with" << context.workers << "workers" << yflush;
    YLOG_DBG1(log) << "this detail is below the level and never written" << yflush;
    YLOG_EX(42, log, YDebug::ERROR) << "request rejected" << yflush;

    // A named semaphore is found by every process that uses the same name.
    YOneLockSemaphore semaphore("yovolib_quickstart_demo");
    const bool taken = semaphore.acquire();
    out << "semaphore 'yovolib_quickstart_demo' taken: " << (taken ? "yes" : "no") << "\n";
    if (taken)
        semaphore.release();
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
    // Two errors always; the warning, the notice and the detail as the level lets them through.
    const int expected
        = 2 + (context.logLevel >= 1) + (context.logLevel >= 2) + (context.logLevel >= 3);
    const bool ok = taken && written.count("\r\n") == expected
        && written.contains("never written") == (context.logLevel >= 3);
    out << (ok ? "logging demo: ok\n" : "logging demo: FAILED\n");
    return ok ? 0 : 1;
}
