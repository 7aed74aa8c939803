#include "foundation/crypto.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "support/command.h"

namespace {

using foundation::crypto::Bytes;
using foundation::crypto::CryptoEngine;
using foundation::crypto::CryptoError;
namespace utils = foundation::crypto::utils;

Bytes bytesOf(std::string_view s) { return Bytes(s.begin(), s.end()); }

std::string sha512Hex(std::istream& in) {
  CryptoEngine engine(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  return utils::hexEncode(engine.createSHA512DigestEngine()->computeDigest(in));
}

std::string run(const std::string& command) { return zvtest::runCommand(command).output; }

TEST(Sha512, KnownVectorsAndALargeStreamAgreeWithOpensslCli) {
  std::istringstream empty(""), abc("abc");
  EXPECT_EQ(sha512Hex(empty),
            "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
            "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
  EXPECT_EQ(sha512Hex(abc),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");

  const auto path = std::filesystem::temp_directory_path() / "zv_sha512_100mib.bin";
  {
    std::ofstream out(path, std::ios::binary);
    std::mt19937_64 rng(42);
    std::vector<std::uint64_t> block(1 << 17);  // 1 MiB
    for (int i = 0; i < 100; ++i) {
      for (auto& w : block) w = rng();
      out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size() * 8));
    }
  }
  std::ifstream in(path, std::ios::binary);
  const std::string ours = sha512Hex(in);
  const std::string theirs = run("openssl dgst -sha512 -r '" + path.string() + "'");
  std::filesystem::remove(path);
  ASSERT_GE(theirs.size(), 128u);
  EXPECT_EQ(ours, theirs.substr(0, 128));
}

TEST(Digest, MethodCodesMapToModernAlgorithms) {
  CryptoEngine engine(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  const Bytes abc = bytesOf("abc");
  EXPECT_EQ(utils::hexEncode(engine.createDigestEngine(utils::DigestMethod::SHA256)->computeDigest(abc)),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(engine.createDigestEngine(utils::DigestMethod::SHA384)->computeDigest(abc).size(), 48u);
}

TEST(Base64, PaddingForEveryRemainderAndMalformedTextRefused) {
  // RFC 4648 test vectors.
  const std::pair<std::string, std::string> cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : cases) {
    EXPECT_EQ(utils::base64EncodeNarrow(bytesOf(plain)), encoded) << plain;
    EXPECT_EQ(utils::base64Encode(bytesOf(plain)), ustring(encoded.begin(), encoded.end())) << plain;
    EXPECT_EQ(utils::base64Decode(encoded), bytesOf(plain)) << plain;
  }
  EXPECT_THROW((void)utils::base64Decode("Zm9"), CryptoError);
  EXPECT_THROW((void)utils::base64Decode("Zm9*"), CryptoError);
}

TEST(Base64, SixtyFourBytesHasNoLineBreakAndMatchesCli) {
  Bytes bytes(64);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 37 + 11);
  const std::string encoded = utils::base64EncodeNarrow(bytes);
  EXPECT_EQ(encoded.size(), 88u);
  EXPECT_EQ(encoded.find('\n'), std::string::npos);
  const auto path = std::filesystem::temp_directory_path() / "zv_base64_64.bin";
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), 64);
  const std::string cli = run("openssl base64 -A -in '" + path.string() + "'");
  std::filesystem::remove(path);
  EXPECT_EQ(encoded, cli);
  EXPECT_EQ(utils::base64Decode(encoded), bytes);
}

TEST(Hex, DecodesBothCasesAndRefusesBadInput) {
  EXPECT_EQ(utils::hexDecode(u"00ffA0"), (Bytes{0x00, 0xFF, 0xA0}));
  EXPECT_THROW((void)utils::hexDecode(u"abc"), CryptoError);
  EXPECT_THROW((void)utils::hexDecode(u"0g"), CryptoError);
  EXPECT_THROW((void)utils::hexDecode(u"\u0660\u0661"), CryptoError);
}

}  // namespace
