// A small hostile package cannot make reading take gigabytes: parts too many, XML too large or
// nested too deep each fail with the call's key and a message naming the bound.
#include <cstdlib>
#include <functional>

#include "gateway/zvaddon.h"
#include "opc/opc_test_support.h"
#include "support/gateway_call.h"

namespace {

// Each gives an entry's new bytes from its old ones. The document with `padding` bytes of white space
// before its end tag: still valid, only large.
auto padded(std::size_t padding) {
  return [=](const std::string& xml) {
    const std::size_t end = xml.rfind("</");
    return xml.substr(0, end) + std::string(padding, ' ') + xml.substr(end);
  };
}

auto nested(int depth, const std::string& root) {
  return [=](const std::string&) {
    std::string xml = root;
    for (int i = 0; i < depth; ++i) xml += "<a>";
    for (int i = 0; i < depth; ++i) xml += "</a>";
    return xml + "</" + root.substr(1, root.find(' ') - 1) + ">";
  };
}

const std::string kLicense = R"(<license xmlns="https://schemas.zvaddon.org/zorvan/addon/2014/license">)";
const std::string kRels = R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";

TEST(ReadLimitsTest, HostileXmlFailsWithTheBoundNamed) {
  zvtest::TempDir dir;
  using Read = std::pair<qxFunction, const char*>;  // the reading call and its error key
  const Read license{zvAddonGetLicense, "ZVADDON_BUILTINS_ERROR_GET_LICENSE"};
  const Read properties{zvAddonGetProperties, "ZVADDON_BUILTINS_ERROR_GET_PROPERTIES"};
  const struct {
    const char* name;
    std::string entry;  // replaced, deflated, by bytes(its old bytes)
    std::function<std::string(const std::string& old)> bytes;
    Read read;
    const char* message;
  } cases[] = {
      {"MetadataPartTooLarge", "metadata/license.xml", padded(17u << 20), license, "exceeds"},
      {"MetadataPartTooDeep", "metadata/license.xml", nested(100000, kLicense), license, "nest deeper"},
      {"CorePropertiesTooLarge", "docProps/core.xml", padded(17u << 20), properties, "exceeds"},
      {"RelationshipsTooDeep", "_rels/.rels", nested(1000, kRels), properties, "nest deeper"},
      // Opening parses content types and relationships up to a share per item, not 64 MiB each.
      {"RelationshipsBeyondTheirShare", "_rels/.rels", padded(20u << 20), properties, "exceed"},
      // (The file list reads item names only, never the content types.)
      {"ContentTypesBeyondTheirShare", "[Content_Types].xml", padded(20u << 20), properties, "exceed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string package = dir.file(std::string(c.name) + ".zvaddon");
    zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
    zvtest::callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", "granted"}}});
    std::vector<std::pair<std::string, std::string>> rewritten;
    for (const auto& [name, item] : opc::test::rawItems(package)) {
      rewritten.emplace_back(name, name == c.entry ? c.bytes(item.text) : item.text);
    }
    opc::test::writeZip(package, rewritten);
    ASSERT_LT(std::filesystem::file_size(package), 1u << 20) << "not a small package";
    const zvtest::CallResult r = zvtest::call(c.read.first, {package}, 1);
    ASSERT_EQ(r.key(), c.read.second);
    EXPECT_NE(r.error->message().find(c.message), std::string::npos) << r.error->message();
  }
}

// A million tiny entries make a file of about 100 MB; the slow-labelled run (ZV_SLOW=1) builds one.
TEST(ReadLimitsTest, TooManyItemsFailWithTheBoundNamed) {
  if (std::getenv("ZV_SLOW") == nullptr) GTEST_SKIP() << "set ZV_SLOW=1 (label slow) to build a package of 1,000,001 items";
  zvtest::TempDir dir;
  const std::string package = dir.file("many.zvaddon");
  zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
  std::vector<std::pair<std::string, std::string>> items;
  for (const auto& [name, item] : opc::test::rawItems(package)) items.emplace_back(name, item.text);
  for (int i = 0; items.size() <= 1'000'000; ++i) items.emplace_back("d/" + std::to_string(i) + "/", "");
  opc::test::writeZip(package, items);
  const zvtest::CallResult r = zvtest::call(zvAddonGetFileList, {package}, 1);
  ASSERT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_GET_FILE_LIST");
  EXPECT_NE(r.error->message().find("1000000"), std::string::npos) << r.error->message();
}

}  // namespace
