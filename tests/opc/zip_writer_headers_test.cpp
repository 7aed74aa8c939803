// What the package writer puts in entry headers: the UTF-8 name flag on every local and central
// header, and the shortest timestamp field that holds each modification time exactly.
#include <gtest/gtest.h>
#include <zip.h>

#include <cstring>
#include <filesystem>

#include "opc/detail/content_sources.h"
#include "opc/zippackage/extra_fields.h"
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

TEST(ZipWriterHeadersTest, EveryNameIsMarkedUtf8AndDataLikeAHeaderStaysIntact) {
  // Stored bytes whose tail, as libzip copies it, is one write that looks like a local header
  // followed by a name length of 30: the next write (a real header) must not be taken for a name.
  std::string lookalike = patternBytes(8192, 3);
  std::string fake(30, 'x');
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
      {"fsroot/plain.m", patternBytes(5000, 1), Compression::Deflated},
      {"fsroot/caf%C3%A9.txt", patternBytes(100, 2), Compression::Stored},
      {"fsroot/lookalike.bin", lookalike, Compression::Stored},
      {"fsroot/after.txt", "after", Compression::Stored},
  };
  ScratchDir dir;
  const std::string file = dir.file("flags.zip");
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    for (const auto& e : entries) {
      writer->addEntry(e.name, std::make_shared<detail::MemoryContentSource>(e.bytes), e.compression, {});
    }
    writer->commit();
  }
  // Copied entries get their headers written anew and must keep the flag too.
  const std::string copied = dir.file("copied.zip");
  std::filesystem::copy_file(file, copied);
  {
    ZipPhysicalPackage physical(u16(copied), false);
    physical.openArchive();
    auto writer = physical.createWriter();
    for (const ZipEntry& entry : physical.getEntries()) writer->copyEntry(entry.name, entry.index, entry.attributes);
    writer->addEntry("fsroot/new.txt", std::make_shared<detail::MemoryContentSource>("new"), Compression::Deflated, {});
    writer->commit();
  }
  for (const std::string& path : {file, copied}) {
    SCOPED_TRACE(path);
    const auto flags = headerFlags(readFile(path));
    ASSERT_EQ(flags.size(), path == file ? std::size(entries) : std::size(entries) + 1);
    for (const HeaderFlags& h : flags) {
      EXPECT_EQ(h.central & 0x0800, 0x0800) << h.name;
      EXPECT_EQ(h.local & 0x0800, 0x0800) << h.name;
    }
    ZipPhysicalPackage physical(u16(path), false);
    physical.openArchive();
    for (std::size_t i = 0; i < std::size(entries); ++i) {
      EXPECT_EQ(physical.getEntries().at(i).name, entries[i].name);
      EXPECT_EQ(readAll(*physical.openEntry(i)), entries[i].bytes) << entries[i].name;
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

}  // namespace
}  // namespace opc::zippackage
