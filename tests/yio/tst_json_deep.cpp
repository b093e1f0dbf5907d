#include "json_reader.h"
#include "json_value.h"
#include "json_writer.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include "json_test_print.h"

namespace {

const int deep = 100000;

YJsonValue makeDeepArray(int levels)
{
    YJsonValue root(YJSONTYPE_ARRAY);
    YJsonValue* current = &root;
    for (int i = 1; i < levels; ++i)
        current = &current->append(YJsonValue(YJSONTYPE_ARRAY));
    current->append(1);
    return root;
}

int depthOf(const YJsonValue& value)
{
    int depth = 0;
    const YJsonValue* current = &value;
    while (current->isArray() || current->isObject()) {
        ++depth;
        if (current->size() == 0)
            break;
        current = current->isArray() ? &current->asArray()->at(0)
                                     : &current->asMap()->constBegin().value();
    }
    return depth;
}

} // namespace

TEST(YJsonDeep, ReaderBoundsTheDepthOfArrays)
{
    const QString text = QString(deep, QLatin1Char('[')) + QString(deep, QLatin1Char(']'));
    YJsonReader reader;
    YJsonValue root;
    EXPECT_EQ(reader.parse(text, &root), 1);
    EXPECT_EQ(reader.getErrors().at(0),
        QStringLiteral("Error: line 1, col 514 - nesting deeper than 512 levels is not supported"));
    EXPECT_EQ(reader.getWarningCount(), 0);
    EXPECT_EQ(depthOf(root), YJSON_MAX_DEPTH);
}

TEST(YJsonDeep, ReaderBoundsUnclosedObjects)
{
    QString text;
    for (int i = 0; i < deep; ++i)
        text += QStringLiteral("{\"k\":");
    YJsonReader reader;
    YJsonValue root;
    EXPECT_GT(reader.parse(text, &root), 0);
    EXPECT_TRUE(reader.getErrors().at(0).endsWith(
        QStringLiteral(" - nesting deeper than 512 levels is not supported")));
    EXPECT_LE(depthOf(root), YJSON_MAX_DEPTH);
}

TEST(YJsonDeep, AtTheBoundNothingIsReported)
{
    const int levels = YJSON_MAX_DEPTH;
    const QString text = QString(levels, QLatin1Char('[')) + QStringLiteral("1")
        + QString(levels, QLatin1Char(']'));
    YJsonReader reader(YJSONREADER_STRICT);
    YJsonValue root;
    EXPECT_EQ(reader.parse(text, &root), 0);
    EXPECT_EQ(depthOf(root), levels);

    QString out;
    YJsonWriter(YJSONWRITER_NONE).write(root, out);
    EXPECT_FALSE(out.contains(QStringLiteral("ERROR")));
    YJsonValue back;
    EXPECT_EQ(YJsonReader(YJSONREADER_STRICT).parse(out, &back), 0);
    EXPECT_TRUE(back.isSameAs(root));
}

TEST(YJsonDeep, DestructorCopyAndDeepCopyOfAHugeTree)
{
    YJsonValue root = makeDeepArray(deep);
    EXPECT_EQ(depthOf(root), deep);
    {
        YJsonValue copy = root; // shares
        EXPECT_EQ(copy.getRefData(), root.getRefData());
        copy.append(2); // unshares the top; the elements stay shared
        EXPECT_EQ(depthOf(copy), deep);
    }
    EXPECT_EQ(root.size(), 1);
    root.setType(YJSONTYPE_OBJECT); // discards the deep array
    EXPECT_EQ(root.size(), 0);
    YJsonValue other = makeDeepArray(deep);
    other = YJsonValue(1); // the last handle goes: the whole tree is freed
    EXPECT_EQ(other.asInt(), 1);
}

TEST(YJsonDeep, ComparingAndPrintingAHugeTreeRaise)
{
    const YJsonValue a = makeDeepArray(deep);
    const YJsonValue b = makeDeepArray(deep);
    EXPECT_TRUE(a.isSameAs(a));
    EXPECT_THROW(a.isSameAs(b), YException);
    EXPECT_THROW(a.toString(0), YException);
    EXPECT_THROW(a.dump(true, 0), YException);
    try {
        a.isSameAs(b);
    } catch (const YException& e) {
        EXPECT_STREQ(
            e.what(), "YJsonValue::isSameAs() - nesting deeper than 512 levels is not supported");
    }
}

TEST(YJsonDeep, WriterStopsWithAnErrorLine)
{
    const YJsonValue a = makeDeepArray(deep);
    QString out;
    YJsonWriter().write(a, out);
    EXPECT_TRUE(
        out.endsWith(QStringLiteral("ERROR: nesting deeper than 512 levels is not supported")));
    EXPECT_EQ(out.count(QLatin1Char('[')), YJSON_MAX_DEPTH);
}
