// yledger's commands against real files and a running yledgerd, bad input included: every
// failure is a message on standard error and an exit code a script can test, never a crash.
#include "ledger_test_support.h"

#include <yovolib/yovolib.h>

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QThread>

using namespace ledgertest;

namespace {

void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
}

// Comments, sections, CRLF endings, blanks around "=", a quoted value and a last line without an
// ending: all of it must come back byte for byte but for the one value.
const QByteArray INI = "; settings\r\n"
                       "[network]\r\n"
                       "ledger.port = 7411 ; the port\r\n"
                       "ledger.allowed_masks=\"10.0.0.0/8\"\r\n"
                       "\r\n"
                       "[storage]\r\n"
                       "  ledger.database\t=  /var/lib/a.db\r\n"
                       "ledger.port = 9999\r\n"
                       "ledger.empty =";

} // namespace

TEST(LedgerTool, HelpOnEveryCommand)
{
    const QList<QStringList> commands = {
        {QStringLiteral("--help")},
        {QStringLiteral("status"), QStringLiteral("--help")},
        {QStringLiteral("send"), QStringLiteral("--help")},
        {QStringLiteral("ini"), QStringLiteral("get"), QStringLiteral("--help")},
        {QStringLiteral("ini"), QStringLiteral("set"), QStringLiteral("--help")},
        {QStringLiteral("json"), QStringLiteral("check"), QStringLiteral("--help")},
        {QStringLiteral("digest"), QStringLiteral("--help")},
    };
    for (const QStringList& command : commands) {
        const ToolRun run = runTool(command);
        EXPECT_EQ(0, run.exitCode) << command.join(' ').toStdString();
        QStringList words = command;
        words.removeLast();
        const QByteArray expected
            = ("usage: yledger " + (words.isEmpty() ? QStringLiteral("COMMAND") : words.join(' ')))
                  .toLatin1();
        EXPECT_TRUE(run.out.startsWith(expected)) << run.out.constData();
        EXPECT_TRUE(run.err.isEmpty());
    }
}

