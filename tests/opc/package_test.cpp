// A package session: written, changed, reverted and read back; names that conflict; items of other
// tools; the malformed corpus.
#include "opc/model/package.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>

#include "opc/exception.h"
#include "opc/kqservices/file_content_source.h"
#include "opc/model/package_helper.h"
#include "opc/xml/xerces_helper.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;

constexpr char16_t kXml[] = u"application/xml";
constexpr char16_t kType[] = u"http://example.com/relationships/item";

class PackageTest : public ::testing::Test {
 protected:
  // A part with a time and a mode, so that a session holds what the package will.
  static PartPtr addDated(Package& p, const char16_t* name, const std::string& bytes) {
    auto part = addPart(p, name, kXml, bytes);
    part->setLastModifiedTime({1600000000, 0});
    part->setUnixMode(0644);
    return part;
  }
  // A deflated XML part, a stored binary part, a part-level and two package-level relationships.
  static void makeBaseParts(Package& p) {
    addDated(p, u"/docs/a.xml", "<a/>");
    auto data = addPart(p, u"/bin/data.bin", u"application/octet-stream", patternBytes(70000, 1), Compression::Stored);
    data->setLastModifiedTime({884541340800, 100});  // beyond DOS time, with a sub-second part
    data->setUnixMode(04755);
    p.getRelationships().createRelationship(URI(u"/docs/a.xml"), kType);
    p.getRelationships().createRelationship(URI(u"bin/data.bin"), kType, u"rId100");
    p.getPart(PartName(u"/docs/a.xml"))->getRelationships().createRelationship(URI(u"../bin/data.bin"), kType);
  }
  void makeBasePackage() { withPackage(path, OpenMode::Create, makeBaseParts); }

  ScratchDir dir;
  std::string file = dir.file("pkg.zip");
  ustring path = dir.ufile("pkg.zip");
};

// A session's view of each part (type, time, mode, relationships, a hash of its bytes) and of the
// root's relationships.
std::map<std::string, std::string> describe(const Package& p) {
  const auto rels = [](const Relationships& r) {
    std::string out;
    for (const auto& x : r.getRelationships()) out += u8(x.getId()) + ">" + u8(x.getTargetURI().toString()) + " ";
    return out;
  };
  std::map<std::string, std::string> out{{"/", rels(p.getRelationships())}};
  for (const auto& part : p.getParts()) {
    const FileTime t = part->getLastModifiedTime().value_or(FileTime{});
    out[u8(part->getPartName().getName())] = u8(part->getContentType().toString()) + " " + std::to_string(t.seconds) + "." +
                                             std::to_string(t.nanoseconds) + " " + std::to_string(part->getUnixMode().value_or(0)) +
                                             " " + rels(part->getRelationships()) +
                                             std::to_string(std::hash<std::string>{}(readAll(*part->getInputStream())));
  }
  return out;
}

