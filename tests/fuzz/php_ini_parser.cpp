// Arbitrary text through the read-only ini reader and every query of what it stored.
#include "php_ini_parser.h"
#include "yexception.h"

#include <QString>
#include <QTextStream>

#include <cstddef>
#include <cstdint>

namespace {

class FuzzParser : public YPhpIniParser
{
public:
    void parse(QString text)
    {
        QTextStream stream(&text);
        read(stream, QString());
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzParser parser;
    parser.parse(QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)));
    const auto entries = parser.entriesByDeclarationOrder();
    for (const auto& entry : entries) {
        if (!parser.contains(entry.first))
            __builtin_trap();
        try {
            parser.longValue(entry.first);
            parser.longValues(entry.first);
        } catch (const YException&) {
            // Not a number: a rejected value, not a finding.
        }
    }
    if (!entries.isEmpty()) {
        parser.setString(entries.first().first, QStringLiteral("x"));
        parser.entriesByDeclarationOrder();
    }
    return 0;
}
