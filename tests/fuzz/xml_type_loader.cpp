// Loads type declarations from arbitrary documents. The loader ends the process by assertion on
// three documented mistakes (no <types> root, a field without a name or type, a fixed size that
// is missing or not a positive number); this target steps around exactly those, so that any other
// abort is a finding.
#include "xml_type_loader.h"
#include "yexception.h"

#include <QBuffer>
#include <QByteArray>
#include <QDomDocument>

#include <cstddef>
#include <cstdint>

namespace {

bool fieldIsDeclarable(const QDomElement& field)
{
    if (!field.hasAttribute(QStringLiteral("name")) || !field.hasAttribute(QStringLiteral("type")))
        return false;
    if (field.attribute(QStringLiteral("type")) != QLatin1String("FT_FIXED_SIZE"))
        return true;
    if (!field.hasAttribute(QStringLiteral("size")))
        return false;
    return field.attribute(QStringLiteral("size")).toULong(nullptr, 10) != 0;
}

// Whether the loader would stop at one of its assertions.
bool reachesAnAssertion(const QByteArray& text)
{
    QDomDocument document;
    if (!document.setContent(text, false))
        return false; // a parse error is a YException, which the target wants to see
    const QDomNode root = document.namedItem(QStringLiteral("types"));
    if (root.isNull())
        return true;
    for (QDomNode type = root.firstChild(); !type.isNull(); type = type.nextSibling()) {
        if (!type.isElement())
            continue;
        for (QDomNode field = type.firstChild(); !field.isNull(); field = field.nextSibling()) {
            const QDomElement element = field.toElement();
            if (!element.isNull() && element.tagName() == QLatin1String("field")
                && !fieldIsDeclarable(element))
                return true;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char*>(data), int(size));
    if (reachesAnAssertion(text))
        return 0;
    QBuffer buffer;
    buffer.setData(text);
    buffer.open(QIODevice::ReadOnly);
    YXmlTypeLoader loader(&buffer);
    try {
        const QHash<QString, YTypeInfo_t<YMD5>> types = loader.loadAllTypes();
        for (const YTypeInfo_t<YMD5>& type : types)
            (void)type.toString();
    } catch (const YException&) {
    }
    return 0;
}
