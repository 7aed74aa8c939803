// The frame every gateway function shares: count errors, the structure check, not-found. (Each
// function's own key for a corrupt package: records_test.cpp.)
#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::Json;

constexpr char kTooManyOutputs[] = "zvhost:tooManyOutputs";

TEST(Frame, CountErrorsInPrecedence) {
  struct Case {
    const char* name;
    qxFunction f;
    int nargout;
    std::vector<Json> inputs;
    const char* identifier;
  };
  const Json s = Json::object();
  const std::vector<Case> cases = {
      {"outputs before inputs", zvAddonGetProperties, 2, {}, kTooManyOutputs},
      {"too many inputs", zvAddonSetProperties, 0, {"p", s, s}, "zvhost:tooManyInputs"},
      {"too few inputs", zvAddonSetProperties, 0, {"p"}, "zvhost:notEnoughInputs"},
      {"too many before too few", zvAddonCreate, 1, {"p", s, s}, kTooManyOutputs},
      {"hash takes one input", zvAddonComputeHash, 1, {"a", "b"}, "zvhost:tooManyInputs"},
  };
  for (const Case& c : cases) {
    const auto r = call(c.f, c.inputs, c.nargout);
    ASSERT_FALSE(r.ok()) << c.name;
    EXPECT_EQ(r.error->identifier(), c.identifier) << c.name;
  }
}

TEST(Frame, StructureCheckLetsStructuresAndEmptiesThrough) {
  zvtest::TempDir dir;
  const std::string missing = dir.file("missing.zvaddon");
  const struct {
    const char* name;
    Json value;
    bool passes;
  } cases[] = {
      {"structure", zvtest::properties(), true},
      {"object", Json{{"$class", "object"}, {"$className", "Props"}, {"$dims", {1, 1}}, {"$fields", {"a"}},
                      {"$data", {{{"a", "x"}}}}}, true},
      {"empty numeric", nullptr, true},
      {"0-by-0 cell", Json{{"$class", "cell"}, {"$dims", {0, 0}}, {"$data", Json::array()}}, true},
      {"empty text", "", true},
      {"number", 5, false},
      {"text", "abc", false},
      {"cell", Json::array({"a"}), false},
  };
  // What a record makes of an input that passed is the record's business (the properties record
  // needs every field); what matters here is whether the check let it through.
  for (const auto& c : cases) {
    const auto r = call(zvAddonSetProperties, {missing, c.value});
    ASSERT_FALSE(r.ok()) << c.name;
    EXPECT_EQ(r.key() == "ZVADDON_BUILTINS_ERROR_NON_STRUCT", !c.passes) << c.name << ": " << r.key();
    if (!c.passes) {
      EXPECT_TRUE(r.error->arguments().empty()) << c.name;
    }
  }
  EXPECT_EQ(call(zvAddonSetProperties, {missing, zvtest::properties()}).key(),
            "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
}

TEST(Frame, NotFoundCarriesThePathExactlyAsGiven) {
  const std::string path = "/nonexistent/d\xC3\xA9j\xC3\xA0 \xE4\xB8\xAD\xF0\x9F\x98\x80.zvaddon";
  for (qxFunction f : {zvAddonGetProperties, zvAddonGetScreenshot}) {
    const auto r = call(f, {path}, 1);
    ASSERT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
    ASSERT_EQ(r.error->arguments().size(), 1u);
    EXPECT_EQ(std::get<ustring>(r.error->arguments()[0]),
              u"/nonexistent/d\u00E9j\u00E0 \u4E2D\U0001F600.zvaddon");
  }
}

TEST(Frame, NonTextPathIsTheHostsError) {
  const auto r = call(zvAddonGetProperties, {42}, 1);
  ASSERT_FALSE(r.ok());
  EXPECT_EQ(r.error->identifier().rfind("zvhost:", 0), 0u) << r.error->identifier();
}

}  // namespace
