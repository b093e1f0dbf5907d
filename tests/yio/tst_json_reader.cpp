#include "json_reader.h"
#include "json_value.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>

#include "json_test_print.h"

namespace {

struct Result
{
    int count = 0;
    YJsonValue root;
    QStringList errors;
    QStringList warnings;
};

Result read(const QString& text, int flags = YJSONREADER_TOLERANT, int maxErrors = 30)
{
    Result r;
    YJsonReader reader(flags, maxErrors);
    r.count = reader.parse(text, &r.root);
    r.errors = reader.getErrors();
    r.warnings = reader.getWarnings();
    EXPECT_EQ(r.count, reader.getErrorCount());
    EXPECT_EQ(r.warnings.size(), reader.getWarningCount());
    return r;
}

QStringList list(const char* one)
{
    return QStringList {QString::fromLatin1(one)};
}

} // namespace

TEST(YJsonReader, TrailingCommasAreAccepted)
{
    Result o = read(QStringLiteral("{\"a\":1,}"), YJSONREADER_STRICT);
    EXPECT_EQ(o.count, 0);
    EXPECT_TRUE(o.warnings.isEmpty());
    EXPECT_EQ(o.root.size(), 1);
    EXPECT_EQ(o.root.itemAt(QStringLiteral("a")).asInt(), 1);

    Result a = read(QStringLiteral("[1,2,]"), YJSONREADER_STRICT);
    EXPECT_EQ(a.count, 0);
    EXPECT_TRUE(a.warnings.isEmpty());
    EXPECT_EQ(a.root.size(), 2);

    Result e = read(QStringLiteral("[ ]"), YJSONREADER_STRICT);
    EXPECT_EQ(e.count, 0);
    EXPECT_TRUE(e.root.isArray());
    EXPECT_EQ(e.root.size(), 0);
}

TEST(YJsonReader, LeadingCommaIsAnError)
{
    Result r = read(QStringLiteral("[,1]"));
    EXPECT_EQ(r.errors, list("Error: line 1, col 3 - key or value is missing for JSON value"));
    EXPECT_EQ(r.root.size(), 1);
    EXPECT_EQ(r.root.itemAt(0u).asInt(), 1);
}

TEST(YJsonReader, ValueAfterValue)
{
    Result r = read(QStringLiteral("[1 2]"));
    EXPECT_EQ(r.errors,
        list("Error: line 1, col 6 - Value '2' cannot follow a value: ',' or ':' missing?"));
    EXPECT_EQ(r.root.size(), 1);
    EXPECT_EQ(r.root.itemAt(0u).asInt(), 1);

    Result s = read(QStringLiteral("[1 \"x\"]"));
    EXPECT_EQ(
        s.errors, list("Error: line 1, col 7 - String value 'x' cannot follow another value"));
}

TEST(YJsonReader, AdjacentStringsAreJoined)
{
    Result r = read(QStringLiteral("{\"a\":\"x\" \"y\"}"));
    EXPECT_EQ(r.count, 0);
    EXPECT_EQ(r.warnings,
        list("Warning: line 1, col 13 - Multiline strings are not allowed by JSON syntax"));
    EXPECT_EQ(r.root.itemAt(QStringLiteral("a")).asString(), QStringLiteral("xy"));

    Result strict = read(QStringLiteral("{\"a\":\"x\" \"y\"}"), YJSONREADER_STRICT);
    EXPECT_EQ(strict.errors,
        list("Error: line 1, col 13 - Multiline strings are not allowed by JSON syntax"));
    EXPECT_TRUE(strict.warnings.isEmpty());
    EXPECT_EQ(strict.root.itemAt(QStringLiteral("a")).asString(), QStringLiteral("xy"));
}

