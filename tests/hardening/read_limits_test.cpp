// A small hostile package cannot make reading take gigabytes: parts too many, XML too large or
// nested too deep each fail with the call's key and a message naming the bound.
#include <cstdlib>
#include <functional>

#include "gateway/zvaddon.h"
#include "opc/opc_test_support.h"
#include "support/gateway_call.h"

namespace {

// Rewrites the package with libzip, `entry` (deflated) replaced by transform(its bytes).
void replaceEntry(const std::string& package, const std::string& entry,
                  const std::function<std::string(const std::string&)>& transform) {
  std::vector<std::pair<std::string, std::string>> rewritten;
  for (const auto& [name, item] : opc::test::rawItems(package)) rewritten.emplace_back(name, name == entry ? transform(item.text) : item.text);
  opc::test::writeZip(package, rewritten);
}

// The document with `padding` bytes of white space before its end tag: still valid, only large.
std::string padded(const std::string& xml, std::size_t padding) {
  const std::size_t end = xml.rfind("</");
  return xml.substr(0, end) + std::string(padding, ' ') + xml.substr(end);
}

std::string nested(int depth, const std::string& root) {
  std::string xml = root;
  for (int i = 0; i < depth; ++i) xml += "<a>";
  for (int i = 0; i < depth; ++i) xml += "</a>";
  return xml + "</" + root.substr(1, root.find(' ') - 1) + ">";
}

const std::string kLicense = R"(<license xmlns="https://schemas.zvaddon.org/zorvan/addon/2014/license">)";
const std::string kRels = R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";

TEST(ReadLimitsTest, HostileXmlFailsWithTheBoundNamed) {
  zvtest::TempDir dir;
  const struct {
    const char* name;
    std::string entry;
    std::function<std::string(const std::string& old)> bytes;
    qxFunction read;
    const char* key;
    const char* message;
  } cases[] = {
      {"MetadataPartTooLarge", "metadata/license.xml", [](const std::string& old) { return padded(old, 17u << 20); },
       zvAddonGetLicense, "ZVADDON_BUILTINS_ERROR_GET_LICENSE", "exceeds"},
      {"MetadataPartTooDeep", "metadata/license.xml", [](const std::string&) { return nested(100000, kLicense); },
       zvAddonGetLicense, "ZVADDON_BUILTINS_ERROR_GET_LICENSE", "nest deeper"},
      {"CorePropertiesTooLarge", "docProps/core.xml", [](const std::string& old) { return padded(old, 17u << 20); },
       zvAddonGetProperties, "ZVADDON_BUILTINS_ERROR_GET_PROPERTIES", "exceeds"},
      {"RelationshipsTooDeep", "_rels/.rels", [](const std::string&) { return nested(1000, kRels); },
       zvAddonGetProperties, "ZVADDON_BUILTINS_ERROR_GET_PROPERTIES", "nest deeper"},
      // Opening parses content types and relationships up to a share per item, not 64 MiB each.
      {"RelationshipsBeyondTheirShare", "_rels/.rels", [](const std::string& old) { return padded(old, 20u << 20); },
       zvAddonGetProperties, "ZVADDON_BUILTINS_ERROR_GET_PROPERTIES", "exceed"},
      // (The file list reads item names only, never the content types.)
      {"ContentTypesBeyondTheirShare", "[Content_Types].xml",
       [](const std::string& old) { return padded(old, 20u << 20); }, zvAddonGetProperties,
       "ZVADDON_BUILTINS_ERROR_GET_PROPERTIES", "exceed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string package = dir.file(std::string(c.name) + ".zvaddon");
    zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
    zvtest::callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", "granted"}}});
    replaceEntry(package, c.entry, c.bytes);
    ASSERT_LT(std::filesystem::file_size(package), 1u << 20) << "not a small package";
    const zvtest::CallResult r = zvtest::call(c.read, {package}, 1);
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.key(), c.key);
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
  ASSERT_FALSE(r.ok());
  EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_GET_FILE_LIST");
  EXPECT_NE(r.error->message().find("1000000"), std::string::npos) << r.error->message();
}

}  // namespace
