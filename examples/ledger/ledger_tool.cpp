// yledger: the operator's tool for yledgerd and for the files around it.
//
//   yledger status [--table NAME]
//   yledger send [--host HOST] --port PORT TYPE [NUMBER] [TEXT]
//   yledger ini get FILE KEY
//   yledger ini set FILE KEY VALUE
//   yledger json check FILE
//   yledger digest FILE TYPE
//
// Results go to standard output, errors to standard error. Exit codes, the same for every
// command: 0 success, 1 the answer is "no" (a directive that isn't there, a JSON file with
// errors, a refused request), 2 wrong usage, 3 a file or the daemon can't be reached.
#include "ledger_common.h"

#include <yovolib/yovolib.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStringList>
#include <QThread>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <map>

#include <signal.h>

namespace {

enum ExitCode
{
    EXIT_OK = 0,
    EXIT_NO = 1,
    EXIT_USAGE = 2,
    EXIT_UNREACHABLE = 3
};

const char* const USAGE = "usage: yledger COMMAND [ARGUMENTS]\n"
                          "\n"
                          "commands:\n"
                          "  status      show the counters of a running yledgerd\n"
                          "  send        send a typed message to yledgerd and print its answer\n"
                          "  ini get     print the value of one directive of an ini file\n"
                          "  ini set     change one directive of an ini file in place\n"
                          "  json check  report the errors and warnings of a JSON file\n"
                          "  digest      print the digest of a type declared in an XML file\n"
                          "\n"
                          "\"yledger COMMAND --help\" describes each command.\n"
                          "exit codes: 0 success, 1 negative answer, 2 wrong usage,\n"
                          "            3 a file or the daemon can't be reached\n";

const char* const STATUS_HELP
    = "usage: yledger status [--table NAME]\n"
      "\n"
      "Reads the status that yledgerd publishes in its shared table (default name \"yledgerd\",\n"
      "the setting ledger.shared_table) and prints one \"name: value\" line per figure. Only\n"
      "reads: the daemon is not disturbed. Exits with 3 when no daemon is running.\n";

const char* const SEND_HELP
    = "usage: yledger send [--host HOST] --port PORT TYPE [NUMBER] [TEXT]\n"
      "\n"
      "Sends one typed message (string type TYPE, integer NUMBER, default 0, and TEXT) to the\n"
      "daemon at HOST (default 127.0.0.1) and prints the request and the answer. yledgerd\n"
      "stores messages of type \"store\" whose TEXT is \"<client>\\t<payload>\" under the\n"
      "sequence number NUMBER, and answers \"ping\" with \"pong\". Exits with 1 when the answer "
      "is\n"
      "an error, 3 when the daemon can't be reached.\n";

const char* const INI_GET_HELP
    = "usage: yledger ini get FILE KEY\n"
      "\n"
      "Prints the value of the first directive KEY in the ini file FILE, as written (quotes\n"
      "kept, comment removed). Exits with 1 when the file has no such directive, 3 when it\n"
      "can't be read.\n";

const char* const INI_SET_HELP
    = "usage: yledger ini set FILE KEY VALUE\n"
      "\n"
      "Changes the first directive KEY of the ini file FILE to VALUE. Every other byte of the\n"
      "file stays as it is; the new file replaces the old one in one step. Only an existing\n"
      "directive is changed: exits with 1 when the file has none of that name, 3 when the file\n"
      "can't be read or written.\n";

const char* const JSON_CHECK_HELP
    = "usage: yledger json check FILE\n"
      "\n"
      "Reads the JSON file FILE (comments allowed) and prints every error and warning with its\n"
      "line and column, then a summary. Exits with 0 when there are no errors (warnings\n"
      "allowed), 1 when there are, 3 when the file can't be read.\n";

const char* const DIGEST_HELP
    = "usage: yledger digest FILE TYPE\n"
      "\n"
      "Reads the type declarations of the XML file FILE and prints the digest of the type TYPE:\n"
      "32 upper-case hexadecimal characters, the same on every peer that declares the type the\n"
      "same way. Exits with 1 when the file doesn't declare the type or declares it wrongly, 3\n"
      "when the file can't be read.\n";

int fail(int code, const QString& text)
{
    std::fprintf(stderr, "yledger: %s\n", text.toLocal8Bit().constData());
    return code;
}

int usage(const char* help)
{
    std::fputs(help, stderr);
    return EXIT_USAGE;
}

bool wantsHelp(const QStringList& arguments)
{
    return arguments.contains(QStringLiteral("--help")) || arguments.contains(QStringLiteral("-h"));
}

// The one check that keeps a reading command from reporting on something that isn't there.
bool readableFile(const QString& path, QString& error)
{
    const QFileInfo info(path);
    if (!info.exists())
        error = QStringLiteral("%1: no such file").arg(path);
    else if (!info.isFile())
        error = QStringLiteral("%1: not a file").arg(path);
    else if (!info.isReadable())
        error = QStringLiteral("%1: not readable").arg(path);
    else
        return true;
    return false;
}

int commandStatus(QStringList arguments)
{
    if (wantsHelp(arguments)) {
        std::fputs(STATUS_HELP, stdout);
        return EXIT_OK;
    }
    QString tableName = QStringLiteral("yledgerd");
    if (arguments.size() == 2 && arguments[0] == QLatin1String("--table"))
        tableName = arguments[1];
    else if (!arguments.isEmpty())
        return usage(STATUS_HELP);
    if (tableName.isEmpty())
        return usage(STATUS_HELP);

    YMMapHash table;
    if (!table.attach(tableName.toLocal8Bit().constData()))
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("status: yledgerd is not running (no shared table \"%1\": %2)")
                .arg(tableName, table.errorString()));
    // The daemon publishes each record whole, and empties the table now and then to reclaim its
    // space: a reader that comes at that moment looks again.
    QByteArray record;
    bool found = false;
    for (int attempt = 0; attempt < 10 && !found; ++attempt) {
        found = table.value(LEDGER_STATUS_KEY, record);
        if (!found)
            QThread::msleep(20);
    }
    if (!found)
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("status: the shared table \"%1\" holds no status").arg(tableName));
    const auto fields = parseLedgerStatus(record);
    qint64 pid = 0;
    for (const auto& field : fields) {
        if (field.first == "pid")
            pid = field.second.toLongLong();
    }
    // A daemon killed outright leaves its table behind until the next one starts.
    if (pid <= 0 || (kill(pid_t(pid), 0) != 0 && errno == ESRCH))
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("status: yledgerd is not running (the table \"%1\" was left by "
                           "process %2)")
                .arg(tableName)
                .arg(pid));
    for (const auto& field : fields)
        std::printf("%s: %s\n", field.first.constData(), field.second.constData());
    return EXIT_OK;
}