TEST(YJsonReader, LiteralsInAnotherCase)
{
    Result r = read(QStringLiteral("[TRUE, Null, fALSE, true]"));
    EXPECT_EQ(r.count, 0);
    EXPECT_EQ(r.warnings,
        (QStringList {
            QStringLiteral("Warning: line 1, col 7 - the 'true' literal must be lowercase"),
            QStringLiteral("Warning: line 1, col 13 - the 'null' literal must be lowercase"),
            QStringLiteral("Warning: line 1, col 20 - the 'false' literal must be lowercase")}));
    ASSERT_EQ(r.root.size(), 4);
    EXPECT_TRUE(r.root.itemAt(0u).asBool());
    EXPECT_TRUE(r.root.itemAt(1u).isNull());
    EXPECT_FALSE(r.root.itemAt(2u).asBool());
    EXPECT_TRUE(r.root.itemAt(3u).asBool());

    Result strict = read(QStringLiteral("[TRUE]"), YJSONREADER_STRICT);
    EXPECT_EQ(strict.errors, list("Error: line 1, col 7 - the 'true' literal must be lowercase"));
    ASSERT_EQ(strict.root.size(), 1);
    EXPECT_TRUE(strict.root.itemAt(0u).asBool());

    Result bad = read(QStringLiteral("[yes]"));
    EXPECT_EQ(bad.errors,
        list("Error: line 1, col 6 - Unrecognized literal 'yes' (did you forget quotes?)"));
}

TEST(YJsonReader, CommentBeforeTheRoot)
{
    const QString text = QStringLiteral("// c\n{}");
    Result tolerant = read(text);
    EXPECT_EQ(tolerant.count, 0);
    EXPECT_EQ(tolerant.warnings,
        list("Warning: line 1, col 3 - Comments may be tolerated in JSON text but they are not "
             "part of JSON syntax"));
    EXPECT_EQ(tolerant.root.getCommentCount(), 0);

    Result strict = read(text, YJSONREADER_STRICT);
    EXPECT_EQ(strict.errors,
        list("Error: line 1, col 3 - Comments may be tolerated in JSON text but they are not "
             "part of JSON syntax"));

    Result stored = read(text, YJSONREADER_TOLERANT | YJSONREADER_STORE_COMMENTS);
    EXPECT_EQ(stored.count, 0);
    EXPECT_EQ(stored.root.getCommentArray(), list("// c\n"));
    EXPECT_EQ(stored.root.getCommentPos(), 1);
    EXPECT_TRUE(stored.root.isObject());
}

TEST(YJsonReader, MissingAndWrongBrackets)
{
    Result r = read(QStringLiteral("[1"));
    EXPECT_EQ(r.count, 0);
    EXPECT_EQ(r.warnings, list("Warning: line 1, col 3 - ']' missing at end of file"));
    ASSERT_EQ(r.root.size(), 1);
    EXPECT_EQ(r.root.itemAt(0u).asInt(), 1);

    Result o = read(QStringLiteral("{\"a\":1"));
    EXPECT_EQ(o.warnings, list("Warning: line 1, col 7 - '}' missing at end of file"));
    EXPECT_EQ(o.root.itemAt(QStringLiteral("a")).asInt(), 1);

    Result w = read(QStringLiteral("[1}, 5"));
    EXPECT_EQ(w.count, 0);
    EXPECT_EQ(w.warnings,
        list(
            "Warning: line 1, col 4 - Trying to close an array using the '}' (close-object) char"));
    EXPECT_EQ(w.root.size(), 1);

    Result x = read(QStringLiteral("{\"a\":1]"), YJSONREADER_STRICT);
    EXPECT_EQ(x.errors,
        list("Error: line 1, col 8 - Trying to close an object using the ']' (close-array) char"));
    EXPECT_EQ(x.root.itemAt(QStringLiteral("a")).asInt(), 1);
}

TEST(YJsonReader, PreambleAndTrailerAreIgnored)
{
    Result r = read(QStringLiteral("xx {\"a\":1} yy"), YJSONREADER_STRICT);
    EXPECT_EQ(r.count, 0);
    EXPECT_TRUE(r.warnings.isEmpty());
    EXPECT_EQ(r.root.itemAt(QStringLiteral("a")).asInt(), 1);

    Result empty = read(QString());
    EXPECT_EQ(empty.count, 1);
    EXPECT_EQ(
        empty.errors, list("Error: line 1, col 1 - Cannot find a start object/array character"));

    Result scalar = read(QStringLiteral("42"));
    EXPECT_EQ(
        scalar.errors, list("Error: line 1, col 3 - Cannot find a start object/array character"));
}

