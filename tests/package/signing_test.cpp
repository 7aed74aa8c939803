// Requirements signing at the level of AddonPackage: the built-in keys, signing, and the rule by
// which verifyAddonRequirements judges a package's signatures.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <ctime>
#include <functional>
#include <sstream>
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
      // The author signature answers to a trust store, not to the built-in key.
      {"AuthorSignatureLeadingWithRequirementsIgnored",
       [&](AddonPackage& p) {
         (void)p.getDigitalSignatureManager().sign({PartName(kRequirements), other}, {},
                                                   opc::test::testCertificates().key("rsa"), opc::test::defaultParams());
       },
       false, true, 2},
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

// ---- author signatures ----------------------------------------------------------------------------

constexpr char16_t kCode[] = u"/fsroot/code.m";
const opc::test::TestCertificates& certs() { return opc::test::testCertificates(); }

// A package with requirements and one content file.
void createAuthoredPackage(const ustring& path) {
  createPackage(path);
  modify(path, [](AddonPackage& p) { opc::test::addPart(p.getPackage(), kCode, u"text/plain", "x = 1;\n"); });
}

AddonPackage::AuthorVerification verifyAuthor(const ustring& path, const std::string& trust = "ca.pem") {
  return AddonPackage(path).verifyAuthor(certs().pem(trust));
}

// The base64 body of a PEM certificate, as KeyInfo writes it.
std::string certificateBase64(const std::string& pem) {
  std::string body;
  std::istringstream lines(pem);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("-----")) body += line;
  }
  return body;
}

// Sets SOURCE_DATE_EPOCH for its lifetime.
class SigningTimeAt {
 public:
  explicit SigningTimeAt(std::time_t t) { ::setenv("SOURCE_DATE_EPOCH", std::to_string(t).c_str(), 1); }
  ~SigningTimeAt() { ::unsetenv("SOURCE_DATE_EPOCH"); }
};

TEST_F(SigningTest, AuthorAndRequirementsSignaturesHoldInEitherOrder) {
  for (const char* key : {"rsa", "ec"}) {
    for (const bool authorFirst : {true, false}) {
      SCOPED_TRACE(std::string(key) + (authorFirst ? ", author first" : ", requirements first"));
      createAuthoredPackage(path_);
      if (!authorFirst) sign(path_);
      AddonPackage(path_).signAsAuthor(certs().key(key));
      if (authorFirst) sign(path_);
      // Signing again replaces the author signature: still two signatures.
      AddonPackage(path_).signAsAuthor(certs().key(key));
      EXPECT_TRUE(verify(path_));
      const auto author = verifyAuthor(path_);
      EXPECT_EQ(author.state, AddonPackage::AuthorVerification::State::valid) << author.reason;
      ASSERT_TRUE(author.signer.has_value());
      EXPECT_EQ(author.signer->subject, std::string("CN=") + (key == std::string("rsa") ? "RSA" : "EC") + " Author");
      EXPECT_EQ(author.signer->issuer, "CN=Test Root");
      EXPECT_EQ(author.signer->fingerprint.size(), 32u * 3 - 1);
      const auto found = AddonPackage(path_).readSignatures();
      EXPECT_TRUE(found.requirements);
      EXPECT_EQ(found.author->subject, author.signer->subject);
      AddonPackage package(path_);
      package.getPackage().open(OpenMode::Read);
      EXPECT_EQ(package.getDigitalSignatureManager().getSignatures().size(), 2u);
    }
  }
  createAuthoredPackage(path_);
  EXPECT_EQ(verifyAuthor(path_).state, AddonPackage::AuthorVerification::State::unsigned_);
}

