#ifndef YOVOLIB_JSON_WRITER_H
#define YOVOLIB_JSON_WRITER_H

#include "json_value.h"
#include "yovolib_export.h"

#include <QString>

#include <memory>

/// Style flags of YJsonWriter.
enum
{
    YJSONWRITER_NONE = 0,
    YJSONWRITER_STYLED = 1,
    YJSONWRITER_WRITE_COMMENTS = 2,
    YJSONWRITER_COMMENTS_BEFORE = 4,
    YJSONWRITER_COMMENTS_AFTER = 8,
    YJSONWRITER_SPLIT_STRING = 16
};

/// Prints a YJsonValue tree into a QString, pretty-printed and with its comments if asked.
/// Characters are narrowed to Latin-1 and doubles keep six significant digits. A tree nested
/// deeper than YJSON_MAX_DEPTH stops with an "ERROR: " line at the point where it went too deep.
class YOVOLIB_EXPORT YJsonWriter
{
public:
    YJsonWriter(int style = YJSONWRITER_STYLED, int indent = 0, int step = 3);
    // A copy takes the settings and the state, not the scratch space of the text.
    YJsonWriter(const YJsonWriter& other);
    YJsonWriter& operator=(const YJsonWriter& other);
    virtual ~YJsonWriter();

    /// Appends the text of the value to 'text'; it isn't cleared first.
    void write(const YJsonValue& value, QString& text);

protected:
    int doWrite(const YJsonValue& value, const QString* key, bool comma);
    int writeComment(const YJsonValue& value, bool indent);
    int writeIndent();
    int writeIndent(int count);
    int writeStringValue(const QString& text);
    int writeChar(char ch);
    int writeString(const QString& text);
    int writePrimitiveValue(const YJsonValue& value);
    int writeInt(int value);
    int writeUInt(unsigned int value);
    int writeBool(bool value);
    int writeDouble(double value);
    int writeNull();
    int writeKey(const QString& key);
    int writeEmpty();
    int writeError(const QString& text);

    int m_style;
    int m_indent;
    int m_step;
    int m_level;
    QString* m_output;
    int m_outputType;

private:
    // Hands what was gathered to the output at once, unless write() is under way.
    void flush()
    {
        if (!m_buffering)
            flushNow();
    }
    void flushNow();
    // Room for count more bytes behind the used ones; the caller advances m_used.
    char* room(size_t count)
    {
        if (m_capacity - m_used < count)
            grow(count);
        return m_bytes.get() + m_used;
    }
    void grow(size_t count);
    void put(char ch) { *room(1) = ch, ++m_used; }

    // Every character is narrowed to Latin-1 on its way out, so the text is gathered as bytes
    // and widened into the output once, at the end of write(). The protected operations called
    // on their own write through at once. m_used counts the bytes in use of m_capacity.
    std::unique_ptr<char[]> m_bytes;
    size_t m_capacity = 0;
    size_t m_used = 0;
    bool m_buffering = false;
};

#endif // YOVOLIB_JSON_WRITER_H
