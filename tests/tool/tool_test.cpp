// The tool's own pieces: glob patterns and the walk that selects an add-on's files, the records in
// people's form (what recordToHost refuses, how recordFromHost reads the host's shapes; the round trip
// of every record through a package is the golden case cases/records.t), and the progress line's
// figures, units and width.
#include <gtest/gtest.h>

#include <set>

#include "file_selection.h"
#include "host/json/json.h"
#include "progress.h"
#include "records.h"
#include "support/gateway_call.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {
namespace fs = std::filesystem;

struct GlobCase {
  const char* pattern;
  const char* path;
  bool isFolder;
  bool matches;
};

TEST(GlobTest, MatchesThePatternRules) {
  const GlobCase cases[] = {
      // '*' stays within a name; '?' is one character; classes per name.
      {"*.m", "src/deep/f.m", false, true},  // no '/': any depth
      {"src/*.m", "src/f.m", false, true},
      {"src/*.m", "src/deep/f.m", false, false},
      {"f?.m", "f12.m", false, false},
      {"[ab].m", "c.m", false, false},
      // "**" spans any number of folders, none included.
      {"src/**/*.m", "src/f.m", false, true},
      {"src/**/*.m", "lib/src/f.m", false, false},
      {"**", "anything/at/all", false, true},
      {"**/test", "a/b/test", true, true},
      // Anchoring: a '/' anywhere, or a leading one, ties the pattern to the top.
      {"/build", "sub/build", true, false},
      {"build", "sub/build", true, true},
      {"./doc/x", "doc/x", false, true},
      // A trailing '/' matches folders only.
      {"build/", "build", false, false},
      // Names are matched whole.
      {"*.m", "f.mat", false, false},
      {"", "x", false, false},
      // Dots are ordinary characters: '*' takes dot files.
      {"*", ".hidden", false, true},
  };
  for (const GlobCase& c : cases) {
    EXPECT_EQ(globMatch(c.pattern, c.path, c.isFolder), c.matches)
        << "pattern '" << c.pattern << "' path '" << c.path << "' folder " << c.isFolder;
  }
}

// Files sorted by path with their sizes, only innermost empty folders, links to files followed and
// links to folders not. (What is below a folder a pattern names goes with it: file_patterns.t.)
TEST(SelectionTest, SortsCountsKeepsEmptyFoldersAndFollowsFileLinks) {
  zvtest::TempDir dir;
  for (const auto& [name, bytes] : {std::pair{"b/z.m", "12345"}, {"a.m", "1"}, {"b/a.m", "123"}}) {
    fs::create_directories((dir.path() / name).parent_path());
    zvtest::writeBytes(dir.file(name), bytes);
  }
  fs::create_directories(dir.path() / "empty/inner");
  fs::create_symlink(dir.path() / "b/z.m", dir.path() / "link.m");
  fs::create_directory_symlink(dir.path() / "b", dir.path() / "loop");
  fs::create_symlink(dir.path() / "nowhere", dir.path() / "dangling.m");
  const Selection s = selectFiles(dir.path(), FilePatterns{});
  std::vector<std::pair<std::string, std::uint64_t>> files;
  for (const SelectedFile& f : s.files) files.emplace_back(f.path, f.size);
  EXPECT_EQ(files, (std::vector<std::pair<std::string, std::uint64_t>>{{"a.m", 1}, {"b/a.m", 3}, {"b/z.m", 5}, {"link.m", 5}}));
  EXPECT_EQ(s.totalBytes, 14u);
  EXPECT_EQ(s.emptyFolders, std::vector<std::string>{"empty/inner"});
}

