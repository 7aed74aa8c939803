// What the package writer puts in entry headers: the UTF-8 name flag on every local and central
// header, and the shortest timestamp field that holds each modification time exactly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

#include "opc/detail/content_sources.h"
#include "opc/zippackage/extra_fields.h"
#include "opc/zippackage/raw_copy.h"
#include "opc/zippackage/zip_headers.h"
#include "opc/zippackage/zip_physical_package.h"
#include "package_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;

std::uint16_t get16(const std::string& bytes, std::size_t at) {
  return static_cast<std::uint16_t>(static_cast<std::uint8_t>(bytes.at(at)) |
                                    (static_cast<std::uint8_t>(bytes.at(at + 1)) << 8));
}
std::uint32_t get32(const std::string& bytes, std::size_t at) {
  return get16(bytes, at) | (static_cast<std::uint32_t>(get16(bytes, at + 2)) << 16);
}

// Name and general-purpose flags of every entry, from its central header and its local header.
struct HeaderFlags {
  std::string name;
  std::uint16_t central = 0;
  std::uint16_t local = 0;
};

std::vector<HeaderFlags> headerFlags(const std::string& archive) {
  const std::size_t end = archive.size() - 22;  // the writer leaves no archive comment
  EXPECT_EQ(get32(archive, end), 0x06054b50u);
  std::size_t at = get32(archive, end + 16);
  std::vector<HeaderFlags> out;
  for (std::uint16_t i = 0; i < get16(archive, end + 10); ++i) {
    EXPECT_EQ(get32(archive, at), 0x02014b50u);
    const std::uint16_t nameLength = get16(archive, at + 28);
    const std::uint32_t local = get32(archive, at + 42);
    EXPECT_EQ(get32(archive, local), 0x04034b50u);
    out.push_back({archive.substr(at + 46, nameLength), get16(archive, at + 8), get16(archive, local + 6)});
    at += 46 + nameLength + get16(archive, at + 30) + get16(archive, at + 32);
  }
  return out;
}

struct TestEntry {
  const char* name;
  std::string bytes;
  Compression compression;
};

void writeEntries(const std::string& file, const std::vector<TestEntry>& entries) {
  ZipPhysicalPackage physical(u16(file), false);
  auto writer = physical.createWriter();
  for (const auto& e : entries) {
    writer->addEntry(e.name, std::make_shared<detail::MemoryContentSource>(e.bytes), e.compression, {});
  }
  writer->commit();
}

// Rewrites the archive with every entry copied and `added` written after them.
void copyAllAndAdd(const std::string& file, const TestEntry& added) {
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  auto writer = physical.createWriter();
  for (const ZipEntry& e : physical.getEntries()) writer->copyEntry(e.name, e.index, e.attributes);
  writer->addEntry(added.name, std::make_shared<detail::MemoryContentSource>(added.bytes), added.compression, {});
  writer->commit();
}