// Changed twice (first through a symbolic link, which stays one), a new session reads what the changing
// one held; items untouched (or with new attributes only) keep their compressed bytes.
TEST_F(PackageTest, WrittenChangedAndReadBack) {
  const auto change = [&](const ustring& at, OpenMode mode, const std::function<void(Package&)>& edit) {
    Session s(at, mode);
    edit(s.package);
    const auto held = describe(s.package);
    s.package.close();
    EXPECT_EQ(describe(Session(path, OpenMode::Read).package), held);
  };
  change(path, OpenMode::Create, makeBaseParts);
  const auto before = rawItems(file);
  ASSERT_EQ(::symlink("pkg.zip", dir.file("link.zip").c_str()), 0);
  change(u16(dir.file("link.zip")), OpenMode::Modify, [&](Package& p) {
    addDated(p, u"/more.xml", "<more/>");
    p.getPart(PartName(u"/docs/a.xml"))->setUnixMode(0640);
  });
  EXPECT_TRUE(std::filesystem::is_symlink(dir.file("link.zip")));
  std::filesystem::remove(dir.file("link.zip"));
  const auto after = rawItems(file);
  for (const char* item : {"docs/a.xml", "bin/data.bin", "_rels/.rels", "docs/_rels/a.xml.rels"}) {
    EXPECT_EQ(after.at(item).method, before.at(item).method) << item;
    EXPECT_EQ(after.at(item).compressed, before.at(item).compressed) << item;
  }
  EXPECT_EQ(after.at("bin/data.bin").method, ZIP_CM_STORE);
  change(path, OpenMode::Modify, [&](Package& p) {
    p.deletePart(PartName(u"/bin/data.bin"));
    p.deletePart(PartName(u"/docs/a.xml"));  // and with it its relationships part
    EXPECT_TRUE(addDated(p, u"/docs/a.xml", "<b/>")->getRelationships().empty());  // made again, none kept
    p.getPart(PartName(u"/DOCS/A.XML"))->getRelationships().createRelationship(URI(u"new.xml"), kType);
    p.getRelationships().deleteRelationship(u"rId100");
    p.getRelationships().createRelationship(URI(u"/docs/a.xml"), kType);
  });
}

// Each change is refused in a read session, and reverted in a modifying one (also after a close that
// failed): the file stays byte for byte, the same file, with nothing left beside it.
TEST_F(PackageTest, ReadModeAndRevertLeaveTheFileByteForByte) {
  makeBasePackage();
  const std::string before = readBytes(file);
  const auto inode = [&] {
    struct stat st {};
    ::stat(file.c_str(), &st);
    return st.st_ino;
  };
  const ScratchDir elsewhere;
  const std::string vanishing = elsewhere.file("vanishing.bin");
  const auto a = [](Package& p) { return p.getPart(PartName(u"/docs/a.xml")); };
  const struct {
    const char* name;
    std::function<void(Package&)> change;
    bool closeFails = false;
  } cases[] = {
      {"add part", [](Package& p) { addPart(p, u"/x.xml", kXml, "<x/>"); }},
      {"delete part", [](Package& p) { p.deletePart(PartName(u"/docs/a.xml")); }},
      {"replace content", [&](Package& p) { writeAll(*a(p)->getOutputStream(), "z"); }},
      {"add relationship", [](Package& p) { p.getRelationships().createRelationship(URI(u"/docs/a.xml"), kType); }},
      {"add part relationship", [&](Package& p) { a(p)->getRelationships().createRelationship(URI(u"x.xml"), kType); }},
      {"change time", [&](Package& p) { a(p)->setLastModifiedTime({1, 0}); }},
      {"source file vanishes before close",
       [&](Package& p) {
         writeBytes(vanishing, "soon gone");
         auto part = p.createPart(PartName(u"/v.bin"), ContentType(u"application/octet-stream"));
         part->setContentSource(kqservices::fileContent(u16(vanishing)));
         std::filesystem::remove(vanishing);
       },
       true},
  };
  for (const auto& c : cases) {
    for (const OpenMode mode : {OpenMode::Read, OpenMode::Modify}) {
      SCOPED_TRACE(std::string(c.name) + (mode == OpenMode::Read ? ", read" : ", modify"));
      const auto was = inode();
      Session s(path, mode);
      if (mode == OpenMode::Read) {
        EXPECT_THROW(c.change(s.package), Exception);
        s.package.close();
        EXPECT_EQ(inode(), was);
      } else {
        c.change(s.package);
        if (c.closeFails) {
          EXPECT_THAT(errorOf([&] { s.package.close(); }), HasSubstr("v.bin"));
          EXPECT_TRUE(s.package.isOpen());  // still open: the caller reverts
        }
        s.package.revert();
      }
      EXPECT_EQ(readBytes(file), before);
      EXPECT_EQ(dir.list(), std::vector<std::string>{"pkg.zip"});  // no temporary file left behind
    }
  }
}

