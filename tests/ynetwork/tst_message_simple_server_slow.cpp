#include "server_fixture.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QThread>

// A client that sends half a frame and goes silent holds the serial loop for the 30 seconds of
// one wait; a client queued behind it is served next, and everything after that at once.
TEST(MessageServerSlow, HalfFrameCostsItsConnectionThirtySecondsAndNothingElse)
{
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    EchoHandler handler;
    const int descriptorsBefore = openDescriptors();
    {
        ServerThread server(&handler);
        const QString port = QString::number(server.port());
        // Capturing holds a file of its own: counted in from the start.
        testing::internal::CaptureStderr();
        const int listening = openDescriptors();

        QProcess silent;
        silent.start(QStringLiteral("python3"), QStringList() << peerScript() << "half" << port);
        ASSERT_TRUE(silent.waitForStarted());
        QThread::msleep(1000);
        QElapsedTimer queued;
        queued.start();
        const QByteArray output = runPeer(QStringList() << "client" << port << "queued"
                                                        << "5"
                                                        << "q",
            90000);
        const qint64 queuedMs = queued.elapsed();
        ASSERT_TRUE(silent.waitForFinished(90000));
        const double silentSeconds = silent.readAllStandardOutput().trimmed().toDouble();

        EXPECT_EQ("re:queued:1005:q\neof\n", output);
        EXPECT_GE(silentSeconds, 29.5);
        EXPECT_LT(silentSeconds, 40.0);
        EXPECT_GE(queuedMs, 27000);

        QElapsedTimer after;
        after.start();
        EXPECT_EQ("re:after:1006:a\neof\n",
            runPeer(QStringList() << "client" << port << "after"
                                  << "6"
                                  << "a"));
        EXPECT_LT(after.elapsed(), 10000);
        EXPECT_EQ(listening, openDescriptors());
        server.stop();
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_NE(std::string::npos,
            errors.find("Exception: Error while waiting for read: Network operation timed out. "
                        "Client disconnected.\n"))
            << errors;
    }
    EXPECT_EQ((std::vector<int> {5, 6}), handler.served());
    EXPECT_EQ(descriptorsBefore, openDescriptors());
}
