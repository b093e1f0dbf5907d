#include "type_info.h"

#include "yassert.h"
#include "yexception.h"

namespace {

QByteArray bigEndianWord(unsigned int value)
{
    const char bytes[4] = {char((value >> 24) & 0xFF), char((value >> 16) & 0xFF),
        char((value >> 8) & 0xFF), char(value & 0xFF)};
    return QByteArray(bytes, 4);
}

QString notFinalized(const QString& name)
{
    return QStringLiteral("type not finalized: %1").arg(name);
}

} // namespace

template<class Hash>
YTypeInfo_t<Hash>::YTypeInfo_t(const QString& name)
    : _d(new YTypeInfoData<Hash>)
{
    _d->_name = name;
    _d->feed(name.toLatin1());
}

template<class Hash> YTypeInfo_t<Hash>::~YTypeInfo_t() = default;

template<class Hash>
void YTypeInfo_t<Hash>::addField(
    const QString& name, unsigned int type, unsigned int size, unsigned int properties)
{
    const bool exists = _d->_fieldsByName.contains(name);
    const bool finalized = isFinalized();
    if (exists || finalized) {
        QString text;
        if (exists)
            text += QStringLiteral("[%1] field already defined: %2.").arg(_d->_name, name);
        if (finalized)
            text += QStringLiteral("Type already finalized: %1.").arg(_d->_name);
        throw YException(text);
    }

    unsigned int order;
    const bool internal = YFieldInfo::isNameInternal(name);
    if (internal)
        order = YFieldInfo::getInternalFieldInfo(name).getOrder();
    else
        order = _d->_lastOrder + 1;
    // Verified before anything changes, so that a refused declaration leaves the type as it was.
    const YFieldInfo field(name, type, size, properties, order);
    if (!internal)
        _d->_lastOrder = order;
    _d->_fieldsByName.insert(name, field);

    QByteArray input = name.toLatin1();
    input += bigEndianWord(type);
    input += bigEndianWord(size);
    input += bigEndianWord(properties);
    input += bigEndianWord(order);
    _d->feed(input);

    if (type != YFieldInfo::FT_VARIABLE_SIZE) {
        if (!_d->_hasVariableSizeFields)
            _d->_fixedSize += size;
        else
            _d->_fixedSize = 0;
        _d->_minimalSize += size;
    } else {
        _d->_hasVariableSizeFields = true;
        _d->_fixedSize = 0;
    }
}

template<class Hash> void YTypeInfo_t<Hash>::add8Field(const QString& name)
{
    addField(name, YFieldInfo::FT_8, YFieldInfo::FS_8, YFieldInfo::FP_NOTHING);
}

template<class Hash> void YTypeInfo_t<Hash>::add16Field(const QString& name)
{
    addField(name, YFieldInfo::FT_16, YFieldInfo::FS_16, YFieldInfo::FP_NOTHING);
}

template<class Hash> void YTypeInfo_t<Hash>::add32Field(const QString& name)
{
    addField(name, YFieldInfo::FT_32, YFieldInfo::FS_32, YFieldInfo::FP_NOTHING);
}

template<class Hash> void YTypeInfo_t<Hash>::add64Field(const QString& name)
{
    addField(name, YFieldInfo::FT_64, YFieldInfo::FS_64, YFieldInfo::FP_NOTHING);
}

template<class Hash>
void YTypeInfo_t<Hash>::addFixedSizeField(const QString& name, unsigned int size)
{
    addField(name, YFieldInfo::FT_FIXED_SIZE, size, YFieldInfo::FP_NOTHING);
}

template<class Hash> void YTypeInfo_t<Hash>::addVariableSizeField(const QString& name)
{
    addField(name, YFieldInfo::FT_VARIABLE_SIZE, YFieldInfo::FS_ANY_SIZE, YFieldInfo::FP_NOTHING);
}

template<class Hash> void YTypeInfo_t<Hash>::finalize()
{
    if (isFinalized())
        throw YException(QStringLiteral("type %1 is already finalized").arg(_d->_name));

    const YFieldInfo contentDigest
        = YFieldInfo::getInternalFieldInfo(YFieldInfo::FN_CONTENT_DIGEST);
    addField(contentDigest.getName(), contentDigest.getType(), contentDigest.getSize(),
        YFieldInfo::FP_INTERNAL);
    const YFieldInfo typeDigest = YFieldInfo::getInternalFieldInfo(YFieldInfo::FN_TYPE_DIGEST);
    addField(
        typeDigest.getName(), typeDigest.getType(), typeDigest.getSize(), YFieldInfo::FP_INTERNAL);
    const unsigned int fieldCount = static_cast<unsigned int>(_d->_fieldsByName.size());
    const YFieldInfo offsets = YFieldInfo::getInternalFieldInfo(YFieldInfo::FN_OFFSETS);
    addField(offsets.getName(), offsets.getType(), fieldCount * 8 + 16, YFieldInfo::FP_INTERNAL);

    if (!(_d->_fieldsByOrder.empty()))
        failedAssertion(
            __FILE__, __LINE__, "(_d->_fieldsByOrder.empty())", nullptr, YDebug::STDERR);
    for (auto it = _d->_fieldsByName.constBegin(); it != _d->_fieldsByName.constEnd(); ++it)
        _d->_fieldsByOrder.insert(it.value().getOrder(), it.value());
    if (!(_d->_offsetsFieldOffset == 0))
        failedAssertion(
            __FILE__, __LINE__, "_d->_offsetsFieldOffset == 0", nullptr, YDebug::STDERR);

    for (auto it = _d->_fieldsByOrder.constBegin(); it != _d->_fieldsByOrder.constEnd(); ++it) {
        const YFieldInfo& fieldInfo = it.value();
        if (fieldInfo.getOrder() == YFieldInfo::FO_OFFSETS)
            break;
        if (!(fieldInfo.getType() != YFieldInfo::FT_VARIABLE_SIZE))
            failedAssertion(__FILE__, __LINE__,
                "fieldInfo.getType() != YFieldInfo::FT_VARIABLE_SIZE", nullptr, YDebug::STDERR);
        _d->_offsetsFieldOffset += fieldInfo.getSize();
    }

    _d->_typeDigest = _d->_hash.completedHash();
}

