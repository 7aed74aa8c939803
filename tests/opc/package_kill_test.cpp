// A process killed at any moment of close() leaves the old package whole: the file on disk is always
// either the old package byte for byte or the complete new one.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "opc/kqservices/file_content_source.h"
#include "package_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;

TEST(PackageKillTest, KillDuringCloseLeavesTheOldPackageReadable) {
  ScratchDir dir;
  const std::string file = dir.file("pkg.zip");
  {
    Session s(u16(file), OpenMode::Create, true);
    addPart(s.package, u"/keep.xml", u"application/xml", "<keep/>");
    s.package.close();
  }
  const std::string before = readFile(file);
  const std::string big = dir.file("big.bin");
  writeFile(big, patternBytes(8u << 20, 3));  // deflating this takes long enough to be interrupted

  int oldOutcomes = 0;
  int newOutcomes = 0;
  // The last round lets the child finish: the new package must then be complete.
  for (const int delayMs : {0, 1, 3, 10, 30, 100, 300, -1}) {
    SCOPED_TRACE(delayMs);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      try {
        Session s(u16(file), OpenMode::Modify, true);
        auto part = s.package.createPart(PartName(u"/big.bin"), ContentType(u"application/octet-stream"),
                                         StandardPartInfo());
        part->setContentSource(std::make_shared<kqservices::FileContentSource>(u16(big)));
        s.package.close();
      } catch (...) {
        ::_exit(2);
      }
      ::_exit(0);
    }
    if (delayMs >= 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      ::kill(child, SIGKILL);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << "the child failed on its own";

    Session s(u16(file), OpenMode::Read);
    EXPECT_EQ(partBytes(s.package, u"/keep.xml"), "<keep/>");
    if (s.package.partExists(PartName(u"/big.bin"))) {
      ++newOutcomes;
      EXPECT_EQ(s.package.getPart(PartName(u"/big.bin"))->getSize(), 8u << 20);
      EXPECT_EQ(partBytes(s.package, u"/big.bin"), readFile(big));
      s.package.close();
      // Back to the old package for the next round.
      writeFile(file, before);
    } else {
      ++oldOutcomes;
      EXPECT_EQ(readFile(file), before);
    }
  }
  EXPECT_GT(oldOutcomes, 0) << "no kill landed before the rename";
  EXPECT_GT(newOutcomes, 0) << "the close that was not interrupted left no new package";
}

}  // namespace
}  // namespace opc::model
