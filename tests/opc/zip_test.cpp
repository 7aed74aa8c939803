// The ZIP engine: the reader held to libzip and refusing each lie of an archive; the writer read back
// by libzip; the work queue and the pieces of a large entry joined into one stream.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libdeflate.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <vector>

#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/detail/work_queue.h"
#include "opc/exception.h"
#include "opc/kqservices/file_content_source.h"
#include "opc/zippackage/parallel_deflate.h"
#include "opc/zippackage/raw_copy.h"
#include "opc/zippackage/zip_format.h"
#include "opc/zippackage/zip_physical_package.h"
#include "opc_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;
using le::get16;
using le::get32;

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 gen(seed);
  std::string out(size, '\0');
  for (auto& c : out) c = static_cast<char>(gen());
  return out;
}

// Both ways of reading an entry: streamed, and whole into a buffer.
std::string streamed(const ZipPhysicalPackage& physical, std::uint64_t index) { return readAll(*physical.openEntry(index)); }
std::string whole(const ZipPhysicalPackage& physical, std::uint64_t index) {
  std::vector<std::uint8_t> out;
  std::vector<std::uint8_t> scratch;
  physical.readEntry(index, out, scratch);
  return {out.begin(), out.end()};
}

// Our reader sees a libzip archive's entries as libzip does (name, sizes, CRC, method, time, mode, bytes
// streamed and whole): deflated data longer than one read, stored and empty entries, DOS time only, a Unix
// mode, a code page 437 name; whatever the comment (one holding an end record's signature, the longest), with
// a local extra field past the reader's guess (or the only one), or sizes only in the directory (streamed).
TEST(ZipReaderTest, SeesEntriesAsLibzipDoes) {
  const std::string big = patternBytes(700000, 3);
  const std::tuple<std::string, std::string, bool, zip_flags_t> items[] = {  // name, data, stored, name encoding
      {"big.txt", big, false, ZIP_FL_ENC_UTF_8},        {"empty-deflated", "", false, ZIP_FL_ENC_UTF_8},
      {"empty-stored", "", true, ZIP_FL_ENC_UTF_8},      {"stored.bin", big, true, ZIP_FL_ENC_UTF_8},
      {"\x81" "ber.txt", big, false, ZIP_FL_ENC_CP437}, {"tiny.txt", "tiny", false, ZIP_FL_ENC_UTF_8}};
  // Name; comment (libzip takes no control characters, "@@@@" is edited); the entry given a local extra
  // field and its size; an edit of the file's bytes, which the first local header opens.
  const std::tuple<const char*, std::string, zip_int64_t, zip_uint16_t, void (*)(std::string&)> cases[] = {
      {"as written", "", -1, 0, nullptr},
      {"a comment holding a signature", "@@@@ a comment that misleads its reader", -1, 0,
       [](std::string& b) { b.replace(b.rfind("@@@@"), 4, "PK\x05\x06"); }},
      {"the longest comment", std::string(0xFFFF, 'c'), -1, 0, nullptr},
      {"long local extra on a deflated entry", "", 0, 3000, nullptr},
      {"short local extra on a stored entry", "", 3, 8, nullptr},
      {"local extra just past the guess", "", 5, 65, nullptr},
      {"sizes only in the directory", "", -1, 0, [](std::string& b) {
         b[6] = static_cast<char>(b[6] | 0x08);
         b.replace(14, 12, 12, '\0');
       }},
  };
  ScratchDir dir;
  const std::string file = dir.file("foreign.zip");
  for (const auto& [label, comment, extraEntry, extraSize, edit] : cases) {
    SCOPED_TRACE(label);
    zip_t* za = openZip(file, ZIP_CREATE | ZIP_TRUNCATE);
    for (const auto& [name, data, stored, encoding] : items) {
      zip_source_t* source = zip_source_buffer(za, data.data(), data.size(), 0);
      const zip_int64_t index = zip_file_add(za, name.c_str(), source, encoding);
      ASSERT_GE(index, 0);
      zip_set_file_compression(za, index, stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE, 0);
      zip_file_set_mtime(za, index, 1500000000, 0);
      zip_file_set_external_attributes(za, index, 0, ZIP_OPSYS_UNIX, (0100640u) << 16);
      if (index == extraEntry) {
        const std::vector<zip_uint8_t> extra(extraSize, 'x');
        ASSERT_EQ(
            zip_file_extra_field_set(za, index, 0x7a76, ZIP_EXTRA_FIELD_NEW, extra.data(), extraSize, ZIP_FL_LOCAL), 0);
      }
    }
    if (!comment.empty()) zip_set_archive_comment(za, comment.data(), static_cast<zip_uint16_t>(comment.size()));
    ASSERT_EQ(zip_close(za), 0) << zip_strerror(za);
    if (edit != nullptr) {
      std::string bytes = readBytes(file);
      edit(bytes);
      writeBytes(file, bytes);
    }
    const auto raw = rawItems(file);
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    ASSERT_EQ(physical.getEntries().size(), raw.size());
    for (const ZipEntry& e : physical.getEntries()) {
      const RawItem& item = raw.at(std::string(e.name));  // libzip reads the code page 437 name as such too
      EXPECT_EQ(std::tuple(e.size, e.compressedSize, e.crc, e.compressionMethod, e.attributes.lastModified),
                std::tuple(item.text.size(), item.compressed.size(), item.crc, item.method, FileTime{1500000000, 0}));
      EXPECT_EQ(e.attributes.unixMode, 0640u);
      EXPECT_EQ(streamed(physical, e.index), item.text);
      EXPECT_EQ(whole(physical, e.index), item.text);
    }
  }
}