TEST(ZipWriterHeadersTest, EveryNameIsMarkedUtf8AndDataLikeAHeaderStaysIntact) {
  // Stored bytes that end like a local header with a name length of 30, right before a real
  // header: nothing that patches headers may take the data for one.
  std::string lookalike = patternBytes(8192, 3);
  std::string fake(30, 'x');
  std::memcpy(fake.data(), "PK\x03\x04", 4);
  fake[26] = 30;
  fake[27] = 0;
  lookalike += fake;
  const std::vector<TestEntry> entries = {
      {"[Content_Types].xml", "<Types/>", Compression::Deflated},
      {"fsroot/plain.m", patternBytes(5000, 1), Compression::Deflated},
      {"fsroot/caf%C3%A9.txt", patternBytes(100, 2), Compression::Stored},
      {"fsroot/lookalike.bin", lookalike, Compression::Stored},
      {"fsroot/after.txt", "after", Compression::Stored},
  };
  ScratchDir dir;
  const std::string file = dir.file("flags.zip");
  writeEntries(file, entries);
  // Copied entries get their headers written anew and must keep the flag too.
  const std::string copied = dir.file("copied.zip");
  std::filesystem::copy_file(file, copied);
  copyAllAndAdd(copied, {"fsroot/new.txt", "new", Compression::Deflated});
  for (const std::string& path : {file, copied}) {
    SCOPED_TRACE(path);
    const auto flags = headerFlags(readFile(path));
    ASSERT_EQ(flags.size(), path == file ? entries.size() : entries.size() + 1);
    for (const HeaderFlags& h : flags) {
      EXPECT_EQ(h.central & 0x0800, 0x0800) << h.name;
      EXPECT_EQ(h.local & 0x0800, 0x0800) << h.name;
    }
    ZipPhysicalPackage physical(u16(path), false);
    physical.openArchive();
    // Copied entries follow the new ones; each keeps its bytes.
    for (const auto& e : entries) {
      const auto& all = physical.getEntries();
      const auto found = std::find_if(all.begin(), all.end(), [&](const ZipEntry& z) { return z.name == e.name; });
      ASSERT_NE(found, all.end()) << e.name;
      EXPECT_EQ(readAll(*physical.openEntry(found->index)), e.bytes) << e.name;
    }
  }
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
      writer->addEntry(c.label, std::make_shared<detail::MemoryContentSource>("x"), Compression::Stored,
                       {c.time, 0644});
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
    const auto& time = physical.getEntries().at(i).attributes.lastModified;
    ASSERT_TRUE(time.has_value());
    EXPECT_EQ(time->seconds, c.time.seconds);
    EXPECT_EQ(time->nanoseconds, c.time.nanoseconds);
    const auto count = [&](std::uint16_t id, zip_flags_t where) {
      return zip_file_extra_fields_count_by_id(za, i, id, where);
    };
    EXPECT_EQ(count(extra::kNtfsId, ZIP_FL_CENTRAL), c.centralNtfs ? 1 : 0);
    EXPECT_EQ(count(extra::kExtendedTimestampId, ZIP_FL_CENTRAL), c.centralNtfs ? 0 : 1);
    EXPECT_EQ(count(extra::kNtfsId, ZIP_FL_LOCAL), 0);
    EXPECT_EQ(count(extra::kExtendedTimestampId, ZIP_FL_LOCAL), c.localTimestamp ? 1 : 0);
  }
  zip_discard(za);
}

// Unchanged entries are copied as the bytes they are stored as, whatever the layout around them:
// a replaced entry in the middle, an empty one, a non-ASCII name, and a second round of copying.
TEST(ZipWriterHeadersTest, CopiedEntriesKeepTheirStoredBytes) {
  const std::vector<TestEntry> entries = {
      {"[Content_Types].xml", "<Types/>", Compression::Deflated},
      {"fsroot/a.m", patternBytes(70000, 4), Compression::Deflated},
      {"fsroot/replaced.txt", "old", Compression::Deflated},
      {"fsroot/empty", "", Compression::Stored},
      {"fsroot/caf%C3%A9.bin", patternBytes(3000, 5), Compression::Stored},
  };
  ScratchDir dir;
  const std::string file = dir.file("rounds.zip");
  writeEntries(file, entries);
  const auto rawEntries = [&] {
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    std::map<std::string, std::pair<std::string, std::uint32_t>> raw;
    for (const ZipEntry& e : physical.getEntries()) raw[std::string(e.name)] = {readAll(*physical.openRawEntry(e.index)), e.crc};
    return raw;
  };
  const auto before = rawEntries();
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
    // libzip's consistency check compares every local header with its central record.
    int error = 0;
    zip_t* za = zip_open(file.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    ASSERT_NE(za, nullptr) << "libzip error " << error;
    zip_discard(za);
    const auto after = rawEntries();
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [name, raw] : before) {
      if (name != "fsroot/replaced.txt") {
        EXPECT_EQ(after.at(name), raw) << name;
      }
    }
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    for (const ZipEntry& e : physical.getEntries()) {
      const auto it = std::find_if(std::begin(entries), std::end(entries), [&](const auto& x) { return e.name == x.name; });
      ASSERT_NE(it, std::end(entries));
      EXPECT_EQ(readAll(*physical.openEntry(e.index)), e.name == "fsroot/replaced.txt" ? "new " + std::to_string(round) : it->bytes);
    }
    for (const HeaderFlags& h : headerFlags(readFile(file))) EXPECT_EQ(h.central & h.local & 0x0800, 0x0800) << h.name;
  }
}

