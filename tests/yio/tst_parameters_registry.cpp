#include "parameters_registry.h"

#include "ini_file_values_manager.h"
#include "yexception.h"

#include <gtest/gtest.h>

namespace {

QString descriptor(const QString& parameters)
{
    return QStringLiteral("<?xml version=\"1.0\"?>\n<deploymentDescriptor><parameters>%1"
                          "</parameters></deploymentDescriptor>")
        .arg(parameters);
}

QString fixedParameter(const QString& name, const QString& type, const QString& value,
    const QString& extra = QString())
{
    return QStringLiteral("<parameter name=\"%1\" type=\"%2\">%4<defaultValues><defaultValue>"
                          "<fixed>%3</fixed></defaultValue></defaultValues></parameter>")
        .arg(name, type, value, extra);
}

// A values manager that answers from memory; the registry only forwards to it.
class FakeManager : public YParameterValuesManager
{
public:
    const QString getValue(const QString& name) const override { return values.value(name); }
    void setValue(const QString& name, const QString& value) override { values[name] = value; }
    bool containsValue(const QString& name) const override { return values.contains(name); }
    const QList<QPair<QByteArray, QByteArray>> getValuesList() const override
    {
        return {qMakePair(QByteArray("k"), QByteArray("v"))};
    }
    QHash<QString, QString> values;
};

QString thrown(const QString& xml)
{
    try {
        YParametersRegistry registry(xml);
    } catch (const YException& e) {
        return QString::fromUtf8(e.what());
    }
    return QString();
}

} // namespace

TEST(YParameterDescriptor, TextAndValidity)
{
    const YParameterDescriptor empty;
    EXPECT_FALSE(empty.isValid());
    EXPECT_EQ(QVariant::Invalid, empty.getType());
    EXPECT_TRUE(empty.getName().isNull());
    EXPECT_TRUE(empty.getDefaultValue().isNull());
    const YParameterDescriptor noDefault(QVariant::Int, QStringLiteral("port"));
    EXPECT_TRUE(noDefault.isValid());
    EXPECT_EQ(
        QStringLiteral(
            "instance of YParameterDescriptor: type=int, name=port, defaultValue=[not specified]"),
        noDefault.toString());
    const YParameterDescriptor withDefault(QVariant::String, QStringLiteral("dir"), QString(""));
    EXPECT_EQ(
        QStringLiteral("instance of YParameterDescriptor: type=QString, name=dir, defaultValue="),
        withDefault.toString());
    YParameterDescriptor copy(withDefault);
    EXPECT_EQ(QStringLiteral("dir"), copy.getName());
    copy = noDefault;
    EXPECT_EQ(QVariant::Int, copy.getType());
}

TEST(YParametersRegistry, OtherSystemsAreLeftOut)
{
    YParametersRegistry registry(
        descriptor(fixedParameter("linux", "int", "1", "<restriction os=\"Linux_Any\"/>")
            + fixedParameter("linuxAll", "int", "1", "<restriction os=\"LinuxAll\"/>")
            + fixedParameter("windows", "int", "1", "<restriction os=\"Windows_XP\"/>")
            + fixedParameter("windowsAll", "int", "1", "<restriction os=\"WindowsAll\"/>")
            + fixedParameter("lower", "int", "1", "<restriction os=\"linux_any\"/>")
            + fixedParameter("all", "int", "1", "<restriction os=\"All\"/>")
            + fixedParameter("omitted", "int", "1", "<restriction/>")
            + fixedParameter("none", "int", "1")));
    EXPECT_TRUE(registry.isParameterRegistered(QStringLiteral("linux")));
    EXPECT_TRUE(registry.isParameterRegistered(QStringLiteral("linuxAll")));
    EXPECT_FALSE(registry.isParameterRegistered(QStringLiteral("windows")));
    EXPECT_FALSE(registry.isParameterRegistered(QStringLiteral("windowsAll")));
    EXPECT_FALSE(registry.isParameterRegistered(QStringLiteral("lower")));
    EXPECT_TRUE(registry.isParameterRegistered(QStringLiteral("all")));
    EXPECT_TRUE(registry.isParameterRegistered(QStringLiteral("omitted")));
    EXPECT_TRUE(registry.isParameterRegistered(QStringLiteral("none")));
    EXPECT_TRUE(registry.contains(QByteArray("none")));
    EXPECT_FALSE(registry.contains(QByteArray("windows")));
    EXPECT_EQ(5, registry.getParametersHash().size());
}

TEST(YParametersRegistry, RestrictedParameterIsNotExaminedFurther)
{
    YParametersRegistry registry(
        descriptor("<p name=\"w\" type=\"nonsense\"><restriction os=\"Windows_2003\"/></p>"));
    EXPECT_TRUE(registry.getParametersHash().isEmpty());
}