// Each fixture (tests/data/zip) breaks one thing of a valid archive.
// What breaks the directory is refused when the archive is opened, naming the file; a record that lies
// about its entry when the entry is read, streamed or whole, naming it; what the record alone shows
// (entryDefect) before any read.
TEST(ZipReaderTest, MalformedArchivesAreRefusedWithTheirDefect) {
  enum When { Open, Record, Read };
  const std::tuple<const char*, When, std::size_t, const char*> cases[] = {  // fixture, refused when, entry, message
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
      {"too-many-entries", Open, 0, "1000001 items, more than the 1000000"},
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
  for (const auto& [fixture, when, entry, message] : cases) {
    SCOPED_TRACE(fixture);
    const std::string file = std::string(ZV_TEST_DATA_DIR "/zip/") + fixture + ".zip";
    ZipPhysicalPackage physical(u16(file), false);
    const std::string opened = errorOf([&] { physical.openArchive(); });
    if (when == Open) {
      EXPECT_THAT(opened, AllOf(HasSubstr(message), HasSubstr(file)));
      continue;
    }
    ASSERT_EQ(opened, "(no error)");
    EXPECT_EQ(physical.entryDefect(entry).empty(), when != Record) << physical.entryDefect(entry);
    EXPECT_THAT(errorOf([&] { (void)streamed(physical, entry); }), HasSubstr(message));
    EXPECT_THAT(errorOf([&] { (void)whole(physical, entry); }), HasSubstr(message));
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
  writeBytes(file, "old bytes");
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
    EXPECT_EQ(readBytes(file), "old bytes");
    EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});
  }
  ZipPhysicalPackage physical(u16(dir.file("new.zip")), false);
  EXPECT_THROW(physical.createWriter()->commit(), Exception);  // an archive needs an entry
  EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});
}

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
  const std::string noise = randomBytes(1536u << 10, 12345);
  std::string lookalike = patternBytes(8192, 3) + "PK\x03\x04" + std::string(22, '\0');  // stored data like a local header
  lookalike[8192 + 26] = 30;
  const std::uint64_t limit = 1u << 20;  // the largest entry a worker reads whole
  // Name, bytes, compression asked for, the size its source claims, the method the archive should hold.
  const std::tuple<const char*, std::string, Compression, std::optional<std::uint64_t>, int> cases[] = {
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
      {"photo.JPEG", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"a.tar.gz", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_STORE},
      {"dir.png/readme", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_DEFLATE},
      {"data.mat", patternBytes(3000, 7), Compression::Deflated, 3000, ZIP_CM_DEFLATE},
      {"empty.txt", "", Compression::Deflated, 0, ZIP_CM_DEFLATE},
      {"caf%C3%A9 empty", "", Compression::Stored, 0, ZIP_CM_STORE},
  };
  const EntryAttributes written{FileTime{1600000000, 0}, 0600};
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
        for (const auto& [name, bytes, compression, claimed, method] : cases) {
          writer->addEntry(std::to_string(copy) + name, std::make_shared<UnsizedSource>(bytes, claimed), compression,
                           written);
        }
      }
      writer->commit();
    }
    ::unsetenv("ZVADDON_THREADS");
    archives[*threads == '1' ? 0 : 1] = readBytes(file);
    const auto before = rawItems(file);  // opened with ZIP_CHECKCONS
    // Copied raw (one entry replaced in the middle, over two rounds), then rewritten with new times.
    const std::string copy = dir.file(std::string("copy") + threads + ".zip");
    std::filesystem::copy_file(file, copy);
    for (int round = 0; round < 2; ++round) copyArchive(copy, std::nullopt, "0medium.txt");
    auto after = rawItems(copy);
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(after.extract("0medium.txt").mapped().text, "new");
    for (const auto& [name, item] : after) EXPECT_EQ(item.compressed, before.at(name).compressed) << name;
    copyArchive(copy, rewritten);
    for (const std::string& path : {file, copy}) {
      SCOPED_TRACE(path);
      const auto raw = rawItems(path);
      for (const auto& [name, bytes, compression, claimed, method] : cases) {
        EXPECT_EQ(raw.at(std::string("1") + name).method, method) << name;
        EXPECT_TRUE(raw.at(std::string("1") + name).text == bytes) << name;
      }
      for (const std::uint16_t flags : headerFlags(readBytes(path))) EXPECT_EQ(flags & kFlagUtf8, kFlagUtf8);
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
  writeZip(foreign, {{"plain.txt", "plain"}}, ZIP_FL_ENC_RAW);
  ASSERT_EQ(headerFlags(readBytes(foreign)).at(0) & kFlagUtf8, 0) << "libzip set the flag";
  copyArchive(foreign, std::nullopt);
  EXPECT_EQ(headerFlags(readBytes(foreign)).at(0) & kFlagUtf8, kFlagUtf8);
  EXPECT_EQ(itemText(foreign, "plain.txt"), "plain");
}

