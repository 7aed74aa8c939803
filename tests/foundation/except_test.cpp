#include "foundation/except.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using foundation::core::msg::BuiltinMessage;
using foundation::core::msg::MessageArgument;

constexpr char kCatalog[] = "zvaddon_builtins:zvaddon_builtins";

// A key class as the gateway defines them: slots first, then filled in order.
class SAMPLE_KEY : public BuiltinMessage {
 public:
  SAMPLE_KEY(const ustring& path, const char* message)
      : BuiltinMessage(kCatalog, sizeof kCatalog - 1, "SAMPLE_KEY", 10, makeArguments(path, message)) {}
};

TEST(Message, ArgumentsKeepTheirTypesAndBytesAndNullTextIsRefusedOrEmpty) {
  const std::string raw("\xFF\x00z", 3);
  const SAMPLE_KEY key(u"/tmp/\u00E9.zvaddon", raw.c_str());
  ASSERT_EQ(key.arguments().size(), 2u);
  EXPECT_EQ(std::get<ustring>(key.arguments()[0]), u"/tmp/\u00E9.zvaddon");
  // A const char* argument stops at its terminator, byte for byte, no conversion.
  EXPECT_EQ(std::get<std::string>(key.arguments()[1]), std::string("\xFF"));
  EXPECT_EQ(key.catalog(), kCatalog);
  EXPECT_EQ(key.key(), "SAMPLE_KEY");
  EXPECT_EQ(std::get<std::string>(SAMPLE_KEY(u"p", nullptr).arguments()[1]), "");
  EXPECT_EQ(std::get<std::int64_t>(MessageArgument()), 0);
  EXPECT_THROW(BuiltinMessage(nullptr, 3, "K", 1), std::logic_error);
  EXPECT_THROW(BuiltinMessage(kCatalog, 3, nullptr, 1), std::logic_error);
}

TEST(Exception, CarriesIdentifierAndCopiesMessage) {
  using Wrapped = foundation::core::except::Exception<SAMPLE_KEY>;
  Wrapped error(SAMPLE_KEY(u"x", "boom"));
  error.setID(foundation::core::except::IMsgIDException::get_error_id(error.GetBaseMsgIDObj()));
  EXPECT_EQ(error.GetID(), "zvaddon_builtins:zvaddon_builtins:SAMPLE_KEY");
  EXPECT_STREQ(error.what(), "zvaddon_builtins:zvaddon_builtins:SAMPLE_KEY");

  std::unique_ptr<foundation::core::except::IException> copy(error.clone());
  EXPECT_STREQ(copy->what(), error.what());
  try {
    copy->rethrow();
    FAIL() << "rethrow returned";
  } catch (const foundation::core::except::IUserException& e) {
    EXPECT_EQ(std::get<std::string>(e.GetBaseMsgIDObj().arguments()[1]), "boom");
  }
  // The same object is also a standard and a Boost exception.
  EXPECT_NE(dynamic_cast<const std::exception*>(&error), nullptr);
  EXPECT_NE(dynamic_cast<const boost::exception*>(&error), nullptr);
}

}  // namespace
