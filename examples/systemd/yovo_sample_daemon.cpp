// The smallest daemon on the service frame: under systemd it reports READY once initialised,
// keeps the watchdog fed from its main loop, and leaves that loop on SIGTERM. Run it by hand
// with "-e"; install yovo-sample.service to run it under systemd.
#include <yovolib/yovolib.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

class SampleDaemon : public YService
{
public:
    SampleDaemon(int argc, char** argv)
        : YService(QStringLiteral("yovo-sample"), argc, argv, true, true, true, true)
    {
    }

    int serviceMain(int, char**) override
    {
        svcDebug(QStringLiteral("working"));
        while (!_stop) {
            // One turn of real work would go here.
            reportAlive();
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
        svcDebug(QStringLiteral("done"));
        return 0;
    }

    void serviceShutdown() override
    {
        _stop = true;
        // As an application the default ends the process at once.
        YService::serviceShutdown();
    }

private:
    std::atomic<bool> _stop {false};
};

} // namespace

int main(int argc, char** argv)
{
    SampleDaemon daemon(argc, argv);
    return daemon.run() ? 0 : 1;
}
