// Runs the test console on standard input until it ends.
#include "ydebug_console_helper.h"

#include <chrono>
#include <iostream>
#include <thread>

#include <pthread.h>

namespace {
pthread_t mainThread;
}

void TestConsole::hello()
{
    std::cout << "hello called" << std::endl;
}

QString TestConsole::mix(QString text, int number, bool flag)
{
    return QStringLiteral("%1/%2/%3").arg(text).arg(number).arg(flag ? "yes" : "no");
}

void TestConsole::four(int, int, int, int)
{
    std::cout << "four called" << std::endl;
}

void TestConsole::real(double)
{
    std::cout << "real called" << std::endl;
}

void TestConsole::eleven(int, int, int, int, int, int, int, int, int, int, int)
{
    std::cout << "eleven called" << std::endl;
}

void TestConsole::slow()
{
    std::cout << "slow on "
              << (pthread_equal(pthread_self(), mainThread) ? "the main thread" : "its own thread")
              << std::endl;
}

int main()
{
    mainThread = pthread_self();
    TestConsole console;
    console.run();
    // The console waits for its "thread:" commands as it goes.
    return 0;
}
