#include "db_test_support.h"
#include "ydb.h"
#include "ydb_config_reader.h"
#include "yexception.h"

#include <QSharedPointer>
#include <QString>
#include <QTextStream>

#include <gtest/gtest.h>

using namespace yovotest;

namespace {

QSharedPointer<QTextStream> streamOf(const QString& text)
{
    auto* copy = new QString(text);
    // The stream doesn't own its string: the deleter of the pointer frees both.
    return QSharedPointer<QTextStream>(
        new QTextStream(copy, QIODevice::ReadOnly), [copy](QTextStream* stream) {
            delete stream;
            delete copy;
        });
}

} // namespace

TEST(YDbConfigReader, InstanceIsOneObjectUntilRelease)
{
    YDbConfigReader* first = YDbConfigReader::instance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(YDbConfigReader::instance(), first);
    first->parse(streamOf(QStringLiteral("<q><statement name=\"a\" sql=\"select 1\"/></q>")));
    EXPECT_EQ(first->getStatement(QStringLiteral("a")), QStringLiteral("select 1"));
    YDbConfigReader::release();
    YDbConfigReader* second = YDbConfigReader::instance();
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->getStatement(QStringLiteral("a")).isEmpty());
    YDbConfigReader::release();
}

TEST(YDbConfigReader, LaterStatementOfTheSameNameWins)
{
    YDbConfigReader* reader = YDbConfigReader::instance();
    reader->parse(streamOf(QStringLiteral("<root>"
                                          "<statement name=\"a\" sql=\"select 1\"/>"
                                          "<statement name=\"a\" sql=\"select 2\"/>"
                                          "</root>")));
    EXPECT_EQ(reader->getStatement(QStringLiteral("a")), QStringLiteral("select 2"));
    YDbConfigReader::release();
}

TEST(YDbConfigReader, StatementsAtAnyDepthUnderAnyRoot)
{
    YDbConfigReader* reader = YDbConfigReader::instance();
    reader->parse(streamOf(QStringLiteral("<anything><group><deeper>"
                                          "<statement name=\"deep\" sql=\"select :x\"/>"
                                          "</deeper></group>"
                                          "<other name=\"skip\" sql=\"no\"/>"
                                          "<statement sql=\"unnamed\"/>"
                                          "</anything>")));
    EXPECT_EQ(reader->getStatement(QStringLiteral("deep")), QStringLiteral("select :x"));
    EXPECT_TRUE(reader->getStatement(QStringLiteral("skip")).isEmpty());
    // An element without a name files its SQL under the empty name.
    EXPECT_EQ(reader->getStatement(QString()), QStringLiteral("unnamed"));
    EXPECT_TRUE(reader->getStatement(QStringLiteral("unknown")).isEmpty());
    YDbConfigReader::release();
}

TEST(YDbConfigReader, StatementsAccumulateOverParses)
{
    YDbConfigReader* reader = YDbConfigReader::instance();
    reader->parse(streamOf(QStringLiteral("<r><statement name=\"a\" sql=\"A1\"/></r>")));
    reader->parse(streamOf(QStringLiteral("<r><statement name=\"b\" sql=\"B\"/>"
                                          "<statement name=\"a\" sql=\"A2\"/></r>")));
    EXPECT_EQ(reader->getStatement(QStringLiteral("a")), QStringLiteral("A2"));
    EXPECT_EQ(reader->getStatement(QStringLiteral("b")), QStringLiteral("B"));
    YDbConfigReader::release();
}

TEST(YDbConfigReader, SharedStreamIsReadOnlyOnce)
{
    YDbConfigReader* reader = YDbConfigReader::instance();
    QSharedPointer<QTextStream> stream
        = streamOf(QStringLiteral("<r><statement name=\"a\" sql=\"A\"/></r>"));
    reader->parse(stream);
    reader->parse(streamOf(QStringLiteral("<r><statement name=\"a\" sql=\"B\"/></r>")));
    // The first stream is spent: a second parse of it adds nothing and keeps what is there.
    reader->parse(stream);
    EXPECT_EQ(reader->getStatement(QStringLiteral("a")), QStringLiteral("B"));
    YDbConfigReader::release();
}

TEST(YDbConfigReader, NullStreamAndMalformedTextAddNothing)
{
    YDbConfigReader* reader = YDbConfigReader::instance();
    reader->parse(QSharedPointer<QTextStream>());
    reader->parse(streamOf(QStringLiteral("<r><statement name=\"a\" sql=\"A\"/></r>")));
    reader->parse(streamOf(QStringLiteral("<r><statement name=\"b\" sql=\"B\"></r")));
    reader->parse(streamOf(QStringLiteral("not xml at all \"<>&")));
    reader->parse(
        streamOf(QString(QChar(0)) + QStringLiteral("<statement name=\"c\" sql=\"C\"/>")));
    EXPECT_EQ(reader->getStatement(QStringLiteral("a")), QStringLiteral("A"));
    EXPECT_TRUE(reader->getStatement(QStringLiteral("b")).isEmpty());
    YDbConfigReader::release();
}

TEST(YDbConfigReader, EmptySqlMakesCreateQueryFailAsUnknown)
{
    TempDir dir;
    TestInitData data;
    data.dbType = QStringLiteral("QSQLITE");
    data.dbName = dir.file(QStringLiteral("catalogue.db"));
    data.statementsXml = QStringLiteral("<r><statement name=\"empty\" sql=\"\"/>"
                                        "<statement name=\"one\" sql=\"select 1\"/></r>");
    YDb pool(&data);
    ASSERT_TRUE(pool.isInitialized());
    YDbConnectionPtr connection = pool.getConnection();
    try {
        connection->createQuery(QStringLiteral("empty"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ(e.what(), "No such query: empty");
    }
    YSafeSqlQuery query = connection->createQuery(QStringLiteral("one"));
    EXPECT_TRUE(query.exec());
    ASSERT_TRUE(query.next());
    EXPECT_EQ(query.value(0).toInt(), 1);
}
