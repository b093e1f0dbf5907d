#include "trace_element.h"
#include "yexception.h"
#include "ythread.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <QSet>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <unistd.h>

using yovotest::Gate;

namespace {

const char* const DASHES = "-----------------------------------\n";

unsigned long currentId()
{
    return static_cast<unsigned long>(gettid());
}

void registerMe()
{
    YThread::registerExternalThread(currentId());
}

QString notRegistered(unsigned long id)
{
    return QStringLiteral(" Thread %1 was not registered. Please call the developers").arg(id);
}

// The blocks of a backtrace, each from its header to the blank line that ends it; with ids, only
// the blocks of those threads (a process that ran other tests before has more).
QStringList blocksOf(const QString& text, const QList<unsigned long>& ids = {})
{
    QStringList blocks;
    const QString header = QStringLiteral("Event Backtrace for thread");
    int start = text.indexOf(header);
    EXPECT_EQ(0, start) << text.toStdString();
    while (start >= 0) {
        const int next = text.indexOf(header, start + 1);
        const QString block = text.mid(start, next < 0 ? -1 : next - start);
        bool wanted = ids.isEmpty();
        for (unsigned long id : ids) {
            if (block.startsWith(QStringLiteral("Event Backtrace for thread%1\n").arg(id))
                || block.startsWith(QStringLiteral("Event Backtrace for thread%1-").arg(id)))
                wanted = true;
        }
        if (wanted)
            blocks.append(block);
        start = next;
    }
    return blocks;
}

} // namespace

TEST(YTraceElement, DefaultElement)
{
    YTraceElement element;
    EXPECT_EQ(QStringLiteral(" (:-1) []"), element.toString());
}

TEST(YTraceElement, ToStringFormat)
{
    YTraceElement element("handleRequest", "server.cpp", 120, QStringLiteral("client 7"));
    EXPECT_EQ(QStringLiteral("handleRequest (server.cpp:120) [client 7]"), element.toString());
}

TEST(YTraceElement, PercentSignsAreNotPlaceHolders)
{
    YTraceElement element("f%2", "a%1.cpp", 3, QStringLiteral("100% %4"));
    EXPECT_EQ(QStringLiteral("f%2 (a%1.cpp:3) [100% %4]"), element.toString());
}

TEST(YTraceElement, CopyAndAssignmentCopyAllFour)
{
    YTraceElement source("fn", "file.cpp", 9, QStringLiteral("info"));
    YTraceElement copy(source);
    EXPECT_EQ(source.toString(), copy.toString());
    YTraceElement assigned;
    assigned = source;
    EXPECT_EQ(QStringLiteral("fn (file.cpp:9) [info]"), assigned.toString());
}

TEST(YThreadTrace, CountIsPushesMinusPops)
{
    registerMe();
    EXPECT_EQ(0, YThread::getTraceCount());
    YThread::pushTraceElement(YTraceElement("a", "a.cpp", 1, QString()));
    YThread::pushTraceElement(YTraceElement("b", "b.cpp", 2, QString()));
    YThread::pushTraceElement(YTraceElement("c", "c.cpp", 3, QString()));
    EXPECT_EQ(3, YThread::getTraceCount());
    YThread::popTraceElement();
    EXPECT_EQ(2, YThread::getTraceCount());
    YThread::popTraceElement();
    YThread::pushTraceElement(YTraceElement("d", "d.cpp", 4, QString()));
    EXPECT_EQ(2, YThread::getTraceCount());
    YThread::clearStackTrace();
    EXPECT_EQ(0, YThread::getTraceCount());
}

TEST(YThreadTrace, OwnTraceReadsFromTheTopDown)
{
    registerMe();
    YThread::pushTraceElement(YTraceElement("first", "one.cpp", 10, QStringLiteral("x")));
    YThread::pushTraceElement(YTraceElement("second", "two.cpp", 20, QStringLiteral("y")));
    YThread::pushTraceElement(YTraceElement("third", "three.cpp", 30, QString()));
    YThread::popTraceElement();
    EXPECT_EQ(QStringLiteral("Event Backtrace for thread%1- CURRENT THREAD\n").arg(currentId())
            + DASHES + "(2)\nsecond (two.cpp:20) [y]\n(1)\nfirst (one.cpp:10) [x]\n\n",
        YThread::getStackTrace(false));
}

TEST(YThreadTrace, ThreadThatNeverPushedShowsNoEvents)
{
    registerMe();
    EXPECT_EQ(QStringLiteral("Event Backtrace for thread%1- CURRENT THREAD\n").arg(currentId())
            + DASHES + "No events\n\n",
        YThread::getStackTrace(false));
}

TEST(YThreadTrace, UnregisteredThreadGetsTheException)
{
    // A fresh thread: nobody registered it.
    std::thread fresh([] {
        const unsigned long id = currentId();
        const auto expectUnregistered = [id](void (*operation)()) {
            try {
                operation();
                ADD_FAILURE() << "no exception";
            } catch (const YException& e) {
                EXPECT_TRUE(QString::fromLatin1(e.what()).endsWith(notRegistered(id))) << e.what();
            }
        };
        expectUnregistered([] { YThread::pushTraceElement(YTraceElement()); });
        expectUnregistered([] { YThread::popTraceElement(); });
        expectUnregistered([] { YThread::clearStackTrace(); });
        expectUnregistered([] { YThread::getTraceCount(); });
        // The text form asks for nobody's entry: an unregistered caller just has no block.
        EXPECT_EQ(QString(), YThread::getStackTrace(false));
    });
    fresh.join();
}

