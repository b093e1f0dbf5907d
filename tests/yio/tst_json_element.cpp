#include "json_element.h"
#include "yexception.h"

#include <cjson/cJSON.h>

#include "test_support.h"

#include <gtest/gtest.h>

#include "json_test_print.h"

using yovotest::exceptionText;

namespace {

} // namespace

TEST(YJSONRoot, FailedParse)
{
    YJSONRoot root(QStringLiteral("not json"));
    EXPECT_FALSE(root.isOk());
    EXPECT_EQ(root.errorString(), QString());
    EXPECT_EQ(exceptionText([&] { root.toElement(); }), QStringLiteral("NULL json pointer!"));

    YJSONRoot bytes(QByteArray("{\"a\":"));
    EXPECT_FALSE(bytes.isOk());
    root = QByteArray("[1]");
    EXPECT_TRUE(root.isOk());
    root = QStringLiteral("{");
    EXPECT_FALSE(root.isOk());
}

TEST(YJSONRoot, EmptyTreesAndClear)
{
    YJSONRoot array(5);
    EXPECT_EQ(array.toElement().getType(), 5);
    YJSONRoot object(0);
    EXPECT_EQ(object.toElement().getType(), 6);

    YJSONRoot parsed(QStringLiteral("[1]"));
    parsed.clear();
    EXPECT_EQ(parsed.toElement().getType(), 5);
    EXPECT_EQ(parsed.toElement().arraySize(), 0);

    YJSONRoot failed(QStringLiteral("x"));
    failed.clear();
    ASSERT_TRUE(failed.isOk());
    EXPECT_EQ(failed.toElement().format(false), QStringLiteral("{}"));
}

TEST(YJSONElement, NamedLookupIgnoresCase)
{
    YJSONRoot root(QStringLiteral("{\"a\":1,\"s\":\"text\"}"));
    const YJSONElement e = root.toElement();
    EXPECT_EQ(e.namedObject(QStringLiteral("A")).toInt(), 1);
    EXPECT_EQ(e.namedObject(QStringLiteral("a")).objectName(), QStringLiteral("a"));
    EXPECT_EQ(e.namedObject(QStringLiteral("a")).getName(), QStringLiteral("a"));
    EXPECT_TRUE(e.hasObject(QStringLiteral("S")));
    EXPECT_FALSE(e.hasObject(QStringLiteral("x")));
    EXPECT_EQ(exceptionText([&] { e.namedObject(QStringLiteral("x")); }),
        QStringLiteral("Could not find named object 'x'"));
    EXPECT_EQ(e.namedObject(QStringLiteral("s")).toString(), QStringLiteral("text"));
    EXPECT_EQ(e.namedObject(QStringLiteral("s")).getValue(), QVariant(QStringLiteral("text")));
    EXPECT_EQ(e.objectName(), QString());
}

TEST(YJSONElement, ArrayAccess)
{
    YJSONRoot root(QStringLiteral("[10, 2.5, \"x\"]"));
    const YJSONElement e = root.toElement();
    EXPECT_EQ(e.arraySize(), 3);
    EXPECT_EQ(e.arrayItem(0).toInt(), 10);
    EXPECT_EQ(e.arrayItem(1).toDouble(), 2.5);
    EXPECT_EQ(e.arrayItem(1).getValue(), QVariant(2.5));
    EXPECT_EQ(exceptionText([&] { e.arrayItem(3); }), QStringLiteral("JSON Index out of bounds!"));
    EXPECT_FALSE(e.arrayItem(-1).isOk());
    EXPECT_EQ(exceptionText([&] { e.arrayItem(0).arraySize(); }),
        QStringLiteral("Element is not of type array!"));
    EXPECT_EQ(exceptionText([&] { e.arrayItem(0).arrayItem(0); }),
        QStringLiteral("Element is not of type array!"));
    EXPECT_EQ(exceptionText([&] { e.arrayItem(0).toString(); }),
        QStringLiteral("Element  is not of  type string"));
    EXPECT_FALSE(e.isEmpty());
    EXPECT_TRUE(e.arrayItem(0).isEmpty());
}

