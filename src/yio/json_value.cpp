#include "json_value.h"

#include "yassert.h"
#include "yexception.h"

#include <limits>
#include <vector>

namespace {

const char* const typeNames[] = {"YJSONTYPE_EMPTY", "YJSONTYPE_NULL", "YJSONTYPE_INT",
    "YJSONTYPE_UINT", "YJSONTYPE_DOUBLE", "YJSONTYPE_STRING", "YJSONTYPE_CSTRING", "YJSONTYPE_BOOL",
    "YJSONTYPE_ARRAY", "YJSONTYPE_OBJECT", "YJSONTYPE_INT32", "YJSONTYPE_INT64", "YJSONTYPE_UINT32",
    "YJSONTYPE_UINT64"};

bool isNumberType(YJsonType type)
{
    return type == YJSONTYPE_INT || type == YJSONTYPE_UINT || type == YJSONTYPE_DOUBLE;
}

void checkDepth(int depth, const char* operation)
{
    if (depth > YJSON_MAX_DEPTH)
        throw YException(QStringLiteral("%1 - nesting deeper than %2 levels is not supported")
                             .arg(QLatin1String(operation))
                             .arg(int(YJSON_MAX_DEPTH)));
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define YJSON_RECORD_CACHE 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define YJSON_RECORD_CACHE 0
#endif
#endif
#ifndef YJSON_RECORD_CACHE
#define YJSON_RECORD_CACHE 1
#endif

#if YJSON_RECORD_CACHE
// Freed records of this thread, linked through their first bytes. A record may die on another
// thread than the one that made it: it then simply joins that thread's list. The lists are
// bounded, and emptied when their thread ends; a record freed after that, by a static value
// that dies last, goes straight back to the heap. Plain data, so that reaching it costs no
// guard: the emptying is arranged when the first record is kept.
struct RecordCache
{
    enum
    {
        LIMIT = 1024
    };

    void* head;
    int count;
    bool armed;
    bool gone;
};

thread_local RecordCache recordCache = {nullptr, 0, false, false};

struct RecordCacheCleaner
{
    ~RecordCacheCleaner()
    {
        RecordCache& cache = recordCache;
        cache.gone = true;
        while (cache.head) {
            void* next = *static_cast<void**>(cache.head);
            ::operator delete(cache.head);
            cache.head = next;
        }
        cache.count = 0;
    }
};

void armRecordCache(RecordCache& cache)
{
    static thread_local RecordCacheCleaner cleaner;
    (void)cleaner;
    cache.armed = true;
}
#endif

} // namespace

void* YJsonRefData::operator new(size_t size)
{
#if YJSON_RECORD_CACHE
    RecordCache& cache = recordCache;
    if (cache.head && size == sizeof(YJsonRefData)) {
        void* memory = cache.head;
        cache.head = *static_cast<void**>(memory);
        --cache.count;
        return memory;
    }
#endif
    return ::operator new(size);
}

void YJsonRefData::operator delete(void* memory, size_t size)
{
#if YJSON_RECORD_CACHE
    RecordCache& cache = recordCache;
    if (memory && size == sizeof(YJsonRefData) && cache.count < RecordCache::LIMIT && !cache.gone) {
        if (!cache.armed)
            armRecordCache(cache);
        *static_cast<void**>(memory) = cache.head;
        cache.head = memory;
        ++cache.count;
        return;
    }
#else
    Q_UNUSED(size);
#endif
    ::operator delete(memory);
}

YJsonRefData::YJsonRefData()
    : m_refCount(1)
    , m_type(YJSONTYPE_EMPTY)
    , m_commentPos(0)
    , m_lineNo(-1)
{
}

YJsonRefData::~YJsonRefData() = default;

// ---------------------------------------------------------------------------------------------
// Construction and sharing

YJsonValue::YJsonValue()
    : m_refData(nullptr)
{
    init(YJSONTYPE_NULL);
}

YJsonValue::YJsonValue(YJsonType type)
    : m_refData(nullptr)
{
    init(type);
}

YJsonValue::YJsonValue(int value)
    : m_refData(nullptr)
{
    init(YJSONTYPE_INT);
    m_refData->m_value.m_int = value;
}

YJsonValue::YJsonValue(unsigned int value)
    : m_refData(nullptr)
{
    init(YJSONTYPE_UINT);
    m_refData->m_value.m_uint = value;
}

YJsonValue::YJsonValue(bool value)
    : m_refData(nullptr)
{
    init(YJSONTYPE_BOOL);
    m_refData->m_value.m_bool = value;
}

YJsonValue::YJsonValue(double value)
    : m_refData(nullptr)
{
    init(YJSONTYPE_DOUBLE);
    m_refData->m_value.m_double = value;
}

YJsonValue::YJsonValue(const char* value)
    : m_refData(nullptr)
{
    init(YJSONTYPE_STRING);
    m_refData->m_value.m_string = QString::fromLatin1(value);
}

YJsonValue::YJsonValue(const QString& value)
    : m_refData(nullptr)
{
    init(YJSONTYPE_STRING);
    m_refData->m_value.m_string = value;
}

YJsonValue::YJsonValue(const YJsonValue& other)
    : m_refData(nullptr)
{
    ref(other);
}

YJsonValue::~YJsonValue()
{
    if (m_refData)
        unRef();
}

YJsonValue& YJsonValue::operator=(const YJsonValue& other)
{
    ref(other);
    return *this;
}

YJsonValue& YJsonValue::operator=(int value)
{
    setType(YJSONTYPE_INT);
    m_refData->m_value.m_int = value;
    return *this;
}

YJsonValue& YJsonValue::operator=(unsigned int value)
{
    setType(YJSONTYPE_UINT);
    m_refData->m_value.m_uint = value;
    return *this;
}

YJsonValue& YJsonValue::operator=(bool value)
{
    setType(YJSONTYPE_BOOL);
    m_refData->m_value.m_bool = value;
    return *this;
}

YJsonValue& YJsonValue::operator=(double value)
{
    setType(YJSONTYPE_DOUBLE);
    m_refData->m_value.m_double = value;
    return *this;
}

YJsonValue& YJsonValue::operator=(const char* value)
{
    setType(YJSONTYPE_CSTRING); // ends as STRING; the pointer stays beside the copy
    m_refData->m_value.m_string = QString::fromLatin1(value);
    m_refData->m_value.m_cstring = value;
    return *this;
}

YJsonValue& YJsonValue::operator=(const QString& value)
{
    setType(YJSONTYPE_STRING);
    m_refData->m_value.m_string = value;
    return *this;
}

void YJsonValue::init(YJsonType type)
{
    unRef();
    m_refData = createRefData();
    m_refData->m_type = type;
    m_refData->m_commentPos = 1;
}

void YJsonValue::ref(const YJsonValue& other)
{
    if (m_refData == other.m_refData)
        return;
    unRef();
    if (other.m_refData) {
        m_refData = other.m_refData;
        ++m_refData->m_refCount;
    }
}

void YJsonValue::unRef()
{
    if (!m_refData)
        return;
    if (m_refData->m_refCount < 1) {
        const QByteArray message
            = QStringLiteral("invalid ref data count: %1").arg(m_refData->m_refCount).toLatin1();
        failedAssertion(
            __FILE__, __LINE__, "(m_refData->m_refCount > 0)", message.constData(), YDebug::STDERR);
    }
    YJsonRefData* data = m_refData;
    m_refData = nullptr;
    if (--data->m_refCount == 0)
        release(data);
}

// A tree may be far deeper than the stack allows: the records that die with this one are
// collected in a list rather than by nested destructors.
void YJsonValue::release(YJsonRefData* data)
{
    auto isLeaf = [](const YJsonRefData* d) {
        return d->m_value.m_array.isEmpty() && d->m_value.m_map.isEmpty();
    };
    if (isLeaf(data)) {
        delete data;
        return;
    }
    std::vector<YJsonRefData*> pending(1, data);
    while (!pending.empty()) {
        YJsonRefData* current = pending.back();
        pending.pop_back();
        auto take = [&pending, &isLeaf](YJsonValue& child) {
            YJsonRefData* childData = child.m_refData;
            if (!childData)
                return;
            child.m_refData = nullptr;
            if (--childData->m_refCount == 0) {
                if (isLeaf(childData))
                    delete childData;
                else
                    pending.push_back(childData);
            }
        };
        // A container still shared with another record keeps its elements alive anyway.
        QVector<YJsonValue>& array = current->m_value.m_array;
        if (!array.isEmpty() && array.isDetached()) {
            for (YJsonValue& child : array)
                take(child);
        }
        QHash<QString, YJsonValue>& map = current->m_value.m_map;
        if (!map.isEmpty() && map.isDetached()) {
            for (auto it = map.begin(); it != map.end(); ++it)
                take(it.value());
        }
        delete current;
    }
}

void YJsonValue::unShare()
{
    allocExclusive();
}

void YJsonValue::allocExclusive()
{
    if (!m_refData) {
        m_refData = createRefData();
    } else if (m_refData->m_refCount > 1) {
        const YJsonRefData* old = m_refData;
        YJsonRefData* copy = cloneRefData(old);
        unRef();
        m_refData = copy;
    }
    Y_ASSERT_X(m_refData && m_refData->getRefCount() == 1, "wxObject::AllocExclusive() failed.");
}

void YJsonValue::deepCopy(const YJsonValue& other)
{
    unRef();
    if (other.m_refData)
        m_refData = cloneRefData(other.m_refData);
}

void YJsonValue::setRefData(YJsonRefData* data)
{
    unRef();
    m_refData = data;
}

YJsonRefData* YJsonValue::cloneRefData(const YJsonRefData* otherData) const
{
    Y_ASSERT(otherData);
    YJsonRefData* data = createRefData();
    data->m_type = otherData->m_type;
    data->m_value.m_int = otherData->m_value.m_int;
    data->m_value.m_uint = otherData->m_value.m_uint;
    data->m_value.m_double = otherData->m_value.m_double;
    data->m_value.m_cstring = otherData->m_value.m_cstring;
    data->m_value.m_bool = otherData->m_value.m_bool;
    data->m_value.m_string = otherData->m_value.m_string;
    data->m_value.m_array = otherData->m_value.m_array;
    data->m_value.m_map = otherData->m_value.m_map;
    data->m_commentPos = otherData->m_commentPos;
    data->m_comments = otherData->m_comments;
    data->m_lineNo = otherData->m_lineNo;
    return data;
}

YJsonRefData* YJsonValue::createRefData() const
{
    return new YJsonRefData();
}

void YJsonValue::setType(YJsonType type)
{
    Y_ASSERT((type >= YJSONTYPE_EMPTY) && (type <= YJSONTYPE_OBJECT));
    COW();
    YJsonRefData* data = m_refData;
    if (data->m_type == type)
        return;
    switch (data->m_type) {
    case YJSONTYPE_STRING:
    case YJSONTYPE_CSTRING:
        data->m_value.m_string.clear();
        break;
    case YJSONTYPE_ARRAY: {
        QVector<YJsonValue> old;
        old.swap(data->m_value.m_array);
        // Dropped through a handle of its own, so a deep old tree goes the iterative way.
        YJsonRefData* holder = createRefData();
        holder->m_value.m_array.swap(old);
        release(holder);
        break;
    }
    case YJSONTYPE_OBJECT: {
        YJsonRefData* holder = createRefData();
        holder->m_value.m_map.swap(data->m_value.m_map);
        release(holder);
        break;
    }
    default:
        break;
    }
    data->m_type = (type == YJSONTYPE_CSTRING) ? YJSONTYPE_STRING : type;
}

// ---------------------------------------------------------------------------------------------
// Kinds and conversions

bool YJsonValue::isInt() const
{
    const YJsonType type = getType();
    return type == YJSONTYPE_INT || type == YJSONTYPE_INT64;
}

bool YJsonValue::isUInt() const
{
    const YJsonType type = getType();
    return type == YJSONTYPE_UINT || type == YJSONTYPE_UINT64;
}

int YJsonValue::asInt() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    switch (data->m_type) {
    case YJSONTYPE_BOOL:
        // kept: asint-bool — falls into the INT case and answers the int member, which a BOOL
        // never sets; callers convert a BOOL with asUInt or asBool.
        [[fallthrough]];
    case YJSONTYPE_INT:
        return data->m_value.m_int;
    case YJSONTYPE_UINT:
        throw YException("YJsonValue::asInt() - value type is unsigned");
    default:
        throw YException("YJsonValue::asInt() - the value is not compatible with INT");
    }
}

