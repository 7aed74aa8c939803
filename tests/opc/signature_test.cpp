// Signatures over parts and relationships: what one reads back, the verdict after each change (only
// a change to what was signed, or another key, breaks it), what sign refuses, re-signing and removal.
#include "opc/signature/digital_signature_manager.h"

#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "opc/exception.h"
#include "opc/signature/canonical_xml.h"
#include "opc/xml/xerces_helper.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;
using Result = DigitalSignatureVerificationStatus::Result;

// Signs the requirements part and its root relationship in its own session.
void signRequirements(const ustring& path, const KeyPair& keys = testKeys(0)) {
  withPackage(path, OpenMode::Modify, [&](model::Package& p) {
    (void)model::DigitalSignatureManager(p).sign({model::PartName(kRequirementsPart)}, requirementsSelectors(), keys.signing,
                                                 keys.verification, defaultParams());
  });
}

// The verdict on every signature of the package, in order.
std::vector<DigitalSignatureVerificationStatus> verifyAll(const ustring& path,
                                                          const Bytes& key = testKeys(0).verification) {
  Session s(path, OpenMode::Read);
  DigitalSignatureManager manager(s.package);
  std::vector<DigitalSignatureVerificationStatus> out;
  for (const auto& signature : manager.getSignatures()) out.push_back(manager.verifySignature(signature, key));
  return out;
}

ustring requirementsId(const Package& package) {
  return package.getRelationships().getRelationshipsByType(kRequirementsType).at(0).getId();
}

// Replaces the first match of `pattern` in the package's first signature part.
std::function<void(Package&)> editSignature(const std::string& pattern, const std::string& to) {
  return [=](Package& p) {
    const ustring part = DigitalSignatureManager(p).getSignatures().at(0).getSignaturePartName().getName();
    replacePartContent(p, part, std::regex_replace(partBytes(p, part), std::regex(pattern), to, std::regex_constants::format_first_only));
  };
}

class SignatureTest : public ::testing::Test {
 protected:
  void SetUp() override { makeSignablePackage(path_); }
  void edit(const std::function<void(Package&)>& change) { withPackage(path_, OpenMode::Modify, change); }
  ScratchDir dir_;
  ustring path_ = dir_.ufile("signed.zip");
};

// Every change to what was signed is caught with the failure that names it; changes outside it keep
// the signature valid; only the signing key's partner verifies.
TEST_F(SignatureTest, VerdictsAfterChangesAndWithOtherKeys) {
  const auto retarget = [](Package& p, const char16_t* target, const ustring& type, const ustring& id) {
    p.getRelationships().deleteRelationship(id);
    p.getRelationships().createRelationship(URI(target), type, id);
  };
  const struct {
    const char* name;
    std::function<void(Package&)> change;
    Result expected;
    Bytes key = testKeys(0).verification;
  } cases[] = {
      {"ChangedContent", [](Package& p) { replacePartContent(p, kRequirementsPart, partBytes(p, kRequirementsPart) + " "); },
       Result::DigestMismatch},
      {"ChangedContentType",
       [](Package& p) {
         const std::string bytes = partBytes(p, kRequirementsPart);
         p.deletePart(PartName(kRequirementsPart));
         addPart(p, kRequirementsPart, u"application/xml", bytes);
       },
       Result::ContentTypeMismatch},
      {"PartRemoved", [](Package& p) { p.deletePart(PartName(kRequirementsPart)); }, Result::PartMissing},
      {"SecondRelationshipOfTheType", [](Package& p) { p.getRelationships().createRelationship(URI(u"metadata/other.xml"), kRequirementsType); },
       Result::DigestMismatch},
      {"SecondPackageObject", editSignature("</Signature>", "<Object Id=\"idPackageObject\"></Object></Signature>"),
       Result::MalformedSignature},
      {"UnknownAttribute", editSignature("<SignatureValue>", "<SignatureValue Foo=\"1\">"), Result::MalformedSignature},
      {"ManifestEdited", editSignature("ContentType=[^\"]*systemRequirements\\+xml", "ContentType=application/xml"),
       Result::DigestMismatch},
      {"PartAdded", [](Package& p) { addPart(p, u"/content/readme.txt", u"text/plain", "hello"); }, Result::Valid},
      {"UnsignedPartChanged", [](Package& p) { replacePartContent(p, kOtherPart, "<other changed=\"1\"/>"); }, Result::Valid},
      {"UnrelatedRelationshipAdded", [](Package& p) { p.getRelationships().createRelationship(URI(u"metadata/other.xml"), u"urn:unrelated"); },
       Result::Valid},
      {"RelationshipsReordered", [&](Package& p) { retarget(p, u"metadata/systemRequirements.xml", kRequirementsType, requirementsId(p)); },
       Result::Valid},
      {"AnotherKey", [](Package&) {}, Result::SignatureMismatch, testKeys(1).verification},
      {"PrivateKeyInsteadOfPublic", [](Package&) {}, Result::BadKey, testKeys(0).signing},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    makeSignablePackage(path_);
    signRequirements(path_);
    edit(c.change);
    const auto statuses = verifyAll(path_, c.key);
    ASSERT_EQ(statuses.size(), 1u);
    EXPECT_EQ(static_cast<int>(statuses[0].result), static_cast<int>(c.expected)) << statuses[0].detail;
  }
}

