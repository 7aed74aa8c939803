#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "metadata/addon_properties.h"
#include "package/addon_package.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

std::optional<boost::posix_time::ptime> lastModified(const std::string& path) {
  addon::packaging::AddonPackage package(ustring(path.begin(), path.end()));
  package.getPackage().open(static_cast<opc::interfaces::OpenMode>(0));
  addon::packaging::AddonProperties record;
  package.getAddonProperties(record);
  package.getPackage().close();
  return record.lastModified;
}

TEST(Properties, CreateThenGetRoundTripsNonAsciiText) {
  zvtest::TempDir dir;
  const std::string path = dir.file("caf\xC3\xA9.zvaddon");
  Json input = zvtest::properties("Caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x8E\xB5");
  input["description"] = "line one\nline two \xE2\x82\xAC <&> ]]>";
  callOk(zvAddonCreate, {path, input});
  const Json got = callOk(zvAddonGetProperties, {path}, 1);

  Json expected = input;
  expected["ZORVANRelease"] = got["ZORVANRelease"];  // the running host's, never the input's
  EXPECT_EQ(got, expected);
  EXPECT_NE(got["ZORVANRelease"], "R1999a");
  EXPECT_FALSE(got["ZORVANRelease"].get<std::string>().empty());
  // Field order is part of the contract: description last.
  std::vector<std::string> keys;
  for (const auto& [k, v] : got.items()) keys.push_back(k);
  EXPECT_EQ(keys.back(), "description");
  EXPECT_EQ(keys.front(), "type");
}

TEST(Properties, UnknownTypeWritesNothingAndReportsCreate) {
  zvtest::TempDir dir;
  for (const char* type : {"zorvan toolbox", "", "ZORVAN Toolbox ", "App"}) {
    const std::string path = dir.file("x.zvaddon");
    const auto r = call(zvAddonCreate, {path, zvtest::properties("n", type)});
    EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_CREATE") << type;
    EXPECT_FALSE(std::filesystem::exists(path)) << type;
  }
}

TEST(Properties, SetChangesCoreFieldsButNotTypeReleaseOrModifiedTimeAndAFailedSetNothing) {
  zvtest::TempDir dir;
  const std::string path = dir.file("p.zvaddon");
  callOk(zvAddonCreate, {path, zvtest::properties("First")});
  const Json before = callOk(zvAddonGetProperties, {path}, 1);
  const auto modified = lastModified(path);
  ASSERT_TRUE(modified.has_value());

  Json changed = zvtest::properties("Second", "Something Else");
  changed["authorName"] = "";
  changed["authorContact"] = "";
  changed["authorOrganization"] = "";
  changed["ZORVANRelease"] = "R2000b";
  callOk(zvAddonSetProperties, {path, changed});
  const Json after = callOk(zvAddonGetProperties, {path}, 1);

  EXPECT_EQ(after["name"], "Second");
  EXPECT_EQ(after["type"], "ZORVAN Toolbox");
  EXPECT_EQ(after["ZORVANRelease"], before["ZORVANRelease"]);
  // Without an author element the creator comes from the core properties, which were set to "".
  EXPECT_EQ(after["authorName"], "");
  EXPECT_EQ(lastModified(path), modified);

  // A failed set leaves the file byte for byte.
  const std::string bytes = zvtest::readBytes(path);
  Json bad = zvtest::properties();
  bad["version"] = 3;  // not text: the host's conversion fails inside the protected block
  EXPECT_FALSE(call(zvAddonSetProperties, {path, bad}).ok());
  bad.erase("GUID");
  EXPECT_FALSE(call(zvAddonSetProperties, {path, bad}).ok());
  EXPECT_EQ(zvtest::readBytes(path), bytes);
}

TEST(Properties, AuthorsElementOnlyWhenAnAuthorFieldIsSetAndOnlyTheFirstAuthorIsRead) {
  addon::packaging::AddonProperties record;
  record.GUID = u"g";
  EXPECT_EQ(record.getAsXMLString().find(u"authors"), ustring::npos);
  record.authorContact = u"c@example.org";
  const ustring xml = record.getAsXMLString();
  EXPECT_NE(xml.find(u"<name"), ustring::npos) << "empty name is still written";
  EXPECT_NE(xml.find(u"<organization"), ustring::npos) << "empty organization is still written";

  addon::packaging::AddonProperties read;
  read.populateFromXML(xml);
  EXPECT_EQ(read.authorContact, u"c@example.org");
  EXPECT_EQ(read.GUID, u"g");

  const ustring ns = record.getNamespace();
  record.description = u"kept";
  record.populateFromXML(u"<addonProperties xmlns='" + ns +
                         u"'><authors><author><name>A</name></author>"
                         u"<author><name>B</name><contact>b</contact></author></authors></addonProperties>");
  EXPECT_EQ(record.authorName, u"A");
  EXPECT_EQ(record.authorContact, u"");
  EXPECT_EQ(record.description, u"kept") << "an absent element leaves its field";
}

}  // namespace
