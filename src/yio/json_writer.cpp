#include "json_writer.h"

#include "yassert.h"
#include "yexception.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

// A finite double as QString::number(d, 'g', 6) writes it: six significant digits, an exact tie
// rounded away from zero (not to even, as the C library would), trailing zeros dropped, and the
// exponent form below 1e-4 and from 1e6 on, zero without a sign. Gives the length, or 0 if the
// buffer is too small.
// The six significant digits of a finite d, rounded as Qt rounds them, and the decimal exponent
// of the first. False if the conversion failed.
bool sixDigits(double d, char* kept, int& exponent, bool& negative, bool& zero)
{
    // The shortest text that reads back as d rounds to the same six digits as d itself, unless
    // it stands exactly on a tie (seven digits, the last a 5): there forty correctly rounded
    // digits decide, as no double lies that close to a tie without being one. Below the normal
    // range a double is too coarse for the shortest text to say anything about six digits.
    char wide[64];
    char digits[48];
    int count = 0;
    const bool coarse = std::fpclassify(d) == FP_SUBNORMAL;
    for (int precision : {-1, 39}) {
        if (precision < 0 && coarse)
            continue;
        const std::to_chars_result r = precision < 0
            ? std::to_chars(wide, wide + sizeof(wide), d, std::chars_format::scientific)
            : std::to_chars(wide, wide + sizeof(wide), d, std::chars_format::scientific, precision);
        if (r.ec != std::errc())
            return false;
        const char* p = wide;
        negative = *p == '-';
        if (negative)
            ++p;
        count = 0;
        for (; p < r.ptr && *p != 'e' && count < 41; ++p) {
            if (*p != '.')
                digits[count++] = *p;
        }
        while (p < r.ptr && *p != 'e')
            ++p;
        exponent = 0;
        const bool negativeExponent = p + 1 < r.ptr && p[1] == '-';
        for (const char* e = p + 2; e < r.ptr; ++e)
            exponent = exponent * 10 + (*e - '0');
        if (negativeExponent)
            exponent = -exponent;
        if (!(count == 7 && digits[6] == '5'))
            break;
    }
    for (int i = count; i < 7; ++i)
        digits[i] = '0';
    zero = true;
    for (int i = 0; i < count; ++i)
        zero = zero && digits[i] == '0';
    if (!zero) {
        for (int i = 0; i < 6; ++i)
            kept[i] = digits[i];
        if (digits[6] >= '5') {
            int i = 5;
            while (i >= 0 && kept[i] == '9')
                kept[i--] = '0';
            if (i >= 0) {
                ++kept[i];
            } else {
                kept[0] = '1';
                ++exponent;
            }
        }
    } else {
        exponent = 0;
    }
    return true;
}

// The same for most doubles in a few operations: d scaled by an exact power of ten into
// [1e5, 1e6) is rounded once, with an error far below 1e-9; where the fraction is that close
// to one half, a tie included, the answer is left to sixDigits.
bool quickSixDigits(double d, char* kept, int& exponent)
{
    static const double powers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11,
        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const double a = std::fabs(d);
    if (!(a >= 1e-5 && a < 1e15))
        return false;
    int e10 = int(std::floor(std::log10(a)));
    double m = 0;
    for (int attempt = 0;; ++attempt) {
        const int k = 5 - e10;
        if (k < -22 || k > 22 || attempt > 2)
            return false;
        m = k >= 0 ? a * powers[k] : a / powers[-k];
        if (m < 1e5)
            --e10;
        else if (m >= 1e6)
            ++e10;
        else
            break;
    }
    const double whole = std::floor(m);
    const double fraction = m - whole;
    if (std::fabs(fraction - 0.5) < 1e-6)
        return false;
    long rounded = long(whole) + (fraction > 0.5 ? 1 : 0);
    if (rounded == 1000000) {
        rounded = 100000;
        ++e10;
    }
    for (int i = 5; i >= 0; --i) {
        kept[i] = char('0' + rounded % 10);
        rounded /= 10;
    }
    exponent = e10;
    return true;
}

