#include "opc/model/content_types.h"

#include <gtest/gtest.h>

#include "opc/xml/xerces_helper.h"
#include "opc_test_support.h"

namespace opc::model::detail {
namespace {

ContentTypeMap readTypes(const std::string& body) {
  const XercesGuard xml;
  opc::test::BytesInput in(
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">" + body + "</Types>");
  return ContentTypeMap::read(in, "types");
}

TEST(ContentTypesTest, LookupIgnoresAsciiCaseOfExtensionsAndNames) {
  const ContentTypeMap map = readTypes(
      "<Default Extension=\"XML\" ContentType=\"application/xml\"/>"
      "<Default Extension=\"%c3%a9\" ContentType=\"text/e\"/>"
      "<Override PartName=\"/Docs/A.xml\" ContentType=\"text/a\"/>"
      "<Override PartName=\"/a/%d1%86\" ContentType=\"text/c\"/>");
  const struct {
    const char16_t* part;
    const char16_t* type;  // nullptr: none
  } cases[] = {
      {u"/b.xml", u"application/xml"},
      {u"/b.XmL", u"application/xml"},
      {u"/docs/a.XML", u"text/a"},  // the Override wins over the Default
      {u"/a/\u0446", u"text/c"},
      {u"/x.\u00e9", u"text/e"},
      {u"/x.\u00c9", nullptr},  // non-ASCII case is not folded
      {u"/b.xmlx", nullptr},
      {u"/noextension", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(test::u8(c.part));
    const ContentType* type = map.lookup(PartName(c.part));
    if (c.type == nullptr) {
      EXPECT_EQ(type, nullptr);
    } else {
      ASSERT_NE(type, nullptr);
      EXPECT_EQ(type->toString(), c.type);
    }
  }
}

// An extension's most common type is its Default, serving any case of the extension; other parts
// get an Override. Every part reads back its type.
TEST(ContentTypesTest, WrittenTypesReadBackForEveryPart) {
  const ContentType xml(u"application/xml");
  const ContentType special(u"application/vnd.special+xml");
  const ContentType text(u"text/plain");
  const PartName names[] = {PartName(u"/a.xml"),        PartName(u"/B.XML"),  PartName(u"/c.xml"),
                            PartName(u"/\u00e9.Txt"), PartName(u"/plain")};
  const ContentType* types[] = {&xml, &xml, &special, &text, &text};
  std::vector<std::pair<const PartName*, const ContentType*>> parts;
  for (std::size_t i = 0; i < std::size(names); ++i) parts.emplace_back(&names[i], types[i]);
  const std::string written = buildContentTypesXml(parts);
  for (const char* entry : {"<Default Extension=\"xml\" ContentType=\"application/xml\"/>",
                            "<Override PartName=\"/c.xml\" ContentType=\"application/vnd.special+xml\"/>",
                            "<Override PartName=\"/plain\" ContentType=\"text/plain\"/>"}) {
    EXPECT_NE(written.find(entry), std::string::npos) << entry;
  }
  EXPECT_EQ(written.find("B.XML"), std::string::npos) << "the Default serves any case of its extension";
  const XercesGuard guard;
  opc::test::BytesInput in(written);
  const ContentTypeMap map = ContentTypeMap::read(in, "written");
  for (std::size_t i = 0; i < std::size(names); ++i) {
    SCOPED_TRACE(names[i].text());
    const ContentType* type = map.lookup(names[i]);
    ASSERT_NE(type, nullptr);
    EXPECT_TRUE(*type == *types[i]);
  }
}

}  // namespace
}  // namespace opc::model::detail
