// The library's C boundary is exactly the gateway functions.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "support/command.h"

namespace {

TEST(Exports, OnlyGatewayFunctionsHaveCLinkage) {
  const std::string library = std::string(ZV_BINARY_DIR) + "/src/gateway/libzvaddon.so";
  const zvtest::CommandRun nm = zvtest::runCommand("nm -D --defined-only " + zvtest::shellQuoted(library));
  ASSERT_EQ(nm.status, 0) << nm.output;
  std::set<std::string> unmangled;
  std::istringstream lines(nm.output);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string address, type, name;
    fields >> address >> type >> name;
    if (name.empty() || name.rfind("_Z", 0) == 0) continue;  // C++ API
    unmangled.insert(name);
  }
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
