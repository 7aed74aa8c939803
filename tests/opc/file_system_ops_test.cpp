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

TEST(FileSystemOpsTest, LocalOperations) {
  ScratchDir dir;
  const LocalFileSystemOps ops;
  const ustring root = u16(dir.path().string());
  const ustring nested = root + u"/x/\u00e9t\u00e9/z";
  ops.createDirectories(nested);
  ops.createDirectories(nested);  // existing: no error
  EXPECT_TRUE(ops.isDirectory(nested));

  const ustring file = nested + u"/f\U0001F600.txt";
  writeAll(*ops.openOutputStream(file), "content");
  EXPECT_EQ(readAll(*ops.openInputStream(file)), "content");
  EXPECT_EQ(ops.getFileSize(file), 7u);
  EXPECT_TRUE(ops.isRegularFile(file));

  // Within 1901-2038: some file systems (ext4 with small inodes) hold no more.
  for (const FileTime time : {FileTime{-315619200, 0}, FileTime{0, 1}, FileTime{1700000000, 123456789}}) {
    ops.setLastWriteTime(file, time);
    EXPECT_EQ(ops.getLastWriteTime(file), time);
  }
  ops.setPermissions(file, 0751);
  EXPECT_EQ(ops.status(file).mode, 0751u);

  writeAll(*ops.openOutputStream(nested + u"/b"), "");
  writeAll(*ops.openOutputStream(nested + u"/A"), "");
  EXPECT_EQ(ops.listDirectory(nested), (std::vector<ustring>{u"A", u"b", u"f\U0001F600.txt"}));

  ::symlink("b", dir.file("x/\xc3\xa9t\xc3\xa9/z/link").c_str());
  EXPECT_EQ(ops.status(nested + u"/link", false).type, FileType::Symlink);
  EXPECT_EQ(ops.status(nested + u"/link").type, FileType::Regular);

  ops.remove(file);
  ops.remove(file);  // missing: no error
  EXPECT_FALSE(ops.exists(file));
  EXPECT_EQ(ops.status(root + u"/missing/deeper").type, FileType::NotFound);
  const std::function<void()> failures[] = {
      [&] { (void)ops.openInputStream(file); },
      [&] { (void)ops.getFileSize(file); },
      [&] { ops.setPermissions(file, 0600); },
      [&] { (void)ops.listDirectory(file); },
      [&] { ops.createDirectories(nested + u"/b/c"); },  // "b" is a file
  };
  for (const auto& f : failures) {
    try {
      f();
      ADD_FAILURE() << "no error";
    } catch (const Exception& e) {
      EXPECT_NE(std::string(e.what()).find(dir.path().string()), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW(FileSystemOpsSelector(nullptr), Exception);
  EXPECT_NE(FileSystemOpsSelector().get(), nullptr);
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