// Batching: every file once, in order; batches grow with what is stored (files or bytes, whichever
// closes a batch first), so their number stays logarithmic in the file count while the floor keeps
// small trees to one call.
TEST(BatchTest, CoversEveryFileOnceInOrderAndGrowsGeometrically) {
  struct Case {
    std::size_t files;
    std::uint64_t fileSize;
    std::size_t batches;
  };
  const Case cases[] = {{0, 1, 0}, {1, 1, 1}, {999, 1, 1}, {1000, 1, 1}, {1001, 1, 2},
                        {20000, 900, 8}, {200000, 10, 14}, {40, 10u << 20, 6}};
  for (const Case& c : cases) {
    std::vector<SelectedFile> files(c.files, SelectedFile{"f", c.fileSize});
    const std::vector<Batch> batches = planBatches(files);
    std::size_t next = 0;
    for (const Batch& b : batches) {
      EXPECT_EQ(b.first, next);
      EXPECT_GT(b.end, b.first);
      EXPECT_EQ(b.bytes, (b.end - b.first) * c.fileSize);
      next = b.end;
    }
    EXPECT_EQ(next, c.files) << c.files << " files";
    EXPECT_EQ(batches.size(), c.batches) << c.files << " files of " << c.fileSize << " bytes";
  }
  // A file that passes the byte floor on its own closes its batch at once.
  const std::vector<Batch> big = planBatches({{"a", 1}, {"big", 100u << 20}, {"b", 1}, {"c", 1}});
  EXPECT_EQ(big.size(), 2u);
  EXPECT_EQ(big[0].end, 2u);
}

struct RefusalCase {
  Record record;
  const char* json;
  const char* message;  // the whole ToolError text
};

TEST(RecordToHostTest, RefusesUnknownKeysAndWrongTypesNamingThePointer) {
  const RefusalCase cases[] = {
      {Record::properties, R"(["x"])", "/: expected an object, found an array"},
      {Record::properties, R"({"GUID": false})", "/GUID: expected text, found false"},
      {Record::systemRequirements, R"({"platformCompatibility": {"win": null, "beos": true}})",
       "/platformCompatibility/beos: unknown key; expected one of: win, linux, mac, ZORVANOnline"},
      {Record::systemRequirements, R"({"addonDependency": [{"checksum": 12}]})",
       "/addonDependency/0/checksum: expected text, found a number"},
      {Record::systemRequirements, R"({"productDependency": [{}, "P"]})",
       "/productDependency/1: expected an object, found text"},
      {Record::examples, R"([{"examples": [{"thumbnail": {}}]}])",
       "/0/examples/0/thumbnail: expected text, found an object"},
      {Record::apps, R"(null)", "/: expected an array of objects, found null"},
      {Record::apps, R"([{"installByDefault": [true]}])", "/0/installByDefault: expected true, false or text, found an array"},
      // Keys with '/' and '~' are escaped in the pointer.
      {Record::license, R"({"a/b~c": 1})", "/a~1b~0c: unknown key; expected one of: type, text"},
      // Typed host forms are not people's form for a structure.
      {Record::license, R"({"$class": "struct", "$dims": [1, 1], "$fields": [], "$data": [{}]})",
       "/: expected an object, found an object"},
  };
  for (const RefusalCase& c : cases) {
    try {
      (void)recordToHost(c.record, Json::parse(c.json), "");
      ADD_FAILURE() << c.json << ": accepted";
    } catch (const ToolError& e) {
      EXPECT_EQ(e.status(), ExitStatus::badInput);
      EXPECT_EQ(std::string(e.what()), c.message) << c.json;
    }
  }
}

// The host forms a package's records do not show (its column structure arrays: records.t): empty
// structure arrays with fields, column cells, typed and empty text; each reads as what it stands for.
TEST(RecordFromHostTest, ReadsTypedHostForms) {
  const Json noApps = Json::parse(R"({"$class": "struct", "$dims": [0, 1],
      "$fields": ["name", "guid", "relativePath", "installByDefault"], "$data": []})");
  EXPECT_EQ(recordFromHost(Record::apps, noApps), Json::array());

  const Json oneCategory = Json::parse(R"({"name": "c", "examples": {"name": "e", "type": "t", "source": "",
      "main": "", "thumbnail": "", "images": {"$class": "cell", "$dims": [2, 1], "$data": ["a.png", "b.png"]}}})");
  const Json examples = recordFromHost(Record::examples, oneCategory);
  ASSERT_EQ(examples.size(), 1u);
  ASSERT_EQ(examples[0]["examples"].size(), 1u);
  EXPECT_EQ(examples[0]["examples"][0]["images"], Json::parse(R"(["a.png", "b.png"])"));

  const Json config = Json::parse(R"({"zorvanPaths": {"$class": "cell", "$dims": [1, 0], "$data": []},
      "javaClassPaths": ["only.jar"], "infoXMLPath": null,
      "gettingStartedDocPath": {"$class": "char", "$dims": [0, 0], "$data": ""},
      "installMapPath": {"$class": "char", "$dims": [1, 2], "$data": [55357, 65]}})");
  const Json c = recordFromHost(Record::configuration, config);
  EXPECT_EQ(c["zorvanPaths"], Json::array());
  EXPECT_EQ(c["javaClassPaths"], Json::parse(R"(["only.jar"])"));
  EXPECT_EQ(c["infoXMLPath"], "");
  EXPECT_EQ(c["gettingStartedDocPath"], "");
  // Text with a lone surrogate has no UTF-8 form: it stays typed, and recordToHost passes it back.
  EXPECT_EQ(c["installMapPath"], config["installMapPath"]);
  EXPECT_EQ(recordToHost(Record::configuration, c, "")["installMapPath"], config["installMapPath"]);

  // A package without the part gives the empty record, every field present.
  EXPECT_EQ(recordFromHost(Record::license, nullptr), Json::parse(R"({"type": "", "text": ""})"));
}

