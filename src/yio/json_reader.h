#ifndef YOVOLIB_JSON_READER_H
#define YOVOLIB_JSON_READER_H

#include "json_value.h"
#include "yovolib_export.h"

#include <QString>
#include <QStringList>

/// Flags of YJsonReader. A tolerated oddity is a warning when its flag is set, an error otherwise.
enum
{
    YJSONREADER_ALLOW_COMMENTS = 1,
    YJSONREADER_STORE_COMMENTS = 2,
    YJSONREADER_CASE = 4,
    YJSONREADER_MISSING = 8,
    YJSONREADER_MULTISTRING = 16,
    YJSONREADER_COMMENTS_AFTER = 32,
    YJSONREADER_TOLERANT
    = YJSONREADER_ALLOW_COMMENTS | YJSONREADER_CASE | YJSONREADER_MISSING | YJSONREADER_MULTISTRING,
    YJSONREADER_STRICT = 0
};

/// A tolerant reader of JSON text with comments. It never stops at the first mistake: errors and
/// warnings are gathered with their line and column, and the tree holds what could be read.
/// Input is Latin-1: a character beyond it reads as 0. Arrays and objects nested deeper than
/// YJSON_MAX_DEPTH are reported as an error and passed over, a null standing in their place.
class YOVOLIB_EXPORT YJsonReader
{
public:
    YJsonReader(int flags = YJSONREADER_TOLERANT, int maxErrors = 30);
    virtual ~YJsonReader();

    /// Reads the text into root (only checks it when root is null); the result is the number of
    /// error lines, 0 meaning success.
    int parse(const QString& text, YJsonValue* root);

    const QStringList& getErrors() const { return m_errors; }
    const QStringList& getWarnings() const { return m_warnings; }
    int getErrorCount() const { return m_errors.size(); }
    int getWarningCount() const { return m_warnings.size(); }

protected:
    int parse(YJsonValue* root);
    int getStart();
    int doRead(YJsonValue& parent);
    int readChar();
    int getChar();
    int peekChar();
    int skipWhiteSpace();
    int skipComment();
    int readString(YJsonValue& value);
    int readToken(int ch, QString& token);
    int readValue(int ch, YJsonValue& value);
    int readUnicode(long& hex);
    int appendUnicodeSequence(QString& text, int hex);
    void storeValue(int ch, const QString& key, YJsonValue& value, YJsonValue& parent);
    void storeComment(const YJsonValue* parent);
    void addError(const QString& text);
    void addWarning(int flag, const QString& text);
    int numBytes();
    static int UTF8NumBytes(char ch);

    int m_flags;
    int m_maxErrors;
    int m_lineNo;
    int m_colNo;
    int m_level;
    YJsonValue* m_current;
    YJsonValue* m_lastStored;
    YJsonValue* m_next;
    QString m_comment;
    int m_commentLine;
    QStringList m_errors;
    QStringList m_warnings;
    int m_inPos;
    int m_inType;
    const QString* m_inObject;
    int m_peekChar;

private:
    // Texts read during one parse, shared by the values that repeat them.
    struct StringCache;

    int skipTooDeep();

    StringCache* m_strings = nullptr;
};

#endif // YOVOLIB_JSON_READER_H
