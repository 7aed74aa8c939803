// Requirements signing at the level of AddonPackage: the built-in keys, signing, and the rule by
// which verifyAddonRequirements judges a package's signatures.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <functional>
#include <random>

#include "metadata/addon_properties.h"
#include "metadata/license.h"
#include "metadata/system_requirements.h"
#include "opc/exception.h"
#include "opc/signature_test_support.h"
#include "package/addon_package.h"
#include "package/signing.h"

namespace addon::packaging {
namespace {

using opc::model::DigitalSignatureManager;
using opc::model::PartName;
using opc::test::OpenMode;
using opc::test::testKeys;

constexpr char16_t kRequirements[] = u"/metadata/systemRequirements.xml";

// A new package with its properties and, unless told otherwise, the default requirements record.
void createPackage(ustring path, bool withRequirements = true) {
  AddonProperties properties;
  properties.type = u"ZORVAN Toolbox";
  properties.name = u"Signal Tools";
  AddonPackage package(path, properties);
  if (withRequirements) {
    AddonSystemRequirements requirements;
    package.setSystemRequirements(requirements);
  }
  package.getPackage().close();
}

bool verify(const ustring& path) { return AddonPackage(path).verifyAddonRequirements(); }
void sign(const ustring& path) { AddonPackage(path).signAddonRequirements(); }

// Runs `change` on the open package and closes it.
void modify(const ustring& path, const std::function<void(AddonPackage&)>& change) {
  AddonPackage package(path);
  package.getPackage().open(OpenMode::Modify);
  change(package);
  package.getPackage().close();
}

// A signature with a test key (not the built-in one) over `parts`, beside whatever is there.
void signWithForeignKey(AddonPackage& package, const std::vector<PartName>& parts) {
  (void)package.getDigitalSignatureManager().sign(parts, {}, testKeys(0).signing, testKeys(0).verification,
                                                  opc::test::defaultParams());
}

class SigningTest : public ::testing::Test {
 protected:
  opc::test::ScratchDir dir_;
  ustring path_ = dir_.ufile("addon.zvaddon");
};

TEST(CustomObfuscationTest, IsOneByteMaskAndItsOwnInverse) {
  std::mt19937 random(7);
  const std::vector<std::vector<std::uint8_t>> inputs{
      {}, {0xFF, 0x00, 0x5A}, [&] {
        std::vector<std::uint8_t> bytes(294);
        for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
        return bytes;
      }()};
  std::optional<std::uint8_t> mask;
  for (const auto& input : inputs) {
    SCOPED_TRACE(input.size());
    const auto masked = AddonPackage::customObfuscation(input);
    ASSERT_EQ(masked.size(), input.size());
    EXPECT_EQ(AddonPackage::customObfuscation(masked), input);
    for (std::size_t i = 0; i < input.size(); ++i) {
      const auto m = static_cast<std::uint8_t>(masked[i] ^ input[i]);
      if (!mask) mask = m;
      EXPECT_EQ(m, *mask) << "position " << i;
    }
  }
  ASSERT_TRUE(mask.has_value());
  EXPECT_NE(*mask, 0) << "a zero mask would store the keys in the clear";
}

TEST(BuiltInKeyTest, VerificationKeyIsAnRsa2048PublicKeyWithItsPem) {
  const std::vector<std::uint8_t> key = getVerificationKey();
  ASSERT_EQ(key.size(), 294u);
  const unsigned char* p = key.data();
  EVP_PKEY* decoded = d2i_PUBKEY(nullptr, &p, static_cast<long>(key.size()));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(EVP_PKEY_get_base_id(decoded), EVP_PKEY_RSA);
  EXPECT_EQ(EVP_PKEY_get_bits(decoded), 2048);
  EVP_PKEY_free(decoded);
  const std::string pem = getVerificationKeyPem();
  EXPECT_EQ(pem.rfind("-----BEGIN PUBLIC KEY-----\n", 0), 0u) << pem;
  EXPECT_NE(pem.find("-----END PUBLIC KEY-----"), std::string::npos);
}

// Each case signs the requirements with the built-in key, makes its change, may sign again, and
// says what verification gives and how many signatures remain.
TEST_F(SigningTest, VerificationAfterLaterChanges) {
  const PartName other(u"/metadata/addonProperties.xml");
  const auto rewrite = [](const ustring& part, const std::function<std::string(std::string)>& edit) {
    return [=](AddonPackage& p) {
      opc::test::replacePartContent(p.getPackage(), part, edit(opc::test::partBytes(p.getPackage(), part)));
    };
  };
  const struct {
    const char* name;
    std::function<void(AddonPackage&)> change;
    bool signAgain;
    bool verifies;
    std::size_t signatures;
  } cases[] = {
      {"RequirementsRewrittenUnchanged", [](AddonPackage& p) { AddonSystemRequirements same; p.setSystemRequirements(same); },
       false, true, 1},
      {"RequirementsChanged",
       rewrite(kRequirements, [](std::string xml) { return xml.insert(xml.rfind("</"), "<x/>"); }), false, false, 1},
      {"RequirementsChangedAndSignedAgain",
       rewrite(kRequirements, [](std::string xml) { return xml.insert(xml.rfind("</"), "<x/>"); }), true, true, 1},
      {"ForeignSignatureOverAnotherPartIgnored", [&](AddonPackage& p) { signWithForeignKey(p, {other}); }, false,
       true, 2},
      {"ForeignSignatureLeadingWithRequirementsFails",
       [&](AddonPackage& p) { signWithForeignKey(p, {PartName(kRequirements), other}); }, false, false, 2},
      {"ForeignSignatureWithRequirementsSecondIgnored",
       [&](AddonPackage& p) { signWithForeignKey(p, {other, PartName(kRequirements)}); }, false, true, 2},
      // Signing again replaces only a signature of the same parts and the same selectors.
      {"ForeignSignatureOverRequirementsWithOtherSelectorsSurvivesSigningAgain",
       [&](AddonPackage& p) { signWithForeignKey(p, {PartName(kRequirements)}); }, true, false, 2},
      {"UnparsableForeignSignatureSkipped",
       [&](AddonPackage& p) {
         signWithForeignKey(p, {other});
         rewrite(u"/_xmlsignatures/sig2.xml", [](std::string) { return "<Signature"; })(p);
       },
       false, true, 1},
      // A signature part that does not parse names no part: skipped, as a removed one would be.
      {"UnparsableRequirementsSignatureSkipped", rewrite(u"/_xmlsignatures/sig1.xml", [](std::string) { return "x"; }),
       false, true, 0},
      {"RequirementsSignatureOfABrokenStructureFails",
       rewrite(u"/_xmlsignatures/sig1.xml", [](std::string xml) { return xml.insert(xml.rfind("</"), "<x/>"); }),
       false, false, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    createPackage(path_);
    sign(path_);
    modify(path_, c.change);
    if (c.signAgain) sign(path_);
    EXPECT_EQ(verify(path_), c.verifies);
    AddonPackage package(path_);
    package.getPackage().open(OpenMode::Read);
    EXPECT_EQ(package.getDigitalSignatureManager().getSignatures().size(), c.signatures);
  }
}

}  // namespace
}  // namespace addon::packaging
