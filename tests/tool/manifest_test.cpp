// The manifest: sections in the host's form, in record order, with paths resolved against the add-on
// folder. (Its refusals are golden cases: cases/manifest_errors.t.)
#include "manifest.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/gateway_call.h"

namespace zvaddon::tool {
namespace {
namespace fs = std::filesystem;

class ManifestTest : public ::testing::Test {
 protected:
  void write(const std::string& relative, const std::string& bytes) {
    const fs::path path = dir_.path() / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  [[nodiscard]] Manifest parse(const std::string& text) const { return parseManifest(Json::parse(text), dir_.path()); }
  zvtest::TempDir dir_;
};

constexpr const char* kIdentity = R"("properties": {"name": "N", "version": "1", "GUID": "g"})";

TEST_F(ManifestTest, ResolvesPathsAndKeepsRecordsInTheirOrder) {
  write("LICENSE", "terms\n");
  write("img/s.png", "png");
  write("install/a.xml", "<a/>");
  const Manifest m = parse(std::string("{") + kIdentity + R"(,
      "apps": [], "license": {"type": "T", "file": "LICENSE"}, "examples": [],
      "screenshot": "img/s.png", "instructionSets": ["install/a.xml"],
      "files": {"include": ["src/"], "exclude": ["*.o"], "defaultExcludes": false}})");
  EXPECT_EQ(m.properties["name"], "N");
  EXPECT_EQ(m.properties["type"], "ZORVAN Toolbox");
  ASSERT_EQ(m.records.size(), 3u);
  // The order of allRecords, whatever the manifest's.
  EXPECT_EQ(m.records[0].first, Record::license);
  EXPECT_EQ(m.records[1].first, Record::examples);
  EXPECT_EQ(m.records[2].first, Record::apps);
  EXPECT_EQ(m.records[0].second, Json::parse(R"({"type": "T", "text": "terms\n"})"));
  ASSERT_TRUE(m.screenshot.has_value());
  EXPECT_EQ(*m.screenshot, dir_.path() / "img/s.png");
  EXPECT_EQ(m.instructionSets, std::vector<fs::path>{dir_.path() / "install/a.xml"});
  EXPECT_EQ(m.files.include, std::vector<std::string>{"src/"});
  EXPECT_EQ(m.files.exclude, std::vector<std::string>{"*.o"});
  EXPECT_FALSE(m.files.defaultExcludes);
}

}  // namespace
}  // namespace zvaddon::tool
