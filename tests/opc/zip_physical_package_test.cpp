// The ZIP reader held to libzip on archives libzip made (every shape a foreign package may have), every
// lie of an archive refused naming its defect, and a writer that fails leaving the package as it was.
#include "opc/zippackage/zip_physical_package.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "opc/detail/content_sources.h"
#include "opc/exception.h"
#include "package_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;

// Both ways of reading an entry: streamed, and whole into a buffer.
std::string streamed(const ZipPhysicalPackage& physical, std::uint64_t index) { return readAll(*physical.openEntry(index)); }
std::string whole(const ZipPhysicalPackage& physical, std::uint64_t index) {
  std::vector<std::uint8_t> out;
  std::vector<std::uint8_t> scratch;
  physical.readEntry(index, out, scratch);
  return {out.begin(), out.end()};
}

// A libzip archive: deflated data longer than one read of the reader, stored and empty entries, DOS
// time only, a Unix mode, a code page 437 name; with `comment`.
void writeForeign(const std::string& file, const std::string& comment = {}) {
  static const std::string big = patternBytes(700000, 3);
  static const std::string tiny = "tiny";
  const struct {
    std::string name;
    const std::string* data;
    bool stored;
    zip_flags_t encoding;
  } items[] = {{"big.txt", &big, false, ZIP_FL_ENC_UTF_8},        {"empty-deflated", nullptr, false, ZIP_FL_ENC_UTF_8},
               {"empty-stored", nullptr, true, ZIP_FL_ENC_UTF_8},  {"stored.bin", &big, true, ZIP_FL_ENC_UTF_8},
               {"\x81" "ber.txt", &big, false, ZIP_FL_ENC_CP437}, {"tiny.txt", &tiny, false, ZIP_FL_ENC_UTF_8}};
  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_NE(za, nullptr) << error;
  for (const auto& item : items) {
    zip_source_t* src = zip_source_buffer(za, item.data != nullptr ? item.data->data() : nullptr, item.data != nullptr ? item.data->size() : 0, 0);
    const zip_int64_t index = zip_file_add(za, item.name.c_str(), src, item.encoding);
    ASSERT_GE(index, 0);
    zip_set_file_compression(za, index, item.stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE, 0);
    zip_file_set_mtime(za, index, 1500000000, 0);
    zip_file_set_external_attributes(za, index, 0, ZIP_OPSYS_UNIX, (0100640u) << 16);
  }
  if (!comment.empty()) zip_set_archive_comment(za, comment.data(), static_cast<zip_uint16_t>(comment.size()));
  ASSERT_EQ(zip_close(za), 0) << zip_strerror(za);
}

