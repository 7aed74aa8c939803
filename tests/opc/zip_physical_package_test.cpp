#include "opc/zippackage/zip_physical_package.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>

#ifdef ZV_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

#include "opc/detail/content_sources.h"
#include "opc/exception.h"
#include "opc/zippackage/central_directory.h"
#include "opc/zippackage/extra_fields.h"
#include "package_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;

// Round trips through each field: zip_writer_headers_test.cpp. Truncated or foreign fields decode to
// nothing rather than to garbage, and DOS time clamps to its range.
TEST(ExtraFieldsTest, ForeignFieldsDecodeToNothingAndDosTimeClamps) {
  const auto ntfs = extra::encodeNtfs({0, 0});
  EXPECT_FALSE(extra::decodeNtfs(ntfs->data(), 12).has_value());
  const std::uint8_t accessOnly[5] = {0x02, 1, 2, 3, 4};
  EXPECT_FALSE(extra::decodeExtendedTimestamp(accessOnly, 5).has_value());
  EXPECT_EQ(extra::clampToDosRange({0, 0}), 315619200);
  EXPECT_EQ(extra::clampToDosRange({7258118400, 0}), 4354646400);
  EXPECT_EQ(extra::clampToDosRange({1000000000, 0}), 1000000000);
}

// A content source that fails at a chosen point, for fault injection.
class FailingSource : public ContentSource {
 public:
  enum class At { Open, FirstRead, AfterOneMegabyte };
  explicit FailingSource(At at) : at_(at) {}
  [[nodiscard]] std::unique_ptr<InputStream> openStream() const override {
    if (at_ == At::Open) throw Exception("injected open failure");
    struct Stream : InputStream {
      At at;
      std::uint64_t done = 0;
      explicit Stream(At a) : at(a) {}
      std::size_t read(std::uint8_t* buffer, std::size_t size) override {
        if (at == At::FirstRead || done >= (1u << 20)) throw Exception("injected read failure");
        std::memset(buffer, 'x', size);
        done += size;
        return size;
      }
    };
    return std::make_unique<Stream>(at_);
  }
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return 4u << 20; }

 private:
  At at_;
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

