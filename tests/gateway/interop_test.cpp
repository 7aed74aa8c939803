// Packages the gateway writes, as independent tools see them: Apache POI and python-docx read an
// edited, signed package with awkward content names, the ZIP testers pass it, and the XML-DSig
// checker accepts its signature with the published key. (Which signatures verification accepts:
// tests/package/signing_test.cpp.)
#include <gtest/gtest.h>

#include "foundation/i18n.h"
#include "gateway/zvaddon.h"
#include "interop/signature_checker.h"
#include "package/addon_package.h"
#include "package/signing.h"
#include "support/command.h"
#include "support/gateway_call.h"

namespace {

using zvtest::callOk;
using zvtest::Json;

// The reader's normalised summary ("both": one summary when the two agree); the driver exits
// non-zero when they disagree or a ZIP test fails.
Json readersSummary(const std::string& package, const std::string& reader) {
  const zvtest::CommandRun run = zvtest::runCommand(
      std::string("/usr/bin/python3 '") + ZV_INTEROP_DRIVER + "' --reader " + reader + " --zip-test --java-classes '" +
      ZV_INTEROP_JAVA_CLASSES + "' " + zvtest::shellQuoted(package));
  EXPECT_EQ(run.status, 0) << run.output;
  return run.status == 0 ? Json::parse(run.output) : Json();
}

TEST(Interop, IndependentToolsReadTheEditedSignedPackage) {
  zvtest::TempDir dir;
  const std::string path = dir.file("interop.zvaddon");
  callOk(zvAddonCreate, {path, zvtest::properties("First title")});
  Json edited = zvtest::properties("Caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87");
  edited["summary"] = "Second summary";
  edited["version"] = "2.0.1";
  edited["authorName"] = "Grace Hopper";
  callOk(zvAddonSetProperties, {path, edited});
  zvtest::writeBytes(dir.file("shot.png"), "\x89PNG\r\n\x1a\n");
  callOk(zvAddonSetScreenshot, {path, dir.file("shot.png")});
  callOk(zvAddonSetSystemRequirements,
         {path, {{"productDependency", Json::array({{{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}}})},
                 {"releaseCompatibility", {{"start", "R2019b"}, {"end", "R2024a"}}}}});
  callOk(zvAddonSign, {path});
  EXPECT_TRUE(addon::packaging::AddonPackage(fl::i18n::from_utf8(path)).verifyAddonRequirements());
  const auto checked = zvtest::signature::checkSignature(path, "/_xmlsignatures/sig1.xml",
                                                         addon::packaging::getVerificationKey(), dir.path());
  EXPECT_EQ(checked.status, 0) << checked.output;
  EXPECT_NE(checked.output.find("reference ok /metadata/systemRequirements.xml?"), std::string::npos)
      << checked.output;

  const Json summary = readersSummary(path, "both");
  ASSERT_TRUE(summary.is_object());
  const Json& core = summary["core"];
  EXPECT_EQ(core["title"], "Caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87");
  EXPECT_EQ(core["description"], "Second summary");
  EXPECT_EQ(core["version"], "2.0.1");
  EXPECT_EQ(core["creator"], "Grace Hopper");
  EXPECT_EQ(core["created"], core["modified"]);
  EXPECT_EQ(core["created"].get<std::string>().size(), 20u) << "whole seconds, UTC";
  EXPECT_EQ(summary["thumbnail"], Json::array({"/metadata/primaryScreenShot.png"}));
  EXPECT_NE(summary["parts"].dump().find("application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml"),
            std::string::npos);

  // Content parts with awkward names and empty folders: POI sees every one, python-docx opens them.
  zvtest::writeBytes(dir.file("source.m"), "content");
  for (const char* name : {"with space.m", "#1/50%/[x].m", "a&b/ends./_rels/x.rels", "caf\xC3\xA9/\xE4\xB8\xAD.m",
                           "nb\xC2\xA0sp"}) {
    callOk(zvAddonAddFiles, {path, dir.file("source.m"), name});
  }
  callOk(zvAddonAddFolders, {path, Json{"e", "f g"}});
  std::size_t contentParts = 0;
  const Json poi = readersSummary(path, "poi");
  for (const auto& part : poi.at("parts")) {
    contentParts += part.at(0).get<std::string>().starts_with("/fsroot/") ? 1 : 0;
  }
  EXPECT_EQ(contentParts, 7u) << poi.dump();
  EXPECT_TRUE(readersSummary(path, "docx").is_object());
}

}  // namespace