// Our reader sees each entry as libzip does (name, sizes, CRC, method, time, mode, bytes by both ways
// of reading): whatever the comment (one holding an end record's signature, the longest), with a local
// extra field longer than the reader's guess (or the only one), or with sizes only in the directory as
// a streaming writer leaves them.
TEST(ZipReaderTest, SeesEntriesAsLibzipDoes) {
  ScratchDir dir;
  const auto localExtra = [](std::size_t index, std::size_t size) {
    return [index, size](const std::string& file) {
      int error = 0;
      zip_t* za = zip_open(file.c_str(), 0, &error);
      const std::string data(size, 'x');
      ASSERT_EQ(zip_file_extra_field_set(za, index, 0x7a76, ZIP_EXTRA_FIELD_NEW, reinterpret_cast<const zip_uint8_t*>(data.data()),
                                         static_cast<zip_uint16_t>(size), ZIP_FL_LOCAL), 0);
      ASSERT_EQ(zip_close(za), 0) << zip_strerror(za);
    };
  };
  // The first entry's local header opens the file.
  const auto edit = [](std::function<void(std::string&)> change) {
    return [change](const std::string& file) {
      std::string bytes = readFile(file);
      change(bytes);
      writeFile(file, bytes);
    };
  };
  const struct {
    const char* name;
    std::string comment;  // libzip takes no control characters; "@@@@" becomes an end record's signature
    std::function<void(const std::string&)> change;
  } cases[] = {
      {"as written", "", [](const std::string&) {}},
      {"a comment holding a signature", "@@@@ a comment that misleads its reader",
       edit([](std::string& b) { b.replace(b.rfind("@@@@"), 4, "PK\x05\x06"); })},
      {"the longest comment", std::string(0xFFFF, 'c'), [](const std::string&) {}},
      {"long local extra on a deflated entry", "", localExtra(0, 3000)},
      {"short local extra on a stored entry", "", localExtra(3, 8)},
      {"local extra just past the guess", "", localExtra(5, 65)},
      {"sizes only in the directory", "", edit([](std::string& b) {
         b[6] = static_cast<char>(b[6] | 0x08);
         b.replace(14, 12, 12, '\0');
       })},
  };
  const std::string file = dir.file("foreign.zip");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    writeForeign(file, c.comment);
    c.change(file);
    int error = 0;
    zip_t* za = zip_open(file.c_str(), ZIP_RDONLY, &error);
    ASSERT_NE(za, nullptr) << error;
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    ASSERT_EQ(physical.getEntries().size(), static_cast<std::size_t>(zip_get_num_entries(za, 0)));
    for (const ZipEntry& e : physical.getEntries()) {
      zip_stat_t st;
      ASSERT_EQ(zip_stat_index(za, e.index, 0, &st), 0);
      ASSERT_EQ(e.name, st.name);  // libzip reads the code page 437 name as such too
      EXPECT_EQ(e.size, st.size) << st.name;
      EXPECT_EQ(e.compressedSize, st.comp_size) << st.name;
      EXPECT_EQ(e.crc, st.crc) << st.name;
      EXPECT_EQ(e.compressionMethod, st.comp_method) << st.name;
      EXPECT_EQ(e.attributes.lastModified, (FileTime{static_cast<std::int64_t>(st.mtime), 0})) << st.name;
      EXPECT_EQ(e.attributes.unixMode, 0640u) << st.name;
      std::string expected(st.size, '\0');
      zip_file_t* zf = zip_fopen_index(za, e.index, 0);
      ASSERT_EQ(zip_fread(zf, expected.data(), expected.size()), static_cast<zip_int64_t>(expected.size()));
      zip_fclose(zf);
      EXPECT_EQ(streamed(physical, e.index), expected);
      EXPECT_EQ(whole(physical, e.index), expected);
    }
    zip_discard(za);
  }
}

