// A part over 4 GiB, which needs ZIP64 sizes the writer must choose on its own. Slow (seconds to a
// minute); labelled "slow" in ctest. (More than 65,535 items: the ZIP64 headers test.)
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>
#include <zip.h>

#include "opc/kqservices/file_content_source.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;

TEST(LargePackageTest, PartOverFourGibibytesRoundTrip) {
  ScratchDir dir;
  const std::string source = dir.file("big.bin");
  constexpr std::uint64_t kSize = (4ull << 30) + 12345;
  {
    // Sparse: costs no disk, reads back as zeros, with a marker at the end to check the tail.
    const int fd = ::open(source.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(kSize)), 0);
    ASSERT_EQ(::pwrite(fd, "TAIL", 4, static_cast<off_t>(kSize - 4)), 4);
    ::close(fd);
  }
  const ustring path = dir.ufile("big.zip");
  withPackage(path, OpenMode::Create, [&](Package& p) {
    auto part = p.createPart(PartName(u"/big.bin"), ContentType(u"application/octet-stream"));
    part->setContentSource(kqservices::fileContent(u16(source)));
    addPart(p, u"/after.xml", u"application/xml", "<after/>");
  });
  {
    // An independent reader agrees, its check that local headers match the directory included.
    int error = 0;
    zip_t* za = zip_open(dir.file("big.zip").c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    ASSERT_NE(za, nullptr) << error;
    zip_stat_t st;
    ASSERT_EQ(zip_stat(za, "big.bin", 0, &st), 0);
    EXPECT_EQ(st.size, kSize);
    zip_discard(za);
  }
  Session s(path, OpenMode::Read);
  auto part = s.package.getPart(PartName(u"/big.bin"));
  EXPECT_EQ(part->getSize(), kSize);
  auto in = part->getInputStream();
  std::vector<std::uint8_t> buffer(1 << 20);
  std::uint64_t total = 0;
  std::string tail;
  while (const std::size_t n = in->read(buffer.data(), buffer.size())) {
    total += n;
    tail.append(reinterpret_cast<const char*>(buffer.data()), n);
    if (tail.size() > 8) tail.erase(0, tail.size() - 8);
  }
  EXPECT_EQ(total, kSize);  // the whole stream inflated and its CRC matched
  EXPECT_EQ(tail.substr(4), "TAIL");
  EXPECT_EQ(partBytes(s.package, u"/after.xml"), "<after/>");
}

}  // namespace
}  // namespace opc::model
