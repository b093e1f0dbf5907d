// Arbitrary bytes through the directive scanner's file reader and line test, and the rewriter's
// normalising of what they yield.
#include "scan_dir.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

namespace {

class FuzzScanDir : public YScanDir
{
public:
    using YScanDir::doNormalizeValue;
    using YScanDir::doParseFileContent;
    using YScanDir::isIniLine;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    FuzzScanDir scanner;
    scanner.doParseFileContent(bytes, QStringLiteral("/fuzz.ini"));
    for (const QByteArray& line : bytes.split('\n')) {
        QString key;
        QString value;
        if (scanner.isIniLine(line, key, value)) {
            const QString normal = FuzzScanDir::doNormalizeValue(key, value);
            YScanDir::compareStrings(normal, value);
        }
    }
    for (const auto& file : scanner.directives()) {
        for (const auto& entry : file.second) {
            QString value;
            if (!scanner.getStringValueTrimmed(entry.first, value))
                __builtin_trap();
            scanner.getInt(entry.first, 0);
        }
        scanner.getListOfSections(file.first);
    }
    return 0;
}
