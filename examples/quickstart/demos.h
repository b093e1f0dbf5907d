#ifndef QUICKSTART_DEMOS_H
#define QUICKSTART_DEMOS_H

#include <QString>
#include <QStringList>
#include <QTextStream>

/// What every demo needs: where to write its report, and a folder of its own for files.
struct DemoContext
{
    QTextStream& out;
    QString workDir;
    QString programPath;
    // Read from quickstart.ini by demoSettings.
    int logLevel = 2;
    int rotationMegabytes = 1;
    int workers = 4;
};

/// The other side of a demo, when this program was started by one of its demos with arguments.
int runDemoPeer(DemoContext& context, const QStringList& arguments);

/// Reads the program's settings from the quickstart.ini it ships, with the defaults of its
/// deployment descriptor, into the context.
int demoSettings(DemoContext& context);

/// Registers a log stream with rotation, writes at several levels, takes a named semaphore.
int demoLogging(DemoContext& context);

/// A worker thread with a cooperative stop, and the event backtrace of two threads.
int demoThreads(DemoContext& context);

/// Switches the in-memory cache on for a stream and fires a dump with a listed error id.
int demoFlightRecorder(DemoContext& context);

/// Shares a small table in shared memory with a second process of this program.
int demoSharedTable(DemoContext& context);
/// That second process: arguments "shared-table" <table> <tokens> <gate>.
int demoSharedTablePeer(DemoContext& context, const QStringList& arguments);

#endif // QUICKSTART_DEMOS_H
