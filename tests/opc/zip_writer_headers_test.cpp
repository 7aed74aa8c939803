// What the package writer puts in an archive: every kind of entry (stored, deflated whole or in
// pieces, copied raw or rewritten) read back by libzip with its check that local
// headers agree with the directory, the same bytes whatever the number of workers, the UTF-8 name flag
// on every header, the shortest time field that holds each time exactly, and ZIP64 fields where sizes
// and offsets need them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libdeflate.h>
#include <unistd.h>
#include <zip.h>

#include <cstring>
#include <filesystem>
#include <vector>

#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/zippackage/raw_copy.h"
#include "opc/zippackage/zip_format.h"
#include "opc/zippackage/zip_physical_package.h"
#include "package_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;
using le::get16;
using le::get32;

// The general-purpose flags of every entry's central and local header, ANDed.
std::vector<std::uint16_t> headerFlags(const std::string& archive) {
  const char* end = archive.data() + archive.size() - 22;  // the writers leave no archive comment
  std::vector<std::uint16_t> out;
  for (std::size_t i = 0, at = get32(end + 16); i < get16(end + 10); ++i) {
    const char* r = archive.data() + at;
    out.push_back(get16(r + 8) & get16(archive.data() + get32(r + 42) + 6));
    at += 46 + get16(r + 28) + get16(r + 30) + get16(r + 32);
  }
  return out;
}

// Bytes whose source does not tell their size up front, or tells a wrong one.
struct UnsizedSource : detail::MemoryContentSource {
  std::optional<std::uint64_t> claimed;
  UnsizedSource(std::string bytes, std::optional<std::uint64_t> c) : MemoryContentSource(std::move(bytes)), claimed(c) {}
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return claimed; }
};

// Copies every entry of `file` into a new archive in its place: with new attributes (so rewritten from
// their data) or their own (copied as stored bytes), one entry replaced.
void copyArchive(const std::string& file, std::optional<EntryAttributes> attributes, const std::string& replaced = {}) {
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  auto writer = physical.createWriter();
  for (const ZipEntry& e : physical.getEntries()) {
    if (e.name == replaced) {
      writer->addEntry(replaced, std::make_shared<detail::MemoryContentSource>("new"), Compression::Deflated, e.attributes);
    } else {
      writer->copyEntry(e.name, e.index, attributes.value_or(e.attributes));
    }
  }
  writer->commit();
}