TEST(YParametersRegistry, DefaultCandidatesByOrderAndSystem)
{
    YParametersRegistry registry(descriptor(QStringLiteral(
        "<p name=\"second\" type=\"string\"><defaultValues>"
        "<defaultValue><restriction os=\"Windows_Vista\"/><fixed>c:\\x</fixed></defaultValue>"
        "<defaultValue><fixed>/x</fixed></defaultValue></defaultValues></p>"
        "<p name=\"first\" type=\"string\"><defaultValues>"
        "<defaultValue><fixed>one</fixed></defaultValue>"
        "<defaultValue><fixed>two</fixed></defaultValue></defaultValues></p>"
        "<p name=\"linux\" type=\"string\"><defaultValues>"
        "<defaultValue><restriction os=\"LinuxAll\"/><fixed>lin</fixed></defaultValue>"
        "<defaultValue><fixed>general</fixed></defaultValue></defaultValues></p>"
        "<p name=\"skipEmpty\" type=\"string\"><defaultValues>"
        "<defaultValue/><defaultValue><fixed>later</fixed></defaultValue></defaultValues></p>"
        "<p name=\"both\" type=\"string\"><defaultValues>"
        "<defaultValue><fromParam/><fixed>fixedWins</fixed></defaultValue></defaultValues></p>"
        "<p name=\"nested\" type=\"string\"><a><defaultValues><b>"
        "<defaultValue><fixed>deep</fixed></defaultValue></b></defaultValues></a></p>")));
    const auto& hash = registry.getParametersHash();
    EXPECT_EQ(QStringLiteral("/x"), hash.value(QStringLiteral("second")).getDefaultValue());
    EXPECT_EQ(QStringLiteral("one"), hash.value(QStringLiteral("first")).getDefaultValue());
    EXPECT_EQ(QStringLiteral("lin"), hash.value(QStringLiteral("linux")).getDefaultValue());
    EXPECT_EQ(QStringLiteral("later"), hash.value(QStringLiteral("skipEmpty")).getDefaultValue());
    EXPECT_EQ(QStringLiteral("fixedWins"), hash.value(QStringLiteral("both")).getDefaultValue());
    EXPECT_EQ(QStringLiteral("deep"), hash.value(QStringLiteral("nested")).getDefaultValue());
    EXPECT_EQ(QVariant::String, hash.value(QStringLiteral("first")).getType());
}

TEST(YParametersRegistry, EmptyFixedAndFromParam)
{
    YParametersRegistry registry(descriptor(fixedParameter("empty", "string", "")
        + "<p name=\"from\" type=\"int\"><defaultValues><defaultValue><fromParam>ignored"
          "</fromParam></defaultValue></defaultValues></p>"));
    const auto& hash = registry.getParametersHash();
    EXPECT_FALSE(hash.value(QStringLiteral("empty")).getDefaultValue().isNull());
    EXPECT_TRUE(hash.value(QStringLiteral("empty")).getDefaultValue().isEmpty());
    EXPECT_TRUE(hash.value(QStringLiteral("from")).isValid());
    EXPECT_TRUE(hash.value(QStringLiteral("from")).getDefaultValue().isNull());
}

TEST(YParametersRegistry, TypeNames)
{
    YParametersRegistry registry(
        descriptor(fixedParameter("s", "string", "x") + fixedParameter("b", "boolean", "true")
            + fixedParameter("i", "int", "1") + fixedParameter("d", "double", "1.5")
            + fixedParameter("l", "QStringList", "a") + fixedParameter("q", "QString", "a")));
    const auto& hash = registry.getParametersHash();
    EXPECT_EQ(QVariant::String, hash.value(QStringLiteral("s")).getType());
    EXPECT_EQ(QVariant::Bool, hash.value(QStringLiteral("b")).getType());
    EXPECT_EQ(QVariant::Int, hash.value(QStringLiteral("i")).getType());
    EXPECT_EQ(QVariant::Double, hash.value(QStringLiteral("d")).getType());
    EXPECT_EQ(QVariant::StringList, hash.value(QStringLiteral("l")).getType());
    EXPECT_EQ(QVariant::String, hash.value(QStringLiteral("q")).getType());
}

TEST(YParametersRegistry, LaterDeclarationReplacesEarlier)
{
    YParametersRegistry registry(descriptor(fixedParameter("k", "int", "1") + "<!-- note -->text"
        + fixedParameter("k", "string", "2")));
    ASSERT_EQ(1, registry.getParametersHash().size());
    EXPECT_EQ(QStringLiteral("2"), registry.getParametersHash().value("k").getDefaultValue());
    EXPECT_EQ(QVariant::String, registry.getParametersHash().value("k").getType());
}

