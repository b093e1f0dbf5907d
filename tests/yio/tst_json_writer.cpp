#include "json_reader.h"
#include "json_value.h"
#include "json_writer.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "json_test_print.h"

namespace {

QString write(const YJsonValue& value, int style = YJSONWRITER_STYLED)
{
    QString out;
    YJsonWriter(style).write(value, out);
    return out;
}

YJsonValue array(int a, int b)
{
    YJsonValue v;
    v.append(a);
    v.append(b);
    return v;
}

class ExposedWriter : public YJsonWriter
{
public:
    using YJsonWriter::writeEmpty;
    using YJsonWriter::YJsonWriter;
    QString error(const QString& text)
    {
        QString out;
        m_output = &out;
        writeError(text);
        m_output = nullptr;
        return out;
    }
    QString narrowForms()
    {
        QString out;
        m_output = &out;
        writeInt(-3);
        writeUInt(4000000000u);
        writeBool(true);
        writeDouble(1234567.0);
        writeNull();
        m_output = nullptr;
        return out;
    }
};

} // namespace

TEST(YJsonWriter, EmptyObjectAndArray)
{
    EXPECT_EQ(write(YJsonValue(YJSONTYPE_OBJECT)), QStringLiteral("{\n}\n"));
    EXPECT_EQ(write(array(1, 2)), QStringLiteral("[\n   1,\n   2\n]\n"));
}

TEST(YJsonWriter, KeyAndValue)
{
    YJsonValue o;
    o[QStringLiteral("k")] = 1;
    EXPECT_EQ(write(o), QStringLiteral("{\n   \"k\" : 1\n}\n"));

    YJsonValue nested;
    nested[QStringLiteral("a")] = array(1, 2);
    EXPECT_EQ(write(nested), QStringLiteral("{\n   \"a\" : [\n      1,\n      2\n   ]\n}\n"));
}

TEST(YJsonWriter, SlashIsEscapedAndReadBack)
{
    YJsonValue v;
    v.append("a/b");
    const QString text = write(v);
    EXPECT_EQ(text, QStringLiteral("[\n   \"a\\/b\"\n]\n"));
    YJsonValue back;
    EXPECT_EQ(YJsonReader().parse(text, &back), 0);
    EXPECT_EQ(back.itemAt(0u).asString(), QStringLiteral("a/b"));
}

TEST(YJsonWriter, EscapeTable)
{
    EXPECT_EQ(write(YJsonValue(QStringLiteral("\"\\/\b\f\n\r\t\x01"))),
        QStringLiteral("\"\\\"\\\\\\/\\b\\f\\n\\r\\t\x01\"\n"));
    // A character beyond Latin-1 doesn't survive the narrowing.
    const QString out = write(YJsonValue(QString(QChar(0x263A)) + QChar(0xE9)));
    EXPECT_EQ(out, QStringLiteral("\"") + QChar(0) + QChar(0xE9) + QStringLiteral("\"\n"));
}

TEST(YJsonWriter, StyleZeroKeepsTheLines)
{
    YJsonValue o;
    o[QStringLiteral("k")] = array(1, 2);
    o[QStringLiteral("k")].addComment(QStringLiteral("// c"), 1);
    EXPECT_EQ(write(o, YJSONWRITER_NONE), QStringLiteral("{\n\"k\" : [\n1,\n2\n]\n}\n"));
    YJsonWriter zero(YJSONWRITER_NONE, 4, 8); // indent and step are dropped
    QString out;
    zero.write(array(1, 2), out);
    EXPECT_EQ(out, QStringLiteral("[\n1,\n2\n]\n"));
}

TEST(YJsonWriter, CommentPositions)
{
    YJsonValue v;
    v.append(1).addComment(QStringLiteral("// c"), 1);
    EXPECT_EQ(write(v, 3), QStringLiteral("[\n   // c\n   1\n]\n"));
    EXPECT_EQ(write(v, 11), QStringLiteral("[\n   1\n   // c\n\n]\n"));
    EXPECT_EQ(write(v, 15), QStringLiteral("[\n   // c\n   1\n]\n"));
    EXPECT_EQ(write(v, 2), QStringLiteral("[\n1\n]\n"));
    EXPECT_EQ(write(v, 1), QStringLiteral("[\n   1\n]\n"));

    YJsonValue inl;
    inl.append(1).addComment(QStringLiteral("// c"), 3);
    inl.append(2);
    EXPECT_EQ(write(inl, 3), QStringLiteral("[\n   1, // c\n\n   2\n]\n"));

    YJsonValue block;
    block.append(1).addComment(QStringLiteral("/* c */"), 3);
    EXPECT_EQ(write(block, 3), QStringLiteral("[\n   1 /* c */\n\n]\n"));

    YJsonValue container;
    container.addComment(QStringLiteral("// top"), 3);
    container.append(1);
    EXPECT_EQ(write(container, 3), QStringLiteral("[ // top\n\n   1\n]\n"));

    YJsonValue after;
    after[QStringLiteral("k")] = 1;
    after[QStringLiteral("k")].addComment(QStringLiteral("/* x */"), 2);
    EXPECT_EQ(write(after, 3), QStringLiteral("{\n   \"k\" : 1\n   /* x */\n\n}\n"));
}

