#include "json_reader.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

// Numbers are read with the width of a 32-bit long, so that peers on either platform agree on
// which text becomes an INT, a UINT or a DOUBLE.
bool toLong32(const QString& token, int& result)
{
    bool ok = false;
    const qlonglong v = token.toLongLong(&ok, 10);
    if (!ok || v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max())
        return false;
    result = static_cast<int>(v);
    return true;
}

bool toULong32(const QString& token, unsigned int& result)
{
    bool ok = false;
    const qulonglong v = token.toULongLong(&ok, 10);
    if (!ok || v > std::numeric_limits<unsigned int>::max())
        return false;
    result = static_cast<unsigned int>(v);
    return true;
}

inline unsigned code(QChar c)
{
    return c.unicode();
}

inline unsigned code(char c)
{
    return static_cast<unsigned char>(c);
}

// The common case of an integer text, [+-]?[0-9]{1,18}, read without Qt's locale machinery. Any
// other text goes to Qt's conversions, so both ways give the same answers.
template<typename Char> bool plainInteger(const Char* p, int n, qint64& result)
{
    int i = 0;
    bool negative = false;
    if (n > 0 && (code(p[0]) == '+' || code(p[0]) == '-')) {
        negative = code(p[0]) == '-';
        i = 1;
    }
    if (i >= n || n - i > 18)
        return false;
    qint64 value = 0;
    for (; i < n; ++i) {
        const unsigned c = code(p[i]);
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + (c - '0');
    }
    result = negative ? -value : value;
    return true;
}

// A number in the strict JSON form (a '+' allowed in front), converted exactly, as Qt's
// conversion would. Other forms, and results that over- or underflow, go to Qt.
template<typename Char> bool plainDouble(const Char* p, int n, double& result)
{
    char buffer[80];
    if (n >= int(sizeof(buffer)))
        return false;
    int i = 0;
    int length = 0;
    bool negative = false;
    if (i < n && code(p[i]) == '+') {
        ++i;
    } else if (i < n && code(p[i]) == '-') {
        buffer[length++] = '-';
        negative = true;
        ++i;
    }
    // The digits are also gathered as an integer while they fit, for the exact short way below.
    quint64 mantissa = 0;
    int significant = 0;
    bool inMantissa = true;
    auto digits = [&]() {
        int count = 0;
        while (i < n && code(p[i]) >= '0' && code(p[i]) <= '9') {
            const unsigned digit = code(p[i]) - '0';
            buffer[length++] = char('0' + digit);
            if (inMantissa && (significant > 0 || digit != 0)) {
                if (significant < 19)
                    mantissa = mantissa * 10 + digit;
                ++significant;
            }
            ++i;
            ++count;
        }
        return count;
    };
    const int start = i;
    const int whole = digits();
    if (whole == 0 || (whole > 1 && code(p[start]) == '0'))
        return false;
    int fraction = 0;
    if (i < n && code(p[i]) == '.') {
        buffer[length++] = '.';
        ++i;
        fraction = digits();
        if (fraction == 0)
            return false;
    }
    int exponent = 0;
    bool exponentFits = true;
    if (i < n && (code(p[i]) == 'e' || code(p[i]) == 'E')) {
        buffer[length++] = 'e';
        ++i;
        inMantissa = false;
        bool negativeExponent = false;
        if (i < n && (code(p[i]) == '+' || code(p[i]) == '-')) {
            negativeExponent = code(p[i]) == '-';
            buffer[length++] = char(code(p[i]));
            ++i;
        }
        const int first = i;
        if (digits() == 0)
            return false;
        for (int k = first; k < i; ++k) {
            exponent = exponent * 10 + int(code(p[k]) - '0');
            if (exponent > 100000) {
                exponentFits = false;
                break;
            }
        }
        if (negativeExponent)
            exponent = -exponent;
    }
    if (i != n)
        return false;

    // Up to 2^53 and with a power of ten up to 10^22 both operands are exact doubles, so the
    // one rounding of a product or a quotient is the correct one, which from_chars would give.
    static const double powers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11,
        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const int scale = exponent - fraction;
    if (exponentFits && significant <= 19 && mantissa <= (quint64(1) << 53) && scale >= -22
        && scale <= 22) {
        double value = static_cast<double>(mantissa);
        if (scale < 0)
            value /= powers[-scale];
        else
            value *= powers[scale];
        result = negative ? -value : value;
        return true;
    }

    double value = 0;
    const std::from_chars_result r = std::from_chars(buffer, buffer + length, value);
    if (r.ec != std::errc() || r.ptr != buffer + length || std::fpclassify(value) == FP_SUBNORMAL)
        return false;
    result = value;
    return true;
}

