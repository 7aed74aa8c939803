#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "support/command.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;

std::string opensslDigest(const std::string& path) {
  return zvtest::runCommand("openssl dgst -sha512 -binary " + zvtest::shellQuoted(path) + " | base64 -w0").output;
}

TEST(ContentHash, AgreesWithOpensslForEverySize) {
  zvtest::TempDir dir;
  const struct {
    const char* name;
    std::string bytes;
    std::uintmax_t extendTo;  // sparse tail of zeros: a large file without filling the disk
  } cases[] = {
      {"empty", "", 0},
      {"one byte", "x", 0},
      {"1 GiB", "head", 1ull << 30},
      {"d\xC3\xA9j\xC3\xA0 \xF0\x9F\x98\x80.bin", std::string(3 << 20, 'q') + "tail", 0},
      {"sub/same bytes elsewhere", "x", 0},
  };
  std::filesystem::create_directory(dir.path() / "sub");
  EXPECT_TRUE(call(zvAddonComputeHash, {dir.path().string()}, 1).ok()) << "a folder passes the existence test";
  for (const auto& c : cases) {
    const std::string path = dir.file(c.name);
    zvtest::writeBytes(path, c.bytes);
    if (c.extendTo > 0) std::filesystem::resize_file(path, c.extendTo);
    const std::string ours = callOk(zvAddonComputeHash, {path}, 1).get<std::string>();
    EXPECT_EQ(ours.size(), 88u) << c.name;
    EXPECT_EQ(ours, opensslDigest(path)) << c.name;
  }
}

}  // namespace