// A refused sign throws, saying why where the input was a certificate's key, and leaves the package
// model as it was (signed once already, so that the origin exists too).
TEST_F(SignatureTest, SignRefusesBadInputAndChangesNothing) {
  const KeyPair small = keyPair("small");
  const auto& certs = testCertificates();
  using Sign = std::function<void(DigitalSignatureManager&)>;
  const auto raw = [](std::vector<PartName> parts, std::vector<RelationshipSelector> selectors, Bytes signing,
                      Bytes verification) -> Sign {
    return [=](DigitalSignatureManager& m) { (void)m.sign(parts, selectors, signing, verification, defaultParams()); };
  };
  const auto author = [&](const char* key, const char* cert, std::optional<std::string> passphrase = {}) -> Sign {
    const CertificateKey k{certs.pem(key), std::move(passphrase), certs.pem(cert), {}};
    return [=](DigitalSignatureManager& m) { (void)m.sign({PartName(kRequirementsPart)}, {}, k, defaultParams()); };
  };
  const PartName requirements(kRequirementsPart);
  const RelationshipSelector none(PackageHelper::getPackageRootURI(), RelationshipSelectorType::SelectByType, u"urn:none");
  const struct {
    const char* name;
    Sign sign;
    const char* error;
  } cases[] = {
      {"NoPart", raw({}, requirementsSelectors(), testKeys(0).signing, testKeys(0).verification), ""},
      {"RelationshipsPartAsAPart", raw({PartName(u"/_rels/.rels")}, {}, testKeys(0).signing, testKeys(0).verification), ""},
      {"SelectorSelectsNothing", raw({requirements}, {none}, testKeys(0).signing, testKeys(0).verification), ""},
      {"KeysOfDifferentPairs", raw({requirements}, {}, testKeys(0).signing, testKeys(1).verification), ""},
      {"KeyTooShort", raw({requirements}, {}, small.signing, small.verification), ""},
      {"EncryptedKeyWithoutPassphrase", author("encrypted.key", "rsa.pem"), "encrypted and no passphrase was given"},
      {"WrongPassphrase", author("encrypted.key", "rsa.pem", "wrong"), "cannot be decrypted with the passphrase given"},
      {"MalformedKeyPem", author("rsa.csr", "rsa.pem"), "not a PEM private key"},
      {"MalformedCertificatePem", author("rsa.key", "rsa.key"), "holds no PEM certificate"},
      {"ExpiredCertificate", author("rsa.key", "expired.pem"), "the certificate has expired"},
  };
  signRequirements(path_, testKeys(1));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Session s(path_, OpenMode::Modify);
    DigitalSignatureManager manager(s.package);
    const auto counts = [&] { return std::pair(s.package.getPartCount(), s.package.getRelationships().size()); };
    const auto before = counts();
    EXPECT_THAT(errorOf([&] { c.sign(manager); }), AllOf(HasSubstr(c.error), ::testing::Not(HasSubstr("(no error)"))));
    EXPECT_EQ(counts(), before);
    EXPECT_EQ(manager.getSignatures().size(), 1u);
  }
  edit([&](Package& p) {  // with its passphrase the encrypted key signs
    DigitalSignatureManager manager(p);
    author("encrypted.key", "rsa.pem", "secret")(manager);
    EXPECT_TRUE(manager.verifySignature(manager.getSignatures().back(), certs.pem("ca.pem")).isProperlyCodesigned());
  });
}