int commandSend(QStringList arguments)
{
    if (wantsHelp(arguments)) {
        std::fputs(SEND_HELP, stdout);
        return EXIT_OK;
    }
    QString host = QStringLiteral("127.0.0.1");
    int port = -1;
    QStringList rest;
    for (int i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("--host") && i + 1 < arguments.size()) {
            host = arguments[++i];
        } else if (arguments[i] == QLatin1String("--port") && i + 1 < arguments.size()) {
            bool ok = false;
            port = arguments[++i].toInt(&ok);
            if (!ok || port <= 0 || port > 65535)
                return fail(EXIT_USAGE, QStringLiteral("send: not a port: %1").arg(arguments[i]));
        } else {
            rest.append(arguments[i]);
        }
    }
    if (port < 0 || rest.isEmpty() || rest.size() > 3)
        return usage(SEND_HELP);
    int number = 0;
    if (rest.size() > 1) {
        bool ok = false;
        number = rest[1].toInt(&ok);
        if (!ok)
            return fail(EXIT_USAGE, QStringLiteral("send: not a number: %1").arg(rest[1]));
    }
    // The shell can't easily pass a tab: "\t" in the text stands for one.
    QString text = rest.value(2);
    text.replace(QLatin1String("\\t"), QLatin1String("\t"));
    try {
        const QByteArray hostName = host.toLocal8Bit();
        const std::unique_ptr<YMessage> answer
            = ledgerRequest(hostName.constData(), quint16(port), rest[0], number, text);
        std::printf("%s\n", answer->toShortString().toLocal8Bit().constData());
        return answer->getStringType() == QLatin1String(LEDGER_ERROR) ? EXIT_NO : EXIT_OK;
    } catch (const YException& e) {
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("send: no answer from %1:%2: %3").arg(host).arg(port).arg(e.what()));
    }
}

