// The reference host through the contract the library relies on: one table over the operations,
// each result read back through the JSON mapping.
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/except.h"
#include "foundation/release_info.h"
#include "host/common/messages.h"
#include "host/json/json.h"
#include "host/reference/call.h"
#include "host/reference/host_error.h"

namespace zvhost {
namespace {

using Owned = matrix::unique_qxarray_ptr;
using json::Json;

Owned d(double v) { return Owned(qxCreateDoubleScalar(v)); }
Owned fromJson(const char* text) { return json::toOwnedArray(Json::parse(text)); }
Owned numeric(std::vector<qxSize> dims, qxClassID id) {
  return Owned(qxCreateNumericArray(dims.size(), dims.data(), id, qxREAL));
}
Owned structure(std::vector<qxSize> dims, std::vector<const char*> names) {
  return Owned(qxCreateStructArray(dims.size(), dims.data(), static_cast<int>(names.size()), names.data()));
}
// a(subscript), as the host's language evaluates it.
Owned at(const Owned& a, const Owned& subscript) {
  const qxArray* raw[] = {subscript.get()};
  return Owned(qxSubscriptedReference(a.get(), 1, raw));
}
// The text a value's conversion gives, as a new char row.
Owned text(const Owned& a) {
  const ustring t = matrix::get_ustring(a.get());
  return matrix::create(t.data(), t.size());
}

// A message key in the shape of the library's own key classes.
class TestKey : public foundation::core::msg::BuiltinMessage {
 public:
  template <class... Args>
  explicit TestKey(const std::string& key, const Args&... args)
      : BuiltinMessage("zvaddon_builtins:zvaddon_builtins", 33, key.data(), key.size(), makeArguments(args...)) {}
};
// Raises the key with catalogues from tests/data/host/<directory>, or from where the host looks by default.
template <class... Args>
Owned raiseKey(std::string directory, const std::string& key, const Args&... args) {
  setMessageDirectory(directory.empty() ? std::nullopt : std::optional(ZV_TEST_DATA_DIR "/host/" + directory));
  foundation::core::except::Exception<TestKey> error{TestKey(key, args...)};
  matrix::detail::do_legacy_qx_error(error);
  return nullptr;
}

void storesNothing(int, qxArray**, int, const qxArray**) {}
void throwsStd(int, qxArray** out, int, const qxArray**) {
  out[0] = qxCreateString("abandoned");
  throw std::runtime_error("disk on fire");
}

struct Row {
  const char* name;
  std::function<Owned()> op;
  std::string want;  // the result as JSON, or "!identifier" or "!identifier|message" for a host error
};

const qxSize huge = qxSize{1} << 60;
const std::string key = "!zvaddon_builtins:zvaddon_builtins:";
const char* one[] = {"a"};

const Row rows[] = {
    // shapes: missing dimensions read as 1, sizes that cannot exist are refused (trailing 1s: the mapping)
    {"one dimension is a column", [] { return numeric({2}, qxUINT8_CLASS); }, R"({"$class":"uint8","$dims":[2,1],"$data":[0,0]})"},
    {"no dimensions is 1x1", [] { return Owned(qxCreateStructArray(0, nullptr, 1, one)); }, R"({"a":null})"},
    {"count overflows", [] { return numeric({huge, 4, 4}, qxINT8_CLASS); }, "!zvhost:outOfMemory"},
    {"bytes overflow", [] { return numeric({2 * huge, 1}, qxDOUBLE_CLASS); }, "!zvhost:outOfMemory"},
    {"field values overflow", [] { return structure({4 * huge, 1}, {"a"}); }, "!zvhost:outOfMemory"},
    {"logical is not numeric", [] { return numeric({1, 1}, qxLOGICAL_CLASS); }, "!zvhost:invalidClass"},
    // structures: names checked, stores checked before anything changes (field order: the mapping)
    {"missing field reads as null", [] { return Owned(qxDuplicateArray(qxGetField(fromJson(R"({"a":1})").get(), 0, "b"))); }, "null"},
    {"field name not an identifier", [] { return structure({1, 1}, {"1a"}); }, "!zvhost:invalidFieldName"},
    {"field name twice", [] { return structure({1, 1}, {"ok", "ok"}); }, "!zvhost:invalidFieldName"},
    {"no such field", [] { qxSetField(fromJson("{}").get(), 0, "b", qxCreateDoubleScalar(2)); return nullptr; }, "!zvhost:noSuchField"},
    {"element out of range", [] { qxSetField(fromJson(R"({"a":1})").get(), 1, "a", nullptr); return nullptr; }, "!zvhost:indexOutOfBounds"},
    {"field of a cell", [] { qxSetField(fromJson(R"(["x"])").get(), 0, "a", nullptr); return nullptr; }, "!zvhost:notContainer"},
    {"cell out of range", [] { qxSetCell(fromJson(R"(["x"])").get(), 1, nullptr); return nullptr; }, "!zvhost:indexOutOfBounds"},
    {"refused store leaves the container", [] {
       Owned c = fromJson(R"({"$class":"cell","$data":["x",{"a":1}]})");
       EXPECT_THROW(qxSetCell(c.get(), 0, qxGetCell(c.get(), 1)), reference::HostError);  // held by c already
       return c;
     }, R"({"$class":"cell","$dims":[1,2],"$data":["x",{"a":1}]})"},
    {"container into itself", [] {
       Owned c = fromJson(R"({"$class":"cell","$data":[{"a":1}]})");
       qxSetField(qxGetCell(c.get(), 0), 0, "a", c.get());
       return nullptr;
     }, "!zvhost:alreadyHeld"},
    // text: UTF-8 checked, UTF-16 taken as it is, every unit read back in storage order
    {"from UTF-8", [] { return Owned(qxCreateString("h\xC3\xA9 \xF0\x9D\x84\x9E")); }, "\"h\u00e9 \U0001D11E\""},
    {"null UTF-8 is empty", [] { return Owned(qxCreateString(nullptr)); }, R"("")"},
    {"ill-formed UTF-8", [] { return Owned(qxCreateString("\xED\xA0\x80")); }, "!zvhost:invalidText"},
    {"lone surrogate kept", [] { return Owned(qxCreateString_UTF16(u"a\xD800z")); }, R"({"$class":"char","$dims":[1,3],"$data":[97,55296,122]})"},
    {"char matrix in storage order", [] { return text(fromJson(R"({"$class":"char","$dims":[2,2],"$data":"abcd"})")); }, R"("abcd")"},
    {"no text", [] { return matrix::create(nullptr, 3); }, "!zvhost:invalidText"},
    {"not text", [] { return text(d(1)); }, "!zvhost:notString|Expected a character array, got double."},
    {"nothing is not text", [] { return text(nullptr); }, "!zvhost:notString|Expected a character array, got nothing."},
    // one linear subscript into a structure array, counted from 1 in column-major order, as records read
    {"uint64 linear index", [] { return at(fromJson(R"({"$class":"struct","$dims":[2,2],"$data":[{"v":1},{"v":2},{"v":3},{"v":4}]})"),
                                            fromJson(R"({"$class":"uint64","$data":[3]})")); }, R"({"v":3})"},
    {"past the end", [] { return at(fromJson(R"(["a","b"])"), fromJson(R"({"$class":"uint64","$data":[18446744073709551615]})")); },
     "!zvhost:indexOutOfBounds|Index exceeds array bounds: index 18446744073709551615, size 2."},
    // errors: message keys with their catalogue text (the count errors: the gateway frame test)
    {"key with arguments", [] { return raiseKey("messages", "ZVADDON_TEST_TWO", ustring(u"/p/\u00e9"), "zip: bad"); },
     key + "ZVADDON_TEST_TWO|Cannot open /p/\xC3\xA9: zip: bad"},
    {"placeholders without argument", [] { return raiseKey("messages", "ZVADDON_TEST_BRACES", "Z"); },
     key + "ZVADDON_TEST_BRACES|{} {x} {0 } {Z} Z"},
    {"number and a missing argument", [] { return raiseKey("messages", "ZVADDON_TEST_MISSING_ARG", std::int64_t{-9}); },
     key + "ZVADDON_TEST_MISSING_ARG|only -9 and {3}"},
    {"lone surrogates shown", [] { return raiseKey("messages", "ZVADDON_TEST_TWO", ustring(u"a\xD800"), ustring(u"\xDC00")); },
     key + "ZVADDON_TEST_TWO|Cannot open a\xEF\xBF\xBD: \xEF\xBF\xBD"},
    {"key not in the catalogue", [] { return raiseKey("messages", "ZVADDON_TEST_NOT_TEXT", ustring(u"\u00e9"), std::int64_t{3}); },
     key + "ZVADDON_TEST_NOT_TEXT|" + key.substr(1) + "ZVADDON_TEST_NOT_TEXT (\xC3\xA9, 3)"},
    {"null narrow text is empty", [] { return raiseKey("messages", "ZVADDON_TEST_TWO", "p", static_cast<const char*>(nullptr)); },
     key + "ZVADDON_TEST_TWO|Cannot open p: "},
    {"malformed catalogue", [] { return raiseKey("messages-malformed", "ZVADDON_TEST_TWO", "p", "q"); },
     key + "ZVADDON_TEST_TWO|" + key.substr(1) + "ZVADDON_TEST_TWO (p, q)"},
    // calling a function as the host does
    {"output left unset", [] { return std::move(reference::call(storesNothing, 1, {}).at(0)); },
     "!zvhost:outputNotAssigned|Output argument 1 was not assigned."},
    {"standard exception", [] { return std::move(reference::call(throwsStd, 1, {}).at(0)); },
     "!zvhost:unexpectedException|Unexpected exception: disk on fire"},
    {"catalogue and release from the environment", [] {  // last: the variables are unset after the table
       ::setenv("ZVADDON_MESSAGE_DIR", ZV_TEST_DATA_DIR "/host/messages", 1);
       ::setenv("ZVADDON_HOST_RELEASE", "R2099z", 1);
       return raiseKey("", "ZVADDON_TEST_TWO", foundation::release_info::getCurrentReleaseInfo().release, "");
     }, key + "ZVADDON_TEST_TWO|Cannot open R2099z: "},
};

TEST(HostContract, EveryOperationAsTheLibraryReliesOnIt) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Json got;
    std::string error;
    try {
      got = json::fromArray(row.op().get());
    } catch (const reference::HostError& e) {
      error = "!" + e.identifier() + (row.want.find('|') == std::string::npos ? "" : "|" + e.message());
    }
    if (row.want.front() == '!') {
      EXPECT_EQ(error, row.want);
    } else {
      EXPECT_EQ(error, "");
      EXPECT_EQ(got, Json::parse(row.want)) << got.dump();
    }
  }
  ::unsetenv("ZVADDON_MESSAGE_DIR");
  ::unsetenv("ZVADDON_HOST_RELEASE");
}

}  // namespace
}  // namespace zvhost
