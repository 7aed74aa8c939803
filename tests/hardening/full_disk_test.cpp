// A write that runs out of space reports the call's key with the system's reason, and the package is
// byte for byte as it was, with nothing left beside it. Runs on a small tmpfs that the test mounts,
// so it needs root; otherwise it is skipped.
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

#include "hardening_support.h"

namespace {

using namespace zvtest::hardening;

class FullDiskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
    if (::mount("tmpfs", mount_.path().c_str(), "tmpfs", 0, "size=8m") != 0) {
      GTEST_SKIP() << "cannot mount a tmpfs here: " << std::strerror(errno);
    }
    mounted_ = true;
  }
  void TearDown() override {
    if (mounted_) ::umount2(mount_.path().c_str(), MNT_DETACH);
  }

  // Fills the file system up to `reserve` bytes free.
  void fill(std::uintmax_t reserve) {
    const auto free = std::filesystem::space(mount_.path()).available;
    ASSERT_GT(free, reserve);
    zvtest::writeBytes((mount_.path() / "filler").string(), std::string(free - reserve, 'x'));
  }

  zvtest::TempDir mount_;
  zvtest::TempDir outside_;  // the new content file lives off the small file system
  bool mounted_ = false;
};

TEST_F(FullDiskTest, AWriteWithoutSpaceFailsCleanly) {
  const std::string package = (mount_.path() / "pkg.zvaddon").string();
  const std::string newFile = outside_.file("new.bin");
  makePackage(package, outside_.file("big.bin"), 2u << 20);
  zvtest::writeBytes(newFile, noise(1u << 20, 5));
  const std::string old = zvtest::readBytes(package);
  // Less room than one copy of the package: every rewrite must run out.
  fill(512u << 10);

  for (const Write& write : writes()) {
    SCOPED_TRACE(write.name);
    const zvtest::CallResult r = write.run(package, newFile);
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.key(), write.key);
    EXPECT_NE(r.error->message().find("No space left on device"), std::string::npos) << r.error->message();
    EXPECT_EQ(zvtest::readBytes(package), old);
    EXPECT_EQ(mount_.list(), (std::vector<std::string>{"filler", "pkg.zvaddon"}));
  }
  // With room again, the same package takes the change.
  std::filesystem::remove(mount_.path() / "filler");
  EXPECT_TRUE(writes().front().run(package, newFile).ok());
}

}  // namespace