TEST(ZipWriterHeadersTest, TimesRoundTripToTheSecondThroughTheShortestField) {
  // Label, time, NTFS in the central record (else the extended timestamp), extended timestamp in the local header.
  const std::tuple<const char*, FileTime, bool, bool> cases[] = {
      {"whole second", FileTime{1700000000, 0}, false, true},
      {"sub-second", FileTime{1700000000, 123456700}, false, true},
      {"before 1901", FileTime{-2300000000LL, 0}, true, false},
      {"after 2038", FileTime{4102444800LL, 0}, true, false},
      {"before 1970, whole second", FileTime{-86400, 0}, false, true},
  };
  ScratchDir dir;
  const std::string file = dir.file("times.zip");
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    for (const auto& [label, time, centralNtfs, localTimestamp] : cases) {
      writer->addEntry(label, std::make_shared<detail::MemoryContentSource>("x"), Compression::Stored, {time, 0644});
    }
    writer->commit();
  }
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  zip_t* za = openZip(file, ZIP_RDONLY);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& [label, time, centralNtfs, localTimestamp] = cases[i];
    SCOPED_TRACE(label);
    EXPECT_EQ(physical.getEntries().at(i).attributes.lastModified, (FileTime{time.seconds, 0}));
    const auto count = [&](std::uint16_t id, zip_flags_t where) { return zip_file_extra_fields_count_by_id(za, i, id, where); };
    EXPECT_EQ(count(extra::kNtfsId, ZIP_FL_CENTRAL), centralNtfs ? 1 : 0);
    EXPECT_EQ(count(extra::kExtendedTimestampId, ZIP_FL_CENTRAL), centralNtfs ? 0 : 1);
    EXPECT_EQ(count(extra::kNtfsId, ZIP_FL_LOCAL), 0);
    EXPECT_EQ(count(extra::kExtendedTimestampId, ZIP_FL_LOCAL), localTimestamp ? 1 : 0);
  }
  zip_discard(za);
  // Truncated or foreign fields decode to nothing rather than to garbage; DOS time clamps to its range.
  EXPECT_FALSE(extra::decodeNtfs(std::string_view(reinterpret_cast<const char*>(extra::encodeNtfs({0, 0})->data()), 12)).has_value());
  EXPECT_FALSE(extra::decodeExtendedTimestamp("\x02\x01\x02\x03\x04").has_value());  // access time only
  EXPECT_EQ(extra::clampToDosRange({0, 0}), 315619200);
  EXPECT_EQ(extra::clampToDosRange({7258118400, 0}), 4354646400);
  EXPECT_EQ(extra::clampToDosRange({1000000000, 0}), 1000000000);
}

