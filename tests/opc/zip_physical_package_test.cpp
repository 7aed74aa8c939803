// The ZIP container as the package model sees it: every kind of entry the writer makes read back by
// libzip whatever the number of workers, entries read back as libzip reads them, every lie of a
// directory record refused by both ways of reading an entry, and a writer that fails leaving the
// package and its folder as they were.
#include "opc/zippackage/zip_physical_package.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>

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

// Bytes whose source does not tell their size up front, or tells a wrong one.
class UnsizedSource : public ContentSource {
 public:
  UnsizedSource(std::string bytes, std::optional<std::uint64_t> claimed) : bytes_(std::move(bytes)), claimed_(claimed) {}
  [[nodiscard]] std::unique_ptr<InputStream> openStream() const override {
    return detail::MemoryContentSource(bytes_).openStream();
  }
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return claimed_; }

 private:
  std::string bytes_;
  std::optional<std::uint64_t> claimed_;
};

// Every path an entry takes through the writer, written with one worker and with four: the archives
// are the same bytes, each entry is stored or deflated as its content calls for, and libzip opens
// them with its consistency checks (local headers agree with the directory) and reads them back;
// copied again with new times (so rewritten from their data, not copied as stored), they still do.
TEST(ZipWriterTest, EveryKindOfEntryReadsBackThroughLibzipWhateverTheWorkers) {
  ScratchDir dir;
  std::string noise(1536u << 10, '\0');
  std::uint32_t x = 12345;
  for (char& c : noise) c = static_cast<char>((x = x * 1103515245u + 12345u) >> 24);
  const std::uint64_t limit = 1u << 20;  // the largest entry a worker reads whole
  const struct {
    const char* name;
    std::string bytes;
    Compression compression;
    std::optional<std::uint64_t> claimed;  // what the source says its size is
    int method;                             // what the archive should hold
  } cases[] = {
      {"stored.txt", patternBytes(70000, 1), Compression::Stored, 70000, ZIP_CM_STORE},
      {"stored unsized.txt", patternBytes(5000, 2), Compression::Stored, std::nullopt, ZIP_CM_STORE},
      {"stored grew.txt", patternBytes(9000, 3), Compression::Stored, 10, ZIP_CM_STORE},
      {"large stored.txt", patternBytes(3 * limit, 8), Compression::Stored, 3 * limit, ZIP_CM_STORE},
      {"small.txt", patternBytes(40000, 4), Compression::Deflated, 40000, ZIP_CM_DEFLATE},
      {"at limit.txt", patternBytes(limit, 9), Compression::Deflated, limit, ZIP_CM_DEFLATE},
      {"deflated unsized.txt", patternBytes(3 * limit, 5), Compression::Deflated, std::nullopt, ZIP_CM_DEFLATE},
      {"in pieces.txt", patternBytes(5 * limit + 17, 6), Compression::Deflated, 5 * limit + 17, ZIP_CM_DEFLATE},
      // Small: deflated whole, deflate falling back to stored blocks; large: a sample shows it does not pay.
      {"small noise.bin", noise.substr(0, 300000), Compression::Deflated, 300000, ZIP_CM_DEFLATE},
      {"noise.bin", noise, Compression::Deflated, noise.size(), ZIP_CM_STORE},
      {"image.png", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"empty.txt", "", Compression::Deflated, 0, ZIP_CM_DEFLATE},
  };
  // And deflate data made beforehand, stored as given.
  const std::string data = patternBytes(300000, 5);
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(9);
  std::string compressed(libdeflate_deflate_compress_bound(compressor, data.size()), '\0');
  compressed.resize(libdeflate_deflate_compress(compressor, data.data(), data.size(), compressed.data(), compressed.size()));
  libdeflate_free_compressor(compressor);
  const PrecompressedContent precompressed{std::make_shared<detail::MemoryContentSource>(compressed), compressed.size(),
                                           data.size(), static_cast<std::uint32_t>(libdeflate_crc32(0, data.data(), data.size()))};
  std::string archives[2];
  for (const char* threads : {"1", "4"}) {
    SCOPED_TRACE(threads);
    const std::string file = dir.file(std::string("kinds") + threads + ".zip");
    ::setenv("ZVADDON_THREADS", threads, 1);
    {
      ZipPhysicalPackage physical(u16(file), false);
      auto writer = physical.createWriter();
      for (int copy = 0; copy < 2; ++copy) {  // more entries than workers
        for (const auto& c : cases) {
          writer->addEntry(std::to_string(copy) + c.name, std::make_shared<UnsizedSource>(c.bytes, c.claimed),
                           c.compression, {FileTime{1600000000, 500}, 0600});
        }
      }
      writer->addPrecompressedEntry("pre.bin", precompressed, {FileTime{1600000000, 500}, 0600});
      writer->commit();
    }
    ::unsetenv("ZVADDON_THREADS");
    archives[*threads == '1' ? 0 : 1] = readFile(file);
    const std::string copy = dir.file(std::string("copy") + threads + ".zip");
    {
      std::filesystem::copy_file(file, copy);
      ZipPhysicalPackage physical(u16(copy), false);
      physical.openArchive();
      auto writer = physical.createWriter();
      for (const ZipEntry& e : physical.getEntries()) writer->copyEntry(e.name, e.index, {FileTime{1700000000, 0}, 0644});
      writer->commit();
    }
    for (const std::string& path : {file, copy}) {
      SCOPED_TRACE(path);
      const auto raw = rawItems(path);  // opened with ZIP_CHECKCONS
      ASSERT_EQ(raw.size(), 2 * std::size(cases) + 1);
      EXPECT_EQ(raw.at("pre.bin").compressed, compressed);  // copied, not recompressed
      EXPECT_EQ(itemText(path, "pre.bin"), data);
      for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(raw.at(std::string("1") + c.name).method, c.method);
        EXPECT_EQ(itemText(path, std::string("1") + c.name), c.bytes);
      }
      ZipPhysicalPackage physical(u16(path), false);
      physical.openArchive();
      const FileTime expected = path == file ? FileTime{1600000000, 500} : FileTime{1700000000, 0};
      for (const ZipEntry& e : physical.getEntries()) {
        EXPECT_EQ(e.attributes.lastModified, expected) << e.name;
        EXPECT_EQ(e.attributes.unixMode, path == file ? 0600u : 0644u) << e.name;
      }
    }
  }
  EXPECT_TRUE(archives[0] == archives[1]) << "the archives differ with the number of workers";
}

