// How verifyAddonRequirements judges a package's signatures, and the author signature's verdict with its
// reason (what sign refuses, one signature's verdicts: tests/opc/signature_test.cpp).
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <ctime>
#include <functional>
#include <regex>

#include "gateway/frame.h"
#include "metadata/addon_properties.h"
#include "metadata/system_requirements.h"
#include "opc/exception.h"
#include "opc/opc_test_support.h"
#include "package/addon_package.h"
#include "package/signing.h"

namespace addon::packaging {
namespace {

using opc::model::PartName;
using namespace opc::test;
using State = AddonPackage::AuthorVerification::State;

constexpr char16_t kRequirements[] = u"/metadata/systemRequirements.xml";
constexpr char16_t kCode[] = u"/fsroot/code.m";
const TestCertificates& certs() { return testCertificates(); }

void sign(const ustring& path) { AddonPackage(path).signAddonRequirements(); }

// What verifyAddonRequirements says, and how many signatures the package holds.
std::pair<bool, std::size_t> requirementsVerdict(const ustring& path) {
  AddonPackage package(path);
  package.getPackage().open(OpenMode::Read);
  return {AddonPackage(path).verifyAddonRequirements(), package.getDigitalSignatureManager().getSignatures().size()};
}

// Rewrites a part's bytes through `edit`.
std::function<void(AddonPackage&)> rewrite(const ustring& part, const std::function<void(std::string&)>& edit) {
  return [=](AddonPackage& p) {
    std::string bytes = partBytes(p.getPackage(), part);
    edit(bytes);
    replacePartContent(p.getPackage(), part, bytes);
  };
}

// A signature with a test key (not the built-in one) over `parts`, beside whatever is there.
std::function<void(AddonPackage&)> foreignSignature(std::vector<PartName> parts) {
  return [=](AddonPackage& p) {
    const KeyPair& keys = testKeys(0);
    (void)p.getDigitalSignatureManager().sign(parts, {}, keys.signing, keys.verification, defaultParams());
  };
}

// A new package with its properties, the default requirements record and one content file.
void create(ustring path) {
  AddonProperties properties;
  properties.type = u"ZORVAN Toolbox";
  properties.name = u"Signal Tools";
  AddonPackage package(path, properties);
  AddonSystemRequirements requirements;
  package.setSystemRequirements(requirements);
  addPart(package.getPackage(), kCode, u"text/plain", "x = 1;\n");
  package.getPackage().close();
}

// The published PEM is the verifying half of the built-in pair, an RSA-2048 key.
TEST(BuiltInKeyTest, PemIsTheVerificationKey) {
  const std::string pem = getVerificationKeyPem();
  BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  EVP_PKEY* key = PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr);
  BIO_free(bio);
  ASSERT_NE(key, nullptr) << pem;
  EXPECT_EQ(EVP_PKEY_get_bits(key), 2048);
  unsigned char* der = nullptr;
  const int n = i2d_PUBKEY(key, &der);
  EXPECT_EQ(std::vector<std::uint8_t>(der, der + n), getVerificationKey());
  OPENSSL_free(der);
  EVP_PKEY_free(key);
}

// After signing (the requirements with the built-in key; the author twice, the second replacing the
// first, where a row gives its verdict), a change and maybe signing again: what each verdict says.
TEST(SigningTest, VerdictsAfterLaterChanges) {
  ScratchDir dir;
  const ustring path = dir.ufile("addon.zvaddon");
  const PartName other(u"/metadata/addonProperties.xml");
  const PartName requirements(kRequirements);
  // The author's certificate in KeyInfo replaced by another one of the same root.
  const auto swapCertificate = [](AddonPackage& p) {
    const auto base64 = [](std::string pem) { return std::regex_replace(pem, std::regex("-----[A-Z ]+-----|\n"), ""); };
    const std::string rsa = base64(certs().pem("rsa.pem"));  // absent, replace throws std::out_of_range
    for (const auto& s : p.getDigitalSignatureManager().getSignatures()) {
      if (s.getCertificates().empty()) continue;
      rewrite(s.getSignaturePartName().getName(),
              [&](std::string& b) { b.replace(b.find(rsa), rsa.size(), base64(certs().pem("ec.pem"))); })(p);
    }
  };
  const auto none = [](AddonPackage&) {};
  const struct {
    const char* name;
    std::function<void(AddonPackage&)> change;
    bool verifies;           // verifyAddonRequirements
    std::size_t signatures;  // left in the package
    const char* author = nullptr;  // the author verdict's reason ("": valid); nullptr: no author signature
    bool signAgain = false;
    bool authorFirst = false;
    std::time_t signingTime = 0;  // 0: now
  } cases[] = {
      {"RewrittenUnchanged", [](AddonPackage& p) { AddonSystemRequirements same; p.setSystemRequirements(same); }, true,
       1},
      {"ForeignSignatureOverAnotherPartIgnored", foreignSignature({other}), true, 2},
      {"ForeignSignatureLeadingWithRequirementsFails", foreignSignature({requirements, other}), false, 2},
      // The author signature answers to a trust store, not to the built-in key.
      {"AuthorSignatureLeadingWithRequirementsIgnored",
       [&](AddonPackage& p) {
         (void)p.getDigitalSignatureManager().sign({requirements, other}, {}, certs().key("rsa"), defaultParams());
       },
       true, 2},
      {"ForeignSignatureWithRequirementsSecondIgnored", foreignSignature({other, requirements}), true, 2},
      // Signing again replaces only a signature of the same parts and the same selectors.
      {"ForeignSignatureWithOtherSelectorsSurvivesSigningAgain", foreignSignature({requirements}), false, 2, nullptr,
       true},
      {"UnparsableForeignSignatureSkipped",
       [&](AddonPackage& p) {
         foreignSignature({other})(p);
         rewrite(u"/_xmlsignatures/sig2.xml", [](std::string& b) { b = "<Signature"; })(p);
       },
       true, 1},
      // A signature part that does not parse names no part: skipped, as a removed one would be.
      {"UnparsableRequirementsSignatureSkipped", rewrite(u"/_xmlsignatures/sig1.xml", [](std::string& b) { b = "x"; }),
       true, 0},
      {"SignatureOfABrokenStructureFails",
       rewrite(u"/_xmlsignatures/sig1.xml", [](std::string& b) { b.insert(b.rfind("</"), "<x/>"); }), false, 1},
      {"AuthorValidSignedFirst", none, true, 2, "", false, true},
      {"AuthorContentFileByte", rewrite(kCode, [](std::string& b) { b[0] = 'y'; }), true, 2,
       "part /fsroot/code.m changed"},
      {"AuthorContentType",
       [](AddonPackage& p) {
         p.getPackage().deletePart(PartName(kCode));
         addPart(p.getPackage(), kCode, u"application/octet-stream", "x = 1;\n");
       },
       true, 2, "part /fsroot/code.m has content type application/octet-stream"},
      {"AuthorAddedRelationship",
       [](AddonPackage& p) {
         p.getPackage().getRelationships().createRelationship(PartName(kCode).getURI(), u"urn:zv:extra");
       },
       true, 2, "a relationship of type urn:zv:extra from / was added after signing"},
      {"AuthorRemovedPart", [](AddonPackage& p) { p.getPackage().deletePart(PartName(kCode)); }, true, 2,
       "part /fsroot/code.m is missing"},
      {"AuthorSwappedCertificate", swapCertificate, true, 2, "the signature value does not match"},
      {"AuthorExpiredCertificate", none, true, 2, "certificate has expired", false, false,
       std::time(nullptr) + 5 * 86400},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    create(path);
    if (!c.authorFirst) sign(path);
    if (c.signingTime != 0) ::setenv("SOURCE_DATE_EPOCH", std::to_string(c.signingTime).c_str(), 1);
    for (int i = 0; c.author != nullptr && i < 2; ++i) AddonPackage(path).signAsAuthor(certs().key("rsa"));
    ::unsetenv("SOURCE_DATE_EPOCH");
    if (c.authorFirst) sign(path);
    zvaddon::gateway::withPackage(path, OpenMode::Modify, c.change);
    if (c.signAgain) sign(path);
    EXPECT_EQ(requirementsVerdict(path), std::pair(c.verifies, c.signatures));
    if (c.author == nullptr) continue;
    const auto author = AddonPackage(path).verifyAuthor(certs().pem("ca.pem"));
    const std::string reason = c.author;
    EXPECT_EQ(author.state, reason.empty() ? State::valid : State::invalid) << author.reason;
    EXPECT_NE(author.reason.find(reason), std::string::npos) << author.reason;
    if (!reason.empty()) continue;
    EXPECT_EQ(author.signer.value().subject, "CN=RSA Author");
    EXPECT_EQ(author.signer->issuer, "CN=Test Root");
    EXPECT_EQ(author.signer->fingerprint.size(), 32u * 3 - 1);
    const auto found = AddonPackage(path).readSignatures();
    EXPECT_TRUE(found.requirements);
    EXPECT_EQ(found.author.value().subject, author.signer->subject);
  }
}

}  // namespace
}  // namespace addon::packaging
