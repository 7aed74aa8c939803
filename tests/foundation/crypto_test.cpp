// Base64 and hex (SHA-512 is checked against openssl over whole files by the content-hash tests).
#include "foundation/crypto.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

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
