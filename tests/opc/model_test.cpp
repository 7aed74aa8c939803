// The package model's rules for names and links: the part-name grammar and equivalence, URIs and
// media types, relationship ids and targets, and the content-type map.
#include <gtest/gtest.h>

#include "opc/model/content_type.h"
#include "opc/model/content_types.h"
#include "opc/model/package_helper.h"
#include "opc/model/part_name.h"
#include "opc/model/relationship.h"
#include "opc/model/uri.h"
#include "opc/xml/xerces_helper.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;

// Every name is held as its ASCII URI form, non-ASCII characters percent-encoded as UTF-8 and escapes
// in upper case; a name breaking the grammar is refused naming the rule.
TEST(PartNameTest, GrammarAndTextForm) {
  // Given, its text form or, not starting with '/', the rule its refusal names.
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"/_rels/.rels", "/_rels/.rels"},
      {u"/a%20b/c%23d%25e.xml", "/a%20b/c%23d%25e.xml"},
      {u"/!$&'()*+,;=:@.x", "/!$&'()*+,;=:@.x"},
      {u"/a/%d1%86.xml", "/a/%D1%86.xml"},
      {u"/%5b%5d/%3a%fA", "/%5B%5D/%3A%FA"},
      {u"/\u00e9t\u00e9/\u4e2d\U0001F600.txt", "/%C3%A9t%C3%A9/%E4%B8%AD%F0%9F%98%80.txt"},
      {u"/Mixed/CASE.Xml", "/Mixed/CASE.Xml"},  // only escapes are upper-cased
      {u"", "empty"},
      {u"a/b.xml", "does not start with '/'"},
      {u"/", "ends with '/'"},
      {u"//a", "empty segment"},
      {u"/a/b.", "ends with '.'"},
      {u"/a%2Fb", "percent-encoded '/'"},
      {u"/a%5Cb", "percent-encoded '/' or '\\'"},
      {u"/%41.xml", "unreserved"},
      {u"/a%G1", "two hex digits"},
      {u"/[Content_Types].xml", "cannot hold unencoded"},
      {u"/a\u0001", "cannot hold unencoded"},
      {u"/a\xD800", "unpaired surrogate"},
  };
  for (const auto& [given, expected] : cases) {
    SCOPED_TRACE(u8(given));
    if (expected[0] != '/') {
      EXPECT_THAT(errorOf([&] { PartName{given}; }), HasSubstr(expected));
      continue;
    }
    const PartName name(given);
    EXPECT_EQ(name.text(), expected);
    EXPECT_EQ(name.getZipItemName(), expected + 1);
    EXPECT_EQ(PartName::fromZipItemName(expected + 1).text(), expected);
  }
  EXPECT_EQ(PartName::decodeSegment(u"a%20b%23%25%C3%A9"), u"a b#%\u00e9");
  EXPECT_THROW(PartName::decodeSegment(u"%FF"), Exception);
  EXPECT_EQ(PartName::fromZipItemName("a/%c3%a9.xml").text(), "/a/%C3%A9.xml");
  EXPECT_EQ(PartName::fromZipItemName("a/\xd1\x86.xml").text(), "/a/%D1%86.xml") << "UTF-8 item name of another tool";
  for (const char* refused : {"a/\xff.xml", "/abs.xml", "a b.xml"}) EXPECT_THROW(PartName::fromZipItemName(refused), Exception);
  // A refused item name is quoted as it was given, not as upper-casing left it.
  EXPECT_THAT(errorOf([] { (void)PartName::fromZipItemName("a/%c3/%2f"); }), HasSubstr("'/a/%c3/%2f'"));
}

// Names are equivalent and hash alike with ASCII letters folded, nothing else folded: part names,
// the name index's keys and Default extensions alike.
TEST(PartNameTest, EquivalenceFoldsAsciiLettersOnly) {
  const std::tuple<const char16_t*, const char16_t*, bool> cases[] = {  // a, b, equivalent
      {u"/a/B.xml", u"/A/b.XML", true},
      {u"/a/%d1%86.xml", u"/a/%D1%86.xml", true},
      {u"/a/\u0446.xml", u"/a/%D1%86.xml", true},
      {u"/a/\u00e9.xml", u"/a/\u00c9.xml", false},  // non-ASCII case is not folded
      {u"/a.xml", u"/a.xm", false},
      {u"/_x", u"/Bx", false},
      {u"/a", u"/Z", false},
      {u"/a", u"/A/b", false},
  };
  const PartNameKeyHash hash;
  for (const auto& [a, b, equivalent] : cases) {
    SCOPED_TRACE(u8(a) + " vs " + u8(b));
    EXPECT_EQ(PartName(a) == PartName(b), equivalent);
    EXPECT_EQ(hash(PartName(a)) == hash(PartName(b)), equivalent);
  }
  // Raw keys: 0x5B/0x7B and 0x40/0x60 differ by 32 but are no letters; a Default extension's UTF-8.
  for (const auto& [a, b] : {std::pair{"/[", "/{"}, {"/@", "/`"}, {"/\xC3\x89", "/\xC3\xA9"}}) {
    EXPECT_FALSE(PartNameKeyEqual{}(a, b)) << a;
    EXPECT_NE(hash(a), hash(b)) << a;  // the hash separates these short pairs
  }
}

