#include "opc/signature/signature_crypto.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <array>
#include <cstdio>

#include "foundation/scope.h"
#include "opc/exception.h"
#include "opc/signature/signature_xml.h"
#include "opc/streams.h"

namespace opc::model::signature {

using foundation::crypto::utils::DigestMethod;
using foundation::crypto::utils::SignatureMethod;

namespace {

using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, CDeleter<&EVP_MD_CTX_free>>;
using MdPtr = std::unique_ptr<EVP_MD, CDeleter<&EVP_MD_free>>;
using BioPtr = std::unique_ptr<BIO, CDeleter<&BIO_free>>;
using BnPtr = std::unique_ptr<BIGNUM, CDeleter<&BN_free>>;
using X509Ptr = std::unique_ptr<X509, CDeleter<&X509_free>>;
using EcSigPtr = std::unique_ptr<ECDSA_SIG, CDeleter<&ECDSA_SIG_free>>;

// The ECDSA value of XML-DSig is r||s, each this many bytes for P-256.
constexpr int kP256Half = 32;

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
    case SignatureMethod::RSA_SHA256:
    case SignatureMethod::ECDSA_SHA256: return "SHA256";
    case SignatureMethod::RSA_SHA512: return "SHA512";
  }
  throw opc::Exception("unknown signature method " + std::to_string(static_cast<int>(method)));
}

MdPtr fetch(const char* name) {
  MdPtr md(EVP_MD_fetch(nullptr, name, nullptr));
  if (!md) throwOpenSsl(std::string("EVP_MD_fetch ") + name);
  return md;
}

bool isEc(const EVP_PKEY* key) { return EVP_PKEY_get_base_id(key) == EVP_PKEY_EC; }

PkeyPtr accepted(PkeyPtr key, const std::string& what) {
  if (isEc(key.get())) {
    std::array<char, 64> curve{};
    if (EVP_PKEY_get_group_name(key.get(), curve.data(), curve.size(), nullptr) != 1 ||
        std::string_view(curve.data()) != "prime256v1") {
      throw opc::Exception(what + " is an EC key on curve " + curve.data() + "; only P-256 is accepted");
    }
    return key;
  }
  if (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_RSA) throw opc::Exception(what + " is neither an RSA nor an EC key");
  if (EVP_PKEY_get_bits(key.get()) < kMinimumRsaBits) {
    throw opc::Exception(what + " has " + std::to_string(EVP_PKEY_get_bits(key.get())) + " bits; at least " +
                         std::to_string(kMinimumRsaBits) + " are required");
  }
  return key;
}

Bytes bignumParam(const EVP_PKEY* key, const char* name) {
  BIGNUM* raw = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &raw) != 1) throwOpenSsl(std::string("EVP_PKEY_get_bn_param ") + name);
  BnPtr bn(raw);
  Bytes out(static_cast<std::size_t>(BN_num_bytes(bn.get())));
  BN_bn2bin(bn.get(), out.data());
  return out;
}

X509Ptr decodeCertificate(std::span<const std::uint8_t> der) {
  const unsigned char* p = der.data();
  X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
  if (!cert || p != der.data() + der.size()) throwOpenSsl("a certificate is not DER X.509");
  return cert;
}

// What `print` writes to a memory BIO; `what` names the call in errors.
template <class Print>
std::string printed(const Print& print, const char* what) {
  BioPtr bio(BIO_new(BIO_s_mem()));
  if (!bio || !print(bio.get())) throwOpenSsl(what);
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return std::string(data, static_cast<std::size_t>(size));
}

std::string nameText(const X509_NAME* name) {
  return printed([&](BIO* bio) { return X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253) >= 0; }, "X509_NAME_print_ex");
}

MdCtxPtr signatureContext(EVP_PKEY* key, SignatureMethod method, bool signing) {
  const MdPtr md = fetch(hashName(method));
  MdCtxPtr ctx(EVP_MD_CTX_new());
  if (!ctx) throwOpenSsl("EVP_MD_CTX_new");
  const int ok = signing ? EVP_DigestSignInit(ctx.get(), nullptr, md.get(), nullptr, key)
                         : EVP_DigestVerifyInit(ctx.get(), nullptr, md.get(), nullptr, key);
  if (ok != 1) throwOpenSsl(signing ? "EVP_DigestSignInit" : "EVP_DigestVerifyInit");
  return ctx;
}

}  // namespace

PkeyPtr loadPrivateKey(std::span<const std::uint8_t> der) {
  ERR_clear_error();
  const unsigned char* p = der.data();
  std::unique_ptr<PKCS8_PRIV_KEY_INFO, CDeleter<&PKCS8_PRIV_KEY_INFO_free>> info(
      d2i_PKCS8_PRIV_KEY_INFO(nullptr, &p, static_cast<long>(der.size())));
  if (!info) throwOpenSsl("the signing key is not a DER PKCS#8 private key");
  if (p != der.data() + der.size()) throw opc::Exception("the signing key has bytes after its DER encoding");
  PkeyPtr key(EVP_PKCS82PKEY(info.get()));
  if (!key) throwOpenSsl("the signing key cannot be decoded");
  return accepted(std::move(key), "the signing key");
}

