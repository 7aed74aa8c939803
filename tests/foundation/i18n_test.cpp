#include "foundation/i18n.h"

#include <gtest/gtest.h>

namespace {

struct RoundTrip {
  const char* name;
  std::string utf8;
  ustring utf16;
};

TEST(Utf, ValidTextRoundTripsBothWays) {
  const RoundTrip cases[] = {
      {"empty", "", u""},
      {"latin", "caf\xC3\xA9", u"caf\u00E9"},
      {"cjk", "\xE4\xB8\xAD\xE6\x96\x87", u"\u4E2D\u6587"},
      {"astral emoji", "\xF0\x9F\x98\x80", u"\U0001F600"},
      {"last code point", "\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
      {"embedded nul", std::string("a\0b", 3), ustring(u"a\0b", 3)},
      {"every width in a row", "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80z", u"a\u00E9\u4E2D\U0001F600z"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(fl::i18n::from_utf8(c.utf8), c.utf16) << c.name;
    EXPECT_EQ(fl::i18n::to_utf8(c.utf16), c.utf8) << c.name;
  }
}

TEST(Utf, IllFormedUtf8AndLoneSurrogatesAreRefused) {
  const std::pair<const char*, std::string> cases[] = {
      {"lone continuation", "\x80"},
      {"truncated", "\xE4\xB8"},
      {"overlong slash", "\xC0\xAF"},
      {"encoded surrogate", "\xED\xA0\x80"},
      {"beyond U+10FFFF", "\xF4\x90\x80\x80"},
      {"invalid lead", "\xFF"},
  };
  for (const auto& [name, text] : cases) {
    EXPECT_THROW((void)fl::i18n::from_utf8(text), fl::i18n::conversion_error) << name;
  }
  EXPECT_THROW((void)fl::i18n::to_utf8(ustring(1, char16_t(0xDC00))), fl::i18n::conversion_error);
  EXPECT_THROW((void)fl::i18n::to_utf8(ustring{char16_t(0xD83D), u'a'}), fl::i18n::conversion_error);
  EXPECT_THROW((void)fl::i18n::to_utf8(ustring{u'\u00E9', char16_t(0xD83D)}), fl::i18n::conversion_error);
}

TEST(Utf, ConverterObjectsAcceptOnlyUtf8) {
  const fl::i18n::codecvt_ustring_to_string narrow("utf8");
  const fl::i18n::codecvt_string_to_ustring wide("UTF-8");
  EXPECT_EQ(fl::i18n::to_string(narrow, u"\u00E9"), "\xC3\xA9");
  EXPECT_EQ(fl::i18n::to_ustring(wide, "\xC3\xA9"), u"\u00E9");
  EXPECT_THROW(fl::i18n::codecvt_ustring_to_string("latin1"), fl::i18n::conversion_error);
}

}  // namespace