TEST(PartNameTest, ExtensionAndRelationshipsNames) {
  const std::tuple<const char16_t*, std::string_view, bool> cases[] = {
      {u"/a/b.xml", "xml", false},           {u"/_rels/.rels", "rels", true},  {u"/a/_rels/b.xml.rels", "rels", true},
      {u"/a/_RELS/b.xml.RELS", "RELS", true}, {u"/a/rels/b.rels", "rels", false}, {u"/_rels", "", false}};
  for (const auto& [name, extension, relationships] : cases) {
    SCOPED_TRACE(u8(name));
    EXPECT_EQ(PartName(name).extensionView(), extension);
    EXPECT_EQ(PartName(name).isRelationshipsPartName(), relationships);
  }
}

TEST(URITest, IrisBecomeUrisAndBadCharactersAreRefused) {
  EXPECT_EQ(URI(u"/a/\u0446.xml").toString(), u"/a/%D1%86.xml");
  EXPECT_EQ(URI(u"/a/%d1%86.xml"), URI(u"/a/%D1%86.xml"));
  EXPECT_EQ(URI(u"/\U0001F600").toString(), u"/%F0%9F%98%80");
  for (const char16_t* bad : {u"a b", u"a\"b", u"a<b", u"a\\b", u"a{b", u"a|b", u"a%", u"a%zz", u"a\u0007"}) {
    EXPECT_THROW(URI{bad}, Exception) << u8(bad);
  }
  EXPECT_TRUE(URI(u"http://example.com/").isAbsolute());
  EXPECT_FALSE(URI(u"/a:b").isAbsolute());
  EXPECT_FALSE(URI(u"a/b:c").isAbsolute());
}

// A media type breaking the grammar is refused; two are equal ignoring case except in parameter
// values, and each keeps the spelling it was given.
TEST(ContentTypeTest, GrammarAndEquality) {
  const std::tuple<const char16_t*, const char16_t*, bool> cases[] = {  // a, b, equal
      {u"Application/XML", u"application/xml", true},
      {u"text/plain;Charset=utf-8", u"text/plain; charset=utf-8", true},
      {u"text/plain;a=\"quoted; value\"", u"text/plain;A=\"quoted; value\"", true},
      {u"text/plain;charset=X", u"text/plain;charset=x", false},
      {u"text/plain", u"text/plain;charset=x", false},
  };
  for (const auto& [a, b, equal] : cases) {
    EXPECT_EQ(ContentType(a) == ContentType(b), equal) << u8(a);
    EXPECT_EQ(ContentType(a).toString(), a);
  }
  for (const char16_t* refused : {u"", u"text/plain;charset = utf-8", u"text/plain;a=\"open", u"text/pl\u00e4in"}) {
    EXPECT_THROW(ContentType{refused}, Exception) << u8(refused);
  }
}

constexpr char16_t kType[] = u"http://example.com/rel";

// Each script step creates a relationship with an id ("" = assign) and expects the id stored, or
// (expected nullptr) deletes the id.
TEST(RelationshipsTest, AssignedIdsNeverCollide) {
  const std::pair<const char*, std::vector<std::pair<const char16_t*, const char16_t*>>> scripts[] = {
      {"sequential", {{u"", u"rId1"}, {u"", u"rId2"}, {u"", u"rId3"}}},
      {"explicit rId100 is skipped later", {{u"rId100", u"rId100"}, {u"", u"rId1"}, {u"rId2", u"rId2"}, {u"", u"rId3"}}},
      {"deleted ids are not reused in a session", {{u"", u"rId1"}, {u"", u"rId2"}, {u"rId1", nullptr}, {u"", u"rId3"}}},
      {"foreign ids", {{u"rId_IS_setup.xml", u"rId_IS_setup.xml"}, {u"", u"rId1"}}},
  };
  for (const auto& [name, steps] : scripts) {
    SCOPED_TRACE(name);
    Relationships rels(PackageHelper::getPackageRootURI());
    for (const auto& [id, expected] : steps) {
      if (expected == nullptr) {
        EXPECT_TRUE(rels.deleteRelationship(id));
      } else {
        EXPECT_EQ(rels.createRelationship(URI(u"/a.xml"), kType, id).getId(), expected);
      }
    }
  }
}

