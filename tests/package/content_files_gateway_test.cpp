// The four content-file gateway functions, called as the host calls them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>

#include "gateway/zvaddon.h"
#include "opc/file_system_test_support.h"
#include "support/gateway_call.h"

namespace {

using opc::test::plantFile;
using opc::test::snapshot;
using opc::test::TreeFile;
using opc::test::TreeSnapshot;
using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

// The names a local file system allows that a part name cannot hold as they are.
const std::vector<std::string> kNames = {
    "with space.m", "#1", "50%", "[x]", "a&b", "ends.", "...", "_rels", "caf\xC3\xA9.txt",
    "\xE4\xB8\xAD\xE6\x96\x87", "\xF0\x9F\x9A\x80 launch", "nb\xC2\xA0sp",
};

// A 1-by-n cell array of texts as JSON (the empty one needs the typed form).
Json cell(const std::vector<std::string>& texts) {
  if (!texts.empty()) return Json(texts);
  return Json{{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};
}

class ContentFilesGatewayTest : public ::testing::Test {
 protected:
  void SetUp() override { callOk(zvAddonCreate, {package, zvtest::properties()}); }

  Json fileList() { return callOk(zvAddonGetFileList, {package}, 1); }

  // A tree with nested and empty folders, every awkward name as a file and as a folder, times
  // outside DOS time, and executable files.
  void plantTree() {
    std::int64_t seconds = -400000000;
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      const std::string& name = kNames[i];
      plantFile(source, name, TreeFile{opc::test::patternBytes(50 + i, 1), seconds, 100 * static_cast<std::uint32_t>(i), i % 2 == 1});
      plantFile(source, "dir " + std::to_string(i) + "/" + name + "/inner.m",
                TreeFile{opc::test::patternBytes(i, 2), seconds + 7, 0, i % 3 == 0});
      seconds += 1000000000;  // up to 2320
    }
    std::filesystem::create_directories(source / "empty");
    std::filesystem::create_directories(source / "nested" / "empty [deep]" / "ends.");
  }

  // Inputs 1 and 2 of zvAddonAddFiles and the folder list of zvAddonAddFolders for the tree.
  void addTree() {
    const TreeSnapshot tree = snapshot(source);
    Json first = Json::array();
    Json second = Json::array();
    Json folders = Json::array();
    for (const auto& [relative, file] : tree.files) {
      first.push_back((source / relative).string());
      second.push_back(relative);
    }
    for (const auto& [relative, empty] : tree.folders) {
      if (empty) folders.push_back(relative.substr(0, relative.size() - 1));
    }
    callOk(zvAddonAddFiles, {package, first, second});
    callOk(zvAddonAddFolders, {package, folders});
  }

  // The depth-first list the tree must give: folders in place among their siblings by name (UTF-16
  // order), an empty folder as itself.
  static void expectedList(const std::filesystem::path& folder, const std::string& prefix, Json& out) {
    std::vector<std::pair<std::u16string, std::filesystem::directory_entry>> children;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      children.emplace_back(entry.path().filename().u16string(), entry);
    }
    std::sort(children.begin(), children.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    if (children.empty() && !prefix.empty()) out.push_back(prefix);
    for (const auto& [name, entry] : children) {
      const std::string path = prefix + "/" + entry.path().filename().string();
      if (entry.is_directory()) {
        expectedList(entry.path(), path, out);
      } else {
        out.push_back(path);
      }
    }
  }

  zvtest::TempDir dir;
  std::string package = dir.file("g.zvaddon");
  std::filesystem::path source = dir.path() / "source";
  std::string destination = dir.file("destination");
};

TEST_F(ContentFilesGatewayTest, TreeGoesInAndComesOutIdentical) {
  plantTree();
  addTree();
  Json expected = Json::array();
  expectedList(source, "", expected);
  EXPECT_EQ(fileList(), expected);

  callOk(zvAddonExtractAllFiles, {package, destination});
  EXPECT_EQ(snapshot(destination), snapshot(source));
}

// The input rules, including the deliberate silences: nothing happens and nothing is raised.
TEST_F(ContentFilesGatewayTest, InputRules) {
  zvtest::writeBytes(dir.file("a.m"), "a");
  zvtest::writeBytes(dir.file("b.m"), "b");
  const std::string a = dir.file("a.m");
  const std::string b = dir.file("b.m");
  const std::string missing = dir.file("no-such.zvaddon");
  const Json emptyCell = {{"$class", "cell"}, {"$dims", {0, 0}}, {"$data", Json::array()}};
  const Json column = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {a, b}}};
  const Json columnPaths = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {"c/a.m", "c/b.m"}}};
  const struct {
    const char* name;
    qxFunction function;
    std::vector<Json> inputs;
    std::vector<std::string> listAfter;
  } cases[] = {
      {"TwoTexts", zvAddonAddFiles, {package, a, "x.m"}, {"/x.m"}},
      {"TwoCells", zvAddonAddFiles, {package, Json{a, b}, Json{"p/a.m", "q.m"}}, {"/p/a.m", "/q.m"}},
      {"CellsOfAnyShape", zvAddonAddFiles, {package, column, columnPaths}, {"/c/a.m", "/c/b.m"}},
      {"CellAndText", zvAddonAddFiles, {package, Json{a}, "x.m"}, {}},
      {"TextAndCell", zvAddonAddFiles, {package, a, Json{"x.m"}}, {}},
      {"Numbers", zvAddonAddFiles, {package, 1, 2}, {}},
      {"EmptyCellsMissingPackage", zvAddonAddFiles, {missing, emptyCell, emptyCell}, {}},
      {"FolderText", zvAddonAddFolders, {package, "f g"}, {"/f g"}},
      {"FolderCell", zvAddonAddFolders, {package, Json{"f", "g/h"}}, {"/f", "/g/h"}},
      {"FolderNumber", zvAddonAddFolders, {missing, 3}, {}},
      {"FolderEmptyCellMissingPackage", zvAddonAddFolders, {missing, emptyCell}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove(package);
    callOk(zvAddonCreate, {package, zvtest::properties()});
    const std::string before = zvtest::readBytes(package);
    callOk(c.function, c.inputs);
    EXPECT_FALSE(std::filesystem::exists(missing));
    if (c.listAfter.empty()) {
      EXPECT_EQ(zvtest::readBytes(package), before);
    }
    EXPECT_EQ(fileList(), cell(c.listAfter));
  }
}