// Archives from other writers: ASCII names without the UTF-8 flag get it on both headers when copied.
TEST(ZipWriterHeadersTest, CopiedForeignAsciiNamesGainTheUtf8Flag) {
  ScratchDir dir;
  const std::string file = dir.file("foreign.zip");
  {
    int error = 0;
    zip_t* za = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    ASSERT_NE(za, nullptr);
    for (const char* name : {"[Content_Types].xml", "fsroot/plain.txt"}) {
      zip_source_t* src = zip_source_buffer(za, name, std::strlen(name), 0);
      ASSERT_GE(zip_file_add(za, name, src, ZIP_FL_ENC_RAW), 0);
    }
    ASSERT_EQ(zip_close(za), 0);
  }
  for (const HeaderFlags& h : headerFlags(readFile(file))) ASSERT_EQ(h.central & 0x0800, 0) << "libzip set the flag";
  copyAllAndAdd(file, {"fsroot/new.txt", "n", Compression::Stored});
  const auto flags = headerFlags(readFile(file));
  ASSERT_EQ(flags.size(), 3u);
  for (const HeaderFlags& h : flags) {
    EXPECT_EQ(h.central & 0x0800, 0x0800) << h.name;
    EXPECT_EQ(h.local & 0x0800, 0x0800) << h.name;
  }
}

