#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "opc/exception.h"
#include "opc/kqservices/core_properties.h"
#include "opc/model/package.h"
#include "opc/model/package_helper.h"
#include "opc/zippackage/zip_physical_package.h"
#include "opc_test_support.h"
#include "xml_test_streams.h"

namespace opc::kqservices {
namespace {

using ::testing::HasSubstr;
using interfaces::OpenMode;
using model::XercesHelper;
using opc::test::ScratchDir;
using opc::test::u8;
namespace pt = boost::posix_time;

const std::string kCoreOpen =
    "<cp:coreProperties xmlns:cp='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
    "xmlns:dc='http://purl.org/dc/elements/1.1/' xmlns:dcterms='http://purl.org/dc/terms/' "
    "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'>";
const std::string kCoreClose = "</cp:coreProperties>";

pt::ptime at(const char* text) { return pt::time_from_string(text); }

CoreProperties everything() {
  CoreProperties p(u"application/vnd.kestrelon.zorvan.toolbox", u"ZORVAN Toolbox ✓", {"R2026b", "26.2.0.1"});
  p.setTitle(u"Signal tools — Ωmega \U0001F680");
  p.setDescription(u"Line one <b>&amp;</b>\nline two ]]> \r\nend");
  p.setVersion(u"1.2.3-β");
  p.setCreator(u"José Müller 山田");
  p.setCreated(at("2026-02-03 04:05:06"));
  p.setLastModified(at("2026-02-03 04:05:07"));
  return p;
}

// An open package in a scratch folder; reopen() closes it and opens it again in another mode.
class PackageFixture {
 public:
  explicit PackageFixture(OpenMode mode = OpenMode::Create)
      : path_(dir_.ufile("p.zip")), physical_(std::make_unique<zippackage::ZipPhysicalPackage>(path_, false)),
        package_(std::make_unique<model::Package>(*physical_)) {
    package_->open(mode);
  }
  model::Package& package() { return *package_; }
  void reopen(OpenMode mode) {
    package_->close();
    package_ = std::make_unique<model::Package>(*physical_);
    package_->open(mode);
  }
  std::string partText(const ustring& name) {
    auto in = package_->getPart(model::PartName(name))->getInputStream();
    return opc::test::readAll(*in);
  }
  void addPart(const ustring& name, const ustring& contentType, const std::string& bytes) {
    auto part = package_->createPart(model::PartName(name), model::ContentType(contentType), model::StandardPartInfo());
    auto out = part->getOutputStream();
    opc::test::writeAll(*out, bytes);
    out->flush();
  }
  // A core-properties part of these bytes, related from the root.
  void addCorePart(const std::string& bytes, const ustring& name = u"/docProps/core.xml") {
    addPart(name, model::PackageHelper::getCorePropertiesContentType(), bytes);
    package_->createRelationship(model::PartName(name).getURI(),
                                 model::PackageHelper::getCorePropertiesRelationshipType());
  }

