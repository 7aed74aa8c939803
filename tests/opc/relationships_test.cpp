#include "opc/model/relationship.h"

#include <gtest/gtest.h>

#include <set>
#include <variant>

#include "opc/exception.h"
#include "opc/model/package_helper.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using test::u8;

constexpr char16_t kType[] = u"http://example.com/rel";

// One step of a script: create with an id ("" = assign) and expect the id stored, or delete an id.
struct Create {
  const char16_t* id;
  const char16_t* expected;
};
struct Delete {
  const char16_t* id;
};
using Step = std::variant<Create, Delete>;

TEST(RelationshipsTest, AssignedIdsNeverCollide) {
  const struct {
    const char* name;
    std::vector<Step> steps;
  } scripts[] = {
      {"sequential", {Create{u"", u"rId1"}, Create{u"", u"rId2"}, Create{u"", u"rId3"}}},
      {"explicit rId100 is skipped later",
       {Create{u"rId100", u"rId100"}, Create{u"", u"rId1"}, Create{u"rId2", u"rId2"}, Create{u"", u"rId3"}}},
      {"deleted ids are not reused in a session",
       {Create{u"", u"rId1"}, Create{u"", u"rId2"}, Delete{u"rId1"}, Create{u"", u"rId3"}}},
      {"foreign ids", {Create{u"rId_IS_setup.xml", u"rId_IS_setup.xml"}, Create{u"", u"rId1"}}},
  };
  for (const auto& script : scripts) {
    SCOPED_TRACE(script.name);
    Relationships rels(PackageHelper::getPackageRootURI());
    for (const auto& step : script.steps) {
      if (const auto* c = std::get_if<Create>(&step)) {
        EXPECT_EQ(rels.createRelationship(URI(u"/a.xml"), kType, c->id).getId(), c->expected);
      } else {
        EXPECT_TRUE(rels.deleteRelationship(std::get<Delete>(step).id));
      }
    }
    std::set<ustring> ids;
    for (const auto& r : rels.getRelationships()) EXPECT_TRUE(ids.insert(r.getId()).second) << u8(r.getId());
  }
}

// Each case: a relationship made next to one with id "rId1"; the part its target resolves to against
// the source, or nullptr when it is refused (and nothing is added).
TEST(RelationshipsTest, TargetsResolveAgainstTheSourceAndInvalidOnesAreRefused) {
  const struct {
    const char16_t* source;
    const char16_t* target;
    const char16_t* part;
    const char16_t* id = u"";
    const char16_t* type = kType;
  } cases[] = {
      {u"/", u"a.xml", u"/a.xml"},
      {u"/", u"./a/../b.xml", u"/b.xml"},
      {u"/dir/src.xml", u"../b.xml", u"/b.xml"},
      {u"/dir/src.xml", u"../../../b.xml", u"/b.xml"},
      {u"/dir/src.xml", u"caf\u00e9.xml", u"/dir/caf%C3%A9.xml"},
      {u"/", u"http://example.com/a.xml", nullptr},
      {u"/", u"a.xml#frag", nullptr},
      {u"/dir/src.xml", u"..", nullptr},
      {u"/", u"a.xml", nullptr, u"r Id"},
      {u"/", u"a.xml", nullptr, u"", u""},
      {u"/", u"", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.source) + " + " + u8(c.target) + " id " + u8(c.id));
    Relationships rels{URI(c.source)};
    rels.createRelationship(URI(u"x.xml"), kType, u"rId1");
    if (c.part == nullptr) {
      EXPECT_THROW(rels.createRelationship(URI(c.target), c.type, c.id), Exception);
      EXPECT_EQ(rels.size(), 1u);
    } else {
      EXPECT_EQ(rels.createRelationship(URI(c.target), c.type, c.id).getTargetPartName(), PartName(c.part));
    }
  }
  Relationships rels(PackageHelper::getPackageRootURI());
  EXPECT_NO_THROW(rels.createRelationship(URI(u"mailto:a@example.com"), kType, u"", TargetMode::External));
}

}  // namespace
}  // namespace opc::model