unsigned int YJsonValue::asUInt() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    switch (data->m_type) {
    case YJSONTYPE_INT:
        return static_cast<unsigned int>(data->m_value.m_int);
    case YJSONTYPE_UINT:
        return data->m_value.m_uint;
    case YJSONTYPE_BOOL:
        return data->m_value.m_bool ? 1u : 0u;
    default:
        throw YException("YJsonValue::AsUInt() - the value is not compatible with UInt");
    }
}

double YJsonValue::asDouble() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    switch (data->m_type) {
    case YJSONTYPE_INT:
        return data->m_value.m_int;
    case YJSONTYPE_UINT:
        return data->m_value.m_uint;
    case YJSONTYPE_DOUBLE:
        return data->m_value.m_double;
    default:
        throw YException("YJsonValue::asDouble() - the value is not compatible with DOUBLE");
    }
}

bool YJsonValue::asBool() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    Y_ASSERT(data->m_type == YJSONTYPE_BOOL);
    return data->m_value.m_bool;
}

QString YJsonValue::asString() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    switch (data->m_type) {
    case YJSONTYPE_EMPTY:
        return QStringLiteral("<empty>");
    case YJSONTYPE_NULL:
        return QStringLiteral("null");
    case YJSONTYPE_INT:
    case YJSONTYPE_INT32:
    case YJSONTYPE_INT64:
        return QString::number(data->m_value.m_int);
    case YJSONTYPE_UINT:
    case YJSONTYPE_UINT32:
    case YJSONTYPE_UINT64:
        return QString::number(data->m_value.m_uint);
    case YJSONTYPE_DOUBLE:
        return QString::number(data->m_value.m_double, 'g', 6);
    case YJSONTYPE_STRING:
        return data->m_value.m_string;
    case YJSONTYPE_CSTRING:
        return QString::fromLatin1(data->m_value.m_cstring);
    case YJSONTYPE_BOOL:
        return data->m_value.m_bool ? QStringLiteral("true") : QStringLiteral("false");
    default:
        throw YException("YJsonValue::asString() - the value is not compatible with STRING");
    }
}

