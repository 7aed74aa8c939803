#include "opc/model/part_name.h"

#include <gtest/gtest.h>

#include "opc/exception.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using test::u8;

// Every name is held as its ASCII URI form, non-ASCII characters percent-encoded as UTF-8 and escapes
// in upper case; a name breaking the grammar is refused naming the rule.
TEST(PartNameTest, GrammarAndTextForm) {
  const struct {
    const char16_t* given;
    std::string_view text;  // "": refused
    const char* violation = nullptr;
  } cases[] = {
      {u"/_rels/.rels", "/_rels/.rels"},
      {u"/a%20b/c%23d%25e.xml", "/a%20b/c%23d%25e.xml"},
      {u"/!$&'()*+,;=:@.x", "/!$&'()*+,;=:@.x"},
      {u"/a/%d1%86.xml", "/a/%D1%86.xml"},
      {u"/%5b%5d/%3a%fA", "/%5B%5D/%3A%FA"},
      {u"/\u00e9t\u00e9/\u4e2d\U0001F600.txt", "/%C3%A9t%C3%A9/%E4%B8%AD%F0%9F%98%80.txt"},
      {u"/Mixed/CASE.Xml", "/Mixed/CASE.Xml"},  // only escapes are upper-cased
      {u"", "", "empty"},
      {u"a/b.xml", "", "does not start with '/'"},
      {u"/", "", "ends with '/'"},
      {u"//a", "", "empty segment"},
      {u"/a/b.", "", "ends with '.'"},
      {u"/a%2Fb", "", "percent-encoded '/'"},
      {u"/a%5Cb", "", "percent-encoded '/' or '\\'"},
      {u"/%41.xml", "", "unreserved"},
      {u"/a%G1", "", "two hex digits"},
      {u"/a b", "", "cannot hold unencoded"},
      {u"/[Content_Types].xml", "", "cannot hold unencoded"},
      {u"/a\u0001", "", "cannot hold unencoded"},
      {u"/a\xD800", "", "unpaired surrogate"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.given));
    if (c.violation != nullptr) {
      try {
        PartName name{c.given};
        ADD_FAILURE() << "accepted";
      } catch (const Exception& e) {
        EXPECT_NE(std::string(e.what()).find(c.violation), std::string::npos) << e.what();
      }
      continue;
    }
    const PartName name(c.given);
    EXPECT_EQ(name.text(), c.text);
    EXPECT_EQ(name.getName(), ustring(c.text.begin(), c.text.end()));
    EXPECT_EQ(name.getZipItemName(), c.text.substr(1));
    EXPECT_EQ(PartName::fromZipItemName(c.text.substr(1)).text(), c.text);
    EXPECT_EQ(name.getURI().toString(), name.getName());
  }
  EXPECT_EQ(PartName::decodeSegment(u"a%20b%23%25%C3%A9"), u"a b#%\u00e9");
  EXPECT_THROW(PartName::decodeSegment(u"%FF"), Exception);
  EXPECT_EQ(PartName::fromZipItemName("a/%c3%a9.xml").text(), "/a/%C3%A9.xml");
  EXPECT_EQ(PartName::fromZipItemName("a/\xd1\x86.xml").text(), "/a/%D1%86.xml") << "UTF-8 item name of another tool";
  for (const char* refused : {"a/\xff.xml", "/abs.xml", "a b.xml"}) EXPECT_THROW(PartName::fromZipItemName(refused), Exception);
  // A refused item name is quoted as it was given, not as upper-casing left it.
  try {
    (void)PartName::fromZipItemName("a/%c3/%2f");
    ADD_FAILURE() << "accepted";
  } catch (const Exception& e) {
    EXPECT_NE(std::string(e.what()).find("'/a/%c3/%2f'"), std::string::npos) << e.what();
  }
}

TEST(PartNameTest, EquivalenceIgnoresAsciiCaseOnly) {
  const struct {
    const char16_t* a;
    const char16_t* b;
    bool equivalent;
    bool less;  // ordered as the lower-cased names
  } cases[] = {
      {u"/a/B.xml", u"/A/b.XML", true, false},
      {u"/a/%d1%86.xml", u"/a/%D1%86.xml", true, false},
      {u"/a/\u0446.xml", u"/a/%D1%86.xml", true, false},
      {u"/a/\u00e9.xml", u"/a/\u00c9.xml", false, false},  // non-ASCII case is not folded
      {u"/a.xml", u"/a.xm", false, false},
      {u"/_x", u"/Bx", false, true},  // '_' sorts between 'B' and 'b': upper case is folded first
      {u"/a", u"/Z", false, true},
      {u"/a", u"/A/b", false, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.a) + " vs " + u8(c.b));
    EXPECT_EQ(PartName(c.a) == PartName(c.b), c.equivalent);
    EXPECT_EQ(PartNameKeyHash{}(PartName(c.a)) == PartNameKeyHash{}(PartName(c.b)), c.equivalent);
    EXPECT_EQ(PartName(c.a) < PartName(c.b), c.less);
  }
}

TEST(PartNameTest, KeysFoldAsciiLettersOnly) {
  const struct {
    std::string_view a;
    std::string_view b;
    bool equal;
  } cases[] = {
      {"/a/B.xml", "/A/b.XML", true},
      {"/%C3%A9", "/%c3%a9", true},
      {"/[", "/{", false},  // 0x5B and 0x7B differ by 32 but are no letters
      {"/@", "/`", false},
      {"/\xC3\x89", "/\xC3\xA9", false},  // UTF-8 of a Default extension: no folding above 0x7F
      {"/a", "/a/", false},
  };
  const PartNameKeyHash hash;
  const PartNameKeyEqual equal;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " vs " + std::string(c.b));
    EXPECT_EQ(equal(c.a, c.b), c.equal);
    // FNV-1a separates these short pairs whenever they do not fold together.
    EXPECT_EQ(hash(c.a) == hash(c.b), c.equal);
  }
}

TEST(PartNameTest, ExtensionAndRelationshipsNames) {
  const struct {
    const char16_t* name;
    const char16_t* extension;
    bool relationships;
  } cases[] = {
      {u"/a/b.xml", u"xml", false},
      {u"/_rels/.rels", u"rels", true},
      {u"/a/_rels/b.xml.rels", u"rels", true},
      {u"/a/_RELS/b.xml.RELS", u"RELS", true},
      {u"/a/rels/b.rels", u"rels", false},
      {u"/_rels", u"", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.name));
    EXPECT_EQ(PartName(c.name).extensionView(), u8(c.extension));
    EXPECT_EQ(PartName(c.name).isRelationshipsPartName(), c.relationships);
  }
}

}  // namespace
}  // namespace opc::model
