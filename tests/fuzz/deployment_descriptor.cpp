// Arbitrary text as a deployment descriptor. Two shapes are a programmer's error that ends the
// process by design (no "deploymentDescriptor" root, a parameter without exactly one
// "defaultValues"); such inputs are set aside before the registry sees them.
#include "parameters_registry.h"
#include "yexception.h"

#include <QDomDocument>
#include <QDomElement>
#include <QDomNodeList>
#include <QString>

#include <cstddef>
#include <cstdint>

namespace {

bool endsInAssertion(const QString& text)
{
    QDomDocument document;
    if (!document.setContent(text, false))
        return false;
    const QDomNode root = document.namedItem(QStringLiteral("deploymentDescriptor"));
    if (root.isNull())
        return true;
    const QDomNode parameters = root.namedItem(QStringLiteral("parameters"));
    for (QDomNode child = parameters.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.isElement()
            && child.toElement().elementsByTagName(QStringLiteral("defaultValues")).size() != 1) {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    if (endsInAssertion(text))
        return 0;
    try {
        YParametersRegistry registry(text);
        const auto& hash = registry.getParametersHash();
        for (auto it = hash.cbegin(); it != hash.cend(); ++it) {
            if (!it->isValid() || !registry.isParameterRegistered(it.key()))
                __builtin_trap();
            it->toString();
        }
    } catch (const YException&) {
        // A document an administrator got wrong: rejected, not a finding.
    }
    return 0;
}
