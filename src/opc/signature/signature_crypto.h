#pragma once
// RSA keys, signature values and streamed digests of the signature layer, over OpenSSL.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "foundation/crypto.h"

typedef struct evp_pkey_st EVP_PKEY;

namespace opc {
class InputStream;
}

namespace opc::model::signature {

using Bytes = std::vector<std::uint8_t>;

struct PkeyDeleter {
  void operator()(EVP_PKEY* key) const noexcept;
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyDeleter>;

// The smallest modulus accepted for signing or verifying.
inline constexpr int kMinimumRsaBits = 2048;

// DER PKCS#8 PrivateKeyInfo of an RSA key of at least kMinimumRsaBits, with no trailing bytes.
// Throws opc::Exception (with OpenSSL's text) otherwise.
[[nodiscard]] PkeyPtr loadPrivateKey(std::span<const std::uint8_t> der);
// DER SubjectPublicKeyInfo of such an RSA key. Throws opc::Exception otherwise.
[[nodiscard]] PkeyPtr loadPublicKey(std::span<const std::uint8_t> der);
// True when both hold the same public key.
[[nodiscard]] bool samePublicKey(const EVP_PKEY* a, const EVP_PKEY* b);

// RSASSA-PKCS1-v1_5 over `data` with the method's hash. Throws opc::Exception.
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