TEST(LedgerTool, WrongUsageExitsWithTwo)
{
    ToolRun run = runTool({});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("usage: yledger COMMAND [ARGUMENTS]\n"));
    EXPECT_TRUE(run.out.isEmpty());

    run = runTool({QStringLiteral("frobnicate")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("yledger: unknown command \"frobnicate\"\n"))
        << run.err.constData();

    run = runTool({QStringLiteral("ini")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("yledger: ini: expected \"get\" or \"set\"\n"));

    run = runTool({QStringLiteral("ini"), QStringLiteral("get"), QStringLiteral("only-a-file")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("usage: yledger ini get FILE KEY\n"));

    run = runTool({QStringLiteral("json")});
    EXPECT_EQ(2, run.exitCode);

    run = runTool({QStringLiteral("send"), QStringLiteral("--port"), QStringLiteral("http"),
        QStringLiteral("ping")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_EQ(QByteArray("yledger: send: not a port: http\n"), run.err);

    run = runTool({QStringLiteral("send"), QStringLiteral("--port"), QStringLiteral("7411"),
        QStringLiteral("store"), QStringLiteral("seven")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_EQ(QByteArray("yledger: send: not a number: seven\n"), run.err);

    run = runTool({QStringLiteral("status"), QStringLiteral("--table")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("usage: yledger status"));
}

TEST(LedgerTool, IniGetPrintsTheValueAsWritten)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("a.ini"));
    writeFile(path, INI);
    ToolRun run = runTool(
        {QStringLiteral("ini"), QStringLiteral("get"), path, QStringLiteral("ledger.port")});
    EXPECT_EQ(0, run.exitCode) << run.err.constData();
    EXPECT_EQ(QByteArray("7411\n"), run.out);
    run = runTool({QStringLiteral("ini"), QStringLiteral("get"), path,
        QStringLiteral("ledger.allowed_masks")});
    EXPECT_EQ(QByteArray("\"10.0.0.0/8\"\n"), run.out);
    run = runTool(
        {QStringLiteral("ini"), QStringLiteral("get"), path, QStringLiteral("ledger.database")});
    EXPECT_EQ(QByteArray("/var/lib/a.db\n"), run.out);
}

TEST(LedgerTool, IniGetReportsAnUnknownDirectiveAndAMissingFile)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("a.ini"));
    writeFile(path, INI);
    ToolRun run = runTool(
        {QStringLiteral("ini"), QStringLiteral("get"), path, QStringLiteral("ledger.nothing")});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_EQ(
        ("yledger: ini get: " + path + " has no directive \"ledger.nothing\"\n").toLocal8Bit(),
        run.err);

    const QString missing = dir.file(QStringLiteral("missing.ini"));
    run = runTool({QStringLiteral("ini"), QStringLiteral("get"), missing, QStringLiteral("x")});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_EQ(("yledger: ini get: " + missing + ": no such file\n").toLocal8Bit(), run.err);

    run = runTool({QStringLiteral("ini"), QStringLiteral("get"), dir.path(), QStringLiteral("x")});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_EQ(("yledger: ini get: " + dir.path() + ": not a file\n").toLocal8Bit(), run.err);
}

TEST(LedgerTool, IniSetChangesOneValueAndKeepsEveryOtherByte)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("a.ini"));
    writeFile(path, INI);
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    ToolRun run = runTool({QStringLiteral("ini"), QStringLiteral("set"), path,
        QStringLiteral("ledger.port"), QStringLiteral("8080")});
    EXPECT_EQ(0, run.exitCode) << run.err.constData();
    EXPECT_EQ(QByteArray("ledger.port = 8080\n"), run.out);
    QByteArray expected = INI;
    expected.replace("ledger.port = 7411 ; the port", "ledger.port = 8080 ; the port");
    EXPECT_EQ(expected, yovotest::readFile(path));

    // A value the syntax would misread is quoted; a quoted value is replaced whole.
    run = runTool({QStringLiteral("ini"), QStringLiteral("set"), path,
        QStringLiteral("ledger.allowed_masks"), QStringLiteral("10.0.0.0/8; 127.0.0.1")});
    EXPECT_EQ(0, run.exitCode);
    expected.replace("\"10.0.0.0/8\"", "\"10.0.0.0/8; 127.0.0.1\"");
    run = runTool({QStringLiteral("ini"), QStringLiteral("set"), path,
        QStringLiteral("ledger.database"), QStringLiteral("/srv/b.db")});
    expected.replace("=  /var/lib/a.db", "=  /srv/b.db");
    run = runTool({QStringLiteral("ini"), QStringLiteral("set"), path,
        QStringLiteral("ledger.empty"), QStringLiteral("5")});
    expected.replace("ledger.empty =", "ledger.empty =5");
    EXPECT_EQ(expected, yovotest::readFile(path));

    // What was written reads back through the library's own reader.
    run = runTool({QStringLiteral("ini"), QStringLiteral("get"), path,
        QStringLiteral("ledger.allowed_masks")});
    EXPECT_EQ(QByteArray("\"10.0.0.0/8; 127.0.0.1\"\n"), run.out);

    // Replaced in one rename: nothing is left beside the file, and it keeps its permissions.
    EXPECT_EQ(QStringList(QStringLiteral("a.ini")),
        QDir(dir.path()).entryList(QDir::Files | QDir::Hidden));
    EXPECT_EQ(QFileDevice::ReadOwner | QFileDevice::WriteOwner,
        QFile::permissions(path)
            & (QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                | QFileDevice::ReadOther));
}

TEST(LedgerTool, IniSetRefusesWhatItCannotDoAndLeavesTheFileAlone)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("a.ini"));
    writeFile(path, INI);
    ToolRun run = runTool({QStringLiteral("ini"), QStringLiteral("set"), path,
        QStringLiteral("ledger.nothing"), QStringLiteral("1")});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ(
        ("yledger: ini set: " + path + " has no directive \"ledger.nothing\"\n").toLocal8Bit(),
        run.err);
    run = runTool({QStringLiteral("ini"), QStringLiteral("set"), path,
        QStringLiteral("ledger.port"), QStringLiteral("say \"hi\"")});
    EXPECT_EQ(2, run.exitCode);
    EXPECT_EQ(QByteArray("yledger: ini set: a value can't hold a double quote or a line break\n"),
        run.err);
    EXPECT_EQ(INI, yovotest::readFile(path));

    const QString missing = dir.file(QStringLiteral("missing.ini"));
    run = runTool({QStringLiteral("ini"), QStringLiteral("set"), missing, QStringLiteral("x"),
        QStringLiteral("1")});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_EQ(("yledger: ini set: " + missing + ": no such file\n").toLocal8Bit(), run.err);
    EXPECT_FALSE(QFile::exists(missing));
}

