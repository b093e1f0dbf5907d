#include "json_value.h"
#include "yexception.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include "json_test_print.h"

#include <climits>
#include <thread>
#include <vector>

using yovotest::exceptionText;

namespace {

// Lets a test reach the protected sharing steps.
class ExposedValue : public YJsonValue
{
public:
    using YJsonValue::deepCopy;
    using YJsonValue::find;
    using YJsonValue::YJsonValue;
};

} // namespace

TEST(YJsonValue, DefaultIsNullAndMissIsEmpty)
{
    YJsonValue v;
    EXPECT_EQ(v.getType(), YJSONTYPE_NULL);
    EXPECT_TRUE(v.isNull());
    EXPECT_FALSE(v.isEmpty());
    EXPECT_EQ(v.asString(), QStringLiteral("null"));
    EXPECT_EQ(v.getCommentPos(), 1);
    EXPECT_EQ(v.getLineNo(), -1);

    YJsonValue miss = v.itemAt(QStringLiteral("k"));
    EXPECT_TRUE(miss.isEmpty());
    EXPECT_FALSE(miss.isNull());
    EXPECT_EQ(miss.asString(), QStringLiteral("<empty>"));
    EXPECT_TRUE(v.itemAt(0u).isEmpty());
    EXPECT_TRUE(v.isNull()); // itemAt never changes the value
}

TEST(YJsonValue, ConstructorsGiveTheirKinds)
{
    EXPECT_EQ(YJsonValue(5).getType(), YJSONTYPE_INT);
    EXPECT_EQ(YJsonValue(5u).getType(), YJSONTYPE_UINT);
    EXPECT_EQ(YJsonValue(true).getType(), YJSONTYPE_BOOL);
    EXPECT_EQ(YJsonValue(0.5).getType(), YJSONTYPE_DOUBLE);
    EXPECT_EQ(YJsonValue("text").getType(), YJSONTYPE_STRING);
    EXPECT_EQ(YJsonValue(QStringLiteral("text")).getType(), YJSONTYPE_STRING);
    EXPECT_EQ(YJsonValue(YJSONTYPE_OBJECT).getType(), YJSONTYPE_OBJECT);
    EXPECT_EQ(YJsonValue("abc").asString(), QStringLiteral("abc"));

    // The reserved numbers enter only through this constructor, and count for isInt and isUInt.
    EXPECT_EQ(YJsonValue(YJSONTYPE_INT64).getType(), YJSONTYPE_INT64);
    EXPECT_TRUE(YJsonValue(YJSONTYPE_INT64).isInt());
    EXPECT_TRUE(YJsonValue(YJSONTYPE_UINT64).isUInt());
    EXPECT_FALSE(YJsonValue(YJSONTYPE_INT32).isInt());
    EXPECT_FALSE(YJsonValue(YJSONTYPE_UINT32).isUInt());
}

TEST(YJsonValue, AssignmentOfScalars)
{
    YJsonValue v;
    v = 7;
    EXPECT_TRUE(v.isInt());
    EXPECT_EQ(v.asInt(), 7);
    v = 8u;
    EXPECT_TRUE(v.isUInt());
    EXPECT_EQ(v.asUInt(), 8u);
    v = 2.5;
    EXPECT_TRUE(v.isDouble());
    EXPECT_EQ(v.asDouble(), 2.5);
    v = true;
    EXPECT_TRUE(v.asBool());
    v = QStringLiteral("q");
    EXPECT_EQ(v.asString(), QStringLiteral("q"));

    static const char text[] = "pointer";
    v = text;
    EXPECT_EQ(v.getType(), YJSONTYPE_STRING); // CSTRING ends as STRING
    EXPECT_FALSE(v.isCString());
    EXPECT_EQ(v.asString(), QStringLiteral("pointer"));
    EXPECT_EQ(v.getRefData()->m_value.m_cstring, text);
}

