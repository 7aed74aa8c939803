#include "opc/zippackage/zip_physical_package.h"

#include <gtest/gtest.h>

#include <cstring>

#ifdef ZV_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

#include "opc/detail/content_sources.h"
#include "opc/exception.h"
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
    writer->addEntry("good.txt", std::make_shared<detail::MemoryContentSource>("fine"), Compression::Deflated, {});
    writer->addEntry("bad.bin", std::make_shared<FailingSource>(at), Compression::Deflated, {});
    try {
      writer->commit();
      ADD_FAILURE() << "committed";
    } catch (const Exception& e) {
      EXPECT_NE(std::string(e.what()).find("'bad.bin'"), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find("injected"), std::string::npos) << e.what();
    }
    EXPECT_THROW(writer->commit(), Exception);  // a writer is used once
    EXPECT_EQ(readFile(file), "old bytes");
    EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});
  }
  ZipPhysicalPackage physical(u16(dir.file("new.zip")), false);
  EXPECT_THROW(physical.createWriter()->commit(), Exception);  // an archive needs an entry
  EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});
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
  EXPECT_EQ(raw.at("pre.bin").compressed, compressed);  // libzip copied, did not recompress
  EXPECT_EQ(raw.at("pre.bin").crc, crc);
  ZipPhysicalPackage physical(u16(file), false);
  physical.openArchive();
  EXPECT_EQ(readAll(*physical.openEntry(0)), data);  // inflates and passes the CRC check
}
#endif

}  // namespace
}  // namespace opc::zippackage