const QHash<QString, YJsonValue>* YJsonValue::asMap() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    return data->m_type == YJSONTYPE_OBJECT ? &data->m_value.m_map : nullptr;
}

const QVector<YJsonValue>* YJsonValue::asArray() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    return data->m_type == YJSONTYPE_ARRAY ? &data->m_value.m_array : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Containers

int YJsonValue::size() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    if (data->m_type == YJSONTYPE_ARRAY)
        return data->m_value.m_array.size();
    if (data->m_type == YJSONTYPE_OBJECT)
        return data->m_value.m_map.size();
    return -1;
}

bool YJsonValue::hasMember(unsigned int index) const
{
    // kept: hasmember-scalar — -1 compared as unsigned is the largest index, so any value that
    // isn't a container "has" nearly every index.
    return index < static_cast<unsigned int>(size());
}

bool YJsonValue::hasMember(const QString& key) const
{
    return find(key) != nullptr;
}

QStringList YJsonValue::getMemberNames() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    if (data->m_type != YJSONTYPE_OBJECT)
        return QStringList();
    return data->m_value.m_map.keys();
}

YJsonValue& YJsonValue::append(const YJsonValue& value)
{
    COW();
    if (m_refData->m_type != YJSONTYPE_ARRAY)
        setType(YJSONTYPE_ARRAY);
    QVector<YJsonValue>& array = m_refData->m_value.m_array;
    array.append(value);
    return array.last();
}

