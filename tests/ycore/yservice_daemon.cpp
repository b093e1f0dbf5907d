// A daemon on the service frame for the tests. Words among its arguments choose behaviour:
// "init-fail" fails initialisation, "no-controls" accepts neither stop nor pause, and
// "hang-after=<ms>" stops reporting the main loop as alive after that time (the loop still
// notices a stop request, so that the test can end it).
#include "yservice.h"

#include <QByteArray>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

bool hasWord(int argc, char** argv, const char* word)
{
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], word) == 0)
            return true;
    }
    return false;
}

long hangAfter(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "hang-after=", 11) == 0)
            return atol(argv[i] + 11);
    }
    return -1;
}

void say(const QByteArray& line)
{
    printf("%s\n", line.constData());
    fflush(stdout);
}

class TestDaemon : public YService
{
public:
    TestDaemon(int argc, char** argv, bool controls)
        : YService(QStringLiteral("daemon"), argc, argv, controls, controls, true, true)
    {
    }

    bool serviceInit(int argc, char** argv) override
    {
        QStringList arguments;
        for (int i = 0; i < argc; ++i)
            arguments << QString::fromLocal8Bit(argv[i]);
        say("init " + QByteArray::number(argc) + " " + arguments.join(',').toLocal8Bit());
        return !hasWord(argc, argv, "init-fail");
    }

    int serviceMain(int argc, char** argv) override
    {
        say("main");
        const long hang = hangAfter(argc, argv);
        const auto start = std::chrono::steady_clock::now();
        while (!_stop) {
            const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - start);
            if (hang < 0 || elapsed.count() < hang)
                reportAlive();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        say("main done");
        return 0;
    }

    void serviceShutdown() override
    {
        say("shutdown");
        // As an application this exits, before the main loop could see the flag.
        YService::serviceShutdown();
        _stop = true;
    }

    bool servicePause() override
    {
        say("pause");
        return true;
    }

    bool serviceResume() override
    {
        say("resume");
        return true;
    }

private:
    std::atomic<bool> _stop {false};
};

} // namespace

int main(int argc, char** argv)
{
    TestDaemon daemon(argc, argv, !hasWord(argc, argv, "no-controls"));
    const bool ran = daemon.run();
    say(ran ? "run true" : "run false");
    return ran ? 0 : 3;
}
