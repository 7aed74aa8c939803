// Our package signatures checked by XML-DSig engines we did not write: the XML Security Library,
// through signature_xmlsec_check.c, and the JDK's, through SignatureCheck.java. (tests/gateway/sign_test.cpp runs it on a signed add-on package
// with the built-in key, and the OPC readers on the same package.)
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "interop/signature_checker.h"
#include "opc/signature_test_support.h"

namespace opc {
namespace {

using foundation::crypto::utils::DigestMethod;
using foundation::crypto::utils::SignatureMethod;
using test::OpenMode;
using test::Session;
using test::testKeys;

using zvtest::signature::CommandRun;
using zvtest::signature::shellQuoted;

class SignatureInteropTest : public ::testing::Test {
 protected:
  void SetUp() override {
    package_ = dir_.file("signed.zvaddon");
    test::makeSignablePackage(test::u16(package_));
  }

  void sign(const model::SignatureParams& params) {
    Session s(test::u16(package_), OpenMode::Modify);
    (void)model::DigitalSignatureManager(s.package)
        .sign({model::PartName(test::kRequirementsPart)}, test::requirementsSelectors(), testKeys(0).signing,
              testKeys(0).verification, params);
    s.package.close();
  }

  std::string lastSignaturePart() {
    Session s(test::u16(package_), OpenMode::Read);
    return test::u8(model::DigitalSignatureManager(s.package).getSignatures().back().getSignaturePartName().getName());
  }

  // The checker's verdict on the package's last signature with `key` (a trust store when `keyName`
  // ends in ".pem").
  CommandRun check(const test::Bytes& key, const std::string& keyName = "verification.der") {
    return zvtest::signature::checkSignature(package_, lastSignaturePart(), key, dir_.path(), keyName);
  }

  test::ScratchDir dir_;
  std::string package_;
};

TEST_F(SignatureInteropTest, XmlSecurityLibraryVerifiesOurSignatures) {
  const struct {
    const char* name;
    model::SignatureParams params;
  } cases[] = {
      {"Sha256", model::SignatureParams(DigestMethod::SHA256, SignatureMethod::RSA_SHA256)},
      {"Sha384Digests", model::SignatureParams(DigestMethod::SHA384, SignatureMethod::RSA_SHA256)},
      {"Sha512", model::SignatureParams(DigestMethod::SHA512, SignatureMethod::RSA_SHA512)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::makeSignablePackage(test::u16(package_));
    sign(c.params);
    EXPECT_TRUE(test::verifyAll(test::u16(package_)).at(0).isProperlyCodesigned()) << "our own verification";
    const CommandRun result = check(testKeys(0).verification);
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("reference ok /metadata/systemRequirements.xml?ContentType="), std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("reference ok /_rels/.rels?ContentType="), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("signature ok"), std::string::npos) << result.output;
  }
}

// An author signature (every part, the certificate in KeyInfo) beside the requirements signature,
// checked through the certificate's chain to a trust store by xmlsec1 and by the JDK.
TEST_F(SignatureInteropTest, IndependentEnginesVerifyAuthorSignaturesAgainstTheTrustStore) {
  const auto& certs = test::testCertificates();
  const struct {
    const char* key;
    const char* trust;
    int status;
  } cases[] = {{"rsa", "ca.pem", 0}, {"ec", "ca.pem", 0}, {"rsa", "other.pem", 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key) + " with " + c.trust);
    test::makeSignablePackage(test::u16(package_));
    sign(test::defaultParams());
    {
      Session s(test::u16(package_), OpenMode::Modify);
      (void)model::DigitalSignatureManager(s.package)
          .sign({model::PartName(test::kRequirementsPart), model::PartName(test::kOtherPart)},
                {model::RelationshipSelector(model::PackageHelper::getPackageRootURI(),
                                             model::RelationshipSelectorType::SelectByType, test::kOtherType)},
                certs.key(c.key), test::defaultParams());
      s.package.close();
    }
    const std::string trust = certs.pem(c.trust);
    const CommandRun result = check(test::Bytes(trust.begin(), trust.end()), "trust.pem");
    EXPECT_EQ(result.status, c.status) << result.output;
    EXPECT_EQ(result.output.find("reference ok /metadata/other.xml?ContentType=") != std::string::npos, c.status == 0);
    const CommandRun jdk = zvtest::signature::checkWithJdk(lastSignaturePart(), dir_.path(), "trust.pem");
    EXPECT_EQ(jdk.status, c.status) << jdk.output;
    EXPECT_EQ(jdk.output.find("reference ok /_rels/.rels?ContentType=") != std::string::npos, c.status == 0) << jdk.output;
  }
}

// The engine is not a rubber stamp: what it can see changed, it refuses.
TEST_F(SignatureInteropTest, XmlSecurityLibraryRefusesTamperedPackages) {
  const struct {
    const char* name;
    std::function<void(model::Package&)> change;
    test::Bytes key;
  } cases[] = {
      {"ChangedRequirements",
       [](model::Package& p) { test::replacePartContent(p, test::kRequirementsPart, "<systemRequirements/>"); },
       testKeys(0).verification},
      {"RetargetedRelationship",
       [](model::Package& p) {
         const ustring id = p.getRelationshipsByType(test::kRequirementsType).at(0).getId();
         p.deleteRelationship(id);
         p.createRelationship(model::URI(u"metadata/other.xml"), test::kRequirementsType, id);
       },
       testKeys(0).verification},
      {"AnotherKey", [](model::Package&) {}, testKeys(1).verification},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::makeSignablePackage(test::u16(package_));
    sign(test::defaultParams());
    {
      Session s(test::u16(package_), OpenMode::Modify);
      c.change(s.package);
      s.package.close();
    }
    const CommandRun result = check(c.key);
    EXPECT_EQ(result.status, 1) << result.output;
  }
}

}  // namespace
}  // namespace opc
