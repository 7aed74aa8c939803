#include <functional>
#include <optional>
#include <string>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "opc/exception.h"
#include "opc/kqservices/core_properties.h"
#include "opc/model/package_helper.h"
#include "opc_test_support.h"
#include "support/command.h"

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

CoreProperties readDocument(const std::string& xml) {
  opc::test::BytesInput in(xml);
  model::DocumentPtr document = XercesHelper::readDocumentFromStream(in, u"");
  CoreProperties properties;
  CorePropertiesManager::readCorePropertiesDocument(*document, properties);
  return properties;
}

std::string writeDocument(const model::DocumentPtr& document) {
  opc::test::BytesOutput out;
  XercesHelper::writeDocumentToStream(*document, out);
  return out.bytes;
}

class CorePropertiesTest : public ::testing::Test {
 protected:
  model::XercesGuard guard_;
};

// Dates are read as UTC; a part breaking the standard's rules is refused, saying which.
TEST_F(CorePropertiesTest, DocumentsAreReadByTheStandardsRules) {
  const auto created = [](const std::string& attributes, const std::string& value) {
    return "<dcterms:created " + attributes + ">" + value + "</dcterms:created>";
  };
  const std::string typed = "xsi:type='dcterms:W3CDTF'";
  const struct {
    const char* label;
    std::string body;
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
      {"date of another xsi:type", created("xmlns:xs='http://www.w3.org/2001/XMLSchema' xsi:type='xs:dateTime'",
                                           "2026-02-03T00:00:00Z"),
       "must be dcterms:W3CDTF"},
      {"xsi:type on a text property", "<dc:title xsi:type='dcterms:W3CDTF'>t</dc:title>",
       "allowed only on dcterms:created"},
      {"xml:lang", "<dc:title xml:lang='en'>t</dc:title>", "xml:lang"},
      {"markup-compatibility element",
       "<mc:AlternateContent xmlns:mc='http://schemas.openxmlformats.org/markup-compatibility/2006'/>",
       "markup compatibility"},
      {"content type element", "<cp:contentType>x</cp:contentType>", "not in the standard's schema"},
      {"repeated element", "<dc:title>a</dc:title><dc:title>b</dc:title>", "more than once"},
      {"markup inside a value", "<dc:title>a<b xmlns='urn:x'/></dc:title>", "not allowed inside"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    try {
      const auto created = readDocument(kCoreOpen + c.body + kCoreClose).getCreated();
      EXPECT_EQ(created, at(c.expected));
    } catch (const opc::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr(c.expected));
    }
  }
}

