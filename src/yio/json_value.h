#ifndef YOVOLIB_JSON_VALUE_H
#define YOVOLIB_JSON_VALUE_H

#include "yovolib_export.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

/// The kinds of a YJsonValue. Kinds 10 to 13 are names only: they have no storage of their own.
enum YJsonType : int
{
    YJSONTYPE_EMPTY = 0,
    YJSONTYPE_NULL,
    YJSONTYPE_INT,
    YJSONTYPE_UINT,
    YJSONTYPE_DOUBLE,
    YJSONTYPE_STRING,
    YJSONTYPE_CSTRING,
    YJSONTYPE_BOOL,
    YJSONTYPE_ARRAY,
    YJSONTYPE_OBJECT,
    YJSONTYPE_INT32,
    YJSONTYPE_INT64,
    YJSONTYPE_UINT32,
    YJSONTYPE_UINT64
};

/// How deep the JSON classes follow nested arrays and objects. Reading, writing, comparing and
/// printing a tree are recursive: the bound keeps a hostile or broken text from exhausting the
/// stack, and it is far beyond what configuration or messages ever need.
enum
{
    YJSON_MAX_DEPTH = 512
};

class YJsonValue;

/// The shared record behind one or more YJsonValue handles.
class YOVOLIB_EXPORT YJsonRefData
{
public:
    YJsonRefData();
    virtual ~YJsonRefData();

    // Records come and go by the thousand while trees are read and dropped: a few are kept per
    // thread for reuse. Records of derived classes go to the general heap.
    static void* operator new(size_t size);
    static void operator delete(void* memory, size_t size);

    int getRefCount() const { return m_refCount; }

    // Not a union: members of an earlier kind may keep stale content.
    struct Value
    {
        int m_int = 0;
        unsigned int m_uint = 0;
        double m_double = 0;
        const char* m_cstring = nullptr;
        bool m_bool = false;
        QString m_string;
        QVector<YJsonValue> m_array;
        QHash<QString, YJsonValue> m_map;
    };

    int m_refCount;
    YJsonType m_type;
    Value m_value;
    int m_commentPos; // 1 before the value, 2 after it, 3 inline
    QStringList m_comments; // each with its markers and line end
    int m_lineNo; // -1 when unknown
};

/// A JSON value with comments and a source line: a handle on a reference-counted record, copied
/// on write. Handles that share a record must stay on one thread.
class YOVOLIB_EXPORT YJsonValue
{
public:
    YJsonValue();
    YJsonValue(YJsonType type);
    YJsonValue(int value);
    YJsonValue(unsigned int value);
    YJsonValue(bool value);
    YJsonValue(double value);
    YJsonValue(const char* value);
    YJsonValue(const QString& value);
    YJsonValue(const YJsonValue& other);
    virtual ~YJsonValue();

    YJsonValue& operator=(const YJsonValue& other);
    YJsonValue& operator=(int value);
    YJsonValue& operator=(unsigned int value);
    YJsonValue& operator=(bool value);
    YJsonValue& operator=(double value);
    YJsonValue& operator=(const char* value);
    YJsonValue& operator=(const QString& value);

    YJsonType getType() const { return m_refData ? m_refData->m_type : YJSONTYPE_EMPTY; }
    bool isNull() const { return getType() == YJSONTYPE_NULL; }
    bool isEmpty() const { return getType() == YJSONTYPE_EMPTY; }
    bool isInt() const;
    bool isUInt() const;
    bool isBool() const { return getType() == YJSONTYPE_BOOL; }
    bool isDouble() const { return getType() == YJSONTYPE_DOUBLE; }
    bool isString() const { return getType() == YJSONTYPE_STRING; }
    bool isCString() const { return getType() == YJSONTYPE_CSTRING; }
    bool isArray() const { return getType() == YJSONTYPE_ARRAY; }
    bool isObject() const { return getType() == YJSONTYPE_OBJECT; }

    /// A BOOL is accepted but doesn't give its truth value: use asUInt or asBool for that.
    int asInt() const;
    unsigned int asUInt() const;
    double asDouble() const;
    bool asBool() const;
    QString asString() const;
    const QHash<QString, YJsonValue>* asMap() const;
    const QVector<YJsonValue>* asArray() const;

    int size() const;
    /// True on any value that isn't a container, as size() -1 reads as the largest index.
    bool hasMember(unsigned int index) const;
    bool hasMember(const QString& key) const;
    QStringList getMemberNames() const;

    YJsonValue& append(const YJsonValue& value);
    YJsonValue& append(int value);
    YJsonValue& append(bool value);
    YJsonValue& append(unsigned int value);
    YJsonValue& append(double value);
    YJsonValue& append(const char* value);
    YJsonValue& append(const QString& value);

    bool cat(const QString& text);
    bool cat(const char* text);
    bool remove(int index);
    bool remove(const QString& key);
    void clear();

    YJsonValue& item(unsigned int index);
    YJsonValue& item(const QString& key);
    YJsonValue& operator[](unsigned int index) { return item(index); }
    YJsonValue& operator[](const QString& key) { return item(key); }
    YJsonValue& operator[](const char* key) { return item(QString::fromLatin1(key)); }
    YJsonValue& operator[](int index) { return item(static_cast<unsigned int>(index)); }
    YJsonValue itemAt(unsigned int index) const;
    YJsonValue itemAt(const QString& key) const;
    YJsonValue get(const QString& key, const YJsonValue& defaultValue) const;

    int addComment(const QString& text, int position);
    int addComment(const QStringList& lines, int position);
    QString getComment(int index) const;
    int getCommentCount() const;
    int getCommentPos() const;
    const QStringList& getCommentArray() const;
    void clearComments();

    int getLineNo() const;
    void setLineNo(int lineNo)
    {
        COW();
        m_refData->m_lineNo = lineNo;
    }

    /// Compares by meaning: numbers across kinds, arrays as multisets, comments ignored. Trees
    /// nested deeper than YJSON_MAX_DEPTH raise YException.
    bool isSameAs(const YJsonValue& other) const;

    static QString typeToString(YJsonType type);
    QString toString(int indent = 0) const;
    QString dump(bool deep = false, int indent = 0) const;
    QString getInfo() const;

    void setType(YJsonType type);
    YJsonRefData* getRefData() const { return m_refData; }

protected:
    void init(YJsonType type);
    void ref(const YJsonValue& other);
    void unRef();
    void unShare();
    void deepCopy(const YJsonValue& other);
    // A record held by this handle alone is the common case, and is settled here.
    void COW()
    {
        if (!m_refData || m_refData->m_refCount != 1)
            unShare();
    }
    void setRefData(YJsonRefData* data);

    virtual YJsonRefData* cloneRefData(const YJsonRefData* other) const;
    virtual YJsonRefData* createRefData() const;

    const YJsonValue* find(unsigned int index) const;
    const YJsonValue* find(const QString& key) const;

private:
    // The reader stores members in place, without the default value that item(key) would make
    // and throw away for each of them.
    friend class YJsonReader;

    void allocExclusive();
    bool isSameAs(const YJsonValue& other, int depth) const;
    QString toString(int indent, int depth) const;
    QString dump(bool deep, int indent, int depth) const;
    static void release(YJsonRefData* data);

    YJsonRefData* m_refData;
};

// A handle is a pointer behind its virtual table: containers may move it as bytes, which spares
// a reference count up and down per element each time an array grows.
Q_DECLARE_TYPEINFO(YJsonValue, Q_MOVABLE_TYPE);

#endif // YOVOLIB_JSON_VALUE_H
