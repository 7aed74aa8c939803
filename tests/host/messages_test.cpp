// Message catalogues: placeholder filling, argument text, fallbacks, where catalogues come from.
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/reference/messages.h"

namespace zvhost::reference {
namespace {

using foundation::core::msg::MessageArgument;
using Args = std::vector<MessageArgument>;

const std::string testMessages = std::string(ZV_TEST_DATA_DIR) + "/host/messages";
const std::string catalogue = "zvaddon_builtins:zvaddon_builtins";

MessageArgument u(const char16_t* s) { return ustring(s); }
MessageArgument n(const char* s) { return std::string(s); }

TEST(MessageCatalog, FillsPlaceholdersFromTheArguments) {
  const MessageCatalog texts = MessageCatalog::load(testMessages, catalogue);
  ASSERT_FALSE(texts.empty());
  struct Case {
    const char* key;
    Args arguments;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"ZVADDON_TEST_TWO", {u(u"/tmp/\u00e9\U0001D11E.zvaddon"), n("boom")},
       "Cannot open /tmp/\xC3\xA9\xF0\x9D\x84\x9E.zvaddon: boom"},
      {"ZVADDON_TEST_REORDERED", {n("a"), n("b")}, "b before a, a again"},
      {"ZVADDON_TEST_NUMBER", {std::int64_t{INT64_MIN}}, "count=-9223372036854775808"},
      {"ZVADDON_TEST_MISSING_ARG", {n("x")}, "only x and {3}"},
      {"ZVADDON_TEST_BRACES", {n("Z")}, "{} {x} {0 } {Z} Z"},
      {"ZVADDON_TEST_TWO", {u(u"lone \xD800 high"), u(u"lone \xDC00 low")},
       "Cannot open lone \xEF\xBF\xBD high: lone \xEF\xBF\xBD low"},
      {"ZVADDON_TEST_NOT_TEXT", {}, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(texts.format(c.key, c.arguments), c.expected);
  }
}

TEST(MessageCatalog, UnreadableFilesGiveAnEmptyCatalogue) {
  const std::string dirs[] = {std::string(ZV_TEST_DATA_DIR) + "/host/messages-malformed",
                              std::string(ZV_TEST_DATA_DIR) + "/host/no-such-directory", ZV_TEST_DATA_DIR};
  for (const std::string& dir : dirs) {
    SCOPED_TRACE(dir);
    const MessageCatalog texts = MessageCatalog::load(dir, catalogue);
    EXPECT_TRUE(texts.empty());
    EXPECT_EQ(texts.format("ZVADDON_TEST_TWO", {}), std::nullopt);
  }
}

TEST(FormatMessage, FallsBackToIdentifierAndArguments) {
  struct Case {
    const char* name;
    std::string directory, catalogue, key;
    Args arguments;
    std::string expected;
  };
  const Case cases[] = {
      {"known key", testMessages, catalogue, "ZVADDON_TEST_TWO", {n("p"), n("q")}, "Cannot open p: q"},
      {"unknown key", testMessages, catalogue, "ZVADDON_UNKNOWN", {u(u"\u00e9"), std::int64_t{3}},
       catalogue + ":ZVADDON_UNKNOWN (\xC3\xA9, 3)"},
      {"missing catalogue file", testMessages, "other:absent", "ZVADDON_TEST_TWO", {n("p")},
       "other:absent:ZVADDON_TEST_TWO (p)"},
      {"malformed catalogue file", std::string(ZV_TEST_DATA_DIR) + "/host/messages-malformed", catalogue,
       "ZVADDON_TEST_TWO", {n("p"), n("q")}, catalogue + ":ZVADDON_TEST_TWO (p, q)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    setMessageDirectory(c.directory);
    EXPECT_EQ(formatMessage(c.catalogue, c.key, c.arguments), c.expected);
  }
  setMessageDirectory(std::nullopt);
}

TEST(MessageDirectory, OverrideThenEnvironmentThenInstalledOrSource) {
  const char* saved = std::getenv("ZVADDON_MESSAGE_DIR");
  const std::optional<std::string> restore = saved ? std::optional<std::string>(saved) : std::nullopt;

  ::setenv("ZVADDON_MESSAGE_DIR", "/from/environment", 1);
  EXPECT_EQ(messageDirectory(), "/from/environment");
  setMessageDirectory("/from/override");
  EXPECT_EQ(messageDirectory(), "/from/override");
  setMessageDirectory(std::nullopt);
  EXPECT_EQ(messageDirectory(), "/from/environment");
  ::setenv("ZVADDON_MESSAGE_DIR", "", 1);
  const std::string fallback = messageDirectory();
  EXPECT_TRUE(fallback == std::string(ZV_SOURCE_DIR) + "/resources/messages" ||
              fallback.ends_with("/share/zvaddon/messages"))
      << fallback;

  if (restore) {
    ::setenv("ZVADDON_MESSAGE_DIR", restore->c_str(), 1);
  } else {
    ::unsetenv("ZVADDON_MESSAGE_DIR");
  }
}

}  // namespace
}  // namespace zvhost::reference