// An archive made by libzip with the shapes a foreign package may have: deflated data longer than
// one read of the reader, stored and empty entries, DOS time only, a Unix mode, a code page 437
// name. Our reader must see each entry as libzip does.
std::string makeForeignArchive(const std::string& file) {
  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  EXPECT_NE(za, nullptr) << error;
  static const std::string big = patternBytes(700000, 3);
  static const std::string tiny = "tiny";
  const struct {
    const char* name;
    const std::string* data;
    bool stored;
    zip_flags_t encoding;
  } items[] = {
      {"big.txt", &big, false, ZIP_FL_ENC_UTF_8},
      {"empty-deflated", nullptr, false, ZIP_FL_ENC_UTF_8},
      {"empty-stored", nullptr, true, ZIP_FL_ENC_UTF_8},
      {"stored.bin", &big, true, ZIP_FL_ENC_UTF_8},
      {"\x81" "ber.txt", &big, false, ZIP_FL_ENC_CP437},
      {"tiny.txt", &tiny, false, ZIP_FL_ENC_UTF_8},
  };
  for (const auto& item : items) {
    // The bytes must outlive zip_close, which reads them.
    zip_source_t* src = item.data != nullptr ? zip_source_buffer(za, item.data->data(), item.data->size(), 0)
                                             : zip_source_buffer(za, nullptr, 0, 0);
    const zip_int64_t index = zip_file_add(za, item.name, src, item.encoding);
    EXPECT_GE(index, 0);
    zip_set_file_compression(za, index, item.stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE, 0);
    zip_file_set_mtime(za, index, 1500000000, 0);
    zip_file_set_external_attributes(za, index, 0, ZIP_OPSYS_UNIX, (0100640u) << 16);
  }
  EXPECT_EQ(zip_close(za), 0);
  return file;
}

