#include "opc/signature/digital_signature_manager.h"

#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "opc/exception.h"
#include "signature_test_support.h"

namespace opc::model {
namespace {

using Result = DigitalSignatureVerificationStatus::Result;
using test::KeyPair;
using test::kOtherPart;
using test::kOtherType;
using test::kRequirementsPart;
using test::kRequirementsType;
using test::OpenMode;
using test::Session;
using test::testKeys;
using test::u8;

// Verdicts compare as numbers; the detail says what was wrong.
int code(Result r) { return static_cast<int>(r); }

// Replaces the bytes of the package's first signature part.
void replaceSignaturePart(Package& p, const std::string& xml) {
  test::replacePartContent(p, DigitalSignatureManager(p).getSignatures().at(0).getSignaturePartName().getName(), xml);
}

ustring requirementsRelationshipId(const Package& package) {
  return package.getRelationshipsByType(kRequirementsType).at(0).getId();
}

class SignatureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.ufile("signed.zip");
    test::makeSignablePackage(path_);
  }

  // Runs `edit` on the package in a modifying session and closes it.
  void edit(const std::function<void(Package&)>& change) {
    Session s(path_, OpenMode::Modify);
    change(s.package);
    s.package.close();
  }

  test::ScratchDir dir_;
  ustring path_;
};

