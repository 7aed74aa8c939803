// UTF-8 <-> UTF-16: one strict decoder, which hosts and the JSON mapping use as well. Base64 and hex
// (SHA-512 is checked against openssl over whole files by the content-hash tests).
#include <gtest/gtest.h>

#include <optional>

#include "foundation/crypto.h"
#include "foundation/i18n.h"

namespace {

TEST(Utf, EveryFormRoundTripsAndEveryIllFormedOneIsRefused) {
  const std::pair<std::string, std::optional<ustring>> rows[] = {
      {"", u""},
      {std::string("a\0b", 3), ustring(u"a\0b", 3)},
      {"caf\xC3\xA9 \xC2\x80\xDF\xBF", u"caf\u00E9 \u0080\u07FF"},
      {"\xE0\xA0\x80\xE4\xB8\xAD\xEF\xBF\xBF\xEE\x80\x80", u"\u0800\u4E2D\uFFFF\uE000"},
      {"\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0001F600\U0010FFFF"},
      {"a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80z", u"a\u00E9\u4E2D\U0001F600z"},
      // overlong forms, surrogates, beyond U+10FFFF, truncated, stray and invalid bytes
      {"\xC0\x80", std::nullopt}, {"\xC1\xBF", std::nullopt}, {"\xE0\x9F\xBF", std::nullopt},
      {"\xF0\x8F\xBF\xBF", std::nullopt}, {"\xED\xA0\x80", std::nullopt}, {"\xED\xBF\xBF", std::nullopt},
      {"\xF4\x90\x80\x80", std::nullopt}, {"\xF5\x80\x80\x80", std::nullopt}, {"\xE2\x82", std::nullopt},
      {"ok\xF0\x9F\x98", std::nullopt}, {"\x80", std::nullopt}, {"a\xBFz", std::nullopt}, {"\xFE", std::nullopt},
      {"\xFF", std::nullopt}, {"\xC3\x28", std::nullopt}, {"\xE2\x28\xA1", std::nullopt},
  };
  for (const auto& [utf8, utf16] : rows) {
    SCOPED_TRACE(::testing::PrintToString(utf8));
    if (utf16) {
      EXPECT_EQ(fl::i18n::from_utf8(utf8), *utf16);
      EXPECT_EQ(fl::i18n::utf16_length(utf8), utf16->size());
      EXPECT_EQ(fl::i18n::to_utf8(*utf16), utf8);
    } else {
      EXPECT_THROW((void)fl::i18n::from_utf8(utf8), fl::i18n::conversion_error);
      EXPECT_EQ(fl::i18n::utf16_length(utf8), std::nullopt);
    }
  }
  for (const ustring& lone : {ustring(1, u'\xDC00'), ustring(u"\xD83D" u"a"), ustring(u"\u00E9\xD83D")}) {
    EXPECT_THROW((void)fl::i18n::to_utf8(lone), fl::i18n::conversion_error);
  }
  EXPECT_EQ(fl::i18n::to_ustring(fl::i18n::codecvt_string_to_ustring("UTF-8"), "\xC3\xA9"), u"\u00E9");
  EXPECT_EQ(fl::i18n::to_string(fl::i18n::codecvt_ustring_to_string("utf8"), u"\u00E9"), "\xC3\xA9");
  EXPECT_THROW(fl::i18n::codecvt_ustring_to_string("latin1"), fl::i18n::conversion_error);
}

using foundation::crypto::Bytes;
using foundation::crypto::CryptoError;
namespace utils = foundation::crypto::utils;

Bytes bytes(std::string_view s) { return Bytes(s.begin(), s.end()); }

TEST(Crypto, Base64AndHexTables) {
  // RFC 4648: every padding; decoding skips whitespace and refuses anything outside the alphabet.
  const std::pair<std::string, std::string> base64[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : base64) {
    EXPECT_EQ(utils::base64EncodeNarrow(bytes(plain)), encoded);
    EXPECT_EQ(utils::base64Encode(bytes(plain)), ustring(encoded.begin(), encoded.end()));
    EXPECT_EQ(utils::base64Decode(encoded), bytes(plain));
  }
  EXPECT_EQ(utils::base64Decode("Zm9v\r\nYmFy"), bytes("foobar"));
  for (const char* bad : {"Zm9", "Zm9*", "Z===", "=Zm9"}) EXPECT_THROW((void)utils::base64Decode(bad), CryptoError) << bad;

  const std::pair<ustring, std::optional<Bytes>> hex[] = {
      {u"00ffA0", Bytes{0x00, 0xFF, 0xA0}}, {u"", Bytes{}}, {u"abc", std::nullopt}, {u"0g", std::nullopt},
      {u"\u0660\u0661", std::nullopt}};
  for (const auto& [text, decoded] : hex) {
    if (decoded) {
      EXPECT_EQ(utils::hexDecode(text), *decoded);
    } else {
      EXPECT_THROW((void)utils::hexDecode(text), CryptoError);
    }
  }
}

}  // namespace