bool readLiteral(const QString& token, const char* word)
{
    return token.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}

} // namespace

// Member names, and many values, come back again and again in a document: a short text that
// was read before is taken from here, sharing its characters, instead of being allocated anew.
// A slot keeps the last text whose hash led to it.
struct YJsonReader::StringCache
{
    enum
    {
        SLOTS = 256,
        MAX_LENGTH = 32
    };

    QString slots[SLOTS];

    QString take(const QChar* data, int length)
    {
        if (length > MAX_LENGTH)
            return QString(data, length);
        unsigned hash = unsigned(length);
        for (int i = 0; i < length; ++i)
            hash = hash * 31 + data[i].unicode();
        hash ^= hash >> 11;
        QString& slot = slots[hash % SLOTS];
        if (slot.size() != length
            || std::memcmp(slot.constData(), data, sizeof(QChar) * size_t(length)) != 0)
            slot = QString(data, length);
        return slot;
    }
};

YJsonReader::YJsonReader(int flags, int maxErrors)
    : m_flags(flags)
    , m_maxErrors(maxErrors)
    , m_lineNo(1)
    , m_colNo(1)
    , m_level(0)
    , m_current(nullptr)
    , m_lastStored(nullptr)
    , m_next(nullptr)
    , m_commentLine(-1)
    , m_inPos(0)
    , m_inType(-1)
    , m_inObject(nullptr)
    , m_peekChar(-1)
{
}

YJsonReader::~YJsonReader() = default;

int YJsonReader::parse(const QString& text, YJsonValue* root)
{
    m_inObject = &text;
    m_inType = 0;
    m_inPos = 0;
    StringCache strings;
    m_strings = &strings;
    int result;
    if (root) {
        result = parse(root);
    } else {
        YJsonValue temporary;
        result = parse(&temporary);
    }
    // Nothing of this parse may be reached through the object afterwards.
    m_inObject = nullptr;
    m_strings = nullptr;
    m_current = nullptr;
    m_lastStored = nullptr;
    m_next = nullptr;
    return result;
}

int YJsonReader::parse(YJsonValue* root)
{
    m_level = 0;
    m_lineNo = 1;
    m_colNo = 1;
    m_peekChar = -1;
    m_errors.clear();
    m_warnings.clear();
    m_comment.clear();
    if (!(m_inObject != nullptr))
        qt_assert("m_inObject != 0", __FILE__, __LINE__);
    if (!(m_inType >= 0))
        qt_assert("m_inType >= 0", __FILE__, __LINE__);

    m_next = root;
    root->setLineNo(-1);
    m_current = nullptr;
    m_lastStored = nullptr;

    const int ch = getStart();
    if (ch == '[') {
        root->setType(YJSONTYPE_ARRAY);
    } else if (ch == '{') {
        root->setType(YJSONTYPE_OBJECT);
    } else {
        addError(QStringLiteral("Cannot find a start object/array character"));
        return m_errors.size();
    }
    doRead(*root);
    return m_errors.size();
}

int YJsonReader::getStart()
{
    int ch = readChar();
    while (ch >= 0 && ch != '[' && ch != '{') {
        if (ch == '/') {
            ch = skipComment();
            storeComment(nullptr);
        } else {
            ch = readChar();
        }
    }
    return ch;
}