TEST_F(SignatureTest, SignedPackageReadsBackWhatWasSigned) {
  test::signRequirements(path_);
  Session s(path_, OpenMode::Read);
  DigitalSignatureManager manager(s.package);
  ASSERT_TRUE(manager.isPackageSigned());
  const auto signatures = manager.getSignatures();
  ASSERT_EQ(signatures.size(), 1u);
  EXPECT_EQ(signatures[0].getSignedPartNames(), std::vector<PartName>{PartName(kRequirementsPart)});
  const std::vector<RelationshipSelector> expected{
      RelationshipSelector(PackageHelper::getPackageRootURI(), RelationshipSelectorType::SelectByType,
                           kRequirementsType),
      RelationshipSelector(PackageHelper::getPackageRootURI(), RelationshipSelectorType::SelectById,
                           requirementsRelationshipId(s.package))};
  EXPECT_EQ(signatures[0].getRelationshipSelectors(), expected);
  EXPECT_TRUE(std::regex_match(u8(signatures[0].getSigningTime()),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")))
      << u8(signatures[0].getSigningTime());
  const auto status = manager.verifySignature(signatures[0], testKeys(0).verification);
  EXPECT_TRUE(status.isProperlyCodesigned()) << status.getDetail();

  // The origin relationship and [Content_Types].xml stay outside what was signed.
  const std::string xml = test::signaturePartText(s.package);
  EXPECT_EQ(xml.find("digital-signature/origin"), std::string::npos);
  EXPECT_EQ(xml.find("Content_Types"), std::string::npos);
}

// Every change to what was signed is caught, each with the failure that names it; changes outside
// it keep the signature valid.
TEST_F(SignatureTest, TamperingIsCaughtAndOnlyTampering) {
  // A signature value made by another key over the same content.
  std::string foreignValue;
  {
    const ustring other = dir_.ufile("other.zip");
    test::makeSignablePackage(other);
    test::signRequirements(other, testKeys(1));
    Session s(other, OpenMode::Read);
    std::smatch m;
    const std::string xml = test::signaturePartText(s.package);
    ASSERT_TRUE(std::regex_search(xml, m, std::regex("<SignatureValue>([^<]+)</SignatureValue>")));
    foreignValue = m[1];
  }
  const struct {
    const char* name;
    std::function<void(Package&)> change;
    Result expected;
  } cases[] = {
      {"ChangedByteInRequirements",
       [](Package& p) {
         std::string bytes = test::partBytes(p, kRequirementsPart);
         bytes[bytes.find("mac=\"false\"") + 5] = 't';
         test::replacePartContent(p, kRequirementsPart, bytes);
       },
       Result::DigestMismatch},
      {"ChangedContentTypeOfRequirements",
       [](Package& p) {
         const std::string bytes = test::partBytes(p, kRequirementsPart);
         p.deletePart(PartName(kRequirementsPart));
         test::addPart(p, kRequirementsPart, u"application/xml", bytes);
       },
       Result::ContentTypeMismatch},
      {"RequirementsPartRemoved", [](Package& p) { p.deletePart(PartName(kRequirementsPart)); }, Result::PartMissing},
      {"RequirementsRelationshipRemoved",
       [](Package& p) { p.deleteRelationship(requirementsRelationshipId(p)); }, Result::DigestMismatch},
      {"RequirementsRelationshipRetargeted",
       [](Package& p) {
         const ustring id = requirementsRelationshipId(p);
         p.deleteRelationship(id);
         p.createRelationship(URI(u"metadata/other.xml"), kRequirementsType, id);
       },
       Result::DigestMismatch},
      {"SecondRequirementsRelationshipAdded",
       [](Package& p) { p.createRelationship(URI(u"metadata/other.xml"), kRequirementsType); },
       Result::DigestMismatch},
      {"IdsSwappedWithAnotherRelationship",
       [](Package& p) {
         const ustring requirementsId = requirementsRelationshipId(p);
         const ustring otherId = p.getRelationshipsByType(kOtherType).at(0).getId();
         p.deleteRelationship(requirementsId);
         p.deleteRelationship(otherId);
         p.createRelationship(URI(u"metadata/systemRequirements.xml"), kRequirementsType, otherId);
         p.createRelationship(URI(u"metadata/other.xml"), kOtherType, requirementsId);
       },
       Result::DigestMismatch},
      {"SignatureValueSwapped",
       [&](Package& p) {
         std::string xml = test::signaturePartText(p);
         xml = std::regex_replace(xml, std::regex("<SignatureValue>[^<]+</SignatureValue>"),
                                  "<SignatureValue>" + foreignValue + "</SignatureValue>");
         replaceSignaturePart(p, xml);
       },
       Result::SignatureMismatch},
      {"SecondPackageObjectAppended",
       [](Package& p) {
         std::string xml = test::signaturePartText(p);
         test::replaceOnce(xml, "</Signature>", "<Object Id=\"idPackageObject\"></Object></Signature>");
         replaceSignaturePart(p, xml);
       },
       Result::MalformedSignature},
      {"ManifestEdited",
       [](Package& p) {
         std::string xml = test::signaturePartText(p);
         test::replaceOnce(xml, "?ContentType=application/vnd.kestrelon.zorvan.addon.systemRequirements+xml",
                           "?ContentType=application/xml");
         replaceSignaturePart(p, xml);
       },
       Result::DigestMismatch},
      {"PartAdded", [](Package& p) { test::addPart(p, u"/content/readme.txt", u"text/plain", "hello"); }, Result::Valid},
      {"UnsignedPartChanged", [](Package& p) { test::replacePartContent(p, kOtherPart, "<other changed=\"1\"/>"); },
       Result::Valid},
      {"UnrelatedRelationshipAdded",
       [](Package& p) { p.createRelationship(URI(u"metadata/other.xml"), u"https://schemas.test/unrelated"); },
       Result::Valid},
      {"RelationshipsReordered",
       [](Package& p) {
         const ustring id = requirementsRelationshipId(p);
         p.deleteRelationship(id);
         p.createRelationship(URI(u"metadata/systemRequirements.xml"), kRequirementsType, id);
       },
       Result::Valid},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::makeSignablePackage(path_);
    test::signRequirements(path_);
    edit(c.change);
    const auto statuses = test::verifyAll(path_);
    ASSERT_EQ(statuses.size(), 1u);
    EXPECT_EQ(code(statuses[0].getResult()), code(c.expected)) << statuses[0].getDetail();
    EXPECT_EQ(statuses[0].isProperlyCodesigned(), c.expected == Result::Valid);
  }
}

TEST_F(SignatureTest, VerificationTrustsOnlyTheGivenKey) {
  test::signRequirements(path_);
  const struct {
    const char* name;
    test::Bytes key;
    Result expected;
  } cases[] = {
      {"SigningKeysPartner", testKeys(0).verification, Result::Valid},
      {"AnotherKey", testKeys(1).verification, Result::SignatureMismatch},
      {"NotAKey", {0x30, 0x03, 0x02, 0x01, 0x01}, Result::BadKey},
      {"PrivateKeyInsteadOfPublic", testKeys(0).signing, Result::BadKey},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto statuses = test::verifyAll(path_, c.key);
    ASSERT_EQ(statuses.size(), 1u);
    EXPECT_EQ(code(statuses[0].getResult()), code(c.expected)) << statuses[0].getDetail();
  }
}

// A failed sign throws and leaves the package model as it was.
TEST_F(SignatureTest, SignRefusesWhatItCannotSignAndChangesNothing) {
  const KeyPair small = test::makeKeyPair(1024);
  const URI root = PackageHelper::getPackageRootURI();
  const struct {
    const char* name;
    std::vector<PartName> parts;
    std::vector<RelationshipSelector> selectors;
    test::Bytes signing;
    test::Bytes verification;
  } cases[] = {
      {"NoPart", {}, test::requirementsSelectors(), testKeys(0).signing, testKeys(0).verification},
      {"RelationshipsPartAsAPart", {PartName(u"/_rels/.rels")}, {}, testKeys(0).signing, testKeys(0).verification},
      {"SelectorSelectsNothing",
       {PartName(kRequirementsPart)},
       {RelationshipSelector(root, RelationshipSelectorType::SelectByType, u"urn:none")},
       testKeys(0).signing,
       testKeys(0).verification},
      {"KeysOfDifferentPairs", {PartName(kRequirementsPart)}, {}, testKeys(0).signing, testKeys(1).verification},
      {"KeyTooShort", {PartName(kRequirementsPart)}, {}, small.signing, small.verification},
  };
  // Signed once already, so that the origin exists and a failure must not disturb it either.
  test::signRequirements(path_, testKeys(1));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Session s(path_, OpenMode::Modify);
    DigitalSignatureManager manager(s.package);
    const std::size_t parts = s.package.getPartCount();
    const std::size_t relationships = s.package.getRelationships().size();
    EXPECT_THROW((void)manager.sign(c.parts, c.selectors, c.signing, c.verification, test::defaultParams()),
                 opc::Exception);
    EXPECT_EQ(s.package.getPartCount(), parts);
    EXPECT_EQ(s.package.getRelationships().size(), relationships);
    EXPECT_EQ(manager.getSignatures().size(), 1u);
  }
}

// Signing the same scope again replaces the earlier signature, so re-signing after an edit repairs
// the package; signatures of other scopes stay beside it. Removing the last one removes the origin.
TEST_F(SignatureTest, ResigningReplacesTheScopesSignatureAndRemovingTheLastRemovesTheOrigin) {
  // Parts below /_xmlsignatures/: each signature's and, while one is left, the origin.
  const auto signatureFolderParts = [](const Package& package) {
    std::size_t n = 0;
    for (const auto& part : package.getParts()) n += u8(part->getPartName().getName()).starts_with("/_xmlsignatures/");
    return n;
  };
  test::signRequirements(path_);
  edit([](Package& p) { test::replacePartContent(p, kRequirementsPart, "<systemRequirements/>"); });
  ASSERT_FALSE(test::verifyAll(path_).at(0).isProperlyCodesigned());
  edit([](Package& p) {
    (void)DigitalSignatureManager(p).sign({PartName(kOtherPart)}, {}, testKeys(0).signing, testKeys(0).verification,
                                          test::defaultParams());
  });
  test::signRequirements(path_);
  {
    Session s(path_, OpenMode::Read);
    DigitalSignatureManager manager(s.package);
    const auto signatures = manager.getSignatures();
    ASSERT_EQ(signatures.size(), 2u);
    std::vector<PartName> firstParts;
    for (const auto& signature : signatures) {
      firstParts.push_back(signature.getSignedPartNames().at(0));
      const auto status = manager.verifySignature(signature, testKeys(0).verification);
      EXPECT_TRUE(status.isProperlyCodesigned()) << status.getDetail();
    }
    EXPECT_EQ(firstParts, (std::vector<PartName>{PartName(kOtherPart), PartName(kRequirementsPart)}));
    EXPECT_EQ(signatureFolderParts(s.package), 3u);
  }
  edit([](Package& p) {
    DigitalSignatureManager manager(p);
    for (const auto& signature : manager.getSignatures()) manager.removeSignature(signature);
    EXPECT_THROW(manager.removeSignature(DigitalSignature(PartName(u"/_xmlsignatures/sig1.xml"), {}, {}, {})),
                 opc::Exception);
  });
  Session s(path_, OpenMode::Read);
  EXPECT_FALSE(DigitalSignatureManager(s.package).isPackageSigned());
  EXPECT_TRUE(s.package.getRelationshipsByType(PackageHelper::getDigitalSignatureOriginRelationshipType()).empty());
  EXPECT_EQ(signatureFolderParts(s.package), 0u);
}

}  // namespace
}  // namespace opc::model