// A central record moved to an offset past 4 GiB keeps its other ZIP64 fields in order: it becomes
// the record written for that offset in the first place.
TEST(ZipWriterHeadersTest, RelocatedRecordsTakeZip64OffsetsWhenNeeded) {
  // A record named "n" of `size` bytes compressed to one more, its local header at `offset`.
  const auto record = [](std::uint64_t size, std::uint64_t offset) {
    return centralRecord("n", EntryHeader{.compressedSize = size + 1, .size = size}, offset);
  };
  const std::uint64_t far = 5ull << 30;
  // Size, offset, new offset: near stays 32-bit; far gains a field, after ZIP64 sizes, or updates its own.
  const std::array<std::uint64_t, 3> cases[] = {
      {10, 100, 4096}, {10, 100, far}, {far + 1, 100, far}, {far + 1, far - 7, far}};
  for (const auto& [size, from, to] : cases) {
    EXPECT_EQ(relocatedRecord(record(size, from), to), record(size, to)) << size << " at " << from << " to " << to;
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
  std::vector<std::pair<std::string, std::string>> items;  // name, text
  const auto add = [&](const std::string& name, std::uint64_t at, bool zip64) {
    const std::string text = "text of " + name;
    const EntryHeader h{.crc = static_cast<std::uint32_t>(libdeflate_crc32(0, text.data(), text.size())),
                        .compressedSize = text.size(), .size = text.size(), .zip64 = zip64,
                        .time = FileTime{1600000000, 0}, .exactTime = true};
    const std::string bytes = localHeader(name, h, at) + text;
    EXPECT_EQ(get16(bytes.data() + 4), at >= 0xFFFFFFFFu || zip64 ? 45 : 20) << name;  // version needed
    ASSERT_EQ(::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)), static_cast<ssize_t>(bytes.size()));
    position = at + bytes.size();
    directory += centralRecord(name, h, at);
    items.emplace_back(name, text);
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
  items.emplace_back("copied.txt", copied);
  const std::string tail = directory + endRecords(items.size(), position, directory.size());
  ASSERT_EQ(::pwrite(fd, tail.data(), tail.size(), static_cast<off_t>(position)), static_cast<ssize_t>(tail.size()));
  char version[2];
  ASSERT_EQ(::pread(fd, version, 2, static_cast<off_t>(copiedAt + 4)), 2);
  EXPECT_EQ(get16(version), 45);  // the copied local header's, as its record's
  ::close(fd);

  const auto raw = rawItems(file);
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  ASSERT_EQ(raw.size(), items.size());
  ASSERT_EQ(physical.getEntries().size(), items.size());
  for (const std::size_t i : {std::size_t{0}, std::size_t{1}, std::size_t{40000}, items.size() - 2, items.size() - 1}) {
    SCOPED_TRACE(i);
    EXPECT_EQ(raw.at(items[i].first).text, items[i].second);
    EXPECT_EQ(readAll(*physical.openEntry(i)), items[i].second);
    EXPECT_EQ(physical.getEntries()[i].attributes.lastModified, (FileTime{1600000000, 0}));
  }
}

