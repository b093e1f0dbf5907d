#include "json_reader.h"
#include "json_value.h"
#include "json_writer.h"
#include "test_support.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include "json_test_print.h"

#include <cmath>

namespace {

bool isAscii(const QString& s)
{
    for (QChar c : s) {
        if (c.unicode() > 0x7F)
            return false;
    }
    return true;
}

// The reader sees the bytes as Latin-1; Qt decodes them as UTF-8.
QString asUtf8(const QString& latin1)
{
    return QString::fromUtf8(latin1.toLatin1());
}

struct Counts
{
    int numbers = 0;
    int keys = 0;
    int strings = 0;
};

void compare(const YJsonValue& ours, const QJsonValue& theirs, const QString& path, Counts& counts)
{
    SCOPED_TRACE(path.toStdString());
    switch (theirs.type()) {
    case QJsonValue::Null:
        EXPECT_TRUE(ours.isNull());
        break;
    case QJsonValue::Bool:
        ASSERT_TRUE(ours.isBool());
        EXPECT_EQ(ours.asBool(), theirs.toBool());
        break;
    case QJsonValue::Double:
        ASSERT_TRUE(ours.isInt() || ours.isUInt() || ours.isDouble());
        EXPECT_EQ(ours.asDouble(), theirs.toDouble());
        ++counts.numbers;
        break;
    case QJsonValue::String:
        ASSERT_TRUE(ours.isString());
        if (isAscii(theirs.toString())) {
            EXPECT_EQ(ours.asString(), theirs.toString());
            ++counts.strings;
        } else {
            EXPECT_EQ(asUtf8(ours.asString()), theirs.toString());
        }
        break;
    case QJsonValue::Array: {
        ASSERT_TRUE(ours.isArray());
        const QJsonArray array = theirs.toArray();
        ASSERT_EQ(ours.size(), array.size());
        for (int i = 0; i < array.size(); ++i)
            compare(
                ours.asArray()->at(i), array.at(i), path + QStringLiteral("/%1").arg(i), counts);
        break;
    }
    case QJsonValue::Object: {
        ASSERT_TRUE(ours.isObject());
        const QJsonObject object = theirs.toObject();
        ASSERT_EQ(ours.size(), object.size());
        for (auto it = ours.asMap()->constBegin(); it != ours.asMap()->constEnd(); ++it) {
            const QString key = asUtf8(it.key());
            ASSERT_TRUE(object.contains(key)) << key.toStdString();
            if (isAscii(key))
                ++counts.keys;
            compare(it.value(), object.value(key), path + QLatin1Char('/') + key, counts);
        }
        break;
    }
    default:
        FAIL() << "unexpected value";
    }
}

// What a tree is after the writer has kept six significant digits of every double.
YJsonValue roundedDoubles(const YJsonValue& value)
{
    if (value.isDouble())
        return YJsonValue(QString::number(value.asDouble(), 'g', 6).toDouble());
    if (value.isArray()) {
        YJsonValue copy(YJSONTYPE_ARRAY);
        for (const YJsonValue& element : *value.asArray())
            copy.append(roundedDoubles(element));
        return copy;
    }
    if (value.isObject()) {
        YJsonValue copy(YJSONTYPE_OBJECT);
        for (auto it = value.asMap()->constBegin(); it != value.asMap()->constEnd(); ++it)
            copy[it.key()] = roundedDoubles(it.value());
        return copy;
    }
    return value;
}

void checkDocument(const char* name, int minNumbers, int minKeys, int minStrings)
{
    const QByteArray bytes
        = yovotest::readFile(yovotest::corpusPath(QStringLiteral("json/") + name));
    ASSERT_FALSE(bytes.isEmpty()) << name;

    YJsonReader reader(YJSONREADER_STRICT);
    YJsonValue root;
    EXPECT_EQ(reader.parse(QString::fromLatin1(bytes), &root), 0)
        << reader.getErrors().join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(reader.getWarningCount(), 0);

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError);
    Counts counts;
    compare(root, document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()),
        QString(), counts);
    EXPECT_GE(counts.numbers, minNumbers);
    EXPECT_GE(counts.keys, minKeys);
    EXPECT_GE(counts.strings, minStrings);

    QString written;
    YJsonWriter().write(root, written);
    YJsonReader again(YJSONREADER_STRICT);
    YJsonValue back;
    EXPECT_EQ(again.parse(written, &back), 0)
        << again.getErrors().mid(0, 5).join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(back.isSameAs(roundedDoubles(root)));
}

} // namespace

TEST(YJsonCorpus, Canada)
{
    checkDocument("canada.json", 100000, 8, 4);
}

TEST(YJsonCorpus, CitmCatalog)
{
    checkDocument("citm_catalog.json", 10000, 10000, 100);
}

TEST(YJsonCorpus, Twitter)
{
    checkDocument("twitter.json", 1000, 10000, 1000);
}
