// The console of the tests: commands of every supported and unsupported kind.
#ifndef YOVOLIB_TESTS_YDEBUG_CONSOLE_HELPER_H
#define YOVOLIB_TESTS_YDEBUG_CONSOLE_HELPER_H

#include "ydebug_console.h"

#include <atomic>

// A command whose name a subclass takes over with another return type, so that a call by name
// reaches a method whose result doesn't fit.
class BaseConsole : public YDebugConsole
{
    Q_OBJECT

public:
    using YDebugConsole::YDebugConsole;

protected slots:
    int pick(int value) { return value; }
};

class TestConsole : public BaseConsole
{
    Q_OBJECT

public:
    TestConsole()
        : BaseConsole(QStringLiteral("dbg"))
    {
    }

public slots:
    void pick(int) { }
    void exposed() { }

protected slots:
    void hello();
    int add(int a, int b) { return a + b; }
    int count() { return ++_count; }
    bool negate(bool value) { return !value; }
    QString greet(QString name) { return "hello " + name; }
    QString mix(QString text, int number, bool flag);
    double ratio() { return 0.5; }
    void four(int a, int b, int c, int d);
    void real(double value);
    void eleven(int a, int b, int c, int d, int e, int f, int g, int h, int i, int j, int k);
    void slow();

private slots:
    void hidden() { }

private:
    int _count = 0;
};

#endif // YOVOLIB_TESTS_YDEBUG_CONSOLE_HELPER_H