int formatDouble(double d, char* out, int capacity)
{
    char kept[7] = {'0', '0', '0', '0', '0', '0', 0};
    int exponent = 0;
    bool negative = std::signbit(d);
    bool zero = false;
    if (!quickSixDigits(d, kept, exponent) && !sixDigits(d, kept, exponent, negative, zero))
        return 0;
    int significant = 6;
    while (significant > 1 && kept[significant - 1] == '0')
        --significant;

    char text[40];
    int n = 0;
    if (negative && !zero) // Qt writes no sign on a negative zero
        text[n++] = '-';
    if (exponent < -4 || exponent >= 6) {
        text[n++] = kept[0];
        if (significant > 1) {
            text[n++] = '.';
            for (int i = 1; i < significant; ++i)
                text[n++] = kept[i];
        }
        text[n++] = 'e';
        text[n++] = exponent < 0 ? '-' : '+';
        const int magnitude = exponent < 0 ? -exponent : exponent;
        if (magnitude >= 100)
            text[n++] = char('0' + magnitude / 100);
        text[n++] = char('0' + magnitude / 10 % 10);
        text[n++] = char('0' + magnitude % 10);
    } else if (exponent < 0) {
        text[n++] = '0';
        text[n++] = '.';
        for (int i = -1; i > exponent; --i)
            text[n++] = '0';
        for (int i = 0; i < significant; ++i)
            text[n++] = kept[i];
    } else {
        for (int i = 0; i <= exponent; ++i)
            text[n++] = i < significant ? kept[i] : '0';
        if (significant > exponent + 1) {
            text[n++] = '.';
            for (int i = exponent + 1; i < significant; ++i)
                text[n++] = kept[i];
        }
    }
    if (n > capacity)
        return 0;
    std::memcpy(out, text, size_t(n));
    return n;
}

inline char narrow(QChar ch)
{
    return ch.toLatin1();
}

// The letter behind the backslash for each Latin-1 character that is escaped, 0 for one
// written as it is.
struct EscapeTable
{
    char letter[256] = {};

    constexpr EscapeTable()
    {
        letter[int('"')] = '"';
        letter[int('\\')] = '\\';
        // kept: writer-slash — '/' is always escaped.
        letter[int('/')] = '/';
        letter[int('\b')] = 'b';
        letter[int('\f')] = 'f';
        letter[int('\n')] = 'n';
        letter[int('\r')] = 'r';
        letter[int('\t')] = 't';
    }
};

constexpr EscapeTable escapes;

inline char escapeOf(char ch)
{
    return escapes.letter[static_cast<uchar>(ch)];
}

// Copies the characters as bytes; the result tells whether that was their right form, or whether
// one may need an escape or lies beyond Latin-1. Free of branches and of aliasing, so that the
// compiler can take many characters at a time.
bool copyPlain(char* __restrict out, const ushort* __restrict in, int size)
{
    // Lane-wide masks of the character's own width: the form that the compiler vectorises.
    ushort special = 0;
    for (int i = 0; i < size; ++i) {
        const ushort c = in[i];
        out[i] = char(c);
        special |= ushort(-ushort(c < 0x0E)) | ushort(-ushort(c > 0xFF)) | ushort(-ushort(c == '"'))
            | ushort(-ushort(c == '\\')) | ushort(-ushort(c == '/'));
    }
    return special != 0;
}

// Large texts don't stay with a writer that lives on between them.
const size_t keptCapacity = 1 << 20;

} // namespace

YJsonWriter::YJsonWriter(int style, int indent, int step)
    : m_style(style)
    , m_indent(indent)
    , m_step(step)
    , m_level(0)
    , m_output(nullptr)
    , m_outputType(0)
{
    if (style == YJSONWRITER_NONE) {
        m_indent = 0;
        m_step = 0;
    }
}

YJsonWriter::YJsonWriter(const YJsonWriter& other)
    : m_style(other.m_style)
    , m_indent(other.m_indent)
    , m_step(other.m_step)
    , m_level(other.m_level)
    , m_output(other.m_output)
    , m_outputType(other.m_outputType)
{
}

YJsonWriter& YJsonWriter::operator=(const YJsonWriter& other)
{
    m_style = other.m_style;
    m_indent = other.m_indent;
    m_step = other.m_step;
    m_level = other.m_level;
    m_output = other.m_output;
    m_outputType = other.m_outputType;
    return *this;
}

YJsonWriter::~YJsonWriter() = default;

void YJsonWriter::write(const YJsonValue& value, QString& text)
{
    m_level = 0;
    m_output = &text;
    m_used = 0;
    m_buffering = true;
    try {
        doWrite(value, nullptr, false);
    } catch (...) {
        // What was written before the failure stands in the text, as it always did.
        m_buffering = false;
        flushNow();
        m_output = nullptr;
        throw;
    }
    m_buffering = false;
    flushNow();
    m_output = nullptr;
    if (m_capacity > keptCapacity) {
        m_bytes.reset();
        m_capacity = 0;
    }
}