// The value as it has to stand in the file to read back the same: quoted when it holds what the
// syntax would take for itself.
bool iniValueText(const QString& value, QByteArray& text)
{
    if (value.contains(QLatin1Char('"')) || value.contains(QLatin1Char('\n'))
        || value.contains(QLatin1Char('\r')))
        return false;
    static const QString special = QStringLiteral(" \t;#=[](){}|&~!^$");
    bool quote = false;
    for (const QChar c : value)
        quote = quote || special.contains(c);
    text = (quote ? QLatin1Char('"') + value + QLatin1Char('"') : value).toLocal8Bit();
    return true;
}

// Changes the value of the first directive `key` and nothing else: the key's spelling, the
// blanks around "=", a comment after the value, the line endings and every other line stay as
// they are. The new file replaces the old one in one rename.
int setDirective(const QString& path, const QString& key, const QString& value)
{
    QByteArray valueText;
    if (!iniValueText(value, valueText))
        return fail(EXIT_USAGE,
            QStringLiteral("ini set: a value can't hold a double quote or a line break"));
    QFile in(path);
    if (!in.open(QIODevice::ReadOnly))
        return fail(
            EXIT_UNREACHABLE, QStringLiteral("ini set: %1: %2").arg(path, in.errorString()));
    QByteArray content = in.readAll();
    in.close();
    const QByteArray wanted = key.toLocal8Bit();
    int lineStart = 0;
    while (lineStart < content.size()) {
        int lineEnd = content.indexOf('\n', lineStart);
        if (lineEnd < 0)
            lineEnd = content.size();
        int bodyEnd = lineEnd;
        if (bodyEnd > lineStart && content[bodyEnd - 1] == '\r')
            --bodyEnd;
        const QByteArray line = content.mid(lineStart, bodyEnd - lineStart);
        const int equals = line.indexOf('=');
        const QByteArray head = line.trimmed();
        if (equals > 0 && !head.startsWith(';') && !head.startsWith('#') && !head.startsWith('[')
            && line.left(equals).trimmed() == wanted) {
            int valueStart = equals + 1;
            while (
                valueStart < line.size() && (line[valueStart] == ' ' || line[valueStart] == '\t'))
                ++valueStart;
            int valueEnd = valueStart;
            if (valueEnd < line.size() && line[valueEnd] == '"') {
                const int closing = line.indexOf('"', valueEnd + 1);
                valueEnd = closing < 0 ? line.size() : closing + 1;
            } else {
                while (valueEnd < line.size() && line[valueEnd] != ';')
                    ++valueEnd;
                while (valueEnd > valueStart
                    && (line[valueEnd - 1] == ' ' || line[valueEnd - 1] == '\t'))
                    --valueEnd;
            }
            content.replace(lineStart + valueStart, valueEnd - valueStart, valueText);
            QSaveFile out(path);
            if (!out.open(QIODevice::WriteOnly) || out.write(content) != content.size()
                || !out.commit())
                return fail(EXIT_UNREACHABLE,
                    QStringLiteral("ini set: %1 can't be rewritten: %2")
                        .arg(path, out.errorString()));
            std::printf("%s = %s\n", wanted.constData(), valueText.constData());
            return EXIT_OK;
        }
        lineStart = lineEnd + 1;
    }
    return fail(EXIT_NO, QStringLiteral("ini set: %1 has no directive \"%2\"").arg(path, key));
}

int commandIni(QStringList arguments)
{
    const QString action = arguments.isEmpty() ? QString() : arguments.takeFirst();
    const bool get = action == QLatin1String("get");
    if (!get && action != QLatin1String("set")) {
        std::fprintf(
            stderr, "yledger: ini: expected \"get\" or \"set\"\n%s%s", INI_GET_HELP, INI_SET_HELP);
        return EXIT_USAGE;
    }
    const char* help = get ? INI_GET_HELP : INI_SET_HELP;
    if (wantsHelp(arguments)) {
        std::fputs(help, stdout);
        return EXIT_OK;
    }
    if (arguments.size() != (get ? 2 : 3) || arguments[1].isEmpty())
        return usage(help);
    const QString file = arguments[0];
    const QString key = arguments[1];
    QString error;
    if (!readableFile(file, error))
        return fail(EXIT_UNREACHABLE, QStringLiteral("ini %1: %2").arg(action, error));
    try {
        YScanDir scanner;
        scanner.addFile(file);
        scanner.scan();
        QString value;
        if (!scanner.getStringValue(key, value))
            return fail(EXIT_NO,
                QStringLiteral("ini %1: %2 has no directive \"%3\"").arg(action, file, key));
        if (get) {
            std::printf("%s\n", value.toLocal8Bit().constData());
            return EXIT_OK;
        }
        return setDirective(file, key, arguments[2]);
    } catch (const YException& e) {
        return fail(EXIT_UNREACHABLE, QStringLiteral("ini %1: %2").arg(action, e.what()));
    }
}

