#include "type_info.h"
#include "xml_type_loader.h"
#include "yexception.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <QBuffer>

#include <memory>
#include <string>

using yovotest::thrownBy;

namespace {

// A loader over a document held in memory; the buffer lives as long as the loader.
class Document
{
public:
    explicit Document(const char* text)
    {
        _buffer.setData(QByteArray(text));
        _buffer.open(QIODevice::ReadOnly);
        _loader.setDevice(&_buffer);
    }
    YXmlTypeLoader& loader() { return _loader; }
    QBuffer& buffer() { return _buffer; }

private:
    QBuffer _buffer;
    YXmlTypeLoader _loader;
};

const char* const TWO_TYPES = R"(<?xml version="1.0"?>
<types>
  <type name="Status">
    <field name="code" type="FT_32"/>
    <!-- the flags come next -->
    <field name="flags" type="FT_8"/>
    <note>not a field</note>
    <field name="stamp" type="FT_64"/>
    <field name="word" type="FT_16"/>
  </type>
  text between types
  <anything name="Record">
    <field name="key" type="FT_FIXED_SIZE" size="16"/>
    <field name="value" type="FT_VARIABLE_SIZE"/>
    <field name="count" type="FT_32" size="16"/>
  </anything>
</types>
)";

} // namespace

TEST(YXmlTypeLoader, TypesAgreeWithTheSameTypesDeclaredInCode)
{
    Document document(TWO_TYPES);
    const QHash<QString, YTypeInfo_t<YMD5>> types = document.loader().loadAllTypes();
    ASSERT_EQ(2, types.size());

    YTypeInfo_t<YMD5> status("Status");
    status.add32Field("code");
    status.add8Field("flags");
    status.add64Field("stamp");
    status.add16Field("word");
    status.finalize();
    YTypeInfo_t<YMD5> record("Record");
    record.addFixedSizeField("key", 16);
    record.addVariableSizeField("value");
    record.add32Field("count");
    record.finalize();

    EXPECT_EQ(
        status.getTypeDigest(), types.value("Status", YTypeInfo_t<YMD5>("x")).getTypeDigest());
    EXPECT_TRUE(status.isIdenticalTo(types.value("Status", YTypeInfo_t<YMD5>("x"))));
    const YTypeInfo_t<YMD5> loaded = document.loader().loadTypeByName("Record");
    EXPECT_EQ(record.getTypeDigest(), loaded.getTypeDigest());
    // size="16" on an FT_32 field is not read.
    EXPECT_EQ(4u, loaded.getFieldInfo("count").getSize());
    EXPECT_TRUE(loaded.isFinalized());
}

TEST(YXmlTypeLoader, EmptyTypesGiveAnEmptyHashAndNoType)
{
    Document document("<types/>");
    EXPECT_TRUE(document.loader().loadAllTypes().isEmpty());
    EXPECT_EQ("Type Status was not found on a given device",
        thrownBy([&] { document.loader().loadTypeByName("Status"); }));
}

TEST(YXmlTypeLoader, SwappedFieldsGiveAnotherDigest)
{
    Document ab(
        R"(<types><t name="t"><field name="a" type="FT_8"/><field name="b" type="FT_8"/></t></types>)");
    Document ba(
        R"(<types><t name="t"><field name="b" type="FT_8"/><field name="a" type="FT_8"/></t></types>)");
    EXPECT_NE(ab.loader().loadTypeByName("t").getTypeDigest(),
        ba.loader().loadTypeByName("t").getTypeDigest());
}

TEST(YXmlTypeLoader, LoadingTwiceFromOneDeviceGivesEqualDigests)
{
    Document document(TWO_TYPES);
    document.buffer().seek(document.buffer().size());
    const QByteArray first = document.loader().loadTypeByName("Status").getTypeDigest();
    const QByteArray second = document.loader().loadTypeByName("Status").getTypeDigest();
    EXPECT_EQ(first, second);
    EXPECT_EQ(2, document.loader().loadAllTypes().size());
}

TEST(YXmlTypeLoader, BadXmlNamesLineAndColumd)
{
    Document document("<types>\n<t name=\"a\">\n</types>");
    const std::string text = thrownBy([&] { document.loader().loadAllTypes(); });
    EXPECT_EQ(0u, text.find("Can't parse XML document (error: ")) << text;
    EXPECT_NE(std::string::npos, text.find(", line: 3, columd: ")) << text;
}

TEST(YXmlTypeLoader, UnknownFieldTypeThrows)
{
    Document document(R"(<types><t name="t"><field name="a" type="FT_128"/></t></types>)");
    EXPECT_EQ("Illegal field type FT_128", thrownBy([&] { document.loader().loadAllTypes(); }));
}

TEST(YXmlTypeLoader, DuplicateFieldThrowsAsTheTypeDoes)
{
    Document document(
        R"(<types><t name="t"><field name="a" type="FT_8"/><field name="a" type="FT_16"/></t></types>)");
    EXPECT_EQ("[t] field already defined: a.", thrownBy([&] { document.loader().loadAllTypes(); }));
}

TEST(YXmlTypeLoader, LaterTypeOfOneNameReplacesTheEarlier)
{
    Document document(
        R"(<types><t name="t"><field name="a" type="FT_8"/></t><u name="t"><field name="a" type="FT_16"/></u></types>)");
    const QHash<QString, YTypeInfo_t<YMD5>> types = document.loader().loadAllTypes();
    ASSERT_EQ(1, types.size());
    EXPECT_EQ(2u, types.begin().value().getFieldInfo("a").getSize());
}

TEST(YXmlTypeLoader, DeviceThatCannotResetThrows)
{
    YXmlTypeLoader loader;
    EXPECT_EQ(nullptr, loader.getDevice());
    EXPECT_EQ("Can't reset an IODevice", thrownBy([&] { loader.loadAllTypes(); }));
    QBuffer closed;
    loader.setDevice(&closed);
    EXPECT_EQ("Can't reset an IODevice", thrownBy([&] { loader.loadAllTypes(); }));
}

TEST(YXmlTypeLoader, CopiesShareTheDevice)
{
    Document document(TWO_TYPES);
    const YXmlTypeLoader copy(document.loader());
    YXmlTypeLoader assigned;
    assigned = copy;
    EXPECT_EQ(&document.buffer(), assigned.getDevice());
}

TEST(YXmlTypeLoaderDeathTest, FixedSizeOfZeroEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Document document(
        R"(<types><t name="t"><field name="a" type="FT_FIXED_SIZE" size="0"/></t></types>)");
    EXPECT_DEATH(document.loader().loadAllTypes(), "fieldSize != 0");
    Document notNumber(
        R"(<types><t name="t"><field name="a" type="FT_FIXED_SIZE" size="ten"/></t></types>)");
    EXPECT_DEATH(notNumber.loader().loadAllTypes(), "fieldSize != 0");
}

TEST(YXmlTypeLoaderDeathTest, MissingRootOrAttributesEndTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Document noRoot("<type/>");
    EXPECT_DEATH(noRoot.loader().loadAllTypes(), "!root.isNull\\(\\)");
    Document noName(R"(<types><t name="t"><field type="FT_8"/></t></types>)");
    EXPECT_DEATH(noName.loader().loadAllTypes(), "!attributeFieldName.isNull\\(\\)");
    Document noSize(R"(<types><t name="t"><field name="a" type="FT_FIXED_SIZE"/></t></types>)");
    EXPECT_DEATH(noSize.loader().loadAllTypes(), "!attributeFieldSize.isNull\\(\\)");
}
