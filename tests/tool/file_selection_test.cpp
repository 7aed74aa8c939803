// Glob patterns and the walk that selects an add-on's files.
#include "file_selection.h"

#include <gtest/gtest.h>

#include "support/gateway_call.h"

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

}  // namespace
}  // namespace zvaddon::tool
