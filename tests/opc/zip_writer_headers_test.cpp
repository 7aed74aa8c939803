// What the package writer puts in entry headers: the UTF-8 name flag on every local and central
// header, the shortest timestamp field that holds each modification time exactly, ZIP64 fields where
// sizes and offsets need them, and unchanged entries copied as their stored bytes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <map>
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

// Name and general-purpose flags of every entry, from its central header and its local header.
struct HeaderFlags {
  std::string name;
  std::uint16_t central = 0;
  std::uint16_t local = 0;
};

std::vector<HeaderFlags> headerFlags(const std::string& archive) {
  const char* end = archive.data() + archive.size() - 22;  // the writers leave no archive comment
  EXPECT_EQ(get32(end), 0x06054b50u);
  std::vector<HeaderFlags> out;
  for (std::size_t i = 0, at = get32(end + 16); i < get16(end + 10); ++i) {
    const char* r = archive.data() + at;
    EXPECT_EQ(get32(r), 0x02014b50u);
    const std::size_t local = get32(r + 42);
    EXPECT_EQ(get32(archive.data() + local), 0x04034b50u);
    out.push_back({std::string(r + 46, get16(r + 28)), get16(r + 8), get16(archive.data() + local + 6)});
    at += 46 + get16(r + 28) + get16(r + 30) + get16(r + 32);
  }
  return out;
}

// The stored bytes (as libzip reads them raw) and CRC of every entry.
std::map<std::string, std::pair<std::string, std::uint32_t>> storedBytes(const std::string& file) {
  std::map<std::string, std::pair<std::string, std::uint32_t>> out;
  for (const auto& [name, item] : rawItems(file)) out[name] = {item.compressed, item.crc};
  return out;
}

// Unchanged entries are copied as the bytes they are stored as, whatever the layout around them (a
// replaced entry in the middle, an empty one, a non-ASCII name, stored data that looks like a local
// header) and over rounds of copying; every name written or copied, a foreign ASCII name included,
// is marked UTF-8 in both headers, and libzip finds both headers agreeing.
TEST(ZipWriterHeadersTest, CopiesKeepStoredBytesAndEveryNameIsMarkedUtf8) {
  std::string lookalike = patternBytes(8192, 3);
  std::string fake(30, 'x');  // a local header's start with a name length of 30
  std::memcpy(fake.data(), "PK\x03\x04", 4);
  fake[26] = 30;
  fake[27] = 0;
  lookalike += fake;
  const struct {
    const char* name;
    std::string bytes;
    Compression compression;
  } entries[] = {
      {"[Content_Types].xml", "<Types/>", Compression::Deflated},
      {"fsroot/a.m", patternBytes(70000, 4), Compression::Deflated},
      {"fsroot/replaced.txt", "old", Compression::Deflated},
      {"fsroot/empty", "", Compression::Stored},
      {"fsroot/caf%C3%A9.bin", patternBytes(3000, 5), Compression::Stored},
      {"fsroot/lookalike.bin", lookalike, Compression::Stored},
      {"fsroot/after.txt", "after", Compression::Stored},
  };
  ScratchDir dir;
  const std::string file = dir.file("rounds.zip");
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    for (const auto& e : entries) writer->addEntry(e.name, std::make_shared<detail::MemoryContentSource>(e.bytes), e.compression, {});
    writer->commit();
  }
  const auto before = storedBytes(file);
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    {
      ZipPhysicalPackage physical(u16(file), false);
      physical.openArchive();
      auto writer = physical.createWriter();
      for (const ZipEntry& e : physical.getEntries()) {
        if (e.name == "fsroot/replaced.txt") {
          writer->addEntry(std::string(e.name), std::make_shared<detail::MemoryContentSource>("new " + std::to_string(round)),
                           Compression::Deflated, {});
        } else {
          writer->copyEntry(e.name, e.index, e.attributes);
        }
      }
      writer->commit();
    }
    const auto after = storedBytes(file);  // opened with libzip's check that both headers agree
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [name, raw] : before) {
      if (name != "fsroot/replaced.txt") {
        EXPECT_EQ(after.at(name), raw) << name;
      }
    }
    EXPECT_EQ(itemText(file, "fsroot/replaced.txt"), "new " + std::to_string(round));
    for (const HeaderFlags& h : headerFlags(readFile(file))) EXPECT_EQ(h.central & h.local & 0x0800, 0x0800) << h.name;
  }

  const std::string foreign = dir.file("foreign.zip");
  int error = 0;
  zip_t* za = zip_open(foreign.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_NE(za, nullptr);
  for (const char* name : {"[Content_Types].xml", "fsroot/plain.txt"}) {
    ASSERT_GE(zip_file_add(za, name, zip_source_buffer(za, name, std::strlen(name), 0), ZIP_FL_ENC_RAW), 0);
  }
  ASSERT_EQ(zip_close(za), 0);
  for (const HeaderFlags& h : headerFlags(readFile(foreign))) ASSERT_EQ(h.central & 0x0800, 0) << "libzip set the flag";
  {
    ZipPhysicalPackage physical(u16(foreign), false);
    physical.openArchive();
    auto writer = physical.createWriter();
    for (const ZipEntry& e : physical.getEntries()) writer->copyEntry(e.name, e.index, e.attributes);
    writer->commit();
  }
  for (const HeaderFlags& h : headerFlags(readFile(foreign))) EXPECT_EQ(h.central & h.local & 0x0800, 0x0800) << h.name;
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
  EXPECT_FALSE(extra::decodeNtfs(extra::encodeNtfs({0, 0})->data(), 12).has_value());
  const std::uint8_t accessOnly[5] = {0x02, 1, 2, 3, 4};
  EXPECT_FALSE(extra::decodeExtendedTimestamp(accessOnly, 5).has_value());
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
    h.crc = static_cast<std::uint32_t>(::crc32(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
    h.size = h.compressedSize = text.size();
    h.zip64 = zip64;
    h.time = FileTime{1600000000, 0};
    h.exactTime = true;
    const std::string bytes = localHeader(name, h, at) + text;
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