int YJsonReader::doRead(YJsonValue& parent)
{
    ++m_level;
    YJsonValue value(YJSONTYPE_EMPTY);
    QString key;
    m_next = &value;
    m_current = &parent;
    parent.setLineNo(m_lineNo);
    m_lastStored = nullptr;
    const bool inArray = parent.isArray();

    int ch = 0;
    for (;;) {
        switch (ch) {
        case -1:
            addWarning(YJSONREADER_MISSING,
                inArray ? QStringLiteral("']' missing at end of file")
                        : QStringLiteral("'}' missing at end of file"));
            storeValue(ch, key, value, parent);
            --m_level;
            return -1;
        case 0:
            ch = readChar();
            break;
        case '\t':
        case '\n':
        case '\r':
        case ' ':
            ch = skipWhiteSpace();
            break;
        case '"':
            ch = readString(value);
            m_current = &value;
            m_next = nullptr;
            break;
        case ',':
            storeValue(ch, key, value, parent);
            key.clear();
            ch = readChar();
            break;
        case '/':
            ch = skipComment();
            storeComment(&parent);
            break;
        case ':':
            m_current = &value;
            value.setLineNo(m_lineNo);
            m_next = nullptr;
            if (inArray) {
                addError(QStringLiteral("':' cannot be used in array's values"));
            } else if (value.isString() && key.isEmpty()) {
                key = value.asString();
                value.setType(YJSONTYPE_EMPTY); // the comments before the name go to the value
            } else if (!key.isEmpty()) {
                addError(
                    QStringLiteral("':' not allowed where a 'name' string was already available"));
            } else {
                addError(QStringLiteral("':' follows a value which is not of type 'string'"));
            }
            ch = readChar();
            break;
        case '[':
        case '{': {
            const bool array = ch == '[';
            if (!inArray) {
                if (key.isEmpty())
                    addError(array ? QStringLiteral("'[' is not allowed here ('name' is missing")
                                   : QStringLiteral("'{' is not allowed here ('name' is missing"));
                else if (!value.isEmpty())
                    addError(array ? QStringLiteral("'[' cannot follow a 'value' text")
                                   : QStringLiteral("'{' must be a 'value'"));
            } else if (!value.isEmpty()) {
                addError(array ? QStringLiteral("'[' cannot follow a 'value'")
                               : QStringLiteral("'{' cannot follow a 'value' in JSON array"));
            }
            if (m_level >= YJSON_MAX_DEPTH) {
                // A null stands in for what is passed over, so that the tree stays one that
                // the writer and the comparison can follow.
                addError(QStringLiteral("nesting deeper than %1 levels is not supported")
                             .arg(int(YJSON_MAX_DEPTH)));
                ch = skipTooDeep();
                value.setType(YJSONTYPE_NULL);
                value.setLineNo(m_lineNo);
                m_current = &value;
                m_next = nullptr;
            } else {
                value.setType(array ? YJSONTYPE_ARRAY : YJSONTYPE_OBJECT);
                ch = doRead(value);
            }
            break;
        }
        case ']':
        case '}':
            if (ch == ']' && inArray == false)
                addWarning(YJSONREADER_MISSING,
                    QStringLiteral("Trying to close an object using the ']' (close-array) char"));
            else if (ch == '}' && inArray)
                addWarning(YJSONREADER_MISSING,
                    QStringLiteral("Trying to close an array using the '}' (close-object) char"));
            storeValue(ch, key, value, parent);
            m_current = &parent;
            m_next = nullptr;
            parent.setLineNo(m_lineNo);
            --m_level;
            return readChar();
        default:
            m_current = &value;
            value.setLineNo(m_lineNo);
            m_next = nullptr;
            ch = readValue(ch, value);
            break;
        }
    }
}

// Passes over an array or object that is nested too deep, without recursion: brackets are
// counted, strings are skipped so that brackets inside them don't count.
int YJsonReader::skipTooDeep()
{
    int depth = 1;
    while (depth > 0) {
        int ch = readChar();
        if (ch < 0)
            return -1;
        if (ch == '"') {
            for (;;) {
                ch = readChar();
                if (ch < 0)
                    return -1;
                if (ch == '"')
                    break;
                if (ch == '\\' && readChar() < 0)
                    return -1;
            }
        } else if (ch == '[' || ch == '{') {
            ++depth;
        } else if (ch == ']' || ch == '}') {
            --depth;
        }
    }
    return readChar();
}

