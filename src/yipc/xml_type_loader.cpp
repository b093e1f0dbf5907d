#include "xml_type_loader.h"

#include "yassert.h"
#include "yexception.h"

#include <QDomDocument>
#include <QDomElement>
#include <QDomNode>
#include <QIODevice>

#define YLOADER_ASSERT(condition, text)                                                            \
    do {                                                                                           \
        if (!(condition))                                                                          \
            failedAssertion(__FILE__, __LINE__, text, nullptr, YDebug::STDERR);                    \
    } while (false)

YTypeLoader::~YTypeLoader() = default;

YXmlTypeLoader::YXmlTypeLoader(QIODevice* device)
    : _device(device)
{
}

YXmlTypeLoader::~YXmlTypeLoader() = default;

YTypeInfo_t<YMD5> YXmlTypeLoader::loadTypeByName(const QString& name)
{
    const QHash<QString, YTypeInfo_t<YMD5>> types = loadAllTypes();
    const auto it = types.constFind(name);
    if (it == types.constEnd())
        throw YException(QStringLiteral("Type %1 was not found on a given device").arg(name));
    return it.value();
}

QHash<QString, YTypeInfo_t<YMD5>> YXmlTypeLoader::loadAllTypes()
{
    if (!_device || !_device->reset())
        throw YException("Can't reset an IODevice");

    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (!document.setContent(_device, false, &message, &line, &column))
        // kept: loader-columd
        throw YException(
            QStringLiteral("Can't parse XML document (error: %1, line: %2, columd: %3)")
                .arg(message)
                .arg(line)
                .arg(column));

    const QDomNode root = document.namedItem(QStringLiteral("types"));
    YLOADER_ASSERT(!root.isNull(), "!root.isNull()");

    QHash<QString, YTypeInfo_t<YMD5>> types;
    for (QDomNode child = root.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (!child.isElement())
            continue;
        QDomElement element = child.toElement();
        const YTypeInfo_t<YMD5> type = constructType(&element);
        types.insert(type.getName(), type);
    }
    return types;
}

YTypeInfo_t<YMD5> YXmlTypeLoader::constructType(QDomElement* typeElement)
{
    YTypeInfo_t<YMD5> type(typeElement->attribute(QStringLiteral("name")));
    for (QDomNode child = typeElement->firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (!child.isElement())
            continue;
        QDomElement field = child.toElement();
        if (field.tagName() != QLatin1String("field"))
            continue;

        const QDomAttr nameAttribute = field.attributeNode(QStringLiteral("name"));
        const QDomAttr typeAttribute = field.attributeNode(QStringLiteral("type"));
        const QString attributeFieldName
            = nameAttribute.isNull() ? QString() : nameAttribute.value();
        const QString attributeFieldType
            = typeAttribute.isNull() ? QString() : typeAttribute.value();
        YLOADER_ASSERT(!attributeFieldName.isNull(), "!attributeFieldName.isNull()");
        YLOADER_ASSERT(!attributeFieldType.isNull(), "!attributeFieldType.isNull()");

        if (attributeFieldType == YFieldInfo::FTN_8) {
            type.add8Field(attributeFieldName);
        } else if (attributeFieldType == YFieldInfo::FTN_16) {
            type.add16Field(attributeFieldName);
        } else if (attributeFieldType == YFieldInfo::FTN_32) {
            type.add32Field(attributeFieldName);
        } else if (attributeFieldType == YFieldInfo::FTN_64) {
            type.add64Field(attributeFieldName);
        } else if (attributeFieldType == YFieldInfo::FTN_VARIABLE_SIZE) {
            type.addVariableSizeField(attributeFieldName);
        } else if (attributeFieldType == YFieldInfo::FTN_FIXED_SIZE) {
            const QDomAttr sizeAttribute = field.attributeNode(QStringLiteral("size"));
            const QString attributeFieldSize
                = sizeAttribute.isNull() ? QString() : sizeAttribute.value();
            YLOADER_ASSERT(!attributeFieldSize.isNull(), "!attributeFieldSize.isNull()");
            const unsigned long fieldSize = attributeFieldSize.toULong(nullptr, 10);
            YLOADER_ASSERT(fieldSize != 0, "fieldSize != 0");
            type.addFixedSizeField(attributeFieldName, static_cast<unsigned int>(fieldSize));
        } else {
            throw YException(QStringLiteral("Illegal field type %1").arg(attributeFieldType));
        }
    }
    type.finalize();
    return type;
}
