// The host's C++ helpers, its own errors, message-key errors and release information.
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/except.h"
#include "host/reference/messages.h"
#include "host/reference/release.h"
#include "host_test_util.h"

namespace zvhost::testing {
namespace {

using foundation::core::msg::MessageArgument;
using zvhost::reference::HostError;
namespace err = zvhost::reference::errors;

// A message key in the shape of the library's own key classes.
class TestKey : public foundation::core::msg::BuiltinMessage {
 public:
  template <class... Args>
  explicit TestKey(const std::string& key, const Args&... args)
      : BuiltinMessage("zvaddon_builtins:zvaddon_builtins", 33, key.data(), key.size(), makeArguments(args...)) {}
};

HostError raised(const std::function<void()>& body) {
  try {
    body();
  } catch (const HostError& e) {
    return e;
  }
  ADD_FAILURE() << "no host error raised";
  return HostError("", "");
}

TEST(GetUstring, NonCharacterValuesRaiseTheHostErrorNamingTheClass) {
  const char* names[] = {"a"};
  struct Case {
    std::string expectedClass;
    std::function<Owned()> value;
  };
  const Case cases[] = {
      {"nothing", [] { return Owned(); }},
      {"double", [] { return Owned(qxCreateDoubleScalar(1)); }},
      {"uint16", [] { return numeric<std::uint16_t>(qxUINT16_CLASS, {1, 1}, {65}); }},
      {"cell", [] {
         Owned c = cells({1, 1});
         qxSetCell(c.get(), 0, qxCreateString("inside"));
         return c;
       }},
      {"Widget", [&] { return Owned(qxCreateObjectArray("Widget", 0, nullptr, 1, names)); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expectedClass);
    Owned value = c.value();
    const HostError e = raised([&] { (void)matrix::get_ustring(value.get()); });
    EXPECT_EQ(e.identifier(), err::notString);
    ASSERT_EQ(e.arguments().size(), 1u);
    EXPECT_EQ(std::get<std::string>(e.arguments()[0]), c.expectedClass);
    EXPECT_NE(e.message().find(c.expectedClass), std::string::npos);
  }
}

TEST(CreateAndRelease, MakesARowOfExactlyTheGivenUnitsAndReadsThemBackInStorageOrder) {
  Owned grid(qxCreateCharArray(2, std::vector<qxSize>{2, 2}.data()));
  const char16_t units[] = {u'a', u'\0', u'\xD83D', u'\xDE00'};
  std::memcpy(qxGetData(grid.get()), units, sizeof units);
  EXPECT_EQ(matrix::get_ustring(grid.get()), ustring(units, 4));
  const ustring texts[] = {u"", ustring(u"nul\0inside", 10), u"\U0001F600 astral", u"lone \xDC00"};
  for (const ustring& t : texts) {
    matrix::unique_qxarray_ptr handle = matrix::create(t.data(), t.size());
    qxArray* raw = handle.get();
    qxArray* released = matrix::to_zorvan(std::move(handle));
    EXPECT_EQ(released, raw);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(qxGetM(released), 1u);
    EXPECT_EQ(matrix::get_ustring(released), t);
    matrix::destroyArray(released);
  }
  EXPECT_EQ(qxGetN(matrix::create(nullptr, 0).get()), 0u);
  EXPECT_EQ(hostErrorOf([] { (void)matrix::create(nullptr, 3); }), err::invalidText);
}

TEST(HostErrors, MessageKeyErrorsCarryIdentifierArgumentsAndFormattedText) {
  zvhost::reference::setMessageDirectory(std::string(ZV_TEST_DATA_DIR) + "/host/messages");
  struct Case {
    TestKey key;
    bool withId;
    std::string expectedMessage;
  };
  const Case cases[] = {
      {TestKey("ZVADDON_TEST_TWO", ustring(u"/p/\u00e9.zvaddon"), "zip: bad"), true, "Cannot open /p/\xC3\xA9.zvaddon: zip: bad"},
      {TestKey("ZVADDON_TEST_NONE"), false, "No arguments here."},
      {TestKey("ZVADDON_NOT_IN_CATALOGUE", ustring(u"x")), true,
       "zvaddon_builtins:zvaddon_builtins:ZVADDON_NOT_IN_CATALOGUE (x)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key.key());
    foundation::core::except::Exception<TestKey> wrapped(c.key);
    if (c.withId) wrapped.setID(foundation::core::except::IMsgIDException::get_error_id(c.key));
    const HostError e = raised([&] { matrix::detail::do_legacy_qx_error(wrapped); });
    EXPECT_EQ(e.identifier(), "zvaddon_builtins:zvaddon_builtins:" + c.key.key());
    EXPECT_EQ(e.key(), c.key.key());
    EXPECT_EQ(e.arguments(), c.key.arguments());
    EXPECT_EQ(e.message(), c.expectedMessage);
  }
  zvhost::reference::setMessageDirectory(std::nullopt);
}

class ReleaseInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::unsetenv("ZVADDON_HOST_RELEASE");
    ::unsetenv("ZVADDON_HOST_VERSION");
    zvhost::reference::resetReleaseInfo();
  }
  void TearDown() override { SetUp(); }
};

TEST_F(ReleaseInfoTest, OverrideBeatsEnvironmentBeatsBuiltIn) {
  using foundation::release_info::getCurrentReleaseInfo;
  const auto builtIn = getCurrentReleaseInfo();
  EXPECT_FALSE(builtIn.release.empty());
  EXPECT_FALSE(builtIn.version.empty());

  ::setenv("ZVADDON_HOST_RELEASE", "R2099z", 1);
  EXPECT_EQ(getCurrentReleaseInfo().release, "R2099z");
  EXPECT_EQ(getCurrentReleaseInfo().version, builtIn.version);
  ::setenv("ZVADDON_HOST_VERSION", "99.9", 1);
  EXPECT_EQ(getCurrentReleaseInfo().version, "99.9");

  zvhost::reference::setReleaseInfo({"R2000a", "1.0"});
  EXPECT_EQ(getCurrentReleaseInfo().release, "R2000a");
  EXPECT_EQ(getCurrentReleaseInfo().version, "1.0");

  zvhost::reference::resetReleaseInfo();
  EXPECT_EQ(getCurrentReleaseInfo().release, "R2099z");
  ::unsetenv("ZVADDON_HOST_RELEASE");
  ::unsetenv("ZVADDON_HOST_VERSION");
  EXPECT_EQ(getCurrentReleaseInfo().release, builtIn.release);
}

}  // namespace
}  // namespace zvhost::testing
