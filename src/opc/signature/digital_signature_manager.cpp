#include "opc/signature/digital_signature_manager.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <utility>

#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/content_type.h"
#include "opc/model/package.h"
#include "opc/model/package_helper.h"
#include "opc/model/part.h"
#include "opc/signature/canonical_xml.h"
#include "opc/signature/signature_crypto.h"
#include "opc/signature/signature_xml.h"
#include "opc/streams.h"
#include "opc/xml/xerces_helper.h"

namespace opc::model {

using foundation::crypto::utils::DigestMethod;
using foundation::crypto::utils::SignatureMethod;
using opc::detail::narrow;
using Status = DigitalSignatureVerificationStatus;

DigitalSignature::DigitalSignature(PartName signaturePart, std::vector<PartName> signedParts,
                                   std::vector<RelationshipSelector> selectors, ustring signingTime,
                                   std::vector<std::vector<std::uint8_t>> certificates)
    : signaturePart_(std::move(signaturePart)),
      signedParts_(std::move(signedParts)),
      selectors_(std::move(selectors)),
      signingTime_(std::move(signingTime)),
      certificates_(std::move(certificates)) {}

namespace {

// What signs: the key pair, and the certificates KeyInfo carries instead of the key's value when given.
struct SigningKey {
  signature::PkeyPtr privateKey;
  signature::PkeyPtr publicKey;
  std::vector<signature::Bytes> certificates;
};

constexpr char16_t kOriginPart[] = u"/_xmlsignatures/origin.sigs";
constexpr char16_t kOriginTarget[] = u"_xmlsignatures/origin.sigs";

// The package's signature layout as it stands: the origin part (if any) and the signature parts it
// relates to, in relationship order. Targets that name no part of the package are left out.
struct SignatureLayout {
  std::optional<ustring> originRelationshipId;
  PartPtr origin;
  std::vector<PartName> signatures;