TEST(YJsonReader, ErrorListIsBounded)
{
    Result r = read(QStringLiteral("[,,,,,]"), YJSONREADER_TOLERANT, 2);
    EXPECT_EQ(r.count, 3);
    EXPECT_EQ(r.errors,
        (QStringList {
            QStringLiteral("Error: line 1, col 3 - key or value is missing for JSON value"),
            QStringLiteral("Error: line 1, col 4 - key or value is missing for JSON value"),
            QStringLiteral("Error: too many error messages - ignoring further errors")}));

    Result w = read(QStringLiteral("[TRUE,TRUE,TRUE,TRUE]"), YJSONREADER_TOLERANT, 2);
    EXPECT_EQ(w.count, 0);
    ASSERT_EQ(w.warnings.size(), 3);
    EXPECT_EQ(w.warnings.at(2),
        QStringLiteral("Error: too many warning messages - ignoring further warnings"));
}

TEST(YJsonReader, Escapes)
{
    Result f = read(QStringLiteral("[\"\\f\"]"));
    EXPECT_EQ(f.errors, list("Error: line 1, col 5 - Unknown escaped character '\\%c'"));

    Result ff = read(QStringLiteral("[\"a\\\fb\"]"));
    EXPECT_EQ(ff.count, 0);
    EXPECT_EQ(ff.root.itemAt(0u).asString(), QStringLiteral("a\fb"));

    Result u = read(QStringLiteral("[\"\\u00e9\\u263A\"]"));
    EXPECT_EQ(u.count, 0);
    EXPECT_EQ(u.root.itemAt(0u).asString(), QString(QChar(0xE9)) + QChar(0x263A));

    Result bad = read(QStringLiteral("[\"\\u00\"]"));
    EXPECT_EQ(bad.errors.value(0),
        QStringLiteral("Error: line 1, col 9 - unicode sequence must contain 4 hex digits"));

    Result all = read(QStringLiteral("[\"\\t\\n\\b\\r\\\"\\\\\\/\"]"));
    EXPECT_EQ(all.count, 0);
    EXPECT_EQ(all.root.itemAt(0u).asString(), QStringLiteral("\t\n\b\r\"\\/"));

    Result line = read(QStringLiteral("[\"a\nb\"]"));
    EXPECT_EQ(line.root.itemAt(0u).asString(), QStringLiteral("a\nb"));
}

TEST(YJsonReader, CharacterBeyondLatin1EndsAString)
{
    QString text = QStringLiteral("[\"ab");
    text += QChar(0x263A);
    text += QStringLiteral("]");
    Result r = read(text);
    EXPECT_EQ(r.count, 0);
    ASSERT_EQ(r.root.size(), 1);
    EXPECT_EQ(r.root.itemAt(0u).asString(), QStringLiteral("ab"));

    // Latin-1 characters are taken as they are.
    Result l = read(QStringLiteral("[\"caf") + QChar(0xE9) + QStringLiteral("\"]"));
    EXPECT_EQ(l.count, 0);
    EXPECT_EQ(l.root.itemAt(0u).asString(), QStringLiteral("caf") + QChar(0xE9));
}

TEST(YJsonReader, NumbersHaveTheWidthOfA32BitLong)
{
    Result r = read(QStringLiteral(
        "[12345678901, -5, 4294967295, 2147483647, 2147483648, +5, -2147483649, 1.5e3, 007, "
        "-.5, +1.5]"));
    EXPECT_EQ(r.count, 0);
    ASSERT_EQ(r.root.size(), 11);
    EXPECT_EQ(r.root.itemAt(0u).getType(), YJSONTYPE_DOUBLE);
    EXPECT_EQ(r.root.itemAt(0u).asDouble(), 12345678901.0);
    EXPECT_EQ(r.root.itemAt(1u).getType(), YJSONTYPE_INT);
    EXPECT_EQ(r.root.itemAt(1u).asInt(), -5);
    EXPECT_EQ(r.root.itemAt(2u).getType(), YJSONTYPE_UINT);
    EXPECT_EQ(r.root.itemAt(2u).asUInt(), 4294967295u);
    EXPECT_EQ(r.root.itemAt(3u).getType(), YJSONTYPE_INT);
    EXPECT_EQ(r.root.itemAt(4u).getType(), YJSONTYPE_UINT);
    EXPECT_EQ(r.root.itemAt(5u).getType(), YJSONTYPE_UINT);
    EXPECT_EQ(r.root.itemAt(5u).asUInt(), 5u);
    EXPECT_EQ(r.root.itemAt(6u).getType(), YJSONTYPE_DOUBLE);
    EXPECT_EQ(r.root.itemAt(7u).asDouble(), 1500.0);
    EXPECT_EQ(r.root.itemAt(8u).asInt(), 7);
    EXPECT_EQ(r.root.itemAt(9u).asDouble(), -0.5);
    EXPECT_EQ(r.root.itemAt(10u).asDouble(), 1.5);

    Result bad = read(QStringLiteral("[12abc]"));
    EXPECT_EQ(bad.errors,
        list("Error: line 1, col 8 - Value '12abc' is incorrect (did you forget quotes?)"));
}

