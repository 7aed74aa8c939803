#include "foundation/crypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "foundation/scope.h"

namespace foundation::crypto {
namespace {

[[noreturn]] void throwOpenSsl(const std::string& what) {
  std::string text = what;
  if (unsigned long code = ERR_get_error(); code != 0) {
    std::array<char, 256> buffer{};
    ERR_error_string_n(code, buffer.data(), buffer.size());
    text += ": ";
    text += buffer.data();
  }
  ERR_clear_error();
  throw CryptoError(text);
}

using MdPtr = std::unique_ptr<EVP_MD, CDeleter<&EVP_MD_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, CDeleter<&EVP_MD_CTX_free>>;

class EvpDigestEngine final : public DigestEngine {
 public:
  explicit EvpDigestEngine(const EVP_MD* md) : md_(md), ctx_(EVP_MD_CTX_new()) {
    if (!ctx_) throwOpenSsl("EVP_MD_CTX_new");
  }

  Bytes computeDigest(std::istream& input) override {
    if (EVP_DigestInit_ex(ctx_.get(), md_, nullptr) != 1) throwOpenSsl("EVP_DigestInit_ex");
    // Large reads go straight to the file without a second copy through the stream buffer.
    constexpr std::size_t kBufferSize = 1 << 20;
    std::unique_ptr<char[]> buffer(new char[kBufferSize]);
    while (input) {
      input.read(buffer.get(), kBufferSize);
      const auto got = static_cast<std::size_t>(input.gcount());
      if (got == 0) break;
      if (EVP_DigestUpdate(ctx_.get(), buffer.get(), got) != 1) throwOpenSsl("EVP_DigestUpdate");
    }
    Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(md_)));
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(ctx_.get(), digest.data(), &length) != 1) throwOpenSsl("EVP_DigestFinal_ex");
    digest.resize(length);
    return digest;
  }

 private:
  const EVP_MD* md_;
  MdCtxPtr ctx_;
};

}  // namespace

struct cryptopp::CryptoProvider::Impl {
  // Fetched once: explicit fetching avoids OpenSSL's per-call implicit lookup.
  MdPtr sha512{EVP_MD_fetch(nullptr, "SHA512", nullptr)};
};

cryptopp::CryptoProvider::CryptoProvider() : impl_(std::make_unique<Impl>()) {}
cryptopp::CryptoProvider::~CryptoProvider() = default;

CryptoEngine::CryptoEngine(std::shared_ptr<cryptopp::CryptoProvider> provider) : provider_(std::move(provider)) {
  if (!provider_) throw CryptoError("CryptoEngine needs a provider");
}

std::unique_ptr<DigestEngine> CryptoEngine::createSHA512DigestEngine() const {
  if (!provider_->impl().sha512) throwOpenSsl("EVP_MD_fetch SHA512");
  return std::make_unique<EvpDigestEngine>(provider_->impl().sha512.get());
}

namespace utils {

std::string base64EncodeNarrow(std::span<const std::uint8_t> bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3), '\0');
  // EVP_EncodeBlock takes an int length; encode in whole-group chunks to stay in range.
  constexpr std::size_t kChunk = 3 * (1u << 28);
  std::size_t written = 0;
  for (std::size_t pos = 0; pos < bytes.size(); pos += kChunk) {
    const std::size_t n = std::min(kChunk, bytes.size() - pos);
    written += static_cast<std::size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data() + written),
                                                        bytes.data() + pos, static_cast<int>(n)));
  }
  out.resize(written);
  return out;
}

ustring base64Encode(std::span<const std::uint8_t> bytes) {
  const std::string narrow = base64EncodeNarrow(bytes);
  return ustring(narrow.begin(), narrow.end());
}

Bytes base64Decode(std::string_view text) {
  std::string compact;
  compact.reserve(text.size());
  for (char c : text) {
    if (c != ' ' && c != '\n' && c != '\r' && c != '\t') compact.push_back(c);
  }
  if (compact.size() % 4 != 0) throw CryptoError("base64 text length is not a multiple of 4");
  std::size_t padding = 0;
  while (padding < 2 && padding < compact.size() && compact[compact.size() - 1 - padding] == '=') ++padding;
  for (std::size_t i = 0; i + padding < compact.size(); ++i) {
    const char c = compact[i];
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/')) {
      throw CryptoError("invalid base64 character at offset " + std::to_string(i));
    }
  }
  Bytes out(compact.size() / 4 * 3);
  const int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(compact.data()),
                                static_cast<int>(compact.size()));
  if (n < 0) throwOpenSsl("EVP_DecodeBlock");
  out.resize(static_cast<std::size_t>(n) - padding);
  return out;
}

Bytes hexDecode(const ustring& text) {
  if (text.size() % 2 != 0) throw CryptoError("hex text has an odd number of digits");
  auto digit = [&](std::size_t i) -> std::uint8_t {
    const char16_t c = text[i];
    if (c >= u'0' && c <= u'9') return static_cast<std::uint8_t>(c - u'0');
    if (c >= u'a' && c <= u'f') return static_cast<std::uint8_t>(c - u'a' + 10);
    if (c >= u'A' && c <= u'F') return static_cast<std::uint8_t>(c - u'A' + 10);
    throw CryptoError("invalid hex digit at offset " + std::to_string(i));
  };
  Bytes out(text.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<std::uint8_t>(digit(2 * i) << 4 | digit(2 * i + 1));
  return out;
}

}  // namespace utils
}  // namespace foundation::crypto
