// The add-on's file list read from the ZIP directory alone, held to the list the opened package gives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zip.h>

#include <cstdio>
#include <cstring>

#include "file_system_test_support.h"
#include "opc/exception.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/zippackage/central_directory.h"
#include "package_test_support.h"

namespace opc::kqservices {
namespace {

using namespace opc::test;

const char* const kContentTypes =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
    "<Default Extension=\"txt\" ContentType=\"text/plain\"/>"
    "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
    "</Types>";
const char* const kNoRelationships =
    "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\"/>";

std::vector<std::string> narrowAll(const std::vector<ustring>& names) {
  std::vector<std::string> out;
  for (const ustring& name : names) out.push_back(u8(name));
  return out;
}

class ContentListTest : public ::testing::Test {
 protected:
  ScratchDir dir;
  std::string path = dir.file("pkg.zvaddon");

  // The list path, as the gateway takes it.
  std::vector<std::string> listFromDirectory() {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot open " + path);
    const auto close = [&] { ::close(fd); };
    try {
      const auto directory = zippackage::CentralDirectory::read(fd, path);
      auto list = narrowAll(FileSystemManager::listFiles(directory, path));
      close();
      return list;
    } catch (...) {
      close();
      throw;
    }
  }

  // The list of the opened package.
  std::vector<std::string> listFromModel() {
    Session s(u16(path), OpenMode::Read);
    const FileSystemManager manager(s.package, {});
    return narrowAll(manager.listFiles());
  }

