#ifndef YOVOLIB_YGLOBALS_H
#define YOVOLIB_YGLOBALS_H

#include "ydebug.h"
#include "yovolib_export.h"
#include "ypid_file.h"

#include <QByteArray>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <set>

class YovoServerInfo;

/// What daemons do around processes and the file system.
class YOVOLIB_EXPORT YGlobals
{
public:
    static const QString PID_RESTART_AGENT;
    static const QString PID_PAGECACHE_CLEANER;

    /// Runs a command line and waits for it at most timeoutSeconds (start: 30 seconds, fixed).
    /// The environment entries are added to the system's; empty means inherit. Returns the exit
    /// code; throws YException when the program can't start, times out (it is then killed) or
    /// crashes. out and err are filled only when the program ended.
    static int execute(const QString& command, QByteArray& out, QByteArray& err,
        YDebug::StreamId stream, int timeoutSeconds, const QStringList& environment);
    /// Removes a folder tree; up to 10 attempts a second apart. True when it is gone.
    static bool removeDir(const QString& path, YDebug::StreamId stream);
    /// Adds to found every file under directory, at any depth, whose name contains a match of
    /// the wildcard filter (not anchored: "*.ini" also finds "a.ini.bak"); all files when empty.
    static void glob(const QString& directory, std::set<QString>& found, const QString& filter);
    static QString toNativePath(const QString& path);
    /// The folder can be entered and listed.
    static bool canEnterDirectory(const QString& path);
    /// Tests the folder that holds the entry, not the entry itself.
    static bool canEnterDirectory(const QFileInfo& info);

    /// Writes this process's id and a newline to "<getTmp()>/<name>", over whatever was there.
    /// Invalid when the file can't be written.
    static YPidFile createPidFile(
        YDebug::StreamId stream, const YovoServerInfo& info, const QString& name);
    /// The number in "<getTmp()>/<name>": -1 when missing or unreadable, 0 when it holds no
    /// number. Whether that process lives isn't checked.
    static int getPidOf(YDebug::StreamId stream, const YovoServerInfo& info, const QString& name);
};

#endif // YOVOLIB_YGLOBALS_H
