// The ZIP reader held to libzip on archives libzip made (every shape a foreign package may have), every
// lie of an archive refused naming its defect, and a writer that fails leaving the package as it was.
#include "opc/zippackage/zip_physical_package.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/exception.h"
#include "opc/zippackage/central_directory.h"
#include "opc/zippackage/zip_format.h"
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
// time only, a Unix mode, a code page 437 name; or `many` empty entries; with `comment`.
void writeForeign(const std::string& file, std::size_t many = 0, const std::string& comment = {}) {
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
  for (std::size_t i = 0; i < (many != 0 ? many : std::size(items)); ++i) {
    const auto& item = many != 0 ? items[1] : items[i];
    const std::string name = many != 0 ? "e" + std::to_string(i) : item.name;
    zip_source_t* src = zip_source_buffer(za, item.data != nullptr ? item.data->data() : nullptr, item.data != nullptr ? item.data->size() : 0, 0);
    const zip_int64_t index = zip_file_add(za, name.c_str(), src, item.encoding);
    ASSERT_GE(index, 0);
    zip_set_file_compression(za, index, item.stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE, 0);
    zip_file_set_mtime(za, index, 1500000000, 0);
    zip_file_set_external_attributes(za, index, 0, ZIP_OPSYS_UNIX, (0100640u) << 16);
  }
  if (!comment.empty()) zip_set_archive_comment(za, comment.data(), static_cast<zip_uint16_t>(comment.size()));
  ASSERT_EQ(zip_close(za), 0) << zip_strerror(za);
}