TEST_F(ContentFilesGatewayTest, AddingAFolderAgainChangesNothing) {
  callOk(zvAddonAddFolders, {package, Json{"f", "g/h"}});
  const std::string before = zvtest::readBytes(package);
  callOk(zvAddonAddFolders, {package, Json{"g/h", "f"}});
  callOk(zvAddonAddFolders, {package, "g"});
  EXPECT_EQ(fileList(), (Json{"/f", "/g/h"}));
  EXPECT_EQ(zvtest::readBytes(package), before);
}

TEST_F(ContentFilesGatewayTest, ErrorsCarryTheirKeyAndArguments) {
  zvtest::writeBytes(dir.file("a.m"), "a");
  const std::string a = dir.file("a.m");
  const std::string missing = dir.file("none.zvaddon");
  const std::string notZip = dir.file("not.zvaddon");
  zvtest::writeBytes(notZip, "not a zip at all");
  const std::string hostile = std::string(ZV_TEST_DATA_DIR) + "/hostile/traversal-escaped-dotdot.zip";
  const struct {
    const char* name;
    qxFunction function;
    std::vector<Json> inputs;
    int nargout;
    const char* key;
    std::vector<std::string> leadingArguments;  // then the OPC message, when the key has one
    const char* message;                        // a fragment of it
  } cases[] = {
      {"AddFilesMissingPackage", zvAddonAddFiles, {missing, a, "a.m"}, 0, "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND",
       {missing}, nullptr},
      {"AddFoldersMissingPackage", zvAddonAddFolders, {missing, "f"}, 0, "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND",
       {missing}, nullptr},
      {"ExtractMissingPackage", zvAddonExtractAllFiles, {missing, destination}, 0,
       "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND", {missing}, nullptr},
      {"ListMissingPackage", zvAddonGetFileList, {missing}, 1, "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND", {missing},
       nullptr},
      {"MissingSource", zvAddonAddFiles, {package, dir.file("nope.m"), "a.m"}, 0, "ZVADDON_BUILTINS_ERROR_ADD_FILES",
       {package}, "nope.m"},
      {"SamePathTwice", zvAddonAddFiles, {package, Json{a, a}, Json{"a.m", "a.m"}}, 0,
       "ZVADDON_BUILTINS_ERROR_ADD_FILES", {package}, "/a.m"},
      {"FolderWithDotDot", zvAddonAddFolders, {package, "a/../b"}, 0, "ZVADDON_BUILTINS_ERROR_ADD_FOLDERS", {package},
       "'..'"},
      {"HostileExtraction", zvAddonExtractAllFiles, {hostile, destination}, 0,
       "ZVADDON_BUILTINS_ERROR_EXTRACT_ALL_FILES", {hostile, destination}, "/fsroot/..:"},
      {"ListNotAZip", zvAddonGetFileList, {notZip}, 1, "ZVADDON_BUILTINS_ERROR_GET_FILE_LIST", {notZip}, "not.zvaddon"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const zvtest::CallResult r = call(c.function, c.inputs, c.nargout);
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.key(), c.key) << r.error->message();
    const auto& arguments = r.error->arguments();
    ASSERT_EQ(arguments.size(), c.leadingArguments.size() + (c.message ? 1 : 0)) << r.error->message();
    for (std::size_t i = 0; i < c.leadingArguments.size(); ++i) {
      EXPECT_EQ(std::get<ustring>(arguments[i]), ustring(c.leadingArguments[i].begin(), c.leadingArguments[i].end()));
    }
    if (c.message != nullptr) {
      EXPECT_NE(std::get<std::string>(arguments.back()).find(c.message), std::string::npos) << r.error->message();
    }
  }
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "evil.txt"));
}

