// The relationships transform: what a signature over selected relationships digests. The expected
// texts follow the transform's rules (sort by Id, keep the selected, TargetMode written out) and
// canonical XML (attributes sorted, start and end tags, escapes); the XML Security Library's own
// transform yields the same bytes (see tests/interop).
#include "opc/signature/canonical_xml.h"

#include <gtest/gtest.h>

#include "opc/model/relationship.h"
#include "opc/xml/xerces_helper.h"

namespace opc::model::signature {
namespace {

constexpr char kOpen[] = "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
constexpr char kClose[] = "</Relationships>";

std::string rel(const std::string& id, const std::string& target, const std::string& mode, const std::string& type) {
  return "<Relationship Id=\"" + id + "\" Target=\"" + target + "\" TargetMode=\"" + mode + "\" Type=\"" + type +
         "\"></Relationship>";
}

TEST(RelationshipTransformTest, SelectsSortsAndCanonicalises) {
  XercesGuard guard;
  Relationships relationships(URI(u"/"));
  relationships.createRelationship(URI(u"b.xml"), u"urn:a", u"rId2");
  relationships.createRelationship(URI(u"a.xml"), u"urn:b", u"rId10");
  relationships.createRelationship(URI(u"http://example.com/?x=1&y=2"), u"urn:a", u"rId1", TargetMode::External);
  relationships.createRelationship(URI(u"c.xml"), u"urn:c", u"Z1");

  const struct {
    const char* name;
    std::vector<ustring> ids;
    std::vector<ustring> types;
    std::string expected;
  } cases[] = {
      {"ByTypeIncludesExternalAndEscapes",
       {},
       {u"urn:a"},
       kOpen + rel("rId1", "http://example.com/?x=1&amp;y=2", "External", "urn:a") +
           rel("rId2", "b.xml", "Internal", "urn:a") + kClose},
      {"SortedByIdAsText",
       {u"rId2", u"rId10", u"Z1"},
       {},
       kOpen + rel("Z1", "c.xml", "Internal", "urn:c") + rel("rId10", "a.xml", "Internal", "urn:b") +
           rel("rId2", "b.xml", "Internal", "urn:a") + kClose},
      {"IdAndTypeTogetherListEachOnce",
       {u"rId2", u"Z1"},
       {u"urn:a"},
       kOpen + rel("Z1", "c.xml", "Internal", "urn:c") + rel("rId1", "http://example.com/?x=1&amp;y=2", "External", "urn:a") +
           rel("rId2", "b.xml", "Internal", "urn:a") + kClose},
      {"TypeComparisonIsExact", {}, {u"URN:A"}, std::string(kOpen) + kClose},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto bytes = transformRelationships(relationships, c.ids, c.types);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), c.expected);
  }
}

}  // namespace
}  // namespace opc::model::signature