// A signature reads back what was signed; signing its scope again replaces it (repairing an edit), other
// scopes' stay; removing the last one removes the origin.
TEST_F(SignatureTest, ReadBackResignedAndRemoved) {
  const auto signatureFolderParts = [](const Package& package) {  // each signature's and the origin
    return std::ranges::count_if(package.getParts(), [](const PartPtr& part) {
      return part->getPartName().text().starts_with("/_xmlsignatures/");
    });
  };
  signRequirements(path_);
  {  // what one reads back: the parts and selectors signed, the time; neither the origin nor the types
    Session s(path_, OpenMode::Read);
    const DigitalSignature signature = DigitalSignatureManager(s.package).getSignatures().at(0);
    EXPECT_EQ(signature.getSignedPartNames(), std::vector<PartName>{PartName(kRequirementsPart)});
    const URI root = PackageHelper::getPackageRootURI();
    EXPECT_EQ(signature.getRelationshipSelectors(),
              (std::vector<RelationshipSelector>{{root, RelationshipSelectorType::SelectByType, kRequirementsType},
                                                 {root, RelationshipSelectorType::SelectById, requirementsId(s.package)}}));
    EXPECT_TRUE(std::regex_match(u8(signature.getSigningTime()), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    const std::string xml = partBytes(s.package, signature.getSignaturePartName().getName());
    EXPECT_EQ(xml.find("digital-signature/origin"), std::string::npos);
    EXPECT_EQ(xml.find("Content_Types"), std::string::npos);
  }
  edit([](Package& p) { replacePartContent(p, kRequirementsPart, "<systemRequirements/>"); });
  ASSERT_FALSE(verifyAll(path_).at(0).isProperlyCodesigned());
  edit([](Package& p) {
    (void)DigitalSignatureManager(p).sign({PartName(kOtherPart)}, {}, testKeys(0).signing, testKeys(0).verification,
                                          defaultParams());
  });
  signRequirements(path_);
  {
    Session s(path_, OpenMode::Read);
    DigitalSignatureManager manager(s.package);
    std::vector<PartName> firstParts;
    for (const auto& signature : manager.getSignatures()) {
      firstParts.push_back(signature.getSignedPartNames().at(0));
      EXPECT_TRUE(manager.verifySignature(signature, testKeys(0).verification).isProperlyCodesigned());
    }
    EXPECT_EQ(firstParts, (std::vector<PartName>{PartName(kOtherPart), PartName(kRequirementsPart)}));
    EXPECT_EQ(signatureFolderParts(s.package), 3u);
  }
  edit([](Package& p) {
    DigitalSignatureManager manager(p);
    for (const auto& signature : manager.getSignatures()) manager.removeSignature(signature);
    EXPECT_THROW(manager.removeSignature(DigitalSignature(PartName(u"/_xmlsignatures/sig1.xml"), {}, {}, {})), Exception);
  });
  Session s(path_, OpenMode::Read);
  EXPECT_FALSE(DigitalSignatureManager(s.package).isPackageSigned());
  const ustring& originType = PackageHelper::kDigitalSignatureOriginRelationshipType;
  EXPECT_TRUE(s.package.getRelationships().getRelationshipsByType(originType).empty());
  EXPECT_EQ(signatureFolderParts(s.package), 0u);
}

// What a signature over selected relationships digests: the selected, sorted by Id, TargetMode written
// out, in canonical XML (the XML Security Library's own transform agrees: tests/interop).
TEST(RelationshipTransformTest, SelectsSortsAndCanonicalises) {
  XercesGuard guard;
  Relationships relationships(URI(u"/"));
  relationships.createRelationship(URI(u"b.xml"), u"urn:a", u"rId2");
  relationships.createRelationship(URI(u"a.xml"), u"urn:b", u"rId10");
  relationships.createRelationship(URI(u"http://example.com/?x=1&y=2"), u"urn:a", u"rId1", TargetMode::External);
  relationships.createRelationship(URI(u"c.xml"), u"urn:c", u"Z1");
  const std::map<std::string, std::string> canonical = {
      {"Z1", R"(<Relationship Id="Z1" Target="c.xml" TargetMode="Internal" Type="urn:c"></Relationship>)"},
      {"rId1", R"(<Relationship Id="rId1" Target="http://example.com/?x=1&amp;y=2" TargetMode="External" Type="urn:a">)"
               "</Relationship>"},
      {"rId10", R"(<Relationship Id="rId10" Target="a.xml" TargetMode="Internal" Type="urn:b"></Relationship>)"},
      {"rId2", R"(<Relationship Id="rId2" Target="b.xml" TargetMode="Internal" Type="urn:a"></Relationship>)"},
  };
  const struct {
    const char* name;
    std::vector<ustring> ids;
    std::vector<ustring> types;
    std::vector<std::string> expected;  // the canonical relationships, in this order
  } cases[] = {
      {"SortedByIdAsText", {u"rId2", u"rId10", u"Z1"}, {}, {"Z1", "rId10", "rId2"}},
      {"IdAndTypeTogetherListEachOnce", {u"rId2", u"Z1"}, {u"urn:a"}, {"Z1", "rId1", "rId2"}},
      {"TypeComparisonIsExact", {}, {u"URN:A"}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string expected = R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";
    for (const std::string& id : c.expected) expected += canonical.at(id);
    const auto bytes = signature::transformRelationships(relationships, c.ids, c.types);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), expected + "</Relationships>");
  }
}

}  // namespace
}  // namespace opc::model