TEST(ZipWriterTest, EveryKindOfEntryReadsBackThroughLibzipWhateverTheWorkers) {
  ScratchDir dir;
  std::string noise(1536u << 10, '\0');
  std::uint32_t x = 12345;
  for (char& c : noise) c = static_cast<char>((x = x * 1103515245u + 12345u) >> 24);
  std::string lookalike = patternBytes(8192, 3) + "PK\x03\x04" + std::string(22, '\0');  // stored data like a local header
  lookalike[8192 + 26] = 30;
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
      {"lookalike.bin", lookalike, Compression::Stored, lookalike.size(), ZIP_CM_STORE},
      {"small.txt", patternBytes(4000, 4), Compression::Deflated, 4000, ZIP_CM_DEFLATE},
      {"medium.txt", patternBytes(40000, 4), Compression::Deflated, 40000, ZIP_CM_DEFLATE},
      {"at limit.txt", patternBytes(limit, 9), Compression::Deflated, limit, ZIP_CM_DEFLATE},
      {"deflated unsized.txt", patternBytes(3 * limit, 5), Compression::Deflated, std::nullopt, ZIP_CM_DEFLATE},
      {"in pieces.txt", patternBytes(5 * limit + 17, 6), Compression::Deflated, 5 * limit + 17, ZIP_CM_DEFLATE},
      // Small: deflated whole, deflate falling back to stored blocks; large: a sample shows it does not pay.
      {"small noise.bin", noise.substr(0, 300000), Compression::Deflated, 300000, ZIP_CM_DEFLATE},
      {"noise.bin", noise, Compression::Deflated, noise.size(), ZIP_CM_STORE},
      // Already-compressed formats by their extension, whatever its case.
      {"image.png", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"photo.JPEG", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"a.tar.gz", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"dir.png/readme", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_DEFLATE},
      {"data.mat", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_DEFLATE},
      {"empty.txt", "", Compression::Deflated, 0, ZIP_CM_DEFLATE},
      {"caf%C3%A9 empty", "", Compression::Stored, 0, ZIP_CM_STORE},
  };
  const EntryAttributes written{FileTime{1600000000, 500}, 0600};
  const EntryAttributes rewritten{FileTime{1700000000, 0}, 0644};
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
          writer->addEntry(std::to_string(copy) + c.name, std::make_shared<UnsizedSource>(c.bytes, c.claimed), c.compression, written);
        }
      }
      writer->commit();
    }
    ::unsetenv("ZVADDON_THREADS");
    archives[*threads == '1' ? 0 : 1] = readFile(file);
    const auto before = rawItems(file);  // opened with ZIP_CHECKCONS
    // Copied raw (one entry replaced in the middle, over two rounds), then rewritten with new times.
    const std::string copy = dir.file(std::string("copy") + threads + ".zip");
    std::filesystem::copy_file(file, copy);
    for (int round = 0; round < 2; ++round) copyArchive(copy, std::nullopt, "0medium.txt");
    const auto after = rawItems(copy);
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [name, item] : before) {
      if (name == "0medium.txt") continue;
      EXPECT_EQ(after.at(name).compressed, item.compressed) << name;
      EXPECT_EQ(after.at(name).crc, item.crc) << name;
    }
    EXPECT_EQ(itemText(copy, "0medium.txt"), "new");
    copyArchive(copy, rewritten);
    for (const std::string& path : {file, copy}) {
      SCOPED_TRACE(path);
      const auto raw = rawItems(path);
      for (const auto& c : cases) {
        EXPECT_EQ(raw.at(std::string("1") + c.name).method, c.method) << c.name;
        EXPECT_TRUE(raw.at(std::string("1") + c.name).text == c.bytes) << c.name;
      }
      for (const std::uint16_t flags : headerFlags(readFile(path))) EXPECT_EQ(flags & kFlagUtf8, kFlagUtf8);
      ZipPhysicalPackage physical(u16(path), false);
      physical.openArchive();
      for (const ZipEntry& e : physical.getEntries()) {
        EXPECT_EQ(e.attributes.lastModified, (path == file ? written : rewritten).lastModified) << e.name;
        EXPECT_EQ(e.attributes.unixMode, (path == file ? written : rewritten).unixMode) << e.name;
      }
    }
  }
  EXPECT_TRUE(archives[0] == archives[1]) << "the archives differ with the number of workers";

  // A foreign ASCII name without the UTF-8 flag gains it in both headers when copied raw.
  const std::string foreign = dir.file("foreign.zip");
  int error = 0;
  zip_t* za = zip_open(foreign.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_GE(zip_file_add(za, "plain.txt", zip_source_buffer(za, "plain", 5, 0), ZIP_FL_ENC_RAW), 0);
  ASSERT_EQ(zip_close(za), 0);
  ASSERT_EQ(headerFlags(readFile(foreign)).at(0) & kFlagUtf8, 0) << "libzip set the flag";
  copyArchive(foreign, std::nullopt);
  EXPECT_EQ(headerFlags(readFile(foreign)).at(0) & kFlagUtf8, kFlagUtf8);
  EXPECT_EQ(itemText(foreign, "plain.txt"), "plain");
}