void put(std::string& bytes, std::size_t at, std::uint64_t value, int width) {
  for (int i = 0; i < width; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
}

// Where the records and local headers of an archive lie.
struct Layout {
  std::size_t directory = 0;
  std::size_t end = 0;
  std::vector<std::size_t> records;
  std::vector<std::size_t> locals;
};
Layout layoutOf(const std::string& file) {
  const detail::UniqueFd fd(openPackageFile(u16(file), file));
  const CentralDirectory directory = CentralDirectory::read(fd.get(), file);
  Layout l{directory.offset(), readFile(file).rfind("PK\x05\x06"), {}, {}};
  for (const ZipEntry& r : directory.records()) {
    l.records.push_back(l.directory + r.recordOffset);
    l.locals.push_back(r.localHeaderOffset);
  }
  return l;
}

// Our reader sees each entry as libzip does (name, sizes, CRC, method, time, mode, bytes by both ways
// of reading): whatever the comment (one holding an end record's signature, the longest), past 65535
// entries (the ZIP64 end record), with a local extra field longer than the reader's guess (or the only
// one), or with sizes only in the directory as a streaming writer leaves them.
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
  const auto edit = [](std::function<void(std::string&, const Layout&)> change) {
    return [change](const std::string& file) {
      std::string bytes = readFile(file);
      change(bytes, layoutOf(file));
      writeFile(file, bytes);
    };
  };
  const struct {
    const char* name;
    std::size_t many;
    std::string comment;  // libzip takes no control characters; "@@@@" becomes an end record's signature
    std::function<void(const std::string&)> change;
  } cases[] = {
      {"as written", 0, "", [](const std::string&) {}},
      {"a comment holding a signature", 0, "@@@@ a comment that misleads its reader",
       edit([](std::string& b, const Layout&) { b.replace(b.rfind("@@@@"), 4, "PK\x05\x06"); })},
      {"the longest comment", 0, std::string(0xFFFF, 'c'), [](const std::string&) {}},
      {"more than 65535 entries", 65600, "", [](const std::string&) {}},
      {"long local extra on a deflated entry", 0, "", localExtra(0, 3000)},
      {"short local extra on a stored entry", 0, "", localExtra(3, 8)},
      {"local extra just past the guess", 0, "", localExtra(5, 65)},
      {"sizes only in the directory", 0, "", edit([](std::string& b, const Layout& l) {
         b[l.locals[0] + 6] = static_cast<char>(b[l.locals[0] + 6] | 0x08);
         put(b, l.locals[0] + 14, 0, 4), put(b, l.locals[0] + 18, 0, 4), put(b, l.locals[0] + 22, 0, 4);
       })},
  };
  const std::string file = dir.file("foreign.zip");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    writeForeign(file, c.many, c.comment);
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
      if (c.many != 0) continue;
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

// Each case breaks one thing of a valid archive. What breaks the directory is refused when the archive
// is opened; a record that lies about its entry when the entry is read, streamed or whole, naming it,
// and what the record alone shows (entryDefect) before any read.
TEST(ZipReaderTest, MalformedArchivesAreRefusedWithTheirDefect) {
  ScratchDir dir;
  const std::string file = dir.file("bad.zip");
  writeForeign(file);
  const std::string good = readFile(file);
  const Layout l = layoutOf(file);
  enum When { Open, Record, Read };
  using Damage = std::function<void(std::string&)>;
  const auto at = [](std::size_t offset, std::uint64_t value, int width) -> Damage {
    return [=](std::string& b) { put(b, offset, value, width); };
  };
  const std::string locator("PK\x06\x07\0\0\0\0\0\0\0\0\xFF\0\0\0\x01\0\0\0", 20);  // points far past the file
  const struct {
    const char* defect;
    Damage damage;
    When when;
    std::size_t entry;
    const char* message;
  } cases[] = {
      {"too short", [](std::string& b) { b = "PK\x05\x06"; }, Open, 0, "too short"},
      {"no end record", [](std::string& b) { b.assign(b.size(), '\0'); }, Open, 0, "no end of central directory"},
      {"end record cut by the file's end", [](std::string& b) { b.resize(b.size() - 2); }, Open, 0, "no end of central directory"},
      {"directory outside the file", at(l.end + 16, 0x7FFFFFF0, 4), Open, 0, "lies outside the file"},
      {"directory running into the end record", at(l.end + 12, good.size(), 4), Open, 0, "lies outside the file"},
      {"count larger than the records", at(l.end + 10, 7, 2), Open, 0, "record 6 is malformed"},
      {"count far larger than the directory", at(l.end + 10, 1000, 2), Open, 0, "shorter than its entries"},
      {"record cut short", at(l.records.back() + 28, 0xFFFF, 2), Open, 0, "is cut short"},
      {"entry starting after the directory", at(l.records[0] + 42, l.directory + 100, 4), Open, 0, "starts after the central directory"},
      {"ZIP64 locator pointing outside", [&](std::string& b) { b.insert(l.end, locator); }, Open, 0, "ZIP64 end record lies outside"},
      {"several disks", at(l.end + 4, 1, 2), Open, 0, "several disks"},
      {"ZIP64 field missing", at(l.records[0] + 24, 0xFFFFFFFF, 4), Open, 0, "ZIP64 extra field that is missing"},
      {"size too large", at(l.records[0] + 24, 700001, 4), Read, 0, "fewer bytes"},
      {"size too small", at(l.records[0] + 24, 1000, 4), Read, 0, "more bytes"},
      {"stored sizes differ", at(l.records[3] + 24, 1000, 4), Record, 3, "stores 700000"},
      {"encrypted", [&](std::string& b) { b[l.records[0] + 8] |= 1; }, Record, 0, "encrypted"},
      {"unknown method", at(l.records[0] + 10, 12, 2), Record, 0, "method 12"},
      {"beyond what deflate yields", at(l.records[0] + 24, 0x7fffffff, 4), Record, 0, "more than its compression can yield"},
      {"bytes after the deflate stream", [&](std::string& b) { put(b, l.records[0] + 20, le::get32(&b[l.records[0] + 20]) + 1, 4); },
       Read, 0, "data follows the end"},
      {"no local header", [&](std::string& b) { b[l.locals[0]] = 'X'; }, Read, 0, "no local header"},
      {"data into the directory", at(l.records[4] + 20, 0x7fffffff, 4), Read, 4, "central directory"},
      {"corrupt deflate data", [&](std::string& b) { b[l.locals[0] + 60] ^= 0x55; }, Read, 0, "'big.txt'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.defect);
    std::string bytes = good;
    c.damage(bytes);
    writeFile(file, bytes);
    ZipPhysicalPackage physical(u16(file), false);
    try {
      physical.openArchive();
      EXPECT_NE(c.when, Open) << "opened";
    } catch (const Exception& e) {
      EXPECT_EQ(c.when, Open) << e.what();
      EXPECT_NE(std::strstr(e.what(), c.message), nullptr) << e.what();
      EXPECT_NE(std::strstr(e.what(), file.c_str()), nullptr) << e.what();
      continue;
    }
    EXPECT_EQ(physical.entryDefect(c.entry).empty(), c.when != Record) << physical.entryDefect(c.entry);
    for (const auto read : {streamed, whole}) {
      try {
        (void)read(physical, c.entry);
        ADD_FAILURE() << "read";
      } catch (const Exception& e) {
        EXPECT_NE(std::strstr(e.what(), c.message), nullptr) << e.what();
      }
    }
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
    try {
      writer->addEntry("good.txt", std::make_shared<detail::MemoryContentSource>("fine"), Compression::Deflated, {});
      writer->addEntry("bad.bin", std::make_shared<FailingSource>(at), Compression::Deflated, {});
      writer->commit();
      ADD_FAILURE() << "committed";
    } catch (const Exception& e) {
      EXPECT_NE(std::string(e.what()).find("'bad.bin'"), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find("injected"), std::string::npos) << e.what();
    }
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