 private:
  ScratchDir dir_;
  ustring path_;
  std::unique_ptr<zippackage::ZipPhysicalPackage> physical_;
  std::unique_ptr<model::Package> package_;
};

CoreProperties readDocument(const std::string& xml) {
  opc::testing::BytesInput in(xml);
  model::DocumentPtr document =
      XercesHelper::readDocumentFromStream(XercesHelper::createParser(), in, false, u"", u"");
  CoreProperties properties;
  CorePropertiesManager::readCorePropertiesDocument(*document, properties);
  return properties;
}

std::string writeDocument(const model::DocumentPtr& document) {
  opc::testing::BytesOutput out;
  XercesHelper::writeDocumentToStream(XercesHelper::createWriter(), document, out);
  return out.bytes;
}

class CorePropertiesTest : public ::testing::Test {
 protected:
  model::XercesGuard guard_;
};

// ---- values -----------------------------------------------------------------------------------------

// ---- reading the core-properties part ------------------------------------------------------------

TEST_F(CorePropertiesTest, W3cdtfDatesAreReadAsUtc) {
  const struct {
    const char* text;
    const char* utc;
  } cases[] = {
      {"2026-02-03T04:05:06Z", "2026-02-03 04:05:06"},
      {"2026-02-03T04:05:06.789Z", "2026-02-03 04:05:06"},
      {"2026-02-03T04:05Z", "2026-02-03 04:05:00"},
      {"2026-02-03T04:05:06+02:00", "2026-02-03 02:05:06"},
      {"2026-02-03T23:30:00-01:45", "2026-02-04 01:15:00"},
      {"2026-02-03T04:05:06", "2026-02-03 04:05:06"},
      {"2026-02-03", "2026-02-03 00:00:00"},
      {"2026-02", "2026-02-01 00:00:00"},
      {"2026", "2026-01-01 00:00:00"},
      {"\n   2005-06-12\n  ", "2005-06-12 00:00:00"},
      {"2024-02-29T12:00:00Z", "2024-02-29 12:00:00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const CoreProperties p = readDocument(kCoreOpen + "<dcterms:created xsi:type='dcterms:W3CDTF'>" + c.text +
                                          "</dcterms:created>" + kCoreClose);
    EXPECT_EQ(p.getCreated(), at(c.utc));
  }
}

TEST_F(CorePropertiesTest, PartsBreakingTheStandardsRulesAreRefused) {
  const auto created = [](const std::string& attributes, const std::string& value) {
    return "<dcterms:created " + attributes + ">" + value + "</dcterms:created>";
  };
  const std::string typed = "xsi:type='dcterms:W3CDTF'";
  const struct {
    const char* label;
    std::string body;
    const char* expected;
  } cases[] = {
      {"month 13", created(typed, "2026-13-01"), "no W3CDTF date"},
      {"30 February", created(typed, "2026-02-30"), "no W3CDTF date"},
      {"hour 25", created(typed, "2026-02-03T25:00Z"), "no W3CDTF date"},
      {"zone beyond 14 hours", created(typed, "2026-02-03T10:00+15:00"), "no W3CDTF date"},
      {"words", created(typed, "yesterday"), "no W3CDTF date"},
      {"empty date", created(typed, ""), "no W3CDTF date"},
      {"trailing junk", created(typed, "2026-02-03Tx"), "no W3CDTF date"},
      {"date without xsi:type", created("", "2026-02-03"), "lacks xsi:type"},
      {"date of another xsi:type", created("xmlns:xs='http://www.w3.org/2001/XMLSchema' xsi:type='xs:dateTime'",
                                           "2026-02-03T00:00:00Z"),
       "must be dcterms:W3CDTF"},
      {"W3CDTF prefix bound elsewhere", created("xmlns:d='urn:other' xsi:type='d:W3CDTF'", "2026"),
       "must be dcterms:W3CDTF"},
      {"xsi:type on a text property", "<dc:title xsi:type='dcterms:W3CDTF'>t</dc:title>",
       "allowed only on dcterms:created"},
      {"xml:lang", "<dc:title xml:lang='en'>t</dc:title>", "xml:lang"},
      {"markup-compatibility declaration",
       "<dc:title xmlns:mc='http://schemas.openxmlformats.org/markup-compatibility/2006'>t</dc:title>",
       "markup-compatibility"},
      {"markup-compatibility element",
       "<mc:AlternateContent xmlns:mc='http://schemas.openxmlformats.org/markup-compatibility/2006'/>",
       "markup compatibility"},
      {"content type element", "<cp:contentType>x</cp:contentType>", "not in the standard's schema"},
      {"refinement other than the two dates", "<dcterms:issued>2026</dcterms:issued>",
       "not in the standard's schema"},
      {"foreign element", "<x:extra xmlns:x='urn:x'/>", "not in the standard's schema"},
      {"repeated element", "<dc:title>a</dc:title><dc:title>b</dc:title>", "more than once"},
      {"markup inside a value", "<dc:title>a<b xmlns='urn:x'/></dc:title>", "not allowed inside"},
      {"unknown attribute", "<dc:title note='x'>a</dc:title>", "attribute note"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    try {
      (void)readDocument(kCoreOpen + c.body + kCoreClose);
      ADD_FAILURE() << "accepted";
    } catch (const opc::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr(c.expected));
    }
  }
}

TEST_F(CorePropertiesTest, WhatTheStandardAllowsIsAccepted) {
  const std::string body =
      "<cp:keywords>a, b<cp:value>c</cp:value></cp:keywords><cp:category>tools</cp:category>"
      "<dc:subject>s</dc:subject><cp:lastPrinted>2020-01-01T00:00:00Z</cp:lastPrinted>"
      "<dcterms:modified xmlns:t='http://purl.org/dc/terms/' xsi:type='t:W3CDTF'>2020-01-01</dcterms:modified>"
      "<dc:title/>";
  const CoreProperties p = readDocument(kCoreOpen + body + kCoreClose);
  EXPECT_EQ(p.getLastModified(), at("2020-01-01 00:00:00"));
  EXPECT_EQ(p.getTitle(), u"");  // present but empty is not absent
  EXPECT_FALSE(p.getDescription());

  // The standard's own example: default namespace, whitespace around a date.
  const CoreProperties example = readDocument(
      "<coreProperties xmlns='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
      "xmlns:dcterms='http://purl.org/dc/terms/' xmlns:dc='http://purl.org/dc/elements/1.1/' "
      "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'><dc:creator>Alan</dc:creator>"
      "<dcterms:created xsi:type='dcterms:W3CDTF'>\n 2005-06-12\n </dcterms:created>"
      "<version>1.0</version><contentStatus>Reviewed</contentStatus></coreProperties>");
  EXPECT_EQ(example.getCreator(), u"Alan");
  EXPECT_EQ(example.getVersion(), u"1.0");
  EXPECT_EQ(example.getCreated(), at("2005-06-12 00:00:00"));
}

// ---- schema validity of what is written ------------------------------------------------------------

// Runs xmllint on `xml` against `schema` (in tests/data/xml); returns its exit status and output.
std::pair<int, std::string> xmllint(const std::string& xml, const char* schema, const ScratchDir& dir) {
  const std::string file = dir.file("doc.xml");
  opc::test::writeFile(file, xml);
  const std::string command = std::string("xmllint --noout --nonet --schema '") + ZV_TEST_DATA_DIR "/xml/" +
                              schema + "' '" + file + "' 2>&1";
  std::string output;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, "popen failed"};
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
  return {::pclose(pipe), output};
}

void validateWithXerces(const std::string& xml, const char* schema, const ustring& ns) {
  opc::testing::BytesInput in(xml);
  (void)XercesHelper::readDocumentFromStream(XercesHelper::createParser(), in, true,
                                             opc::test::u16(std::string(ZV_TEST_DATA_DIR "/xml/") + schema), ns);
}

TEST_F(CorePropertiesTest, WrittenPartsAreValidAgainstTheirSchemas) {
  ScratchDir dir;
  CoreProperties onlyTitle;
  onlyTitle.setTitle(u"t");
  CoreProperties onlyDates;
  onlyDates.setCreated(at("1970-01-01 00:00:00"));
  onlyDates.setLastModified(at("9999-12-31 23:59:59"));
  CoreProperties emptyTexts;
  for (auto set : {&CoreProperties::setTitle, &CoreProperties::setDescription, &CoreProperties::setVersion,
                   &CoreProperties::setCreator}) {
    (emptyTexts.*set)(u"");
  }
  const std::string kept = opc::test::readFile(ZV_TEST_DATA_DIR "/xml/core-foreign-properties.xml");
  opc::testing::BytesInput keptIn(kept);
  model::DocumentPtr keep = XercesHelper::readDocumentFromStream(XercesHelper::createParser(), keptIn, false, u"", u"");

  const struct {
    const char* label;
    CoreProperties properties;
    DeterministicMode mode;
    const xercesc::DOMDocument* keep;
  } cases[] = {
      {"everything", everything(), DeterministicMode::Off, nullptr},
      {"deterministic", everything(), DeterministicMode::On, nullptr},
      {"nothing", CoreProperties(), DeterministicMode::Off, nullptr},
      {"only a title", onlyTitle, DeterministicMode::Off, nullptr},
      {"only dates at the range's ends", onlyDates, DeterministicMode::Off, nullptr},
      {"empty texts", emptyTexts, DeterministicMode::Off, nullptr},
      {"with kept foreign properties", everything(), DeterministicMode::Off, keep.get()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string core =
        writeDocument(CorePropertiesManager::buildCorePropertiesDocument(c.properties, c.mode, c.keep));
    const auto [status, output] = xmllint(core, "opc-coreProperties.xsd", dir);
    EXPECT_EQ(status, 0) << output << core;
    EXPECT_NO_THROW(validateWithXerces(core, "opc-coreProperties.xsd",
                                       model::PackageHelper::getCorePropertiesNamespace()))
        << core;
    EXPECT_EQ(core.find("xml:lang"), std::string::npos);
    EXPECT_EQ(core.find("W3CDTF") != std::string::npos,
              c.mode == DeterministicMode::Off && c.properties.getCreated().has_value());

    if (model::DocumentPtr companion = CorePropertiesManager::buildPackagePropertiesDocument(c.properties)) {
      const std::string bytes = writeDocument(companion);
      const auto [companionStatus, companionOutput] = xmllint(bytes, "package-properties.xsd", dir);
      EXPECT_EQ(companionStatus, 0) << companionOutput << bytes;
    }
  }
}

TEST_F(CorePropertiesTest, ForeignStandardPropertiesSurviveARewrite) {
  const std::string kept = opc::test::readFile(ZV_TEST_DATA_DIR "/xml/core-foreign-properties.xml");
  opc::testing::BytesInput keptIn(kept);
  model::DocumentPtr keep = XercesHelper::readDocumentFromStream(XercesHelper::createParser(), keptIn, false, u"", u"");
  CoreProperties p;
  p.setTitle(u"new title");
  const std::string written =
      writeDocument(CorePropertiesManager::buildCorePropertiesDocument(p, DeterministicMode::Off, keep.get()));

  const CoreProperties back = readDocument(written);
  EXPECT_EQ(back.getTitle(), u"new title");  // the old title is replaced, not repeated
  EXPECT_FALSE(back.getCreator());            // modelled and absent now: dropped
  for (const char* survivor : {"<cp:category>tools<", "<dc:subject>signals<", "<cp:revision>7<",
                               "<cp:keywords>Ключ, filter<cp:value>fft</cp:value></cp:keywords>"}) {
    EXPECT_THAT(written, HasSubstr(survivor));
  }
  EXPECT_EQ(written.find("xmlns:cp="), written.rfind("xmlns:cp="));  // declared once, on the root
}

// ---- through a package -----------------------------------------------------------------------------

TEST_F(CorePropertiesTest, WriteCloseReopenReadRoundTrips) {
  CoreProperties onlyPackageFields(u"application/x-a", u"A", {"R1", ""});
  CoreProperties onlyCoreFields = everything();
  onlyCoreFields = CoreProperties();
  onlyCoreFields.setTitle(u"Ünïcödé \U0001F4E6");
  onlyCoreFields.setCreated(at("2001-09-09 01:46:40"));
  const struct {
    const char* label;
    CoreProperties properties;
  } cases[] = {
      {"everything, non-ASCII", everything()},
      {"nothing", CoreProperties()},
      {"only package fields", onlyPackageFields},
      {"only core fields", onlyCoreFields},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    PackageFixture fixture;
    CorePropertiesManager(fixture.package(), DeterministicMode::Off).setCoreProperties(c.properties);
    fixture.reopen(OpenMode::Read);
    const CoreProperties back = CorePropertiesManager(fixture.package(), DeterministicMode::Off).getCoreProperties();
    EXPECT_TRUE(back == c.properties);
    EXPECT_EQ(u8(back.getTitle().value_or(u"(absent)")), u8(c.properties.getTitle().value_or(u"(absent)")));
    EXPECT_EQ(u8(back.getDescription().value_or(u"(absent)")),
              u8(c.properties.getDescription().value_or(u"(absent)")));
    EXPECT_EQ(back.getCreated(), c.properties.getCreated());
    EXPECT_EQ(back.getZORVANRelease(), c.properties.getZORVANRelease());
    const bool companion = c.properties.getContentType() || c.properties.getContentTypeFriendlyName() ||
                           c.properties.getZORVANReleaseInfo();
    EXPECT_EQ(fixture.package().getRelationshipsByType(CorePropertiesManager::getPackagePropertiesRelationshipType()).size(),
              companion ? 1u : 0u);
  }
}

TEST_F(CorePropertiesTest, RewritingKeepsOnePartAndOneRelationshipEach) {
  PackageFixture fixture;
  CorePropertiesManager manager(fixture.package(), DeterministicMode::Off);
  manager.setCoreProperties(everything());
  fixture.reopen(OpenMode::Modify);
  CorePropertiesManager again(fixture.package(), DeterministicMode::Off);
  CoreProperties changed = again.getCoreProperties();
  changed.setTitle(u"second");
  again.setCoreProperties(changed);
  again.setCoreProperties(changed);
  fixture.reopen(OpenMode::Read);

  const model::Package& package = fixture.package();
  EXPECT_EQ(package.getRelationshipsByType(model::PackageHelper::getCorePropertiesRelationshipType()).size(), 1u);
  EXPECT_EQ(package.getRelationshipsByType(CorePropertiesManager::getPackagePropertiesRelationshipType()).size(), 1u);
  EXPECT_EQ(package.getPartCount(), 2u);
  EXPECT_EQ(CorePropertiesManager(fixture.package(), DeterministicMode::Off).getCoreProperties().getTitle(),
            u"second");
}

TEST_F(CorePropertiesTest, EmptyCompanionIsRemovedWithItsRelationship) {
  PackageFixture fixture;
  CorePropertiesManager(fixture.package(), DeterministicMode::Off).setCoreProperties(everything());
  fixture.reopen(OpenMode::Modify);
  CoreProperties coreOnly;
  coreOnly.setTitle(u"t");
  CorePropertiesManager(fixture.package(), DeterministicMode::Off).setCoreProperties(coreOnly);
  fixture.reopen(OpenMode::Read);
  EXPECT_FALSE(fixture.package().partExists(model::PartName(u"/docProps/package.xml")));
  EXPECT_TRUE(fixture.package().getRelationshipsByType(CorePropertiesManager::getPackagePropertiesRelationshipType()).empty());
  EXPECT_TRUE(CorePropertiesManager(fixture.package(), DeterministicMode::Off).getCoreProperties() == coreOnly);
}

TEST_F(CorePropertiesTest, CorePartIsFoundWhereverTheRelationshipPoints) {
  PackageFixture fixture;
  const ustring name = u"/package/services/metadata/core-properties/4f2a.psmdcp";
  fixture.addCorePart(kCoreOpen + "<dc:title>elsewhere</dc:title>" + kCoreClose, name);
  CorePropertiesManager manager(fixture.package(), DeterministicMode::Off);
  EXPECT_EQ(manager.getCoreProperties().getTitle(), u"elsewhere");
  CoreProperties p;
  p.setTitle(u"rewritten");
  manager.setCoreProperties(p);
  fixture.reopen(OpenMode::Read);
  EXPECT_FALSE(fixture.package().partExists(model::PartName(u"/docProps/core.xml")));
  EXPECT_THAT(fixture.partText(name), HasSubstr("rewritten"));
}

TEST_F(CorePropertiesTest, NewPartsAvoidNamesInUse) {
  PackageFixture fixture;
  fixture.addPart(u"/docProps/core.xml", u"application/xml", "<unrelated/>");
  CorePropertiesManager(fixture.package(), DeterministicMode::Off).setCoreProperties(everything());
  fixture.reopen(OpenMode::Read);
  EXPECT_EQ(fixture.partText(u"/docProps/core.xml"), "<unrelated/>");
  EXPECT_EQ(CorePropertiesManager(fixture.package(), DeterministicMode::Off).getCoreProperties().getTitle(),
            everything().getTitle());
}

TEST_F(CorePropertiesTest, DeterministicModeWritesNoDates) {
  std::string first;
  for (int round = 0; round < 2; ++round) {
    PackageFixture fixture;
    CoreProperties p = everything();
    p.setCreated(at("2026-01-01 00:00:00") + pt::hours(round));  // differs between the two builds
    CorePropertiesManager(fixture.package(), DeterministicMode::On).setCoreProperties(p);
    const std::string core = fixture.partText(u"/docProps/core.xml");
    EXPECT_EQ(core.find("dcterms:created"), std::string::npos);
    if (round == 0) first = core;
    else EXPECT_EQ(core, first);
  }
}

TEST_F(CorePropertiesTest, BrokenPackagesAreReportedNotGuessed) {
  const std::string valid = kCoreOpen + "<dc:title>t</dc:title>" + kCoreClose;
  const auto& coreType = model::PackageHelper::getCorePropertiesRelationshipType();
  const struct {
    const char* label;
    std::function<void(PackageFixture&)> build;
    const char* expected;
  } cases[] = {
      {"two core relationships",
       [&](PackageFixture& f) {
         f.addCorePart(valid);
         f.package().createRelationship(model::PartName(u"/docProps/core.xml").getURI(), coreType);
       },
       "at most one"},
      {"dangling core relationship",
       [&](PackageFixture& f) { f.package().createRelationship(model::URI(u"/missing.xml"), coreType); },
       "not in the package"},
      {"external core relationship",
       [&](PackageFixture& f) {
         f.package().createRelationship(model::URI(u"http://example.com/core.xml"), coreType, u"",
                                        model::TargetMode::External);
       },
       "external"},
      {"wrong content type",
       [&](PackageFixture& f) {
         f.addPart(u"/core.xml", u"application/xml", valid);
         f.package().createRelationship(model::PartName(u"/core.xml").getURI(), coreType);
       },
       "expected 'application/vnd.openxmlformats-package.core-properties+xml'"},
      {"wrong root namespace", [&](PackageFixture& f) { f.addCorePart("<coreProperties xmlns='urn:x'/>"); },
       "/docProps/core.xml"},
      {"malformed XML", [&](PackageFixture& f) { f.addCorePart("<cp:coreProperties"); }, "malformed XML"},
      {"rule broken", [&](PackageFixture& f) { f.addCorePart(kCoreOpen + "<dc:title xml:lang='en'/>" + kCoreClose); },
       "xml:lang"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    PackageFixture fixture;
    c.build(fixture);
    fixture.reopen(OpenMode::Read);
    try {
      (void)CorePropertiesManager(fixture.package(), DeterministicMode::Off).getCoreProperties();
      ADD_FAILURE() << "accepted";
    } catch (const opc::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr(c.expected));
    }
  }
}

TEST_F(CorePropertiesTest, BrokenCorePartIsReplacedWhole) {
  PackageFixture fixture;
  fixture.addCorePart(kCoreOpen + "<dc:title xml:lang='en'>old</dc:title><cp:category>c</cp:category>" + kCoreClose);
  CoreProperties p;
  p.setCreator(u"fixer");
  CorePropertiesManager(fixture.package(), DeterministicMode::Off).setCoreProperties(p);
  fixture.reopen(OpenMode::Read);
  const std::string core = fixture.partText(u"/docProps/core.xml");
  EXPECT_EQ(core.find("category"), std::string::npos);
  EXPECT_TRUE(CorePropertiesManager(fixture.package(), DeterministicMode::Off).getCoreProperties() == p);
}

}  // namespace
}  // namespace opc::kqservices
