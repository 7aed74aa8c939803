#include "opc/file_system_ops.h"

#include <gtest/gtest.h>

#include <thread>

#include "opc/exception.h"
#include "opc/kqservices/file_content_source.h"

#include "opc_test_support.h"

namespace opc {
namespace {

using namespace opc::test;

TEST(FileSystemOpsTest, PathText) {
  const FileSystemOps ops;
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

// Sources of one batch share their folders' paths: files added from folders in turn, back to an
// earlier one, with names of every width, each read back its own bytes after the batch has grown
// past them, also from several threads at once; a failed add leaves the batch usable.
TEST(FileSystemOpsTest, ContentBatchSourcesReadTheirOwnFiles) {
  ScratchDir dir;
  const std::vector<std::string> names = {"a/one.txt", "a/two", "b/caf\xC3\xA9 x.m", "a/three", "c/d/\xF0\x9F\x98\x80",
                                          "b/one.txt", "c/d/e/f.bin", "c/d/g"};
  auto batch = std::make_shared<kqservices::FileContentBatch>();
  std::vector<std::shared_ptr<const ContentSource>> sources;
  std::vector<std::string> expected;
  for (int round = 0; round < 40; ++round) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string relative = "r" + std::to_string(round % 3) + "/" + names[i];
      std::filesystem::create_directories(std::filesystem::path(dir.file(relative)).parent_path());
      const std::string bytes = patternBytes(100 + 37 * i + round, static_cast<unsigned>(round * 8 + i));
      writeFile(dir.file(relative), bytes);
      const auto added = batch->add(u16(dir.file(relative)));
      EXPECT_EQ(added.status.size, bytes.size());
      EXPECT_EQ(added.source->size(), bytes.size());
      sources.push_back(added.source);
      expected.push_back(bytes);
      if (i == 3) {
        EXPECT_THROW((void)batch->add(u16(dir.file(relative + ".missing"))), Exception);
        EXPECT_THROW((void)batch->add(u16(dir.file("r0"))), Exception);
      }
    }
  }
  // Names past the first blocks of the table: a long name in a long folder, many times over.
  const std::string longName = std::string(200, 'n') + "\xC3\xA9";
  const std::string longFolder = "deep/" + std::string(120, 'f');
  std::filesystem::create_directories(dir.file(longFolder));
  writeFile(dir.file(longFolder + "/" + longName), "long");
  for (int i = 0; i < 1000; ++i) sources.push_back(batch->add(u16(dir.file(longFolder + "/" + longName))).source);
  for (std::size_t i = sources.size() - 1000; i < sources.size(); i += 97) EXPECT_EQ(readAll(*sources[i]->openStream()), "long");
  sources.resize(sources.size() - 1000);
  batch.reset();  // the sources keep it alive
  // Each round rewrote the files of round % 3: only the last three rounds hold what is on disk now.
  const std::size_t fresh = sources.size() - 3 * names.size();
  std::vector<std::string> read(sources.size());
  std::thread other([&] {
    for (std::size_t i = fresh; i < sources.size(); i += 2) read[i] = readAll(*sources[i]->openStream());
  });
  for (std::size_t i = fresh + 1; i < sources.size(); i += 2) read[i] = readAll(*sources[i]->openStream());
  other.join();
  for (std::size_t i = fresh; i < sources.size(); ++i) EXPECT_EQ(read[i], expected[i]) << i;
}

}  // namespace
}  // namespace opc
