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

  zvtest::TempDir dir;
  std::string package = dir.file("g.zvaddon");
  std::string a = dir.file("a.m");
  std::string b = dir.file("b.m");
};

// Calls on a new package and the file list after them; inputs of other classes, a cell paired with a
// text and empty lists are deliberate silences: nothing raised, the package left byte for byte.
TEST_F(ContentFilesTest, CallsAndTheFileListAfterThem) {
  const std::string missing = dir.file("no-such.zvaddon");
  const Json emptyCell = {{"$class", "cell"}, {"$dims", {0, 0}}, {"$data", Json::array()}};
  const Json noFiles = {{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};
  const Json column = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {a, b}}};
  const Json columnPaths = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {"c/a.m", "c/b.m"}}};
  const struct {
    const char* name;
    std::vector<std::pair<qxFunction, std::vector<Json>>> calls;
    std::vector<std::string> listAfter;  // empty: the package is as it was
  } cases[] = {
      {"NoContent", {}, {}},
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
    EXPECT_EQ(zvtest::readBytes(package) == before, c.listAfter.empty()) << "changed exactly when something was added";
    EXPECT_EQ(callOk(zvAddonGetFileList, {package}, 1), c.listAfter.empty() ? noFiles : Json(c.listAfter));
  }
}

// A batch with a missing file adds none of it. (Each function's key and arguments: tests/gateway.)
TEST_F(ContentFilesTest, ABatchWithAMissingFileAddsNothing) {
  callOk(zvAddonAddFiles, {package, a, "first.m"});
  const std::string before = zvtest::readBytes(package);
  const zvtest::CallResult r = call(zvAddonAddFiles, {package, Json{a, dir.file("nope.m")}, Json{"b.m", "c.m"}});
  EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_ADD_FILES");
  EXPECT_NE(std::get<std::string>(r.error->arguments().back()).find("nope.m"), std::string::npos) << r.error->message();
  EXPECT_EQ(zvtest::readBytes(package), before);
}

}  // namespace
