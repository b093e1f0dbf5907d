#include "type_info.h"
#include "type_registry.h"
#include "yexception.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <QtEndian>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using yovotest::thrownBy;

namespace {

// The digest input as the type descriptors define it, built here on its own from the documented
// layout: the name, then per field its name and four big-endian words, then the three internal
// fields.
class ExpectedDigest
{
public:
    explicit ExpectedDigest(const char* typeName)
        : _bytes(typeName)
    {
    }
    void field(const char* name, unsigned int type, unsigned int size)
    {
        append(name, type, size, 0, _nextOrder++);
        ++_userFields;
    }
    QByteArray finish()
    {
        append("ContentDigest", 3, 4, 1, 0);
        append("TypeDigest", 101, 32, 1, 1);
        append("Offsets", 101, (_userFields + 2) * 8 + 16, 1, 2);
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_Digest(_bytes.constData(), size_t(_bytes.size()), digest, &length, EVP_md5(), nullptr);
        return QByteArray(reinterpret_cast<const char*>(digest), 16).toHex().toUpper();
    }

private:
    void word(unsigned int value)
    {
        char bytes[4];
        qToBigEndian<quint32>(value, bytes);
        _bytes.append(bytes, 4);
    }
    void append(const char* name, unsigned int type, unsigned int size, unsigned int properties,
        unsigned int order)
    {
        _bytes.append(name);
        word(type);
        word(size);
        word(properties);
        word(order);
    }

    QByteArray _bytes;
    unsigned int _nextOrder = 3;
    unsigned int _userFields = 0;
};

YTypeInfo_t<YMD5> typeT()
{
    YTypeInfo_t<YMD5> t("t");
    t.add32Field("a");
    t.finalize();
    return t;
}

} // namespace

TEST(YTypeInfo, DigestOfATypeWithoutFields)
{
    YTypeInfo_t<YMD5> type("empty");
    type.finalize();
    EXPECT_EQ(ExpectedDigest("empty").finish(), type.getTypeDigest());
}

TEST(YTypeInfo, DigestOfEveryKindOfField)
{
    YTypeInfo_t<YMD5> type("Every");
    type.add8Field("b");
    type.add16Field("w");
    type.add32Field("d");
    type.add64Field("q");
    type.addFixedSizeField("f", 20);
    type.addVariableSizeField("v");
    type.finalize();

    ExpectedDigest expected("Every");
    expected.field("b", 1, 1);
    expected.field("w", 2, 2);
    expected.field("d", 3, 4);
    expected.field("q", 4, 8);
    expected.field("f", 101, 20);
    expected.field("v", 102, 0);
    EXPECT_EQ(expected.finish(), type.getTypeDigest());
    EXPECT_EQ(32, type.getTypeDigest().size());
}

TEST(YTypeInfo, DigestOfTheOneFieldType)
{
    ExpectedDigest expected("t");
    expected.field("a", 3, 4);
    EXPECT_EQ(expected.finish(), typeT().getTypeDigest());
}

TEST(YTypeInfo, TypeWithoutUserFieldsFinalises)
{
    YTypeInfo_t<YMD5> type("t");
    EXPECT_FALSE(type.isFinalized());
    type.finalize();
    EXPECT_TRUE(type.isFinalized());
    EXPECT_EQ(3, type.getFieldCount());
    EXPECT_EQ(32u, type.getFieldInfo("Offsets").getSize());
    EXPECT_EQ(QStringLiteral("ContentDigest"), type.getFieldInfoByOrder(0).getName());
    EXPECT_EQ(QStringLiteral("TypeDigest"), type.getFieldInfoByOrder(1).getName());
    EXPECT_EQ(QStringLiteral("Offsets"), type.getFieldInfoByOrder(2).getName());
}

TEST(YTypeInfo, OneFieldTypeFigures)
{
    const YTypeInfo_t<YMD5> t = typeT();
    EXPECT_EQ(3u, t.getFieldInfo("a").getOrder());
    EXPECT_EQ(40u, t.getFieldInfo("Offsets").getSize());
    EXPECT_EQ(80u, t.getFixedSize());
    EXPECT_EQ(80u, t.getMinimalSize());
    EXPECT_EQ(36u, t.getOffsetsFieldOffset());
    EXPECT_FALSE(t.hasVariableSizeFields());
    QList<QString> names = t.getFieldNames();
    std::sort(names.begin(), names.end());
    EXPECT_EQ((QList<QString> {"ContentDigest", "Offsets", "TypeDigest", "a"}), names);
}

TEST(YTypeInfo, SwappedFieldsChangeTheDigest)
{
    YTypeInfo_t<YMD5> ab("t");
    ab.add32Field("a");
    ab.add32Field("b");
    ab.finalize();
    YTypeInfo_t<YMD5> ba("t");
    ba.add32Field("b");
    ba.add32Field("a");
    ba.finalize();
    EXPECT_NE(ab.getTypeDigest(), ba.getTypeDigest());
}

