// The tolerant reader takes any bytes: the first chooses the flags, the rest is the text. A text
// read without errors is written, read again and compared, and must come back the same, save
// for what the writer is known to change (six digits of a double, characters beyond Latin-1).
#include "json_reader.h"
#include "json_value.h"
#include "json_writer.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void check(bool condition, const char* what)
{
    if (!condition) {
        fprintf(stderr, "json_reader: %s\n", what);
        abort();
    }
}

bool writableText(const QString& text)
{
    for (QChar c : text) {
        // The writer narrows characters beyond Latin-1 to 0, which ends a string on reading,
        // and writes a form feed as an escape that the reader refuses.
        if (c.unicode() == 0 || c.unicode() > 0xFF || c.unicode() == '\f')
            return false;
    }
    return true;
}

bool survivesWriting(const YJsonValue& value)
{
    switch (value.getType()) {
    case YJSONTYPE_DOUBLE:
        return std::isfinite(value.asDouble());
    case YJSONTYPE_STRING:
        return writableText(value.asString());
    case YJSONTYPE_ARRAY:
        for (const YJsonValue& element : *value.asArray()) {
            if (!survivesWriting(element))
                return false;
        }
        return true;
    case YJSONTYPE_OBJECT:
        for (auto it = value.asMap()->constBegin(); it != value.asMap()->constEnd(); ++it) {
            if (!writableText(it.key()) || !survivesWriting(it.value()))
                return false;
        }
        return true;
    default:
        return true;
    }
}

bool isNumber(const YJsonValue& v)
{
    return v.isInt() || v.isUInt() || v.isDouble();
}

// Ordered comparison with the writer's six significant digits allowed for numbers.
bool closeTo(const YJsonValue& a, const YJsonValue& b)
{
    if (isNumber(a) && isNumber(b)) {
        const double x = a.asDouble();
        const double y = b.asDouble();
        return x == y || std::fabs(x - y) <= 1e-5 * std::fmax(std::fabs(x), std::fabs(y)) + 1e-300;
    }
    if (a.getType() != b.getType())
        return false;
    if (a.isArray()) {
        if (a.size() != b.size())
            return false;
        for (int i = 0; i < a.size(); ++i) {
            if (!closeTo(a.asArray()->at(i), b.asArray()->at(i)))
                return false;
        }
        return true;
    }
    if (a.isObject()) {
        if (a.size() != b.size())
            return false;
        for (auto it = a.asMap()->constBegin(); it != a.asMap()->constEnd(); ++it) {
            const auto other = b.asMap()->constFind(it.key());
            if (other == b.asMap()->constEnd() || !closeTo(it.value(), other.value()))
                return false;
        }
        return true;
    }
    return a.isSameAs(b);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const int flags = data[0] & 63;
    const QString text
        = QString::fromLatin1(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1));

    YJsonReader reader(flags, 10);
    YJsonValue root;
    const int errors = reader.parse(text, &root);
    check(errors == reader.getErrorCount() && errors <= 11, "error list beyond its bound");
    check(reader.getWarningCount() <= 11, "warning list beyond its bound");
    if (errors > 0)
        return 0; // a tree with errors may hold EMPTY values, which aren't JSON

    for (int style : {0, 3, 7, 11, 19}) {
        QString out;
        YJsonWriter(style).write(root, out);
        YJsonReader(YJSONREADER_TOLERANT).parse(out, nullptr);
    }

    if (!survivesWriting(root))
        return 0;
    QString first;
    YJsonWriter().write(root, first);
    YJsonReader again(YJSONREADER_STRICT);
    YJsonValue back;
    check(again.parse(first, &back) == 0, "written text doesn't read back without errors");
    check(closeTo(root, back), "written text reads back as another tree");

    QString second;
    YJsonWriter().write(back, second);
    YJsonValue third;
    check(YJsonReader(YJSONREADER_STRICT).parse(second, &third) == 0, "second reading fails");
    check(back.isSameAs(third), "writing is not stable after one round");
    return 0;
}
