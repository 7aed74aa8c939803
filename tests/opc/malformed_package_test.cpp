// Every file of the malformed corpus (tests/data/opc, made by make_corpus.py) fails with the error
// that names its defect, and the valid control opens.
#include <gtest/gtest.h>

#include <filesystem>

#include "opc/exception.h"
#include "package_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;

const std::string kCorpus = std::string(ZV_TEST_DATA_DIR) + "/opc/";

struct Case {
  const char* file;
  std::vector<const char*> expected;  // each must appear in the message
};

TEST(MalformedPackageTest, EachDefectGivesItsError) {
  const Case cases[] = {
      {"not-a-zip.zip", {"not-a-zip.zip", "no ZIP archive"}},
      {"truncated.zip", {"truncated.zip", "cannot open package"}},
      {"central-directory-offset-wrong.zip", {"cannot open package"}},
      {"empty-file.zip", {"empty-file.zip", "no ZIP archive"}},
      {"content-types-missing.zip", {"no [Content_Types].xml"}},
      {"content-types-malformed.zip", {"[Content_Types].xml"}},
      {"content-types-doctype.zip", {"[Content_Types].xml", "DOCTYPE"}},
      {"content-types-wrong-namespace.zip", {"[Content_Types].xml", "namespace"}},
      {"content-types-duplicate-default.zip", {"extension 'XML' has more than one Default"}},
      {"content-types-duplicate-override.zip", {"'/A.XML' has more than one Override"}},
      {"content-types-unknown-element.zip", {"unexpected element 'Extra'"}},
      {"content-types-invalid-content-type.zip", {"invalid content type 'application / xml'"}},
      {"part-without-content-type.zip", {"entry 3 'b.bin'", "part '/b.bin' has no content type"}},
      {"part-name-dot-segment.zip", {"entry 3 'x/../b.xml'", "ends with '.'"}},
      {"part-name-percent-encoded-slash.zip", {"entry 3 'x%2Fb.xml'", "percent-encoded '/'"}},
      {"part-name-percent-encoded-unreserved.zip", {"entry 3 '%41.xml'", "unreserved"}},
      {"part-name-space.zip", {"entry 3 'a b.xml'", "cannot hold unencoded"}},
      {"part-name-trailing-dot.zip", {"entry 3 'b.'", "ends with '.'"}},
      {"part-name-empty-segment.zip", {"entry 3 'x//b.xml'", "empty segment"}},
      {"part-name-equivalent.zip", {"entry 3 'A.XML'", "exists"}},
      {"part-name-prefix-segment.zip", {"entry 3 'a.xml/b.xml'", "extends the name of another part"}},
      {"entry-duplicate.zip", {"entry 3 'a.xml'", "exists"}},
      {"entry-bzip2.zip", {"entry 2 'a.xml'", "compression method 12"}},
      {"entry-encrypted.zip", {"entry 2 'a.xml'", "encrypted"}},
      {"rels-malformed.zip", {"relationships part '/_rels/.rels' (entry 1 '_rels/.rels')"}},
      {"rels-duplicate-id.zip", {"'/_rels/.rels'", "'rId1' is already used"}},
      {"rels-missing-target.zip", {"'/_rels/.rels'", "lacks the attribute 'Target'"}},
      {"rels-bad-target-mode.zip", {"'/_rels/.rels'", "invalid TargetMode 'Elsewhere'"}},
      {"rels-internal-absolute-target.zip", {"'/_rels/.rels'", "must be a relative reference"}},
      {"rels-invalid-id.zip", {"'/_rels/.rels'", "no valid XML id"}},
      {"rels-unknown-attribute.zip", {"'/_rels/.rels'", "unexpected attribute 'Color'"}},
      {"rels-source-missing.zip", {"'/x/_rels/y.xml.rels'", "source part does not exist"}},
      {"rels-of-rels.zip", {"'/_rels/_rels/.rels.rels'", "relationships of a relationships part"}},
      {"rels-wrong-content-type.zip", {"'/_rels/.rels'", "not that of relationships"}},
  };
  std::size_t corpusFiles = 0;
  for (const auto& entry : std::filesystem::directory_iterator(kCorpus)) {
    corpusFiles += entry.path().extension() == ".zip";
  }
  EXPECT_EQ(corpusFiles, std::size(cases) + 2) << "every corpus file needs a case (valid.zip and corrupt-data.zip apart)";

  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    for (const auto mode : {OpenMode::Read, OpenMode::Modify}) {
      zippackage::ZipPhysicalPackage physical(u16(kCorpus + c.file), false);
      Package package(physical);
      try {
        package.open(mode);
        ADD_FAILURE() << "opened";
      } catch (const PackageNotFound& e) {
        ADD_FAILURE() << "not found: " << e.what();
      } catch (const Exception& e) {
        for (const char* expected : c.expected) {
          EXPECT_NE(std::string(e.what()).find(expected), std::string::npos) << e.what();
        }
      }
      EXPECT_FALSE(package.isOpen());
    }
  }
}

TEST(MalformedPackageTest, CorruptDataFailsWhenRead) {
  Session valid(u16(kCorpus + "valid.zip"), OpenMode::Read);
  EXPECT_EQ(partBytes(valid.package, u"/a.xml"), "<a/>");
  Session corrupt(u16(kCorpus + "corrupt-data.zip"), OpenMode::Read);
  try {
    (void)partBytes(corrupt.package, u"/a.xml");
    ADD_FAILURE() << "read";
  } catch (const Exception& e) {
    EXPECT_NE(std::string(e.what()).find("'a.xml'"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("CRC"), std::string::npos) << e.what();
  }
}

}  // namespace
}  // namespace opc::model
