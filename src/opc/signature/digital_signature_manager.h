#pragma once
// Digital signatures of a package: XML signatures over chosen parts and relationships, kept in
// signature parts that the package reaches through the digital-signature origin part.
#include <cstdint>
#include <optional>
#include <string_view>
#include <string>
#include <utility>
#include <vector>

#include "foundation/crypto.h"
#include "foundation/ustring.h"
#include "opc/model/part_name.h"
#include "opc/model/uri.h"

namespace opc::model {

class Package;
// How a relationship selector picks relationships of its source.
enum class RelationshipSelectorType : int {
  SelectById = 0,    // the one relationship whose Id equals the value
  SelectByType = 1,  // every relationship whose Type equals the value
};

// Chooses relationships of one source (the package root "/" or a part) to be signed. The signature
// covers the source's relationships part transformed to just the chosen relationships, so that
// relationships added later, or unchosen ones changed, leave the signature valid.
struct RelationshipSelector {
  RelationshipSelector(URI s, RelationshipSelectorType t, ustring v)
      : source(std::move(s)), type(t), value(std::move(v)) {}
  URI source;
  RelationshipSelectorType type;
  ustring value;
  [[nodiscard]] bool operator==(const RelationshipSelector&) const = default;
};

// Algorithms of a new signature: the digest method of every reference, and the signature method
// (RSA with SHA-256 when absent).
struct SignatureParams {
  explicit SignatureParams(foundation::crypto::utils::DigestMethod d,
                           std::optional<foundation::crypto::utils::SignatureMethod> s = std::nullopt)
      : digest(d), signature(s) {}
  foundation::crypto::utils::DigestMethod digest;
  std::optional<foundation::crypto::utils::SignatureMethod> signature;
};

// One signature as found in (or just written to) a package: a value that names its signature part
// and what it claims to cover. Reading a signature checks nothing cryptographic; whether it holds is
// DigitalSignatureManager::verifySignature's question.
class DigitalSignature {
 public:
  DigitalSignature(PartName signaturePart, std::vector<PartName> signedParts,
                   std::vector<RelationshipSelector> selectors, ustring signingTime,
                   std::vector<std::vector<std::uint8_t>> certificates = {});

  [[nodiscard]] const PartName& getSignaturePartName() const { return signaturePart_; }
  // The signed parts in the order of the signature's manifest (relationships parts not included).
  [[nodiscard]] const std::vector<PartName>& getSignedPartNames() const { return signedParts_; }
  // As written: a type selector reads back as itself followed by one id selector per relationship
  // it selected when signing (see DigitalSignatureManager::sign).
  [[nodiscard]] const std::vector<RelationshipSelector>& getRelationshipSelectors() const { return selectors_; }
  // The signing time as written in the signature ("YYYY-MM-DDThh:mm:ssZ"); may be empty.
  [[nodiscard]] const ustring& getSigningTime() const { return signingTime_; }
  // The DER certificates of KeyInfo, the signer's first; empty for a signature made with a bare key.
  [[nodiscard]] const std::vector<std::vector<std::uint8_t>>& getCertificates() const { return certificates_; }

 private:
  PartName signaturePart_;
  std::vector<PartName> signedParts_;
  std::vector<RelationshipSelector> selectors_;
  ustring signingTime_;
  std::vector<std::vector<std::uint8_t>> certificates_;
};

// Who a certificate names, for people: one-line subject and issuer (RFC 2253), and the SHA-256 of its
// DER as colon-separated upper-case hex.
struct CertificateInfo {
  std::string subject;
  std::string issuer;
  std::string fingerprint;
};

// A signer known by an X.509 certificate, as PEM texts. The key is RSA of at least 2048 bits or
// ECDSA on P-256; `chainPem` holds intermediates (may be empty) that travel with the certificate.
struct CertificateKey {
  std::string privateKeyPem;
  std::optional<std::string> passphrase;  // for an encrypted key
  std::string certificatePem;
  std::string chainPem;
};

// The outcome of verifying one signature. Valid only when the signature part has exactly the
// structure this library writes, every reference digest matches what the package holds now, and the
// signature value checks out with the given key.
struct DigitalSignatureVerificationStatus {
  enum class Result {
    Valid,
    MalformedSignature,   // not the expected structure, or not a signature part at all
    PartMissing,          // a signed part (or a selected relationship's source) is gone
    ContentTypeMismatch,  // a signed part's content type differs from the one signed
    DigestMismatch,       // a signed part or the selected relationships changed
    SignatureMismatch,    // the signature value does not check out with the key
    BadKey,               // the verification key cannot be decoded
    UntrustedCertificate,  // the signer's certificate does not chain to the trust store at the signing time
  };

