#include "opc/signature/signature_crypto.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <array>

#include "opc/exception.h"
#include "opc/streams.h"

namespace opc::model::signature {

using foundation::crypto::utils::DigestMethod;
using foundation::crypto::utils::SignatureMethod;

void PkeyDeleter::operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }

namespace {

template <auto Free>
struct CDeleter {
  void operator()(auto* p) const noexcept { Free(p); }
};
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, CDeleter<&EVP_MD_CTX_free>>;
using MdPtr = std::unique_ptr<EVP_MD, CDeleter<&EVP_MD_free>>;
using BioPtr = std::unique_ptr<BIO, CDeleter<&BIO_free>>;
using BnPtr = std::unique_ptr<BIGNUM, CDeleter<&BN_free>>;

// Takes (and clears) OpenSSL's error queue into the message, so the cause is never lost.
[[noreturn]] void throwOpenSsl(const std::string& what) {
  std::string message = what;
  unsigned long code = 0;
  while ((code = ERR_get_error()) != 0) {
    std::array<char, 256> text{};
    ERR_error_string_n(code, text.data(), text.size());
    message += message == what ? ": " : "; ";
    message += text.data();
  }
  throw opc::Exception(message);
}

const char* hashName(DigestMethod method) {
  switch (method) {
    case DigestMethod::SHA256: return "SHA256";
    case DigestMethod::SHA384: return "SHA384";
    case DigestMethod::SHA512: return "SHA512";
  }
  throw opc::Exception("unknown digest method " + std::to_string(static_cast<int>(method)));
}

const char* hashName(SignatureMethod method) {
  switch (method) {
    case SignatureMethod::RSA_SHA256: return "SHA256";
    case SignatureMethod::RSA_SHA512: return "SHA512";
  }
  throw opc::Exception("unknown signature method " + std::to_string(static_cast<int>(method)));
}

MdPtr fetch(const char* name) {
  MdPtr md(EVP_MD_fetch(nullptr, name, nullptr));
  if (!md) throwOpenSsl(std::string("EVP_MD_fetch ") + name);
  return md;
}

void requireRsa(const EVP_PKEY* key, const char* what) {
  if (EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) throw opc::Exception(std::string(what) + " is not an RSA key");
  if (EVP_PKEY_get_bits(key) < kMinimumRsaBits) {
    throw opc::Exception(std::string(what) + " has " + std::to_string(EVP_PKEY_get_bits(key)) +
                         " bits; at least " + std::to_string(kMinimumRsaBits) + " are required");
  }
}

Bytes bignumParam(const EVP_PKEY* key, const char* name) {
  BIGNUM* raw = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &raw) != 1) throwOpenSsl(std::string("EVP_PKEY_get_bn_param ") + name);
  BnPtr bn(raw);
  Bytes out(static_cast<std::size_t>(BN_num_bytes(bn.get())));
  BN_bn2bin(bn.get(), out.data());
  return out;
}

}  // namespace

PkeyPtr loadPrivateKey(std::span<const std::uint8_t> der) {
  ERR_clear_error();
  const unsigned char* p = der.data();
  PKCS8_PRIV_KEY_INFO* info = d2i_PKCS8_PRIV_KEY_INFO(nullptr, &p, static_cast<long>(der.size()));
  if (info == nullptr) throwOpenSsl("the signing key is not a DER PKCS#8 private key");
  std::unique_ptr<PKCS8_PRIV_KEY_INFO, CDeleter<&PKCS8_PRIV_KEY_INFO_free>> infoOwner(info);
  if (p != der.data() + der.size()) throw opc::Exception("the signing key has bytes after its DER encoding");
  PkeyPtr key(EVP_PKCS82PKEY(info));
  if (!key) throwOpenSsl("the signing key cannot be decoded");
  requireRsa(key.get(), "the signing key");
  return key;
}

PkeyPtr loadPublicKey(std::span<const std::uint8_t> der) {
  ERR_clear_error();
  const unsigned char* p = der.data();
  PkeyPtr key(d2i_PUBKEY(nullptr, &p, static_cast<long>(der.size())));
  if (!key) throwOpenSsl("the verification key is not a DER SubjectPublicKeyInfo");
  if (p != der.data() + der.size()) throw opc::Exception("the verification key has bytes after its DER encoding");
  requireRsa(key.get(), "the verification key");
  return key;
}

