#include "opc/file_system_ops.h"

#include <gtest/gtest.h>

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
  } cases[] = {
      {u"/a/shot.png", u"shot.png", u"png"},
      {u"/a/archive.tar.gz", u"archive.tar.gz", u"gz"},
      {u"/a/.profile", u".profile", u""},
      {u"/a.d/file", u"file", u""},
      {u"/a/dir/", u"dir", u""},
      {u"/top", u"top", u""},
      {u"/\u4e2d/\u6587.\u00e9", u"\u6587.\u00e9", u"\u00e9"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.path));
    EXPECT_EQ(ops.getFilename(c.path), c.filename);
    EXPECT_EQ(ops.getExtension(c.path), c.extension);
  }
}

}  // namespace
}  // namespace opc