// Every path an entry takes through the writer gives an archive that libzip opens with its
// consistency checks (local headers agree with the directory) and reads back byte for byte; copied
// again with new times (so rewritten from their data, not copied as stored), they still do.
TEST(ZipWriterTest, EveryKindOfEntryReadsBackThroughLibzip) {
  ScratchDir dir;
  const std::string file = dir.file("kinds.zip");
  std::string noise(1536u << 10, '\0');
  std::uint32_t x = 12345;
  for (char& c : noise) c = static_cast<char>((x = x * 1103515245u + 12345u) >> 24);
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
      {"small.txt", patternBytes(40000, 4), Compression::Deflated, 40000, ZIP_CM_DEFLATE},
      {"deflated unsized.txt", patternBytes(3u << 20, 5), Compression::Deflated, std::nullopt, ZIP_CM_DEFLATE},
      {"in pieces.txt", patternBytes((5u << 20) + 17, 6), Compression::Deflated, (5u << 20) + 17, ZIP_CM_DEFLATE},
      {"noise.bin", noise, Compression::Deflated, noise.size(), ZIP_CM_STORE},
      {"image.png", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"empty.txt", "", Compression::Deflated, 0, ZIP_CM_DEFLATE},
  };
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    for (const auto& c : cases) {
      writer->addEntry(c.name, std::make_shared<UnsizedSource>(c.bytes, c.claimed), c.compression,
                       {FileTime{1600000000, 500}, 0600});
    }
    writer->commit();
  }
  const std::string copy = dir.file("copy.zip");
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
    ASSERT_EQ(raw.size(), std::size(cases));
    for (const auto& c : cases) {
      SCOPED_TRACE(c.name);
      EXPECT_EQ(raw.at(c.name).method, c.method);
      EXPECT_EQ(itemText(path, c.name), c.bytes);
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

// An archive made by libzip with the shapes a foreign package may have: deflated data longer than
// one read of the reader, stored and empty entries, DOS time only, a Unix mode, a code page 437
// name. Our reader must see each entry as libzip does.
std::string makeForeignArchive(const std::string& file) {
  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  EXPECT_NE(za, nullptr) << error;
  static const std::string big = patternBytes(700000, 3);
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

TEST(ZipReaderTest, SeesEntriesAsLibzipDoes) {
  ScratchDir dir;
  const std::string file = makeForeignArchive(dir.file("foreign.zip"));
  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_RDONLY, &error);
  ASSERT_NE(za, nullptr);
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  ASSERT_EQ(physical.getEntries().size(), static_cast<std::size_t>(zip_get_num_entries(za, 0)));
  for (const ZipEntry& e : physical.getEntries()) {
    SCOPED_TRACE(e.name);
    zip_stat_t st;
    ASSERT_EQ(zip_stat_index(za, e.index, 0, &st), 0);
    EXPECT_EQ(e.name, st.name);
    EXPECT_EQ(e.size, st.size);
    EXPECT_EQ(e.crc, st.crc);
    EXPECT_EQ(e.compressionMethod, st.comp_method);
    EXPECT_EQ(e.attributes.lastModified, (FileTime{static_cast<std::int64_t>(st.mtime), 0}));
    EXPECT_EQ(e.attributes.unixMode, 0640u);
    std::string expected(st.size, '\0');
    zip_file_t* zf = zip_fopen_index(za, e.index, 0);
    ASSERT_EQ(zip_fread(zf, expected.data(), expected.size()), static_cast<zip_int64_t>(expected.size()));
    zip_fclose(zf);
    EXPECT_EQ(readAll(*physical.openEntry(e.index)), expected);
  }
  EXPECT_EQ(physical.getEntries()[4].name, "\xc3\xbc" "ber.txt");
  zip_discard(za);
}

// Directory records that lie about an entry: each is refused when the entry is read, naming it.
TEST(ZipReaderTest, EntriesWhoseRecordsLieFailWhenRead) {
  ScratchDir dir;
  const std::string good = readFile(makeForeignArchive(dir.file("good.zip")));
  const auto recordOf = [&](const std::string& bytes, std::size_t index) {
    const std::string probe = dir.file("probe.zip");
    writeFile(probe, bytes);
    ZipPhysicalPackage physical(u16(probe), false);
    physical.openArchive();
    const DirectoryRecord& r = physical.directory()->records()[index];
    return std::pair<std::size_t, std::size_t>(physical.directory()->offset() + r.recordOffset, r.localHeaderOffset);
  };
  const auto put32 = [](std::string& bytes, std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
  };
  const struct {
    const char* name;
    std::size_t entry;
    std::function<void(std::string&, std::size_t record, std::size_t local)> damage;
    const char* message;
  } cases[] = {
      {"size too large", 0, [&](std::string& b, std::size_t r, std::size_t) { put32(b, r + 24, 700001); }, "fewer bytes"},
      {"size too small", 0, [&](std::string& b, std::size_t r, std::size_t) { put32(b, r + 24, 1000); }, "more bytes"},
      {"stored size too small", 3, [&](std::string& b, std::size_t r, std::size_t) { put32(b, r + 24, 1000); }, "more bytes"},
      {"checksum", 3, [&](std::string& b, std::size_t r, std::size_t) { put32(b, r + 16, 1); }, "CRC"},
      {"no local header", 0, [&](std::string& b, std::size_t, std::size_t l) { b[l] = 'X'; }, "no local header"},
      {"data into the directory", 4,
       [&](std::string& b, std::size_t r, std::size_t) { put32(b, r + 20, 0x7fffffff); }, "central directory"},
      {"corrupt deflate data", 0, [&](std::string& b, std::size_t, std::size_t l) { b[l + 60] ^= 0x55; }, "'big.txt'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes = good;
    const auto [record, local] = recordOf(good, c.entry);
    c.damage(bytes, record, local);
    const std::string file = dir.file("bad.zip");
    writeFile(file, bytes);
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    try {
      (void)readAll(*physical.openEntry(c.entry));
      ADD_FAILURE() << "read";
    } catch (const Exception& e) {
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
    }
  }
}

#ifdef ZV_HAVE_LIBDEFLATE
TEST(ZipWriterTest, PrecompressedDeflateIsStoredAsGiven) {
  ScratchDir dir;
  const std::string file = dir.file("pkg.zip");
  const std::string data = patternBytes(300000, 5);
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(9);
  std::string compressed(libdeflate_deflate_compress_bound(compressor, data.size()), '\0');
  compressed.resize(libdeflate_deflate_compress(compressor, data.data(), data.size(), compressed.data(), compressed.size()));
  libdeflate_free_compressor(compressor);
  const std::uint32_t crc = libdeflate_crc32(0, data.data(), data.size());
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    writer->addPrecompressedEntry(
        "pre.bin",
        PrecompressedContent{std::make_shared<detail::MemoryContentSource>(compressed), compressed.size(), data.size(), crc},
        {FileTime{1700000000, 0}, 0644});
    writer->commit();
  }
  const auto raw = rawItems(file);
  EXPECT_EQ(raw.at("pre.bin").method, ZIP_CM_DEFLATE);
  EXPECT_EQ(raw.at("pre.bin").compressed, compressed);  // copied, not recompressed
  EXPECT_EQ(raw.at("pre.bin").crc, crc);
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  EXPECT_EQ(readAll(*physical.openEntry(0)), data);  // inflates and passes the CRC check
}
#endif

}  // namespace
}  // namespace opc::zippackage