TEST(YJsonReader, ObjectSyntaxErrors)
{
    EXPECT_EQ(read(QStringLiteral("[1:2]")).errors.value(0),
        QStringLiteral("Error: line 1, col 4 - ':' cannot be used in array's values"));
    EXPECT_EQ(read(QStringLiteral("{\"a\":\"b\":1}")).errors.value(0),
        QStringLiteral(
            "Error: line 1, col 10 - ':' not allowed where a 'name' string was already available"));
    EXPECT_EQ(read(QStringLiteral("{1:2}")).errors.value(0),
        QStringLiteral("Error: line 1, col 4 - ':' follows a value which is not of type 'string'"));
    EXPECT_EQ(read(QStringLiteral("{[1]}")).errors.value(0),
        QStringLiteral("Error: line 1, col 3 - '[' is not allowed here ('name' is missing"));
    EXPECT_EQ(read(QStringLiteral("{\"a\":1 [2]}")).errors.value(0),
        QStringLiteral("Error: line 1, col 9 - '[' cannot follow a 'value' text"));
    EXPECT_EQ(read(QStringLiteral("[1 [2]]")).errors.value(0),
        QStringLiteral("Error: line 1, col 5 - '[' cannot follow a 'value'"));
    EXPECT_EQ(read(QStringLiteral("{{}}")).errors.value(0),
        QStringLiteral("Error: line 1, col 3 - '{' is not allowed here ('name' is missing"));
    EXPECT_EQ(read(QStringLiteral("{\"a\":1 {}}")).errors.value(0),
        QStringLiteral("Error: line 1, col 9 - '{' must be a 'value'"));
    EXPECT_EQ(read(QStringLiteral("[1 {}]")).errors.value(0),
        QStringLiteral("Error: line 1, col 5 - '{' cannot follow a 'value' in JSON array"));
    EXPECT_EQ(read(QStringLiteral("{\"a\":}")).errors,
        list("Error: line 1, col 7 - cannot store the value: 'value' is missing for JSON object "
             "type"));
    EXPECT_EQ(read(QStringLiteral("{\"a\"}")).errors,
        list("Error: line 1, col 6 - cannot store the value: 'key' is missing for JSON object "
             "type"));
    Result k = read(QStringLiteral("[\"k\":1]"));
    EXPECT_EQ(k.errors,
        (QStringList {QStringLiteral("Error: line 1, col 6 - ':' cannot be used in array's values"),
            QStringLiteral("Error: line 1, col 8 - Value '1' cannot follow a value: ',' or ':' "
                           "missing?")}));
    Result repeated = read(QStringLiteral("{\"a\":1,\"a\":2}"));
    EXPECT_EQ(repeated.count, 0);
    EXPECT_EQ(repeated.root.size(), 1);
    EXPECT_EQ(repeated.root.itemAt(QStringLiteral("a")).asInt(), 2);
}

TEST(YJsonReader, StrangeSlash)
{
    Result r = read(QStringLiteral("[1, /x junk\n 2]"));
    EXPECT_EQ(
        r.errors, list("Error: line 1, col 7 - Strange '/' (did you want to insert a comment?)"));
    ASSERT_EQ(r.root.size(), 2);
    EXPECT_EQ(r.root.itemAt(1u).asInt(), 2);
}

TEST(YJsonReader, LinesAndColumns)
{
    Result r = read(QStringLiteral("[\n1,\r\n\r\n  2 x]"));
    EXPECT_EQ(r.errors,
        list("Error: line 4, col 7 - Value 'x' cannot follow a value: ',' or ':' missing?"));

    // A lone CR doesn't start a line; the column starts again from 1.
    Result cr = read(QStringLiteral("[1\r2]"));
    EXPECT_EQ(cr.errors,
        list("Error: line 1, col 3 - Value '2' cannot follow a value: ',' or ':' missing?"));

    Result lines = read(QStringLiteral("{\n\"a\" : 1,\n\"b\" :\n[\n2\n]\n}"));
    EXPECT_EQ(lines.count, 0);
    EXPECT_EQ(lines.root.itemAt(QStringLiteral("a")).getLineNo(), 2);
    EXPECT_EQ(lines.root.itemAt(QStringLiteral("b")).getLineNo(), 7);
    EXPECT_EQ(lines.root.itemAt(QStringLiteral("b")).itemAt(0u).getLineNo(), 6);
}

