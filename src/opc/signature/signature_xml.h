#pragma once
// The XML of a package signature part: writing it, and reading it back under a strict structure
// check. Only the one layout this library writes is accepted:
//
//   Signature (Id optional)
//     SignedInfo
//       CanonicalizationMethod   inclusive canonical XML 1.0, no comments
//       SignatureMethod          RSA with SHA-256 or SHA-512, ECDSA with SHA-256
//       Reference URI="#idPackageObject" (Type the Object type, if present), no transforms
//     SignatureValue
//     KeyInfo                    optional: a KeyValue (never trusted, so not read) or an X509Data
//                                of X509Certificate elements, the signer's certificate first
//     Object Id="idPackageObject"
//       Manifest                 one Reference per signed part or relationships part
//       SignatureProperties      optional; the signing time
//
// A manifest reference names a part as "<part name>?ContentType=<content type>". A plain part has no
// transforms; a relationships part has exactly the relationships transform followed by canonical XML.
//
// Callers hold an XercesGuard.
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "foundation/crypto.h"
#include "foundation/ustring.h"
#include "opc/detail/content_sources.h"
#include "opc/exception.h"
#include "opc/model/part_name.h"
#include "opc/signature/signature_crypto.h"
#include "opc/streams.h"
#include "opc/xml/xerces_helper.h"

namespace opc::model::signature {

// A signature part that is not of the accepted layout. what() says which rule failed.
class MalformedSignature : public opc::Exception {
 public:
  using opc::Exception::Exception;
};

inline constexpr char16_t kPackageObjectId[] = u"idPackageObject";

struct ManifestReference {
  ManifestReference(PartName partName, ustring type) : part(std::move(partName)), contentType(std::move(type)) {}

  PartName part;
  ustring contentType;                 // as written after "?ContentType="
  bool relationshipsTransform = false;  // a relationships part, selected through the transform
  std::vector<ustring> sourceIds;      // the transform's selection
  std::vector<ustring> sourceTypes;
  foundation::crypto::utils::DigestMethod digestMethod = foundation::crypto::utils::DigestMethod::SHA256;
  Bytes digestValue;
};

struct SignatureContent {
  foundation::crypto::utils::SignatureMethod signatureMethod = foundation::crypto::utils::SignatureMethod::RSA_SHA256;
  foundation::crypto::utils::DigestMethod objectDigestMethod = foundation::crypto::utils::DigestMethod::SHA256;
  std::vector<ManifestReference> references;
  ustring signingTime;  // "YYYY-MM-DDThh:mm:ssZ"; empty for none
  std::vector<Bytes> certificates;  // DER, the signer's first; empty for a signature made with a bare key
};

// A parsed signature part with the canonical forms its checks need.
struct ParsedSignature {
  SignatureContent content;
  Bytes objectDigest;          // as written in SignedInfo
  Bytes signatureValue;        // as written
  Bytes canonicalSignedInfo;   // what the signature value covers
  Bytes canonicalObject;       // what the object digest covers
};

using opc::detail::BytesInputStream;

// Builds the signature: the object digest and the signature value are computed here, the latter by
// `sign` over the canonical SignedInfo. Returns the part's bytes (UTF-8 XML). KeyInfo holds `keyValue`
// when given and the content's certificates when there are any. Throws opc::Exception (XML) or
// whatever `sign` throws.
[[nodiscard]] Bytes writeSignature(const SignatureContent& content, const RsaPublicComponents* keyValue,
                                   const std::function<Bytes(std::span<const std::uint8_t>)>& sign);

// Parses a signature part. Throws MalformedSignature for anything but the accepted layout (including
// XML that does not parse); an error of the stream itself propagates.
[[nodiscard]] ParsedSignature readSignature(opc::InputStream& input);

// What a signature part claims to cover, read without the structure check: the manifest references
// of the first element with Id "idPackageObject" (part, content type, transform selection; no
// digests), the signing time and the certificates. A reference whose URI names no valid part is left out. Throws
// MalformedSignature when the part is not XML or has no package object; stream errors propagate.
[[nodiscard]] SignatureContent readSignatureScope(opc::InputStream& input);

// "YYYY-MM-DDThh:mm:ssZ" for the current time.
[[nodiscard]] ustring currentSigningTime();
// The instant of such a text; nothing for any other text.
[[nodiscard]] std::optional<std::time_t> parseSigningTime(const ustring& text);

}  // namespace opc::model::signature