int YJsonReader::readChar()
{
    int ch = getChar();
    if (ch == '\r') {
        m_colNo = 1;
        if (peekChar() != '\n')
            return ch; // a lone CR stays on its line
        ch = getChar();
    }
    if (ch == '\n') {
        ++m_lineNo;
        m_colNo = 1;
    } else if (ch >= 0) {
        ++m_colNo;
    }
    return ch;
}

int YJsonReader::getChar()
{
    if (m_peekChar >= 0) {
        const int ch = m_peekChar;
        m_peekChar = -1;
        return ch;
    }
    if (m_inType != 0)
        qt_assert_x(
            "YJsonReader::GetChar", "stream input not supported for now", __FILE__, __LINE__);
    if (m_inPos >= m_inObject->size())
        return -1;
    const ushort code = m_inObject->at(m_inPos++).unicode();
    return code > 0xFF ? 0 : code;
}

int YJsonReader::peekChar()
{
    if (m_peekChar < 0)
        m_peekChar = getChar();
    return m_peekChar;
}

int YJsonReader::skipWhiteSpace()
{
    int ch;
    do {
        // Blanks, tabs and LFs are passed over in one sweep, counted as readChar counts them;
        // a CR, with its rules for the line, goes through readChar.
        if (m_peekChar < 0) {
            const QChar* data = m_inObject->constData();
            const int size = m_inObject->size();
            int pos = m_inPos;
            int column = m_colNo;
            for (;;) {
                const int start = pos;
                // Indentation comes in runs of blanks, taken four at a time.
                const quint64 fourBlanks = Q_UINT64_C(0x0020002000200020);
                while (size - pos >= 4) {
                    quint64 four;
                    std::memcpy(&four, data + pos, sizeof(four));
                    if (four != fourBlanks)
                        break;
                    pos += 4;
                }
                while (
                    pos < size && (data[pos] == QLatin1Char(' ') || data[pos] == QLatin1Char('\t')))
                    ++pos;
                column += pos - start;
                if (pos < size && data[pos] == QLatin1Char('\n')) {
                    ++m_lineNo;
                    column = 1;
                    ++pos;
                    continue;
                }
                break;
            }
            m_colNo = column;
            m_inPos = pos;
        }
        ch = readChar();
    } while (ch == ' ' || ch == '\t' || ch == '\n');
    return ch;
}

int YJsonReader::skipComment()
{
    int ch = readChar();
    if (ch == '/' || ch == '*') {
        const bool toLineEnd = ch == '/';
        addWarning(YJSONREADER_ALLOW_COMMENTS,
            QStringLiteral(
                "Comments may be tolerated in JSON text but they are not part of JSON syntax"));
        m_commentLine = m_lineNo;
        m_comment = toLineEnd ? QStringLiteral("//") : QStringLiteral("/*");
        for (;;) {
            ch = readChar();
            if (ch < 0)
                return -1;
            m_comment += QChar(ch);
            if (toLineEnd && ch == '\n')
                return readChar();
            if (!toLineEnd && ch == '*' && peekChar() == '/') {
                readChar();
                m_comment += QLatin1Char('/');
                return readChar();
            }
        }
    }
    addError(QStringLiteral("Strange '/' (did you want to insert a comment?)"));
    while (ch >= 0) {
        if (ch == '\n')
            return readChar();
        if (ch == '*' && peekChar() == '/') {
            readChar();
            return readChar();
        }
        ch = readChar();
    }
    return -1;
}

