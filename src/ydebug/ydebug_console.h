#ifndef YOVOLIB_YDEBUG_CONSOLE_H
#define YOVOLIB_YDEBUG_CONSOLE_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QList>
#include <QMetaMethod>
#include <QObject>
#include <QPair>
#include <QString>
#include <QVariant>

class YDebugConsoleThread;

/// An interactive console on standard input and output for developers. A subclass declares
/// its commands as protected slots; a line "name(arg, arg)" calls one, "6:name()" six times,
/// "thread:name()" on a thread of its own. Results are kept and shown as $0, $1, ...
class YOVOLIB_EXPORT YDebugConsole : public QObject
{
    Q_OBJECT

public:
    /// One line of input.
    struct MethodInput
    {
        QByteArray methodName;
        QList<QVariant> arguments;
        /// 0 plain, 1 in a new thread, 2 repeated.
        int mode;
        int times;
    };

    explicit YDebugConsole(QString name);
    /// Waits for the "thread:" commands still running, as they use this object.
    ~YDebugConsole() override;

    /// The console's loop. It returns only when standard input has ended, so that a console
    /// whose input was closed doesn't spin, and then after its "thread:" commands have ended.
    void run();

protected slots:
    void help();
    void retval(int returnValueIndex);

protected:
    MethodInput getInput();
    void invokeMethod(MethodInput input);
    void printReturnValue(int index);
    void printAlternateMethod(QByteArray name);

private:
    friend class YDebugConsoleThread;

    static QByteArray describe(const QMetaMethod& method);

    QString _name;
    QList<QPair<QString, QVariant>> _returnValues;
    int _nextReturnIndex;
};

#endif // YOVOLIB_YDEBUG_CONSOLE_H
