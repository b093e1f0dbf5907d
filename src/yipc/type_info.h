#ifndef YOVOLIB_TYPE_INFO_H
#define YOVOLIB_TYPE_INFO_H

#include "field_info.h"
#include "ymd5.h"
#include "yovolib_export.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QSharedData>
#include <QSharedDataPointer>
#include <QString>

/// The shared body of a type descriptor.
template<class Hash> class YTypeInfoData : public QSharedData
{
public:
    YTypeInfoData() = default;
    /// A copy gets a running hash of its own, fed with everything the source was fed: the hash
    /// provider's own copies share one context, which two diverging types cannot.
    YTypeInfoData(const YTypeInfoData& other)
        : QSharedData(other)
        , _name(other._name)
        , _typeDigest(other._typeDigest)
        , _reserved(other._reserved)
        , _hasVariableSizeFields(other._hasVariableSizeFields)
        , _fixedSize(other._fixedSize)
        , _minimalSize(other._minimalSize)
        , _fieldsByName(other._fieldsByName)
        , _lastOrder(other._lastOrder)
        , _fieldsByOrder(other._fieldsByOrder)
        , _offsetsFieldOffset(other._offsetsFieldOffset)
        , _hashInput(other._hashInput)
    {
        _hash.appendBlock(_hashInput);
    }
    YTypeInfoData& operator=(const YTypeInfoData&) = delete;

    void feed(const QByteArray& bytes)
    {
        _hash.appendBlock(bytes);
        _hashInput.append(bytes);
    }

    QString _name;
    Hash _hash;
    QByteArray _typeDigest;
    bool _reserved = false;
    bool _hasVariableSizeFields = false;
    unsigned int _fixedSize = 0;
    unsigned int _minimalSize = 0;
    QHash<QString, YFieldInfo> _fieldsByName;
    unsigned int _lastOrder = YFieldInfo::FO_MAX_INTERNAL;
    QMap<unsigned int, YFieldInfo> _fieldsByOrder;
    quint64 _offsetsFieldOffset = 0;
    // Everything fed to the hash, so that a detached copy can rebuild its own running state.
    QByteArray _hashInput;
};

/// A named, ordered set of fields with a digest that identifies it: two peers that declare a type
/// the same way compute the same digest. Build, add fields, finalize(); then it is frozen.
template<class Hash> class YOVOLIB_EXPORT YTypeInfo_t
{
public:
    /// An open type; the name is the first input of the digest.
    explicit YTypeInfo_t(const QString& name);
    YTypeInfo_t(const YTypeInfo_t& other) = default;
    YTypeInfo_t& operator=(const YTypeInfo_t& other) = default;
    virtual QString toString() const;
    virtual ~YTypeInfo_t();

    /// Throws when the name exists already or the type is finalised; both can stand in one text.
    void addField(
        const QString& name, unsigned int type, unsigned int size, unsigned int properties);
    void add8Field(const QString& name);
    void add16Field(const QString& name);
    void add32Field(const QString& name);
    void add64Field(const QString& name);
    void addFixedSizeField(const QString& name, unsigned int size);
    void addVariableSizeField(const QString& name);

    /// Adds the three internal fields, computes the layout figures and the digest.
    void finalize();

    QString getName() const;
    /// The 32 upper-case hexadecimal characters; throws "type not finalized: %1" before.
    QByteArray getTypeDigest() const;
    bool isFinalized() const;
    bool hasVariableSizeFields() const;
    /// The sum of all sizes; 0 from the first variable field on.
    unsigned int getFixedSize() const;
    /// The sum of the sizes of all fields but the variable ones.
    unsigned int getMinimalSize() const;
    int getFieldCount() const;
    /// The names in the hash's order.
    QList<QString> getFieldNames() const;
    /// The byte position of "Offsets" in a message laid out by order (36); throws before
    /// finalisation.
    quint64 getOffsetsFieldOffset() const;
    /// A copy of the field; throws "undefined field: %1".
    YFieldInfo getFieldInfo(const QString& name) const;
    /// Throws before finalisation and for an order past the last field.
    YFieldInfo getFieldInfoByOrder(unsigned int order) const;

    /// Same number of fields, each identical to the other's field of its name; the names and
    /// digests of the types are not compared.
    bool isIdenticalTo(const YTypeInfo_t& other) const;
    /// True only for copies that share one body.
    bool operator==(const YTypeInfo_t& other) const { return _d == other._d; }

private:
    QSharedDataPointer<YTypeInfoData<Hash>> _d;
};

extern template class YTypeInfo_t<YMD5>;

#endif // YOVOLIB_TYPE_INFO_H
