// Digests over the provider, base64 and hex. SHA-512 over whole files is checked against openssl by
// the content-hash tests.
#include "foundation/crypto.h"

#include <gtest/gtest.h>

#include <optional>
#include <sstream>

namespace {

using foundation::crypto::Bytes;
using foundation::crypto::CryptoError;
namespace utils = foundation::crypto::utils;

Bytes bytes(std::string_view s) { return Bytes(s.begin(), s.end()); }

TEST(Crypto, DigestMethodsGiveTheirAlgorithm) {
  const foundation::crypto::CryptoEngine engine(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  std::istringstream abc("abc");
  // The first and last bytes of each algorithm's digest of "abc" (FIPS 180-2 vectors).
  const Bytes sha512 = engine.createSHA512DigestEngine()->computeDigest(abc);
  EXPECT_EQ(sha512, engine.createDigestEngine(utils::DigestMethod::SHA512)->computeDigest(bytes("abc")));
  EXPECT_EQ(sha512.size(), 64u);
  EXPECT_EQ(sha512.front(), 0xdd);
  EXPECT_EQ(sha512.back(), 0x9f);
  const Bytes sha256 = engine.createDigestEngine(utils::DigestMethod::SHA256)->computeDigest(bytes("abc"));
  EXPECT_EQ(sha256.size(), 32u);
  EXPECT_EQ(sha256.front(), 0xba);
  EXPECT_EQ(engine.createDigestEngine(utils::DigestMethod::SHA384)->computeDigest(bytes("abc")).front(), 0xcb);
  EXPECT_THROW((void)engine.createDigestEngine(utils::DigestMethod{4}), CryptoError);
}

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
  const std::string sixtyFour(64, '\xA5');
  EXPECT_EQ(utils::base64EncodeNarrow(bytes(sixtyFour)).find('\n'), std::string::npos) << "one line";
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