YJsonValue& YJsonValue::append(int value)
{
    return append(YJsonValue(value));
}

YJsonValue& YJsonValue::append(bool value)
{
    return append(YJsonValue(value));
}

YJsonValue& YJsonValue::append(unsigned int value)
{
    return append(YJsonValue(value));
}

YJsonValue& YJsonValue::append(double value)
{
    return append(YJsonValue(value));
}

YJsonValue& YJsonValue::append(const char* value)
{
    return append(YJsonValue(value));
}

YJsonValue& YJsonValue::append(const QString& value)
{
    return append(YJsonValue(value));
}

bool YJsonValue::cat(const QString& text)
{
    Y_ASSERT(m_refData);
    if (m_refData->m_type != YJSONTYPE_STRING)
        return false;
    COW();
    m_refData->m_value.m_string.append(text);
    return true;
}

bool YJsonValue::cat(const char* text)
{
    return cat(QString::fromLatin1(text));
}

bool YJsonValue::remove(int index)
{
    Y_ASSERT(m_refData);
    if (m_refData->m_type != YJSONTYPE_ARRAY)
        return false;
    COW();
    QVector<YJsonValue>& array = m_refData->m_value.m_array;
    // Qt checks the index only in its debug builds; the check is made here in every build.
    if (index < 0 || index >= array.size())
        qt_assert_x("QVector<T>::remove", "index out of range", __FILE__, __LINE__);
    array.remove(index);
    return true;
}

