// Core properties through a package: what is read from a core part (dates as UTC, the standard's
// rules), and what setCoreProperties stores, read back, valid by the schemas, foreign properties kept.
#include <functional>
#include <string>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "opc/exception.h"
#include "opc/kqservices/core_properties.h"
#include "opc/model/package_helper.h"
#include "opc_test_support.h"

namespace opc::kqservices {
namespace {

using namespace opc::model;
using namespace opc::test;
namespace pt = boost::posix_time;

const std::string kCoreOpen =
    "<cp:coreProperties xmlns:cp='http://schemas.openxmlformats.org/package/2006/metadata/core-properties' "
    "xmlns:dc='http://purl.org/dc/elements/1.1/' xmlns:dcterms='http://purl.org/dc/terms/' "
    "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'>";
const ustring& kCoreType = PackageHelper::kCorePropertiesRelationshipType;

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

// A core part `name` of `type` holding `bytes`, related from the root as the core properties.
std::function<void(Package&)> corePart(const std::string& bytes, const char16_t* name = u"/docProps/core.xml",
                                       const ustring& type = PackageHelper::kCorePropertiesContentType) {
  return [=](Package& p) {
    addPart(p, name, type, bytes);
    p.getRelationships().createRelationship(PartName(name).getURI(), kCoreType);
  };
}

class CorePropertiesTest : public ::testing::Test {
 protected:
  CoreProperties read() {
    Session s(path, OpenMode::Read);
    return CorePropertiesManager(s.package, DeterministicMode::Off).getCoreProperties();
  }
  ScratchDir dir;
  ustring path = dir.ufile("p.zip");
};

// Dates are read as UTC; a part breaking the standard's rules, or a package whose core part is not
// where one relationship says, is refused saying which.
TEST_F(CorePropertiesTest, CorePartsAreReadByTheStandardsRules) {
  const auto created = [](const std::string& attributes, const std::string& value) {
    return corePart(kCoreOpen + "<dcterms:created " + attributes + ">" + value + "</dcterms:created></cp:coreProperties>");
  };
  const auto body = [](const std::string& xml) { return corePart(kCoreOpen + xml + "</cp:coreProperties>"); };
  const std::string typed = "xsi:type='dcterms:W3CDTF'";
  const struct {
    const char* label;
    std::function<void(Package&)> build;
    const char* expected;  // the created time read (UTC), or a fragment of the refusal
  } cases[] = {
      {"UTC", created(typed, "2026-02-03T04:05:06Z"), "2026-02-03 04:05:06"},
      {"east of UTC", created(typed, "2026-02-03T04:05:06+02:00"), "2026-02-03 02:05:06"},
      {"west of UTC across midnight", created(typed, "2026-02-03T23:30:00-01:45"), "2026-02-04 01:15:00"},
      {"date only, spaced", created(typed, "\n   2005-06-12\n  "), "2005-06-12 00:00:00"},
      {"month 13", created(typed, "2026-13-01"), "no W3CDTF date"},
      {"zone beyond 14 hours", created(typed, "2026-02-03T10:00+15:00"), "no W3CDTF date"},
      {"trailing junk", created(typed, "2026-02-03Tx"), "no W3CDTF date"},
      {"date without xsi:type", created("", "2026-02-03"), "lacks xsi:type"},
      {"date of another xsi:type",
       created("xmlns:xs='http://www.w3.org/2001/XMLSchema' xsi:type='xs:dateTime'", "2026-02-03T00:00:00Z"),
       "must be dcterms:W3CDTF"},
      {"xsi:type on a text property", body("<dc:title xsi:type='dcterms:W3CDTF'>t</dc:title>"), "allowed only on dcterms:created"},
      {"xml:lang", body("<dc:title xml:lang='en'>t</dc:title>"), "xml:lang"},
      {"markup-compatibility element",
       body("<mc:AlternateContent xmlns:mc='http://schemas.openxmlformats.org/markup-compatibility/2006'/>"),
       "markup compatibility"},
      {"content type element", body("<cp:contentType>x</cp:contentType>"), "not in the standard's schema"},
      {"repeated element", body("<dc:title>a</dc:title><dc:title>b</dc:title>"), "more than once"},
      {"markup inside a value", body("<dc:title>a<b xmlns='urn:x'/></dc:title>"), "not allowed inside"},
      {"malformed XML", corePart("<cp:coreProperties"), "malformed XML"},
      {"two core relationships",
       [](Package& p) {
         corePart(kCoreOpen + "</cp:coreProperties>")(p);
         p.getRelationships().createRelationship(URI(u"/docProps/core.xml"), kCoreType);
       },
       "at most one"},
      {"dangling core relationship", [](Package& p) { p.getRelationships().createRelationship(URI(u"/missing.xml"), kCoreType); },
       "not in the package"},
      {"wrong content type", corePart(kCoreOpen + "</cp:coreProperties>", u"/core.xml", u"application/xml"),
       "expected 'application/vnd.openxmlformats-package.core-properties+xml'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    withPackage(path, OpenMode::Create, c.build);
    try {
      const auto created = read().getCreated();
      EXPECT_EQ(created, at(c.expected));
    } catch (const opc::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr(c.expected));
    }
  }
}

// Each stored over the last reads back, in one core part (and a companion with the package fields), one
// relationship each, valid by its schema; over a foreign part its properties not modelled stay.
TEST_F(CorePropertiesTest, StoredPropertiesReadBackInValidParts) {
  CoreProperties onlyDates;
  onlyDates.setCreated(at("1970-01-01 00:00:00"));
  onlyDates.setLastModified(at("9999-12-31 23:59:59"));
  CoreProperties titleOnly;
  titleOnly.setTitle(u"new title");
  const auto& companionType = CorePropertiesManager::getPackagePropertiesRelationshipType();
  withPackage(path, OpenMode::Create, corePart(readBytes(ZV_TEST_DATA_DIR "/xml/core-foreign-properties.xml")));
  for (const CoreProperties& properties : {titleOnly, everything(), everything(), CoreProperties(), onlyDates}) {
    const bool overForeign = properties.getTitle() == u"new title";
    withPackage(path, OpenMode::Modify,
                [&](Package& p) { CorePropertiesManager(p, DeterministicMode::Off).setCoreProperties(properties); });
    EXPECT_TRUE(read() == properties);
    Session s(path, OpenMode::Read);
    const bool companion = properties.getContentType().has_value();
    EXPECT_EQ(s.package.getRelationships().getRelationshipsByType(kCoreType).size(), 1u);
    EXPECT_EQ(s.package.getRelationships().getRelationshipsByType(companionType).size(), companion ? 1u : 0u);
    ASSERT_EQ(s.package.getPartCount(), companion ? 2u : 1u);
    for (const auto& part : s.package.getParts()) {
      const std::string bytes = readAll(*part->getInputStream());
      const bool core = part->getContentType().toString() == PackageHelper::kCorePropertiesContentType;
      const auto [status, output] =
          zvtest::xmllint(bytes, std::string(ZV_TEST_DATA_DIR) + (core ? "/xml/opc-coreProperties.xsd" : "/xml/package-properties.xsd"));
      EXPECT_EQ(status, 0) << output << bytes;
      if (!overForeign || !core) continue;
      for (const char* survivor : {"<cp:category>tools<", "<dc:subject>signals<", "<cp:revision>7<",
                                   "<cp:keywords>Ключ, filter<cp:value>fft</cp:value></cp:keywords>"}) {
        EXPECT_THAT(bytes, HasSubstr(survivor));
      }
      EXPECT_EQ(bytes.find("xmlns:cp="), bytes.rfind("xmlns:cp="));  // declared once, on the root
    }
  }
}

}  // namespace
}  // namespace opc::kqservices