// Foreign standard properties of an existing part (category, subject, revision, keywords) are kept
// on rewrite; modelled ones are replaced or dropped.
TEST_F(CorePropertiesTest, WrittenPartsAreValidAgainstTheirSchemasAndKeepForeignProperties) {
  CoreProperties onlyDates;
  onlyDates.setCreated(at("1970-01-01 00:00:00"));
  onlyDates.setLastModified(at("9999-12-31 23:59:59"));
  const std::string kept = opc::test::readFile(ZV_TEST_DATA_DIR "/xml/core-foreign-properties.xml");
  opc::test::BytesInput keptIn(kept);
  model::DocumentPtr keep = XercesHelper::readDocumentFromStream(keptIn, u"");
  CoreProperties titleOnly;
  titleOnly.setTitle(u"new title");

  const struct {
    const char* label;
    CoreProperties properties;
    DeterministicMode mode;
    const xercesc::DOMDocument* keep;
  } cases[] = {
      {"everything", everything(), DeterministicMode::Off, nullptr},
      {"nothing", CoreProperties(), DeterministicMode::Off, nullptr},
      {"only dates at the range's ends", onlyDates, DeterministicMode::Off, nullptr},
      {"with kept foreign properties", titleOnly, DeterministicMode::Off, keep.get()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string core =
        writeDocument(CorePropertiesManager::buildCorePropertiesDocument(c.properties, c.mode, c.keep));
    const auto [status, output] = zvtest::xmllint(core, ZV_TEST_DATA_DIR "/xml/opc-coreProperties.xsd");
    EXPECT_EQ(status, 0) << output << core;
    EXPECT_EQ(core.find("xml:lang"), std::string::npos);
    EXPECT_EQ(core.find("W3CDTF") != std::string::npos,
              c.mode == DeterministicMode::Off && c.properties.getCreated().has_value());
    if (model::DocumentPtr companion = CorePropertiesManager::buildPackagePropertiesDocument(c.properties)) {
      const std::string bytes = writeDocument(companion);
      const auto [companionStatus, companionOutput] = zvtest::xmllint(bytes, ZV_TEST_DATA_DIR "/xml/package-properties.xsd");
      EXPECT_EQ(companionStatus, 0) << companionOutput << bytes;
    }
    if (c.keep == nullptr) continue;
    const CoreProperties back = readDocument(core);
    EXPECT_EQ(back.getTitle(), u"new title");  // the old title is replaced, not repeated
    EXPECT_FALSE(back.getCreator());            // modelled and absent now: dropped
    for (const char* survivor : {"<cp:category>tools<", "<dc:subject>signals<", "<cp:revision>7<",
                                 "<cp:keywords>Ключ, filter<cp:value>fft</cp:value></cp:keywords>"}) {
      EXPECT_THAT(core, HasSubstr(survivor));
    }
    EXPECT_EQ(core.find("xmlns:cp="), core.rfind("xmlns:cp="));  // declared once, on the root
  }
}

// Rewriting keeps one part and one relationship each; without package fields the companion part
// goes, and its relationship with it. A broken package is reported, not guessed.
TEST_F(CorePropertiesTest, PartsAndRelationshipsInThePackage) {
  ScratchDir dir;
  const ustring path = dir.ufile("p.zip");
  const auto& coreType = model::PackageHelper::kCorePropertiesRelationshipType;
  const auto& companionType = CorePropertiesManager::getPackagePropertiesRelationshipType();
  CoreProperties coreOnly;
  coreOnly.setTitle(u"t");
  opc::test::Session(path, OpenMode::Create).package.close();
  for (const CoreProperties& properties : {everything(), everything(), coreOnly}) {
    opc::test::withPackage(path, OpenMode::Modify,
                           [&](model::Package& p) { CorePropertiesManager(p, DeterministicMode::Off).setCoreProperties(properties); });
    opc::test::Session s(path, OpenMode::Read);
    const bool companion = properties.getContentType().has_value();
    EXPECT_EQ(s.package.getRelationships().getRelationshipsByType(coreType).size(), 1u);
    EXPECT_EQ(s.package.getRelationships().getRelationshipsByType(companionType).size(), companion ? 1u : 0u);
    EXPECT_EQ(s.package.getPartCount(), companion ? 2u : 1u);
    EXPECT_TRUE(CorePropertiesManager(s.package, DeterministicMode::Off).getCoreProperties() == properties);
  }
  const std::string valid = kCoreOpen + "<dc:title>t</dc:title>" + kCoreClose;
  const auto corePart = [&](const char16_t* name, const ustring& type, const std::string& bytes) {
    return [=](model::Package& p) {
      opc::test::addPart(p, name, type, bytes);
      p.getRelationships().createRelationship(model::PartName(name).getURI(), coreType);
    };
  };
  const ustring& type = model::PackageHelper::kCorePropertiesContentType;
  const struct {
    const char* label;
    std::function<void(model::Package&)> build;
    const char* expected;
  } cases[] = {
      {"two core relationships",
       [&](model::Package& p) {
         corePart(u"/docProps/core.xml", type, valid)(p);
         p.getRelationships().createRelationship(model::PartName(u"/docProps/core.xml").getURI(), coreType);
       },
       "at most one"},
      {"dangling core relationship", [&](model::Package& p) { p.getRelationships().createRelationship(model::URI(u"/missing.xml"), coreType); },
       "not in the package"},
      {"wrong content type", corePart(u"/core.xml", u"application/xml", valid),
       "expected 'application/vnd.openxmlformats-package.core-properties+xml'"},
      {"malformed XML", corePart(u"/docProps/core.xml", type, "<cp:coreProperties"), "malformed XML"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    opc::test::withPackage(path, OpenMode::Create, c.build);
    opc::test::Session s(path, OpenMode::Read);
    EXPECT_THAT(opc::test::errorOf([&] { (void)CorePropertiesManager(s.package, DeterministicMode::Off).getCoreProperties(); }),
                HasSubstr(c.expected));
  }
}

}  // namespace
}  // namespace opc::kqservices
