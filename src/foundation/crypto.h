#pragma once
// Digests, base64 and hex over OpenSSL.
#include <cstdint>
#include <istream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ustring.h"

namespace foundation::crypto {

using Bytes = std::vector<std::uint8_t>;

// OpenSSL failures, with OpenSSL's own error text.
class CryptoError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

namespace utils {
// Codes fixed by the package format; each maps to a modern algorithm (the signature's digests).
enum class DigestMethod : int { SHA256 = 5, SHA384 = 6, SHA512 = 7 };
enum class SignatureMethod : int { RSA_SHA256 = 1, RSA_SHA512 = 2, ECDSA_SHA256 = 3 };

// Standard alphabet, padded, no line breaks.
[[nodiscard]] ustring base64Encode(std::span<const std::uint8_t> bytes);
[[nodiscard]] std::string base64EncodeNarrow(std::span<const std::uint8_t> bytes);
// Strict: throws CryptoError on characters outside the alphabet or wrong padding; skips whitespace.
[[nodiscard]] Bytes base64Decode(std::string_view text);
// Throws CryptoError for an odd length or a non-hex digit.
[[nodiscard]] Bytes hexDecode(const ustring& text);
}  // namespace utils

namespace cryptopp {
// The algorithm provider. Shared by every engine made on it; fetched algorithms live as long as it.
class CryptoProvider {
 public:
  CryptoProvider();
  ~CryptoProvider();
  CryptoProvider(const CryptoProvider&) = delete;
  CryptoProvider& operator=(const CryptoProvider&) = delete;
  struct Impl;
  [[nodiscard]] const Impl& impl() const { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};
}  // namespace cryptopp

// A digest computation. Not thread-safe; one engine per computation at a time.
class DigestEngine {
 public:
  virtual ~DigestEngine() = default;
  // Reads the stream to its end with a fixed buffer: memory does not grow with the stream's length.
  // A stream in a failed state yields the digest of the bytes read before the failure.
  [[nodiscard]] virtual Bytes computeDigest(std::istream& input) = 0;
};

class CryptoEngine {
 public:
  explicit CryptoEngine(std::shared_ptr<cryptopp::CryptoProvider> provider);
  [[nodiscard]] std::unique_ptr<DigestEngine> createSHA512DigestEngine() const;

 private:
  std::shared_ptr<cryptopp::CryptoProvider> provider_;
};

}  // namespace foundation::crypto