TEST(YJsonReader, CommentPlacement)
{
    const int store = YJSONREADER_TOLERANT | YJSONREADER_STORE_COMMENTS;
    Result r = read(QStringLiteral("{\n"
                                   "// before a\n"
                                   "\"a\" : 1, // inline a\n"
                                   "\"b\" : [ // inline b\n"
                                   "/* before 2 */ 2,\n"
                                   "3 /* inline 3 */ ]\n"
                                   "}"),
        store);
    EXPECT_EQ(r.count, 0);
    const YJsonValue a = r.root.itemAt(QStringLiteral("a"));
    EXPECT_EQ(a.getCommentArray(),
        (QStringList {QStringLiteral("// before a\n"), QStringLiteral("// inline a\n")}));
    EXPECT_EQ(a.getCommentPos(), 3);
    const YJsonValue b = r.root.itemAt(QStringLiteral("b"));
    EXPECT_EQ(b.getCommentArray(), list("// inline b\n"));
    EXPECT_EQ(b.getCommentPos(), 3);
    EXPECT_EQ(b.itemAt(0u).getCommentArray(), list("/* before 2 */"));
    EXPECT_EQ(b.itemAt(0u).getCommentPos(), 1);
    EXPECT_EQ(b.itemAt(1u).getCommentArray(), list("/* inline 3 */"));
    EXPECT_EQ(b.itemAt(1u).getCommentPos(), 3);
}

TEST(YJsonReader, CommentsBeforeALaterValueFindNoHome)
{
    Result r
        = read(QStringLiteral("[1,\n// c\n2]"), YJSONREADER_TOLERANT | YJSONREADER_STORE_COMMENTS);
    EXPECT_EQ(r.errors,
        list("Error: line 3, col 2 - Cannot find a value for storing the comment (flag BEFORE)"));
    EXPECT_EQ(r.root.size(), 2);
}

TEST(YJsonReader, CommentsAfterTheirValue)
{
    const int flags
        = YJSONREADER_TOLERANT | YJSONREADER_STORE_COMMENTS | YJSONREADER_COMMENTS_AFTER;
    Result r = read(QStringLiteral("[1\n// after 1\n, 2]"), flags);
    EXPECT_EQ(r.count, 0);
    EXPECT_EQ(r.root.itemAt(0u).getCommentArray(), list("// after 1\n"));
    EXPECT_EQ(r.root.itemAt(0u).getCommentPos(), 2);

    Result none = read(QStringLiteral("// c\n[1]"), flags);
    EXPECT_EQ(none.errors,
        list("Error: line 2, col 2 - Cannot find a value for storing the comment (flag AFTER)"));
}

TEST(YJsonReader, NullRootOnlyChecks)
{
    YJsonReader reader;
    EXPECT_EQ(reader.parse(QStringLiteral("[1,2]"), nullptr), 0);
    EXPECT_EQ(reader.parse(QStringLiteral("[,]"), nullptr), 1);
    // A second parse starts afresh.
    EXPECT_EQ(reader.parse(QStringLiteral("{}"), nullptr), 0);
    EXPECT_TRUE(reader.getErrors().isEmpty());
}

TEST(YJsonReader, CopiesAreIndependent)
{
    YJsonReader first(YJSONREADER_STRICT, 5);
    YJsonValue root;
    first.parse(QStringLiteral("[TRUE]"), &root);
    YJsonReader copy(first);
    EXPECT_EQ(copy.getErrors(), first.getErrors());
    copy = YJsonReader();
    EXPECT_EQ(copy.getErrorCount(), 0);
    EXPECT_EQ(first.getErrorCount(), 1);
}

