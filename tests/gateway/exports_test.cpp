// The library's C boundary is exactly the gateway functions.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>

namespace {

TEST(Exports, OnlyGatewayFunctionsHaveCLinkage) {
  const std::string library = std::string(ZV_BINARY_DIR) + "/src/gateway/libzvaddon.so";
  FILE* pipe = popen(("nm -D --defined-only '" + library + "'").c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> unmangled;
  char line[4096];
  while (std::fgets(line, sizeof line, pipe)) {
    std::istringstream fields(line);
    std::string address, type, name;
    fields >> address >> type >> name;
    if (name.empty() || name.rfind("_Z", 0) == 0) continue;  // C++ API
    unmangled.insert(name);
  }
  ASSERT_EQ(pclose(pipe), 0) << "nm failed on " << library;
  const std::set<std::string> linkerDefined = {"_init", "_fini", "__bss_start", "_edata", "_end"};
  std::set<std::string> gateway;
  for (const std::string& name : unmangled) {
    if (linkerDefined.count(name)) continue;
    EXPECT_EQ(name.rfind("zvAddon", 0), 0u) << "unexpected C symbol " << name;
    gateway.insert(name);
  }
  EXPECT_EQ(gateway.size(), 24u);
}

}  // namespace