void YJsonWriter::flushNow()
{
    if (m_output && m_used > 0)
        m_output->append(QLatin1String(m_bytes.get(), int(m_used)));
    m_used = 0;
}

void YJsonWriter::grow(size_t count)
{
    const size_t limit = size_t(std::numeric_limits<int>::max());
    const size_t needed = m_used + count;
    if (needed > limit)
        throw YException("YJsonWriter::write() - the text is beyond what a string can hold");
    const size_t capacity = std::max(needed, std::min(2 * m_capacity + 256, limit));
    std::unique_ptr<char[]> bytes(new char[capacity]);
    if (m_used > 0)
        std::memcpy(bytes.get(), m_bytes.get(), m_used);
    m_bytes = std::move(bytes);
    m_capacity = capacity;
}

int YJsonWriter::doWrite(const YJsonValue& value, const QString* key, bool comma)
{
    int position = 0;
    if (value.getCommentCount() > 0 && (m_style & YJSONWRITER_WRITE_COMMENTS)) {
        position = value.getCommentPos();
        if (m_style & YJSONWRITER_COMMENTS_BEFORE)
            position = 1;
        else if (m_style & YJSONWRITER_COMMENTS_AFTER)
            position = 2;
    }
    if (position == 1 && writeComment(value, true) < 0)
        return -1;
    if (writeIndent() < 0)
        return -1;
    if (key && writeKey(*key) < 0)
        return -1;

    switch (value.getType()) {
    case YJSONTYPE_EMPTY:
        failedAssertion(__FILE__, __LINE__, "(false)",
            "YJsonWriter::WriteEmpty() cannot be called (not a valid JSON text)", YDebug::STDERR);
    case YJSONTYPE_STRING:
    case YJSONTYPE_CSTRING:
        if (writeStringValue(value.asString()) < 0)
            return -1;
        break;
    case YJSONTYPE_ARRAY:
    case YJSONTYPE_OBJECT: {
        const bool array = value.getType() == YJSONTYPE_ARRAY;
        if (m_level >= YJSON_MAX_DEPTH) {
            writeError(QStringLiteral("nesting deeper than %1 levels is not supported")
                           .arg(int(YJSON_MAX_DEPTH)));
            return -1;
        }
        ++m_level;
        writeChar(array ? '[' : '{');
        if (position == 3) {
            writeChar(' ');
            writeComment(value, false);
            writeChar('\n');
            position = 0; // the inline comment stands behind the opening bracket
        } else {
            writeChar('\n');
        }
        if (array) {
            const QVector<YJsonValue>& elements = *value.asArray();
            const int last = elements.size() - 1;
            for (int i = 0; i <= last; ++i) {
                if (doWrite(elements.at(i), nullptr, i < last) < 0)
                    return -1;
            }
        } else {
            const QHash<QString, YJsonValue>& members = *value.asMap();
            int left = members.size();
            for (auto it = members.constBegin(); it != members.constEnd(); ++it) {
                --left;
                if (doWrite(it.value(), &it.key(), left > 0) < 0)
                    return -1;
            }
        }
        --m_level;
        writeIndent();
        writeChar(array ? ']' : '}');
        break;
    }
    default:
        if (writePrimitiveValue(value) < 0)
            return -1;
        break;
    }

    if (comma)
        writeChar(',');
    if (position == 3) {
        writeChar(' ');
        writeComment(value, false);
    } else if (position == 2) {
        writeChar('\n');
        writeComment(value, true);
    }
    // kept: writer-empty-line — the line end follows also a comment that brought its own.
    writeChar('\n');
    return 0;
}

int YJsonWriter::writeComment(const YJsonValue& value, bool indent)
{
    if (!(m_style & YJSONWRITER_STYLED) || !(m_style & YJSONWRITER_WRITE_COMMENTS))
        return 0;
    for (const QString& comment : value.getCommentArray()) {
        if (indent)
            writeIndent();
        writeString(comment);
        if (!comment.endsWith(QLatin1Char('\n')))
            writeChar('\n');
    }
    return 0;
}

int YJsonWriter::writeIndent()
{
    if (!(m_style & YJSONWRITER_STYLED))
        return 0;
    return writeIndent(m_indent + m_step * m_level);
}

int YJsonWriter::writeIndent(int count)
{
    if (!(m_style & YJSONWRITER_STYLED) || count <= 0)
        return 0;
    std::memset(room(size_t(count)), ' ', size_t(count));
    m_used += size_t(count);
    flush();
    return count;
}

