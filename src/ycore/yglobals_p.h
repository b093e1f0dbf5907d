// Not part of the YovoLib API: the platform's side of YGlobals.
#ifndef YOVOLIB_YGLOBALS_P_H
#define YOVOLIB_YGLOBALS_P_H

#include <QString>

namespace YGlobalsSys {

/// The shell command that removes a folder tree, its path quoted for the shell.
QString removeTreeCommand(const QString& nativePath);
/// Runs a command through the shell; its status as system() gives it.
int runShell(const QString& command);
void sleepSeconds(unsigned int seconds);
/// The current process id.
qint64 processId();

} // namespace YGlobalsSys

#endif // YOVOLIB_YGLOBALS_P_H