  [[nodiscard]] bool isProperlyCodesigned() const { return result == Result::Valid; }

  Result result;
  std::string detail;  // names what failed (the part, the reference, the library's error text); empty when valid
  // Who signed, when the signature carries a certificate that decodes (valid or not).
  std::optional<CertificateInfo> signer = std::nullopt;
};

// Makes, lists and verifies the signatures of an open package. Holds a reference to the package,
// which must outlive it; every operation needs the package open (opc::Exception otherwise).
//
// Keys are DER bytes: the signing key a PKCS#8 PrivateKeyInfo, the verification key a
// SubjectPublicKeyInfo, both RSA.
//
// Signing again with a bare key over the same scope (the same signed parts and the same selectors, as
// they read back: a type selector with the ids it selects) replaces the earlier bare-key signature of
// that scope; signing with a certificate replaces every earlier certificate signature, whatever it
// covered. Other signatures, and unreadable ones, stay beside the new one. Re-signing after a signed
// part changed therefore repairs it.
class DigitalSignatureManager {
 public:
  explicit DigitalSignatureManager(Package& package);
  DigitalSignatureManager(const DigitalSignatureManager&) = delete;
  DigitalSignatureManager& operator=(const DigitalSignatureManager&) = delete;

  // Signs `parts` (by URI, with their content types) and the relationships chosen by `selectors`
  // (each source's relationships part through the relationships transform, then canonical XML). A
  // type selector is written with the ids it selects now as well, so that engines which select by id
  // only check the same relationships, while selecting by type still catches one added later. Writes
  // a signature part and, when missing, the origin part and its relationship, which is never signed.
  // The new signature is read back and verified before the package is touched.
  // Throws opc::Exception when the package is not writable; a part or a selector's source is missing;
  // `parts` is empty, repeats a part or names a relationships, origin or signature part; a selector
  // selects nothing or selects the origin relationship; a key does not decode, is not RSA of at least
  // 2048 bits, or does not belong to the other (OpenSSL's text included). On failure the package
  // model is left as it was.
  DigitalSignature sign(const std::vector<PartName>& parts, const std::vector<RelationshipSelector>& selectors,
                        const std::vector<std::uint8_t>& signingKey,
                        const std::vector<std::uint8_t>& verificationKey, const SignatureParams& params);
  // The same with a certificate's key: KeyInfo holds the certificate and chain instead of the key.
  // Also throws opc::Exception for a PEM text that does not decode, an encrypted key without (or with
  // a wrong) passphrase, a key that does not belong to the certificate, or a certificate that is not
  // valid at the current time of day (the signing time written may be SOURCE_DATE_EPOCH instead).
  DigitalSignature sign(const std::vector<PartName>& parts, const std::vector<RelationshipSelector>& selectors,
                        const CertificateKey& key, const SignatureParams& params);

  // True when the origin part exists and has at least one signature relationship.
  [[nodiscard]] bool isPackageSigned() const;
  // Every readable signature reached from the origin part, in the order of its relationships. A
  // signature part that is not well-formed XML or lacks the package object names nothing it signs
  // and is left out (verifying it could only fail).
  [[nodiscard]] std::vector<DigitalSignature> getSignatures() const;
  // Checks one signature against the package's current content with `verificationKey` only; the
  // signature's own key information is never trusted. Never throws for a bad signature or key: the
  // status says what failed. Throws opc::Exception only when the package cannot be read.
  [[nodiscard]] DigitalSignatureVerificationStatus verifySignature(
      const DigitalSignature& signature, const std::vector<std::uint8_t>& verificationKey) const;
  // Checks a certificate signature as above with the key of its own certificate, then the chain
  // (KeyInfo's other certificates as intermediates) to the certificates of the PEM bundle
  // `trustStore`, at the signing time. Throws opc::Exception when `trustStore` holds no certificate.
  [[nodiscard]] DigitalSignatureVerificationStatus verifySignature(const DigitalSignature& signature,
                                                                   std::string_view trustStore) const;

  // Removes one signature part and its origin relationship; the origin part goes with the last one.
  // Throws opc::Exception when the package is not writable or there is no such signature.
  void removeSignature(const DigitalSignature& signature);

 private:
  Package& package_;
};

}  // namespace opc::model