// A source missing midway: the files before it were added in memory only, and the package file is
// byte for byte what it was.
TEST_F(ContentFilesGatewayTest, FailedAddLeavesThePackageAsItWas) {
  zvtest::writeBytes(dir.file("a.m"), "a");
  zvtest::writeBytes(dir.file("c.m"), "c");
  callOk(zvAddonAddFiles, {package, dir.file("a.m"), "first.m"});
  const std::string before = zvtest::readBytes(package);
  const zvtest::CallResult r = call(zvAddonAddFiles, {package, Json{dir.file("c.m"), dir.file("gone.m"), dir.file("a.m")},
                                                      Json{"c.m", "gone.m", "again.m"}});
  EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_ADD_FILES");
  EXPECT_EQ(zvtest::readBytes(package), before);
  EXPECT_EQ(fileList(), (Json{"/first.m"}));
}

// Independent OPC readers open a package with content: POI's openxml4j sees every content part
// under the names the tree had (readers percent-decode names, the ":XX" escapes stay), python-docx
// opens it, and the ZIP testers pass it.
TEST_F(ContentFilesGatewayTest, IndependentReadersOpenPackagesWithContent) {
  plantTree();
  addTree();
  const std::string driver = std::string(ZV_SOURCE_DIR) + "/tests/interop/opc_summary.py";
  for (const char* reader : {"poi", "docx"}) {
    SCOPED_TRACE(reader);
    const std::string command =
        "/usr/bin/python3 '" + driver + "' --reader " + reader + " --zip-test '" + package + "' 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buffer[4096];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
    ASSERT_EQ(::pclose(pipe), 0) << output;
    if (std::string(reader) == "poi") {
      std::size_t contentParts = 0;
      const Json summary = Json::parse(output);
      for (const auto& part : summary.at("parts")) {
        if (part.at(0).get<std::string>().rfind("/fsroot/", 0) == 0) ++contentParts;
      }
      const TreeSnapshot tree = snapshot(source);
      std::size_t emptyFolders = 0;
      for (const auto& [path, empty] : tree.folders) emptyFolders += empty ? 1 : 0;
      EXPECT_EQ(contentParts, tree.files.size() + emptyFolders) << output;
    }
  }
}

}  // namespace