bool YJsonValue::remove(const QString& key)
{
    Y_ASSERT(m_refData);
    if (m_refData->m_type != YJSONTYPE_OBJECT)
        return false;
    COW();
    return m_refData->m_value.m_map.remove(key) > 0;
}

void YJsonValue::clear()
{
    unRef();
    setType(YJSONTYPE_EMPTY);
}

YJsonValue& YJsonValue::item(unsigned int index)
{
    COW();
    if (m_refData->m_type != YJSONTYPE_ARRAY)
        setType(YJSONTYPE_ARRAY);
    QVector<YJsonValue>& array = m_refData->m_value.m_array;
    if (index >= static_cast<unsigned int>(array.size())) {
        // A QVector counts in int: an index it can't reach is refused rather than wrapped.
        if (index >= static_cast<unsigned int>(std::numeric_limits<int>::max()))
            throw YException(
                QStringLiteral("YJsonValue::item() - index %1 is beyond what an array can hold")
                    .arg(index));
        array.resize(static_cast<int>(index) + 1);
    }
    return array[static_cast<int>(index)];
}

YJsonValue& YJsonValue::item(const QString& key)
{
    COW();
    if (m_refData->m_type != YJSONTYPE_OBJECT)
        setType(YJSONTYPE_OBJECT);
    return m_refData->m_value.m_map[key];
}

YJsonValue YJsonValue::itemAt(unsigned int index) const
{
    const YJsonValue* found = find(index);
    return found ? *found : YJsonValue(YJSONTYPE_EMPTY);
}

YJsonValue YJsonValue::itemAt(const QString& key) const
{
    const YJsonValue* found = find(key);
    return found ? *found : YJsonValue(YJSONTYPE_EMPTY);
}

YJsonValue YJsonValue::get(const QString& key, const YJsonValue& defaultValue) const
{
    const YJsonValue* found = find(key);
    return found ? *found : defaultValue;
}

const YJsonValue* YJsonValue::find(unsigned int index) const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    if (data->m_type != YJSONTYPE_ARRAY
        || index >= static_cast<unsigned int>(data->m_value.m_array.size()))
        return nullptr;
    return &data->m_value.m_array.at(static_cast<int>(index));
}

const YJsonValue* YJsonValue::find(const QString& key) const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    if (data->m_type != YJSONTYPE_OBJECT)
        return nullptr;
    const auto it = data->m_value.m_map.constFind(key);
    return it == data->m_value.m_map.constEnd() ? nullptr : &it.value();
}

// ---------------------------------------------------------------------------------------------
// Comments and line numbers

int YJsonValue::addComment(const QString& text, int position)
{
    COW();
    YJsonRefData* data = m_refData;
    if (text.size() < 2 || text.at(0) != QLatin1Char('/'))
        return -1;
    const QChar second = text.at(1);
    if (second == QLatin1Char('/')) {
        if (text.endsWith(QLatin1Char('\n')))
            data->m_comments.append(text);
        else
            data->m_comments.append(text + QLatin1Char('\n'));
    } else if (second == QLatin1Char('*')) {
        int end = text.size();
        while (end > 0) {
            const QChar c = text.at(end - 1);
            if (c != QLatin1Char(' ') && c != QLatin1Char('\t') && c != QLatin1Char('\n'))
                break;
            --end;
        }
        if (end < 2 || text.at(end - 2) != QLatin1Char('*') || text.at(end - 1) != QLatin1Char('/'))
            return -1;
        data->m_comments.append(text);
    } else {
        return -1;
    }
    if (position != 0)
        data->m_commentPos = position;
    return data->m_comments.size() - 1;
}

