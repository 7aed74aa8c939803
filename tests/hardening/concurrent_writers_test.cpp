// Two processes rewrite one package 100 times each while this one reads it: every read sees a whole
// package holding one writer's complete licence, and the last write of one writer survives.
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "hardening_support.h"

namespace {

using namespace zvtest::hardening;

constexpr int kWrites = 100;

std::string licenceText(char writer, int i) { return std::string(1, writer) + " " + std::to_string(i); }

TEST(ConcurrentWritersTest, ReadersSeeOnlyWholePackages) {
  zvtest::TempDir dir;
  const std::string package = dir.file("pkg.zvaddon");
  makePackage(package, dir.file("big.bin"), 256u << 10);
  zvtest::callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", licenceText('A', -1)}}});

  std::vector<pid_t> writers;
  for (const char writer : {'A', 'B'}) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      int failures = 0;
      for (int i = 0; i < kWrites; ++i) {
        failures += zvtest::call(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", licenceText(writer, i)}}}).ok() ? 0 : 1;
      }
      ::_exit(failures == 0 ? 0 : 1);
    }
    writers.push_back(child);
  }

  std::set<std::string> whole{licenceText('A', -1)};
  for (int i = 0; i < kWrites; ++i) whole.insert({licenceText('A', i), licenceText('B', i)});
  int reads = 0;
  std::size_t running = writers.size();
  while (running > 0) {
    const zvtest::CallResult r = zvtest::call(zvAddonGetLicense, {package}, 1);
    ASSERT_TRUE(r.ok()) << "read " << reads << ": " << r.key() << " " << r.error->message();
    const std::string text = r.outputs.at(0)["text"];
    ASSERT_TRUE(whole.contains(text)) << text;
    ++reads;
    for (pid_t& writer : writers) {
      int status = 0;
      if (writer > 0 && ::waitpid(writer, &status, WNOHANG) == writer) {
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a write failed";
        writer = 0;
        --running;
      }
    }
  }
  EXPECT_GT(reads, 1);
  const std::string last = zvtest::callOk(zvAddonGetLicense, {package}, 1)["text"];
  EXPECT_TRUE(last == licenceText('A', kWrites - 1) || last == licenceText('B', kWrites - 1)) << last;
  expectOpensCleanly(package);
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"big.bin", "pkg.zvaddon"}));
}

}  // namespace