TEST(YTypeInfo, CaseOfANameChangesTheDigest)
{
    YTypeInfo_t<YMD5> upper("t");
    upper.add32Field("A");
    upper.finalize();
    EXPECT_NE(typeT().getTypeDigest(), upper.getTypeDigest());
    YTypeInfo_t<YMD5> typeUpper("T");
    typeUpper.add32Field("a");
    typeUpper.finalize();
    EXPECT_NE(typeT().getTypeDigest(), typeUpper.getTypeDigest());
}

TEST(YTypeInfo, VariableFieldZeroesTheFixedSizeForGood)
{
    YTypeInfo_t<YMD5> type("v");
    type.add32Field("a");
    type.addVariableSizeField("text");
    type.add64Field("b");
    type.finalize();
    EXPECT_TRUE(type.hasVariableSizeFields());
    EXPECT_EQ(0u, type.getFixedSize());
    // 4 + 8 + the internal 4 + 32 + (5 x 8 + 16).
    EXPECT_EQ(4u + 8u + 4u + 32u + 56u, type.getMinimalSize());
    EXPECT_TRUE(type.toString().startsWith(
        QStringLiteral("Type: Name v, Digest %1, Size 0 [ ").arg(QString(type.getTypeDigest()))));
}

TEST(YTypeInfo, ToStringListsFieldsByOrderOnceFinalised)
{
    const YTypeInfo_t<YMD5> t = typeT();
    EXPECT_EQ(QStringLiteral("Type: Name t, Digest %1, Size 80 [ "
                             "Field: Name ContentDigest, Type FT_32, Size 4, Properties "
                             "FP_INTERNAL, Order 0, "
                             "Field: Name TypeDigest, Type FT_FIXED_SIZE, Size 32, Properties "
                             "FP_INTERNAL, Order 1, "
                             "Field: Name Offsets, Type FT_FIXED_SIZE, Size 40, Properties "
                             "FP_INTERNAL, Order 2, "
                             "Field: Name a, Type FT_32, Size 4, Properties FP_NOTHING, Order 3 ]")
                  .arg(QString(t.getTypeDigest())),
        t.toString());
    YTypeInfo_t<YMD5> open("o");
    open.add8Field("x");
    EXPECT_EQ(QStringLiteral("Type: Name o, Digest <the type is not finalized yet>, Size 1 [ "
                             "Field: Name x, Type FT_8, Size 1, Properties FP_NOTHING, Order 3 ]"),
        open.toString());
}

TEST(YTypeInfo, AddFieldRefusals)
{
    YTypeInfo_t<YMD5> t("t");
    t.add32Field("a");
    EXPECT_EQ("[t] field already defined: a.", thrownBy([&] { t.add32Field("a"); }));
    t.finalize();
    EXPECT_EQ("Type already finalized: t.", thrownBy([&] { t.add8Field("b"); }));
    EXPECT_EQ("[t] field already defined: a.Type already finalized: t.",
        thrownBy([&] { t.add32Field("a"); }));
    EXPECT_EQ("type t is already finalized", thrownBy([&] { t.finalize(); }));
}

TEST(YTypeInfo, RefusedFieldLeavesTheTypeAsItWas)
{
    YTypeInfo_t<YMD5> t("t");
    EXPECT_NE("", thrownBy([&] { t.addField("bad", YFieldInfo::FT_32, 8, 0); }));
    t.add32Field("a");
    t.finalize();
    EXPECT_EQ(typeT().getTypeDigest(), t.getTypeDigest());
    EXPECT_EQ(3u, t.getFieldInfo("a").getOrder());
}

TEST(YTypeInfo, DeclaredInternalNameIsHashedInPlaceAndFinalizeThenFails)
{
    YTypeInfo_t<YMD5> t("t");
    t.addField("ContentDigest", YFieldInfo::FT_32, 4, YFieldInfo::FP_INTERNAL);
    EXPECT_EQ(0u, t.getFieldInfo("ContentDigest").getOrder());
    EXPECT_EQ("[t] field already defined: ContentDigest.", thrownBy([&] { t.finalize(); }));
}

TEST(YTypeInfo, LookupRefusals)
{
    const YTypeInfo_t<YMD5> t = typeT();
    EXPECT_EQ("undefined field: nope", thrownBy([&] { t.getFieldInfo("nope"); }));
    const std::string text = thrownBy([&] { t.getFieldInfoByOrder(9); });
    EXPECT_EQ(0u, text.find("illegal field order was requested: 9 (should be [0, 4], Type: Name t"))
        << text;
    // The order equal to the count passes the bound and finds no field.
    EXPECT_NE("", thrownBy([&] { t.getFieldInfoByOrder(4); }));
    EXPECT_EQ(QStringLiteral("a"), t.getFieldInfoByOrder(3).getName());

    YTypeInfo_t<YMD5> open("t");
    EXPECT_EQ("type not finalized: t", thrownBy([&] { open.getTypeDigest(); }));
    EXPECT_EQ("type not finalized: t", thrownBy([&] { open.getFieldInfoByOrder(0); }));
    EXPECT_EQ("type not finalized: t", thrownBy([&] { open.getOffsetsFieldOffset(); }));
}