int YJsonReader::readString(YJsonValue& value)
{
    QString text;
    int ch;
    for (;;) {
        // Plain characters are taken in runs; what needs a decision goes through readChar.
        if (m_peekChar < 0) {
            const QChar* data = m_inObject->constData();
            const int size = m_inObject->size();
            const int start = m_inPos;
            int pos = start;
            while (pos < size) {
                const ushort c = data[pos].unicode();
                if (c == '"' || c == '\\' || c == '\n' || c == '\r' || c == 0 || c > 0xFF)
                    break;
                ++pos;
            }
            if (pos > start) {
                // Most strings are one run: made to measure, without the growth of append.
                if (text.isEmpty() && pos < size && data[pos] == QLatin1Char('"') && m_strings)
                    text = m_strings->take(data + start, pos - start);
                else if (text.isEmpty())
                    text = QString(data + start, pos - start);
                else
                    text.append(data + start, pos - start);
                m_colNo += pos - start;
                m_inPos = pos;
            }
        }
        ch = readChar();
        if (ch <= 0 || ch == '"')
            break;
        if (ch != '\\') {
            text += QChar(ch);
            continue;
        }
        ch = readChar();
        switch (ch) {
        case -1:
            break;
        case 't':
            text += QLatin1Char('\t');
            break;
        case 'n':
            text += QLatin1Char('\n');
            break;
        case 'b':
            text += QLatin1Char('\b');
            break;
        case 'r':
            text += QLatin1Char('\r');
            break;
        case '"':
            text += QLatin1Char('"');
            break;
        case '\\':
            text += QLatin1Char('\\');
            break;
        case '/':
            text += QLatin1Char('/');
            break;
        case 12:
            // kept: escape-formfeed — a backslash before a real form feed yields one; the
            // letter f is no escape here.
            text += QChar(12);
            break;
        case 'u': {
            long hex = 0;
            if (readUnicode(hex) < 0)
                addError(QStringLiteral("unicode sequence must contain 4 hex digits"));
            else
                appendUnicodeSequence(text, static_cast<int>(hex));
            break;
        }
        default:
            // kept: escape-message — the placeholder is printed as it stands.
            addError(QStringLiteral("Unknown escaped character '\\%c'"));
            break;
        }
        if (ch < 0)
            break;
    }

    if (value.isEmpty()) {
        value = text;
    } else if (value.isString()) {
        addWarning(YJSONREADER_MULTISTRING,
            QStringLiteral("Multiline strings are not allowed by JSON syntax"));
        value.cat(text);
    } else {
        addError(QStringLiteral("String value '%1' cannot follow another value").arg(text));
    }
    value.setLineNo(m_lineNo);
    return ch < 0 ? -1 : readChar();
}

int YJsonReader::readToken(int ch, QString& token)
{
    for (;;) {
        token += QChar(ch);
        if (m_peekChar < 0) {
            const QChar* data = m_inObject->constData();
            const int size = m_inObject->size();
            const int start = m_inPos;
            int pos = start;
            while (pos < size) {
                const ushort c = data[pos].unicode();
                if (c == 0 || c > 0xFF || c == '\b' || c == '\t' || c == '\n' || c == '\r'
                    || c == ' ' || c == ',' || c == ':' || c == '[' || c == ']' || c == '{'
                    || c == '}')
                    break;
                ++pos;
            }
            if (pos > start) {
                token.append(data + start, pos - start);
                m_colNo += pos - start;
                m_inPos = pos;
            }
        }
        ch = readChar();
        switch (ch) {
        case -1:
        case '\b':
        case '\t':
        case '\n':
        case '\r':
        case ' ':
        case ',':
        case ':':
        case '[':
        case ']':
        case '{':
        case '}':
            return ch;
        default:
            break;
        }
    }
}

// Sets the value from an integer text of the plain form, with the 32-bit ranges.
static void setPlainInteger(qint64 plain, bool plus, bool minus, YJsonValue& value)
{
    if (!plus && plain >= std::numeric_limits<int>::min()
        && plain <= std::numeric_limits<int>::max())
        value = static_cast<int>(plain);
    else if (!minus && plain >= 0 && plain <= std::numeric_limits<unsigned int>::max())
        value = static_cast<unsigned int>(plain);
    else
        value = static_cast<double>(plain);
}

static bool endsToken(ushort c)
{
    switch (c) {
    case '\b':
    case '\t':
    case '\n':
    case '\r':
    case ' ':
    case ',':
    case ':':
    case '[':
    case ']':
    case '{':
    case '}':
        return true;
    default:
        return false;
    }
}

