// zvAddonSign as the host calls it, and the signed package as others see it: the exported
// verification, the independent XML-DSig checker with the built-in key, and the OPC readers.
#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "interop/signature_checker.h"
#include "package/addon_package.h"
#include "package/signing.h"
#include "gateway/new_package_test.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

const Json kRequirements = {
    {"productDependency", Json::array({{{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}}})},
    {"platformCompatibility", {{"win", "true"}, {"linux", "true"}, {"mac", "false"}, {"ZORVANOnline", "true"}}},
    {"releaseCompatibility", {{"start", "R2019b"}, {"end", "R2024a"}}}};

ustring u16(const std::string& text) { return ustring(text.begin(), text.end()); }  // ASCII paths

bool verify(const std::string& path) { return addon::packaging::AddonPackage(u16(path)).verifyAddonRequirements(); }

class SignFunction : public zvtest::NewPackageTest {};

TEST_F(SignFunction, SignedRequirementsVerifyAndLaterEditsAreSeen) {
  callOk(zvAddonSetSystemRequirements, {path_, kRequirements});
  EXPECT_TRUE(verify(path_)) << "unsigned passes";
  callOk(zvAddonSign, {path_});
  EXPECT_TRUE(verify(path_));
  callOk(zvAddonSetLicense, {path_, {{"type", "MIT"}, {"text", "Permission is hereby granted"}}});
  EXPECT_TRUE(verify(path_)) << "the licence is outside the signature";
  Json changed = kRequirements;
  changed["platformCompatibility"]["mac"] = "true";
  callOk(zvAddonSetSystemRequirements, {path_, changed});
  EXPECT_FALSE(verify(path_));
  callOk(zvAddonSign, {path_});
  EXPECT_TRUE(verify(path_)) << "signing again replaces the stale signature";
}

TEST_F(SignFunction, FailuresRaiseTheirKeyAndLeaveTheFileAsItWas) {
  const std::string corrupt = dir_.file("corrupt.zvaddon");
  zvtest::writeBytes(corrupt, "PK\x03\x04 not a zip archive");
  const struct {
    const char* name;
    std::string path;
    const char* key;
    std::size_t arguments;
  } cases[] = {
      {"NoRequirementsPart", path_, "ZVADDON_BUILTINS_ERROR_SIGN", 2},
      {"CorruptPackage", corrupt, "ZVADDON_BUILTINS_ERROR_SIGN", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string before = zvtest::readBytes(c.path);
    const auto r = call(zvAddonSign, {c.path});
    ASSERT_EQ(r.key(), c.key);
    ASSERT_EQ(r.error->arguments().size(), c.arguments);
    EXPECT_EQ(std::get<ustring>(r.error->arguments()[0]), u16(c.path));
    if (c.arguments == 2) {
      EXPECT_FALSE(std::get<std::string>(r.error->arguments()[1]).empty());
    }
    EXPECT_EQ(zvtest::readBytes(c.path), before);
  }
}

// Other tools check the signature with the published key; readers open the signed package.
TEST_F(SignFunction, IndependentToolsAcceptTheSignedPackage) {
  callOk(zvAddonSetSystemRequirements, {path_, kRequirements});
  callOk(zvAddonSign, {path_});

  const auto checked = zvtest::signature::checkSignature(path_, "/_xmlsignatures/sig1.xml",
                                                         addon::packaging::getVerificationKey(), dir_.path());
  EXPECT_EQ(checked.status, 0) << checked.output;
  EXPECT_NE(checked.output.find("reference ok /metadata/systemRequirements.xml?"), std::string::npos)
      << checked.output;

  const std::string driver = std::string(ZV_SOURCE_DIR) + "/tests/interop/opc_summary.py";
  const auto readers = zvtest::signature::runCommand("/usr/bin/python3 " + zvtest::signature::shellQuoted(driver) +
                                                     " --reader both --zip-test " +
                                                     zvtest::signature::shellQuoted(path_));
  EXPECT_EQ(readers.status, 0) << readers.output;
  EXPECT_NE(readers.output.find("application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml"),
            std::string::npos)
      << readers.output;
}

}  // namespace