TEST(LedgerTool, JsonCheckReportsErrorsAndWarningsWithLineAndColumn)
{
    yovotest::TempDir dir;
    const QString good = dir.file(QStringLiteral("good.json"));
    writeFile(good, "{\n  \"a\": [1, 2, 3],\n  \"b\": {\"c\": null}\n}\n");
    ToolRun run = runTool({QStringLiteral("json"), QStringLiteral("check"), good});
    EXPECT_EQ(0, run.exitCode) << run.out.constData();
    EXPECT_EQ((good + ": 0 error(s), 0 warning(s)\n").toLocal8Bit(), run.out);

    // A comment is tolerated with a warning; a missing value is an error.
    const QString bad = dir.file(QStringLiteral("bad.json"));
    writeFile(bad, "{\n  // a comment\n  \"a\": ,\n  \"b\": 1\n}\n");
    run = runTool({QStringLiteral("json"), QStringLiteral("check"), bad});
    EXPECT_EQ(1, run.exitCode) << run.out.constData();
    const QList<QByteArray> lines = run.out.split('\n');
    ASSERT_GE(lines.size(), 3);
    EXPECT_TRUE(lines[0].startsWith((bad + ": Error: line 3, col ").toLocal8Bit()))
        << run.out.constData();
    EXPECT_TRUE(run.out.contains((bad + ": Warning: line 2, col ").toLocal8Bit()))
        << run.out.constData();
    EXPECT_TRUE(run.out.endsWith(" warning(s)\n"));
    EXPECT_TRUE(run.err.isEmpty());
}

TEST(LedgerTool, JsonCheckReadsALargeRealFile)
{
    const QString path = yovotest::corpusPath(QStringLiteral("json/twitter.json"));
    if (!QFile::exists(path))
        GTEST_SKIP() << "no corpus at " << path.toStdString();
    const ToolRun run = runTool({QStringLiteral("json"), QStringLiteral("check"), path});
    EXPECT_EQ(0, run.exitCode) << run.out.left(500).constData();
    EXPECT_TRUE(run.out.endsWith(": 0 error(s), 0 warning(s)\n"));
}

TEST(LedgerTool, JsonCheckReportsAFileItCannotRead)
{
    yovotest::TempDir dir;
    const QString missing = dir.file(QStringLiteral("missing.json"));
    ToolRun run = runTool({QStringLiteral("json"), QStringLiteral("check"), missing});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_EQ(("yledger: json check: " + missing + ": no such file\n").toLocal8Bit(), run.err);
    EXPECT_TRUE(run.out.isEmpty());
    run = runTool({QStringLiteral("json"), QStringLiteral("check"), dir.path()});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_EQ(("yledger: json check: " + dir.path() + ": not a file\n").toLocal8Bit(), run.err);
}

TEST(LedgerTool, DigestPrintsTheDigestOfTheDeclaredType)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("types.xml"));
    writeFile(path,
        "<?xml version=\"1.0\"?>\n<types>\n  <type name=\"Order\">\n"
        "    <field name=\"id\" type=\"FT_32\"/>\n"
        "    <field name=\"sku\" type=\"FT_FIXED_SIZE\" size=\"12\"/>\n"
        "    <field name=\"note\" type=\"FT_VARIABLE_SIZE\"/>\n  </type>\n</types>\n");
    YTypeInfo_t<YMD5> order("Order");
    order.add32Field("id");
    order.addFixedSizeField("sku", 12);
    order.addVariableSizeField("note");
    order.finalize();

    ToolRun run = runTool({QStringLiteral("digest"), path, QStringLiteral("Order")});
    EXPECT_EQ(0, run.exitCode) << run.err.constData();
    EXPECT_EQ(order.getTypeDigest() + '\n', run.out);
    EXPECT_EQ(33, run.out.size());

    run = runTool({QStringLiteral("digest"), path, QStringLiteral("Invoice")});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("yledger: digest: "));
    EXPECT_TRUE(run.err.contains("Type Invoice was not found on a given device"))
        << run.err.constData();

    const QString broken = dir.file(QStringLiteral("broken.xml"));
    writeFile(broken, "<types><type name=\"Order\"><field name=\"id\" type=\"FT_32\"");
    run = runTool({QStringLiteral("digest"), broken, QStringLiteral("Order")});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_TRUE(run.err.startsWith("yledger: digest: ")) << run.err.constData();
    EXPECT_TRUE(run.out.isEmpty());

    const QString missing = dir.file(QStringLiteral("missing.xml"));
    run = runTool({QStringLiteral("digest"), missing, QStringLiteral("Order")});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_EQ(("yledger: digest: " + missing + ": no such file\n").toLocal8Bit(), run.err);
}