TEST(YJsonReader, AnyBytesGiveATree)
{
    // Every byte value, in a pattern that opens, breaks and closes things.
    QString text = QStringLiteral("{");
    for (int i = 0; i < 256; ++i) {
        text += QChar(i);
        if (i % 7 == 0)
            text += QStringLiteral("\"k\\");
        if (i % 11 == 0)
            text += QStringLiteral(":[/*");
    }
    for (int flags = 0; flags < 64; ++flags) {
        YJsonReader reader(flags);
        YJsonValue root;
        reader.parse(text, &root);
        EXPECT_TRUE(root.isObject());
        EXPECT_LE(reader.getErrorCount(), 31);
    }
}

TEST(YJsonReader, NumbersAgreeWithQtsConversions)
{
    // The reader takes short cuts for common number forms; its answers must be those of Qt's
    // conversions with the 32-bit ranges, for any form.
    std::mt19937 generator(7);
    const char alphabet[] = "0123456789+-.eE";
    QStringList tokens {QStringLiteral("0"), QStringLiteral("-0"), QStringLiteral("+0"),
        QStringLiteral("2147483647"), QStringLiteral("2147483648"), QStringLiteral("-2147483648"),
        QStringLiteral("-2147483649"), QStringLiteral("4294967295"), QStringLiteral("4294967296"),
        QStringLiteral("+4294967295"), QStringLiteral("+4294967296"), QStringLiteral("1e400"),
        QStringLiteral("1e-400"), QStringLiteral("4.9e-324"),
        QStringLiteral("2.2250738585072014e-308"), QStringLiteral("0.1"),
        QStringLiteral("1.7976931348623157e308"), QStringLiteral("01.5"), QStringLiteral("1."),
        QStringLiteral("-.5e1"), QStringLiteral("1e"),
        QStringLiteral("123456789012345678901234567890")};
    for (int i = 0; i < 20000; ++i) {
        QString token;
        token += QChar(alphabet[generator() % 12]); // a sign or a digit first
        const int length = int(generator() % 24);
        for (int j = 0; j < length; ++j)
            token += QChar(alphabet[generator() % (j % 5 == 4 ? 15 : 10)]);
        tokens << token;
    }
    for (const QString& token : tokens) {
        SCOPED_TRACE(token.toStdString());
        // What Qt's conversions give, the way the reader tries them.
        const QChar first = token.at(0);
        const bool plus = first == QLatin1Char('+');
        const bool minus = first == QLatin1Char('-');
        bool ok = false;
        YJsonType kind = YJSONTYPE_EMPTY;
        double number = 0;
        const qlonglong asLong = token.toLongLong(&ok, 10);
        if (!plus && ok && asLong >= INT_MIN && asLong <= INT_MAX) {
            kind = YJSONTYPE_INT;
            number = double(asLong);
        } else {
            const qulonglong asULong = token.toULongLong(&ok, 10);
            if (!minus && ok && asULong <= UINT_MAX) {
                kind = YJSONTYPE_UINT;
                number = double(asULong);
            } else {
                number = token.toDouble(&ok);
                kind = ok ? YJSONTYPE_DOUBLE : YJSONTYPE_EMPTY;
            }
        }
        YJsonReader reader;
        YJsonValue root;
        reader.parse(QLatin1Char('[') + token + QLatin1Char(']'), &root);
        if (kind == YJSONTYPE_EMPTY) {
            EXPECT_EQ(reader.getErrorCount(), 1);
            continue;
        }
        EXPECT_EQ(reader.getErrorCount(), 0);
        ASSERT_EQ(root.size(), 1);
        const YJsonValue value = root.itemAt(0u);
        EXPECT_EQ(value.getType(), kind);
        EXPECT_EQ(value.asDouble(), number);
    }
}

namespace {

class ExposedReader : public YJsonReader
{
public:
    using YJsonReader::UTF8NumBytes;
};

} // namespace

TEST(YJsonReader, Utf8LeadingBits)
{
    EXPECT_EQ(ExposedReader::UTF8NumBytes('a'), 0);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0x80)), 1);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0xC3)), 2);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0xE2)), 3);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0xF0)), 4);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0xFC)), 6);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0xFE)), -1);
    EXPECT_EQ(ExposedReader::UTF8NumBytes(char(0xFF)), -1);
}