TEST(YParametersRegistry, AttributesDefaultToTheirOwnNames)
{
    EXPECT_TRUE(thrown(descriptor("<p name=\"x\"><defaultValues/></p>"))
                    .endsWith(QStringLiteral(" Unsupported parameter type: type")));
    YParametersRegistry registry(
        descriptor("<p type=\"int\"><defaultValues><defaultValue><fixed>3</fixed></defaultValue>"
                   "</defaultValues></p>"));
    EXPECT_TRUE(registry.isParameterRegistered(QStringLiteral("name")));
}

TEST(YParametersRegistry, Failures)
{
    EXPECT_TRUE(thrown(descriptor(fixedParameter("x", "nonsense", "1")))
                    .endsWith(QStringLiteral(" Unsupported parameter type: nonsense")));
    EXPECT_TRUE(thrown(descriptor("<p name=\"x\" type=\"int\"><defaultValues/></p>"))
                    .endsWith(QStringLiteral(" neither <fixed>, no <fromParam> were not found to "
                                             "specify a defaultValue of x")));
    EXPECT_TRUE(thrown(descriptor("<p name=\"y\" type=\"int\"><defaultValues><defaultValue>"
                                  "<restriction os=\"WindowsAll\"/><fixed>1</fixed>"
                                  "</defaultValue></defaultValues></p>"))
                    .endsWith(QStringLiteral(" neither <fixed>, no <fromParam> were not found to "
                                             "specify a defaultValue of y")));
    const QString xml = thrown(QStringLiteral("<deploymentDescriptor><parameters>"));
    EXPECT_TRUE(xml.contains(QStringLiteral(" Can't parse XML document (error: ")));
    EXPECT_TRUE(xml.contains(QStringLiteral(", line: 1, columd: "))) << qPrintable(xml);
}

TEST(YParametersRegistry, TwoDefaultValuesElementsFailTheAssertion)
{
    EXPECT_DEATH(YParametersRegistry(descriptor("<p name=\"x\" type=\"int\"><defaultValues/>"
                                                "<defaultValues/></p>")),
        "\\(nodeListSize == 1\\).*Only one single element \\(<defaultValues>\\) is expected to be "
        "declared \\(found 2\\)");
}

TEST(YParametersRegistry, MissingRootFailsTheAssertion)
{
    EXPECT_DEATH(YParametersRegistry(QStringLiteral("<other/>")), "\\(!root.isNull\\(\\)\\)");
}

TEST(YParametersRegistry, NoParametersElementGivesEmptyRegistry)
{
    YParametersRegistry registry(QStringLiteral("<deploymentDescriptor/>"));
    EXPECT_TRUE(registry.getParametersHash().isEmpty());
    FakeManager manager;
    registry.addParameterValuesManager(&manager);
    EXPECT_DEATH(registry.getType(QStringLiteral("x")),
        "\\(!_parametersHash.isEmpty\\(\\)\\).*the deployment descriptor might have not been "
        "added yet");
}

TEST(YParametersRegistry, GetTypeNeedsTheManager)
{
    YParametersRegistry registry(descriptor(fixedParameter("k", "int", "1")));
    EXPECT_DEATH(registry.getType(QStringLiteral("k")),
        "\\(_valuesManager != 0\\).*valueProvider should have been initialized");
    FakeManager manager;
    registry.addParameterValuesManager(&manager);
    EXPECT_EQ(QVariant::Int, registry.getType(QStringLiteral("k")));
    try {
        registry.getType(QStringLiteral("unknown"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QByteArray(e.what()).endsWith(" The parameter unknown is not registered"));
    }
    EXPECT_EQ((QList<QPair<QByteArray, QByteArray>> {qMakePair(QByteArray("k"), QByteArray("v"))}),
        registry.getValuesList());
    EXPECT_DEATH(registry.addParameterValuesManager(&manager),
        "\\(_valuesManager == 0\\).*the current skeigri implementation does not support multiple "
        "adds of valuesManager please contact the developers in case this feature should already "
        "been implemented");
}

TEST(YParametersRegistry, InitOnceAfterAFailedInit)
{
    EXPECT_EQ(nullptr, YParametersRegistry::getInstance());
    EXPECT_THROW(YParametersRegistry::init(QStringLiteral("<broken")), YException);
    EXPECT_EQ(nullptr, YParametersRegistry::getInstance());
    YParametersRegistry::init(descriptor(fixedParameter("k", "int", "1")));
    ASSERT_NE(nullptr, YParametersRegistry::getInstance());
    EXPECT_TRUE(YParametersRegistry::getInstance()->isParameterRegistered(QStringLiteral("k")));
    EXPECT_DEATH(YParametersRegistry::init(descriptor(QString())),
        "\\(_instance == 0\\).*Cannot initialize YParametersRegistry twice");
}