TEST(YTypeInfo, CopiesShareUntilOneChanges)
{
    YTypeInfo_t<YMD5> a("t");
    a.add32Field("a");
    YTypeInfo_t<YMD5> b = a;
    EXPECT_TRUE(a == b);
    b.add32Field("b");
    a.finalize();
    b.finalize();
    EXPECT_FALSE(a == b);
    EXPECT_EQ(typeT().getTypeDigest(), a.getTypeDigest());
    ExpectedDigest expected("t");
    expected.field("a", 3, 4);
    expected.field("b", 3, 4);
    EXPECT_EQ(expected.finish(), b.getTypeDigest());
}

TEST(YTypeInfo, IsIdenticalToComparesFieldsOnly)
{
    YTypeInfo_t<YMD5> other("other");
    other.add32Field("a");
    other.finalize();
    // Same fields, another name: the Offsets size and the orders agree, the names are not looked
    // at.
    EXPECT_TRUE(typeT().isIdenticalTo(other));
    EXPECT_FALSE(typeT() == other);
    YTypeInfo_t<YMD5> wider("t");
    wider.add64Field("a");
    wider.finalize();
    EXPECT_FALSE(typeT().isIdenticalTo(wider));
}

TEST(YTypeRegistry, RegisterAndLookUp)
{
    YTypeRegistry* registry = YTypeRegistry::getInstance();
    EXPECT_EQ(registry, YTypeRegistry::getInstance());
    YTypeInfo_t<YMD5> type("reg1");
    type.add16Field("x");
    type.finalize();
    registry->registerType(type);
    EXPECT_TRUE(registry->isTypeRegistered(QStringLiteral("reg1")));
    EXPECT_TRUE(registry->isTypeRegistered(type.getTypeDigest()));
    EXPECT_TRUE(registry->getTypeInfoByName("reg1") == type);
    EXPECT_TRUE(registry->getTypeInfoByDigest(type.getTypeDigest()) == type);
    registry->unregisterTypeByTypeInfo(type);
    EXPECT_FALSE(registry->isTypeRegistered(QStringLiteral("reg1")));
}

TEST(YTypeRegistry, OpenTypeAndSecondRegistrationThrow)
{
    YTypeRegistry* registry = YTypeRegistry::getInstance();
    YTypeInfo_t<YMD5> t("t");
    t.add32Field("a");
    EXPECT_EQ("type not finalized: t", thrownBy([&] { registry->registerType(t); }));
    t.finalize();
    registry->registerType(t);
    EXPECT_EQ("type already defined: t", thrownBy([&] { registry->registerType(t); }));
    EXPECT_EQ("type already defined: t", thrownBy([&] { registry->registerType(typeT()); }));
    registry->unregisterTypeByName("t");
}

TEST(YTypeRegistry, AfterUnregisteringNeitherTableKnowsTheType)
{
    YTypeRegistry* registry = YTypeRegistry::getInstance();
    const YTypeInfo_t<YMD5> t = typeT();
    registry->registerType(t);
    registry->unregisterTypeByName("t");
    EXPECT_FALSE(registry->isTypeRegistered(QStringLiteral("t")));
    EXPECT_FALSE(registry->isTypeRegistered(t.getTypeDigest()));
    EXPECT_EQ("unrecognized type with digest " + t.getTypeDigest().toStdString(),
        thrownBy([&] { registry->getTypeInfoByDigest(t.getTypeDigest()); }));
    EXPECT_EQ("unrecognized type, named t", thrownBy([&] { registry->getTypeInfoByName("t"); }));
    EXPECT_EQ("unrecognized type, named t", thrownBy([&] { registry->unregisterTypeByName("t"); }));
    EXPECT_EQ("unrecognized type with digest " + t.getTypeDigest().toStdString(),
        thrownBy([&] { registry->unregisterTypeByDigest(t.getTypeDigest()); }));
}

TEST(YTypeRegistryDeathTest, SameNameWithAnotherDigestEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            YTypeRegistry* registry = YTypeRegistry::getInstance();
            registry->registerType(typeT());
            YTypeInfo_t<YMD5> other("t");
            other.add64Field("a");
            other.finalize();
            registry->registerType(other);
        },
        "alreadyDefined == _typeByDigest.contains\\(typeInfo.getTypeDigest\\(\\)\\)");
}
