#ifndef YOVOLIB_JSON_ELEMENT_H
#define YOVOLIB_JSON_ELEMENT_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

struct cJSON;

/// A view of one node of a parsed tree, or a detached description of a value to be added.
/// Element types: 0 false, 1 true, 2 null, 3 number, 4 string, 5 array, 6 object; -1 for an
/// element without a node. Elements are valid while the tree that holds their node lives.
class YOVOLIB_EXPORT YJSONElement
{
public:
    YJSONElement(cJSON* node);
    YJSONElement(const QString& name, const QVariant& value, int type);
    virtual ~YJSONElement();

    /// A new node, not yet in a tree: it must be appended, or it leaks.
    static YJSONElement createArray(const QString& name);
    static YJSONElement createObject(const QString& name);

    bool isOk() const { return _node != nullptr; }

    void setName(const QString& name) { _name = name; }
    const QString& getName() const { return _name; }
    void setType(int type) { _type = type; }
    int getType() const { return _type; }
    void setValue(const QVariant& value) { _value = value; }
    const QVariant& getValue() const { return _value; }

    /// Member lookup ignores case.
    YJSONElement namedObject(const QString& name) const;
    bool hasObject(const QString& name) const;
    YJSONElement arrayItem(int index) const;
    int arraySize() const;
    bool isNull() const;
    bool isBool() const;
    bool isEmpty() const;
    bool toBool() const;
    int toInt() const;
    double toDouble() const;
    QString toString() const;
    QString objectName() const;
    /// With tabs and line ends when 'formatted', without any blank otherwise.
    QString format(bool formatted) const;

    /// Iteration over the children belongs to this element object: firstChild, then nextChild
    /// until the result isn't ok.
    YJSONElement firstChild();
    YJSONElement nextChild();

    YJSONElement& append(const QString& name, const QString& value);
    YJSONElement& append(const QString& name, const QByteArray& value);
    YJSONElement& append(const QString& name, const char* value);
    YJSONElement& append(const QString& name, int value);
    YJSONElement& append(const QString& name, bool value);
    YJSONElement& appendNull(const QString& name);
    /// Numbers lose their fraction here, unlike arrayAppend(element).
    YJSONElement& append(const YJSONElement& element);
    YJSONElement& arrayAppend(const QString& value);
    YJSONElement& arrayAppend(int value);
    YJSONElement& arrayAppend(double value);
    YJSONElement& arrayAppend(const YJSONElement& element);
    YJSONElement& arrayAppendNull();

private:
    void checkNode() const;
    cJSON* createNode(const YJSONElement& element, bool integral) const;

    cJSON* _node;
    int _type;
    QString _name;
    QVariant _value;
    cJSON* _iterator;
};

/// Owns a parsed or empty tree. A failed parse leaves no tree, and isOk() false.
class YOVOLIB_EXPORT YJSONRoot
{
public:
    explicit YJSONRoot(const QString& text);
    explicit YJSONRoot(const QByteArray& text);
    /// An empty array for type 5, an empty object otherwise.
    explicit YJSONRoot(int type);
    virtual ~YJSONRoot();

    YJSONRoot(const YJSONRoot&) = delete;
    YJSONRoot& operator=(const YJSONRoot&) = delete;

    void operator=(const QString& text);
    void operator=(const QByteArray& text);

    bool isOk() const { return _root != nullptr; }
    /// Frees the tree and starts an empty one of the same kind (an object if there was none).
    void clear();
    YJSONElement toElement() const;
    QString errorString() const { return _errorString; }

protected:
    void destruct();

private:
    cJSON* _root;
    QString _errorString;
};

#endif // YOVOLIB_JSON_ELEMENT_H
