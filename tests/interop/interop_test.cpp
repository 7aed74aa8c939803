// What we write, as independent tools see it. Apache POI's openxml4j and python-docx's OPC layer
// (through opc_summary.py, which also runs unzip -t and 7z t) must see the parts, relationships and
// core properties the library reads back; the XML Security Library (signature_xmlsec_check.c) and
// the JDK (SignatureCheck.java) must verify our signatures and refuse what changed after signing.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <functional>
#include <nlohmann/json.hpp>

#include "gateway/zvaddon.h"
#include "opc/kqservices/core_properties.h"
#include "opc/opc_test_support.h"
#include "package/signing.h"
#include "support/gateway_call.h"

namespace opc {
namespace {

using namespace kqservices;
using namespace model;
using namespace opc::test;
using nlohmann::json;
using zvtest::CommandRun;
using zvtest::shellQuoted;

// The ZIP testers, then what each reader ("poi", "docx") sees of `path`, or {"error": ...} for one that refuses it.
CommandRun summarise(const std::string& path) {
  return zvtest::runCommand("/usr/bin/python3 '" ZV_INTEROP_DIR "/opc_summary.py' " + shellQuoted(path));
}

// The xmlsec checker on `signaturePart` of `package`, unzipped into `scratch`, with the key file
// `key` of `scratch` (a DER public key, or a PEM trust store when its name ends in ".pem"); then, for a
// trust store, the JDK's engine on the same files. Status 0: verified, 1: refused, 2: could not run.
std::vector<CommandRun> checkSignature(const std::string& package, const std::string& signaturePart,
                                       const zvtest::TempDir& scratch, const std::string& key) {
  const std::string folder = scratch.file("unzipped");
  const std::string args =
      " " + shellQuoted(folder) + " " + shellQuoted(signaturePart) + " " + shellQuoted(scratch.file(key));
  std::filesystem::remove_all(folder);
  const CommandRun unzip = zvtest::runCommand("unzip -q -o " + shellQuoted(package) + " -d " + shellQuoted(folder));
  if (unzip.status != 0) return {{2, "unzip failed:\n" + unzip.output}};
  std::vector<CommandRun> engines{zvtest::runCommand("'" ZV_XMLSEC_CHECK "'" + args)};
  if (key.ends_with(".pem")) {
    engines.push_back(zvtest::runCommand("java '" ZV_INTEROP_DIR "/SignatureCheck.java'" + args));
  }
  return engines;
}

void writeKey(const zvtest::TempDir& scratch, const std::string& name, const Bytes& key) {
  zvtest::writeBytes(scratch.file(name), std::string(key.begin(), key.end()));
}

// "/a/b%20c.txt" -> "/a/b c.txt", as the readers report names (a name holds no encoded '/').
std::string decodedName(const PartName& name) { return u8(PartName::decodeSegment(name.getName())); }

std::string w3cdtf(const boost::posix_time::ptime& time) { return boost::posix_time::to_iso_extended_string(time) + "Z"; }

// What the opc API reads back from the package, in the driver's summary form.
json expectedSummary(const std::string& path) {
  Session s(u16(path), OpenMode::Read);
  json summary = {{"parts", json::array()}, {"relationships", json::array()}, {"core", json::object()}, {"thumbnail", json::array()}};
  const auto relationships = [&](const std::string& source, const Relationships& rels) {
    for (const Relationship& r : rels.getRelationships()) {
      const bool internal = r.getTargetMode() == TargetMode::Internal;
      summary["relationships"].push_back({source, u8(r.getId()), u8(r.getType()),
                                          internal ? decodedName(r.getTargetPartName()) : u8(r.getTargetURI().toString()),
                                          internal ? "Internal" : "External"});
      if (source == "/" && r.getType() == PackageHelper::kThumbnailRelationshipType) {
        summary["thumbnail"].push_back(decodedName(r.getTargetPartName()));
      }
    }
  };
  relationships("/", s.package.getRelationships());
  for (const PartPtr& part : s.package.getParts()) {
    summary["parts"].push_back({decodedName(part->getPartName()), u8(part->getContentType().toString())});
    relationships(decodedName(part->getPartName()), part->getRelationships());
  }
  const CoreProperties core = CorePropertiesManager(s.package, DeterministicMode::Off).getCoreProperties();
  const std::pair<const char*, std::optional<ustring>> texts[] = {
      {"title", core.getTitle()}, {"description", core.getDescription()}, {"creator", core.getCreator()}, {"version", core.getVersion()}};
  for (const auto& [key, value] : texts) {
    if (value) summary["core"][key] = u8(*value);
  }
  if (core.getCreated()) summary["core"]["created"] = w3cdtf(*core.getCreated());
  if (core.getLastModified()) summary["core"]["modified"] = w3cdtf(*core.getLastModified());
  for (const char* list : {"parts", "relationships", "thumbnail"}) std::sort(summary[list].begin(), summary[list].end());
  return summary;
}

// What the readers see of `path`; each of `agreeing` must see what the library reads back.
json readersSee(const std::string& path, const std::vector<const char*>& agreeing = {"poi", "docx"}) {
  const CommandRun run = summarise(path);
  EXPECT_EQ(run.status, 0) << run.output;
  const json seen = run.status == 0 ? json::parse(run.output) : json();
  for (const char* reader : agreeing) {
    EXPECT_EQ(seen[reader], expectedSummary(path)) << reader << " saw:\n" << seen.dump(1);
  }
  return seen;
}

// Every kind of part (gateway-written and signed; then through the opc API part-to-part, explicit-id and
// external relationships, a stored non-ASCII part, undated core properties; awkward content names).
TEST(Interop, ReadersSeeWhatTheLibraryWrote) {
  XercesGuard guard;
  zvtest::TempDir dir;
  const std::string path = dir.file("addon.zvaddon");
  zvtest::callOk(zvAddonCreate, {path, zvtest::properties("First title")});
  zvtest::Json edited = zvtest::properties("Caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87");
  edited["summary"] = "Second <summary> & more";
  edited["authorName"] = "Zo\xC3\xAB \xC3\x85ngstr\xC3\xB6m";
  zvtest::callOk(zvAddonSetProperties, {path, edited});
  zvtest::writeBytes(dir.file("shot.png"), "\x89PNG\r\n\x1a\n");
  zvtest::callOk(zvAddonSetScreenshot, {path, dir.file("shot.png")});
  zvtest::callOk(zvAddonSetSystemRequirements, {path, {{"productDependency", {{{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}}}}}});
  zvtest::callOk(zvAddonSign, {path});
  writeKey(dir, "builtin.der", addon::packaging::getVerificationKey());
  const CommandRun signature = checkSignature(path, "/_xmlsignatures/sig1.xml", dir, "builtin.der").at(0);
  EXPECT_EQ(signature.status, 0) << signature.output;
  EXPECT_NE(signature.output.find("reference ok /metadata/systemRequirements.xml?"), std::string::npos) << signature.output;

  const json seen = readersSee(path)["poi"];
  const json created = seen["core"].value("created", json());
  EXPECT_EQ(seen["core"], json({{"title", edited["name"]}, {"description", edited["summary"]}, {"creator", edited["authorName"]},
                                {"version", "1.2.0"}, {"created", created}, {"modified", created}}));
  EXPECT_EQ(created.is_string() ? created.get<std::string>().size() : 0u, 20u) << "whole seconds, UTC";
  EXPECT_EQ(seen["thumbnail"], json::array({"/metadata/primaryScreenShot.png"}));
  EXPECT_NE(seen["parts"].dump().find("application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml"), std::string::npos);

  withPackage(u16(path), OpenMode::Modify, [](Package& p) {
    const ustring data = PartName(u"/content/Donn\u00e9es_\U0001F4CA.txt").getName();
    PartPtr content = addPart(p, data, u"text/plain", patternBytes(5000, 7), Compression::Stored);
    const PartPtr properties = p.getPart(PartName(u"/metadata/addonProperties.xml"));
    properties->getRelationships().createRelationship(URI(u"../content/" + data.substr(9)), u"urn:zv:test:content");
    content->getRelationships().createRelationship(URI(u"/metadata/primaryScreenShot.png"), u"urn:zv:test:picture", u"pic");
    p.getRelationships().createRelationship(URI(u"https://example.com/help?topic=a%20b"), u"urn:zv:test:help", u"",
                                            TargetMode::External);
    // Core properties without dates, as the deterministic mode writes them.
    CorePropertiesManager manager(p, DeterministicMode::On);
    manager.setCoreProperties(manager.getCoreProperties());
  });
  EXPECT_FALSE(readersSee(path)["poi"]["core"].contains("created"));

  // Content parts with awkward names and empty folders, which python-docx does not reach (no
  // relationship leads to them): POI sees them as the library does, python-docx still opens the package.
  zvtest::writeBytes(dir.file("source.m"), "content");
  for (const char* name : {"with space.m", "#1/50%/[x].m", "a&b/ends./_rels/x.rels", "caf\xC3\xA9/\xE4\xB8\xAD.m", "nb\xC2\xA0sp"}) {
    zvtest::callOk(zvAddonAddFiles, {path, dir.file("source.m"), name});
  }
  zvtest::callOk(zvAddonAddFolders, {path, zvtest::Json{"e", "f g"}});
  const json last = readersSee(path, {"poi"});
  EXPECT_FALSE(last["docx"].contains("error")) << last["docx"];
}

// POI 4.0.1 refuses a part whose name percent-encodes a space, "#", "%", "?" or "[" (it cannot name such
// a part's relationships part); python-docx reads it. And the driver is no rubber stamp.
TEST(Interop, EscapedNamesForPythonDocxAndABrokenPackage) {
  XercesGuard guard;
  zvtest::TempDir dir;
  const std::string path = dir.file("escaped.zvaddon");
  withPackage(u16(path), OpenMode::Create, [](Package& p) {
    const ustring escapes = u"/content/a%20b%20%231%20100%25%20%5Bx%5D%3F.txt";
    addPart(p, escapes, u"text/plain", "text");
    p.getRelationships().createRelationship(PartName(escapes).getURI(), u"urn:zv:test:data");
  });
  const json seen = readersSee(path, {"docx"});
  EXPECT_NE(seen["poi"].value("error", "").find("POI refused the package"), std::string::npos) << seen["poi"];
  zvtest::writeBytes(dir.file("broken.zvaddon"), "PK\x03\x04 this is no archive");
  const CommandRun broken = summarise(dir.file("broken.zvaddon"));
  EXPECT_NE(broken.status, 0);
  EXPECT_NE(broken.output.find("failed"), std::string::npos) << broken.output;
}

// Requirements signatures with each digest, author signatures (every part, the certificate in
// KeyInfo) checked through the chain to a trust store, and packages changed after signing.
TEST(Interop, EnginesVerifyOurSignaturesAndRefuseChangedOnes) {
  using foundation::crypto::utils::DigestMethod;
  using foundation::crypto::utils::SignatureMethod;
  XercesGuard guard;
  const auto& certs = testCertificates();
  const auto requirements = [](DigestMethod d, SignatureMethod s) {
    return [=](Package& p) {
      (void)DigitalSignatureManager(p).sign({PartName(kRequirementsPart)}, requirementsSelectors(), testKeys(0).signing,
                                            testKeys(0).verification, SignatureParams{d, s});
    };
  };
  const auto author = [&](const char* key) {
    return [&certs, key](Package& p) {
      const RelationshipSelector others(PackageHelper::getPackageRootURI(), RelationshipSelectorType::SelectByType,
                                        kOtherType);
      (void)DigitalSignatureManager(p).sign({PartName(kRequirementsPart), PartName(kOtherPart)}, {others},
                                            certs.key(key), defaultParams());
    };
  };
  const auto sha256 = requirements(DigestMethod::SHA256, SignatureMethod::RSA_SHA256);
  const auto sha384 = requirements(DigestMethod::SHA384, SignatureMethod::RSA_SHA256);
  const auto sha512 = requirements(DigestMethod::SHA512, SignatureMethod::RSA_SHA512);
  const auto none = [](Package&) {};
  const struct {
    const char* name;
    std::function<void(Package&)> sign, change;
    const char* key;  // a file written below
    int status;
    const char* seen;  // a line the engines print when they verify
  } cases[] = {
      {"SHA-256", sha256, none, "key0.der", 0, "reference ok /metadata/systemRequirements.xml?ContentType="},
      {"SHA-384 digests", sha384, none, "key0.der", 0, "reference ok /_rels/.rels?ContentType="},
      {"SHA-512", sha512, none, "key0.der", 0, "signature ok"},
      {"RSA author", author("rsa"), none, "ca.pem", 0, "reference ok /metadata/other.xml?ContentType="},
      {"EC author", author("ec"), none, "ca.pem", 0, "reference ok /_rels/.rels?ContentType="},
      {"author of another root", author("rsa"), none, "other.pem", 1, ""},
      {"changed requirements", sha256,
       [](Package& p) { replacePartContent(p, kRequirementsPart, "<systemRequirements/>"); }, "key0.der", 1, ""},
      {"retargeted relationship", sha256,
       [](Package& p) {
         const ustring id = p.getRelationships().getRelationshipsByType(kRequirementsType).at(0).getId();
         p.getRelationships().deleteRelationship(id);
         p.getRelationships().createRelationship(URI(u"metadata/other.xml"), kRequirementsType, id);
       },
       "key0.der", 1, ""},
      {"another key", sha256, none, "key1.der", 1, ""},
  };
  zvtest::TempDir dir;
  const std::string path = dir.file("signed.zvaddon");
  writeKey(dir, "key0.der", testKeys(0).verification);
  writeKey(dir, "key1.der", testKeys(1).verification);
  for (const char* trust : {"ca.pem", "other.pem"}) zvtest::writeBytes(dir.file(trust), certs.pem(trust));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    makeSignablePackage(u16(path));
    for (const auto& step : {c.sign, c.change}) withPackage(u16(path), OpenMode::Modify, step);
    Session read(u16(path), OpenMode::Read);
    const std::string part = u8(DigitalSignatureManager(read.package).getSignatures().back().getSignaturePartName().getName());
    for (const CommandRun& engine : checkSignature(path, part, dir, c.key)) {
      EXPECT_EQ(engine.status, c.status) << engine.output;
      EXPECT_TRUE(c.status != 0 || engine.output.find(c.seen) != std::string::npos) << engine.output;
    }
  }
}

}  // namespace
}  // namespace opc