// Each fixture (tests/data/zip, made by tests/opc/make_corpus.py) breaks one thing of a valid archive.
// What breaks the directory is refused when the archive is opened, naming the file; a record that lies
// about its entry when the entry is read, streamed or whole, naming it; what the record alone shows
// (entryDefect) before any read.
TEST(ZipReaderTest, MalformedArchivesAreRefusedWithTheirDefect) {
  enum When { Open, Record, Read };
  const struct {
    const char* fixture;
    When when;
    std::size_t entry;
    const char* message;
  } cases[] = {
      {"too-short", Open, 0, "too short"},
      {"no-end-record", Open, 0, "no end of central directory"},
      {"end-record-cut", Open, 0, "no end of central directory"},
      {"directory-outside-file", Open, 0, "lies outside the file"},
      {"directory-into-end-record", Open, 0, "lies outside the file"},
      {"count-beyond-records", Open, 0, "record 3 is malformed"},
      {"count-beyond-directory", Open, 0, "shorter than its entries"},
      {"record-cut-short", Open, 0, "is cut short"},
      {"entry-after-directory", Open, 0, "starts after the central directory"},
      {"zip64-locator-outside", Open, 0, "ZIP64 end record lies outside"},
      {"several-disks", Open, 0, "several disks"},
      {"zip64-field-missing", Open, 0, "ZIP64 extra field that is missing"},
      {"size-larger-than-data", Read, 0, "fewer bytes"},
      {"size-smaller-than-data", Read, 0, "more bytes"},
      {"stored-sizes-differ", Record, 1, "stores 3072"},
      {"encrypted", Record, 0, "encrypted"},
      {"unknown-method", Record, 0, "method 12"},
      {"size-beyond-deflate", Record, 0, "more than its compression can yield"},
      {"bytes-after-deflate-stream", Read, 0, "data follows the end"},
      {"no-local-header", Read, 0, "no local header"},
      {"data-into-directory", Read, 2, "central directory"},
      {"corrupt-deflate-data", Read, 0, "'text.txt'"},
  };
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(ZV_TEST_DATA_DIR "/zip"), {}), std::ssize(cases));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fixture);
    const std::string file = std::string(ZV_TEST_DATA_DIR "/zip/") + c.fixture + ".zip";
    ZipPhysicalPackage physical(u16(file), false);
    const std::string opened = errorOf([&] { physical.openArchive(); });
    if (c.when == Open) {
      EXPECT_THAT(opened, HasSubstr(c.message));
      EXPECT_THAT(opened, HasSubstr(file));
      continue;
    }
    ASSERT_EQ(opened, "(no error)");
    EXPECT_EQ(physical.entryDefect(c.entry).empty(), c.when != Record) << physical.entryDefect(c.entry);
    EXPECT_THAT(errorOf([&] { (void)streamed(physical, c.entry); }), HasSubstr(c.message));
    EXPECT_THAT(errorOf([&] { (void)whole(physical, c.entry); }), HasSubstr(c.message));
  }
}

// Four megabytes of 'x' that fail to open, at the first read or after a megabyte: fault injection.
struct FailingSource : ContentSource {
  enum class At { Open, FirstRead, AfterOneMegabyte } at;
  explicit FailingSource(At a) : at(a) {}
  [[nodiscard]] std::unique_ptr<InputStream> openStream() const override {
    if (at == At::Open) throw Exception("injected open failure");
    struct Stream : InputStream {
      std::uint64_t left;
      explicit Stream(std::uint64_t l) : left(l) {}
      std::size_t read(std::uint8_t* buffer, std::size_t size) override {
        if (size > left) throw Exception("injected read failure");
        std::memset(buffer, 'x', size);
        left -= size;
        return size;
      }
    };
    return std::make_unique<Stream>(at == At::FirstRead ? 0 : 1u << 20);
  }
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return 4u << 20; }
};

TEST(ZipWriterTest, AFailingSourceLeavesThePackageAndFolderUntouched) {
  ScratchDir dir;
  const std::string file = dir.file("pkg.zip");
  writeFile(file, "old bytes");
  for (const auto at : {FailingSource::At::Open, FailingSource::At::FirstRead, FailingSource::At::AfterOneMegabyte}) {
    SCOPED_TRACE(static_cast<int>(at));
    ZipPhysicalPackage physical(u16(file), true);
    auto writer = physical.createWriter();
    // The failure may surface when the entry is added (entries are written as they come) or at commit.
    const std::string error = errorOf([&] {
      writer->addEntry("good.txt", std::make_shared<detail::MemoryContentSource>("fine"), Compression::Deflated, {});
      writer->addEntry("bad.bin", std::make_shared<FailingSource>(at), Compression::Deflated, {});
      writer->commit();
    });
    EXPECT_THAT(error, AllOf(HasSubstr("'bad.bin'"), HasSubstr("injected")));
    EXPECT_THROW(writer->commit(), Exception);  // a failed writer is done
    EXPECT_EQ(readFile(file), "old bytes");
    EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});
  }
  ZipPhysicalPackage physical(u16(dir.file("new.zip")), false);
  EXPECT_THROW(physical.createWriter()->commit(), Exception);  // an archive needs an entry
  EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});
}

}  // namespace
}  // namespace opc::zippackage