// A part over 4 GiB needs ZIP64 sizes the writer must choose on its own. Seconds to a minute: runs
// with ZV_SLOW=1 (ctest label slow). The source is sparse: zeros, and a marker at the end.
TEST(ZipWriterHeadersTest, EntryOverFourGibibytesTakesZip64Sizes) {
  if (std::getenv("ZV_SLOW") == nullptr) GTEST_SKIP() << "set ZV_SLOW=1 (label slow) to write 4 GiB";
  ScratchDir dir;
  const std::string source = dir.file("big.bin");
  const std::string file = dir.file("big.zip");
  constexpr std::uint64_t kSize = (4ull << 30) + 12345;
  const int fd = ::open(source.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(kSize)), 0);
  ASSERT_EQ(::pwrite(fd, "TAIL", 4, static_cast<off_t>(kSize - 4)), 4);
  ::close(fd);
  {
    ZipPhysicalPackage physical(u16(file), false);
    auto writer = physical.createWriter();
    writer->addEntry("big.bin", kqservices::fileContent(u16(source)), Compression::Deflated, {});
    writer->addEntry("after.xml", std::make_shared<detail::MemoryContentSource>("<after/>"), Compression::Deflated, {});
    writer->commit();
  }
  zip_t* za = openZip(file, ZIP_RDONLY | ZIP_CHECKCONS);  // local headers agree with the directory
  zip_stat_t st;
  ASSERT_EQ(zip_stat_index(za, 0, 0, &st), 0);
  EXPECT_EQ(st.size, kSize);
  zip_discard(za);
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  const auto in = physical.openEntry(0);
  std::vector<std::uint8_t> buffer(1 << 20);
  std::uint64_t total = 0;
  std::string tail;
  while (const std::size_t n = in->read(buffer.data(), buffer.size())) {
    total += n;
    tail.assign(reinterpret_cast<const char*>(buffer.data()) + n - std::min<std::size_t>(n, 4), std::min<std::size_t>(n, 4));
  }
  EXPECT_EQ(total, kSize);  // the whole stream inflated and its CRC matched
  EXPECT_EQ(tail, "TAIL");
  EXPECT_EQ(streamed(physical, 1), "<after/>");
}