TEST(YJSONElement, BooleansAndNull)
{
    YJSONRoot root(QStringLiteral("{\"f\":false,\"t\":true,\"n\":null,\"s\":\"x\"}"));
    const YJSONElement e = root.toElement();
    const YJSONElement f = e.namedObject(QStringLiteral("f"));
    EXPECT_TRUE(f.isBool());
    EXPECT_FALSE(f.toBool());
    EXPECT_EQ(f.getType(), 0);
    EXPECT_EQ(f.getValue(), QVariant(false));
    EXPECT_EQ(exceptionText([&] { f.toInt(); }), QStringLiteral("Element is not of  type number"));
    EXPECT_EQ(
        exceptionText([&] { f.toDouble(); }), QStringLiteral("Element is not of  type number"));
    EXPECT_TRUE(e.namedObject(QStringLiteral("t")).toBool());
    EXPECT_EQ(e.namedObject(QStringLiteral("t")).getType(), 1);
    const YJSONElement n = e.namedObject(QStringLiteral("n"));
    EXPECT_TRUE(n.isNull());
    EXPECT_EQ(n.getType(), 2);
    EXPECT_FALSE(n.getValue().isValid());
    EXPECT_EQ(exceptionText([&] { e.namedObject(QStringLiteral("s")).toBool(); }),
        QStringLiteral("Element is not of  type bool"));
    EXPECT_EQ(exceptionText([&] { e.namedObject(QStringLiteral("n")).toString(); }),
        QStringLiteral("Element n is not of  type string"));
    EXPECT_EQ(e.getType(), 6);
}

