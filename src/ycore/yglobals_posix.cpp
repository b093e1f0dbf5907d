// Folder trees go with "rm -rf" run by the shell. The path is put in single quotes, with each
// quote inside it closed, escaped and reopened: inside double quotes a "$" or a backquote in a
// folder name would still be expanded by the shell.
#include "yglobals_p.h"

#include <QFile>
#include <QStringList>

#include <cstdlib>
#include <time.h>
#include <unistd.h>

QString YGlobalsSys::removeTreeCommand(const QString& nativePath)
{
    QString quoted = nativePath;
    quoted.replace(QLatin1String("'"), QLatin1String("'\\''"));
    quoted = QLatin1Char('\'') + quoted + QLatin1Char('\'');
    return QStringLiteral("%1 %2").arg(QStringLiteral("rm"),
        QStringList {QStringLiteral("-rf"), QStringLiteral("--"), quoted}.join(QLatin1Char(' ')));
}

int YGlobalsSys::runShell(const QString& command)
{
    return system(QFile::encodeName(command).constData());
}

void YGlobalsSys::sleepSeconds(unsigned int seconds)
{
    struct timespec delay = {time_t(seconds), 0};
    while (nanosleep(&delay, &delay) != 0 && errno == EINTR) { }
}

qint64 YGlobalsSys::processId()
{
    return qint64(getpid());
}
