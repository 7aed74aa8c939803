#pragma once
// A fixture for gateway tests: each test starts with a package fresh from zvAddonCreate at path_.
#include <gtest/gtest.h>

#include <string>

#include "gateway/zvaddon.h"
#include "support/gateway_call.h"

namespace zvtest {

class NewPackageTest : public ::testing::Test {
 protected:
  void SetUp() override { callOk(zvAddonCreate, {path_, properties()}); }
  TempDir dir_;
  std::string path_ = dir_.file("package.zvaddon");
};

}  // namespace zvtest