// Inflates a raw deflate stream of `size` bytes with zlib, which the deflate side does not use; fails
// the test unless the stream ends exactly at the end of `compressed`.
std::string zlibInflate(const std::string& compressed, std::size_t size) {
  z_stream z{};
  EXPECT_EQ(inflateInit2(&z, -15), Z_OK);
  std::string out(size + 1, '\0');  // a byte more: a longer stream shows
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
  z.avail_in = static_cast<uInt>(compressed.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(inflate(&z, Z_FINISH), Z_STREAM_END) << (z.msg != nullptr ? z.msg : "");
  EXPECT_EQ(z.avail_in, 0u) << "bytes after the final block";
  out.resize(out.size() - z.avail_out);
  inflateEnd(&z);
  return out;
}

std::string libdeflateCompress(const std::string& data, int level) {
  std::string out;
  deflateInto(makeCompressor(level).get(), data.data(), data.size(), out);
  return out;
}

// Text-like bytes from a vocabulary, so that they deflate well and use matches of every length.
std::string wordBytes(std::size_t size, unsigned seed) {
  static const char* const words[] = {"alpha ", "beta ", "gamma\n", "0.125,", "signal ", "x(i) = ", "end\n"};
  std::mt19937 gen(seed);
  std::string out;
  while (out.size() < size) out += words[gen() % std::size(words)];
  out.resize(size);
  return out;
}

// Tasks run in order on any number of workers, each told a worker number below slots(); the first
// failure reaches the caller from finish() and every later submit, whose task then never runs.
TEST(WorkQueueTest, TasksRunAndTheFirstFailureReachesTheCaller) {
  for (const unsigned workers : {0u, 1u, 3u}) {
    SCOPED_TRACE(workers);
    detail::WorkQueue queue(workers, 4);
    std::vector<int> ran(40, 0);
    std::atomic<bool> slotsKept{true};
    for (int i = 0; i < 40; ++i) {
      EXPECT_EQ(queue.submit([&, i](unsigned worker) {
        if (worker >= queue.slots()) slotsKept = false;
        ran[i] = i + 1;
      }), static_cast<std::uint64_t>(i));
    }
    queue.wait(20);
    EXPECT_EQ(ran[20], 21);
    queue.finish();
    for (int i = 0; i < 40; ++i) EXPECT_EQ(ran[i], i + 1);
    EXPECT_TRUE(slotsKept);
    EXPECT_EQ(errorOf([&] {
                (void)queue.submit([](unsigned) { throw Exception("the first failure"); });
                queue.finish();
              }),
              "the first failure");
    bool late = false;
    EXPECT_THROW((void)queue.submit([&](unsigned) { late = true; }), Exception);
    EXPECT_FALSE(late);
  }
}

// Pieces join into one stream that zlib inflates whole, for each kind of content, at and around every
// piece boundary; the stream is the same bytes for any number of workers. A source that holds another
// size than it says is refused.
TEST(ParallelDeflateTest, PiecesJoinIntoOneStreamWhateverTheWorkers) {
  const std::pair<const char*, std::string (*)(std::size_t, unsigned)> contents[] = {
      {"incompressible", randomBytes}, {"compressible", wordBytes}};
  const std::size_t sizes[] = {0, 1, kPieceSize - 1, kPieceSize, kPieceSize + 1, 2 * kPieceSize - 1, 2 * kPieceSize,
                               2 * kPieceSize + 1, 3 * kPieceSize + 2, 5 * kPieceSize + 12345};
  for (const auto& [kind, make] : contents) {
    for (const std::size_t size : sizes) {
      SCOPED_TRACE(std::string(kind) + " " + std::to_string(size));
      const std::string data = make(size, static_cast<unsigned>(size));
      std::string first;
      for (const unsigned workers : {0u, 2u, 3u}) {
        detail::WorkQueue work(workers, 8);
        std::string joined;
        const PieceStream result = deflateInPieces(
            detail::MemoryContentSource(data), [&](std::string_view piece) { joined += piece; }, work, "x");
        EXPECT_EQ(std::tuple(result.size, result.crc, result.compressedSize),
                  std::tuple(size, libdeflate_crc32(0, data.data(), data.size()), joined.size()));
        if (workers == 0) {
          EXPECT_TRUE(zlibInflate(joined, data.size()) == data) << "the joined stream inflates to other bytes";
          first = joined;
        } else {
          EXPECT_TRUE(joined == first) << workers << " workers";
        }
      }
    }
  }
  detail::WorkQueue work(2, 8);
  for (const std::uint64_t claimed : {3 * kPieceSize - 1, 5 * kPieceSize}) {
    const UnsizedSource source(patternBytes(3 * kPieceSize, 1), claimed);
    EXPECT_THROW((void)deflateInPieces(source, [](std::string_view) {}, work, "x"), Exception);
  }
}

// A stream made joinable is followed by another and zlib reads both as one, also after an empty
// fixed block whose six padding bits are ones (which inflaters ignore but a stored block's header must
// not inherit); what is not exactly one stream is refused and left as it was. (Streams whose padding
// has room for the stored block's header bits or not: the pieces test.)
TEST(ParallelDeflateTest, UnfinishedStreamsJoinOrAreRefused) {
  std::string stream("\x03\xfc", 2);
  unfinishStream(stream);
  EXPECT_TRUE(zlibInflate(stream + libdeflateCompress("tail", 6), 4) == "tail");
  const std::string whole = libdeflateCompress(wordBytes(100000, 8), 6);
  // Empty, truncated, trailing bytes, a reserved block type, a stored length and its complement
  // that disagree, two streams.
  for (const std::string& bytes : {std::string(), whole.substr(0, whole.size() / 2), whole + "xyz",
                                   std::string("\x07\x00", 2), std::string("\x01\x05\x00\x05\x00hello", 10),
                                   libdeflateCompress("ab", 6) + libdeflateCompress("cd", 6)}) {
    std::string refused = bytes;
    EXPECT_THROW(unfinishStream(refused), Exception) << bytes.size();
    EXPECT_TRUE(refused == bytes) << bytes.size() << ": changed although refused";
  }
}

}  // namespace
}  // namespace opc::zippackage
