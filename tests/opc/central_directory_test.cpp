// The central directory reader against libzip, which it is held to, and against archives each broken
// in one place it relies on.
#include "opc/zippackage/central_directory.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <cstring>

#include "opc/detail/fd.h"
#include "opc/exception.h"
#include "opc_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;

struct Item {
  std::string name;
  std::string bytes;
  zip_int32_t method = ZIP_CM_STORE;
};

// Writes an archive with libzip.
void writeZip(const std::string& path, const std::vector<Item>& items, const std::string& comment = {}) {
  int error = 0;
  zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_NE(zip, nullptr) << error;
  for (const Item& item : items) {
    const zip_int64_t index = zip_file_add(zip, item.name.c_str(), zip_source_buffer(zip, item.bytes.data(), item.bytes.size(), 0),
                                           ZIP_FL_ENC_RAW);
    ASSERT_GE(index, 0) << zip_strerror(zip);
    ASSERT_EQ(zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), item.method, 0), 0);
  }
  if (!comment.empty()) {
    ASSERT_EQ(zip_set_archive_comment(zip, comment.data(), static_cast<zip_uint16_t>(comment.size())), 0);
  }
  ASSERT_EQ(zip_close(zip), 0) << zip_strerror(zip);
}

CentralDirectory readDirectory(const std::string& path) {
  const detail::UniqueFd fd(openPackageFile(u16(path), path));
  return CentralDirectory::read(fd.get(), path);
}

// Every record against what libzip reports for the same index: a directory with and without a
// comment (one holding an end record's signature, the longest there is), and one of more entries than
// 16 bits count, read through the ZIP64 end record.
TEST(CentralDirectoryTest, RecordsMatchLibzip) {
  const std::vector<Item> items = {
      {"[Content_Types].xml", "<Types/>", ZIP_CM_DEFLATE},
      {"fsroot/stored.bin", patternBytes(5000, 1), ZIP_CM_STORE},
      {"fsroot/deflated.txt", std::string(20000, 'x'), ZIP_CM_DEFLATE},
      {"fsroot/empty", "", ZIP_CM_STORE},
      {"fsroot/folder/", "", ZIP_CM_STORE},
      {"fsroot/caf\xC3\xA9 name.txt", "utf-8 name", ZIP_CM_DEFLATE},
  };
  std::vector<Item> many;
  for (int i = 0; i < 65600; ++i) many.push_back({"e" + std::to_string(i), ""});
  const struct {
    const char* what;
    const std::vector<Item>& items;
    std::string comment;  // libzip takes no control characters in one; "@@@@" becomes an end record's signature
  } cases[] = {{"no comment", items, ""},
               {"a comment holding a signature", items, "a comment @@@@ that misleads"},
               {"the longest comment", items, std::string(0xFFFF, 'c')},
               {"more than 65535 entries", many, ""}};
  ScratchDir dir;
  const std::string path = dir.file("a.zip");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    writeZip(path, c.items, c.comment);
    std::string bytes = readFile(path);
    if (const std::size_t at = bytes.rfind("@@@@"); at != std::string::npos) {
      bytes.replace(at, 4, "PK\x05\x06");
      writeFile(path, bytes);
    }
    ASSERT_EQ(c.items.size() > 0xFFFF, bytes.find("PK\x06\x06") != std::string::npos) << "the ZIP64 end record";
    const CentralDirectory directory = readDirectory(path);
    int error = 0;
    zip_t* zip = zip_open(path.c_str(), ZIP_RDONLY, &error);
    ASSERT_NE(zip, nullptr) << error;
    ASSERT_EQ(directory.records().size(), static_cast<std::size_t>(zip_get_num_entries(zip, 0)));
    for (std::size_t i = 0; i < directory.records().size(); ++i) {
      zip_stat_t st;
      ASSERT_EQ(zip_stat_index(zip, i, ZIP_FL_ENC_RAW, &st), 0);
      const DirectoryRecord& record = directory.records()[i];
      ASSERT_EQ(record.name, st.name) << i;
      EXPECT_EQ(record.size, st.size) << st.name;
      EXPECT_EQ(record.compressedSize, st.comp_size) << st.name;
      EXPECT_EQ(record.crc, st.crc) << st.name;
      EXPECT_EQ(record.method, st.comp_method) << st.name;
      // The record's bytes start with its signature, and the next one follows right after.
      EXPECT_EQ(directory.recordBytes(record).substr(0, 4), "PK\x01\x02") << st.name;
      if (i + 1 < directory.records().size()) {
        EXPECT_EQ(record.recordOffset + record.recordLength, directory.records()[i + 1].recordOffset);
      }
    }
    zip_discard(zip);
  }
}

// A valid archive's bytes, then each case breaks one thing the reader relies on.
TEST(CentralDirectoryTest, MalformedArchivesAreRefused) {
  ScratchDir dir;
  const std::string path = dir.file("a.zip");
  // Long names, so that the directory could hold the fixed parts of more records than it has.
  const std::string longName = "fsroot/" + std::string(60, 'n');
  writeZip(path, {{"[Content_Types].xml", "<Types/>"}, {longName + "a", "a"}, {longName + "b", "bb"}});
  const std::string valid = readFile(path);
  const std::size_t end = valid.rfind("PK\x05\x06");
  const std::size_t directory = valid.find("PK\x01\x02");
  const std::size_t lastRecord = valid.rfind("PK\x01\x02");
  ASSERT_NE(end, std::string::npos);
  // The valid bytes with the little-endian `value` of `width` bytes put at `at`.
  const auto patched = [&](std::size_t at, std::uint64_t value, std::size_t width) {
    std::string s = valid;
    for (std::size_t i = 0; i < width; ++i) s[at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
    return s;
  };
  // A ZIP64 locator before the end record, pointing far past the end of the file.
  const std::string locator("PK\x06\x07\0\0\0\0\0\0\0\0\xFF\0\0\0\x01\0\0\0", 20);
  const struct {
    const char* defect;
    std::string bytes;
    const char* message;
  } cases[] = {
      {"too short", "PK\x05\x06", "too short"},
      {"no end record", std::string(valid.size(), '\0'), "no end of central directory"},
      {"end record cut by the file's end", valid.substr(0, valid.size() - 2), "no end of central directory"},
      {"directory outside the file", patched(end + 16, 0x7FFFFFF0, 4), "lies outside the file"},
      {"directory running into the end record", patched(end + 12, valid.size(), 4), "lies outside the file"},
      {"count larger than the records", patched(end + 10, 4, 2), "record 3 is malformed"},
      {"count far larger than the directory", patched(end + 10, 1000, 2), "shorter than its entries"},
      {"record cut short", patched(lastRecord + 28, 0xFFFF, 2), "is cut short"},
      {"entry starting after the directory", patched(directory + 42, directory + 100, 4), "starts after the central directory"},
      {"ZIP64 locator pointing outside", valid.substr(0, end) + locator + valid.substr(end), "ZIP64 end record lies outside the file"},
      {"several disks", patched(end + 4, 1, 2), "several disks"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.defect);
    writeFile(path, c.bytes);
    try {
      (void)readDirectory(path);
      ADD_FAILURE() << "accepted";
    } catch (const opc::Exception& e) {
      EXPECT_NE(std::strstr(e.what(), c.message), nullptr) << e.what();
      EXPECT_NE(std::strstr(e.what(), path.c_str()), nullptr) << e.what();
    }
  }
}

}  // namespace
}  // namespace opc::zippackage