int YJsonValue::addComment(const QStringList& lines, int position)
{
    int taken = 0;
    for (const QString& line : lines) {
        if (addComment(line, position) >= 0)
            ++taken;
    }
    return taken;
}

QString YJsonValue::getComment(int index) const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    if (index < 0)
        return data->m_comments.join(QString());
    if (index >= data->m_comments.size())
        return QString();
    return data->m_comments.at(index);
}

int YJsonValue::getCommentCount() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    return data->m_comments.size();
}

int YJsonValue::getCommentPos() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    return data->m_commentPos;
}

const QStringList& YJsonValue::getCommentArray() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    return data->m_comments;
}

void YJsonValue::clearComments()
{
    COW();
    m_refData->m_comments.clear();
}

int YJsonValue::getLineNo() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    return data->m_lineNo;
}

// ---------------------------------------------------------------------------------------------
// Comparison and diagnostics

bool YJsonValue::isSameAs(const YJsonValue& other) const
{
    return isSameAs(other, 0);
}

bool YJsonValue::isSameAs(const YJsonValue& other, int depth) const
{
    const YJsonRefData* data = m_refData;
    const YJsonRefData* otherData = other.m_refData;
    if (data == otherData)
        return true;
    Y_ASSERT(data);
    Y_ASSERT(otherData);
    if (data->m_type != otherData->m_type) {
        if (isNumberType(data->m_type) && isNumberType(otherData->m_type))
            return asDouble() == other.asDouble();
        return false;
    }
    switch (data->m_type) {
    case YJSONTYPE_EMPTY:
    case YJSONTYPE_NULL:
        return true;
    case YJSONTYPE_INT:
        return data->m_value.m_int == otherData->m_value.m_int;
    case YJSONTYPE_UINT:
        return data->m_value.m_uint == otherData->m_value.m_uint;
    case YJSONTYPE_DOUBLE:
        return data->m_value.m_double == otherData->m_value.m_double;
    case YJSONTYPE_BOOL:
        return data->m_value.m_bool == otherData->m_value.m_bool;
    case YJSONTYPE_STRING:
        return data->m_value.m_string == otherData->m_value.m_string;
    case YJSONTYPE_CSTRING:
        return qstrcmp(data->m_value.m_cstring, otherData->m_value.m_cstring) == 0;
    case YJSONTYPE_ARRAY: {
        checkDepth(depth + 1, "YJsonValue::isSameAs()");
        const QVector<YJsonValue>& mine = data->m_value.m_array;
        const QVector<YJsonValue>& theirs = otherData->m_value.m_array;
        const int count = mine.size();
        if (count != theirs.size())
            return false;
        // Sameness is an equivalence, so taking the first unused match never misses a pairing;
        // looking at the same index first keeps arrays in the same order linear.
        std::vector<bool> used(static_cast<size_t>(count), false);
        for (int i = 0; i < count; ++i) {
            int match = -1;
            if (!used[size_t(i)] && mine.at(i).isSameAs(theirs.at(i), depth + 1)) {
                match = i;
            } else {
                for (int j = 0; j < count; ++j) {
                    if (!used[size_t(j)] && j != i
                        && mine.at(i).isSameAs(theirs.at(j), depth + 1)) {
                        match = j;
                        break;
                    }
                }
            }
            if (match < 0)
                return false;
            used[size_t(match)] = true;
        }
        return true;
    }
    case YJSONTYPE_OBJECT: {
        checkDepth(depth + 1, "YJsonValue::isSameAs()");
        const QHash<QString, YJsonValue>& mine = data->m_value.m_map;
        const QHash<QString, YJsonValue>& theirs = otherData->m_value.m_map;
        if (mine.size() != theirs.size())
            return false;
        for (auto it = mine.constBegin(); it != mine.constEnd(); ++it) {
            const auto found = theirs.constFind(it.key());
            if (found == theirs.constEnd() || !it.value().isSameAs(found.value(), depth + 1))
                return false;
        }
        return true;
    }
    default:
        qt_assert_x("YJsonValue::isSameAs", "YJsonValue::isSameAs() unexpected YJsonType", __FILE__,
            __LINE__);
    }
    return false;
}