// A foreign package's [Content_Types].xml (Overrides only) stays as it is through changes that keep
// its list of types, and is written anew once a part comes.
TEST_F(PackageTest, ContentTypesAreKeptUntilTheListOfTypesChanges) {
  const std::string types =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Types xmlns=\"http://schemas.openxmlformats.org/package/2006/"
      "content-types\"><Override PartName=\"/a.xml\" ContentType=\"application/xml\"/></Types>";
  writeZip(file, {{"[Content_Types].xml", types}, {"a.xml", "<a/>"}});
  withPackage(path, OpenMode::Modify, [&](Package& p) {
    writeAll(*p.getPart(PartName(u"/a.xml"))->getOutputStream(), "<b/>");
  });
  EXPECT_EQ(itemText(file, "a.xml"), "<b/>");
  EXPECT_EQ(itemText(file, "[Content_Types].xml"), types);
  withPackage(path, OpenMode::Modify, [&](Package& p) { addPart(p, u"/b.new", u"application/x-new", "n"); });
  EXPECT_NE(itemText(file, "[Content_Types].xml"), types);
  Session s(path, OpenMode::Read);
  EXPECT_EQ(s.package.getPart(PartName(u"/b.new"))->getContentType().toString(), u"application/x-new");
  EXPECT_EQ(s.package.getPart(PartName(u"/a.xml"))->getContentType().toString(), kXml);
}

TEST_F(PackageTest, PartNameConflictsAreRefused) {
  makeBasePackage();
  Session s(path, OpenMode::Modify);
  const struct {
    const char16_t* name;
    const char* message;
  } cases[] = {
      {u"/Docs", "prefix segment"},
      {u"/dOcs/A.XML/b", "extends the name"},
      {u"/_rels/x.rels", "relationships parts"},
      {u"/_rels", "reserved"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.name));
    EXPECT_THAT(errorOf([&] { addPart(s.package, c.name, kXml, ""); }), HasSubstr(c.message));
  }
  // After its only part below is gone, a name may become a part itself.
  s.package.deletePart(PartName(u"/bin/data.bin"));
  EXPECT_NO_THROW(addPart(s.package, u"/bin", kXml, ""));
  // Parts of one folder added in a row share its count: it lasts until the last of them goes.
  for (const char16_t* name : {u"/f/g/a.xml", u"/f/g/b.xml", u"/F/G/c.xml"}) addPart(s.package, name, kXml, "");
  for (const char16_t* name : {u"/f/g/b.xml", u"/f/g/a.xml", u"/f/g/c.xml"}) {
    EXPECT_THROW(addPart(s.package, u"/f/g", kXml, ""), Exception);
    s.package.deletePart(PartName(name));
  }
  EXPECT_NO_THROW(addPart(s.package, u"/f/g", kXml, ""));
  EXPECT_THROW(addPart(s.package, u"/F", kXml, ""), Exception);
}

// Through growth, deletions (erased slots, then renumbering) and re-creation in another case, a live
// part is found under any case, keeps its first spelling, and a deleted one is not found, also reopened.
TEST_F(PackageTest, ThousandsOfPartsStayFoundThroughDeletionsAndRecreation) {
  const auto name = [](int i, bool upper) {
    std::string text = "/d" + std::to_string(i % 37) + "/part" + std::to_string(i) + ".xml";
    if (upper) std::transform(text.begin(), text.end(), text.begin(), [](char c) { return std::toupper(c); });
    return text;
  };
  std::map<int, bool> live;  // part i, created in upper case
  const auto check = [&](const Package& package) {
    for (int i = 0; i < 3000; ++i) {
      ASSERT_EQ(package.partExists(PartName(u16(name(i, i % 2 == 0)))), live.contains(i)) << i;
      if (live.contains(i)) {
        EXPECT_EQ(package.getPart(PartName(u16(name(i, i % 2 != 0))))->getPartName().text(), name(i, live.at(i)));
      }
    }
    EXPECT_EQ(package.getPartCount(), live.size());
  };
  withPackage(path, OpenMode::Create, [&](Package& p) {
    for (int i = 0; i < 3000; ++i) addPart(p, u16(name(i, live[i] = false)), kXml, "");
    for (int i = 1; i < 3000; ++i) {
      if (i % 3 != 0) p.deletePart(PartName(u16(name(i, i % 2 == 0)))), live.erase(i);
    }
    check(p);
    for (int i = 0; i < 3000; i += 2) {
      if (!live.contains(i)) addPart(p, u16(name(i, live[i] = true)), kXml, "");
    }
    check(p);
  });
  check(Session(path, OpenMode::Read).package);
}