TEST(YJsonWriter, Numbers)
{
    YJsonValue v;
    v.append(0.1);
    v.append(100000000.0);
    v.append(1234567.0);
    v.append(-7);
    v.append(4000000000u);
    v.append(true);
    v.append(YJsonValue());
    EXPECT_EQ(write(v, YJSONWRITER_NONE),
        QStringLiteral("[\n0.1,\n1e+08,\n1.23457e+06,\n-7,\n4000000000,\ntrue,\nnull\n]\n"));

    ExposedWriter w;
    EXPECT_EQ(w.narrowForms(), QStringLiteral("-34000000000true1.23457e+06null"));
    EXPECT_EQ(w.error(QStringLiteral("x")), QStringLiteral("ERROR: x"));
}

TEST(YJsonWriter, SplitStrings)
{
    YJsonValue v;
    v.append(QStringLiteral("one\ntwo"));
    const QString text = write(v, 17);
    EXPECT_EQ(text, QStringLiteral("[\n   \"one\\n\"\n         \"two\"\n]\n"));
    YJsonReader reader;
    YJsonValue back;
    EXPECT_EQ(reader.parse(text, &back), 0);
    EXPECT_EQ(reader.getWarningCount(), 1);
    EXPECT_EQ(back.itemAt(0u).asString(), QStringLiteral("one\ntwo"));
    // Without the styled bit the string stays whole.
    EXPECT_EQ(write(v, 16), QStringLiteral("[\n\"one\\ntwo\"\n]\n"));
}

TEST(YJsonWriter, OutputIsAppended)
{
    QString out = QStringLiteral("head ");
    YJsonWriter().write(YJsonValue(1), out);
    EXPECT_EQ(out, QStringLiteral("head 1\n"));
}

TEST(YJsonWriter, IndentAndStep)
{
    YJsonWriter w(YJSONWRITER_STYLED, 2, 4);
    QString out;
    w.write(array(1, 2), out);
    EXPECT_EQ(out, QStringLiteral("  [\n      1,\n      2\n  ]\n"));
}

TEST(YJsonWriter, WriteEmptyRaises)
{
    ExposedWriter w;
    try {
        w.writeEmpty();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ(e.what(), "YJsonWriter::WriteEmpty() cannot be called (not a valid JSON text");
    }
}

TEST(YJsonWriterDeathTest, EmptyValueFails)
{
    YJsonValue v;
    v.append(YJsonValue(YJSONTYPE_EMPTY));
    EXPECT_DEATH(
        write(v), "YJsonWriter::WriteEmpty\\(\\) cannot be called \\(not a valid JSON text\\)");
}