PkeyPtr loadPublicKey(std::span<const std::uint8_t> der) {
  ERR_clear_error();
  const unsigned char* p = der.data();
  PkeyPtr key(d2i_PUBKEY(nullptr, &p, static_cast<long>(der.size())));
  if (!key) throwOpenSsl("the verification key is not a DER SubjectPublicKeyInfo");
  if (p != der.data() + der.size()) throw opc::Exception("the verification key has bytes after its DER encoding");
  return accepted(std::move(key), "the verification key");
}

PkeyPtr readPrivateKeyPem(std::string_view pem, const std::optional<std::string>& passphrase) {
  ERR_clear_error();
  struct Ask {
    const std::optional<std::string>* passphrase;
    bool asked = false;
  } ask{&passphrase};
  // OpenSSL asks only for an encrypted key; without a passphrase the answer is "none".
  const auto callback = [](char* buffer, int size, int, void* user) -> int {
    auto* a = static_cast<Ask*>(user);
    a->asked = true;
    if (!*a->passphrase || (*a->passphrase)->size() > static_cast<std::size_t>(size)) return -1;
    (*a->passphrase)->copy(buffer, static_cast<std::size_t>(size));
    return static_cast<int>((*a->passphrase)->size());
  };
  BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  if (!bio) throwOpenSsl("BIO_new_mem_buf");
  PkeyPtr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, callback, &ask));
  if (!key && ask.asked && !passphrase) throw opc::Exception("the private key is encrypted and no passphrase was given");
  if (!key && ask.asked) throwOpenSsl("the private key cannot be decrypted with the passphrase given");
  if (!key) throwOpenSsl("the private key is not a PEM private key");
  return accepted(std::move(key), "the private key");
}

std::vector<Bytes> readCertificatesPem(std::string_view pem, const std::string& what) {
  ERR_clear_error();
  BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  if (!bio) throwOpenSsl("BIO_new_mem_buf");
  std::vector<Bytes> out;
  while (X509Ptr cert{PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)}) {
    unsigned char* der = nullptr;
    const int n = i2d_X509(cert.get(), &der);
    if (n <= 0) throwOpenSsl("i2d_X509");
    out.emplace_back(der, der + n);
    OPENSSL_free(der);
  }
  // The loop ends at the end of the text (no start line left) or at a block that does not decode.
  if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE || out.empty()) {
    throwOpenSsl(what + (out.empty() ? " holds no PEM certificate" : " holds a PEM block that is no certificate"));
  }
  ERR_clear_error();
  return out;
}

PkeyPtr certificateKey(std::span<const std::uint8_t> der) {
  ERR_clear_error();
  PkeyPtr key(X509_get_pubkey(decodeCertificate(der).get()));
  if (!key) throwOpenSsl("the certificate's public key cannot be decoded");
  return accepted(std::move(key), "the certificate's key");
}

CertificateInfo describeCertificate(std::span<const std::uint8_t> der) {
  const X509Ptr cert = decodeCertificate(der);
  std::string fingerprint;
  for (std::uint8_t b : digestBytes(DigestMethod::SHA256, der)) {
    std::array<char, 4> hex{};
    std::snprintf(hex.data(), hex.size(), "%02X", b);
    fingerprint += (fingerprint.empty() ? "" : ":") + std::string(hex.data());
  }
  return {nameText(X509_get_subject_name(cert.get())), nameText(X509_get_issuer_name(cert.get())), fingerprint};
}

std::string validityProblem(std::span<const std::uint8_t> der, std::time_t when) {
  const X509Ptr cert = decodeCertificate(der);
  std::time_t at = when;
  if (X509_cmp_time(X509_get0_notBefore(cert.get()), &at) > 0) return "the certificate is not yet valid";
  if (X509_cmp_time(X509_get0_notAfter(cert.get()), &at) < 0) return "the certificate has expired";
  return {};
}

