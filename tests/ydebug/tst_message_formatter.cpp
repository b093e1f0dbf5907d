// The catalogue of message formats. Each test runs in a process of its own, so each starts
// without an instance.
#include <yovolib/yovolib.h>

#include <gtest/gtest.h>

namespace {

const char* const CATALOGUE = R"(<?xml version="1.0"?>
<messages>
  <group name="database">
    <message id="100" name="foo" format="Connection to %1 failed"/>
    <message id="101" name="MixedCase" format="Mixed %1"/>
    <!-- a comment is no message -->
  </group>
  <anything>
    <entry id="200" name="bar" format="Bar %1 %2"/>
    <entry name="noid" format="No id here"/>
    <entry id="abc" name="badid" format="Bad id"/>
  </anything>
  <message id="300" name="toplevel" format="Not in a group"/>
  <group>
    <message id="100" name="FOO" format="Replaced"/>
    <message id="400" format="Nameless"/>
    <message id="401" name="deep" format="Outer"><message id="402" name="deeper" format="Inner"/></message>
  </group>
</messages>
)";

QString resolve(const QString& name)
{
    return YMessageFormatter::getInstance()->resolveMessageFormat(name);
}

QString resolve(unsigned int id)
{
    return YMessageFormatter::getInstance()->resolveMessageFormat(id);
}

TEST(YMessageFormatter, NameIsFoundIgnoringCase)
{
    YMessageFormatter::initFromXml(QString::fromUtf8(CATALOGUE));
    EXPECT_EQ(QStringLiteral("Mixed %1"), resolve(QStringLiteral("mixedcase")));
    EXPECT_EQ(QStringLiteral("Mixed %1"), resolve(QStringLiteral("MIXEDCASE")));
    EXPECT_EQ(QStringLiteral("Bar %1 %2"), resolve(QStringLiteral("Bar")));
    EXPECT_EQ(QStringLiteral("Mixed %1"), resolve(101u));
}

TEST(YMessageFormatter, UpperCaseLookupFindsLowerCaseDeclaration)
{
    YMessageFormatter::initFromXml(
        QStringLiteral("<r><g><m id=\"1\" name=\"foo\" format=\"the foo\"/></g></r>"));
    EXPECT_EQ(QStringLiteral("the foo"), resolve(QStringLiteral("FOO")));
}

TEST(YMessageFormatter, UnknownIdAndNameGiveTheirTexts)
{
    YMessageFormatter::initFromXml(QString::fromUtf8(CATALOGUE));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 7"), resolve(7u));
    EXPECT_EQ(QStringLiteral("Unsupported message name: NoSuchThing"),
        resolve(QStringLiteral("NoSuchThing")));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 4294967295"), resolve(4294967295u));
}

TEST(YMessageFormatter, OnlyTheSecondLevelHoldsMessages)
{
    YMessageFormatter::initFromXml(QString::fromUtf8(CATALOGUE));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 300"), resolve(300u));
    EXPECT_EQ(
        QStringLiteral("Unsupported message name: toplevel"), resolve(QStringLiteral("toplevel")));
    EXPECT_EQ(QStringLiteral("Outer"), resolve(401u));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 402"), resolve(402u));
    EXPECT_EQ(
        QStringLiteral("Unsupported message name: deeper"), resolve(QStringLiteral("deeper")));
}

TEST(YMessageFormatter, LaterMessageReplacesEarlierOne)
{
    YMessageFormatter::initFromXml(QString::fromUtf8(CATALOGUE));
    EXPECT_EQ(QStringLiteral("Replaced"), resolve(QStringLiteral("foo")));
    EXPECT_EQ(QStringLiteral("Replaced"), resolve(100u));
}

TEST(YMessageFormatter, MissingOrBadIdLandsUnderZero)
{
    YMessageFormatter::initFromXml(QString::fromUtf8(CATALOGUE));
    // Both "noid" and "badid" went to id 0; the later one stays.
    EXPECT_EQ(QStringLiteral("Bad id"), resolve(0u));
    EXPECT_EQ(QStringLiteral("No id here"), resolve(QStringLiteral("noid")));
    // Without a name, a message is found under the empty name.
    EXPECT_EQ(QStringLiteral("Nameless"), resolve(QString()));
}

TEST(YMessageFormatter, SecondInitChangesNothing)
{
    YMessageFormatter::initFromXml(QString::fromUtf8(CATALOGUE));
    const YMessageFormatter* first = YMessageFormatter::getInstance();
    YMessageFormatter::initFromXml(
        QStringLiteral("<r><g><m id=\"7\" name=\"foo\" format=\"other\"/></g></r>"));
    EXPECT_EQ(first, YMessageFormatter::getInstance());
    EXPECT_EQ(QStringLiteral("Replaced"), resolve(QStringLiteral("foo")));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 7"), resolve(7u));
}

TEST(YMessageFormatter, MalformedXmlGivesEmptyTablesWithoutException)
{
    EXPECT_NO_THROW(YMessageFormatter::initFromXml(
        QStringLiteral("<messages><group><message id=\"1\" name=\"x\" format=\"y\"></group>")));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 1"), resolve(1u));
    EXPECT_EQ(QStringLiteral("Unsupported message name: x"), resolve(QStringLiteral("x")));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 0"), resolve(0u));
    EXPECT_EQ(QStringLiteral("Unsupported message name: "), resolve(QString()));
}

TEST(YMessageFormatter, TextThatIsNoXmlGivesEmptyTables)
{
    EXPECT_NO_THROW(YMessageFormatter::initFromXml(QStringLiteral("format=\"x\" id=1")));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 0"), resolve(0u));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 1"), resolve(1u));
}

TEST(YMessageFormatter, LoadingMoreAddsAndBadXmlKeepsTheTables)
{
    YMessageFormatter::initFromXml(
        QStringLiteral("<r><g><m id=\"1\" name=\"one\" format=\"first\"/></g></r>"));
    // The instance is handed out constant; loading more into it is for its owner at start-up.
    YMessageFormatter* formatter = const_cast<YMessageFormatter*>(YMessageFormatter::getInstance());
    formatter->loadFromXml(
        QStringLiteral("<r><g><m id=\"2\" name=\"two\" format=\"second\"/></g></r>"));
    EXPECT_EQ(QStringLiteral("first"), resolve(1u));
    EXPECT_EQ(QStringLiteral("second"), resolve(QStringLiteral("TWO")));
    EXPECT_NO_THROW(formatter->loadFromXml(QStringLiteral("<r><g><m id=\"3\"")));
    EXPECT_EQ(QStringLiteral("first"), resolve(QStringLiteral("one")));
    EXPECT_EQ(QStringLiteral("second"), resolve(2u));
    EXPECT_EQ(QStringLiteral("Unsupported message Id: 3"), resolve(3u));
}

TEST(YMessageFormatterDeathTest, InstanceBeforeInitFailsTheAssertion)
{
    EXPECT_DEATH(YMessageFormatter::getInstance(),
        "\\(_messageFormatter != 0\\)(.|\n)*YMessageFormatter::getInstance\\(\\): "
        "called before init");
}

} // namespace
