// SIGKILL at any moment of a writing call leaves the package exactly old or exactly new, and it opens.
// ZV_KILL_ROUNDS sets the rounds per call (the slow-labelled run uses 200).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "hardening_support.h"

namespace {

using namespace zvtest::hardening;
using Clock = std::chrono::steady_clock;

int rounds() {
  const char* text = std::getenv("ZV_KILL_ROUNDS");
  return text != nullptr ? std::max(3, std::atoi(text)) : 8;
}

TEST(KillTest, EveryKillLeavesTheOldOrTheNewPackage) {
  zvtest::TempDir dir;
  const std::string package = dir.file("pkg.zvaddon");
  const std::string newFile = dir.file("new.bin");
  makePackage(package, dir.file("big.bin"), 12u << 20);
  zvtest::writeBytes(newFile, noise(4u << 20, 11));
  const std::string old = zvtest::readBytes(package);

  for (const Write& write : writes()) {
    SCOPED_TRACE(write.name);
    // How long an uninterrupted call takes sets the range of kill moments.
    const auto start = Clock::now();
    ASSERT_TRUE(write.run(package, newFile).ok());
    const auto duration = Clock::now() - start;
    ASSERT_TRUE(write.done(package));

    const int n = rounds();
    int oldOutcomes = 0;
    int newOutcomes = 0;
    for (int round = 0; round < n; ++round) {
      SCOPED_TRACE(round);
      zvtest::writeBytes(package, old);
      const pid_t child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) ::_exit(write.run(package, newFile).ok() ? 0 : 1);
      // Kill moments spread from at once to past the end; the last round is never killed.
      if (round + 1 < n) {
        std::this_thread::sleep_for(duration * round * 11 / (10 * (n - 1)));
        ::kill(child, SIGKILL);
      }
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << "the call failed on its own";

      if (zvtest::readBytes(package) == old) {
        ++oldOutcomes;
      } else {
        ++newOutcomes;
        EXPECT_TRUE(write.done(package)) << "neither the old package nor the new one";
      }
      expectOpensCleanly(package);
    }
    EXPECT_GT(oldOutcomes, 0) << "no kill landed before the package was replaced";
    EXPECT_GT(newOutcomes, 0);
    // A kill between naming the new file and the rename can leave it; the next write removes it.
    zvtest::writeBytes(package, old);
    ASSERT_TRUE(write.run(package, newFile).ok());
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"big.bin", "new.bin", "pkg.zvaddon"}));
  }
}

TEST(KillTest, TemporariesOfDeadWritersGoWithTheNextWrite) {
  zvtest::TempDir dir;
  const std::string package = dir.file("pkg.zvaddon");
  zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
  const pid_t dead = ::fork();
  if (dead == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(dead, nullptr, 0), dead);
  const std::string deadPid = std::to_string(dead);
  const struct {
    std::string name;
    bool removed;
  } cases[] = {
      {".pkg.zvaddon." + deadPid + ".0.tmp", true},
      {".pkg.zvaddon." + deadPid + ".a1B2c3.tmp", true},
      {".pkg.zvaddon.1.0.tmp", false},                     // its writer is alive
      {".pkg.zvaddon.other." + deadPid + ".0.tmp", false},  // another package's
      {".pkg.zvaddon." + deadPid + ".0.tmp.keep", false},
  };
  for (const auto& c : cases) zvtest::writeBytes(dir.file(c.name), "partial");
  zvtest::callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", "granted"}}});
  for (const auto& c : cases) {
    EXPECT_EQ(std::filesystem::exists(dir.file(c.name)), !c.removed) << c.name;
  }
}

}  // namespace