TEST(ProgressFormatTest, BytesInDecimalUnitsDurationsInMinutesAndHours) {
  const std::pair<std::uint64_t, const char*> cases[] = {
      {999, "999 B"}, {1550, "1.6 kB"}, {999949999, "999.9 MB"}, {1000000000, "1.0 GB"}, {~0ull, "18446.7 PB"},
  };
  for (const auto& [bytes, text] : cases) EXPECT_EQ(formatBytes(bytes), text) << bytes;
  const std::pair<double, const char*> durations[] = {
      {-3, "0:00"}, {59.6, "1:00"}, {3599, "59:59"}, {3723, "1:02:03"}, {360000, "100:00:00"},
  };
  for (const auto& [seconds, text] : durations) EXPECT_EQ(formatDuration(seconds), text) << seconds;
}

TEST(ProgressFormatTest, ShowsFiguresAndRateOnceSettled) {
  const struct {
    ProgressState state;
    int width;
    const char* line;
  } cases[] = {
      {{5000, 20000, 4'000'000, 16'000'000, 0.1}, 120, "build [#######-----------------------]  25% 5000/20000 files 4.0 MB/16.0 MB"},
      {{5000, 20000, 4'000'000, 16'000'000, 2}, 120,  // 2 MB/s, 12 MB to go
       "build [#######-----------------------]  25% 5000/20000 files 4.0 MB/16.0 MB 2.0 MB/s 0:06 left"},
      // Without bytes the rate and the fraction come from files.
      {{10, 40, 0, 0, 5}, 120, "build [#######-----------------------]  25% 10/40 files 0 B/0 B 2 files/s 0:15 left"},
      // Done: the time taken instead of the time left.
      {{40, 40, 100, 100, 4}, 120, "build [##############################] 100% 40/40 files 100 B/100 B 25 B/s in 0:04"},
      // A narrow terminal drops the bar before it drops figures.
      {{1, 2, 3, 4, 0}, 50, "build  75% 1/2 files 3 B/4 B"},
  };
  for (const auto& c : cases) EXPECT_EQ(formatProgress("build", c.state, c.width), c.line);
}

// Never wider than the terminal, and the bar keeps its place while the figures after it grow: it is
// sized for the longest of them.
TEST(ProgressFormatTest, FitsTheTerminalAndTheBarKeepsItsPlaceThroughARun) {
  for (const auto& [files, bytes] : {std::pair{20000ull, 20000ull * 937}, {9999999ull, 999999999999ull}}) {
    for (int width = 0; width <= 200; ++width) {
      std::set<std::size_t> closes;
      for (std::uint64_t step = 0; step <= 8; ++step) {
        const ProgressState s{files * step / 8, files, bytes * step / 8, bytes, step * 1234.5};
        const std::string line = formatProgress("extract", s, width);
        EXPECT_LE(static_cast<int>(line.size()), width) << width;
        closes.insert(line.find(']'));
      }
      EXPECT_EQ(closes.size(), 1u) << width << " columns, " << files << " files";
    }
  }
}

}  // namespace
}  // namespace zvaddon::tool