int commandJson(QStringList arguments)
{
    if (arguments.value(0) != QLatin1String("check")) {
        std::fprintf(stderr, "yledger: json: expected \"check\"\n%s", JSON_CHECK_HELP);
        return EXIT_USAGE;
    }
    arguments.removeFirst();
    if (wantsHelp(arguments)) {
        std::fputs(JSON_CHECK_HELP, stdout);
        return EXIT_OK;
    }
    if (arguments.size() != 1)
        return usage(JSON_CHECK_HELP);
    QString error;
    if (!readableFile(arguments[0], error))
        return fail(EXIT_UNREACHABLE, QStringLiteral("json check: ") + error);
    QFile file(arguments[0]);
    if (!file.open(QIODevice::ReadOnly))
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("json check: %1: %2").arg(arguments[0], file.errorString()));
    const QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("json check: %1: %2").arg(arguments[0], file.errorString()));
    // The reader takes Latin-1 text and reads UTF-8 sequences itself.
    YJsonReader reader(YJSONREADER_TOLERANT, 1000);
    YJsonValue root;
    reader.parse(QString::fromLatin1(content), &root);
    for (const QString& line : reader.getErrors())
        std::printf(
            "%s: %s\n", arguments[0].toLocal8Bit().constData(), line.toLocal8Bit().constData());
    for (const QString& line : reader.getWarnings())
        std::printf(
            "%s: %s\n", arguments[0].toLocal8Bit().constData(), line.toLocal8Bit().constData());
    std::printf("%s: %d error(s), %d warning(s)\n", arguments[0].toLocal8Bit().constData(),
        reader.getErrorCount(), reader.getWarningCount());
    return reader.getErrorCount() == 0 ? EXIT_OK : EXIT_NO;
}

int commandDigest(QStringList arguments)
{
    if (wantsHelp(arguments)) {
        std::fputs(DIGEST_HELP, stdout);
        return EXIT_OK;
    }
    if (arguments.size() != 2 || arguments[1].isEmpty())
        return usage(DIGEST_HELP);
    QString error;
    if (!readableFile(arguments[0], error))
        return fail(EXIT_UNREACHABLE, QStringLiteral("digest: ") + error);
    QFile file(arguments[0]);
    if (!file.open(QIODevice::ReadOnly))
        return fail(EXIT_UNREACHABLE,
            QStringLiteral("digest: %1: %2").arg(arguments[0], file.errorString()));
    try {
        YXmlTypeLoader loader(&file);
        const YTypeInfo_t<YMD5> type = loader.loadTypeByName(arguments[1]);
        std::printf("%s\n", type.getTypeDigest().constData());
        return EXIT_OK;
    } catch (const YException& e) {
        return fail(EXIT_NO, QStringLiteral("digest: %1").arg(e.what()));
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The library's own notices are for daemons' logs, not for the operator's terminal.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::ERROR);
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::ERROR);

    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    if (arguments.isEmpty())
        return usage(USAGE);
    const QString command = arguments.takeFirst();
    if (command == QLatin1String("--help") || command == QLatin1String("-h")
        || command == QLatin1String("help")) {
        std::fputs(USAGE, stdout);
        return EXIT_OK;
    }
    const std::map<QString, std::function<int(QStringList)>> commands = {
        {QStringLiteral("status"), commandStatus},
        {QStringLiteral("send"), commandSend},
        {QStringLiteral("ini"), commandIni},
        {QStringLiteral("json"), commandJson},
        {QStringLiteral("digest"), commandDigest},
    };
    const auto found = commands.find(command);
    if (found == commands.end()) {
        std::fprintf(
            stderr, "yledger: unknown command \"%s\"\n", command.toLocal8Bit().constData());
        return usage(USAGE);
    }
    return found->second(arguments);
}