TEST(ZipWriterHeadersTest, TimesRoundTripThroughTheShortestExactField) {
  const struct {
    const char* label;
    FileTime time;
    bool centralNtfs;  // else the extended timestamp
    bool localTimestamp;
  } cases[] = {
      {"whole second", FileTime{1700000000, 0}, false, true},
      {"sub-second", FileTime{1700000000, 123456700}, true, true},
      {"before 1901", FileTime{-2300000000LL, 0}, true, false},
      {"after 2038", FileTime{4102444800LL, 0}, true, false},
      {"before 1970, whole second", FileTime{-86400, 0}, false, true},
  };
  ScratchDir dir;
  const std::string file = dir.file("times.zip");
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    for (const auto& c : cases) {
      writer->addEntry(c.label, std::make_shared<detail::MemoryContentSource>("x"), Compression::Stored, {c.time, 0644});
    }
    writer->commit();
  }
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_RDONLY, &error);
  ASSERT_NE(za, nullptr);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    SCOPED_TRACE(c.label);
    EXPECT_EQ(physical.getEntries().at(i).attributes.lastModified, c.time);
    const auto count = [&](std::uint16_t id, zip_flags_t where) { return zip_file_extra_fields_count_by_id(za, i, id, where); };
    EXPECT_EQ(count(extra::kNtfsId, ZIP_FL_CENTRAL), c.centralNtfs ? 1 : 0);
    EXPECT_EQ(count(extra::kExtendedTimestampId, ZIP_FL_CENTRAL), c.centralNtfs ? 0 : 1);
    EXPECT_EQ(count(extra::kNtfsId, ZIP_FL_LOCAL), 0);
    EXPECT_EQ(count(extra::kExtendedTimestampId, ZIP_FL_LOCAL), c.localTimestamp ? 1 : 0);
  }
  zip_discard(za);
  // Truncated or foreign fields decode to nothing rather than to garbage; DOS time clamps to its range.
  EXPECT_FALSE(extra::decodeNtfs(std::string_view(reinterpret_cast<const char*>(extra::encodeNtfs({0, 0})->data()), 12)).has_value());
  EXPECT_FALSE(extra::decodeExtendedTimestamp("\x02\x01\x02\x03\x04").has_value());  // access time only
  EXPECT_EQ(extra::clampToDosRange({0, 0}), 315619200);
  EXPECT_EQ(extra::clampToDosRange({7258118400, 0}), 4354646400);
  EXPECT_EQ(extra::clampToDosRange({1000000000, 0}), 1000000000);
}