TEST(YJsonValue, CopySharesAndWriteUnshares)
{
    YJsonValue a;
    a.append(1);
    YJsonValue b = a;
    EXPECT_EQ(a.getRefData(), b.getRefData());
    EXPECT_EQ(a.getRefData()->getRefCount(), 2);

    b.append(2);
    EXPECT_EQ(a.size(), 1);
    EXPECT_EQ(b.size(), 2);
    EXPECT_NE(a.getRefData(), b.getRefData());

    YJsonValue c = a;
    c.item(0u) = 9;
    EXPECT_EQ(a.itemAt(0u).asInt(), 1);
    EXPECT_EQ(c.itemAt(0u).asInt(), 9);

    YJsonValue d;
    d = a;
    d[QStringLiteral("k")] = 1;
    EXPECT_TRUE(a.isArray());
    EXPECT_TRUE(d.isObject());
}

TEST(YJsonValue, DeepCopyTakesAClone)
{
    ExposedValue a(3);
    ExposedValue b;
    b.deepCopy(a);
    EXPECT_NE(a.getRefData(), b.getRefData());
    EXPECT_EQ(b.asInt(), 3);
    EXPECT_EQ(a.getRefData()->getRefCount(), 1);
}

TEST(YJsonValue, IndexFillsWithNulls)
{
    YJsonValue v;
    v[3] = 42;
    ASSERT_TRUE(v.isArray());
    ASSERT_EQ(v.size(), 4);
    for (unsigned int i = 0; i < 3; ++i)
        EXPECT_TRUE(v.itemAt(i).isNull());
    EXPECT_EQ(v.itemAt(3u).asInt(), 42);

    v[QStringLiteral("k")] = 1;
    EXPECT_TRUE(v.isObject());
    EXPECT_EQ(v.size(), 1);
    EXPECT_EQ(v.getMemberNames(), QStringList {QStringLiteral("k")});

    YJsonValue far;
    EXPECT_EQ(exceptionText([&] { far.item(UINT_MAX); }),
        QStringLiteral("YJsonValue::item() - index 4294967295 is beyond what an array can hold"));
    EXPECT_EQ(far.size(), 0);

    YJsonValue m;
    EXPECT_TRUE(m[QStringLiteral("missing")].isNull());
    EXPECT_EQ(m.size(), 1);
}

TEST(YJsonValue, SizeAndHasMember)
{
    YJsonValue scalar(5);
    EXPECT_EQ(scalar.size(), -1);
    EXPECT_TRUE(scalar.hasMember(5u));
    EXPECT_FALSE(scalar.hasMember(QStringLiteral("k")));
    EXPECT_FALSE(scalar.hasMember(UINT_MAX));

    YJsonValue array;
    array.append(1);
    EXPECT_TRUE(array.hasMember(0u));
    EXPECT_FALSE(array.hasMember(1u));

    YJsonValue object;
    object[QStringLiteral("k")] = 1;
    EXPECT_TRUE(object.hasMember(QStringLiteral("k")));
    EXPECT_FALSE(object.hasMember(QStringLiteral("K")));
    EXPECT_TRUE(object.getMemberNames().contains(QStringLiteral("k")));
    EXPECT_TRUE(scalar.getMemberNames().isEmpty());
}