TEST(YJsonWriter, CommentsRoundTrip)
{
    const QString text = QStringLiteral("// file header\n"
                                        "[\n"
                                        "   // first item\n"
                                        "   1,\n"
                                        "   { // inline object\n"
                                        "      \"k\" : \"v\" // inline k\n"
                                        "   },\n"
                                        "   [ /* inline list */\n"
                                        "      /* before 2 */ 2\n"
                                        "   ]\n"
                                        "]\n");
    const QString expected = QStringLiteral("// file header\n"
                                            "[\n"
                                            "   // first item\n"
                                            "   1,\n"
                                            "   { // inline object\n"
                                            "\n"
                                            "      \"k\" : \"v\" // inline k\n"
                                            "\n"
                                            "   },\n"
                                            "   [ /* inline list */\n"
                                            "\n"
                                            "      /* before 2 */\n"
                                            "      2\n"
                                            "   ]\n"
                                            "]\n");
    const int readFlags = YJSONREADER_TOLERANT | YJSONREADER_STORE_COMMENTS;
    const int writeStyle = YJSONWRITER_STYLED | YJSONWRITER_WRITE_COMMENTS;

    YJsonReader reader(readFlags);
    YJsonValue root;
    ASSERT_EQ(reader.parse(text, &root), 0)
        << reader.getErrors().join(QLatin1Char('\n')).toStdString();
    QString written;
    YJsonWriter(writeStyle).write(root, written);
    EXPECT_EQ(written, expected);

    YJsonReader again(readFlags);
    YJsonValue back;
    ASSERT_EQ(again.parse(written, &back), 0)
        << again.getErrors().join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(back.isSameAs(root));
    EXPECT_EQ(back.getCommentArray(), QStringList {QStringLiteral("// file header\n")});
    EXPECT_EQ(back.getCommentPos(), 1);
    EXPECT_EQ(back.itemAt(0u).getCommentArray(), QStringList {QStringLiteral("// first item\n")});
    EXPECT_EQ(back.itemAt(0u).getCommentPos(), 1);
    const YJsonValue object = back.itemAt(1u);
    EXPECT_EQ(object.getCommentArray(), QStringList {QStringLiteral("// inline object\n")});
    EXPECT_EQ(object.getCommentPos(), 3);
    EXPECT_EQ(object.itemAt(QStringLiteral("k")).getCommentArray(),
        QStringList {QStringLiteral("// inline k\n")});
    EXPECT_EQ(object.itemAt(QStringLiteral("k")).getCommentPos(), 3);
    const YJsonValue list = back.itemAt(2u);
    EXPECT_EQ(list.getCommentArray(), QStringList {QStringLiteral("/* inline list */")});
    EXPECT_EQ(list.getCommentPos(), 3);
    EXPECT_EQ(list.itemAt(0u).getCommentArray(), QStringList {QStringLiteral("/* before 2 */")});
    EXPECT_EQ(list.itemAt(0u).getCommentPos(), 1);

    QString third;
    YJsonWriter(writeStyle).write(back, third);
    EXPECT_EQ(third, expected);
}

TEST(YJsonWriter, NumbersAreWrittenAsAsStringGivesThem)
{
    // The writer formats numbers on its own; its text must be asString's, digit for digit.
    std::mt19937_64 generator(42);
    YJsonValue values;
    for (int i = 0; i < 20000; ++i) {
        quint64 bits = generator();
        double d;
        std::memcpy(&d, &bits, sizeof(d));
        if (!std::isfinite(d))
            continue;
        values.append(d);
        values.append(
            static_cast<double>(static_cast<qint64>(generator() % 2000000000) - 1000000000)
            / static_cast<double>(1 + generator() % 100000));
        values.append(static_cast<int>(generator()));
        values.append(static_cast<unsigned int>(generator()));
    }
    values.append(0.0);
    values.append(-0.0);
    values.append(1e-320);
    values.append(std::numeric_limits<double>::infinity());
    values.append(-std::numeric_limits<double>::infinity());
    values.append(std::numeric_limits<double>::quiet_NaN());
    QString text;
    YJsonWriter(YJSONWRITER_NONE).write(values, text);
    const QStringList lines = text.split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), values.size() + 3); // "[", the values, "]", and the empty end
    for (int i = 0; i < values.size(); ++i) {
        QString line = lines.at(i + 1);
        if (line.endsWith(QLatin1Char(',')))
            line.chop(1);
        ASSERT_EQ(line, values.itemAt(unsigned(i)).asString()) << i;
    }
}

namespace {

// The escapes and the narrowing written out the long way, one character after another.
QString quoted(const QString& text)
{
    QString out = QStringLiteral("\"");
    for (const QChar c : text) {
        const char ch = c.toLatin1();
        switch (ch) {
        case '"':
            out += QStringLiteral("\\\"");
            break;
        case '\\':
            out += QStringLiteral("\\\\");
            break;
        case '/':
            out += QStringLiteral("\\/");
            break;
        case '\b':
            out += QStringLiteral("\\b");
            break;
        case '\f':
            out += QStringLiteral("\\f");
            break;
        case '\n':
            out += QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        case '\t':
            out += QStringLiteral("\\t");
            break;
        default:
            out += QChar(uchar(ch));
            break;
        }
    }
    return out + QLatin1Char('"');
}

} // namespace