std::string chainProblem(const std::vector<Bytes>& chain, std::string_view trust, std::time_t when) {
  ERR_clear_error();
  std::unique_ptr<X509_STORE, CDeleter<&X509_STORE_free>> store(X509_STORE_new());
  // sk_X509_free is a macro, so the stack's deleter is spelled out.
  const auto freeStack = [](STACK_OF(X509)* stack) { sk_X509_free(stack); };
  std::unique_ptr<STACK_OF(X509), decltype(freeStack)> untrusted(sk_X509_new_null(), freeStack);
  std::unique_ptr<X509_STORE_CTX, CDeleter<&X509_STORE_CTX_free>> ctx(X509_STORE_CTX_new());
  if (!store || !untrusted || !ctx) throwOpenSsl("X509_STORE_new");
  std::vector<X509Ptr> owned;
  for (const Bytes& der : readCertificatesPem(trust, "the trust store")) {
    if (X509_STORE_add_cert(store.get(), decodeCertificate(der).get()) != 1) throwOpenSsl("X509_STORE_add_cert");
  }
  if (chain.empty()) return "the signature carries no certificate";
  for (const Bytes& der : chain) owned.push_back(decodeCertificate(der));
  for (std::size_t i = 1; i < owned.size(); ++i) sk_X509_push(untrusted.get(), owned[i].get());
  if (X509_STORE_CTX_init(ctx.get(), store.get(), owned[0].get(), untrusted.get()) != 1) {
    throwOpenSsl("X509_STORE_CTX_init");
  }
  X509_STORE_CTX_set_time(ctx.get(), 0, when);
  const int verified = X509_verify_cert(ctx.get());
  ERR_clear_error();
  if (verified == 1) return {};
  return X509_verify_cert_error_string(X509_STORE_CTX_get_error(ctx.get()));
}

SignatureMethod methodFor(const EVP_PKEY* key, SignatureMethod requested) {
  if (!isEc(key)) {
    if (requested == SignatureMethod::ECDSA_SHA256) throw opc::Exception("an ECDSA method needs an EC key");
    return requested;
  }
  if (requested == SignatureMethod::RSA_SHA512) throw opc::Exception("an EC P-256 key signs with SHA-256 only");
  return SignatureMethod::ECDSA_SHA256;
}

Bytes signValue(EVP_PKEY* privateKey, SignatureMethod method, std::span<const std::uint8_t> data) {
  ERR_clear_error();
  const MdCtxPtr ctx = signatureContext(privateKey, methodFor(privateKey, method), true);
  std::size_t length = 0;
  if (EVP_DigestSign(ctx.get(), nullptr, &length, data.data(), data.size()) != 1) throwOpenSsl("EVP_DigestSign");
  Bytes value(length);
  if (EVP_DigestSign(ctx.get(), value.data(), &length, data.data(), data.size()) != 1) throwOpenSsl("EVP_DigestSign");
  value.resize(length);
  if (!isEc(privateKey)) return value;
  const unsigned char* p = value.data();
  const EcSigPtr sig(d2i_ECDSA_SIG(nullptr, &p, static_cast<long>(value.size())));
  if (!sig) throwOpenSsl("d2i_ECDSA_SIG");
  Bytes raw(2 * kP256Half);
  if (BN_bn2binpad(ECDSA_SIG_get0_r(sig.get()), raw.data(), kP256Half) != kP256Half ||
      BN_bn2binpad(ECDSA_SIG_get0_s(sig.get()), raw.data() + kP256Half, kP256Half) != kP256Half) {
    throwOpenSsl("BN_bn2binpad");
  }
  return raw;
}

bool verifyValue(EVP_PKEY* publicKey, SignatureMethod method, std::span<const std::uint8_t> data,
                 std::span<const std::uint8_t> value) {
  ERR_clear_error();
  if (isEc(publicKey) != (method == SignatureMethod::ECDSA_SHA256)) return false;
  const MdCtxPtr ctx = signatureContext(publicKey, method, false);
  Bytes der(value.begin(), value.end());
  if (isEc(publicKey)) {
    if (value.size() != 2 * kP256Half) return false;
    EcSigPtr sig(ECDSA_SIG_new());
    BIGNUM* r = BN_bin2bn(value.data(), kP256Half, nullptr);
    BIGNUM* s = BN_bin2bn(value.data() + kP256Half, kP256Half, nullptr);
    if (!sig || ECDSA_SIG_set0(sig.get(), r, s) != 1) {
      BN_free(r);
      BN_free(s);
      throwOpenSsl("ECDSA_SIG_set0");
    }
    unsigned char* out = nullptr;
    const int n = i2d_ECDSA_SIG(sig.get(), &out);
    if (n <= 0) throwOpenSsl("i2d_ECDSA_SIG");
    der.assign(out, out + n);
    OPENSSL_free(out);
  }
  const int result = EVP_DigestVerify(ctx.get(), der.data(), der.size(), data.data(), data.size());
  ERR_clear_error();  // a mismatch leaves padding errors behind; they are the answer, not a failure
  return result == 1;
}

RsaPublicComponents rsaPublicComponents(const EVP_PKEY* key) {
  return {bignumParam(key, OSSL_PKEY_PARAM_RSA_N), bignumParam(key, OSSL_PKEY_PARAM_RSA_E)};
}

std::string publicKeyToPem(std::span<const std::uint8_t> der) {
  const PkeyPtr key = loadPublicKey(der);
  return printed([&](BIO* bio) { return PEM_write_bio_PUBKEY(bio, key.get()) == 1; }, "PEM_write_bio_PUBKEY");
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
  BytesInputStream input(data);
  return digestStream(method, input);
}

}  // namespace opc::model::signature
