#include "json_element.h"

#include "yexception.h"

#include <cjson/cJSON.h>

#include <cstdlib>

namespace {

// The element numbers are part of the interface; this cJSON keeps its node types as bits.
int elementType(const cJSON* node)
{
    switch (node->type & 0xFF) {
    case cJSON_False:
        return 0;
    case cJSON_True:
        return 1;
    case cJSON_NULL:
        return 2;
    case cJSON_Number:
        return 3;
    case cJSON_String:
        return 4;
    case cJSON_Array:
        return 5;
    case cJSON_Object:
        return 6;
    default:
        return -1;
    }
}

// A number as an int with its fraction cut off, the way an integral member is stored.
int truncated(const QVariant& value)
{
    const double d = value.toDouble();
    if (!(d == d))
        return 0;
    if (d >= 2147483647.0)
        return 2147483647;
    if (d <= -2147483648.0)
        return -2147483647 - 1;
    return static_cast<int>(d);
}

const char* const nullPointer = "NULL json pointer!";
const char* const notArray = "Element is not of type array!";

} // namespace

// ---------------------------------------------------------------------------------------------
// YJSONElement

YJSONElement::YJSONElement(cJSON* node)
    : _node(node)
    , _type(-1)
    , _iterator(nullptr)
{
    if (!node)
        return;
    if (node->string)
        _name = QString::fromLocal8Bit(node->string);
    _type = elementType(node);
    switch (_type) {
    case 0:
        _value = QVariant(false);
        break;
    case 1:
        _value = QVariant(true);
        break;
    case 3:
        _value = QVariant(node->valuedouble);
        break;
    case 4:
        _value = QVariant(QString::fromLocal8Bit(node->valuestring));
        break;
    default:
        break;
    }
}

YJSONElement::YJSONElement(const QString& name, const QVariant& value, int type)
    : _node(nullptr)
    , _type(type)
    , _name(name)
    , _value(value)
    , _iterator(nullptr)
{
}

YJSONElement::~YJSONElement() = default;

YJSONElement YJSONElement::createArray(const QString& name)
{
    YJSONElement element(cJSON_CreateArray());
    element._name = name;
    return element;
}

YJSONElement YJSONElement::createObject(const QString& name)
{
    YJSONElement element(cJSON_CreateObject());
    element._name = name;
    return element;
}

void YJSONElement::checkNode() const
{
    if (!_node)
        throw YException(nullPointer);
}

YJSONElement YJSONElement::namedObject(const QString& name) const
{
    checkNode();
    cJSON* member = cJSON_GetObjectItem(_node, name.toLocal8Bit().constData());
    if (!member)
        throw YException(QStringLiteral("Could not find named object '%1'").arg(name));
    return YJSONElement(member);
}

bool YJSONElement::hasObject(const QString& name) const
{
    checkNode();
    return cJSON_GetObjectItem(_node, name.toLocal8Bit().constData()) != nullptr;
}

YJSONElement YJSONElement::arrayItem(int index) const
{
    checkNode();
    if (elementType(_node) != 5)
        throw YException(notArray);
    if (index >= cJSON_GetArraySize(_node))
        throw YException("JSON Index out of bounds!");
    return YJSONElement(cJSON_GetArrayItem(_node, index));
}

int YJSONElement::arraySize() const
{
    checkNode();
    if (elementType(_node) != 5)
        throw YException(notArray);
    return cJSON_GetArraySize(_node);
}

bool YJSONElement::isNull() const
{
    checkNode();
    return elementType(_node) == 2;
}

bool YJSONElement::isBool() const
{
    checkNode();
    const int type = elementType(_node);
    return type == 0 || type == 1;
}

bool YJSONElement::isEmpty() const
{
    checkNode();
    return _node->child == nullptr;
}

// kept: of-two-blanks — the type messages carry two blanks in "of  type".
bool YJSONElement::toBool() const
{
    checkNode();
    const int type = elementType(_node);
    if (type != 0 && type != 1)
        throw YException("Element is not of  type bool");
    return type == 1;
}

int YJSONElement::toInt() const
{
    checkNode();
    if (elementType(_node) != 3)
        throw YException("Element is not of  type number");
    return _node->valueint;
}

double YJSONElement::toDouble() const
{
    checkNode();
    if (elementType(_node) != 3)
        throw YException("Element is not of  type number");
    return _node->valuedouble;
}

QString YJSONElement::toString() const
{
    checkNode();
    if (elementType(_node) != 4)
        throw YException(QStringLiteral("Element %1 is not of  type string").arg(objectName()));
    return QString::fromLocal8Bit(_node->valuestring);
}

QString YJSONElement::objectName() const
{
    checkNode();
    return _node->string ? QString::fromLocal8Bit(_node->string) : QString();
}

QString YJSONElement::format(bool formatted) const
{
    checkNode();
    char* text = formatted ? cJSON_Print(_node) : cJSON_PrintUnformatted(_node);
    if (!text)
        return QString();
    const QString result = QString::fromLocal8Bit(text);
    free(text);
    return result;
}

YJSONElement YJSONElement::firstChild()
{
    checkNode();
    _iterator = _node->child;
    return YJSONElement(_iterator);
}

