// AddonPackage's content-file operations through its C++ API.
#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "opc/exception.h"
#include "opc/kqservices/file_system_manager.h"
#include "package/addon_package.h"
#include "support/gateway_call.h"

namespace {

using addon::packaging::AddonPackage;
using opc::interfaces::OpenMode;

ustring u16(const std::string& text) {
  ustring out;
  for (unsigned char c : text) out += static_cast<char16_t>(c);  // the tests' names are ASCII
  return out;
}

class ContentFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
    zvtest::writeBytes(source, "content");
  }

  // A package holding the entries (a trailing '/' makes an empty folder), then `check` on it.
  void withEntries(const std::vector<std::string>& entries, const std::function<void(AddonPackage&)>& check) {
    AddonPackage addon(u16(package));
    addon.getPackage().open(OpenMode::Modify);
    for (const std::string& entry : entries) {
      if (entry.back() == '/') {
        addon.addFolders({u16(entry.substr(0, entry.size() - 1))});
      } else {
        addon.addFiles({u16(source)}, {u16(entry)});
      }
    }
    check(addon);
  }

  static std::vector<std::string> narrow(const std::vector<ustring>& list) {
    std::vector<std::string> out;
    for (const ustring& s : list) out.emplace_back(s.begin(), s.end());
    return out;
  }

  zvtest::TempDir dir;
  std::string package = dir.file("c.zvaddon");
  std::string source = dir.file("source.m");
};

// Depth first, in name order, each folder's content where the folder stands; an empty folder listed
// under its own path; nothing else.
TEST_F(ContentFilesTest, FileListIsDepthFirstWithEmptyFoldersAsThemselves) {
  const struct {
    const char* name;
    std::vector<std::string> entries;
    std::vector<std::string> expected;
  } cases[] = {
      {"NoContent", {}, {}},
      {"OneEmptyFolder", {"only/"}, {"/only"}},
      {"FilesOnly", {"b.m", "a.m"}, {"/a.m", "/b.m"}},
      {"FolderAmongFiles", {"c.m", "b/x.m", "a.m", "b/y.m"}, {"/a.m", "/b/x.m", "/b/y.m", "/c.m"}},
      {"NestedAndEmpty",
       {"z.m", "m/empty/", "m/n/o.m", "m/a.m", "a/"},
       {"/a", "/m/a.m", "/m/empty", "/m/n/o.m", "/z.m"}},
      {"EmptyFolderFilledLater", {"d/", "d/e.m"}, {"/d/e.m"}},
      {"DeepChainOfEmptyFolders", {"p/q/r/"}, {"/p/q/r"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove(package);
    zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
    withEntries(c.entries, [&](AddonPackage& addon) { EXPECT_EQ(narrow(addon.getFileList()), c.expected); });
  }
}

TEST_F(ContentFilesTest, AddFoldersIgnoresOnlyFoldersAlreadyThere) {
  withEntries({"a/x.m", "e/"}, [&](AddonPackage& addon) {
    addon.addFolders({u"a", u"e", u"n", u"n"});
    EXPECT_EQ(narrow(addon.getFileList()), (std::vector<std::string>{"/a/x.m", "/e", "/n"}));
    // A file in the way is no "already there": the loop stops at it.
    EXPECT_THROW(addon.addFolders({u"k", u"a/x.m", u"l"}), opc::Exception);
    EXPECT_EQ(narrow(addon.getFileList()), (std::vector<std::string>{"/a/x.m", "/e", "/k", "/n"}));
    EXPECT_THROW(addon.addFolders({u"A"}), opc::Exception);
  });
}

TEST_F(ContentFilesTest, AddFilesTakesTheLengthOfTheFirstList) {
  withEntries({}, [&](AddonPackage& addon) {
    addon.addFiles({u16(source), u16(source)}, {u"one.m", u"two.m", u"ignored.m"});
    EXPECT_EQ(narrow(addon.getFileList()), (std::vector<std::string>{"/one.m", "/two.m"}));
    EXPECT_THROW(addon.addFiles({u16(source)}, {u"one.m"}), opc::kqservices::FileSystemEntryAlreadyExists);
    EXPECT_THROW(addon.addFiles({u16(dir.file("missing"))}, {u"three.m"}), opc::Exception);
    EXPECT_EQ(narrow(addon.getFileList()), (std::vector<std::string>{"/one.m", "/two.m"}));
  });
}

TEST_F(ContentFilesTest, ExtractAllFilesRefusesToOverwrite) {
  withEntries({"a/x.m", "e/"}, [&](AddonPackage& addon) { addon.getPackage().close(); });
  AddonPackage addon(u16(package));
  addon.getPackage().open(OpenMode::Read);
  const std::string out = dir.file("out");
  addon.extractAllFiles(u16(out));
  EXPECT_EQ(zvtest::readBytes(out + "/a/x.m"), "content");
  EXPECT_TRUE(std::filesystem::is_directory(out + "/e"));
  zvtest::writeBytes(out + "/a/x.m", "mine");
  EXPECT_THROW(addon.extractAllFiles(u16(out)), opc::Exception);
  EXPECT_EQ(zvtest::readBytes(out + "/a/x.m"), "mine");
}

}  // namespace
