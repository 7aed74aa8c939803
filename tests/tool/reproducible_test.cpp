// Reproducible builds: with SOURCE_DATE_EPOCH set, building the same folder gives the same package,
// and packages built at two different instants differ only where a time is written.
#include <zip.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <regex>
#include <thread>

#include "foundation/scope.h"
#include "support/command.h"
#include "support/gateway_call.h"

namespace {
namespace fs = std::filesystem;

using ZipPtr = std::unique_ptr<zip_t, CDeleter<&zip_discard>>;
using ZipFilePtr = std::unique_ptr<zip_file_t, CDeleter<&zip_fclose>>;

struct Entry {
  std::string name;
  std::string bytes;
  std::time_t mtime = 0;
};

std::vector<Entry> readEntries(const std::string& path) {
  int error = 0;
  ZipPtr archive(zip_open(path.c_str(), ZIP_RDONLY, &error));
  EXPECT_TRUE(archive) << path << ": libzip error " << error;
  std::vector<Entry> entries;
  if (!archive) return entries;
  for (zip_int64_t i = 0; i < zip_get_num_entries(archive.get(), 0); ++i) {
    zip_stat_t st;
    zip_stat_init(&st);
    EXPECT_EQ(zip_stat_index(archive.get(), static_cast<zip_uint64_t>(i), 0, &st), 0);
    Entry e{st.name, std::string(st.size, '\0'), st.mtime};
    ZipFilePtr file(zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(i), 0));
    EXPECT_TRUE(file) << st.name;
    if (file && st.size > 0) {
      EXPECT_EQ(zip_fread(file.get(), e.bytes.data(), st.size), static_cast<zip_int64_t>(st.size)) << st.name;
    }
    entries.push_back(std::move(e));
  }
  return entries;
}

// Builds the example add-on, signed, at `epoch`; returns the package path.
std::string buildAt(const zvtest::TempDir& dir, const std::string& name, long long epoch) {
  const std::string out = dir.file(name);
  const zvtest::CommandRun run = zvtest::runCommand("SOURCE_DATE_EPOCH=" + std::to_string(epoch) + " '" + ZV_TOOL_DIR +
                                                     "/zvaddon' build -q --sign '" + ZV_SOURCE_DIR +
                                                     "/examples' -o " + zvtest::shellQuoted(out));
  EXPECT_EQ(run.status, 0) << run.output;
  return out;
}

std::string masked(std::string text, const std::vector<std::regex>& patterns) {
  for (const std::regex& p : patterns) text = std::regex_replace(text, p, "$1*$2");
  return text;
}

constexpr long long kEpochA = 1700000000;  // 2023-11-14T22:13:20Z
constexpr long long kEpochB = 1500000000;  // 2017-07-14T02:40:00Z

TEST(ReproducibleBuildTest, DifferentEpochsDifferOnlyWhereTimeIsWritten) {
  zvtest::TempDir dir;
  const auto a = readEntries(buildAt(dir, "a.zvaddon", kEpochA));
  const auto b = readEntries(buildAt(dir, "b.zvaddon", kEpochB));
  ASSERT_EQ(a.size(), b.size());
  // Times in the core properties; in a signature the signing time, and the digest and signature
  // values that cover it.
  const std::vector<std::regex> timeFields = {
      std::regex(R"((<dcterms:(?:created|modified)[^>]*>)[^<]*(</dcterms:))"),
      std::regex(R"((<mdssi:Value>)[^<]*(</mdssi:Value>))"),
      std::regex(R"((<DigestValue>)[^<]*(</DigestValue>))"),
      std::regex(R"((<SignatureValue>)[^<]*(</SignatureValue>))"),
  };
  for (std::size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i].name, b[i].name) << "entry " << i;
    if (a[i].name == "docProps/core.xml") {
      EXPECT_NE(a[i].bytes.find("2023-11-14T22:13:20Z"), std::string::npos) << a[i].bytes;
      EXPECT_NE(b[i].bytes.find("2017-07-14T02:40:00Z"), std::string::npos) << b[i].bytes;
    }
    if (a[i].name.starts_with("docProps/") || a[i].name.starts_with("_xmlsignatures/")) {
      EXPECT_EQ(masked(a[i].bytes, timeFields), masked(b[i].bytes, timeFields)) << a[i].name;
    } else {
      EXPECT_EQ(a[i].bytes, b[i].bytes) << a[i].name;
    }
  }
}

// Past a second boundary, so that anything reading the wall clock shows; nothing written is newer
// than the epoch, and content files keep their own time only when it is older.
TEST(ReproducibleBuildTest, SameEpochGivesByteIdenticalPackagesDatedTheEpoch) {
  zvtest::TempDir dir;
  const std::string first = buildAt(dir, "first.zvaddon", kEpochA);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  const std::string second = buildAt(dir, "second.zvaddon", kEpochA);
  EXPECT_TRUE(zvtest::readBytes(first) == zvtest::readBytes(second)) << "the two packages differ";
  for (const Entry& e : readEntries(first)) {
    EXPECT_LE(e.mtime, kEpochA) << e.name;
    if (!e.name.starts_with("fsroot/")) {
      EXPECT_EQ(e.mtime, kEpochA) << e.name;
    }
    if (e.name.starts_with("_xmlsignatures/sig")) {
      EXPECT_NE(e.bytes.find("<mdssi:Value>2023-11-14T22:13:20Z</mdssi:Value>"), std::string::npos) << e.bytes;
    }
  }
}

}  // namespace
