#include "parameters_registry.h"

#include "ini_file_values_manager.h"
#include "parameters_registry_p.h"
#include "yassert.h"
#include "yexception.h"

#include <QDomDocument>
#include <QDomElement>
#include <QDomNodeList>

YParametersRegistry* YParametersRegistry::_instance = nullptr;

YParameterDescriptor::YParameterDescriptor()
    : _type(QVariant::Invalid)
{
}

YParameterDescriptor::YParameterDescriptor(const YParameterDescriptor& other) = default;

YParameterDescriptor::YParameterDescriptor(QVariant::Type type, const QString& name)
    : _type(type)
    , _name(name)
{
}

YParameterDescriptor::YParameterDescriptor(
    QVariant::Type type, const QString& name, const QString& defaultValue)
    : _type(type)
    , _name(name)
    , _defaultValue(defaultValue)
{
}

YParameterDescriptor& YParameterDescriptor::operator=(const YParameterDescriptor& other) = default;
YParameterDescriptor::~YParameterDescriptor() = default;

QString YParameterDescriptor::toString() const
{
    return QStringLiteral("instance of YParameterDescriptor: type=%1, name=%2, defaultValue=%3")
        .arg(QString::fromLatin1(QVariant::typeToName(int(_type))), _name,
            _defaultValue.isNull() ? QStringLiteral("[not specified]") : _defaultValue);
}

void YParametersRegistry::init(const QString& descriptorXml)
{
    Y_ASSERT_X(_instance == 0, "Cannot initialize YParametersRegistry twice");
    _instance = new YParametersRegistry(descriptorXml);
}

YParametersRegistry* YParametersRegistry::getInstance()
{
    return _instance;
}

YParametersRegistry::YParametersRegistry(const QString& descriptorXml)
    : _valuesManager(nullptr)
{
    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (!document.setContent(descriptorXml, false, &message, &line, &column)) {
        // "columd" is how the daemons' logs have always spelt it. // kept: registry-columd
        Y_THROW(QStringLiteral("Can't parse XML document (error: %1, line: %2, columd: %3)")
                    .arg(message)
                    .arg(line)
                    .arg(column));
    }
    const QDomNode root = document.namedItem(QStringLiteral("deploymentDescriptor"));
    Y_ASSERT(!root.isNull());
    const QDomNode parameters = root.namedItem(QStringLiteral("parameters"));
    for (QDomNode child = parameters.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (!child.isElement())
            continue;
        const YParameterDescriptor descriptor = constructDescriptor(&child);
        if (descriptor.isValid())
            _parametersHash.insert(descriptor.getName(), descriptor);
    }
}

YParametersRegistry::~YParametersRegistry() = default;

bool YParametersRegistry::isRestrictionMet(const QDomElement& element)
{
    const QDomElement restriction = element.firstChildElement(QStringLiteral("restriction"));
    if (restriction.isNull())
        return true;
    const QString os = restriction.attribute(QStringLiteral("os"), QStringLiteral("All"));
    return os == QLatin1String("All") || YParametersRegistrySys::isThisSystem(os);
}

YParameterDescriptor YParametersRegistry::constructDescriptor(const QDomNode* node)
{
    const QDomElement element = node->toElement();
    // A missing attribute reads as its own name: a parameter without "type" has the type "type"
    // and fails as unsupported. // kept: registry-attribute-defaults
    const QString name = element.attribute(QStringLiteral("name"), QStringLiteral("name"));
    // An entry for another system is dropped before anything else of it is looked at.
    if (!isRestrictionMet(element))
        return YParameterDescriptor();

    QString typeName = element.attribute(QStringLiteral("type"), QStringLiteral("type"));
    if (typeName == QLatin1String("string"))
        typeName = QStringLiteral("QString");
    else if (typeName == QLatin1String("boolean"))
        typeName = QStringLiteral("bool");
    const QVariant::Type type = QVariant::nameToType(typeName.toLatin1().constData());
    if (type == QVariant::Invalid)
        Y_THROW(QStringLiteral("Unsupported parameter type: %1").arg(typeName));

    const QDomNodeList holders = element.elementsByTagName(QStringLiteral("defaultValues"));
    const int nodeListSize = holders.size();
    Y_ASSERT_X(nodeListSize == 1,
        qPrintable(QStringLiteral("Only one single element (<%1>) is expected to be declared "
                                  "(found %2)")
                       .arg(QStringLiteral("defaultValues"))
                       .arg(nodeListSize)));

    // The first candidate whose restriction is met wins: a descriptor lists its special cases
    // before its general one.
    const QDomNodeList candidates
        = holders.at(0).toElement().elementsByTagName(QStringLiteral("defaultValue"));
    for (int i = 0; i < candidates.size(); ++i) {
        const QDomElement candidate = candidates.at(i).toElement();
        if (!isRestrictionMet(candidate))
            continue;
        const QDomElement fixed = candidate.firstChildElement(QStringLiteral("fixed"));
        if (!fixed.isNull()) {
            QString text = fixed.text();
            // An empty <fixed/> is an empty default, which is applied, not a missing one.
            if (text.isNull())
                text = QLatin1String("");
            return YParameterDescriptor(type, name, text);
        }
        if (!candidate.firstChildElement(QStringLiteral("fromParam")).isNull())
            return YParameterDescriptor(type, name);
    }
    Y_THROW(QStringLiteral(
        "neither <fixed>, no <fromParam> were not found to specify a defaultValue of %1")
                .arg(name));
}

void YParametersRegistry::addParameterValuesManager(YParameterValuesManager* manager)
{
    Y_ASSERT_X(_valuesManager == 0,
        "the current skeigri implementation does not support multiple adds of valuesManager "
        "please contact the developers in case this feature should already been implemented");
    _valuesManager = manager;
}

bool YParametersRegistry::isParameterRegistered(const QString& name) const
{
    return _parametersHash.contains(name);
}

bool YParametersRegistry::contains(const QByteArray& name)
{
    return isParameterRegistered(QString(name));
}

const QHash<QString, YParameterDescriptor>& YParametersRegistry::getParametersHash() const
{
    return _parametersHash;
}

const YParameterDescriptor& YParametersRegistry::findParameterDescriptor(const QString& name) const
{
    Y_ASSERT_X(_valuesManager != 0, "valueProvider should have been initialized");
    Y_ASSERT_X(
        !_parametersHash.isEmpty(), "the deployment descriptor might have not been added yet");
    const auto it = _parametersHash.constFind(name);
    if (it == _parametersHash.cend())
        Y_THROW(QStringLiteral("The parameter %1 is not registered").arg(name));
    return *it;
}

YParameterDescriptor& YParametersRegistry::findParameterDescriptor(const QString& name)
{
    // The const lookup asserts and throws; the non-const find() then detaches a shared table
    // before handing out a reference that may be written through.
    static_cast<const YParametersRegistry*>(this)->findParameterDescriptor(name);
    return *_parametersHash.find(name);
}

QVariant::Type YParametersRegistry::getType(const QString& name)
{
    return findParameterDescriptor(name).getType();
}

const QList<QPair<QByteArray, QByteArray>> YParametersRegistry::getValuesList() const
{
    return _valuesManager->getValuesList();
}