  [[nodiscard]] bool isInfrastructure(const PartName& name) const {
    if (origin && origin->getPartName() == name) return true;
    if (name == PartName(kOriginPart)) return true;
    return std::find(signatures.begin(), signatures.end(), name) != signatures.end();
  }
};

// The part an internal relationship targets; nothing for an external one or a target that names no
// valid part (such a relationship is simply not part of the signature layout).
std::optional<PartName> internalTarget(const Relationship& r) {
  if (r.getTargetMode() != TargetMode::Internal) return std::nullopt;
  try {
    return r.getTargetPartName();
  } catch (const opc::Exception&) {
    return std::nullopt;
  }
}

SignatureLayout readLayout(const Package& package) {
  SignatureLayout layout;
  for (const Relationship& r :
       package.getRelationships().getRelationshipsByType(PackageHelper::kDigitalSignatureOriginRelationshipType)) {
    const std::optional<PartName> name = internalTarget(r);
    if (!name || !package.partExists(*name)) continue;
    layout.originRelationshipId = r.getId();
    layout.origin = package.getPart(*name);
    break;
  }
  if (!layout.origin) return layout;
  for (const Relationship& r : layout.origin->getRelationships().getRelationshipsByType(
           PackageHelper::kDigitalSignatureRelationshipType)) {
    const std::optional<PartName> name = internalTarget(r);
    if (name && package.partExists(*name)) layout.signatures.push_back(*name);
  }
  return layout;
}

// The relationships of `source` ("/" or a part), with the part that owns them kept alive.
struct SourceRelationships {
  PartPtr owner;
  const Relationships* relationships = nullptr;
};

std::optional<SourceRelationships> findSource(const Package& package, const URI& source) {
  if (source == PackageHelper::getPackageRootURI()) return SourceRelationships{nullptr, &package.getRelationships()};
  const PartName name(source.toString());
  if (!package.partExists(name)) return std::nullopt;
  SourceRelationships found{package.getPart(name), nullptr};
  found.relationships = &found.owner->getRelationships();
  return found;
}

std::vector<PartName> signedPartsOf(const signature::SignatureContent& content) {
  std::vector<PartName> parts;
  for (const auto& ref : content.references) {
    if (!ref.relationshipsTransform) parts.push_back(ref.part);
  }
  return parts;
}

std::vector<RelationshipSelector> selectorsOf(const signature::SignatureContent& content) {
  std::vector<RelationshipSelector> selectors;
  for (const auto& ref : content.references) {
    if (!ref.relationshipsTransform) continue;
    URI source;
    try {
      source = PackageHelper::getSourceURI(ref.part);
    } catch (const opc::Exception&) {
      continue;
    }
    for (const ustring& type : ref.sourceTypes) selectors.push_back({source, RelationshipSelectorType::SelectByType, type});
    for (const ustring& id : ref.sourceIds) selectors.push_back({source, RelationshipSelectorType::SelectById, id});
  }
  return selectors;
}

// Every check of one parsed signature against the package as it is now; the signature's own claims
// are only what to compare, never the values compared against.
Status checkSignature(const Package& package, const SignatureLayout& layout, const signature::ParsedSignature& parsed,
                      EVP_PKEY* key) {
  const auto& content = parsed.content;
  if (!signature::verifyValue(key, content.signatureMethod, parsed.canonicalSignedInfo, parsed.signatureValue)) {
    return {Status::Result::SignatureMismatch, "the signature value does not match the verification key"};
  }
  if (signature::digestBytes(content.objectDigestMethod, parsed.canonicalObject) != parsed.objectDigest) {
    return {Status::Result::DigestMismatch, "the package object changed"};
  }
  for (const auto& ref : content.references) {
    const std::string name(ref.part.text());
    const ContentType claimed(ref.contentType);
    if (!ref.relationshipsTransform) {
      if (layout.isInfrastructure(ref.part)) return {Status::Result::MalformedSignature, "signs signature part " + name};
      if (!package.partExists(ref.part)) return {Status::Result::PartMissing, "part " + name + " is missing"};
      const PartPtr part = package.getPart(ref.part);
      if (!(part->getContentType() == claimed)) {
        return {Status::Result::ContentTypeMismatch, "part " + name + " has content type " +
                                                         narrow(part->getContentType().toString()) + ", signed as " +
                                                         narrow(ref.contentType)};
      }
      const auto input = part->getInputStream();
      if (signature::digestStream(ref.digestMethod, *input) != ref.digestValue) {
        return {Status::Result::DigestMismatch, "part " + name + " changed"};
      }
      continue;
    }
    URI sourceUri;
    try {
      sourceUri = PackageHelper::getSourceURI(ref.part);
    } catch (const opc::Exception& error) {
      return {Status::Result::MalformedSignature, error.what()};
    }
    if (sourceUri != PackageHelper::getPackageRootURI() && layout.isInfrastructure(PartName(sourceUri.toString()))) {
      return {Status::Result::MalformedSignature, "signs relationships of signature part " + name};
    }
    if (!(claimed == ContentType(PackageHelper::kRelationshipsContentType))) {
      return {Status::Result::ContentTypeMismatch, "relationships part " + name + " signed as " + narrow(ref.contentType)};
    }
    const auto source = findSource(package, sourceUri);
    if (!source) return {Status::Result::PartMissing, "the source of " + name + " is missing"};
    const auto transformed = signature::transformRelationships(*source->relationships, ref.sourceIds, ref.sourceTypes);
    if (signature::digestBytes(ref.digestMethod, transformed) != ref.digestValue) {
      return {Status::Result::DigestMismatch, "the signed relationships of " + name + " changed"};
    }
  }
  return {Status::Result::Valid, {}};
}

void requireOpen(const Package& package) {
  if (!package.isOpen()) throw opc::Exception("the package is not open");
}

// Every check but the key's: the signature part is listed, typed and well formed, and names the parts
// it was read with; then `check` with the parsed signature.
Status verifyParsed(const Package& package, const DigitalSignature& signature,
                    const std::function<Status(const SignatureLayout&, const signature::ParsedSignature&)>& check) {
  requireOpen(package);
  XercesGuard xerces;
  const SignatureLayout layout = readLayout(package);
  const PartName& partName = signature.getSignaturePartName();
  if (std::find(layout.signatures.begin(), layout.signatures.end(), partName) == layout.signatures.end()) {
    return {Status::Result::PartMissing, "no signature part " + std::string(partName.text())};
  }
  const PartPtr part = package.getPart(partName);
  if (!(part->getContentType() == ContentType(PackageHelper::kDigitalSignatureXMLSignatureContentType))) {
    return {Status::Result::MalformedSignature, "part " + std::string(partName.text()) + " is not an XML signature"};
  }
  try {
    const auto input = part->getInputStream();
    const signature::ParsedSignature parsed = signature::readSignature(*input);
    if (signedPartsOf(parsed.content) != signature.getSignedPartNames()) {
      return {Status::Result::MalformedSignature, "the signed parts differ from those the signature was read with"};
    }
    return check(layout, parsed);
  } catch (const signature::MalformedSignature& error) {
    return {Status::Result::MalformedSignature, error.what()};
  }
}

// Signs with `key` once the key is checked; the rest of sign(), as the header states it.
DigitalSignature signWith(DigitalSignatureManager& manager, Package& package, const std::vector<PartName>& parts,
                          const std::vector<RelationshipSelector>& selectors, const SigningKey& key,
                          const SignatureParams& params) {
  if (package.getOpenMode() == interfaces::OpenMode::Read) throw opc::Exception("cannot sign: the package is read only");
  XercesGuard xerces;
  const SignatureLayout layout = readLayout(package);

  if (parts.empty()) throw opc::Exception("cannot sign: no part to sign");
  signature::SignatureContent content;
  content.signatureMethod =
      signature::methodFor(key.privateKey.get(), params.signature.value_or(SignatureMethod::RSA_SHA256));
  content.certificates = key.certificates;
  content.objectDigestMethod = params.digest;
  for (const PartName& name : parts) {
    const std::string text(name.text());
    if (name.isRelationshipsPartName()) throw opc::Exception("cannot sign relationships part " + text + " as a part");
    if (layout.isInfrastructure(name)) throw opc::Exception("cannot sign signature part " + text);
    if (!package.partExists(name)) throw opc::Exception("cannot sign: there is no part " + text);
    for (const auto& ref : content.references) {
      if (ref.part == name) throw opc::Exception("cannot sign part " + text + " twice");
    }
    const PartPtr part = package.getPart(name);
    const auto input = part->getInputStream();
    signature::ManifestReference& ref = content.references.emplace_back(name, part->getContentType().toString());
    ref.digestMethod = params.digest;
    ref.digestValue = signature::digestStream(params.digest, *input);
  }

  // One reference per source, in the order the sources first appear.
  std::vector<URI> sources;
  for (const auto& s : selectors) {
    if (std::find(sources.begin(), sources.end(), s.source) == sources.end()) sources.push_back(s.source);
  }
  for (const URI& sourceUri : sources) {
    const std::string text = narrow(sourceUri.toString());
    const PartName relsPart = PackageHelper::getRelationshipsPartName(sourceUri);
    if (sourceUri != PackageHelper::getPackageRootURI() && layout.isInfrastructure(PartName(sourceUri.toString()))) {
      throw opc::Exception("cannot sign the relationships of signature part " + text);
    }
    const auto source = findSource(package, sourceUri);
    if (!source) throw opc::Exception("cannot sign relationships of " + text + ": there is no such part");
    signature::ManifestReference ref(relsPart, PackageHelper::kRelationshipsContentType);
    ref.relationshipsTransform = true;
    std::vector<ustring> pinned;
    for (const auto& s : selectors) {
      if (s.source != sourceUri) continue;
      std::vector<ustring> matched;
      for (const Relationship& r : source->relationships->getRelationships()) {
        const bool hit = s.type == RelationshipSelectorType::SelectById ? r.getId() == s.value : r.getType() == s.value;
        if (hit) matched.push_back(r.getId());
      }
      if (matched.empty()) {
        throw opc::Exception("cannot sign: no relationship of " + text + " has " +
                             (s.type == RelationshipSelectorType::SelectById ? "id " : "type ") +
                             narrow(s.value));
      }
      if (s.type == RelationshipSelectorType::SelectByType &&
          std::find(ref.sourceTypes.begin(), ref.sourceTypes.end(), s.value) == ref.sourceTypes.end()) {
        ref.sourceTypes.push_back(s.value);
      }
      // A type selector also names the ids it selects now, so that engines which select by id only
      // check the same relationships; selecting by type as well still catches one added later.
      for (ustring& id : matched) {
        if (std::find(pinned.begin(), pinned.end(), id) == pinned.end()) pinned.push_back(std::move(id));
      }
    }
    for (const Relationship& r : source->relationships->getRelationships()) {
      if (std::find(pinned.begin(), pinned.end(), r.getId()) != pinned.end() &&
          r.getType() == PackageHelper::kDigitalSignatureOriginRelationshipType) {
        throw opc::Exception("cannot sign the digital-signature origin relationship");
      }
    }
    ref.sourceIds = std::move(pinned);
    ref.digestMethod = params.digest;
    ref.digestValue = signature::digestBytes(
        params.digest, signature::transformRelationships(*source->relationships, ref.sourceIds, ref.sourceTypes));
    content.references.push_back(std::move(ref));
  }
  content.signingTime = signature::currentSigningTime();

  // A bare RSA key travels as its value, for engines that need one; a certificate carries its own.
  std::optional<signature::RsaPublicComponents> keyValue;
  if (key.certificates.empty() && content.signatureMethod != SignatureMethod::ECDSA_SHA256) {
    keyValue = signature::rsaPublicComponents(key.publicKey.get());
  }
  const signature::Bytes bytes = signature::writeSignature(
      content, keyValue ? &*keyValue : nullptr, [&](std::span<const std::uint8_t> data) {
        return signature::signValue(key.privateKey.get(), content.signatureMethod, data);
      });
  // What was written must read back and verify before the package is touched.
  {
    signature::BytesInputStream input(bytes);
    const signature::ParsedSignature parsed = signature::readSignature(input);
    const Status status = checkSignature(package, layout, parsed, key.publicKey.get());
    if (!status.isProperlyCodesigned()) throw opc::Exception("the new signature does not verify: " + status.detail);
  }

  // Earlier signatures of the same kind are superseded: with a certificate, all; with a bare key,
  // those over the same parts with the same selectors.
  const std::vector<PartName> signedParts = signedPartsOf(content);
  const std::vector<RelationshipSelector> signedSelectors = selectorsOf(content);
  std::vector<PartName> superseded;
  for (const PartName& entry : layout.signatures) {
    try {
      const auto input = package.getPart(entry)->getInputStream();
      const signature::SignatureContent scope = signature::readSignatureScope(*input);
      const bool certificate = !content.certificates.empty();
      if (!scope.certificates.empty() == certificate &&
          (certificate || (signedPartsOf(scope) == signedParts && selectorsOf(scope) == signedSelectors))) {
        superseded.push_back(entry);
      }
    } catch (const signature::MalformedSignature&) {
      // unreadable: not of this scope, left alone
    }
  }

  // Changes from here on are undone if any step fails, so the model is left as it was.
  std::optional<ustring> createdOriginRelationship;
  bool createdOrigin = false;
  std::optional<PartName> createdSignature;
  PartPtr origin = layout.origin;
  try {
    if (!origin) {
      const PartName originName(kOriginPart);
      if (package.partExists(originName)) {
        origin = package.getPart(originName);
        if (!(origin->getContentType() == ContentType(PackageHelper::kDigitalSignatureOriginContentType))) {
          throw opc::Exception("cannot sign: part " + std::string(originName.text()) + " is not a signature origin");
        }
      } else {
        origin = package.createPart(originName, ContentType(PackageHelper::kDigitalSignatureOriginContentType));
        createdOrigin = true;
      }
      createdOriginRelationship = package.getRelationships()
                                      .createRelationship(URI(kOriginTarget),
                                                          PackageHelper::kDigitalSignatureOriginRelationshipType)
                                      .getId();
    }
    std::size_t n = 1;
    while (package.partExists(PartName(u"/_xmlsignatures/sig" + opc::detail::widenAscii(std::to_string(n)) + u".xml"))) ++n;
    const ustring file = u"sig" + opc::detail::widenAscii(std::to_string(n)) + u".xml";
    const PartName signatureName(u"/_xmlsignatures/" + file);
    const PartPtr part = package.createPart(
        signatureName, ContentType(PackageHelper::kDigitalSignatureXMLSignatureContentType));
    createdSignature = signatureName;
    {
      const auto out = part->getOutputStream();
      out->write(bytes.data(), bytes.size());
      out->flush();
    }
    origin->getRelationships().createRelationship(URI(file), PackageHelper::kDigitalSignatureRelationshipType);
    for (const PartName& old : superseded) {
      manager.removeSignature(DigitalSignature(old, {}, {}, {}));
    }
    return DigitalSignature(signatureName, signedParts, signedSelectors, content.signingTime, content.certificates);
  } catch (...) {
    if (createdSignature) {
      if (origin) {
        for (const Relationship& r : origin->getRelationships().getRelationships()) {
          if (internalTarget(r) == *createdSignature) {
            origin->getRelationships().deleteRelationship(ustring(r.getId()));
            break;
          }
        }
      }
      if (package.partExists(*createdSignature)) package.deletePart(*createdSignature);
    }
    if (createdOriginRelationship) package.getRelationships().deleteRelationship(*createdOriginRelationship);
    if (createdOrigin) package.deletePart(PartName(kOriginPart));
    throw;
  }
}

}  // namespace

DigitalSignatureManager::DigitalSignatureManager(Package& package) : package_(package) {}

bool DigitalSignatureManager::isPackageSigned() const {
  requireOpen(package_);
  return !readLayout(package_).signatures.empty();
}

std::vector<DigitalSignature> DigitalSignatureManager::getSignatures() const {
  requireOpen(package_);
  XercesGuard xerces;
  std::vector<DigitalSignature> result;
  for (const PartName& entry : readLayout(package_).signatures) {
    const auto input = package_.getPart(entry)->getInputStream();
    signature::SignatureContent content;
    try {
      content = signature::readSignatureScope(*input);
    } catch (const signature::MalformedSignature&) {
      continue;
    }
    result.emplace_back(entry, signedPartsOf(content), selectorsOf(content), content.signingTime,
                        std::move(content.certificates));
  }
  return result;
}

DigitalSignatureVerificationStatus DigitalSignatureManager::verifySignature(
    const DigitalSignature& signature, const std::vector<std::uint8_t>& verificationKey) const {
  requireOpen(package_);
  signature::PkeyPtr key;
  try {
    key = signature::loadPublicKey(verificationKey);
  } catch (const opc::Exception& error) {
    return {Status::Result::BadKey, error.what()};
  }
  return verifyParsed(package_, signature, [&](const SignatureLayout& layout, const signature::ParsedSignature& parsed) {
    return checkSignature(package_, layout, parsed, key.get());
  });
}

DigitalSignatureVerificationStatus DigitalSignatureManager::verifySignature(const DigitalSignature& signature,
                                                                            std::string_view trustStore) const {
  (void)signature::readCertificatesPem(trustStore, "the trust store");
  return verifyParsed(package_, signature, [&](const SignatureLayout& layout, const signature::ParsedSignature& parsed) {
    const auto& chain = parsed.content.certificates;
    if (chain.empty()) return Status{Status::Result::MalformedSignature, "the signature carries no certificate"};
    std::optional<CertificateInfo> signer;
    signature::PkeyPtr key;
    try {
      signer = signature::describeCertificate(chain[0]);
      key = signature::certificateKey(chain[0]);
    } catch (const opc::Exception& error) {
      return Status{Status::Result::BadKey, error.what(), signer};
    }
    const Status status = checkSignature(package_, layout, parsed, key.get());
    if (!status.isProperlyCodesigned()) return Status{status.result, status.detail, signer};
    const std::optional<std::time_t> when = signature::parseSigningTime(parsed.content.signingTime);
    if (!when) return Status{Status::Result::MalformedSignature, "the signature has no signing time", signer};
    std::string problem;
    try {
      problem = signature::chainProblem(chain, trustStore, *when);
    } catch (const opc::Exception& error) {  // an intermediate that does not decode
      problem = error.what();
    }
    if (!problem.empty()) {
      return Status{Status::Result::UntrustedCertificate,
                    "the signer's certificate is not trusted at the signing time " +
                        narrow(parsed.content.signingTime) + ": " + problem,
                    signer};
    }
    return Status{Status::Result::Valid, {}, signer};
  });
}

DigitalSignature DigitalSignatureManager::sign(const std::vector<PartName>& parts,
                                               const std::vector<RelationshipSelector>& selectors,
                                               const std::vector<std::uint8_t>& signingKey,
                                               const std::vector<std::uint8_t>& verificationKey,
                                               const SignatureParams& params) {
  requireOpen(package_);
  SigningKey key{signature::loadPrivateKey(signingKey), signature::loadPublicKey(verificationKey), {}};
  if (EVP_PKEY_eq(key.privateKey.get(), key.publicKey.get()) != 1) {
    throw opc::Exception("the verification key does not belong to the signing key");
  }
  return signWith(*this, package_, parts, selectors, key, params);
}

DigitalSignature DigitalSignatureManager::sign(const std::vector<PartName>& parts,
                                               const std::vector<RelationshipSelector>& selectors,
                                               const CertificateKey& certificate, const SignatureParams& params) {
  requireOpen(package_);
  SigningKey key{signature::readPrivateKeyPem(certificate.privateKeyPem, certificate.passphrase), nullptr,
                            signature::readCertificatesPem(certificate.certificatePem, "the certificate")};
  if (key.certificates.size() != 1) throw opc::Exception("the certificate text must hold exactly one certificate");
  if (!certificate.chainPem.empty()) {
    for (auto& der : signature::readCertificatesPem(certificate.chainPem, "the chain")) key.certificates.push_back(std::move(der));
  }
  key.publicKey = signature::certificateKey(key.certificates[0]);
  if (EVP_PKEY_eq(key.privateKey.get(), key.publicKey.get()) != 1) {
    throw opc::Exception("the private key does not belong to the certificate");
  }
  const std::string problem = signature::validityProblem(key.certificates[0], std::time(nullptr));
  if (!problem.empty()) throw opc::Exception("cannot sign: " + problem);
  return signWith(*this, package_, parts, selectors, key, params);
}

void DigitalSignatureManager::removeSignature(const DigitalSignature& signature) {
  requireOpen(package_);
  if (package_.getOpenMode() == interfaces::OpenMode::Read) {
    throw opc::Exception("cannot remove a signature: the package is read only");
  }
  const SignatureLayout layout = readLayout(package_);
  const PartName& name = signature.getSignaturePartName();
  if (std::find(layout.signatures.begin(), layout.signatures.end(), name) == layout.signatures.end()) {
    throw opc::Exception("there is no signature part " + std::string(name.text()));
  }
  // Every relationship of the origin to this part goes, not just the first.
  std::vector<ustring> ids;
  for (const Relationship& r : layout.origin->getRelationships().getRelationships()) {
    if (internalTarget(r) == name) ids.push_back(r.getId());
  }
  for (const ustring& id : ids) layout.origin->getRelationships().deleteRelationship(id);
  package_.deletePart(name);
  if (layout.signatures.size() == 1) {
    package_.deletePart(layout.origin->getPartName());
    package_.getRelationships().deleteRelationship(*layout.originRelationshipId);
  }
}

}  // namespace opc::model
