// Reading a package's ZIP directory: content part names back to file names, and the parts inspect
// reports that no gateway function names.
#include "package_index.h"

#include <gtest/gtest.h>

#include <fstream>

#include "gateway.h"
#include "records.h"
#include "support/gateway_call.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {
namespace fs = std::filesystem;

TEST(DecodeSegmentTest, EscapesBecomeBytes) {
  const std::pair<const char*, const char*> cases[] = {
      {"plain.m", "plain.m"},
      {"a:20b", "a b"},                   // ':XX' for ASCII a URI cannot hold
      {"%E6%97%A5", "\xE6\x97\xA5"},      // '%XX' for UTF-8 bytes
      {"%3A", ":"},
      {"trailing.:", "trailing."},        // a bare ':' ends a segment that would end in '.'
      {"_rels:", "_rels"},
      {"a%2", "a%2"},                     // malformed escapes stay as they are
      {"a:zz", "a:zz"},
      {"%", "%"},
      {"x:", "x"},
      {"", ""},
  };
  for (const auto& [segment, name] : cases) EXPECT_EQ(decodeContentSegment(segment), name) << segment;
}

class PackageIndexTest : public ::testing::Test {
 protected:
  void SetUp() override {
    package_ = dir_.file("p.zvaddon");
    (void)callGateway("zvAddonCreate", {package_, recordToHost(Record::properties,
                                                               Json::parse(R"({"name": "P", "version": "1", "GUID": "g"})"), "")});
  }
  std::string file(const std::string& name, const std::string& bytes) {
    const fs::path path = dir_.path() / "src" / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }
  zvtest::TempDir dir_;
  std::string package_;
};

TEST_F(PackageIndexTest, SizesAreFoundForEveryNameTheFileListGives) {
  const std::vector<std::pair<std::string, std::string>> files = {
      {"a b/c#d/x%y.m", "1"}, {"[x]/_rels/.rels", "22"}, {"[x]/trailing.", "333"},
      {"\xE6\x97\xA5\xE6\x9C\xAC/\xF0\x9F\x9A\x80 go&.txt", "4444"}, {"colon:name.m", "55555"},
  };
  Json sources = Json::array();
  Json targets = Json::array();
  for (const auto& [name, bytes] : files) {
    sources.push_back(file(name, bytes));
    targets.push_back(name);
  }
  (void)callGateway("zvAddonAddFiles", {package_, sources, targets});
  const auto sizes = PackageIndex::read(package_).contentFileSizes();
  const Json list = getFromGateway("zvAddonGetFileList", {package_});
  ASSERT_EQ(list.size(), files.size());
  for (const Json& name : list) {
    const auto found = sizes.find(name.get<std::string>());
    ASSERT_NE(found, sizes.end()) << name;
    const auto source = std::find_if(files.begin(), files.end(), [&](const auto& f) { return "/" + f.first == name; });
    ASSERT_NE(source, files.end()) << name;
    EXPECT_EQ(found->second, source->second.size()) << name;
  }
}

TEST_F(PackageIndexTest, ScreenshotInstructionSetsAndSignaturePartsAreSeen) {
  PackageIndex index = PackageIndex::read(package_);
  EXPECT_FALSE(index.screenshot().has_value());
  EXPECT_TRUE(index.instructionSets().empty());
  EXPECT_FALSE(index.hasSignatureParts());

  (void)callGateway("zvAddonSetScreenshot", {package_, file("shot.GIF", "GIF89a")});
  (void)callGateway("zvAddonAddInstructionSet", {package_, file("one/setup.xml", "<a/>")});
  (void)callGateway("zvAddonAddInstructionSet", {package_, file("two/other.xml", "<b/>")});
  (void)callGateway("zvAddonSetSystemRequirements", {package_, recordToHost(Record::systemRequirements, Json::object(), "")});
  (void)callGateway("zvAddonSign", {package_});
  index = PackageIndex::read(package_);
  ASSERT_TRUE(index.screenshot().has_value());
  EXPECT_EQ(index.screenshot()->name, "metadata/primaryScreenShot.GIF");
  EXPECT_EQ(index.screenshot()->size, 6u);
  EXPECT_EQ(index.instructionSets(), (std::vector<std::string>{"setup.xml", "other.xml"}));
  EXPECT_TRUE(index.hasSignatureParts());
  // None of these are content files.
  EXPECT_TRUE(index.contentFileSizes().empty());
}

TEST_F(PackageIndexTest, AFileThatIsNoZipIsAToolError) {
  const std::string junk = file("junk.zvaddon", "not a zip");
  try {
    (void)PackageIndex::read(junk);
    FAIL() << "read";
  } catch (const ToolError& e) {
    EXPECT_EQ(e.status(), ExitStatus::hostError);
    EXPECT_NE(std::string(e.what()).find(junk), std::string::npos);
  }
}

}  // namespace
}  // namespace zvaddon::tool