// Plain texts are copied many characters at a time: a character that needs an escape, or lies
// beyond Latin-1, must be caught wherever it stands in the text.
TEST(YJsonWriter, EveryCharacterIsCheckedWhereverItStands)
{
    const QChar specials[] = {QLatin1Char('"'), QLatin1Char('\\'), QLatin1Char('/'),
        QLatin1Char('\b'), QLatin1Char('\f'), QLatin1Char('\n'), QLatin1Char('\r'),
        QLatin1Char('\t'), QChar(0), QChar(1), QChar(0x0B), QChar(0x0D), QChar(0x0E), QChar(0x7F),
        QChar(0xE9), QChar(0xFF), QChar(0x100), QChar(0x2F2F), QChar(0x225C), QChar(0xFFFF)};
    YJsonWriter writer(YJSONWRITER_NONE);
    for (int length = 1; length <= 40; ++length) {
        for (int at = 0; at < length; ++at) {
            for (const QChar special : specials) {
                QString text;
                for (int i = 0; i < length; ++i)
                    text += QChar('a' + i % 26);
                text[at] = special;
                YJsonValue v;
                v.append(text);
                QString out;
                writer.write(v, out);
                ASSERT_EQ(out, QStringLiteral("[\n") + quoted(text) + QStringLiteral("\n]\n"))
                    << "length " << length << " at " << at << " char " << special.unicode();
            }
        }
    }
}

// One writer serves many texts, each appended to what the output held before.
TEST(YJsonWriter, ReusedWriterAppends)
{
    YJsonWriter writer;
    YJsonValue big;
    for (int i = 0; i < 20000; ++i)
        big.append(QStringLiteral("item %1 / %2").arg(i).arg(QChar(0x3042)));
    QString first;
    writer.write(big, first);
    QString second = QStringLiteral("before\n");
    writer.write(array(1, 2), second);
    EXPECT_EQ(second, QStringLiteral("before\n[\n   1,\n   2\n]\n"));
    QString third;
    writer.write(big, third);
    EXPECT_EQ(third, first);
    // Copies take the settings and write on their own.
    YJsonWriter copy(writer);
    YJsonWriter plain(YJSONWRITER_NONE);
    QString fourth;
    copy.write(big, fourth);
    EXPECT_EQ(fourth, first);
    plain = copy;
    QString fifth;
    plain.write(array(1, 2), fifth);
    EXPECT_EQ(fifth, QStringLiteral("[\n   1,\n   2\n]\n"));
    // Beyond Latin-1 the narrowing leaves a 0 character.
    const QString start = QStringLiteral("[\n   \"item 0 \\/ ") + QChar(0)
        + QStringLiteral("\",\n   \"item 1 \\/ ") + QChar(0) + QStringLiteral("\",\n");
    EXPECT_TRUE(first.startsWith(start));
}

// Doubles are written as Qt writes them with six significant digits, ties going away from zero:
// checked on random bit patterns, on short decimals, and on exact ties and their neighbours.
TEST(YJsonWriter, DoublesAreWrittenAsQtWritesThem)
{
    std::vector<double> numbers = {0.0, -0.0, 1.0, -1.0, 0.5, 1234565.0, 1234575.0, -1234565.0,
        123456.5, 12345.65, 0.1234565, 999999.5, 9999995.0, 1e-5, 1e-4, 999999.0, 1000000.0, 1e21,
        1e22, 1e23, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308, 0.3,
        65.613616999999977, -65.613616999999977, 100000000.0};
    std::mt19937_64 generator(11);
    for (int i = 0; i < 20000; ++i) {
        const quint64 bits = generator();
        double d = 0;
        std::memcpy(&d, &bits, sizeof(d));
        if (std::isfinite(d))
            numbers.push_back(d);
        // Short decimals, the common case, and seven-digit ties with their neighbours.
        const double tie = double(generator() % 9000000 + 1000000) / 10 + 0.05;
        numbers.push_back(double(qint64(generator() % 2000000000) - 1000000000) / 1e5);
        numbers.push_back(double(generator() % 9000000 + 1000000) * 10 + 5);
        numbers.push_back(tie);
        numbers.push_back(std::nextafter(tie, 0.0));
        numbers.push_back(std::nextafter(tie, 1e300));
    }
    YJsonValue v;
    for (const double d : numbers)
        v.append(d);
    const QStringList lines = write(v, YJSONWRITER_NONE).split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), numbers.size() + 3);
    for (size_t i = 0; i < numbers.size(); ++i) {
        QString expected = QString::number(numbers[i], 'g', 6);
        if (i + 1 < numbers.size())
            expected += QLatin1Char(',');
        ASSERT_EQ(lines.at(int(i) + 1), expected) << numbers[i];
    }
}
