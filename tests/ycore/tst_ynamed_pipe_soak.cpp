// A pipe server in this process serves a hundred client processes one after another, half of
// which die in the middle of their request: every live client gets its answer, and the server
// ends with the descriptors it started with.
#include "shm_test_util.h"
#include "test_support.h"

#include "ynamed_pipe.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <iostream>
#include <memory>
#include <random>
#include <vector>

namespace {

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

int openDescriptors()
{
    DIR* dir = opendir("/proc/self/fd");
    if (!dir)
        return -1;
    int count = 0;
    while (const dirent* entry = readdir(dir)) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            ++count;
    }
    closedir(dir);
    return count - 1; // the listing's own
}

YNamedPipe* acceptOne(YNamedPipeConnectionsServer& server, void** pending)
{
    for (int i = 0; i < 300; ++i) {
        if (YNamedPipe* pipe = server.waitForNewConnection(100, pending)) {
            *pending = YNamedPipe::invalidHandle();
            return pipe;
        }
        if (server.getLastErrorCode() != YNamedPipe::TIMED_OUT)
            return nullptr;
    }
    return nullptr;
}

enum class Outcome
{
    Served,
    Lost,
    Failed
};

// What a daemon does with a client: reads until the bytes are in or the client is gone. It
// reads piece by piece rather than with readMsg, which waits out its whole time-out even for a
// client that is no more.
Outcome readExactly(YNamedPipe& pipe, char* data, unsigned int size)
{
    QElapsedTimer timer;
    timer.start();
    unsigned int got = 0;
    while (got < size) {
        unsigned int received = 0;
        if (pipe.read(data + got, size - got, &received, 1000)) {
            got += received;
            continue;
        }
        if (pipe.isLostConnection())
            return Outcome::Lost;
        if (pipe.getLastErrorCode() != YNamedPipe::TIMED_OUT || timer.elapsed() > 20000)
            return Outcome::Failed;
    }
    return Outcome::Served;
}

Outcome serve(YNamedPipe& pipe)
{
    quint32 length = 0;
    Outcome outcome = readExactly(pipe, reinterpret_cast<char*>(&length), 4);
    if (outcome != Outcome::Served)
        return outcome;
    if (length == 0 || length > 4096)
        return Outcome::Failed;
    QByteArray body(int(length), '\0');
    outcome = readExactly(pipe, body.data(), length);
    if (outcome != Outcome::Served)
        return outcome;
    const QByteArray answer = body.toUpper();
    unsigned int written = 0;
    if (!pipe.write(answer.constData(), unsigned(answer.size()), &written, 5000)
        || written != unsigned(answer.size()))
        return Outcome::Failed;
    return Outcome::Served;
}

} // namespace

TEST(YNamedPipeSoak, HundredClientsInARowHalfDieMidMessage)
{
    const int clients = 100;
    const QByteArray name = yovotest::uniqueName("pipesoak").toLatin1();
    std::vector<bool> dies(clients, false);
    std::fill(dies.begin(), dies.begin() + clients / 2, true);
    std::shuffle(dies.begin(), dies.end(), std::mt19937(std::random_device {}()));

    // Running a process once makes what QProcess keeps for all later ones, so that only the
    // server's descriptors are counted.
    {
        shmtest::Peer warmUp;
        ASSERT_TRUE(warmUp.start(peerPath(), {"none"}));
        warmUp.finish();
    }
    const int start = openDescriptors();
    ASSERT_GT(start, 0);

    int served = 0, lost = 0;
    {
        YNamedPipeConnectionsServer server(name.constData());
        void* pending = YNamedPipe::invalidHandle();
        for (int i = 0; i < clients; ++i) {
            // An instance waits before the client is started, as in a daemon that is up.
            ASSERT_EQ(nullptr, server.waitForNewConnection(0, &pending));
            ASSERT_EQ(YNamedPipe::TIMED_OUT, server.getLastErrorCode());
            const QByteArray tag = "client" + QByteArray::number(i) + "-";
            auto client = std::make_unique<shmtest::Peer>();
            ASSERT_TRUE(client->start(peerPath(),
                {"pipe-soak-client", QString::fromLatin1(name), dies[size_t(i)] ? "die" : "live",
                    QString::fromLatin1(tag)}));
            std::unique_ptr<YNamedPipe> pipe(acceptOne(server, &pending));
            ASSERT_TRUE(pipe) << "client " << i << ": " << qPrintable(server.getLastErrorString());
            const Outcome outcome = serve(*pipe);
            pipe.reset(); // waits until a live client has read its answer
            if (dies[size_t(i)]) {
                EXPECT_TRUE(outcome == Outcome::Lost) << "client " << i << " died unnoticed";
                EXPECT_EQ(-1, client->finish()) << "client " << i << " should have died";
                lost += outcome == Outcome::Lost;
            } else {
                EXPECT_TRUE(outcome == Outcome::Served) << "client " << i << " not served";
                EXPECT_EQ("served", client->line()) << "client " << i;
                EXPECT_EQ(0, client->finish()) << "client " << i;
                served += outcome == Outcome::Served;
            }
            client.reset();
            // Nothing of a finished client stays open in the server, whatever became of it.
            EXPECT_EQ(start, openDescriptors()) << "after client " << i;
        }
    }
    std::cout << "live clients served: " << served << "/" << clients / 2
              << "; dead clients noticed: " << lost << "/" << clients / 2 << std::endl;
    EXPECT_EQ(clients / 2, served);
    EXPECT_EQ(clients / 2, lost);
    EXPECT_EQ(start, openDescriptors());
}
