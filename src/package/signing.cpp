// The requirements signature with the built-in key pair, and the author signature with the author's
// certificate.
#include "package/signing.h"

#include <algorithm>

#include "foundation/crypto.h"
#include "foundation/i18n.h"
#include "opc/model/package_helper.h"
#include "opc/signature/signature_crypto.h"
#include "package/addon_package.h"

namespace addon::packaging {
namespace {

// The key pair lives in the library masked, so that neither key shows as a recognisable DER key in
// the binary; scripts/make_signing_keys made both and the mask together.
// BEGIN GENERATED KEYS (scripts/make_signing_keys)
constexpr std::uint8_t kMask = 0xEB;
const ustring signingKeyHex =
    u"DB69EF57E9EAEBDBE6EDE2C16DA36D1CE6EAEAEAEEEBEF69EF4DDB69EF49E9EAEBE969EAEAEB2E08FFAD9420B47163D9"
    u"3B20C5F57D115B38FFE54C314A7340232963C2D62E067278CD32FA7C5E56E379B43997DC0F46B1E0BD6EA132D68B07B9"
    u"6615BF9691A0AA185CD1772D5BFEBE2775D190E4760F3B789CF67FA0F1F2DF2F917F58467967B50183A453AEC109013A"
    u"1DD80C2C0B935FF2DD9F2D27BAB966E9EC9ED0DB5B9E058226CC34CDC934AEB9C852A7C4576E9F23081D43BE9607997E"
    u"13216679611DB73D4EF0C9670A074705EF6CE927D3D969A83EAA7C3924280BAB118FE4BCA67295CED4CD7383A47C6B11"
    u"9A62292FA3A28475C8B1C71A5520CCB1FC0F42D07179F82B76FFAAFC5C3B2A90017010B0C13B1652E3F2AEE5519BA340"
    u"37864DDFB41EE9E8EAEBEAE969EAEBB1338ED211D3F738D5F761E8EF3B5AA9DFAFC1277A766170C97634AF7BF5BDA055"
    u"D259BC8055436E53DDC597B7B4996A87527B2DA49D2752D55F4E7BDAC7604F71E204D4755965C15EAA88FB930CBA1D5D"
    u"FFAF3DBF118C83B8185AA74019E5527C8C83873F46F3A84EAD4465084F579E36AFAC35D8BC4BC03FCEC53FBBBB6282A9"
    u"9F62DF788B220664D033136999F1D84CC30AF546547CB21C062130D77978AC563B549EB5CB27937681D23379927BD5A0"
    u"440E65A3968A7F2686E364FC8080853367716E371ED27F86D5A63A6A3C4CB65BE3D4588794A9CB1E60B9A172F54558A3"
    u"5E78172931AB7C201D795CE585557B5733B84FA849E02B4B1C0D5201BFECB4E96A6AEB173F21BF5C2620CAD3B432915B"
    u"D5B0A7928527D44015C5F6E6401C75BCE03BFBA2E5065EC99208AB77455C095D4CD301743D5879D052DE27221B0C789F"
    u"D1A72AD97B2EE3C7A13BA48DE30773E83AA704C46C2D4E68484D2E9E12383B9E9B606D6DE56E3F46142075D06E39870E"
    u"FE5A5C73A081FD7D26AF3BAA9AC3F1F08A56F0E96A6AEB23B5EBF9D503D3D68D6B71C1C35A213A4A6A31FF446015D563"
    u"4800B49C893512C6542FBBBDE60BD74FAD5EBF35605C29088DF4B68F0F9C5DCA6FF22DCF147B82B40177821AD6C391BF"
    u"9CF3F7CB92286952C0E2B1F4C6E3CE5BBA66CDF489148C146F0B477742BD4C4BE15313C3D6A274343A9D5504944BDBB0"
    u"B7F724205193C4E96A6BE5D6AA281A59C9867E61D381886B446643E6C3865A7CF3C02F53B25925D5D2F94A51536961FE"
    u"62A210A2E427DA18A0E5B82BD3253F7FA92D8736CC965894FAFA7F99933DBFEBAD42C9F0EB7BD8C53C6A8EFB0E67C53F"
    u"225B5CA0AA5E473C7B3FF0515C43325436A70EFCA6B2715ABEFC171321B222BD93D3458D37FDBFB99E34E96A6BA7D3EE"
    u"2100ECCCC64FC1B89141FFAC3F2176D751FE5EC2DC3795659B53BC9A15B85132FB55A09F10B791BAA7AA680B72BBC085"
    u"251DC7D14E702DAD6440A4BFD60A9B5048A2B8D787778332BAE22A6C0433AFB32B8A647628239376D136AA42816FDD4E"
    u"23284CB4EABB25E889393026941E69FD405CC0B889BA556584DEA58476E96A6BA8C3C9007A5F463DEA035D83E541766A"
    u"070E5D33D9C06174C369797FD552C32841134FCC838979604A459FDC5720D90325B9B7B534C2D4E394FE8A4FBF077C8C"
    u"078EDFED36144171E99349B73FE9330A7E012CD100AEAF977FCFFDEA8D35AB349ED43CB2CE07198E9169A229046B9955"
    u"E82A2DA9C534D9B9E3081B69A3F2FF06";
const ustring verificationKeyHex =
    u"DB69EAC9DBE6EDE2C16DA36D1CE6EAEAEAEEEBE869EAE4EBDB69EAE1E969EAEAEB2E08FFAD9420B47163D93B20C5F57D"
    u"115B38FFE54C314A7340232963C2D62E067278CD32FA7C5E56E379B43997DC0F46B1E0BD6EA132D68B07B96615BF9691"
    u"A0AA185CD1772D5BFEBE2775D190E4760F3B789CF67FA0F1F2DF2F917F58467967B50183A453AEC109013A1DD80C2C0B"
    u"935FF2DD9F2D27BAB966E9EC9ED0DB5B9E058226CC34CDC934AEB9C852A7C4576E9F23081D43BE9607997E1321667961"
    u"1DB73D4EF0C9670A074705EF6CE927D3D969A83EAA7C3924280BAB118FE4BCA67295CED4CD7383A47C6B119A62292FA3"
    u"A28475C8B1C71A5520CCB1FC0F42D07179F82B76FFAAFC5C3B2A90017010B0C13B1652E3F2AEE5519BA34037864DDFB4"
    u"1EE9E8EAEBEA";
// END GENERATED KEYS

constexpr char16_t kRequirementsPart[] = u"/metadata/systemRequirements.xml";
constexpr char16_t kRequirementsRelationship[] = u"relationships/systemRequirements";

using opc::model::PackageHelper;
using opc::model::PartName;
using opc::model::RelationshipSelector;

// What the author signature covers: every part but the signature parts and the origin, and every
// relationship type of the root (but the origin's) and of those parts, selected by type.
struct AuthorScope {
  std::vector<PartName> parts;
  std::vector<RelationshipSelector> selectors;
};

AuthorScope authorScope(const opc::model::Package& package) {
  const opc::model::ContentType origin(PackageHelper::kDigitalSignatureOriginContentType);
  const opc::model::ContentType signature(PackageHelper::kDigitalSignatureXMLSignatureContentType);
  AuthorScope scope;
  const auto select = [&](const opc::model::URI& source, const opc::model::Relationships& relationships) {
    for (const opc::model::Relationship& r : relationships.getRelationships()) {
      if (r.getType() == PackageHelper::kDigitalSignatureOriginRelationshipType) continue;
      const RelationshipSelector selector{source, opc::model::RelationshipSelectorType::SelectByType, r.getType()};
      if (std::find(scope.selectors.begin(), scope.selectors.end(), selector) == scope.selectors.end()) {
        scope.selectors.push_back(selector);
      }
    }
  };
  select(PackageHelper::getPackageRootURI(), package.getRelationships());
  for (const opc::model::PartPtr& part : package.getParts()) {
    if (part->getContentType() == origin || part->getContentType() == signature) continue;
    scope.parts.push_back(part->getPartName());
    select(part->getPartName().getURI(), part->getRelationships());
  }
  return scope;
}

// hexDecode, then unmask; the decoded (still masked) bytes are dropped at once.
std::vector<std::uint8_t> unmaskKey(const ustring& hex) {
  return AddonPackage::customObfuscation(foundation::crypto::utils::hexDecode(hex));
}

}  // namespace

std::vector<std::uint8_t> AddonPackage::customObfuscation(const std::vector<std::uint8_t>& bytes) {
  std::vector<std::uint8_t> out(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) out[i] = static_cast<std::uint8_t>(bytes[i] ^ kMask);
  return out;
}

std::vector<std::uint8_t> getVerificationKey() { return unmaskKey(verificationKeyHex); }

std::string getVerificationKeyPem() { return opc::model::signature::publicKeyToPem(getVerificationKey()); }

void AddonPackage::signAddonRequirements() {
  package_.open(opc::interfaces::OpenMode::Modify);
  const std::vector<std::uint8_t> verificationKey = unmaskKey(verificationKeyHex);
  const std::vector<std::uint8_t> signingKey = unmaskKey(signingKeyHex);
  const std::vector<opc::model::PartName> parts{opc::model::PartName(kRequirementsPart)};
  const std::vector<opc::model::RelationshipSelector> selectors{
      {opc::model::PackageHelper::getPackageRootURI(), opc::model::RelationshipSelectorType::SelectByType,
       schemaURI(kRequirementsRelationship)}};
  const opc::model::SignatureParams params{foundation::crypto::utils::DigestMethod::SHA256,
                                           foundation::crypto::utils::SignatureMethod::RSA_SHA256};
  (void)signatures_.sign(parts, selectors, signingKey, verificationKey, params);
  package_.close();
}

bool AddonPackage::verifyAddonRequirements() {
  package_.open(opc::interfaces::OpenMode::Read);
  if (!signatures_.isPackageSigned()) {
    package_.close();
    return true;
  }
  // Both keys are unmasked as when signing, although checking needs only the verification key.
  const std::vector<std::uint8_t> signingKey = unmaskKey(signingKeyHex);
  const std::vector<std::uint8_t> verificationKey = unmaskKey(verificationKeyHex);
  const opc::model::URI requirements = opc::model::PartName(kRequirementsPart).getURI();
  for (const opc::model::DigitalSignature& listed : signatures_.getSignatures()) {
    const opc::model::DigitalSignature signature(listed);
    // The author signature is checked against a trust store, not the built-in key.
    if (!signature.getCertificates().empty()) continue;
    // An empty list is the container's range error, deliberately.
    if (signature.getSignedPartNames().at(0).getURI() != requirements) continue;
    if (!signatures_.verifySignature(signature, verificationKey).isProperlyCodesigned()) return false;
  }
  package_.close();
  return true;
}

void AddonPackage::signAsAuthor(const opc::model::CertificateKey& key) {
  package_.open(opc::interfaces::OpenMode::Modify);
  const AuthorScope scope = authorScope(package_);
  (void)signatures_.sign(scope.parts, scope.selectors, key,
                         opc::model::SignatureParams{foundation::crypto::utils::DigestMethod::SHA256});
  package_.close();
}

AddonPackage::AuthorVerification AddonPackage::verifyAuthor(std::string_view trustStore) {
  using State = AuthorVerification::State;
  package_.open(opc::interfaces::OpenMode::Read);
  AuthorVerification result;
  for (const opc::model::DigitalSignature& signature : signatures_.getSignatures()) {
    if (signature.getCertificates().empty()) continue;
    const auto status = signatures_.verifySignature(signature, trustStore);
    result = {status.isProperlyCodesigned() ? State::valid : State::invalid, status.detail, status.signer};
    if (result.state == State::invalid) break;
    // The signature holds for what it names; anything added since is outside it.
    const AuthorScope now = authorScope(package_);
    const auto added = [](const auto& present, const auto& signedOnes) {
      return std::ranges::find_if(present, [&](const auto& x) { return std::ranges::find(signedOnes, x) == signedOnes.end(); });
    };
    if (const auto part = added(now.parts, signature.getSignedPartNames()); part != now.parts.end()) {
      result = {State::invalid, "part " + std::string(part->text()) + " was added after signing", result.signer};
    } else if (const auto s = added(now.selectors, signature.getRelationshipSelectors()); s != now.selectors.end()) {
      result = {State::invalid, "a relationship of type " + fl::i18n::to_utf8(s->value) + " from " +
                                    fl::i18n::to_utf8(s->source.toString()) + " was added after signing",
                result.signer};
    }
  }
  package_.close();
  return result;
}

AddonPackage::Signatures AddonPackage::readSignatures() {
  package_.open(opc::interfaces::OpenMode::Read);
  const opc::model::ContentType signatureType(PackageHelper::kDigitalSignatureXMLSignatureContentType);
  std::size_t parts = 0;
  for (const opc::model::PartPtr& part : package_.getParts()) parts += part->getContentType() == signatureType ? 1 : 0;
  Signatures found;
  std::size_t authors = 0;
  for (const opc::model::DigitalSignature& signature : signatures_.getSignatures()) {
    if (signature.getCertificates().empty()) continue;
    ++authors;
    try {
      found.author = opc::model::signature::describeCertificate(signature.getCertificates().front());
    } catch (const opc::Exception& error) {
      found.author = opc::model::CertificateInfo{std::string("(unreadable) ") + error.what(), {}, {}};
    }
  }
  found.requirements = parts > authors;
  package_.close();
  return found;
}

}  // namespace addon::packaging