TEST(YJsonValue, ConversionsAndTheirTexts)
{
    EXPECT_EQ(YJsonValue(-1).asUInt(), UINT_MAX);
    EXPECT_EQ(YJsonValue(true).asUInt(), 1u);
    EXPECT_EQ(YJsonValue(false).asUInt(), 0u);
    EXPECT_EQ(exceptionText([] { YJsonValue(5u).asInt(); }),
        QStringLiteral("YJsonValue::asInt() - value type is unsigned"));
    EXPECT_EQ(exceptionText([] { YJsonValue(1.5).asInt(); }),
        QStringLiteral("YJsonValue::asInt() - the value is not compatible with INT"));
    EXPECT_EQ(exceptionText([] { YJsonValue("x").asUInt(); }),
        QStringLiteral("YJsonValue::AsUInt() - the value is not compatible with UInt"));
    EXPECT_EQ(exceptionText([] { YJsonValue(true).asDouble(); }),
        QStringLiteral("YJsonValue::asDouble() - the value is not compatible with DOUBLE"));
    EXPECT_EQ(exceptionText([] { YJsonValue(YJSONTYPE_ARRAY).asString(); }),
        QStringLiteral("YJsonValue::asString() - the value is not compatible with STRING"));
    EXPECT_EQ(exceptionText([] { YJsonValue(YJSONTYPE_OBJECT).asString(); }),
        QStringLiteral("YJsonValue::asString() - the value is not compatible with STRING"));
    EXPECT_EQ(exceptionText([] { YJsonValue(true).asInt(); }), QStringLiteral("<none>"));

    EXPECT_EQ(YJsonValue(-3).asDouble(), -3.0);
    EXPECT_EQ(YJsonValue(4000000000u).asDouble(), 4000000000.0);
    EXPECT_EQ(YJsonValue(-12).asString(), QStringLiteral("-12"));
    EXPECT_EQ(YJsonValue(4000000000u).asString(), QStringLiteral("4000000000"));
    EXPECT_EQ(YJsonValue(1234567.0).asString(), QStringLiteral("1.23457e+06"));
    EXPECT_EQ(YJsonValue(0.1).asString(), QStringLiteral("0.1"));
    EXPECT_EQ(YJsonValue(true).asString(), QStringLiteral("true"));
    EXPECT_EQ(YJsonValue(false).asString(), QStringLiteral("false"));

    YJsonValue object(YJSONTYPE_OBJECT);
    EXPECT_NE(object.asMap(), nullptr);
    EXPECT_EQ(object.asArray(), nullptr);
    EXPECT_EQ(YJsonValue(1).asMap(), nullptr);
}

TEST(YJsonValueDeathTest, AsBoolOfAnotherKindFails)
{
    EXPECT_DEATH(YJsonValue(1).asBool(), "data->m_type == YJSONTYPE_BOOL");
}

TEST(YJsonValueDeathTest, SetTypeRefusesReservedKinds)
{
    YJsonValue v;
    EXPECT_DEATH(v.setType(YJSONTYPE_INT64),
        "\\(\\(type >= YJSONTYPE_EMPTY\\) && \\(type <= YJSONTYPE_OBJECT\\)\\)");
}

TEST(YJsonValueDeathTest, RemoveOfMinusOneFailsTheIndexCheck)
{
    YJsonValue v;
    v.append(1);
    EXPECT_DEATH(v.remove(-1), "index out of range");
}

TEST(YJsonValueDeathTest, IsSameAsOfReservedKindFails)
{
    YJsonValue a(YJSONTYPE_INT32);
    YJsonValue b(YJSONTYPE_INT32);
    EXPECT_DEATH(a.isSameAs(b), "YJsonValue::isSameAs\\(\\) unexpected YJsonType");
}

TEST(YJsonValue, SetTypeKeepsSameKindAndComments)
{
    YJsonValue v;
    v.append(1);
    v.addComment(QStringLiteral("// c"), 2);
    v.setLineNo(7);
    v.setType(YJSONTYPE_ARRAY);
    EXPECT_EQ(v.size(), 1);
    v.setType(YJSONTYPE_CSTRING);
    EXPECT_EQ(v.getType(), YJSONTYPE_STRING);
    EXPECT_EQ(v.asString(), QString());
    EXPECT_EQ(v.getCommentCount(), 1);
    EXPECT_EQ(v.getCommentPos(), 2);
    EXPECT_EQ(v.getLineNo(), 7);
}

TEST(YJsonValue, AppendTurnsOtherKindsIntoArrays)
{
    YJsonValue v("text");
    YJsonValue& element = v.append(3);
    EXPECT_EQ(element.asInt(), 3);
    EXPECT_TRUE(v.isArray());
    EXPECT_EQ(v.size(), 1);
    v.append(true);
    v.append(4u);
    v.append(0.25);
    v.append("s");
    v.append(QStringLiteral("t"));
    v.append(YJsonValue());
    ASSERT_EQ(v.size(), 7);
    EXPECT_TRUE(v.itemAt(1u).isBool());
    EXPECT_TRUE(v.itemAt(2u).isUInt());
    EXPECT_TRUE(v.itemAt(3u).isDouble());
    EXPECT_EQ(v.itemAt(4u).asString(), QStringLiteral("s"));
    EXPECT_EQ(v.itemAt(5u).asString(), QStringLiteral("t"));
    EXPECT_TRUE(v.itemAt(6u).isNull());
}

