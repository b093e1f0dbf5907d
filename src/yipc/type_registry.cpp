#include "type_registry.h"

#include "yassert.h"
#include "yexception.h"

#define YREGISTRY_ASSERT(condition, text)                                                          \
    do {                                                                                           \
        if (!(condition))                                                                          \
            failedAssertion(__FILE__, __LINE__, text, nullptr, YDebug::STDERR);                    \
    } while (false)

YTypeRegistry* YTypeRegistry::_instance = nullptr;

namespace {

QString unknownName(const QString& name)
{
    return QStringLiteral("unrecognized type, named %1").arg(name);
}

QString unknownDigest(const QByteArray& digest)
{
    return QStringLiteral("unrecognized type with digest %1").arg(QString::fromLatin1(digest));
}

} // namespace

YTypeRegistry* YTypeRegistry::getInstance()
{
    if (!_instance)
        _instance = new YTypeRegistry;
    return _instance;
}

void YTypeRegistry::registerType(const YTypeInfo_t<YMD5>& typeInfo)
{
    const bool alreadyDefined = _typeByName.contains(typeInfo.getName());
    // Reading the digest throws for an open type before anything else is looked at.
    YREGISTRY_ASSERT(alreadyDefined == _typeByDigest.contains(typeInfo.getTypeDigest()),
        "alreadyDefined == _typeByDigest.contains(typeInfo.getTypeDigest())");
    if (!typeInfo.isFinalized())
        throw YException(QStringLiteral("type not finalized: %1").arg(typeInfo.getName()));
    if (alreadyDefined)
        throw YException(QStringLiteral("type already defined: %1").arg(typeInfo.getName()));
    _typeByName.insert(typeInfo.getName(), typeInfo);
    _typeByDigest.insert(typeInfo.getTypeDigest(), typeInfo);
    YREGISTRY_ASSERT(_typeByDigest.contains(typeInfo.getTypeDigest())
            && _typeByName.contains(typeInfo.getName()),
        "_typeByDigest.contains(typeInfo.getTypeDigest()) && "
        "_typeByName.contains(typeInfo.getName())");
}

bool YTypeRegistry::isTypeRegistered(const QString& name)
{
    const auto iTypeInfo = _typeByName.constFind(name);
    const bool typeFound = iTypeInfo != _typeByName.constEnd();
    YREGISTRY_ASSERT(typeFound ? _typeByDigest.contains(iTypeInfo->getTypeDigest()) : true,
        "typeFound ? _typeByDigest.contains(iTypeInfo->getTypeDigest()) : true");
    return typeFound;
}

bool YTypeRegistry::isTypeRegistered(const QByteArray& digest)
{
    const auto iTypeInfo = _typeByDigest.constFind(digest);
    const bool typeFound = iTypeInfo != _typeByDigest.constEnd();
    YREGISTRY_ASSERT(typeFound ? _typeByName.contains(iTypeInfo->getName()) : true,
        "typeFound ? _typeByName.contains(iTypeInfo->getName()) : true");
    return typeFound;
}

const YTypeInfo_t<YMD5> YTypeRegistry::getTypeInfoByName(const QString& name)
{
    const auto iTypeInfo = _typeByName.constFind(name);
    const bool typeFound = iTypeInfo != _typeByName.constEnd();
    YREGISTRY_ASSERT(typeFound ? _typeByDigest.contains(iTypeInfo.value().getTypeDigest()) : true,
        "typeFound ? _typeByDigest.contains(iTypeInfo.value().getTypeDigest()) : "
        "!_typeByDigest.contains(iTypeInfo.value().getTypeDigest())");
    if (!typeFound)
        throw YException(unknownName(name));
    return iTypeInfo.value();
}

const YTypeInfo_t<YMD5> YTypeRegistry::getTypeInfoByDigest(const QByteArray& digest)
{
    const auto iTypeInfo = _typeByDigest.constFind(digest);
    const bool typeFound = iTypeInfo != _typeByDigest.constEnd();
    YREGISTRY_ASSERT(typeFound ? _typeByName.contains(iTypeInfo.value().getName()) : true,
        "typeFound ? _typeByName.contains(iTypeInfo.value().getName()) : true");
    if (!typeFound)
        throw YException(unknownDigest(digest));
    return iTypeInfo.value();
}

void YTypeRegistry::unregisterTypeByName(const QString& name)
{
    const auto iTypeInfo = _typeByName.find(name);
    const bool typeFound = iTypeInfo != _typeByName.end();
    // A type that is not found has no digest to look for: the other side of the condition holds by
    // itself.
    YREGISTRY_ASSERT(typeFound ? _typeByDigest.contains(iTypeInfo.value().getTypeDigest()) : true,
        "typeFound ? _typeByDigest.contains(iTypeInfo.value().getTypeDigest()) : "
        "!_typeByDigest.contains(iTypeInfo.value().getTypeDigest())");
    if (!typeFound)
        throw YException(unknownName(name));
    const QString typeName = iTypeInfo.value().getName();
    const QByteArray typeDigest = iTypeInfo.value().getTypeDigest();
    _typeByName.erase(iTypeInfo);
    _typeByDigest.remove(typeDigest);
    YREGISTRY_ASSERT(!_typeByDigest.contains(typeDigest) && !_typeByName.contains(typeName),
        "!_typeByDigest.contains(typeDigest) && !_typeByName.contains(typeName)");
}

void YTypeRegistry::unregisterTypeByDigest(const QByteArray& digest)
{
    const auto iTypeInfo = _typeByDigest.find(digest);
    const bool typeFound = iTypeInfo != _typeByDigest.end();
    YREGISTRY_ASSERT(typeFound ? _typeByName.contains(iTypeInfo.value().getName()) : true,
        "typeFound ? _typeByName.contains(iTypeInfo.value().getName()) : true");
    if (!typeFound)
        throw YException(unknownDigest(digest));
    const QString typeName = iTypeInfo.value().getName();
    const QByteArray typeDigest = iTypeInfo.value().getTypeDigest();
    _typeByDigest.erase(iTypeInfo);
    _typeByName.remove(typeName);
    YREGISTRY_ASSERT(!_typeByDigest.contains(typeDigest) && !_typeByName.contains(typeName),
        "!_typeByDigest.contains(typeDigest) && !_typeByName.contains(typeName)");
}

void YTypeRegistry::unregisterTypeByTypeInfo(const YTypeInfo_t<YMD5>& typeInfo)
{
    unregisterTypeByDigest(typeInfo.getTypeDigest());
}