// A central record moved to an offset past 4 GiB keeps its other ZIP64 fields in order.
TEST(ZipWriterHeadersTest, RelocatedRecordsTakeZip64OffsetsWhenNeeded) {
  // A record named "n" with the given 32-bit size fields and ZIP64 extra field values.
  const auto record = [](std::uint32_t sizes, std::uint32_t offset, const std::vector<std::uint64_t>& zip64) {
    std::string r(46, '\0');
    le::put32(r.data(), 0x02014b50);
    le::put16(r.data() + 6, 20);
    le::put32(r.data() + 20, sizes);
    le::put32(r.data() + 24, sizes);
    le::put16(r.data() + 28, 1);
    le::put32(r.data() + 42, offset);
    r += 'n';
    if (!zip64.empty()) {
      le::put16(r.data() + 30, static_cast<std::uint16_t>(4 + 8 * zip64.size()));
      le::append16(r, 1);
      le::append16(r, static_cast<std::uint16_t>(8 * zip64.size()));
      for (const std::uint64_t v : zip64) le::append64(r, v);
    }
    return r;
  };
  const std::uint64_t far = 5ull << 30;
  const struct {
    const char* label;
    std::string record;
    std::uint64_t offset;
    std::vector<std::uint64_t> zip64;  // expected ZIP64 values after relocation
  } cases[] = {
      {"near stays 32-bit", record(10, 100, {}), 4096, {}},
      {"far gains a field", record(10, 100, {}), far, {far}},
      {"far after ZIP64 sizes", record(0xFFFFFFFF, 100, {far + 1, far + 2}), far, {far + 1, far + 2, far}},
      {"far offset updated", record(0xFFFFFFFF, 0xFFFFFFFF, {far + 1, far + 2, 7}), far, {far + 1, far + 2, far}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string r = relocatedRecord(c.record, c.offset);
    EXPECT_EQ(get16(r.data() + 8) & 0x0800, 0x0800);
    const std::uint16_t extraLength = get16(r.data() + 30);
    ASSERT_EQ(r.size(), 47u + extraLength);
    EXPECT_EQ(get32(r.data() + 42), c.zip64.empty() ? c.offset : 0xFFFFFFFFu);
    if (c.zip64.empty()) continue;
    EXPECT_GE(get16(r.data() + 6), 45);
    ASSERT_EQ(get16(r.data() + 47), 1);
    ASSERT_EQ(get16(r.data() + 49), 8 * c.zip64.size());
    for (std::size_t i = 0; i < c.zip64.size(); ++i) EXPECT_EQ(le::get64(r.data() + 51 + 8 * i), c.zip64[i]) << i;
  }
}

// The writer's headers where ZIP64 is needed, laid out in a sparse file: an entry past 4 GiB, one
// whose local header carries its sizes in a ZIP64 field, more entries than 16 bits count, and an
// entry copied as stored bytes to past 4 GiB (its record takes a ZIP64 offset and version 4.5, which
// its local header is given too). libzip (with its check that local headers agree with the directory)
// and our reader both read them.
TEST(ZipWriterHeadersTest, Zip64HeadersReadBackAsWritten) {
  ScratchDir dir;
  const std::string source = dir.file("near.zip");
  const std::string copied = patternBytes(3000, 9);
  {
    ZipPhysicalPackage physical(u16(source), false);
    auto writer = physical.createWriter();
    writer->addEntry("copied.txt", std::make_shared<detail::MemoryContentSource>(copied), Compression::Deflated,
                     {FileTime{1600000000, 0}, {}});
    writer->commit();
  }
  const std::string file = dir.file("far.zip");
  const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0);
  std::uint64_t position = 0;
  std::string directory;
  std::vector<std::string> texts;
  const auto add = [&](const std::string& name, std::uint64_t at, bool zip64) {
    const std::string text = "text of " + name;
    EntryHeader h;
    h.crc = static_cast<std::uint32_t>(libdeflate_crc32(0, text.data(), text.size()));
    h.size = h.compressedSize = text.size();
    h.zip64 = zip64;
    h.time = FileTime{1600000000, 0};
    h.exactTime = true;
    const std::string bytes = localHeader(name, h, at) + text;
    EXPECT_EQ(get16(bytes.data() + 4), at >= 0xFFFFFFFFu || zip64 ? 45 : 20) << name;  // version needed
    ASSERT_EQ(::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)), static_cast<ssize_t>(bytes.size()));
    position = at + bytes.size();
    directory += centralRecord(name, h, at);
    texts.push_back(text);
  };
  add("near.txt", 0, false);
  add("sizes in zip64.txt", position, true);
  for (int i = 0; i < 70000; ++i) add("many/" + std::to_string(i), position, false);
  add("far.txt", 5ull << 30, false);
  const detail::UniqueFd sourceFd(openPackageFile(u16(source), source));
  RawCopier copier(sourceFd.get(), source, std::make_shared<const CentralDirectory>(CentralDirectory::read(sourceFd.get(), source)));
  ASSERT_TRUE(copier.canCopy(0, "copied.txt"));
  copier.add(0);
  const std::uint64_t copiedAt = position + (1ull << 30);
  position = copier.copyTo(fd, copiedAt, [&](std::string_view record) { directory += record; }, file);
  texts.push_back(copied);
  const std::string tail = directory + endRecords(texts.size(), position, directory.size());
  ASSERT_EQ(::pwrite(fd, tail.data(), tail.size(), static_cast<off_t>(position)), static_cast<ssize_t>(tail.size()));
  char version[2];
  ASSERT_EQ(::pread(fd, version, 2, static_cast<off_t>(copiedAt + 4)), 2);
  EXPECT_EQ(get16(version), 45);  // the copied local header's, as its record's
  ::close(fd);

  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
  ASSERT_NE(za, nullptr) << error;
  ASSERT_EQ(zip_get_num_entries(za, 0), static_cast<zip_int64_t>(texts.size()));
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  ASSERT_EQ(physical.getEntries().size(), texts.size());
  for (const std::size_t i : {std::size_t{0}, std::size_t{1}, std::size_t{40000}, texts.size() - 2, texts.size() - 1}) {
    SCOPED_TRACE(i);
    zip_file_t* f = zip_fopen_index(za, i, 0);
    ASSERT_NE(f, nullptr) << zip_strerror(za);
    std::string read(4000, '\0');
    read.resize(static_cast<std::size_t>(zip_fread(f, read.data(), read.size())));
    zip_fclose(f);
    EXPECT_EQ(read, texts[i]);
    EXPECT_EQ(readAll(*physical.openEntry(i)), texts[i]);
    EXPECT_EQ(physical.getEntries()[i].attributes.lastModified, (FileTime{1600000000, 0}));
  }
  zip_discard(za);
}

}  // namespace
}  // namespace opc::zippackage
