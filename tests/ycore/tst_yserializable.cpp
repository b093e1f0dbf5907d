#include "yserializable.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <iostream>
#include <sstream>

class Foo : public YSerializable
{
    Q_OBJECT
    Q_PROPERTY(int a READ a WRITE setA)
    Q_PROPERTY(int b READ b WRITE setB)
public:
    int a() const { return _a; }
    void setA(int a) { _a = a; }
    int b() const { return _b; }
    void setB(int b) { _b = b; }

private:
    int _a = 0;
    int _b = 0;
};

class Bar : public Foo
{
    Q_OBJECT
    Q_PROPERTY(QString text READ text)
public:
    QString text() const { return QString::fromLatin1("ab\0cd", 5); }
};

TEST(YSerializable, ToStringListsAllPropertiesObjectNameFirst)
{
    Foo foo;
    foo.setA(1);
    foo.setB(2);
    EXPECT_EQ(QStringLiteral("instance of Foo {objectName=, a=1, b=2}"), foo.toString());
}

TEST(YSerializable, ClassNameIsTheMostDerived)
{
    Bar bar;
    bar.setObjectName(QStringLiteral("x"));
    EXPECT_EQ(QStringLiteral("Bar"), bar.getClassName());
    // A value stops at its first NUL character.
    EXPECT_EQ(QStringLiteral("instance of Bar {objectName=x, a=0, b=0, text=ab}"), bar.toString());
}

TEST(YSerializable, PrintAllWritesThreeLinesPerProperty)
{
    Foo foo;
    foo.setA(7);
    std::stringstream captured;
    std::streambuf* old = std::cout.rdbuf(captured.rdbuf());
    foo.printAll();
    std::cout.rdbuf(old);
    const std::string text = captured.str();
    const std::string expected = "property name: objectName, type name: QString, is valid: 1, "
                                 "is readable: 1\n"
                                 "value: \n"
                                 "type: 10, userType: 10\n"
                                 "property name: a, type name: int, is valid: 1, is readable: 1\n"
                                 "value: 7\n"
                                 "type: 2, userType: 2\n"
                                 "property name: b, type name: int, is valid: 1, is readable: 1\n"
                                 "value: 0\n"
                                 "type: 2, userType: 2\n";
    EXPECT_EQ(expected, text);
}

#include "tst_yserializable.moc"