// Our reader sees each entry of a foreign archive as libzip does (name, sizes, method, times, mode,
// bytes by both ways of reading), also where the data starts elsewhere than the directory suggests:
// a local extra field longer than the reader's guess (or the only one), or sizes only in the
// directory as a streaming writer leaves them.
TEST(ZipReaderTest, SeesEntriesAsLibzipDoes) {
  ScratchDir dir;
  const std::string original = dir.file("foreign.zip");
  const std::string good = readFile(makeForeignArchive(original));
  const auto localExtra = [](std::size_t index, std::size_t size) {
    return [index, size](const std::string& file) {
      int error = 0;
      zip_t* za = zip_open(file.c_str(), 0, &error);
      ASSERT_NE(za, nullptr) << error;
      const std::string data(size, 'x');
      ASSERT_EQ(zip_file_extra_field_set(za, index, 0x7a76, ZIP_EXTRA_FIELD_NEW, reinterpret_cast<const zip_uint8_t*>(data.data()),
                                         static_cast<zip_uint16_t>(size), ZIP_FL_LOCAL), 0);
      ASSERT_EQ(zip_close(za), 0) << zip_strerror(za);
    };
  };
  const auto sizesOnlyInTheDirectory = [](const std::string& file) {
    const detail::UniqueFd fd(openPackageFile(u16(file), file));
    const std::size_t header = CentralDirectory::read(fd.get(), file).records()[0].localHeaderOffset;
    std::string bytes = readFile(file);
    bytes[header + 6] = static_cast<char>(bytes[header + 6] | 0x08);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(header + 14), bytes.begin() + static_cast<std::ptrdiff_t>(header + 26), '\0');
    writeFile(file, bytes);
  };
  const struct {
    const char* name;
    std::function<void(const std::string&)> change;
  } cases[] = {
      {"as written", [](const std::string&) {}},
      {"long local extra on a deflated entry", localExtra(0, 3000)},
      {"short local extra on a stored entry", localExtra(3, 8)},
      {"local extra just past the guess", localExtra(5, 65)},
      {"sizes only in the directory", sizesOnlyInTheDirectory},
  };
  int error = 0;
  zip_t* za = zip_open(original.c_str(), ZIP_RDONLY, &error);
  ASSERT_NE(za, nullptr);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string file = dir.file("changed.zip");
    writeFile(file, good);
    c.change(file);
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    ASSERT_EQ(physical.getEntries().size(), static_cast<std::size_t>(zip_get_num_entries(za, 0)));
    for (const ZipEntry& e : physical.getEntries()) {
      SCOPED_TRACE(e.name);
      zip_stat_t st;
      ASSERT_EQ(zip_stat_index(za, e.index, 0, &st), 0);
      EXPECT_EQ(e.name, e.index == 4 ? "\xc3\xbc" "ber.txt" : st.name);  // code page 437 read as such
      EXPECT_EQ(e.size, st.size);
      EXPECT_EQ(e.crc, st.crc);
      EXPECT_EQ(e.compression, st.comp_method == ZIP_CM_STORE ? Compression::Stored : Compression::Deflated);
      EXPECT_EQ(e.attributes.lastModified, (FileTime{static_cast<std::int64_t>(st.mtime), 0}));
      EXPECT_EQ(e.attributes.unixMode, 0640u);
      std::string expected(st.size, '\0');
      zip_file_t* zf = zip_fopen_index(za, e.index, 0);
      ASSERT_EQ(zip_fread(zf, expected.data(), expected.size()), static_cast<zip_int64_t>(expected.size()));
      zip_fclose(zf);
      EXPECT_EQ(streamed(physical, e.index), expected);
      EXPECT_EQ(whole(physical, e.index), expected);
    }
  }
  zip_discard(za);
}

// Directory records that lie about an entry: each is refused when the entry is read, streamed or
// whole, naming it; what can be told from the record alone (entryDefect) before any read.
TEST(ZipReaderTest, EntriesWhoseRecordsLieFailWhenRead) {
  ScratchDir dir;
  const std::string good = readFile(makeForeignArchive(dir.file("good.zip")));
  // Where entry `index`'s central record and local header start in `good`.
  const auto offsetsOf = [&](std::size_t index) {
    const detail::UniqueFd fd(openPackageFile(dir.ufile("good.zip"), dir.file("good.zip")));
    const CentralDirectory directory = CentralDirectory::read(fd.get(), dir.file("good.zip"));
    const DirectoryRecord& r = directory.records()[index];
    return std::pair<std::size_t, std::size_t>(directory.offset() + r.recordOffset, r.localHeaderOffset);
  };
  const auto put = [](std::string& bytes, std::size_t at, std::uint32_t value, int width) {
    for (int i = 0; i < width; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
  };
  const struct {
    const char* name;
    std::size_t entry;
    std::function<void(std::string&, std::size_t record, std::size_t local)> damage;
    const char* message;
    bool seenInRecord;  // entryDefect reports it
  } cases[] = {
      {"size too large", 0, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 24, 700001, 4); }, "fewer bytes", false},
      {"size too small", 0, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 24, 1000, 4); }, "more bytes", false},
      {"stored sizes differ", 3, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 24, 1000, 4); }, "stores 700000", true},
      {"beyond what deflate yields", 0, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 24, 0x7fffffff, 4); },
       "more than its compression can yield", true},
      {"encrypted", 0, [&](std::string& b, std::size_t r, std::size_t) { b[r + 8] |= 1; }, "encrypted", true},
      {"unknown method", 0, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 10, 12, 2); }, "method 12", true},
      {"checksum", 3, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 16, 1, 4); }, "CRC", false},
      {"bytes after the deflate stream", 0, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 20, le::get32(&b[r + 20]) + 1, 4); },
       "data follows the end", false},
      {"no local header", 0, [&](std::string& b, std::size_t, std::size_t l) { b[l] = 'X'; }, "no local header", false},
      {"data into the directory", 4, [&](std::string& b, std::size_t r, std::size_t) { put(b, r + 20, 0x7fffffff, 4); },
       "central directory", false},
      {"corrupt deflate data", 0, [&](std::string& b, std::size_t, std::size_t l) { b[l + 60] ^= 0x55; }, "'big.txt'", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes = good;
    const auto [record, local] = offsetsOf(c.entry);
    c.damage(bytes, record, local);
    const std::string file = dir.file("bad.zip");
    writeFile(file, bytes);
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    EXPECT_EQ(physical.entryDefect(c.entry).empty(), !c.seenInRecord) << physical.entryDefect(c.entry);
    for (const auto read : {streamed, whole}) {
      try {
        (void)read(physical, c.entry);
        ADD_FAILURE() << "read";
      } catch (const Exception& e) {
        EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
      }
    }
  }
}

}  // namespace
}  // namespace opc::zippackage
