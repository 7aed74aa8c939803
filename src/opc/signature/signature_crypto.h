#pragma once
// Keys, certificates, signature values and streamed digests of the signature layer, over OpenSSL.
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/evp.h>

#include "foundation/crypto.h"
#include "foundation/scope.h"
#include "opc/signature/digital_signature_manager.h"

namespace opc {
class InputStream;
}

namespace opc::model::signature {

using Bytes = std::vector<std::uint8_t>;

using PkeyPtr = std::unique_ptr<EVP_PKEY, CDeleter<&EVP_PKEY_free>>;

// The smallest RSA modulus accepted for signing or verifying; the one elliptic curve is P-256.
inline constexpr int kMinimumRsaBits = 2048;

// DER PKCS#8 PrivateKeyInfo / SubjectPublicKeyInfo of an accepted key (RSA of at least
// kMinimumRsaBits, or ECDSA on P-256), with no trailing bytes. Throws opc::Exception (with OpenSSL's
// text) otherwise.
[[nodiscard]] PkeyPtr loadPrivateKey(std::span<const std::uint8_t> der);
[[nodiscard]] PkeyPtr loadPublicKey(std::span<const std::uint8_t> der);
// A PEM private key of an accepted kind; an encrypted one needs `passphrase`. Throws opc::Exception
// saying whether the text is no PEM key, encrypted without a passphrase, or the passphrase is wrong.
[[nodiscard]] PkeyPtr readPrivateKeyPem(std::string_view pem, const std::optional<std::string>& passphrase);
// Every certificate of a PEM text, DER, in order; `what` names the text in errors. Throws
// opc::Exception when the text holds none or a block that does not decode.
[[nodiscard]] std::vector<Bytes> readCertificatesPem(std::string_view pem, const std::string& what);
// The public key of a DER certificate, checked as loadPublicKey checks. Throws opc::Exception.
[[nodiscard]] PkeyPtr certificateKey(std::span<const std::uint8_t> der);

[[nodiscard]] CertificateInfo describeCertificate(std::span<const std::uint8_t> der);
// Empty when the certificate is valid at `when`, else why not ("expired on ...").
[[nodiscard]] std::string validityProblem(std::span<const std::uint8_t> der, std::time_t when);
// OpenSSL's X509_verify_cert of chain[0], with chain[1..] as untrusted intermediates, against the
// certificates of the PEM bundle `trust` as trust anchors, at time `when`. Empty when it verifies,
// else OpenSSL's reason. Throws opc::Exception when `trust` holds no certificate.
[[nodiscard]] std::string chainProblem(const std::vector<Bytes>& chain, std::string_view trust, std::time_t when);

// The signature method a key signs with: the algorithm of `requested` for the key's kind. Throws
// opc::Exception when the method does not fit the key (an RSA method for an EC key, or the reverse).
[[nodiscard]] foundation::crypto::utils::SignatureMethod methodFor(const EVP_PKEY* key,
                                                                   foundation::crypto::utils::SignatureMethod requested);
// The value as XML-DSig writes it (RSASSA-PKCS1-v1_5; ECDSA as r||s of 32 bytes each) over `data`.
// Throws opc::Exception.
[[nodiscard]] Bytes signValue(EVP_PKEY* privateKey, foundation::crypto::utils::SignatureMethod method,
                              std::span<const std::uint8_t> data);
// False for a wrong value; throws opc::Exception only when OpenSSL itself fails to run.
[[nodiscard]] bool verifyValue(EVP_PKEY* publicKey, foundation::crypto::utils::SignatureMethod method,
                               std::span<const std::uint8_t> data, std::span<const std::uint8_t> value);

// Big-endian unsigned modulus and public exponent, without leading zero bytes.
struct RsaPublicComponents {
  Bytes modulus;
  Bytes exponent;
};
[[nodiscard]] RsaPublicComponents rsaPublicComponents(const EVP_PKEY* key);

// The PEM text ("-----BEGIN PUBLIC KEY-----") of a DER SubjectPublicKeyInfo. Throws opc::Exception.
[[nodiscard]] std::string publicKeyToPem(std::span<const std::uint8_t> der);

// Digest of a whole stream, read in fixed-size blocks. Errors of the stream propagate.
[[nodiscard]] Bytes digestStream(foundation::crypto::utils::DigestMethod method, opc::InputStream& input);
[[nodiscard]] Bytes digestBytes(foundation::crypto::utils::DigestMethod method, std::span<const std::uint8_t> data);

}  // namespace opc::model::signature