// A central record moved to an offset past 4 GiB keeps its other ZIP64 fields in order.
TEST(ZipWriterHeadersTest, RelocatedRecordsTakeZip64OffsetsWhenNeeded) {
  // A record named "n" with the given 32-bit size fields and ZIP64 extra field values.
  const auto record = [](std::uint32_t sizes, std::uint32_t offset, std::vector<std::uint64_t> zip64) {
    std::string r(46, '\0');
    const auto put = [&](std::size_t at, std::uint64_t v, int n) {
      for (int i = 0; i < n; ++i) r[at + i] = static_cast<char>(v >> (8 * i));
    };
    put(0, 0x02014b50, 4);
    put(6, 20, 2);
    put(20, sizes, 4);
    put(24, sizes, 4);
    put(28, 1, 2);
    put(42, offset, 4);
    r += 'n';
    if (!zip64.empty()) {
      std::string extra(4 + 8 * zip64.size(), '\0');
      extra[0] = 1;
      extra[2] = static_cast<char>(8 * zip64.size());
      for (std::size_t i = 0; i < zip64.size(); ++i) {
        for (int b = 0; b < 8; ++b) extra[4 + 8 * i + b] = static_cast<char>(zip64[i] >> (8 * b));
      }
      put(30, extra.size(), 2);
      r += extra;
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
    EXPECT_EQ(get16(r, 8) & 0x0800, 0x0800);
    const std::uint16_t extraLength = get16(r, 30);
    ASSERT_EQ(r.size(), 47u + extraLength);
    if (c.zip64.empty()) {
      EXPECT_EQ(get32(r, 42), c.offset);
      EXPECT_EQ(extraLength, 0);
      continue;
    }
    EXPECT_EQ(get32(r, 42), 0xFFFFFFFFu);
    EXPECT_GE(get16(r, 6), 45);
    ASSERT_EQ(get16(r, 47), 1);
    ASSERT_EQ(get16(r, 49), 8 * c.zip64.size());
    for (std::size_t i = 0; i < c.zip64.size(); ++i) {
      EXPECT_EQ(get32(r, 51 + 8 * i) | (std::uint64_t{get32(r, 55 + 8 * i)} << 32), c.zip64[i]) << i;
    }
  }
}

// The writer's headers where ZIP64 is needed, laid out in a sparse file: an entry past 4 GiB, one
// whose local header carries its sizes in a ZIP64 field, more entries than 16 bits count. libzip
// (with its check that local headers agree with the directory) and our reader both read them.
TEST(ZipWriterHeadersTest, Zip64HeadersReadBackAsWritten) {
  ScratchDir dir;
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
  const std::string end = endRecords(texts.size(), position, directory.size());
  const std::string tail = directory + end;
  ASSERT_EQ(::pwrite(fd, tail.data(), tail.size(), static_cast<off_t>(position)), static_cast<ssize_t>(tail.size()));
  ::close(fd);

  int error = 0;
  zip_t* za = zip_open(file.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
  ASSERT_NE(za, nullptr) << error;
  ASSERT_EQ(zip_get_num_entries(za, 0), static_cast<zip_int64_t>(texts.size()));
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  ASSERT_EQ(physical.getEntries().size(), texts.size());
  for (const zip_uint64_t i : {zip_uint64_t{0}, zip_uint64_t{1}, zip_uint64_t{40000}, zip_uint64_t{texts.size() - 1}}) {
    SCOPED_TRACE(i);
    zip_file_t* f = zip_fopen_index(za, i, 0);
    ASSERT_NE(f, nullptr) << zip_strerror(za);
    std::string read(100, '\0');
    read.resize(static_cast<std::size_t>(zip_fread(f, read.data(), read.size())));
    zip_fclose(f);
    EXPECT_EQ(read, texts[i]);
    EXPECT_EQ(readAll(*physical.openEntry(i)), texts[i]);
    EXPECT_EQ(physical.getEntries()[i].attributes.lastModified, (FileTime{1600000000, 0}));
  }
  zip_discard(za);
}

// An entry copied as stored bytes to past 4 GiB: its record takes a ZIP64 offset that libzip
// follows, and version 4.5, which its local header is given too so that the two headers agree.
TEST(ZipWriterHeadersTest, RawCopiesPastFourGibibytesKeepBothHeadersAgreeing) {
  ScratchDir dir;
  const std::string source = dir.file("near.zip");
  const std::string text = patternBytes(3000, 9);
  writeEntries(source, {{"a.txt", text, Compression::Deflated}});
  ZipPhysicalPackage physical(u16(source), false);
  physical.openArchive();
  RawCopier copier(physical.rawDescriptor(), source, physical.directory());
  ASSERT_TRUE(copier.canCopy(0, "a.txt"));
  copier.add(0);
  const std::string target = dir.file("far.zip");
  const int fd = ::open(target.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0);
  std::string directory;
  const std::uint64_t end =
      copier.copyTo(fd, 5ull << 30, [&](std::string_view record) { directory += record; }, target);
  const std::string tail = directory + endRecords(1, end, directory.size());
  ASSERT_EQ(::pwrite(fd, tail.data(), tail.size(), static_cast<off_t>(end)), static_cast<ssize_t>(tail.size()));
  char localVersion[2];
  ASSERT_EQ(::pread(fd, localVersion, 2, static_cast<off_t>((5ull << 30) + 4)), 2);
  ::close(fd);
  EXPECT_EQ(get16(directory, 6), 45);
  EXPECT_EQ(get16(std::string(localVersion, 2), 0), 45);
  int error = 0;
  zip_t* za = zip_open(target.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
  ASSERT_NE(za, nullptr) << error;
  zip_file_t* f = zip_fopen_index(za, 0, 0);
  ASSERT_NE(f, nullptr) << zip_strerror(za);
  std::string read(text.size() + 1, '\0');
  read.resize(static_cast<std::size_t>(zip_fread(f, read.data(), read.size())));
  zip_fclose(f);
  zip_discard(za);
  EXPECT_EQ(read, text);
}

}  // namespace
}  // namespace opc::zippackage
