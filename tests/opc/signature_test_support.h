#pragma once
// Keys, a small signable package and signature-part surgery for the signature tests.
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "opc/model/package.h"
#include "opc/model/package_helper.h"
#include "opc/signature/digital_signature_manager.h"
#include "package_test_support.h"
#include "support/command.h"

namespace opc::test {

using Bytes = std::vector<std::uint8_t>;

struct KeyPair {
  Bytes signing;       // DER PKCS#8
  Bytes verification;  // DER SubjectPublicKeyInfo
};

inline KeyPair makeKeyPair(unsigned bits) {
  EVP_PKEY* key = EVP_RSA_gen(bits);
  if (key == nullptr) throw std::runtime_error("EVP_RSA_gen failed");
  KeyPair pair;
  PKCS8_PRIV_KEY_INFO* info = EVP_PKEY2PKCS8(key);
  unsigned char* der = nullptr;
  int n = i2d_PKCS8_PRIV_KEY_INFO(info, &der);
  pair.signing.assign(der, der + n);
  OPENSSL_free(der);
  PKCS8_PRIV_KEY_INFO_free(info);
  der = nullptr;
  n = i2d_PUBKEY(key, &der);
  pair.verification.assign(der, der + n);
  OPENSSL_free(der);
  EVP_PKEY_free(key);
  return pair;
}

// Two RSA-2048 pairs made once per test program (generation takes a noticeable fraction of a second).
inline const KeyPair& testKeys(std::size_t which) {
  static const std::array<KeyPair, 2> pairs{makeKeyPair(2048), makeKeyPair(2048)};
  return pairs.at(which);
}

inline constexpr char16_t kRequirementsPart[] = u"/metadata/systemRequirements.xml";
inline constexpr char16_t kRequirementsContentType[] = u"application/vnd.kestrelon.zorvan.addon.systemRequirements+xml";
inline constexpr char16_t kRequirementsType[] = u"https://schemas.test/relationships/systemRequirements";
inline constexpr char16_t kOtherPart[] = u"/metadata/other.xml";
inline constexpr char16_t kOtherType[] = u"https://schemas.test/relationships/other";
inline constexpr char kRequirementsXml[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<systemRequirements xmlns=\"https://schemas.test/req\">"
    "<platformCompatibility win=\"true\" linux=\"true\" mac=\"false\" ZORVANOnline=\"true\"/></systemRequirements>";

// A package with the requirements part and another part, each related from the root.
inline void makeSignablePackage(const ustring& path) {
  Session s(path, OpenMode::Create);
  addPart(s.package, kRequirementsPart, kRequirementsContentType, kRequirementsXml);
  s.package.getRelationships().createRelationship(model::URI(u"metadata/systemRequirements.xml"), kRequirementsType);
  addPart(s.package, kOtherPart, u"application/xml", "<other/>");
  s.package.getRelationships().createRelationship(model::URI(u"metadata/other.xml"), kOtherType);
  s.package.close();
}

inline model::SignatureParams defaultParams() {
  return model::SignatureParams(foundation::crypto::utils::DigestMethod::SHA256,
                                foundation::crypto::utils::SignatureMethod::RSA_SHA256);
}

inline std::vector<model::RelationshipSelector> requirementsSelectors() {
  return {model::RelationshipSelector(model::PackageHelper::getPackageRootURI(),
                                      model::RelationshipSelectorType::SelectByType, kRequirementsType)};
}

// Signs the requirements part and its root relationship in its own session.
inline void signRequirements(const ustring& path, const KeyPair& keys = testKeys(0)) {
  Session s(path, OpenMode::Modify);
  model::DigitalSignatureManager manager(s.package);
  (void)manager.sign({model::PartName(kRequirementsPart)}, requirementsSelectors(), keys.signing, keys.verification,
                     defaultParams());
  s.package.close();
}

// The verdict on every signature of the package, in order.
inline std::vector<model::DigitalSignatureVerificationStatus> verifyAll(const ustring& path,
                                                                      const Bytes& key = testKeys(0).verification) {
  Session s(path, OpenMode::Read);
  model::DigitalSignatureManager manager(s.package);
  std::vector<model::DigitalSignatureVerificationStatus> out;
  for (const auto& signature : manager.getSignatures()) out.push_back(manager.verifySignature(signature, key));
  return out;
}

inline std::string signaturePartText(const model::Package& package) {
  model::DigitalSignatureManager manager(const_cast<model::Package&>(package));
  return partBytes(package, manager.getSignatures().at(0).getSignaturePartName().getName());
}

inline void replacePartContent(model::Package& package, const ustring& name, const std::string& bytes) {
  auto out = package.getPart(model::PartName(name))->getOutputStream();
  writeAll(*out, bytes);
}

inline void replaceOnce(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error("test edit: '" + from + "' not found");
  text.replace(at, from.size(), to);
}

// Certificates made once per test program with the openssl tool, so that no private key is
// committed: roots "Test Root" (ca) and "Other Root" (other); under ca, RSA-2048 (rsa) and P-256 (ec)
// authors valid for two days and an RSA author that expired yesterday (expired, rsa's key); rsa's key
// encrypted with the passphrase "secret" (encrypted.key).
class TestCertificates {
 public:
  TestCertificates() {
    const std::string script = R"(set -e
      root() { openssl req -x509 -newkey rsa:2048 -nodes -keyout $1.key -out $1.pem -days 30 -subj "/CN=$2" \
        -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign; }
      leaf() { openssl req -newkey $2 -nodes -keyout $1.key -out $1.csr -subj "/CN=$3"
        openssl x509 -req -in $1.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days $4 -out $1.pem; }
      root ca "Test Root"; root other "Other Root"
      leaf rsa rsa:2048 "RSA Author" 2; leaf ec "ec -pkeyopt ec_paramgen_curve:P-256" "EC Author" 2
      openssl x509 -req -in rsa.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days -1 -out expired.pem
      openssl pkcs8 -topk8 -in rsa.key -out encrypted.key -passout pass:secret)";
    const zvtest::CommandRun run = zvtest::runCommand("cd " + zvtest::shellQuoted(dir_.path().string()) + " && " + script);
    if (run.status != 0) throw std::runtime_error("making test certificates failed:\n" + run.output);
  }
  [[nodiscard]] std::string pem(const std::string& name) const { return readFile(dir_.file(name)); }
  [[nodiscard]] std::string path(const std::string& name) const { return dir_.file(name); }
  // The signer of `name` (rsa, ec, expired) as the signature manager takes it.
  [[nodiscard]] model::CertificateKey key(const std::string& name) const {
    return {pem(name == "expired" ? "rsa.key" : name + ".key"), std::nullopt, pem(name + ".pem"), {}};
  }

 private:
  ScratchDir dir_;
};

inline const TestCertificates& testCertificates() {
  static const TestCertificates certificates;
  return certificates;
}

}  // namespace opc::test