TEST(YThreadTrace, UnregisteredCallerSeesOthersUnmarked)
{
    unsigned long other = 0;
    std::thread registered([&other] {
        other = currentId();
        YThread::registerExternalThread(other);
    });
    registered.join();
    QString seen;
    std::thread fresh([&seen] { seen = YThread::getStackTrace(true); });
    fresh.join();
    EXPECT_TRUE(blocksOf(seen).contains(
        QStringLiteral("Event Backtrace for thread%1\n").arg(other) + DASHES + "No events\n\n"))
        << seen.toStdString();
    EXPECT_FALSE(seen.contains(QStringLiteral("- CURRENT THREAD")));
}

TEST(YThreadTraceDeathTest, PopOfAnEmptyStackFailsTheAssertion)
{
    // Registered inside the statement: a death test's child is another process, with its own ids.
    EXPECT_DEATH(
        {
            registerMe();
            YThread::popTraceElement();
        },
        "ASSERT: \"!this->isEmpty\\(\\)\" in file");
}

namespace {

// A worker that pushes its elements, then waits, and on request writes the backtrace itself.
class TracingThread : public YThread
{
public:
    explicit TracingThread(int elements)
        : _elements(elements)
    {
    }
    void run() override
    {
        _go.wait();
        for (int i = 1; i <= _elements; ++i)
            pushTraceElement(YTraceElement("work", "worker.cpp", i, getName()));
        _pushed.open();
        _trace.wait();
        _seen = getStackTrace(true);
        _traced.open();
        _finish.wait();
    }
    int _elements;
    Gate _go, _pushed, _trace, _traced, _finish;
    QString _seen;
};

} // namespace

TEST(YThreadTrace, AllThreadsListsEachBlockOnceAndMarksOnlyTheCaller)
{
    registerMe();
    YThread::pushTraceElement(YTraceElement("main", "main.cpp", 5, QStringLiteral("start-up")));
    TracingThread one(2), none(0);
    one.start();
    none.start();
    // Registered now: the workers may touch their entries.
    one._go.open();
    none._go.open();
    one._pushed.wait();
    none._pushed.wait();

    const QString mainBlock = QStringLiteral("Event Backtrace for thread%1").arg(currentId())
        + QStringLiteral("%1\n") + DASHES + "(1)\nmain (main.cpp:5) [start-up]\n\n";
    const QString oneBlock = QStringLiteral("Event Backtrace for thread%1").arg(one.getId())
        + QStringLiteral("%1\n") + DASHES
        + "(2)\nwork (worker.cpp:2) [thread]\n(1)\nwork (worker.cpp:1) "
          "[thread]\n\n";
    const QString noneBlock = QStringLiteral("Event Backtrace for thread%1").arg(none.getId())
        + QStringLiteral("%1\n") + DASHES + "No events\n\n";
    const QString marked = QStringLiteral("- CURRENT THREAD");

    const QList<unsigned long> ids({currentId(), one.getId(), none.getId()});
    const QString all = YThread::getStackTrace(true);
    EXPECT_EQ(1, all.count(marked));
    const QStringList fromMain = blocksOf(all, ids);
    EXPECT_EQ(3, fromMain.size());
    EXPECT_EQ(
        QSet<QString>({mainBlock.arg(marked), oneBlock.arg(QString()), noneBlock.arg(QString())}),
        QSet<QString>(fromMain.begin(), fromMain.end()));

    one._trace.open();
    one._traced.wait();
    EXPECT_EQ(1, one._seen.count(marked));
    const QStringList fromOne = blocksOf(one._seen, ids);
    EXPECT_EQ(3, fromOne.size());
    EXPECT_EQ(
        QSet<QString>({mainBlock.arg(QString()), oneBlock.arg(marked), noneBlock.arg(QString())}),
        QSet<QString>(fromOne.begin(), fromOne.end()));

    // Only the caller's block without the others.
    EXPECT_EQ(mainBlock.arg(marked), YThread::getStackTrace(false));

    one._finish.open();
    none._trace.open();
    none._finish.open();
    one.join();
    none.join();
    EXPECT_EQ(QStringList({mainBlock.arg(marked)}), blocksOf(YThread::getStackTrace(true), ids));
}

TEST(YThreadTrace, EachThreadHasItsOwnStack)
{
    registerMe();
    YThread::pushTraceElement(YTraceElement("main", "main.cpp", 1, QString()));
    int countInWorker = -1;
    std::thread worker([&countInWorker] {
        registerMe();
        YThread::pushTraceElement(YTraceElement("w", "w.cpp", 1, QString()));
        YThread::pushTraceElement(YTraceElement("w", "w.cpp", 2, QString()));
        countInWorker = YThread::getTraceCount();
    });
    worker.join();
    EXPECT_EQ(2, countInWorker);
    EXPECT_EQ(1, YThread::getTraceCount());
}
