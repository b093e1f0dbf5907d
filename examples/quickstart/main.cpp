// A small program that uses YovoLib the way a daemon does. Each demo prints what it did; the
// program ends with a non-zero code if any of them failed.
#include "demos.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QString workDir = QDir::tempPath() + QStringLiteral("/yovolib-quickstart");
    QDir().mkpath(workDir);
    DemoContext context {out, workDir, QCoreApplication::applicationFilePath()};

    // A second instance of this program started by a demo runs only that demo's other side.
    if (argc > 1)
        return runDemoPeer(context, QCoreApplication::arguments().mid(1));

    int failures = 0;
    failures += demoSettings(context);
    failures += demoLogging(context);
    failures += demoThreads(context);
    failures += demoFlightRecorder(context);
    failures += demoSharedTable(context);
    out << (failures ? "quickstart: FAILED\n" : "quickstart: all demos passed\n");
    out.flush();
    return failures ? 1 : 0;
}