int YJsonWriter::writeStringValue(const QString& text)
{
    const bool split = (m_style & YJSONWRITER_SPLIT_STRING) && (m_style & YJSONWRITER_STYLED);
    writeChar('"');
    const QChar* in = text.constData();
    const int size = text.size();
    if (!split) {
        // Most texts have nothing to escape and nothing beyond Latin-1: they are copied in one
        // sweep that also finds out whether that was right. The test takes in some characters
        // that need no escape (other control characters); such a text is then done again the
        // longer way.
        char* const start = room(2 * size_t(size));
        char* out = start + size;
        if (copyPlain(start, reinterpret_cast<const ushort*>(in), size)) {
            out = start;
            for (int i = 0; i < size; ++i) {
                const char ch = narrow(in[i]);
                const char escape = escapeOf(ch);
                if (escape) {
                    out[0] = '\\';
                    out[1] = escape;
                    out += 2;
                } else {
                    *out++ = ch;
                }
            }
        }
        m_used += size_t(out - start);
        writeChar('"');
        flush();
        return size + 2;
    }
    for (int i = 0; i < size; ++i) {
        const char ch = narrow(in[i]);
        const char escape = escapeOf(ch);
        if (!escape) {
            put(ch);
            continue;
        }
        char* out = room(2);
        out[0] = '\\';
        out[1] = escape;
        m_used += 2;
        if (ch == '\n') {
            writeChar('"');
            writeChar('\n');
            writeIndent((m_level + 2) * m_step);
            writeChar('"');
        }
    }
    writeChar('"');
    flush();
    return size + 2;
}

int YJsonWriter::writeChar(char ch)
{
    if (m_outputType != 0)
        failedAssertion(
            __FILE__, __LINE__, "(false)", "stream output is not supported", YDebug::STDERR);
    put(ch);
    flush();
    return 1;
}

int YJsonWriter::writeString(const QString& text)
{
    if (m_outputType != 0)
        failedAssertion(
            __FILE__, __LINE__, "(false)", "stream output is not supported", YDebug::STDERR);
    const QChar* in = text.constData();
    const int size = text.size();
    char* out = room(size_t(size));
    for (int i = 0; i < size; ++i)
        out[i] = narrow(in[i]);
    m_used += size_t(size);
    flush();
    return size;
}

int YJsonWriter::writePrimitiveValue(const YJsonValue& value)
{
    // Numbers are formatted into a small buffer, in the form asString gives them (six
    // significant digits for a double): the common case skips a QString per value.
    char buffer[32];
    std::to_chars_result r {buffer, std::errc::invalid_argument};
    switch (value.getType()) {
    case YJSONTYPE_INT:
        r = std::to_chars(buffer, buffer + sizeof(buffer), value.asInt());
        break;
    case YJSONTYPE_UINT:
        r = std::to_chars(buffer, buffer + sizeof(buffer), value.asUInt());
        break;
    case YJSONTYPE_DOUBLE: {
        const double d = value.asDouble();
        const int length = std::isfinite(d) ? formatDouble(d, buffer, int(sizeof(buffer))) : 0;
        if (length > 0)
            r = {buffer + length, std::errc()};
        break;
    }
    default:
        break;
    }
    if (r.ec == std::errc()) {
        const int length = int(r.ptr - buffer);
        std::memcpy(room(size_t(length)), buffer, size_t(length));
        m_used += size_t(length);
        flush();
        return length;
    }
    const QString s = value.asString();
    Y_ASSERT(!s.isEmpty());
    return writeString(s);
}

int YJsonWriter::writeInt(int value)
{
    return writeString(QString::number(value));
}

int YJsonWriter::writeUInt(unsigned int value)
{
    return writeString(QString::number(value));
}

int YJsonWriter::writeBool(bool value)
{
    return writeString(value ? QStringLiteral("true") : QStringLiteral("false"));
}

int YJsonWriter::writeDouble(double value)
{
    return writeString(QString::number(value, 'g', 6));
}

int YJsonWriter::writeNull()
{
    return writeString(QStringLiteral("null"));
}

int YJsonWriter::writeKey(const QString& key)
{
    const int written = writeStringValue(key);
    return written + writeString(QStringLiteral(" : "));
}

int YJsonWriter::writeEmpty()
{
    // kept: writeempty-paren — the message lacks its closing parenthesis.
    throw YException("YJsonWriter::WriteEmpty() cannot be called (not a valid JSON text");
    return writeString(QStringLiteral("<empty>"));
}

int YJsonWriter::writeError(const QString& text)
{
    return writeString(QStringLiteral("ERROR: %1").arg(text));
}