TEST_F(PackageTest, OutputStreamsReplaceContentAndSpillLargeContentToDisk) {
  Session s(path, OpenMode::Create);
  auto part = addPart(s.package, u"/p.bin", u"application/octet-stream", "first");
  auto older = part->getOutputStream();
  const std::string big = patternBytes(3u << 20, 7);  // beyond the in-memory limit
  auto newer = part->getOutputStream();
  EXPECT_THROW(writeAll(*older, "stale"), Exception);
  for (std::size_t offset = 0; offset < big.size(); offset += 100000) writeAll(*newer, big.substr(offset, 100000));
  EXPECT_EQ(part->getSize(), big.size());
  EXPECT_EQ(readAll(*part->getInputStream()), big);
  s.package.close();
  EXPECT_TRUE(part->isDetached());
  EXPECT_THROW((void)part->getInputStream(), Exception);
  EXPECT_THROW(writeAll(*newer, "after close"), Exception);
  Session r(path, OpenMode::Read);
  EXPECT_EQ(partBytes(r.package, u"/p.bin"), big);
}

// Items as other tools write them, rewritten by a change elsewhere (a new part and its root relationship):
// each keeps its name and bytes, or opening refuses the package naming the item.
TEST_F(PackageTest, EveryItemSurvivesARewriteOrTheOpenNamesIt) {
  const std::string types =
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\"><Default Extension=\"txt\" "
      "ContentType=\"text/plain\"/><Default Extension=\"rels\" ContentType=\"" +
      u8(PackageHelper::kRelationshipsContentType) + "\"/></Types>";
  const std::string rels = "<Relationships xmlns=\"" + u8(PackageHelper::kRelationshipsNamespace) +
                           "\"><Relationship Id=\"r\" Type=\"urn:t\" Target=\"%C3%84rger.txt\"/></Relationships>";
  const struct {
    const char* name;
    std::vector<std::pair<std::string, std::string>> items;  // beside [Content_Types].xml
    const char* refusedNaming;                                // nullptr: every item survives
    zip_flags_t nameFlags = ZIP_FL_ENC_UTF_8;
  } cases[] = {
      {"UTF-8 name", {{"\xC3\x84rger.txt", "a"}, {"d/\xE6\x97\xA5.txt", "b"}}, nullptr},
      {"UTF-8 name without the language flag", {{"\xC3\x84rger.txt", "a"}}, nullptr, ZIP_FL_ENC_RAW},
      {"relationships of a UTF-8 part, never read", {{"\xC3\x84rger.txt", "a"}, {"_rels/\xC3\x84rger.txt.rels", "junk"}},
       nullptr},
      {"folder items", {{"dir/", ""}, {"dir/f.txt", "f"}, {"empty/", ""}}, nullptr},
      {"root relationships to a UTF-8 part", {{"\xC3\x84rger.txt", "a"}, {"_rels/.rels", rels}}, nullptr},
      {"a name equal to another once encoded", {{"%C3%84.txt", "1"}, {"\xC3\x84.txt", "2"}}, "'\xC3\x84.txt'"},
      {"a name in code page 437 (no UTF-8)", {{"\x8Erger.txt", "1"}}, nullptr, ZIP_FL_ENC_RAW},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto items = c.items;
    items.insert(items.begin(), {"[Content_Types].xml", types});
    writeZip(file, items, c.nameFlags);
    const auto before = rawItems(file);
    const std::string error = errorOf([&] {
      Session s(path, OpenMode::Modify);
      addPart(s.package, u"/metadata/license.xml", kXml, "<l/>");
      s.package.getRelationships().createRelationship(URI(u"metadata/license.xml"), kType);
      s.package.close();
    });
    if (c.refusedNaming != nullptr) {
      EXPECT_THAT(error, HasSubstr(c.refusedNaming));
      EXPECT_EQ(rawItems(file).size(), before.size());
      continue;
    }
    ASSERT_EQ(error, "(no error)");
    const auto after = rawItems(file);
    for (const auto& [name, item] : before) {
      if (name == "[Content_Types].xml" || name == "_rels/.rels") continue;  // rewritten with the new part
      EXPECT_EQ(after.at(name).compressed, item.compressed) << name;
      EXPECT_EQ(after.at(name).crc, item.crc) << name;
      EXPECT_EQ(after.at(name).storedName, name) << "every name written is UTF-8";
    }
    EXPECT_EQ(after.size(), before.size() + 1 + (before.contains("_rels/.rels") ? 0 : 1));
  }
}

