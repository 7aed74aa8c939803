#include "opc/file_system_ops.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <sstream>

#include "opc/exception.h"
#include "opc_test_support.h"

namespace opc {
namespace {

using namespace opc::test;

TEST(FileSystemOpsTest, PathText) {
  const LocalFileSystemOps ops;
  const struct {
    const char16_t* path;
    const char16_t* filename;
    const char16_t* extension;
    const char16_t* parent;
  } cases[] = {
      {u"/a/shot.png", u"shot.png", u"png", u"/a"},
      {u"/a/archive.tar.gz", u"archive.tar.gz", u"gz", u"/a"},
      {u"/a/README", u"README", u"", u"/a"},
      {u"/a/.profile", u".profile", u"", u"/a"},
      {u"/a.d/file", u"file", u"", u"/a.d"},
      {u"/a/dir/", u"dir", u"", u"/a"},
      {u"name.", u"name.", u"", u""},
      {u"/top", u"top", u"", u"/"},
      {u"a//b.c", u"b.c", u"c", u"a"},
      {u"/\u4e2d/\u6587.\u00e9", u"\u6587.\u00e9", u"\u00e9", u"/\u4e2d"},
      {u"", u"", u"", u""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.path));
    EXPECT_EQ(ops.getFilename(c.path), c.filename);
    EXPECT_EQ(ops.getExtension(c.path), c.extension);
    EXPECT_EQ(ops.getParentPath(c.path), c.parent);
  }
}

// Reads in short, uneven pieces, as a socket or a decompressor would.
class TricklingStream : public InputStream {
 public:
  explicit TricklingStream(std::string data) : data_(std::move(data)) {}
  std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    const std::size_t n = std::min({size, data_.size() - offset_, static_cast<std::size_t>(offset_ % 7 + 1) * 1000});
    std::memcpy(buffer, data_.data() + offset_, n);
    offset_ += n;
    return n;
  }

 private:
  std::string data_;
  std::size_t offset_ = 0;
};

TEST(StreamHelperTest, CopiesEveryByteWhateverTheChunking) {
  for (const std::size_t size : {0u, 1u, 65535u, 65536u, 65537u, 300001u}) {
    SCOPED_TRACE(size);
    const std::string data = patternBytes(size, static_cast<unsigned>(size));
    std::ostringstream sink;
    StdOStreamAdaptor out(sink);
    TricklingStream in(data);
    EXPECT_EQ(StreamHelper::copyStreamToStream(in, out), size);
    EXPECT_EQ(sink.str(), data);

    std::istringstream source(data);
    StdIStreamAdaptor adapted(source);
    EXPECT_EQ(readAll(adapted), data);
  }
  std::ostringstream sink;
  sink.setstate(std::ios::badbit);
  StdOStreamAdaptor broken(sink);
  TricklingStream in("abc");
  EXPECT_THROW(StreamHelper::copyStreamToStream(in, broken), Exception);
}

}  // namespace
}  // namespace opc