// Decimal texts whose digits and power of ten are both exact doubles take a short way; the
// answers at its edges and beyond them must be Qt's, bit for bit, sign of zero included.
TEST(YJsonReader, DecimalsAtTheEdgesOfTheShortWay)
{
    const char* const texts[] = {"0.1", "0.5", "-0.0", "0.0", "1e22", "1e23", "-1e-22", "1e-23",
        "9007199254740992.0", "9007199254740993.0", "9007199254740991e22", "9007199254740993e-22",
        "123.456e-5", "12345678901234567890.5", "1234567890123456789e3", "0.000000000000000000001",
        "1.7976931348623157e308", "2.2250738585072014e-308", "5e-324", "1e400", "1E+2", "1.0e-0",
        "3.14159265358979323846", "-2.5E-3", "+7.25", "100000000000000000000000.0",
        "0.30000000000000004", "4.35", "1e00000000000000000001"};
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        const QString token = QString::fromLatin1(text);
        bool ok = false;
        const double expected = token.toDouble(&ok);
        const Result r = read(QLatin1Char('[') + token + QLatin1Char(']'), YJSONREADER_STRICT);
        if (!ok) {
            EXPECT_EQ(r.count, 1);
            continue;
        }
        ASSERT_EQ(r.count, 0);
        const YJsonValue value = r.root.itemAt(0u);
        ASSERT_EQ(value.getType(), YJSONTYPE_DOUBLE);
        const double got = value.asDouble();
        EXPECT_EQ(std::memcmp(&got, &expected, sizeof(double)), 0) << got << " != " << expected;
    }
}

// A text repeated in a document is read once and its characters shared: the values stay
// independent all the same.
TEST(YJsonReader, RepeatedTextsStayIndependent)
{
    Result r = read(QStringLiteral("{\"k\":\"k\",\"a\":[\"k\",\"k\"],\"b\":{\"k\":\"k\"}}"));
    ASSERT_EQ(r.count, 0);
    EXPECT_EQ(r.root.size(), 3);
    EXPECT_TRUE(r.root["k"].cat(QStringLiteral("1")));
    EXPECT_TRUE(r.root["a"][0].cat(QStringLiteral("2")));
    EXPECT_EQ(r.root.itemAt(QStringLiteral("k")).asString(), QStringLiteral("k1"));
    EXPECT_EQ(r.root["a"].itemAt(0u).asString(), QStringLiteral("k2"));
    EXPECT_EQ(r.root["a"].itemAt(1u).asString(), QStringLiteral("k"));
    EXPECT_EQ(r.root["b"].itemAt(QStringLiteral("k")).asString(), QStringLiteral("k"));
    EXPECT_EQ(r.root["b"].getMemberNames(), QStringList {QStringLiteral("k")});

    // A second parse with the same reader starts afresh.
    YJsonReader reader;
    YJsonValue first;
    YJsonValue second;
    EXPECT_EQ(reader.parse(QStringLiteral("[\"same\",\"other\"]"), &first), 0);
    EXPECT_EQ(reader.parse(QStringLiteral("[\"same\",\"same\\n\"]"), &second), 0);
    EXPECT_EQ(second.itemAt(0u).asString(), QStringLiteral("same"));
    EXPECT_EQ(second.itemAt(1u).asString(), QStringLiteral("same\n"));
    EXPECT_EQ(first.itemAt(1u).asString(), QStringLiteral("other"));
}

// Runs of blanks are passed over several at a time: lines and columns must come out as they do
// one character at a time, whatever the length of the run and wherever tabs and LFs stand in it.
TEST(YJsonReader, ColumnsAfterRunsOfBlanks)
{
    for (int lines = 0; lines < 3; ++lines) {
        for (int blanks = 0; blanks < 20; ++blanks) {
            for (int tab = -1; tab < blanks; ++tab) {
                QString run = QString(lines, QLatin1Char('\n'));
                for (int i = 0; i < blanks; ++i)
                    run += i == tab ? QLatin1Char('\t') : QLatin1Char(' ');
                // The blanks before the LFs don't count on the line where the value stands.
                const QString text = QStringLiteral("[      \n") + run + QStringLiteral("1 x]");
                const Result r = read(text);
                const QString expected = QStringLiteral(
                    "Error: line %1, col %2 - Value 'x' cannot follow a value: ',' "
                    "or ':' missing?")
                                             .arg(2 + lines)
                                             .arg(blanks + 5);
                ASSERT_EQ(r.errors, QStringList {expected}) << lines << " " << blanks << " " << tab;
                EXPECT_EQ(r.root.itemAt(0u).getLineNo(), 2 + lines);
            }
        }
    }
}
