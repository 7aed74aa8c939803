// The content-file gateway functions, called as the host calls them, over AddonPackage.
#include <gtest/gtest.h>

#include "foundation/i18n.h"
#include "gateway/zvaddon.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

class ContentFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    callOk(zvAddonCreate, {package, zvtest::properties()});
    zvtest::writeBytes(a, "a");
    zvtest::writeBytes(b, "b");
  }
  Json fileList() { return callOk(zvAddonGetFileList, {package}, 1); }

  zvtest::TempDir dir;
  std::string package = dir.file("g.zvaddon");
  std::string a = dir.file("a.m");
  std::string b = dir.file("b.m");
};

// Calls on a new package and the file list after them. The list is depth first, in code-unit order,
// each folder's content where the folder stands among its siblings, an empty folder under its own
// path. Inputs of other classes, a cell paired with a text, and empty lists are deliberate silences:
// nothing happens, nothing is raised, the package is left byte for byte.
TEST_F(ContentFilesTest, CallsAndTheFileListAfterThem) {
  const std::string missing = dir.file("no-such.zvaddon");
  const Json emptyCell = {{"$class", "cell"}, {"$dims", {0, 0}}, {"$data", Json::array()}};
  const Json noFiles = {{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};
  const Json column = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {a, b}}};
  const Json columnPaths = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {"c/a.m", "c/b.m"}}};
  // Each entry added on its own: a trailing '/' makes an empty folder.
  const auto add = [&](const std::vector<std::string>& entries) {
    std::vector<std::pair<qxFunction, std::vector<Json>>> calls;
    for (const std::string& e : entries) {
      calls.push_back(e.back() == '/' ? std::pair(&zvAddonAddFolders, std::vector<Json>{package, e.substr(0, e.size() - 1)})
                                      : std::pair(&zvAddonAddFiles, std::vector<Json>{package, a, e}));
    }
    return calls;
  };
  const struct {
    const char* name;
    std::vector<std::pair<qxFunction, std::vector<Json>>> calls;
    std::vector<std::string> listAfter;  // empty: the package is as it was
  } cases[] = {
      {"NoContent", {}, {}},
      {"FolderAmongFiles", add({"c.m", "b/x.m", "a.m", "b/y.m"}), {"/a.m", "/b/x.m", "/b/y.m", "/c.m"}},
      {"NestedAndEmpty", add({"z.m", "m/empty/", "m/n/o.m", "m/a.m", "a/"}), {"/a", "/m/a.m", "/m/empty", "/m/n/o.m", "/z.m"}},
      {"CodeUnitOrder", add({"a.m", "B.m", "_.m", "\xC3\xA9.m"}), {"/B.m", "/_.m", "/a.m", "/\xC3\xA9.m"}},
      {"TwoCells", {{zvAddonAddFiles, {package, Json{a, b}, Json{"p/a.m", "q.m"}}}}, {"/p/a.m", "/q.m"}},
      {"CellsOfAnyShape", {{zvAddonAddFiles, {package, column, columnPaths}}}, {"/c/a.m", "/c/b.m"}},
      {"CellAndText", {{zvAddonAddFiles, {package, Json{a}, "x.m"}}}, {}},
      {"Numbers", {{zvAddonAddFiles, {package, 1, 2}}}, {}},
      {"EmptyCellsMissingPackage", {{zvAddonAddFiles, {missing, emptyCell, emptyCell}}}, {}},
      {"FolderText", {{zvAddonAddFolders, {package, "f g"}}}, {"/f g"}},
      {"FolderCell", {{zvAddonAddFolders, {package, Json{"f", "g/h"}}}}, {"/f", "/g/h"}},
      {"FoldersAlreadyThere", {{zvAddonAddFolders, {package, Json{"e", "e/f", "e"}}}}, {"/e/f"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove(package);
    callOk(zvAddonCreate, {package, zvtest::properties()});
    const std::string before = zvtest::readBytes(package);
    for (const auto& [f, inputs] : c.calls) callOk(f, inputs);
    EXPECT_FALSE(std::filesystem::exists(missing));
    if (c.listAfter.empty()) {
      EXPECT_EQ(zvtest::readBytes(package), before);
    }
    EXPECT_EQ(fileList(), c.listAfter.empty() ? noFiles : Json(c.listAfter));
  }
}

// Failures after the package opened: a batch with a missing file adds none of it. (Each function's key
// for a package that does not open: tests/gateway/frame_test.cpp.)
TEST_F(ContentFilesTest, ErrorsCarryTheirKeyAndArgumentsAndLeaveThePackage) {
  const std::string notZip = dir.file("not.zvaddon");
  zvtest::writeBytes(notZip, "not a zip at all");
  callOk(zvAddonAddFiles, {package, a, "first.m"});
  const std::string before = zvtest::readBytes(package);
  const struct {
    const char* name;
    qxFunction function;
    std::vector<Json> inputs;
    const char* key;
    std::vector<std::string> leadingArguments;  // then the OPC message
    const char* message;                        // a fragment of it
  } cases[] = {
      {"MissingSourceMidway", zvAddonAddFiles, {package, Json{a, dir.file("nope.m")}, Json{"b.m", "c.m"}},
       "ZVADDON_BUILTINS_ERROR_ADD_FILES", {package}, "nope.m"},
      {"ExtractIntoAFile", zvAddonExtractAllFiles, {package, notZip}, "ZVADDON_BUILTINS_ERROR_EXTRACT_ALL_FILES",
       {package, notZip}, "not a folder"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const zvtest::CallResult r = call(c.function, c.inputs);
    ASSERT_EQ(r.key(), c.key);
    const auto& arguments = r.error->arguments();
    ASSERT_EQ(arguments.size(), c.leadingArguments.size() + 1) << r.error->message();
    for (std::size_t i = 0; i < c.leadingArguments.size(); ++i) {
      EXPECT_EQ(std::get<ustring>(arguments[i]), fl::i18n::from_utf8(c.leadingArguments[i]));
    }
    EXPECT_NE(std::get<std::string>(arguments.back()).find(c.message), std::string::npos) << r.error->message();
    EXPECT_EQ(zvtest::readBytes(package), before);
  }
  EXPECT_EQ(fileList(), (Json{"/first.m"}));
}

}  // namespace
