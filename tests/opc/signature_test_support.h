#pragma once
// Keys, a small signable package and signature-part surgery for the signature tests.
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

// Certificates made once per test program with the openssl tool, so that no private key is
// committed: roots "Test Root" (ca) and "Other Root" (other); under ca, RSA-2048 (rsa) and P-256 (ec)
// authors valid for two days and an RSA author that expired yesterday (expired, rsa's key); rsa's key
// encrypted with the passphrase "secret" (encrypted.key); bare RSA pairs k0 and k1 (2048 bits) and
// small (1024 bits), as DER PKCS#8 (.p8) and SubjectPublicKeyInfo (.pub).
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
      openssl pkcs8 -topk8 -in rsa.key -out encrypted.key -passout pass:secret
      for k in k0:2048 k1:2048 small:1024; do openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:${k#*:} -out ${k%:*}.pem
        openssl pkcs8 -topk8 -nocrypt -in ${k%:*}.pem -outform DER -out ${k%:*}.p8
        openssl pkey -in ${k%:*}.pem -pubout -outform DER -out ${k%:*}.pub; done)";
    const zvtest::CommandRun run = zvtest::runCommand("cd " + zvtest::shellQuoted(dir_.path().string()) + " && " + script);
    if (run.status != 0) throw std::runtime_error("making test certificates failed:\n" + run.output);
  }
  [[nodiscard]] std::string pem(const std::string& name) const { return readFile(dir_.file(name)); }
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

inline KeyPair keyPair(const std::string& name) {
  const auto bytes = [&](const char* ending) { const std::string b = testCertificates().pem(name + ending); return Bytes(b.begin(), b.end()); };
  return {bytes(".p8"), bytes(".pub")};
}

inline const KeyPair& testKeys(std::size_t which) {
  static const std::array<KeyPair, 2> pairs{keyPair("k0"), keyPair("k1")};
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
  withPackage(path, OpenMode::Create, [](model::Package& p) {
    addPart(p, kRequirementsPart, kRequirementsContentType, kRequirementsXml);
    p.getRelationships().createRelationship(model::URI(u"metadata/systemRequirements.xml"), kRequirementsType);
    addPart(p, kOtherPart, u"application/xml", "<other/>");
    p.getRelationships().createRelationship(model::URI(u"metadata/other.xml"), kOtherType);
  });
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
  withPackage(path, OpenMode::Modify, [&](model::Package& p) {
    (void)model::DigitalSignatureManager(p).sign({model::PartName(kRequirementsPart)}, requirementsSelectors(), keys.signing,
                                                 keys.verification, defaultParams());
  });
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

}  // namespace opc::test
