// zvAddonSign as the host calls it, and the signed package as others see it: our verification, the
// independent XML-DSig checker with the built-in key, and the OPC readers. (Which signatures
// verification accepts: tests/package/signing_test.cpp.)
#include <gtest/gtest.h>

#include "foundation/i18n.h"
#include "gateway/zvaddon.h"
#include "interop/signature_checker.h"
#include "package/addon_package.h"
#include "package/signing.h"
#include "gateway/new_package_test.h"
#include "support/gateway_call.h"

namespace {

using zvtest::callOk;
using zvtest::Json;

const Json kRequirements = {
    {"productDependency", Json::array({{{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}}})},
    {"platformCompatibility", {{"win", "true"}, {"linux", "true"}, {"mac", "false"}, {"ZORVANOnline", "true"}}},
    {"releaseCompatibility", {{"start", "R2019b"}, {"end", "R2024a"}}}};

class SignFunction : public zvtest::NewPackageTest {};

// Other tools check the signature with the published key; readers open the signed package.
TEST_F(SignFunction, IndependentToolsAcceptTheSignedPackage) {
  callOk(zvAddonSetSystemRequirements, {path_, kRequirements});
  callOk(zvAddonSign, {path_});
  EXPECT_TRUE(addon::packaging::AddonPackage(fl::i18n::from_utf8(path_)).verifyAddonRequirements());

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