TEST(LedgerTool, StatusAndSendWithoutADaemon)
{
    const QString table = yovotest::uniqueName("ledger_absent_");
    ToolRun run = runTool({QStringLiteral("status"), QStringLiteral("--table"), table});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_TRUE(run.err.startsWith(
        ("yledger: status: yledgerd is not running (no shared table \"" + table + "\"")
            .toLocal8Bit()))
        << run.err.constData();
    EXPECT_TRUE(run.out.isEmpty());

    const unsigned short port = freePort();
    run = runTool({QStringLiteral("send"), QStringLiteral("--port"), QString::number(port),
        QStringLiteral("ping")});
    EXPECT_EQ(3, run.exitCode);
    EXPECT_TRUE(run.err.startsWith(
        ("yledger: send: no answer from 127.0.0.1:" + QString::number(port) + ": ").toLocal8Bit()))
        << run.err.constData();
}

TEST(LedgerTool, StatusAndSendAgainstARunningDaemon)
{
    yovotest::TempDir dir;
    const QString table = yovotest::uniqueName("ledger_tool_");
    Daemon daemon;
    ASSERT_TRUE(daemon.start(writeConfig(dir, 0, table)));
    ASSERT_TRUE(daemon.waitListening()) << daemon.errors().constData();
    const QByteArray output = daemon.output();
    const int at = output.indexOf("listening on port ") + int(strlen("listening on port "));
    const QString port = QString::fromLatin1(output.mid(at, output.indexOf('\n', at) - at));
    ASSERT_GT(port.toInt(), 0);

    ToolRun run = runTool({QStringLiteral("send"), QStringLiteral("--port"), port,
        QStringLiteral("store"), QStringLiteral("7"), QStringLiteral("ops\\tfirst")});
    EXPECT_EQ(0, run.exitCode) << run.err.constData();
    EXPECT_EQ(QByteArray("ack:7:stored\n"), run.out);
    run = runTool({QStringLiteral("send"), QStringLiteral("--port"), port, QStringLiteral("store"),
        QStringLiteral("7"), QStringLiteral("ops\\tfirst")});
    EXPECT_EQ(QByteArray("ack:7:duplicate\n"), run.out);
    run = runTool({QStringLiteral("send"), QStringLiteral("--port"), port, QStringLiteral("store"),
        QStringLiteral("8"), QString()});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ(QByteArray("error:8:a stored message needs a client name\n"), run.out);
    run = runTool(
        {QStringLiteral("send"), QStringLiteral("--port"), port, QStringLiteral("hello")});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ(QByteArray("error:0:unknown request type: hello\n"), run.out);
    run = runTool({QStringLiteral("send"), QStringLiteral("--host"), QStringLiteral("127.0.0.1"),
        QStringLiteral("--port"), port, QStringLiteral("ping")});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ(("pong:1:yledgerd " + QString::number(daemon.pid()) + "\n").toLatin1(), run.out);

    // The main loop publishes the counters five times a second.
    QThread::msleep(500);
    run = runTool({QStringLiteral("status"), QStringLiteral("--table"), table});
    EXPECT_EQ(0, run.exitCode) << run.err.constData();
    const QList<QByteArray> lines = run.out.split('\n');
    ASSERT_EQ(10, lines.size()) << run.out.constData();
    EXPECT_EQ("pid: " + QByteArray::number(daemon.pid()), lines[0]);
    EXPECT_EQ("port: " + port.toLatin1(), lines[1]);
    EXPECT_TRUE(lines[2].startsWith("started: "));
    EXPECT_EQ(QByteArray("stored: 1"), lines[3]);
    EXPECT_EQ(QByteArray("duplicates: 1"), lines[4]);
    EXPECT_EQ(QByteArray("errors: 2"), lines[5]);
    EXPECT_EQ(QByteArray("requests: 5"), lines[6]);
    EXPECT_EQ(QByteArray("requests_last_minute: 5"), lines[7]);
    EXPECT_EQ(QByteArray("refused: 0"), lines[8]);

    daemon.sendSignal(SIGTERM);
    EXPECT_EQ(0, daemon.wait());
}