TEST(YJsonValue, CatRemoveClearAndGet)
{
    YJsonValue s("ab");
    EXPECT_TRUE(s.cat(QStringLiteral("cd")));
    EXPECT_TRUE(s.cat("e"));
    EXPECT_EQ(s.asString(), QStringLiteral("abcde"));
    YJsonValue n(1);
    EXPECT_FALSE(n.cat("x"));
    EXPECT_EQ(n.asInt(), 1);

    YJsonValue a;
    a.append(1);
    a.append(2);
    EXPECT_TRUE(a.remove(0));
    EXPECT_EQ(a.size(), 1);
    EXPECT_EQ(a.itemAt(0u).asInt(), 2);
    EXPECT_FALSE(a.remove(QStringLiteral("k")));
    EXPECT_FALSE(n.remove(0));

    YJsonValue o;
    o[QStringLiteral("k")] = 1;
    EXPECT_FALSE(o.remove(QStringLiteral("x")));
    EXPECT_TRUE(o.remove(QStringLiteral("k")));
    EXPECT_EQ(o.size(), 0);
    o[QStringLiteral("k")] = 5;
    EXPECT_EQ(o.get(QStringLiteral("k"), YJsonValue(0)).asInt(), 5);
    EXPECT_EQ(o.get(QStringLiteral("z"), YJsonValue(9)).asInt(), 9);

    YJsonValue shared = o;
    o.clear();
    EXPECT_TRUE(o.isEmpty());
    EXPECT_EQ(shared.size(), 1);
}

TEST(YJsonValue, ArraysCompareAsMultisets)
{
    auto make = [](int a, int b, int c) {
        YJsonValue v;
        v.append(a);
        v.append(b);
        v.append(c);
        return v;
    };
    EXPECT_TRUE(make(1, 2, 1).isSameAs(make(2, 1, 1)));
    EXPECT_FALSE(make(1, 2, 1).isSameAs(make(1, 2, 2)));
    EXPECT_TRUE(YJsonValue(1).isSameAs(YJsonValue(1.0)));
    EXPECT_TRUE(YJsonValue(1u).isSameAs(YJsonValue(1)));
    EXPECT_FALSE(YJsonValue(1).isSameAs(YJsonValue(true)));
    EXPECT_FALSE(YJsonValue("1").isSameAs(YJsonValue(1)));
    EXPECT_TRUE(YJsonValue(YJSONTYPE_EMPTY).isSameAs(YJsonValue(YJSONTYPE_EMPTY)));
    EXPECT_TRUE(YJsonValue().isSameAs(YJsonValue()));
    EXPECT_FALSE(YJsonValue().isSameAs(YJsonValue(YJSONTYPE_EMPTY)));

    YJsonValue o1, o2;
    o1[QStringLiteral("a")] = 1;
    o1[QStringLiteral("b")] = make(1, 2, 3);
    o2[QStringLiteral("b")] = make(3, 2, 1);
    o2[QStringLiteral("a")] = 1.0;
    o2.addComment(QStringLiteral("// ignored"), 1);
    o2.setLineNo(3);
    EXPECT_TRUE(o1.isSameAs(o2));
    o2[QStringLiteral("a")] = 2;
    EXPECT_FALSE(o1.isSameAs(o2));
    o2[QStringLiteral("a")] = 1;
    o2[QStringLiteral("c")] = 1;
    EXPECT_FALSE(o1.isSameAs(o2));
}