// Every file of the malformed corpus (tests/data/opc) fails, opened or read, with the error that names
// its defect; the valid control opens. (Defects of the archive itself: the ZIP reader's table.)
const std::string kCorpus = std::string(ZV_TEST_DATA_DIR) + "/opc/";

TEST(MalformedPackageTest, EachDefectGivesItsError) {
  const struct {
    const char* file;
    std::vector<const char*> expected;  // each must appear in the message
  } cases[] = {
      {"not-a-zip.zip", {"not-a-zip.zip", "no ZIP archive"}},
      {"content-types-missing.zip", {"no [Content_Types].xml"}},
      {"content-types-malformed.zip", {"[Content_Types].xml"}},
      {"content-types-doctype.zip", {"[Content_Types].xml", "DOCTYPE"}},
      {"content-types-wrong-namespace.zip", {"[Content_Types].xml", "namespace"}},
      {"content-types-duplicate-default.zip", {"extension 'XML' has more than one Default"}},
      {"content-types-duplicate-override.zip", {"'/A.XML' has more than one Override"}},
      {"content-types-unknown-element.zip", {"unexpected element 'Extra'"}},
      {"content-types-invalid-content-type.zip", {"invalid content type 'application / xml'"}},
      {"part-without-content-type.zip", {"entry 3 'b.bin'", "part '/b.bin' has no content type"}},
      {"part-name-space.zip", {"entry 3 'a b.xml'", "cannot hold unencoded"}},
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
      {"corrupt-data.zip", {"'a.xml'", "CRC"}},
  };
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(kCorpus), {}), std::ssize(cases) + 1) << "valid.zip apart";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    for (const auto mode : {OpenMode::Read, OpenMode::Modify}) {
      zippackage::ZipPhysicalPackage physical(u16(kCorpus + c.file), false);
      Package package(physical);
      const std::string error = errorOf([&] {
        package.open(mode);
        for (const auto& part : package.getParts()) (void)readAll(*part->getInputStream());
      });
      for (const char* expected : c.expected) EXPECT_THAT(error, HasSubstr(expected));
      EXPECT_EQ(error.find("package not found"), std::string::npos) << error;
      EXPECT_EQ(package.isOpen(), c.file == std::string("corrupt-data.zip")) << "a refused open leaves it closed";
    }
  }
  Session valid(u16(kCorpus + "valid.zip"), OpenMode::Read);
  EXPECT_EQ(partBytes(valid.package, u"/a.xml"), "<a/>");
}

}  // namespace
}  // namespace opc::model