bool samePublicKey(const EVP_PKEY* a, const EVP_PKEY* b) { return EVP_PKEY_eq(a, b) == 1; }

Bytes signValue(EVP_PKEY* privateKey, SignatureMethod method, std::span<const std::uint8_t> data) {
  ERR_clear_error();
  const MdPtr md = fetch(hashName(method));
  MdCtxPtr ctx(EVP_MD_CTX_new());
  if (!ctx) throwOpenSsl("EVP_MD_CTX_new");
  if (EVP_DigestSignInit(ctx.get(), nullptr, md.get(), nullptr, privateKey) != 1) throwOpenSsl("EVP_DigestSignInit");
  std::size_t length = 0;
  if (EVP_DigestSign(ctx.get(), nullptr, &length, data.data(), data.size()) != 1) throwOpenSsl("EVP_DigestSign");
  Bytes value(length);
  if (EVP_DigestSign(ctx.get(), value.data(), &length, data.data(), data.size()) != 1) throwOpenSsl("EVP_DigestSign");
  value.resize(length);
  return value;
}

bool verifyValue(EVP_PKEY* publicKey, SignatureMethod method, std::span<const std::uint8_t> data,
                 std::span<const std::uint8_t> value) {
  ERR_clear_error();
  const MdPtr md = fetch(hashName(method));
  MdCtxPtr ctx(EVP_MD_CTX_new());
  if (!ctx) throwOpenSsl("EVP_MD_CTX_new");
  if (EVP_DigestVerifyInit(ctx.get(), nullptr, md.get(), nullptr, publicKey) != 1) {
    throwOpenSsl("EVP_DigestVerifyInit");
  }
  const int result = EVP_DigestVerify(ctx.get(), value.data(), value.size(), data.data(), data.size());
  ERR_clear_error();  // a mismatch leaves padding errors behind; they are the answer, not a failure
  return result == 1;
}

RsaPublicComponents rsaPublicComponents(const EVP_PKEY* key) {
  return {bignumParam(key, OSSL_PKEY_PARAM_RSA_N), bignumParam(key, OSSL_PKEY_PARAM_RSA_E)};
}

std::string publicKeyToPem(std::span<const std::uint8_t> der) {
  const PkeyPtr key = loadPublicKey(der);
  BioPtr bio(BIO_new(BIO_s_mem()));
  if (!bio) throwOpenSsl("BIO_new");
  if (PEM_write_bio_PUBKEY(bio.get(), key.get()) != 1) throwOpenSsl("PEM_write_bio_PUBKEY");
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return std::string(data, static_cast<std::size_t>(size));
}

Bytes digestStream(DigestMethod method, opc::InputStream& input) {
  ERR_clear_error();
  const MdPtr md = fetch(hashName(method));
  MdCtxPtr ctx(EVP_MD_CTX_new());
  if (!ctx || EVP_DigestInit_ex(ctx.get(), md.get(), nullptr) != 1) throwOpenSsl("EVP_DigestInit_ex");
  std::vector<std::uint8_t> buffer(64 * 1024);
  for (std::size_t n = 0; (n = input.read(buffer.data(), buffer.size())) != 0;) {
    if (EVP_DigestUpdate(ctx.get(), buffer.data(), n) != 1) throwOpenSsl("EVP_DigestUpdate");
  }
  Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(md.get())));
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(ctx.get(), digest.data(), &length) != 1) throwOpenSsl("EVP_DigestFinal_ex");
  digest.resize(length);
  return digest;
}

Bytes digestBytes(DigestMethod method, std::span<const std::uint8_t> data) {
  ERR_clear_error();
  const MdPtr md = fetch(hashName(method));
  Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(md.get())));
  unsigned int length = 0;
  if (EVP_Digest(data.data(), data.size(), digest.data(), &length, md.get(), nullptr) != 1) throwOpenSsl("EVP_Digest");
  digest.resize(length);
  return digest;
}

}  // namespace opc::model::signature