  // Items with these names in this order, each holding a few bytes ("[Content_Types].xml" and
  // relationships items hold what opening needs).
  void writeItems(const std::vector<std::string>& names, const std::string& encrypted = {}) {
    std::remove(path.c_str());
    int error = 0;
    zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    ASSERT_NE(zip, nullptr) << error;
    for (const std::string& name : names) {
      const char* bytes = name == "[Content_Types].xml" ? kContentTypes
                          : name.ends_with(".rels")     ? kNoRelationships
                                                        : "x";
      zip_source_t* source = zip_source_buffer(zip, bytes, std::strlen(bytes), 0);
      const zip_int64_t index = zip_file_add(zip, name.c_str(), source, ZIP_FL_ENC_RAW);
      ASSERT_GE(index, 0) << name << ": " << zip_strerror(zip);
      if (name == encrypted) {
        ASSERT_EQ(zip_file_set_encryption(zip, static_cast<zip_uint64_t>(index), ZIP_EM_TRAD_PKWARE, "pw"), 0)
            << zip_strerror(zip);
      }
    }
    ASSERT_EQ(zip_close(zip), 0) << zip_strerror(zip);
  }
};

// Packages made by the manager: every kind of name it encodes, nested and empty folders.
TEST_F(ContentListTest, BuiltPackageListsAsTheOpenedPackage) {
  const std::vector<std::string> names = {
      "plain.m",      "with space.txt", "#hash",     "100%",           "percent%41", "trailing.", "...",
      "_rels",        "x.rels",         "ab:c",      "caf\xC3\xA9",    "\xE6\x97\xA5\xE6\x9C\xAC.txt",
      "\xF0\x9F\x98\x80", "nb\xC2\xA0sp", "Zebra",   "apple",          "Apple pie",  "[bracket]",
  };
  writeFile(dir.file("src.txt"), "content");
  {
    Session s(u16(path), OpenMode::Create);
    FileSystemManager manager(s.package, {});
    const ustring source = u16(dir.file("src.txt"));
    for (const std::string& name : names) {
      (void)manager.addFile(source, u16(name), TransformMode::Encode);
      (void)manager.addFile(source, u16("deep/" + name + "/below/" + name), TransformMode::Encode);
    }
    // Case variants in different folders, and folders left empty.
    (void)manager.addFile(source, u"one/README", TransformMode::Encode);
    (void)manager.addFile(source, u"two/readme", TransformMode::Encode);
    (void)manager.createFolder(u"empty");
    (void)manager.createFolder(u"deep/empty #2/empty.");
    s.package.close();
  }
  const std::vector<std::string> expected = listFromModel();
  ASSERT_EQ(expected.size(), 2 * names.size() + 4);
  EXPECT_EQ(listFromDirectory(), expected);
}

// Item names other tools write, which the manager never does; folders are merged and named as the
// opened package does.
TEST_F(ContentListTest, ForeignItemNamesListAsTheOpenedPackage) {
  struct Case {
    const char* what;
    std::vector<std::string> items;
    std::vector<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"one folder spelt two ways takes the first spelling",
       {"fsroot/Doc/b.txt", "fsroot/doc/a.txt", "fsroot/DOC/c.txt"},
       {"/Doc/a.txt", "/Doc/b.txt", "/Doc/c.txt"}},
      {"raw UTF-8 and lower-case escapes",
       {"fsroot/\xC3\xA9t\xC3\xA9.txt", "fsroot/caf%c3%a9.txt", "fsroot/sp:20ace.txt"},
       {"/caf\xC3\xA9.txt", "/sp ace.txt", "/\xC3\xA9t\xC3\xA9.txt"}},
      {"folder items, relationships and items outside the tree are no files",
       {"fsroot/dir/", "fsroot/dir/f.txt", "fsroot/dir/_rels/f.txt.rels", "meta/x.txt", "fsroot/x.txt"},
       {"/dir/f.txt", "/x.txt"}},
      {"the tree prefix without case", {"FSROOT/up.txt", "FsRoot/sub/low.txt"}, {"/sub/low.txt", "/up.txt"}},
      {"no files", {"meta/x.txt"}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<std::string> items = {"[Content_Types].xml"};
    items.insert(items.end(), c.items.begin(), c.items.end());
    writeItems(items);
    const std::vector<std::string> model = listFromModel();
    EXPECT_EQ(model, c.expected);
    EXPECT_EQ(listFromDirectory(), model);
  }
}

// Each set of items is refused by opening; the list refuses it too, naming the item.
TEST_F(ContentListTest, WhatOpeningRefusesOnItemNamesIsRefused) {
  struct Case {
    const char* what;
    std::vector<std::string> items;
    std::string named;  // in the list's message
    std::string encrypted = {};
  };
  const std::vector<Case> cases = {
      {"no content types", {"fsroot/a.txt"}, "no [Content_Types].xml item"},
      {"a space in a part name", {"[Content_Types].xml", "fsroot/a b.txt"}, "'fsroot/a b.txt'"},
      {"an encoded slash", {"[Content_Types].xml", "fsroot/a%2Fb.txt"}, "'fsroot/a%2Fb.txt'"},
      {"an encoded unreserved character", {"[Content_Types].xml", "fsroot/%41.txt"}, "'fsroot/%41.txt'"},
      {"a segment ending in a dot", {"[Content_Types].xml", "fsroot/dot./a.txt"}, "'fsroot/dot./a.txt'"},
      {"an empty segment", {"[Content_Types].xml", "fsroot//a.txt"}, "'fsroot//a.txt'"},
      {"a bad escape", {"[Content_Types].xml", "fsroot/a%zz.txt"}, "'fsroot/a%zz.txt'"},
      {"names equal but for case", {"[Content_Types].xml", "fsroot/d/A.txt", "fsroot/d/a.txt"}, "'fsroot/d/a.txt'"},
      {"names equal once encoded",
       {"[Content_Types].xml", "fsroot/%C3%A9.txt", "fsroot/\xC3\xA9.txt"},
       "'fsroot/\xC3\xA9.txt'"},
      {"a part that is a folder of a later one", {"[Content_Types].xml", "fsroot/a.txt", "fsroot/A.txt/b.txt"},
       "'fsroot/A.txt/b.txt'"},
      {"a part that is a folder of an earlier one", {"[Content_Types].xml", "fsroot/a.txt/b.txt", "fsroot/a.txt"},
       "'fsroot/a.txt'"},
      {"the tree prefix as a part", {"[Content_Types].xml", "fsroot/x.txt", "fsroot"}, "'fsroot'"},
      {"an encrypted item", {"[Content_Types].xml", "fsroot/x.txt"}, "'fsroot/x.txt' is encrypted", "fsroot/x.txt"},
      {"encrypted content types", {"[Content_Types].xml", "fsroot/x.txt"}, "[Content_Types].xml is encrypted",
       "[Content_Types].xml"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    writeItems(c.items, c.encrypted);
    EXPECT_THROW((void)listFromModel(), opc::Exception);
    try {
      (void)listFromDirectory();
      ADD_FAILURE() << "listed";
    } catch (const opc::Exception& e) {
      EXPECT_NE(std::strstr(e.what(), c.named.c_str()), nullptr) << e.what();
      EXPECT_NE(std::strstr(e.what(), path.c_str()), nullptr) << e.what();
    }
  }
}

}  // namespace
}  // namespace opc::kqservices
