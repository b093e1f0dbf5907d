#include "field_info.h"
#include "yexception.h"

#include <gtest/gtest.h>

namespace {

// The text of the exception a declaration throws, or "" when it is accepted.
std::string declare(const char* name, unsigned int type, unsigned int size, unsigned int properties,
    unsigned int order)
{
    try {
        YFieldInfo field(QString::fromLatin1(name), type, size, properties, order);
        return std::string();
    } catch (const YException& e) {
        return e.what();
    }
}

bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(YFieldInfo, ConstantsHaveTheirFixedValues)
{
    EXPECT_EQ(1u, YFieldInfo::FT_MIN_TYPE);
    EXPECT_EQ(1u, YFieldInfo::FT_MIN_ATOMIC_TYPE);
    EXPECT_EQ(1u, YFieldInfo::FT_8);
    EXPECT_EQ(2u, YFieldInfo::FT_16);
    EXPECT_EQ(3u, YFieldInfo::FT_32);
    EXPECT_EQ(4u, YFieldInfo::FT_64);
    EXPECT_EQ(4u, YFieldInfo::FT_MAX_ATOMIC_TYPE);
    EXPECT_EQ(101u, YFieldInfo::FT_MIN_RAW_TYPE);
    EXPECT_EQ(101u, YFieldInfo::FT_FIXED_SIZE);
    EXPECT_EQ(102u, YFieldInfo::FT_VARIABLE_SIZE);
    EXPECT_EQ(102u, YFieldInfo::FT_MAX_RAW_TYPE);
    EXPECT_EQ(102u, YFieldInfo::FT_MAX_TYPE);
    EXPECT_EQ(0u, YFieldInfo::FS_ANY_SIZE);
    EXPECT_EQ(1u, YFieldInfo::FS_8);
    EXPECT_EQ(2u, YFieldInfo::FS_16);
    EXPECT_EQ(4u, YFieldInfo::FS_32);
    EXPECT_EQ(8u, YFieldInfo::FS_64);
    EXPECT_EQ(0u, YFieldInfo::FP_MIN_PROPERTY);
    EXPECT_EQ(0u, YFieldInfo::FP_NOTHING);
    EXPECT_EQ(1u, YFieldInfo::FP_INTERNAL);
    EXPECT_EQ(1u, YFieldInfo::FP_MAX_PROPERTY);
    EXPECT_EQ(0u, YFieldInfo::FO_MIN_INTERNAL);
    EXPECT_EQ(0u, YFieldInfo::FO_CONTENT_DIGEST);
    EXPECT_EQ(1u, YFieldInfo::FO_TYPE_DIGEST);
    EXPECT_EQ(2u, YFieldInfo::FO_OFFSETS);
    EXPECT_EQ(2u, YFieldInfo::FO_MAX_INTERNAL);
    EXPECT_EQ(3u, YFieldInfo::FO_MIN_EXTERNAL);
}

TEST(YFieldInfo, NamesHaveTheirFixedTexts)
{
    EXPECT_EQ(QStringLiteral("ContentDigest"), YFieldInfo::FN_CONTENT_DIGEST);
    EXPECT_EQ(QStringLiteral("TypeDigest"), YFieldInfo::FN_TYPE_DIGEST);
    EXPECT_EQ(QStringLiteral("Offsets"), YFieldInfo::FN_OFFSETS);
    EXPECT_EQ(QStringLiteral("FT_8"), YFieldInfo::FTN_8);
    EXPECT_EQ(QStringLiteral("FT_16"), YFieldInfo::FTN_16);
    EXPECT_EQ(QStringLiteral("FT_32"), YFieldInfo::FTN_32);
    EXPECT_EQ(QStringLiteral("FT_64"), YFieldInfo::FTN_64);
    EXPECT_EQ(QStringLiteral("FT_FIXED_SIZE"), YFieldInfo::FTN_FIXED_SIZE);
    EXPECT_EQ(QStringLiteral("FT_VARIABLE_SIZE"), YFieldInfo::FTN_VARIABLE_SIZE);
}

TEST(YFieldInfo, TablesAreFilledByTheFirstDescriptor)
{
    YFieldInfo("a", YFieldInfo::FT_8, 1, YFieldInfo::FP_NOTHING, 3);
    const QHash<unsigned int, unsigned int> atomic {{1, 1}, {2, 2}, {3, 4}, {4, 8}};
    EXPECT_EQ(atomic, YFieldInfo::ATOMIC_FIELD_TYPES_HASH);
    const QHash<unsigned int, QString> types {{1, "FT_8"}, {2, "FT_16"}, {3, "FT_32"}, {4, "FT_64"},
        {101, "FT_FIXED_SIZE"}, {102, "FT_VARIABLE_SIZE"}};
    EXPECT_EQ(types, YFieldInfo::FIELD_TYPE_TO_STRING_HASH);
    const QHash<unsigned int, QString> properties {{0, "FP_NOTHING"}, {1, "FP_INTERNAL"}};
    EXPECT_EQ(properties, YFieldInfo::FIELD_PROPERTIES_TO_STRING_HASH);

    ASSERT_EQ(3, YFieldInfo::INTERNAL_FIELD_TYPES_HASH.size());
    const YFieldInfo content = YFieldInfo::INTERNAL_FIELD_TYPES_HASH.value("ContentDigest");
    EXPECT_EQ(YFieldInfo::FT_32, content.getType());
    EXPECT_EQ(4u, content.getSize());
    EXPECT_EQ(YFieldInfo::FP_INTERNAL, content.getProperties());
    EXPECT_EQ(0u, content.getOrder());
    const YFieldInfo digest = YFieldInfo::getInternalFieldInfo("TypeDigest");
    EXPECT_EQ(YFieldInfo::FT_FIXED_SIZE, digest.getType());
    EXPECT_EQ(32u, digest.getSize());
    EXPECT_EQ(YFieldInfo::FP_INTERNAL, digest.getProperties());
    EXPECT_EQ(1u, digest.getOrder());
    const YFieldInfo offsets = YFieldInfo::getInternalFieldInfo("Offsets");
    EXPECT_EQ(YFieldInfo::FT_FIXED_SIZE, offsets.getType());
    EXPECT_EQ(0u, offsets.getSize());
    EXPECT_EQ(YFieldInfo::FP_INTERNAL, offsets.getProperties());
    EXPECT_EQ(2u, offsets.getOrder());
    EXPECT_TRUE(YFieldInfo::isNameInternal("Offsets"));
    EXPECT_FALSE(YFieldInfo::isNameInternal("offsets"));
}

TEST(YFieldInfo, AtomicFieldOfItsSizeIsAccepted)
{
    EXPECT_EQ("", declare("a", YFieldInfo::FT_32, 4, YFieldInfo::FP_NOTHING, 3));
}

TEST(YFieldInfo, AtomicFieldOfAnotherSizeThrows)
{
    const std::string text = declare("a", YFieldInfo::FT_32, 8, YFieldInfo::FP_NOTHING, 3);
    EXPECT_EQ("Can't declare an atomic field [Field: Name a, Type FT_32, Size 8, Properties "
              "FP_NOTHING, Order 3]: the size should be 4",
        text);
}

TEST(YFieldInfo, UnknownTypesThrow)
{
    for (unsigned int type : {5u, 0u, 100u, 103u}) {
        const std::string text = declare("a", type, 0, YFieldInfo::FP_NOTHING, 3);
        EXPECT_TRUE(contains(text, "the type is not known or not reserved for internal")) << type;
        EXPECT_TRUE(contains(text,
            "Can't declare an internal field [Field: Name a, Type [THE "
            "TYPE "))
            << text;
    }
    EXPECT_EQ("Can't declare an internal field [Field: Name a, Type [THE TYPE 5 DOES NOT EXIST!], "
              "Size 0, Properties FP_NOTHING, Order 3]: the type is not known or not reserved for "
              "internal",
        declare("a", 5, 0, YFieldInfo::FP_NOTHING, 3));
}

TEST(YFieldInfo, InternalRawFieldMatchesAtAnySize)
{
    EXPECT_EQ("", declare("Offsets", YFieldInfo::FT_FIXED_SIZE, 40, YFieldInfo::FP_INTERNAL, 2));
}

TEST(YFieldInfo, InternalFieldAtAnotherOrderThrows)
{
    EXPECT_EQ("The internal field parameters are not as expected(is [Field: Name Offsets, Type "
              "FT_FIXED_SIZE, Size 40, Properties FP_INTERNAL, Order 3], expected [Field: Name "
              "Offsets, Type FT_FIXED_SIZE, Size 0, Properties FP_INTERNAL, Order 2])",
        declare("Offsets", YFieldInfo::FT_FIXED_SIZE, 40, YFieldInfo::FP_INTERNAL, 3));
}

TEST(YFieldInfo, InternalFieldOfAnotherTypeThrows)
{
    EXPECT_TRUE(contains(declare("TypeDigest", YFieldInfo::FT_32, 4, YFieldInfo::FP_INTERNAL, 1),
        "The internal field parameters are not as expected"));
}

TEST(YFieldInfo, InternalFieldWithoutItsPropertyThrows)
{
    EXPECT_TRUE(contains(declare("ContentDigest", YFieldInfo::FT_32, 4, YFieldInfo::FP_NOTHING, 0),
        "The internal field parameters are not as expected"));
}

TEST(YFieldInfo, UserFieldMarkedInternalAtAnInternalOrderIsAcceptedSilently)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ("", declare("a", YFieldInfo::FT_8, 1, YFieldInfo::FP_INTERNAL, 1));
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(YFieldInfo, PropertiesAsString)
{
    const YFieldInfo plain("a", YFieldInfo::FT_8, 1, YFieldInfo::FP_NOTHING, 3);
    EXPECT_EQ(QStringLiteral("FP_NOTHING"), plain.getPropertiesAsString());
    const YFieldInfo internal = YFieldInfo::getInternalFieldInfo("ContentDigest");
    EXPECT_EQ(QStringLiteral("FP_INTERNAL"), internal.getPropertiesAsString());
    // Bits without a text are passed over.
    YFieldInfo odd("a", YFieldInfo::FT_8, 1, 0x6, 3);
    EXPECT_EQ(QStringLiteral("FP_NOTHING"), odd.getPropertiesAsString());
    odd.setProperty(YFieldInfo::FP_INTERNAL);
    EXPECT_EQ(QStringLiteral("FP_INTERNAL"), odd.getPropertiesAsString());
}

TEST(YFieldInfo, ToStringOfAnInternalField)
{
    EXPECT_EQ(QStringLiteral("Field: Name ContentDigest, Type FT_32, Size 4, Properties "
                             "FP_INTERNAL, Order 0"),
        YFieldInfo::getInternalFieldInfo("ContentDigest").toString());
}

TEST(YFieldInfo, UnsetPropertySetsEveryOtherBit)
{
    YFieldInfo field("a", YFieldInfo::FT_8, 1, YFieldInfo::FP_NOTHING, 3);
    field.unsetProperty(YFieldInfo::FP_INTERNAL);
    EXPECT_EQ(0xFFFFFFFEu, field.getProperties());
}

TEST(YFieldInfo, SetPropertiesAddsAndSettersDetach)
{
    YFieldInfo field("a", YFieldInfo::FT_8, 1, 4, 3);
    YFieldInfo copy = field;
    EXPECT_TRUE(copy == field);
    copy.setProperties(YFieldInfo::FP_INTERNAL);
    EXPECT_EQ(5u, copy.getProperties());
    EXPECT_EQ(4u, field.getProperties());
    EXPECT_FALSE(copy == field);
}

TEST(YFieldInfo, IsOfNothingIsAlwaysFalse)
{
    const YFieldInfo field("a", YFieldInfo::FT_8, 1, YFieldInfo::FP_INTERNAL, 3);
    EXPECT_FALSE(field.is(YFieldInfo::FP_NOTHING));
    EXPECT_TRUE(field.is(YFieldInfo::FP_INTERNAL));
}

TEST(YFieldInfo, EqualityIsSharingIdentityComparesAttributes)
{
    const YFieldInfo a("a", YFieldInfo::FT_16, 2, 0, 3);
    const YFieldInfo b("a", YFieldInfo::FT_16, 2, 0, 3);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a.isIdenticalTo(b));
    EXPECT_FALSE(a.isIdenticalTo(YFieldInfo("a", YFieldInfo::FT_16, 2, 0, 4)));
    EXPECT_TRUE(a.isAtomicType());
    EXPECT_FALSE(a.isRawType());
}

TEST(YFieldInfo, MatchesNeverMeetsAnExpectationWithoutProperties)
{
    const YFieldInfo expected("a", YFieldInfo::FT_16, 2, 0, 3);
    const YFieldInfo field("a", YFieldInfo::FT_16, 2, 1, 9);
    EXPECT_FALSE(field.matches(expected));
    const YFieldInfo expectedInternal("a", YFieldInfo::FT_16, 2, 1, 3);
    // Orders don't count for a user's name.
    EXPECT_TRUE(field.matches(expectedInternal));
    EXPECT_FALSE(YFieldInfo("b", YFieldInfo::FT_16, 2, 1, 3).matches(expectedInternal));
    EXPECT_FALSE(YFieldInfo("a", YFieldInfo::FT_32, 4, 1, 3).matches(expectedInternal));
}