template<class Hash> QString YTypeInfo_t<Hash>::getName() const
{
    return _d->_name;
}

template<class Hash> QByteArray YTypeInfo_t<Hash>::getTypeDigest() const
{
    if (!isFinalized())
        throw YException(notFinalized(_d->_name));
    return _d->_typeDigest;
}

template<class Hash> bool YTypeInfo_t<Hash>::isFinalized() const
{
    return !_d->_typeDigest.isEmpty();
}

template<class Hash> bool YTypeInfo_t<Hash>::hasVariableSizeFields() const
{
    return _d->_hasVariableSizeFields;
}

template<class Hash> unsigned int YTypeInfo_t<Hash>::getFixedSize() const
{
    return _d->_fixedSize;
}

template<class Hash> unsigned int YTypeInfo_t<Hash>::getMinimalSize() const
{
    return _d->_minimalSize;
}

template<class Hash> int YTypeInfo_t<Hash>::getFieldCount() const
{
    return _d->_fieldsByName.size();
}

template<class Hash> QList<QString> YTypeInfo_t<Hash>::getFieldNames() const
{
    return _d->_fieldsByName.keys();
}

template<class Hash> quint64 YTypeInfo_t<Hash>::getOffsetsFieldOffset() const
{
    if (!isFinalized())
        throw YException(notFinalized(_d->_name));
    if (!((_d->_offsetsFieldOffset) != 0))
        failedAssertion(
            __FILE__, __LINE__, "(_d->_offsetsFieldOffset) != 0", nullptr, YDebug::STDERR);
    return _d->_offsetsFieldOffset;
}

template<class Hash> YFieldInfo YTypeInfo_t<Hash>::getFieldInfo(const QString& name) const
{
    const auto it = _d->_fieldsByName.constFind(name);
    if (it == _d->_fieldsByName.constEnd())
        throw YException(QStringLiteral("undefined field: %1").arg(name));
    return it.value();
}

template<class Hash> YFieldInfo YTypeInfo_t<Hash>::getFieldInfoByOrder(unsigned int order) const
{
    if (!isFinalized())
        throw YException(notFinalized(_d->_name));
    const unsigned int fieldCount = static_cast<unsigned int>(_d->_fieldsByName.size());
    const auto it = _d->_fieldsByOrder.constFind(order);
    // The bound test lets the order equal to the count through, and no field has it: that one
    // fails with the same words as any order past the end.
    if (order > fieldCount || it == _d->_fieldsByOrder.constEnd())
        throw YException(
            QStringLiteral("illegal field order was requested: %1 (should be [0, %2], %3)")
                .arg(order)
                .arg(fieldCount)
                .arg(toString()));
    return it.value();
}

template<class Hash> bool YTypeInfo_t<Hash>::isIdenticalTo(const YTypeInfo_t& other) const
{
    if (_d->_fieldsByName.size() != other._d->_fieldsByName.size())
        return false;
    for (auto it = _d->_fieldsByName.constBegin(); it != _d->_fieldsByName.constEnd(); ++it) {
        const auto theirs = other._d->_fieldsByName.constFind(it.key());
        if (theirs == other._d->_fieldsByName.constEnd()
            || !it.value().isIdenticalTo(theirs.value()))
            return false;
    }
    return true;
}

template<class Hash> QString YTypeInfo_t<Hash>::toString() const
{
    QString text = QStringLiteral("Type: Name %1, Digest %2, Size %3 [ ")
                       .arg(_d->_name,
                           isFinalized() ? QString::fromLatin1(_d->_typeDigest)
                                         : QStringLiteral("<the type is not finalized yet>"),
                           QString::number(_d->_fixedSize));
    if (isFinalized()) {
        for (const YFieldInfo& field : _d->_fieldsByOrder)
            text += field.toString() + QStringLiteral(", ");
    } else {
        for (const YFieldInfo& field : _d->_fieldsByName)
            text += field.toString() + QStringLiteral(", ");
    }
    text.chop(2);
    text += QStringLiteral(" ]");
    return text;
}

template class YTypeInfo_t<YMD5>;