TEST_F(SigningTest, AuthorSignatureRefusesEachTamperingWithItsReason) {
  const auto edit = [](const ustring& part, std::function<void(std::string&)> change) {
    return [=](AddonPackage& p) {
      std::string bytes = opc::test::partBytes(p.getPackage(), part);
      change(bytes);
      opc::test::replacePartContent(p.getPackage(), part, bytes);
    };
  };
  const std::time_t now = std::time(nullptr);
  const struct {
    const char* name;
    std::function<void(AddonPackage&)> change;
    std::string trust;
    std::time_t signingTime;  // 0: now
    std::string reason;
  } cases[] = {
      {"ContentFileByte", edit(kCode, [](std::string& b) { b[0] = 'y'; }), "ca.pem", 0, "part /fsroot/code.m changed"},
      {"MetadataPart", edit(u"/metadata/addonProperties.xml", [](std::string& b) { b.insert(b.rfind("</"), "<x/>"); }),
       "ca.pem", 0, "part /metadata/addonProperties.xml changed"},
      {"ContentType",
       [](AddonPackage& p) {
         p.getPackage().deletePart(PartName(kCode));
         opc::test::addPart(p.getPackage(), kCode, u"application/octet-stream", "x = 1;\n");
       },
       "ca.pem", 0, "part /fsroot/code.m has content type application/octet-stream"},
      {"AddedPart", [](AddonPackage& p) { opc::test::addPart(p.getPackage(), u"/fsroot/new.m", u"text/plain", "y"); },
       "ca.pem", 0, "part /fsroot/new.m was added after signing"},
      {"RemovedPart", [](AddonPackage& p) { p.getPackage().deletePart(PartName(kCode)); }, "ca.pem", 0,
       "part /fsroot/code.m is missing"},
      {"SwappedCertificate",
       edit(u"/_xmlsignatures/sig2.xml",
            [](std::string& b) {
              opc::test::replaceOnce(b, certificateBase64(certs().pem("rsa.pem")), certificateBase64(certs().pem("ec.pem")));
            }),
       "ca.pem", 0, "the signature value does not match"},
      {"UntrustedRoot", [](AddonPackage&) {}, "other.pem", 0, "unable to get local issuer certificate"},
      {"ExpiredCertificate", [](AddonPackage&) {}, "ca.pem", now + 5 * 86400, "certificate has expired"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    createAuthoredPackage(path_);
    sign(path_);
    {
      std::optional<SigningTimeAt> at;
      if (c.signingTime != 0) at.emplace(c.signingTime);
      AddonPackage(path_).signAsAuthor(certs().key("rsa"));
    }
    modify(path_, c.change);
    const auto author = verifyAuthor(path_, c.trust);
    EXPECT_EQ(author.state, AddonPackage::AuthorVerification::State::invalid);
    EXPECT_NE(author.reason.find(c.reason), std::string::npos) << author.reason;
    EXPECT_TRUE(verify(path_)) << "the requirements signature is not the author's to break";
  }
}

TEST_F(SigningTest, AuthorSigningRefusesBadInputAndChangesNothing) {
  const auto key = [](const char* keyFile, const char* certFile, std::optional<std::string> passphrase = {}) {
    return opc::model::CertificateKey{certs().pem(keyFile), std::move(passphrase), certs().pem(certFile), {}};
  };
  const struct {
    const char* name;
    opc::model::CertificateKey key;
    std::string error;
  } cases[] = {
      {"KeyOfAnotherCertificate", key("ec.key", "rsa.pem"), "the private key does not belong to the certificate"},
      {"EncryptedKeyWithoutPassphrase", key("encrypted.key", "rsa.pem"), "encrypted and no passphrase was given"},
      {"WrongPassphrase", key("encrypted.key", "rsa.pem", "wrong"), "cannot be decrypted with the passphrase given"},
      {"MalformedKeyPem", key("rsa.csr", "rsa.pem"), "not a PEM private key"},
      {"MalformedCertificatePem", key("rsa.key", "rsa.key"), "holds no PEM certificate"},
      {"ExpiredCertificate", key("rsa.key", "expired.pem"), "the certificate has expired"},
  };
  createAuthoredPackage(path_);
  const std::string before = opc::test::readFile(opc::test::u8(path_));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      AddonPackage(path_).signAsAuthor(c.key);
      ADD_FAILURE() << "signed";
    } catch (const opc::Exception& e) {
      EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
    }
    EXPECT_EQ(opc::test::readFile(opc::test::u8(path_)), before);
  }
  // With its passphrase the encrypted key signs.
  AddonPackage(path_).signAsAuthor(key("encrypted.key", "rsa.pem", "secret"));
  EXPECT_EQ(verifyAuthor(path_).state, AddonPackage::AuthorVerification::State::valid);
}

}  // namespace
}  // namespace addon::packaging