// Each case (source, target, part, id, type): a relationship made next to one with id "rId1"; the part
// its target resolves to against the source, or nullptr when it is refused (and nothing is added).
TEST(RelationshipsTest, TargetsResolveAgainstTheSourceAndInvalidOnesAreRefused) {
  const std::tuple<const char16_t*, const char16_t*, const char16_t*, const char16_t*, const char16_t*> cases[] = {
      {u"/", u"a.xml", u"/a.xml", u"", kType},
      {u"/", u"./a/../b.xml", u"/b.xml", u"", kType},
      {u"/dir/src.xml", u"../b.xml", u"/b.xml", u"", kType},
      {u"/dir/src.xml", u"../../../b.xml", u"/b.xml", u"", kType},
      {u"/dir/src.xml", u"caf\u00e9.xml", u"/dir/caf%C3%A9.xml", u"", kType},
      {u"/", u"http://example.com/a.xml", nullptr, u"", kType},
      {u"/", u"a.xml#frag", nullptr, u"", kType},
      {u"/dir/src.xml", u"..", nullptr, u"", kType},
      {u"/", u"a.xml", nullptr, u"r Id", kType},
      {u"/", u"a.xml", nullptr, u"", u""},
      {u"/", u"", nullptr, u"", kType},
  };
  for (const auto& [source, target, part, id, type] : cases) {
    SCOPED_TRACE(u8(source) + " + " + u8(target) + " id " + u8(id));
    Relationships rels{URI(source)};
    rels.createRelationship(URI(u"x.xml"), kType, u"rId1");
    if (part == nullptr) {
      EXPECT_THROW(rels.createRelationship(URI(target), type, id), Exception);
      EXPECT_EQ(rels.size(), 1u);
    } else {
      EXPECT_EQ(rels.createRelationship(URI(target), type, id).getTargetPartName(), PartName(part));
    }
  }
  Relationships rels(PackageHelper::getPackageRootURI());
  EXPECT_NO_THROW(rels.createRelationship(URI(u"mailto:a@example.com"), kType, u"", TargetMode::External));
}

TEST(ContentTypesTest, LookupIgnoresAsciiCaseOfExtensionsAndNames) {
  const XercesGuard xml;
  BytesInput in("<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
                "<Default Extension=\"XML\" ContentType=\"application/xml\"/>"
                "<Default Extension=\"%c3%a9\" ContentType=\"text/e\"/>"
                "<Override PartName=\"/Docs/A.xml\" ContentType=\"text/a\"/>"
                "<Override PartName=\"/a/%d1%86\" ContentType=\"text/c\"/></Types>");
  const detail::ContentTypeMap map = detail::ContentTypeMap::read(in, "types");
  const std::pair<const char16_t*, ustring> cases[] = {  // "": no type
      {u"/b.xml", u"application/xml"},
      {u"/b.XmL", u"application/xml"},
      {u"/docs/a.XML", u"text/a"},  // the Override wins over the Default
      {u"/a/\u0446", u"text/c"},
      {u"/x.\u00e9", u"text/e"},
      {u"/x.\u00c9", u""},  // non-ASCII case is not folded
      {u"/b.xmlx", u""},
      {u"/noextension", u""},
  };
  for (const auto& [part, expected] : cases) {
    const ContentType* type = map.lookup(PartName(part));
    EXPECT_EQ(type != nullptr ? type->toString() : u"", expected) << u8(part);
  }
}

// An extension's most common type is its Default, serving any case of the extension; other parts
// get an Override. Every part reads back its type.
TEST(ContentTypesTest, WrittenTypesReadBackForEveryPart) {
  const std::pair<PartName, ContentType> typed[] = {
      {PartName(u"/a.xml"), ContentType(u"application/xml")}, {PartName(u"/B.XML"), ContentType(u"application/xml")},
      {PartName(u"/c.xml"), ContentType(u"application/vnd.special+xml")},
      {PartName(u"/\u00e9.Txt"), ContentType(u"text/plain")}, {PartName(u"/plain"), ContentType(u"text/plain")}};
  std::vector<std::pair<const PartName*, const ContentType*>> parts;
  for (const auto& [name, type] : typed) parts.emplace_back(&name, &type);
  const std::string written = detail::buildContentTypesXml(parts);
  for (const char* entry : {"<Default Extension=\"xml\" ContentType=\"application/xml\"/>",
                            "<Override PartName=\"/c.xml\" ContentType=\"application/vnd.special+xml\"/>",
                            "<Override PartName=\"/plain\" ContentType=\"text/plain\"/>"}) {
    EXPECT_NE(written.find(entry), std::string::npos) << entry;
  }
  EXPECT_EQ(written.find("B.XML"), std::string::npos) << "the Default serves any case of its extension";
  const XercesGuard guard;
  BytesInput in(written);
  const detail::ContentTypeMap map = detail::ContentTypeMap::read(in, "written");
  for (const auto& [name, type] : typed) {
    const ContentType* read = map.lookup(name);
    EXPECT_TRUE(read != nullptr && *read == type) << name.text();
  }
}

}  // namespace
}  // namespace opc::model
