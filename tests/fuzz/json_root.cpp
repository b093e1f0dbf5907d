// Any bytes parsed into a YJSONRoot; every accessor of every element is called, and the wrong
// ones must raise YException rather than fail.
#include "json_element.h"
#include "yexception.h"

#include <cstdint>

namespace {

template<typename F> void tolerate(F call)
{
    try {
        call();
    } catch (const YException&) {
    }
}

void walk(YJSONElement element, int depth)
{
    tolerate([&] { element.toBool(); });
    tolerate([&] { element.toInt(); });
    tolerate([&] { element.toDouble(); });
    tolerate([&] { element.toString(); });
    tolerate([&] { element.arraySize(); });
    tolerate([&] { element.arrayItem(0); });
    tolerate([&] { element.arrayItem(-1); });
    tolerate([&] { element.namedObject(QStringLiteral("a")); });
    element.isNull();
    element.isBool();
    element.isEmpty();
    element.objectName();
    element.hasObject(QStringLiteral("A"));
    if (depth > 64)
        return;
    for (YJSONElement child = element.firstChild(); child.isOk(); child = element.nextChild()) {
        if (element.getType() == 6)
            tolerate([&] { element.namedObject(child.getName()); });
        walk(child, depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    YJSONRoot root(bytes);
    if (!root.isOk())
        return 0;
    YJSONElement element = root.toElement();
    walk(element, 0);
    element.format(false);
    element.format(true);

    YJSONRoot again(QString::fromLatin1(bytes));
    if (again.isOk()) {
        YJSONElement e = again.toElement();
        tolerate([&] { e.append(QStringLiteral("k"), 1).appendNull(QStringLiteral("n")); });
        tolerate([&] { e.arrayAppend(2.5).arrayAppendNull(); });
        tolerate([&] { e.append(YJSONElement::createObject(QStringLiteral("o"))); });
        e.format(false);
    }
    root.clear();
    root.toElement().append(QStringLiteral("x"), QStringLiteral("y"));
    return 0;
}
