#include "ydebug_console.h"

#include "ythread.h"

#include <QMetaObject>
#include <QStringList>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <vector>

namespace {

bool isCommand(const QMetaMethod& method)
{
    return method.methodType() == QMetaMethod::Slot && method.access() == QMetaMethod::Protected;
}

QByteArray nameOf(const QMetaMethod& method)
{
    const QByteArray signature = method.methodSignature();
    return signature.left(signature.indexOf('('));
}

bool isSupportedType(const QByteArray& type)
{
    return type == "int" || type == "bool" || type == "QString";
}

QVariant converted(const QVariant& argument, const QByteArray& type)
{
    if (type == "int")
        return QVariant(argument.toInt());
    if (type == "bool")
        return QVariant(argument.toBool());
    return QVariant(argument.toString());
}

} // namespace

// Runs one "thread:" command. The console doesn't wait for it; a finished command's thread is
// joined when the next one starts, and a console waits for its own commands when it is destroyed,
// as they use it.
class YDebugConsoleThread : public YThread
{
public:
    YDebugConsoleThread(YDebugConsole* console, const YDebugConsole::MethodInput& input)
        : YThread("thread")
        , _console(console)
        , _input(input)
    {
    }

    void run() override
    {
        _console->invokeMethod(_input);
        _done = true;
    }

    /// Starts the thread and keeps it in the list of its console.
    static void launch(YDebugConsoleThread* thread)
    {
        std::vector<YDebugConsoleThread*> finished;
        {
            std::lock_guard<std::mutex> guard(lock());
            for (auto it = threads().begin(); it != threads().end();) {
                if (it->second->_done) {
                    finished.push_back(it->second);
                    it = threads().erase(it);
                } else {
                    ++it;
                }
            }
            threads().emplace(thread->_console, thread);
        }
        reap(finished);
        thread->start();
    }

    /// Waits for the commands of a console that goes away.
    static void finish(const YDebugConsole* console)
    {
        std::vector<YDebugConsoleThread*> own;
        {
            std::lock_guard<std::mutex> guard(lock());
            const auto range = threads().equal_range(console);
            for (auto it = range.first; it != range.second; ++it)
                own.push_back(it->second);
            threads().erase(range.first, range.second);
        }
        reap(own);
    }

private:
    typedef std::multimap<const YDebugConsole*, YDebugConsoleThread*> Threads;

    static std::mutex& lock()
    {
        static std::mutex* mutex = new std::mutex;
        return *mutex;
    }
    static Threads& threads()
    {
        static Threads* all = new Threads;
        return *all;
    }
    static void reap(const std::vector<YDebugConsoleThread*>& done)
    {
        for (YDebugConsoleThread* thread : done) {
            thread->join();
            delete thread;
        }
    }

    YDebugConsole* _console;
    YDebugConsole::MethodInput _input;
    std::atomic<bool> _done {false};
};

YDebugConsole::YDebugConsole(QString name)
    : _name(name)
    , _nextReturnIndex(0)
{
}

YDebugConsole::~YDebugConsole()
{
    YDebugConsoleThread::finish(this);
}

void YDebugConsole::run()
{
    std::cout << "Welcome to " << _name.toLocal8Bit().constData() << std::endl;
    for (;;) {
        const MethodInput input = getInput();
        if (input.methodName.isEmpty()) {
            if (feof(stdin) || ferror(stdin)) {
                // Waited for here, while the whole object still stands.
                YDebugConsoleThread::finish(this);
                return;
            }
            continue;
        }
        if (input.mode == 1) {
            YDebugConsoleThread::launch(new YDebugConsoleThread(this, input));
        } else {
            invokeMethod(input);
        }
    }
}

YDebugConsole::MethodInput YDebugConsole::getInput()
{
    std::cout << std::endl << "(" << _name.toLocal8Bit().constData() << ")" << std::endl;
    QByteArray bytes;
    for (;;) {
        const int c = getchar();
        if (c == EOF || c == '\n')
            break;
        bytes.append(char(c));
    }
    QString command = QString::fromLocal8Bit(bytes);

    MethodInput input;
    input.mode = 0;
    input.times = 0;
    const int colon = command.indexOf(QLatin1Char(':'));
    if (colon >= 0) {
        const QString keyword = command.left(colon);
        command = command.mid(colon + 1);
        if (keyword == QLatin1String("thread")) {
            input.mode = 1;
        } else if (!keyword.isEmpty()) {
            bool isNumber = false;
            const int times = keyword.toInt(&isNumber, 10);
            if (isNumber) {
                input.mode = 2;
                input.times = times;
            } else {
                std::cout << "ignoring unknown keyword " << keyword.toLocal8Bit().constData()
                          << std::endl;
            }
        }
    }
    const int open = command.indexOf(QLatin1Char('('));
    input.methodName = command.left(open).toLatin1();
    if (open >= 0) {
        QString inside = command.mid(open + 1);
        const int close = inside.indexOf(QLatin1Char(')'));
        if (close >= 0)
            inside = inside.left(close);
        const QStringList parts = inside.split(QLatin1Char(','), Qt::SkipEmptyParts);
        for (const QString& part : parts)
            input.arguments.append(QVariant(part.simplified()));
    }
    return input;
}