int YJsonReader::readValue(int ch, YJsonValue& value)
{
    // A number in a plain form is read straight from the input, without a token string; the
    // positions move as readToken would move them.
    if (value.isEmpty() && m_peekChar < 0 && (ch == '-' || ch == '+' || (ch >= '0' && ch <= '9'))) {
        const QChar* data = m_inObject->constData();
        const int size = m_inObject->size();
        const int start = m_inPos;
        int pos = start;
        while (pos < size && pos - start < 64) {
            const ushort c = data[pos].unicode();
            if (c == 0 || c > 0xFF || endsToken(c))
                break;
            ++pos;
        }
        if (pos == size || (pos - start < 64 && endsToken(data[pos].unicode()))) {
            char buffer[66];
            buffer[0] = char(ch);
            const int n = pos - start + 1;
            for (int i = 1; i < n; ++i)
                buffer[i] = char(data[start + i - 1].unicode());
            qint64 plain = 0;
            double d = 0;
            bool done = false;
            if (plainInteger(buffer, n, plain)) {
                setPlainInteger(plain, ch == '+', ch == '-', value);
                done = true;
            } else if (plainDouble(buffer, n, d)) {
                value = d;
                done = true;
            }
            if (done) {
                m_colNo += pos - start;
                m_inPos = pos;
                return readChar();
            }
        }
    }

    QString token;
    ch = readToken(ch, token);
    if (!value.isEmpty()) {
        addError(
            QStringLiteral("Value '%1' cannot follow a value: ',' or ':' missing?").arg(token));
        return ch;
    }
    const QChar first = token.at(0);
    const bool plus = first == QLatin1Char('+');
    const bool minus = first == QLatin1Char('-');
    const bool digit = first >= QLatin1Char('0') && first <= QLatin1Char('9');
    if (plus || minus || digit) {
        int i = 0;
        unsigned int u = 0;
        qint64 plain = 0;
        double d = 0;
        if (plainInteger(token.constData(), token.size(), plain)) {
            setPlainInteger(plain, plus, minus, value);
        } else if (plainDouble(token.constData(), token.size(), d)) {
            value = d;
        } else if (!plus && toLong32(token, i)) {
            value = i;
        } else if (!minus && toULong32(token, u)) {
            value = u;
        } else {
            bool ok = false;
            const double d = token.toDouble(&ok);
            if (ok)
                value = d;
            else
                addError(
                    QStringLiteral("Value '%1' is incorrect (did you forget quotes?)").arg(token));
        }
        return ch;
    }

    static const char* const words[] = {"null", "true", "false"};
    for (int w = 0; w < 3; ++w) {
        if (!readLiteral(token, words[w]))
            continue;
        if (token != QLatin1String(words[w]))
            addWarning(YJSONREADER_CASE,
                QStringLiteral("the '%1' literal must be lowercase").arg(QLatin1String(words[w])));
        if (w == 0)
            value.setType(YJSONTYPE_NULL);
        else
            value = (w == 1);
        return ch;
    }
    addError(QStringLiteral("Unrecognized literal '%1' (did you forget quotes?)").arg(token));
    return ch;
}

int YJsonReader::readUnicode(long& hex)
{
    QString digits;
    for (int i = 0; i < 4; ++i) {
        const int ch = readChar();
        if (ch < 0)
            return -1;
        digits += QChar(ch);
    }
    bool ok = false;
    const qlonglong value = digits.toLongLong(&ok, 16);
    if (!ok || value < 0)
        return -1;
    hex = static_cast<long>(value);
    return static_cast<int>(value);
}

int YJsonReader::appendUnicodeSequence(QString& text, int hex)
{
    text += QChar(static_cast<ushort>(hex));
    return 1;
}