QString YJsonValue::typeToString(YJsonType type)
{
    const int index = static_cast<int>(type);
    if (index < 0 || index > YJSONTYPE_UINT64)
        return QString();
    return QString::fromLatin1(typeNames[index]);
}

QString YJsonValue::toString(int indent) const
{
    return toString(indent, 0);
}

QString YJsonValue::toString(int indent, int depth) const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    const QString blanks(indent > 0 ? indent : 0, QLatin1Char(' '));
    QString s = blanks + QStringLiteral("Type: ") + typeToString(data->m_type);
    switch (data->m_type) {
    case YJSONTYPE_EMPTY:
    case YJSONTYPE_NULL:
    case YJSONTYPE_INT:
    case YJSONTYPE_UINT:
    case YJSONTYPE_DOUBLE:
    case YJSONTYPE_STRING:
    case YJSONTYPE_CSTRING:
    case YJSONTYPE_BOOL:
        s += QLatin1Char(' ') + asString();
        break;
    case YJSONTYPE_ARRAY: {
        checkDepth(depth + 1, "YJsonValue::toString()");
        const QVector<YJsonValue>& array = data->m_value.m_array;
        s += QStringLiteral(", size: %1\n").arg(array.size());
        for (int i = 0; i < array.size(); ++i) {
            s += blanks + QString::number(i) + QStringLiteral(" :\n");
            s += array.at(i).toString(indent + 3, depth + 1);
        }
        break;
    }
    case YJSONTYPE_OBJECT: {
        checkDepth(depth + 1, "YJsonValue::toString()");
        const QHash<QString, YJsonValue>& map = data->m_value.m_map;
        s += QStringLiteral(", size: %1\n").arg(map.size());
        for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
            s += blanks + it.key() + QStringLiteral(" :\n");
            s += it.value().toString(indent + 3, depth + 1);
        }
        break;
    }
    default:
        throw YException(QStringLiteral("YJsonValue::toString(): Unknown type (received \"%1\")")
                             .arg(static_cast<int>(data->m_type)));
    }
    return s;
}

QString YJsonValue::dump(bool deep, int indent) const
{
    return dump(deep, indent, 0);
}

QString YJsonValue::dump(bool deep, int indent, int depth) const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    const QString blanks(indent > 0 ? indent : 0, QLatin1Char(' '));
    QString s = blanks
        + QStringLiteral("Object: Type=%1 Size=%2 comments=%3\n")
              .arg(typeToString(data->m_type))
              .arg(size())
              .arg(data->m_comments.size());
    s += blanks
        + QStringLiteral("      : RefData=0x%1 Num shares=%2\n")
              .arg(reinterpret_cast<quintptr>(data), 0, 16)
              .arg(data->m_refCount);
    if (!deep)
        return s;
    if (data->m_type == YJSONTYPE_ARRAY) {
        checkDepth(depth + 1, "YJsonValue::dump()");
        for (const YJsonValue& element : data->m_value.m_array)
            s += element.dump(true, indent + 3, depth + 1);
    } else if (data->m_type == YJSONTYPE_OBJECT) {
        checkDepth(depth + 1, "YJsonValue::dump()");
        for (auto it = data->m_value.m_map.constBegin(); it != data->m_value.m_map.constEnd(); ++it)
            s += it.value().dump(true, indent + 3, depth + 1);
    }
    return s;
}

QString YJsonValue::getInfo() const
{
    const YJsonRefData* data = m_refData;
    Y_ASSERT(data);
    QString s = QStringLiteral("Object: Type=%1 Size=%2 comments=%3\n")
                    .arg(typeToString(data->m_type))
                    .arg(size())
                    .arg(data->m_comments.size());
    if (data->m_type == YJSONTYPE_OBJECT) {
        for (auto it = data->m_value.m_map.constBegin(); it != data->m_value.m_map.constEnd(); ++it)
            s += QStringLiteral("Member name: %1\n").arg(it.key());
    }
    return s;
}