void YDebugConsole::invokeMethod(MethodInput input)
{
    const QMetaObject* meta = metaObject();
    QMetaMethod method;
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod candidate = meta->method(i);
        if (isCommand(candidate) && nameOf(candidate) == input.methodName) {
            method = candidate;
            break;
        }
    }
    if (!method.isValid()) {
        std::cout << "no such method: " << input.methodName.constData() << std::endl;
        printAlternateMethod(input.methodName);
        return;
    }
    if (method.parameterCount() != input.arguments.size()) {
        std::cout << "please use correct form: " << method.methodSignature().constData()
                  << std::endl;
        return;
    }
    if (input.arguments.size() > 10) {
        std::cout << "can't have more than 10 arguments for a method" << std::endl;
        return;
    }

    const QList<QByteArray> types = method.parameterTypes();
    const QByteArray returnType = method.typeName();
    const bool hasResult = method.returnType() != QMetaType::Void;
    const int repetitions = input.mode == 2 ? input.times : 1;
    for (int round = 0; round < repetitions; ++round) {
        bool supported = input.arguments.size() <= 3;
        QVariant values[3];
        QGenericArgument arguments[10];
        for (int i = 0; supported && i < input.arguments.size(); ++i) {
            supported = isSupportedType(types[i]);
            if (supported) {
                values[i] = converted(input.arguments[i], types[i]);
                arguments[i] = QGenericArgument(types[i].constData(), values[i].constData());
            }
        }
        if (!supported) {
            std::cout << "Error: input mode not supported (yet)" << std::endl;
            return;
        }

        int intResult = 0;
        bool boolResult = false;
        QString stringResult;
        QGenericReturnArgument result;
        if (returnType == "int")
            result = QGenericReturnArgument("int", &intResult);
        else if (returnType == "bool")
            result = QGenericReturnArgument("bool", &boolResult);
        else if (returnType == "QString")
            result = QGenericReturnArgument("QString", &stringResult);
        const bool called = QMetaObject::invokeMethod(this, input.methodName.constData(),
            Qt::DirectConnection, result, arguments[0], arguments[1], arguments[2], arguments[3],
            arguments[4], arguments[5], arguments[6], arguments[7], arguments[8], arguments[9]);
        if (!called) {
            std::cout << "Error: failed to execute method " << input.methodName.constData()
                      << std::endl;
            return;
        }
        if (hasResult) {
            QVariant value;
            if (returnType == "int")
                value = intResult;
            else if (returnType == "bool")
                value = boolResult;
            else if (returnType == "QString")
                value = stringResult;
            _returnValues.append(qMakePair(QString::fromLatin1(returnType), value));
            printReturnValue(_nextReturnIndex);
            ++_nextReturnIndex;
        }
    }
}

void YDebugConsole::help()
{
    std::cout << "Available methods:" << std::endl;
    const QMetaObject* meta = metaObject();
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (isCommand(method))
            std::cout << describe(method).constData() << std::endl;
    }
    std::cout << std::endl
              << "Also, each function can be prefixed by a modifier keyword, from the following:"
              << std::endl
              << "6:foo() ==> run foo() 6 times" << std::endl
              << "thread:foo() ==> run foo() in a new thread" << std::endl
              << std::endl;
}

void YDebugConsole::retval(int returnValueIndex)
{
    printReturnValue(returnValueIndex);
}

void YDebugConsole::printReturnValue(int index)
{
    if (index < 0 || index >= _returnValues.size()) {
        std::cout << "no such return value" << std::endl;
        return;
    }
    const QPair<QString, QVariant>& entry = _returnValues.at(index);
    std::cout << "$" << index << " = (" << entry.first.toLatin1().constData() << ") ";
    if (entry.first == QLatin1String("int"))
        std::cout << entry.second.toInt();
    else if (entry.first == QLatin1String("bool"))
        std::cout << entry.second.toBool();
    else if (entry.first == QLatin1String("QString"))
        std::cout << entry.second.toString().toLocal8Bit().constData();
    else
        std::cout << "UNSUPPORTED RETURN VALUE (" << entry.first.toLatin1().constData() << ")";
    std::cout << std::endl;
}

void YDebugConsole::printAlternateMethod(QByteArray name)
{
    QList<QMetaMethod> alternatives;
    const QMetaObject* meta = metaObject();
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (isCommand(method) && method.methodSignature().startsWith(name))
            alternatives.append(method);
    }
    if (alternatives.isEmpty())
        return;
    std::cout << "Did you mean one of the following?" << std::endl;
    for (const QMetaMethod& method : alternatives)
        std::cout << describe(method).constData() << std::endl;
}

QByteArray YDebugConsole::describe(const QMetaMethod& method)
{
    QByteArray line = method.typeName();
    if (line.isEmpty())
        line = "void";
    line += ' ';
    line += nameOf(method);
    line += '(';
    const QList<QByteArray> types = method.parameterTypes();
    const QList<QByteArray> names = method.parameterNames();
    bool supported = types.size() <= 3;
    for (int i = 0; i < types.size(); ++i) {
        if (i > 0)
            line += ", ";
        line += types[i] + ' ' + names.value(i);
        supported = supported && isSupportedType(types[i]);
    }
    line += ')';
    if (!supported)
        line += " <=== NOT SUPPORTED";
    return line;
}