TEST(YJSONElement, Iteration)
{
    YJSONRoot root(QStringLiteral("{\"a\":1,\"b\":2,\"c\":3}"));
    YJSONElement e = root.toElement();
    EXPECT_FALSE(e.nextChild().isOk()); // before firstChild
    QStringList names;
    for (YJSONElement child = e.firstChild(); child.isOk(); child = e.nextChild())
        names << child.getName();
    EXPECT_EQ(names, (QStringList {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    EXPECT_FALSE(e.nextChild().isOk());

    YJSONElement scalar = e.namedObject(QStringLiteral("a"));
    EXPECT_FALSE(scalar.firstChild().isOk());
    EXPECT_FALSE(scalar.nextChild().isOk());

    e.firstChild();
    YJSONElement copy = e; // takes the iterator's position along
    EXPECT_EQ(copy.nextChild().getName(), QStringLiteral("b"));
}

TEST(YJSONElement, NullElement)
{
    YJSONElement e(nullptr);
    EXPECT_FALSE(e.isOk());
    EXPECT_EQ(e.getType(), -1);
    const QString text = QStringLiteral("NULL json pointer!");
    EXPECT_EQ(exceptionText([&] { e.isNull(); }), text);
    EXPECT_EQ(exceptionText([&] { e.arraySize(); }), text);
    EXPECT_EQ(exceptionText([&] { e.hasObject(QStringLiteral("a")); }), text);
    EXPECT_EQ(exceptionText([&] { e.format(true); }), text);
    EXPECT_EQ(exceptionText([&] { e.firstChild(); }), text);
    EXPECT_EQ(exceptionText([&] { e.append(QStringLiteral("a"), 1); }), text);
    EXPECT_EQ(exceptionText([&] { e.arrayAppendNull(); }), text);
}

TEST(YJSONElement, Format)
{
    YJSONRoot root(QStringLiteral("{ \"a\" : 1 }"));
    EXPECT_EQ(root.toElement().format(false), QStringLiteral("{\"a\":1}"));
    EXPECT_EQ(root.toElement().format(true), QStringLiteral("{\n\t\"a\":\t1\n}"));
}

TEST(YJSONElement, Building)
{
    YJSONRoot root(0);
    YJSONElement e = root.toElement();
    e.append(QStringLiteral("s"), QStringLiteral("v"))
        .append(QStringLiteral("b"), QByteArray("w"))
        .append(QStringLiteral("c"), "x")
        .append(QStringLiteral("i"), 3)
        .append(QStringLiteral("t"), true)
        .appendNull(QStringLiteral("n"));
    YJSONElement list = YJSONElement::createArray(QStringLiteral("list"));
    list.arrayAppend(QStringLiteral("a")).arrayAppend(2).arrayAppend(2.5).arrayAppendNull();
    list.appendNull(QStringLiteral("ignored"));
    e.append(list);
    YJSONElement sub = YJSONElement::createObject(QStringLiteral("sub"));
    sub.append(YJSONElement(QStringLiteral("f"), QVariant(false), 0));
    e.append(sub);
    EXPECT_EQ(e.format(false),
        QStringLiteral("{\"s\":\"v\",\"b\":\"w\",\"c\":\"x\",\"i\":3,\"t\":true,\"n\":null,"
                       "\"list\":[\"a\",2,2.5,null,null],\"sub\":{\"f\":false}}"));
    EXPECT_EQ(exceptionText([&] { e.arrayAppendNull(); }),
        QStringLiteral("Can not array append NULL to non array element"));
}

TEST(YJSONElement, NumbersOfElementsAppendDifferently)
{
    YJSONRoot object(0);
    object.toElement().append(YJSONElement(QStringLiteral("n"), 1.5, 3));
    EXPECT_EQ(object.toElement().format(false), QStringLiteral("{\"n\":1}"));

    YJSONRoot array(5);
    YJSONElement a = array.toElement();
    a.arrayAppend(YJSONElement(QStringLiteral("n"), 1.5, 3));
    a.arrayAppend(YJSONElement(QString(), QStringLiteral("s"), 4));
    a.arrayAppend(YJSONElement(QString(), QVariant(), 1));
    a.arrayAppend(YJSONElement(QString(), QVariant(), 2));
    EXPECT_EQ(a.format(false), QStringLiteral("[1.5,\"s\",true,null]"));
}

TEST(YJSONElement, DetachedElementsAndAccessors)
{
    YJSONElement d(QStringLiteral("n"), QVariant(7), 3);
    EXPECT_FALSE(d.isOk());
    EXPECT_EQ(d.getName(), QStringLiteral("n"));
    EXPECT_EQ(d.getType(), 3);
    d.setName(QStringLiteral("m"));
    d.setType(4);
    d.setValue(QVariant(QStringLiteral("v")));
    EXPECT_EQ(d.getName(), QStringLiteral("m"));
    EXPECT_EQ(d.getType(), 4);
    EXPECT_EQ(d.getValue(), QVariant(QStringLiteral("v")));

    // A container without a node, or one already in a tree, is refused.
    YJSONRoot root(0);
    YJSONElement e = root.toElement();
    EXPECT_EQ(exceptionText([&] { e.append(YJSONElement(QStringLiteral("x"), QVariant(), 6)); }),
        QStringLiteral("NULL json pointer!"));
    YJSONElement list = YJSONElement::createArray(QStringLiteral("list"));
    e.append(list);
    EXPECT_NE(exceptionText([&] { e.append(list); }), QStringLiteral("<none>"));
    EXPECT_NE(exceptionText([&] { e.append(e); }), QStringLiteral("<none>"));
    EXPECT_NE(exceptionText([&] { e.append(YJSONElement(QStringLiteral("x"), QVariant(), 9)); }),
        QStringLiteral("<none>"));
    EXPECT_EQ(e.format(false), QStringLiteral("{\"list\":[]}"));
}

TEST(YJSONElement, FromARawNode)
{
    cJSON* node = cJSON_CreateString("raw");
    YJSONElement e(node);
    EXPECT_EQ(e.getType(), 4);
    EXPECT_EQ(e.toString(), QStringLiteral("raw"));
    cJSON_Delete(node);
}