TEST(YJsonValue, CommentsAreCheckedAndStored)
{
    YJsonValue v;
    EXPECT_EQ(v.addComment(QStringLiteral("x"), 0), -1);
    EXPECT_EQ(v.addComment(QStringLiteral("/x comment"), 0), -1);
    EXPECT_EQ(v.addComment(QStringLiteral("/* a"), 0), -1);
    EXPECT_EQ(v.getCommentCount(), 0);
    EXPECT_EQ(v.addComment(QStringLiteral("// a"), 0), 0);
    EXPECT_EQ(v.getComment(0), QStringLiteral("// a\n"));
    EXPECT_EQ(v.getCommentPos(), 1); // position 0 keeps what was set
    EXPECT_EQ(v.addComment(QStringLiteral("/* b */ \t\n"), 3), 1);
    EXPECT_EQ(v.getComment(1), QStringLiteral("/* b */ \t\n"));
    EXPECT_EQ(v.getCommentPos(), 3);
    EXPECT_EQ(v.getComment(-1), QStringLiteral("// a\n/* b */ \t\n"));
    EXPECT_EQ(v.getComment(2), QString());
    EXPECT_EQ(v.getCommentArray().size(), 2);

    YJsonValue w;
    const QStringList lines {
        QStringLiteral("// one\n"), QStringLiteral("bad"), QStringLiteral("/*two*/")};
    EXPECT_EQ(w.addComment(lines, 2), 2);
    EXPECT_EQ(w.getCommentPos(), 2);
    w.clearComments();
    EXPECT_EQ(w.getCommentCount(), 0);
}

TEST(YJsonValue, TypeNames)
{
    EXPECT_EQ(YJsonValue::typeToString(static_cast<YJsonType>(14)), QString());
    EXPECT_EQ(YJsonValue::typeToString(static_cast<YJsonType>(-1)), QString());
    EXPECT_EQ(YJsonValue::typeToString(YJSONTYPE_INT64), QStringLiteral("YJSONTYPE_INT64"));
    EXPECT_EQ(YJsonValue::typeToString(YJSONTYPE_EMPTY), QStringLiteral("YJSONTYPE_EMPTY"));
    EXPECT_EQ(YJsonValue::typeToString(YJSONTYPE_UINT64), QStringLiteral("YJSONTYPE_UINT64"));
}

TEST(YJsonValue, ToStringDumpAndInfo)
{
    EXPECT_EQ(YJsonValue(5).toString(2), QStringLiteral("  Type: YJSONTYPE_INT 5"));
    EXPECT_EQ(YJsonValue(5).toString(-4), QStringLiteral("Type: YJSONTYPE_INT 5"));

    YJsonValue a;
    a.append(1);
    a.append("x");
    EXPECT_EQ(a.toString(0),
        QStringLiteral("Type: YJSONTYPE_ARRAY, size: 2\n"
                       "0 :\n"
                       "   Type: YJSONTYPE_INT 1"
                       "1 :\n"
                       "   Type: YJSONTYPE_STRING x"));
    YJsonValue o;
    o[QStringLiteral("k")] = true;
    EXPECT_EQ(o.toString(0),
        QStringLiteral("Type: YJSONTYPE_OBJECT, size: 1\nk :\n   Type: YJSONTYPE_BOOL true"));
    EXPECT_EQ(exceptionText([] { YJsonValue(YJSONTYPE_UINT32).toString(0); }),
        QStringLiteral("YJsonValue::toString(): Unknown type (received \"12\")"));

    EXPECT_EQ(o.getInfo(),
        QStringLiteral("Object: Type=YJSONTYPE_OBJECT Size=1 comments=0\nMember name: k\n"));
    YJsonValue shared = o;
    const QString dump = o.dump(true, 0);
    EXPECT_TRUE(
        dump.startsWith(QStringLiteral("Object: Type=YJSONTYPE_OBJECT Size=1 comments=0\n")));
    EXPECT_TRUE(dump.contains(QStringLiteral("      : RefData=0x")));
    EXPECT_TRUE(dump.contains(QStringLiteral("Num shares=2\n")));
    EXPECT_TRUE(
        dump.contains(QStringLiteral("   Object: Type=YJSONTYPE_BOOL Size=-1 comments=0\n")));
}

