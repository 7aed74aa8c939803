// Packages built through the opc API must open in independent readers (Apache POI's openxml4j,
// python-docx's OPC layer, unzip, 7z) without complaint, and those readers must see the parts,
// relationships and core properties that the opc API itself reads back.
#include <functional>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "opc/kqservices/core_properties.h"
#include "opc/model/package.h"
#include "opc/model/package_helper.h"
#include "opc/opc_test_support.h"
#include "opc/zippackage/zip_physical_package.h"
#include "support/command.h"

namespace opc {
namespace {

using interfaces::OpenMode;
using kqservices::CoreProperties;
using kqservices::CorePropertiesManager;
using kqservices::DeterministicMode;
using nlohmann::json;
using opc::test::u8;

using DriverRun = zvtest::CommandRun;

// The driver's verdict on `path`: the readers ("poi", "docx" or "both") and the ZIP testers.
DriverRun summarise(const std::string& path, const char* readers = "both") {
  return zvtest::runCommand(std::string("/usr/bin/python3 '") + ZV_INTEROP_DRIVER + "' --reader " + readers +
                            " --zip-test --java-classes '" + ZV_INTEROP_JAVA_CLASSES + "' " + zvtest::shellQuoted(path));
}

// "/a/b%20c.txt" -> "/a/b c.txt", as the readers report names.
std::string decodedName(const model::PartName& name) {
  const ustring& text = name.getName();
  ustring out;
  std::size_t start = 1;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find(u'/', start), text.size());
    out += u'/' + model::PartName::decodeSegment(ustring_view(text).substr(start, end - start));
    start = end + 1;
  }
  return u8(out);
}

std::string w3cdtf(const boost::posix_time::ptime& time) {
  return boost::posix_time::to_iso_extended_string(time) + "Z";
}

// What the opc API reads back from the package, in the driver's summary form.
json expectedSummary(const std::string& path) {
  zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(path), false);
  model::Package package(physical);
  package.open(OpenMode::Read);
  json summary = {{"parts", json::array()}, {"relationships", json::array()}, {"core", json::object()},
                  {"thumbnail", json::array()}};
  const auto relationships = [&](const std::string& source, const model::Relationships& rels) {
    for (const model::Relationship& r : rels.getRelationships()) {
      const bool internal = r.getTargetMode() == model::TargetMode::Internal;
      summary["relationships"].push_back(
          {source, u8(r.getId()), u8(r.getType()),
           internal ? decodedName(r.getTargetPartName()) : u8(r.getTargetURI().toString()),
           internal ? "Internal" : "External"});
      if (source == "/" && r.getType() == model::PackageHelper::getThumbnailRelationshipType()) {
        summary["thumbnail"].push_back(decodedName(r.getTargetPartName()));
      }
    }
  };
  relationships("/", package.getRelationships());
  for (const model::PartPtr& part : package.getParts()) {
    summary["parts"].push_back({decodedName(part->getPartName()), u8(part->getContentType().toString())});
    relationships(decodedName(part->getPartName()), part->getRelationships());
  }
  const CoreProperties core = CorePropertiesManager(package, DeterministicMode::Off).getCoreProperties();
  const auto text = [&](const char* key, const std::optional<ustring>& value) {
    if (value) summary["core"][key] = u8(*value);
  };
  text("title", core.getTitle());
  text("description", core.getDescription());
  text("creator", core.getCreator());
  text("version", core.getVersion());
  if (core.getCreated()) summary["core"]["created"] = w3cdtf(*core.getCreated());
  if (core.getLastModified()) summary["core"]["modified"] = w3cdtf(*core.getLastModified());
  for (const char* list : {"parts", "relationships", "thumbnail"}) {
    std::sort(summary[list].begin(), summary[list].end());
  }
  return summary;
}

// Builds a package in Create mode through `build`, then closes it.
void buildPackage(const std::string& path, const std::function<void(model::Package&)>& build) {
  zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(path), false);
  model::Package package(physical);
  package.open(OpenMode::Create);
  build(package);
  package.close();
}

model::PartPtr addPart(model::Package& package, const ustring& name, const ustring& contentType,
                       const std::string& bytes, Compression compression = Compression::Deflated) {
  model::PartPtr part = package.createPart(model::PartName(name), model::ContentType(contentType),
                                           model::StandardPartInfo(compression, bytes.size()));
  auto out = part->getOutputStream();
  opc::test::writeAll(*out, bytes);
  out->flush();
  return part;
}

CoreProperties addonCoreProperties() {
  CoreProperties core(u"application/vnd.kestrelon.zorvan.toolbox", u"ZORVAN Toolbox", {"R2026b", "26.2.0.1"});
  core.setTitle(u"Signal Tools — Ωμέγα \U0001F680");
  core.setDescription(u"Filters & <transforms>\nsecond line");
  core.setVersion(u"2.1.0");
  core.setCreator(u"Zoë Ångström 山田");
  const auto when = boost::posix_time::time_from_string("2026-02-03 04:05:06");
  core.setCreated(when);
  core.setLastModified(when);
  return core;
}