void YJsonReader::storeValue(int ch, const QString& key, YJsonValue& value, YJsonValue& parent)
{
    // kept: comment-before-later — no value is waiting after a store, so a comment before any
    // but the first value of a container has no home.
    m_next = nullptr;
    m_current = &value;
    m_lastStored = nullptr;
    value.setLineNo(-1);

    if (value.isEmpty() && key.isEmpty()) {
        // The empty container and the comma at the end of a list store nothing.
        if (ch != '}' && ch != ']')
            addError(QStringLiteral("key or value is missing for JSON value"));
    } else if (parent.isObject()) {
        if (value.isEmpty()) {
            addError(
                QStringLiteral("cannot store the value: 'value' is missing for JSON object type"));
        } else if (key.isEmpty()) {
            addError(
                QStringLiteral("cannot store the value: 'key' is missing for JSON object type"));
        } else {
            parent.COW();
            YJsonValue& member = parent.m_refData->m_value.m_map.insert(key, value).value();
            value = YJsonValue(YJSONTYPE_EMPTY); // the member must be the record's only handle
            member.setLineNo(m_lineNo);
            m_lastStored = &member;
        }
    } else {
        if (value.isEmpty())
            addError(
                QStringLiteral("cannot store the item: 'value' is missing for JSON array type"));
        if (!key.isEmpty())
            addError(QStringLiteral(
                "cannot store the item: 'key' ('%1') is not permitted in JSON array type")
                         .arg(key));
        YJsonValue& element = parent.append(value);
        value = YJsonValue(YJSONTYPE_EMPTY);
        element.setLineNo(m_lineNo);
        m_lastStored = &element;
    }
    if (!value.isEmpty() || value.getCommentCount() > 0)
        value = YJsonValue(YJSONTYPE_EMPTY);
}

void YJsonReader::storeComment(const YJsonValue* parent)
{
    if (!(m_flags & YJSONREADER_STORE_COMMENTS) || m_comment.isEmpty()) {
        m_comment.clear();
        return;
    }
    const QString comment = m_comment;
    m_comment.clear();

    if (m_current && m_current->getLineNo() == m_commentLine) {
        m_current->addComment(comment, 3);
        return;
    }
    if (m_next && m_next->getLineNo() == m_commentLine) {
        m_next->addComment(comment, 3);
        return;
    }
    if (m_lastStored && m_lastStored->getLineNo() == m_commentLine) {
        m_lastStored->addComment(comment, 3);
        return;
    }
    if (!(m_flags & YJSONREADER_COMMENTS_AFTER)) {
        if (m_next)
            m_next->addComment(comment, 1);
        else
            addError(QStringLiteral("Cannot find a value for storing the comment (flag BEFORE)"));
        return;
    }
    if (m_current && m_current != parent && !m_current->isEmpty())
        m_current->addComment(comment, 2);
    else if (!m_current && m_lastStored)
        m_lastStored->addComment(comment, 2);
    else
        addError(QStringLiteral("Cannot find a value for storing the comment (flag AFTER)"));
}

void YJsonReader::addError(const QString& text)
{
    if (m_errors.size() < m_maxErrors)
        m_errors.append(QStringLiteral("Error: line %1, col %2 - %3")
                            .arg(QString::number(m_lineNo), QString::number(m_colNo), text));
    else if (m_errors.size() == m_maxErrors)
        m_errors.append(QStringLiteral("Error: too many error messages - ignoring further errors"));
}

void YJsonReader::addWarning(int flag, const QString& text)
{
    if (!(m_flags & flag)) {
        addError(text);
        return;
    }
    if (m_warnings.size() < m_maxErrors)
        m_warnings.append(QStringLiteral("Warning: line %1, col %2 - %3")
                              .arg(QString::number(m_lineNo), QString::number(m_colNo), text));
    else if (m_warnings.size() == m_maxErrors)
        m_warnings.append(
            QStringLiteral("Error: too many warning messages - ignoring further warnings"));
}

int YJsonReader::numBytes()
{
    const int ch = peekChar();
    return ch < 0 ? 0 : UTF8NumBytes(static_cast<char>(ch));
}

int YJsonReader::UTF8NumBytes(char ch)
{
    int count = 0;
    unsigned char bits = static_cast<unsigned char>(ch);
    while (bits & 0x80) {
        ++count;
        bits = static_cast<unsigned char>(bits << 1);
    }
    return count > 6 ? -1 : count;
}
