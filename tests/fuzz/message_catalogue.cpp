// The message catalogue read from arbitrary text: any text loads or is ignored, and every name or
// id then resolves to a format or to the catalogue's own "Unsupported" words.
#include "message_formatter.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString xml = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    // The instance is made once per process: the first input goes through initFromXml, the
    // following ones are added to the same tables.
    static bool made = false;
    if (!made) {
        YMessageFormatter::initFromXml(xml);
        made = true;
    } else {
        // The instance is handed out constant, but it was made as a mutable object.
        const_cast<YMessageFormatter*>(YMessageFormatter::getInstance())->loadFromXml(xml);
    }
    const YMessageFormatter* formatter = YMessageFormatter::getInstance();

    // Names and ids taken from the text itself, so that the fuzzer can make them hit.
    const QString name = xml.left(16);
    const QString byName = formatter->resolveMessageFormat(name);
    const QString unknownName = QStringLiteral("Unsupported message name: ") + name;
    const unsigned int id = size >= 4 ? unsigned(data[0]) | unsigned(data[1]) << 8
            | unsigned(data[2]) << 16 | unsigned(data[3]) << 24
                                      : unsigned(size);
    const QString byId = formatter->resolveMessageFormat(id);
    // A name resolves the same whatever its case.
    if (formatter->resolveMessageFormat(name.toUpper()) != byName && byName != unknownName
        && name.toUpper().toLower() == name.toLower())
        abort();
    (void)byId;
    return 0;
}
