#pragma once
// Helpers the OPC, package, interop and hardening tests share: files and streams, refusal messages,
// package sessions, what libzip sees, test keys and certificates, a signable package.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/i18n.h"
#include "foundation/ustring.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/package.h"
#include "opc/model/package_helper.h"
#include "opc/signature/digital_signature_manager.h"
#include "opc/streams.h"
#include "opc/zippackage/zip_physical_package.h"
#include "support/command.h"
#include "support/scratch.h"

namespace opc::test {

using ::testing::AllOf;
using ::testing::HasSubstr;

// A scratch folder whose paths also come as UTF-16.
class ScratchDir : public zvtest::TempDir {
 public:
  [[nodiscard]] ustring ufile(const std::string& name) const { return fl::i18n::from_utf8(file(name)); }
};

using zvtest::readBytes;
using zvtest::writeBytes;

inline std::string readAll(InputStream& in) {
  std::string out;
  std::uint8_t buffer[4096];
  while (const std::size_t n = in.read(buffer, sizeof buffer)) out.append(reinterpret_cast<const char*>(buffer), n);
  return out;
}

inline void writeAll(OutputStream& out, const std::string& bytes) {
  out.write(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

// Serves `bytes` in reads of at most `chunk` bytes.
class BytesInput : public InputStream {
 public:
  explicit BytesInput(std::string bytes, std::size_t chunk = 1 << 16) : bytes_(std::move(bytes)), chunk_(chunk) {}
  std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    const std::size_t n = std::min({size, chunk_, bytes_.size() - offset_});
    std::copy_n(bytes_.data() + offset_, n, buffer);
    offset_ += n;
    return n;
  }
  [[nodiscard]] std::size_t consumed() const { return offset_; }

 private:
  std::string bytes_;
  std::size_t chunk_;
  std::size_t offset_ = 0;
};

// What `f` throws as an opc::Exception, or "(no error)": match it against the expected fragment.
template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (const Exception& e) {
    return e.what();
  }
  return "(no error)";
}

inline std::string u8(const ustring& text) { return opc::detail::narrow(text); }
inline ustring u16(const std::string& text) { return fl::i18n::from_utf8(text); }

// Bytes that do not compress to nothing and differ by seed.
inline std::string patternBytes(std::size_t size, unsigned seed) {
  std::string out(size, '\0');
  std::uint32_t x = 2463534242u ^ seed;
  for (auto& c : out) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    c = static_cast<char>(x % 64 + 32);
  }
  return out;
}

using interfaces::OpenMode;

// A physical package and its model, as a caller holds them for one session.
struct Session {
  Session(const ustring& path, OpenMode mode) : physical(path, false), package(physical) { package.open(mode); }
  zippackage::ZipPhysicalPackage physical;
  model::Package package;
};

// Opens `path` in `mode`, runs `change` on the package and closes it.
inline void withPackage(const ustring& path, OpenMode mode, const std::function<void(model::Package&)>& change) {
  Session s(path, mode);
  change(s.package);
  s.package.close();
}

inline model::PartPtr addPart(model::Package& package, const ustring& name, const ustring& type,
                              const std::string& bytes, Compression compression = Compression::Deflated) {
  auto part = package.createPart(model::PartName(name), model::ContentType(type), compression);
  auto out = part->getOutputStream();
  writeAll(*out, bytes);
  return part;
}

inline std::string partBytes(const model::Package& package, const ustring& name) {
  auto in = package.getPart(model::PartName(name))->getInputStream();
  return readAll(*in);
}

// An archive libzip opens with `flags`.
inline zip_t* openZip(const std::string& path, int flags) {
  int error = 0;
  zip_t* za = zip_open(path.c_str(), flags, &error);
  if (za == nullptr) throw std::runtime_error("zip_open failed on " + path + ": " + std::to_string(error));
  return za;
}

// What libzip sees in a file, checking that local headers agree with the directory: per item, method,
// compressed bytes, CRC and the bytes it inflates to.
struct RawItem {
  int method = 0;
  std::string compressed;
  std::uint32_t crc = 0;
  std::string text;
  std::string storedName;  // the name's bytes as stored, before any decoding
};

inline std::map<std::string, RawItem> rawItems(const std::string& path) {
  zip_t* za = openZip(path, ZIP_RDONLY | ZIP_CHECKCONS);
  const auto read = [&](zip_uint64_t index, zip_flags_t flags) {
    std::string out;
    zip_file_t* f = zip_fopen_index(za, index, flags);
    if (f == nullptr) throw std::runtime_error(std::string("zip_fopen_index failed: ") + zip_strerror(za));
    char buffer[4096];
    for (zip_int64_t n; (n = zip_fread(f, buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<std::size_t>(n));
    zip_fclose(f);
    return out;
  };
  std::map<std::string, RawItem> items;
  for (zip_uint64_t i = 0; i < static_cast<zip_uint64_t>(zip_get_num_entries(za, 0)); ++i) {
    zip_stat_t st;
    zip_stat_index(za, i, 0, &st);
    items[st.name] = {st.comp_method, read(i, ZIP_FL_COMPRESSED), st.crc, read(i, 0), zip_get_name(za, i, ZIP_FL_ENC_RAW)};
  }
  zip_discard(za);
  return items;
}

inline std::string itemText(const std::string& path, const std::string& item) { return rawItems(path).at(item).text; }

// An archive as libzip writes it: items in order, a name ending in '/' a folder item.
inline void writeZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& items,
                     zip_flags_t nameFlags = ZIP_FL_ENC_GUESS) {
  zip_t* za = openZip(path, ZIP_CREATE | ZIP_TRUNCATE);
  for (const auto& [name, bytes] : items) {
    const zip_int64_t at = name.ends_with('/') ? zip_dir_add(za, name.c_str(), nameFlags)
                                               : zip_file_add(za, name.c_str(), zip_source_buffer(za, bytes.data(), bytes.size(), 0), nameFlags);
    if (at < 0) throw std::runtime_error(std::string("libzip refused ") + name + ": " + zip_strerror(za));
  }
  if (zip_close(za) != 0) throw std::runtime_error(std::string("zip_close failed: ") + zip_strerror(za));
}

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
  [[nodiscard]] std::string pem(const std::string& name) const { return readBytes(dir_.file(name)); }
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
inline constexpr char16_t kRequirementsType[] = u"https://schemas.test/relationships/systemRequirements";
inline constexpr char16_t kOtherPart[] = u"/metadata/other.xml";
inline constexpr char16_t kOtherType[] = u"https://schemas.test/relationships/other";

// A package with the requirements part and another part, each related from the root.
inline void makeSignablePackage(const ustring& path) {
  withPackage(path, OpenMode::Create, [](model::Package& p) {
    addPart(p, kRequirementsPart, u"application/vnd.kestrelon.zorvan.addon.systemRequirements+xml",
            "<systemRequirements xmlns=\"https://schemas.test/req\"><platformCompatibility win=\"true\"/></systemRequirements>");
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
  return {{model::PackageHelper::getPackageRootURI(), model::RelationshipSelectorType::SelectByType, kRequirementsType}};
}

inline void replacePartContent(model::Package& package, const ustring& name, const std::string& bytes) {
  auto out = package.getPart(model::PartName(name))->getOutputStream();
  writeAll(*out, bytes);
}

}  // namespace opc::test