TEST(YJsonValue, FindGivesPointers)
{
    ExposedValue v;
    v[QStringLiteral("k")] = 1;
    const ExposedValue& c = v;
    ASSERT_NE(c.find(QStringLiteral("k")), nullptr);
    EXPECT_EQ(c.find(QStringLiteral("k"))->asInt(), 1);
    EXPECT_EQ(c.find(QStringLiteral("z")), nullptr);
    EXPECT_EQ(c.find(0u), nullptr);
}

// Arrays move their handles as bytes when they grow: the records must keep their counts, and
// a copy taken before or during the growth must stay as it was.
TEST(YJsonValue, GrowingArraysKeepSharingAndCounts)
{
    YJsonValue array;
    YJsonValue element(QStringLiteral("e"));
    for (int i = 0; i < 100; ++i)
        array.append(element);
    EXPECT_EQ(element.getRefData()->getRefCount(), 101);
    YJsonValue copy = array;
    for (int i = 0; i < 1000; ++i)
        array.append(i);
    EXPECT_EQ(copy.size(), 100);
    EXPECT_EQ(array.size(), 1100);
    // The first append after the copy gave the array a vector of its own: the element's record
    // is now held by the handle, the copy's 100 and the array's 100.
    EXPECT_EQ(element.getRefData()->getRefCount(), 201);
    array[0u].cat(QStringLiteral("x"));
    EXPECT_EQ(array.itemAt(0u).asString(), QStringLiteral("ex"));
    EXPECT_EQ(copy.itemAt(0u).asString(), QStringLiteral("e"));
    EXPECT_EQ(element.asString(), QStringLiteral("e"));
    copy.remove(0);
    EXPECT_EQ(copy.size(), 99);
    EXPECT_EQ(array.itemAt(1u).asString(), QStringLiteral("e"));
    EXPECT_EQ(array.itemAt(1099u).asInt(), 999);
    array.clear();
    copy.clear();
    EXPECT_EQ(element.getRefData()->getRefCount(), 1);
}

namespace {

int bigRecordsAlive = 0;

// A derived record of another size, which the cache of records must leave to the heap.
class BigRecord : public YJsonRefData
{
public:
    BigRecord() { ++bigRecordsAlive; }
    ~BigRecord() override { --bigRecordsAlive; }
    char extra[200] = {};
};

class BigValue : public YJsonValue
{
public:
    BigValue()
        : YJsonValue(YJSONTYPE_EMPTY)
    {
        setRefData(createRefData());
        setType(YJSONTYPE_STRING);
    }

protected:
    YJsonRefData* createRefData() const override { return new BigRecord(); }
};

} // namespace

// Records are kept per thread for reuse: one made on a thread may die on another, and records
// of a derived class keep their own size and destructor.
TEST(YJsonValue, RecordsMayDieOnAnotherThread)
{
    std::vector<YJsonValue> made;
    std::thread maker([&made] {
        for (int i = 0; i < 3000; ++i)
            made.push_back(YJsonValue(QStringLiteral("t%1").arg(i)));
    });
    maker.join();
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(made[size_t(i)].asString(), QStringLiteral("t%1").arg(i));
    made.clear();

    std::vector<YJsonValue> mine;
    for (int i = 0; i < 3000; ++i)
        mine.push_back(YJsonValue(i));
    std::thread dropper([&mine] { mine.clear(); });
    dropper.join();
    for (int i = 0; i < 3000; ++i)
        mine.push_back(YJsonValue(-i));
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(mine[size_t(i)].asInt(), -i);

    {
        BigValue big;
        EXPECT_EQ(bigRecordsAlive, 1);
        EXPECT_TRUE(big.cat(QStringLiteral("x")));
        YJsonValue copy = big;
        // The copy is a plain handle: the record it makes for itself on writing is a plain one.
        copy.cat(QStringLiteral("y"));
        EXPECT_EQ(bigRecordsAlive, 1);
        EXPECT_EQ(big.asString(), QStringLiteral("x"));
        EXPECT_EQ(copy.asString(), QStringLiteral("xy"));
    }
    EXPECT_EQ(bigRecordsAlive, 0);
}