// A tiny valid PNG (1x1, grey), as a screenshot and thumbnail would be.
const std::string kPng(
    "\x89\x50\x4e\x47\x0d\x0a\x1a\x0a\x00\x00\x00\x0d\x49\x48\x44\x52\x00\x00\x00\x01\x00\x00\x00\x01"
    "\x08\x00\x00\x00\x00\x3a\x7e\x9b\x55\x00\x00\x00\x0a\x49\x44\x41\x54\x78\x9c\x63\x68\x00\x00"
    "\x00\x82\x00\x81\x77\xcd\x72\xb6\x00\x00\x00\x00\x49\x45\x4e\x44\xae\x42\x60\x82",
    67);

class OpcReadersTest : public ::testing::Test {
 protected:
  model::XercesGuard guard_;
  opc::test::ScratchDir dir_;
};

TEST_F(OpcReadersTest, IndependentReadersSeeWhatTheLibraryWrote) {
  const ustring unicodeName = u"/content/" + model::PartName::encodeSegment(u"Données_数据_\U0001F4CA.txt");
  // Valid names, but Apache POI 4.0.1 refuses a package holding a part whose name percent-encodes a
  // space, "#", "%", "?" or "[" (it cannot name such a part's relationships part).
  const ustring asciiEscapes = u"/content/" + model::PartName::encodeSegment(u"a b #1 100% [x]?.txt");
  const struct {
    const char* label;
    const char* readers;
    std::function<void(model::Package&)> build;
  } cases[] = {
      {"add-on package", "both",
       [&](model::Package& package) {
         addPart(package, u"/metadata/addonProperties.xml", u"application/vnd.kestrelon.zorvan.addon.properties+xml",
                 "<?xml version=\"1.0\" encoding=\"UTF-8\"?><addonProperties xmlns=\"urn:zv:test\"/>");
         package.createRelationship(model::URI(u"/metadata/addonProperties.xml"), u"urn:zv:test:properties",
                                    u"rId100");
         addPart(package, u"/metadata/primaryScreenShot.png", u"image/png", kPng, Compression::Stored);
         package.createRelationship(model::URI(u"/metadata/primaryScreenShot.png"),
                                    model::PackageHelper::getThumbnailRelationshipType());
         model::PartPtr content = addPart(package, unicodeName, u"text/plain", opc::test::patternBytes(5000, 7));
         package.getPart(model::PartName(u"/metadata/addonProperties.xml"))
             ->getRelationships()
             .createRelationship(model::URI(u"../content/" + unicodeName.substr(9)), u"urn:zv:test:content");
         content->getRelationships().createRelationship(model::URI(u"/metadata/primaryScreenShot.png"),
                                                        u"urn:zv:test:picture", u"pic");
         package.createRelationship(model::URI(u"https://example.com/help?topic=a%20b"), u"urn:zv:test:help", u"",
                                    model::TargetMode::External);
         CorePropertiesManager(package, DeterministicMode::Off).setCoreProperties(addonCoreProperties());
       }},
      {"deterministic core properties", "both",
       [](model::Package& package) {
         CorePropertiesManager(package, DeterministicMode::On).setCoreProperties(addonCoreProperties());
       }},
      {"names with escaped ASCII", "docx",
       [&](model::Package& package) {
         addPart(package, asciiEscapes, u"text/plain", "text");
         package.createRelationship(model::PartName(asciiEscapes).getURI(), u"urn:zv:test:data");
         CorePropertiesManager(package, DeterministicMode::Off).setCoreProperties(addonCoreProperties());
       }},
  };
  int index = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string path = dir_.file("case" + std::to_string(index++) + ".zvaddon");
    buildPackage(path, c.build);
    const DriverRun run = summarise(path, c.readers);
    ASSERT_EQ(run.status, 0) << run.output;
    const json seen = json::parse(run.output);
    EXPECT_EQ(seen, expectedSummary(path)) << "readers saw:\n" << seen.dump(1);
    if (index > 1) continue;
    // The add-on package, against what was set rather than what the library reads back.
    const CoreProperties core = addonCoreProperties();
    EXPECT_EQ(seen["thumbnail"], json::array({"/metadata/primaryScreenShot.png"}));
    EXPECT_EQ(seen["core"]["title"], u8(*core.getTitle()));
    EXPECT_EQ(seen["core"]["description"], u8(*core.getDescription()));
    EXPECT_EQ(seen["core"]["creator"], u8(*core.getCreator()));
    EXPECT_EQ(seen["core"]["version"], u8(*core.getVersion()));
    EXPECT_EQ(seen["core"]["created"], w3cdtf(*core.getCreated()));
    std::vector<std::string> rootIds;
    for (const json& r : seen["relationships"]) {
      if (r[0] == "/") rootIds.push_back(r[1]);
    }
    // The explicit id kept, the assigned ones distinct from it and from each other.
    EXPECT_THAT(rootIds, ::testing::Contains("rId100"));
    std::sort(rootIds.begin(), rootIds.end());
    EXPECT_EQ(std::adjacent_find(rootIds.begin(), rootIds.end()), rootIds.end());
    EXPECT_EQ(rootIds.size(), 5u);  // properties, thumbnail, help, core properties, package properties
  }
}

TEST_F(OpcReadersTest, DriverReportsAPackageTheReadersRefuse) {
  const std::string notAZip = dir_.file("broken.zvaddon");
  opc::test::writeFile(notAZip, "PK\x03\x04 this is no archive");
  const DriverRun run = summarise(notAZip);
  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.output, ::testing::HasSubstr("failed"));
}

}  // namespace
}  // namespace opc