YJSONElement YJSONElement::nextChild()
{
    checkNode();
    if (!_iterator)
        return YJSONElement(nullptr);
    _iterator = _iterator->next;
    return YJSONElement(_iterator);
}

YJSONElement& YJSONElement::append(const QString& name, const QString& value)
{
    checkNode();
    cJSON_AddItemToObject(
        _node, name.toLocal8Bit().constData(), cJSON_CreateString(value.toLocal8Bit().constData()));
    return *this;
}

YJSONElement& YJSONElement::append(const QString& name, const QByteArray& value)
{
    return append(name, QString::fromLocal8Bit(value));
}

YJSONElement& YJSONElement::append(const QString& name, const char* value)
{
    return append(name, QString::fromLocal8Bit(value));
}

YJSONElement& YJSONElement::append(const QString& name, int value)
{
    checkNode();
    cJSON_AddItemToObject(_node, name.toLocal8Bit().constData(), cJSON_CreateNumber(value));
    return *this;
}

YJSONElement& YJSONElement::append(const QString& name, bool value)
{
    checkNode();
    cJSON_AddItemToObject(
        _node, name.toLocal8Bit().constData(), value ? cJSON_CreateTrue() : cJSON_CreateFalse());
    return *this;
}

YJSONElement& YJSONElement::appendNull(const QString& name)
{
    checkNode();
    if (elementType(_node) == 5)
        cJSON_AddItemToArray(_node, cJSON_CreateNull());
    else
        cJSON_AddItemToObject(_node, name.toLocal8Bit().constData(), cJSON_CreateNull());
    return *this;
}

// The node for an element about to be added: scalars are made anew, containers bring their own.
cJSON* YJSONElement::createNode(const YJSONElement& element, bool integral) const
{
    switch (element._type) {
    case 0:
        return cJSON_CreateFalse();
    case 1:
        return cJSON_CreateTrue();
    case 2:
        return cJSON_CreateNull();
    case 3:
        // kept: append-truncates — a member number goes through toInt, an array item keeps its
        // fraction.
        return cJSON_CreateNumber(integral ? truncated(element._value) : element._value.toDouble());
    case 4:
        return cJSON_CreateString(element._value.toString().toLocal8Bit().constData());
    case 5:
    case 6:
        if (!element._node)
            throw YException(nullPointer);
        // A node that already hangs in a tree, or this very node, would be owned twice.
        if (element._node == _node || element._node->next || element._node->prev)
            throw YException(
                QStringLiteral("Element '%1' already belongs to a tree").arg(element._name));
        return element._node;
    default:
        throw YException(QStringLiteral("Element '%1' has no JSON type (received %2)")
                             .arg(element._name)
                             .arg(element._type));
    }
}

YJSONElement& YJSONElement::append(const YJSONElement& element)
{
    checkNode();
    cJSON* node = createNode(element, true);
    cJSON_AddItemToObject(_node, element._name.toLocal8Bit().constData(), node);
    return *this;
}

YJSONElement& YJSONElement::arrayAppend(const QString& value)
{
    checkNode();
    cJSON_AddItemToArray(_node, cJSON_CreateString(value.toLocal8Bit().constData()));
    return *this;
}

YJSONElement& YJSONElement::arrayAppend(int value)
{
    checkNode();
    cJSON_AddItemToArray(_node, cJSON_CreateNumber(value));
    return *this;
}

YJSONElement& YJSONElement::arrayAppend(double value)
{
    checkNode();
    cJSON_AddItemToArray(_node, cJSON_CreateNumber(value));
    return *this;
}

YJSONElement& YJSONElement::arrayAppend(const YJSONElement& element)
{
    checkNode();
    cJSON_AddItemToArray(_node, createNode(element, false));
    return *this;
}

YJSONElement& YJSONElement::arrayAppendNull()
{
    checkNode();
    if (elementType(_node) != 5)
        throw YException("Can not array append NULL to non array element");
    cJSON_AddItemToArray(_node, cJSON_CreateNull());
    return *this;
}

// ---------------------------------------------------------------------------------------------
// YJSONRoot

YJSONRoot::YJSONRoot(const QString& text)
    : _root(cJSON_Parse(text.toLocal8Bit().constData()))
{
}

YJSONRoot::YJSONRoot(const QByteArray& text)
    : _root(cJSON_Parse(text.constData()))
{
}

YJSONRoot::YJSONRoot(int type)
    : _root(type == 5 ? cJSON_CreateArray() : cJSON_CreateObject())
{
}

YJSONRoot::~YJSONRoot()
{
    destruct();
}

void YJSONRoot::operator=(const QString& text)
{
    destruct();
    _root = cJSON_Parse(text.toLocal8Bit().constData());
}

void YJSONRoot::operator=(const QByteArray& text)
{
    destruct();
    _root = cJSON_Parse(text.constData());
}

void YJSONRoot::clear()
{
    const bool array = _root && elementType(_root) == 5;
    destruct();
    _root = array ? cJSON_CreateArray() : cJSON_CreateObject();
}

YJSONElement YJSONRoot::toElement() const
{
    if (!_root)
        throw YException(nullPointer);
    return YJSONElement(_root);
}

void YJSONRoot::destruct()
{
    if (_root)
        cJSON_Delete(_root);
    _root = nullptr;
}
