// The reference host through the contract the library relies on, one table over the operations, and
// the JSON mapping every result is read through: each class and shape round-trips losslessly, the
// direct text writer gives the document's bytes, refused input names where it is, equality sees every
// difference.
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

// a's JSON form is want; the direct writer gives its bytes and the way back an equal array.
void expectMapped(const qxArray* a, const Json& want) {
  const Json got = json::fromArray(a);
  EXPECT_EQ(got, want) << got.dump();
  std::string text = "[1,";  // appended to what is there
  json::appendText(text, a);
  EXPECT_EQ(text, "[1," + got.dump()) << "the direct writer must give the document's bytes";
  EXPECT_EQ(json::toText(a), got.dump());
  EXPECT_TRUE(json::arraysEqual(json::toOwnedArray(Json::parse(text.substr(3))).get(), a));
}

TEST(HostContract, EveryOperationAsTheLibraryReliesOnIt) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Owned got;
    std::string error;
    try {
      got = row.op();
    } catch (const reference::HostError& e) {
      error = "!" + e.identifier() + (row.want.find('|') == std::string::npos ? "" : "|" + e.message());
    }
    EXPECT_EQ(error, row.want.front() == '!' ? row.want : "");
    if (row.want.front() != '!') expectMapped(got.get(), Json::parse(row.want));
  }
  ::unsetenv("ZVADDON_MESSAGE_DIR");
  ::unsetenv("ZVADDON_HOST_RELEASE");
}

// Each JSON input and the mapping's own form of it ("" = the input itself).
const std::pair<std::string, std::string> trips[] = {
    // text: plain for a row of valid UTF-16, typed otherwise
    {R"("abc")", ""}, {"\"gr\u00fc\u00dfe \U0001D11E\"", ""}, {R"("\u0000\b\t\n\f\r\u001f\u007f\"\\/")", ""},
    {R"("abcd\"efgh\\ijkl\u0001mnop")", ""}, {R"({"$class":"char","$dims":[0,0],"$data":""})", ""},
    {R"({"$class":"char","$dims":[2,3],"$data":"adbecf"})", ""},
    {R"({"$class":"char","$data":[104,56320]})", R"({"$class":"char","$dims":[1,2],"$data":[104,56320]})"},
    {R"({"$class":"char","$data":"ab"})", R"("ab")"},
    // numbers: a finite real double scalar is plain; NaN, Inf, complex, shapes and other classes typed
    {"2.5", ""}, {"0.30000000000000004", ""}, {"1.8014398509481986e16", ""}, {"-7e-3", "-0.007"}, {"[]", "null"},
    {R"({"$class":"double","$dims":[1,4],"$data":[1,"-Inf","Inf","NaN"]})", ""},
    {R"({"$class":"double","$dims":[0,0],"$data":[],"$imag":[]})", ""},
    {R"({"$class":"double","$dims":[2,1],"$data":[1,-2],"$imag":["NaN",4]})", ""},
    {R"({"$class":"double","$dims":[2,1,2],"$data":[1,2,3,4.5]})", ""},
    {R"({"$class":"double","$dims":[2,1,1],"$data":[1,2]})", R"({"$class":"double","$dims":[2,1],"$data":[1,2]})"},
    {R"({"$class":"single","$dims":[1,3],"$data":[0.10000000149011612,"-Inf",1.401298464324817e-45]})", ""},
    {R"({"$class":"uint16","$data":[1,2.0,3e0]})", R"({"$class":"uint16","$dims":[1,3],"$data":[1,2,3]})"},
    {R"({"$class":"int64","$dims":[1,3],"$data":[-9223372036854775808,0,9223372036854775807]})", ""},
    {R"({"$class":"uint64","$dims":[1,2],"$data":[0,18446744073709551615]})", ""},
    {R"({"$class":"int64","$dims":[1,1],"$data":[-9223372036854775808],"$imag":[9223372036854775807]})", ""},
    {R"({"$class":"int32","$dims":[0,5],"$data":[]})", ""}, {"true", ""},
    {R"({"$class":"logical","$dims":[2,2],"$data":[true,false,false,true]})", ""},
    // cells: a row of strings is plain
    {R"(["a","","\u00e9\ud834\udd1e"])", ""}, {R"({"$class":"cell","$dims":[0,0],"$data":[]})", ""},
    {R"({"$class":"cell","$dims":[2,1],"$data":["a","b"]})", ""},
    {R"({"$class":"cell","$data":[null,[]]})", R"({"$class":"cell","$dims":[1,2],"$data":[null,null]})"},
    {R"({"$class":"cell","$dims":[1,2],"$data":["a",{"$class":"char","$dims":[2,1],"$data":"bc"}]})", ""},
    {R"({"$class":"cell","$dims":[1,2],"$data":["ok",{"$class":"char","$dims":[1,1],"$data":[56319]}]})", ""},
    // structures: 1x1 and 1xN plain, in field order; everything else typed
    {R"({"name":"x","count":3,"tags":["t1","t2"],"nested":{"deep":{"$class":"uint64","$dims":[1,1],"$data":[18446744073709551615]}},"unset":null})", ""},
    {R"([{"b":1,"a":2},{"a":3,"b":4}])", R"([{"b":1,"a":2},{"b":4,"a":3}])"}, {R"([{},{}])", ""}, {"{}", ""},
    {R"({"t":{"$class":"char","$dims":[1,2],"$data":[97,55296]},"n":{"$class":"double","$dims":[1,1],"$data":["NaN"]}})", ""},
    {R"({"$class":"struct","$dims":[0,1],"$fields":["name","examples"],"$data":[]})", ""},
    {R"({"$class":"struct","$dims":[0,0],"$fields":[],"$data":[]})", ""}, {R"({"$class":"struct","$data":[{"a":1}]})", R"({"a":1})"},
    {R"({"$class":"object","$className":"Widget","$dims":[1,1],"$fields":["p","q"],"$data":[{"p":"v","q":2}]})", ""},
    {R"({"o":{"$class":"object","$className":"Gadget","$dims":[1,2],"$fields":["p"],"$data":[{"p":1},{"p":null}]}})", ""},
};

TEST(JsonMapping, RoundTripsRefusalsAndEquality) {
  for (const auto& [in, out] : trips) {
    SCOPED_TRACE(in.substr(0, 100));
    expectMapped(fromJson(in.c_str()).get(), Json::parse(out.empty() ? in : out));
  }
  std::string deep = "1";
  for (int k = 0; k < 300; ++k) deep = R"({"a":)" + deep + "}";
  const std::pair<std::string, std::string> refused[] = {
      {"[1, 2]", "the top level"}, {R"({"x": [{"a": 1}, {"b": 1}]})", "/x/1"},
      {R"({"a": {"$class": "int8", "$data": [128]}})", "/a/$data/0"}, {R"({"$class": "uint8", "$data": [-1]})", "/$data/0"},
      {R"({"$class": "single", "$data": [1e39]})", "/$data/0"}, {R"({"$class": "double", "$data": [1], "$imag": [1, 2]})", "/$imag"},
      {R"({"$class": "double", "$dims": [2, 2], "$data": [1, 2, 3]})", "/$data"},
      {R"({"$class": "cell", "$dims": [4294967296, 4294967296, 4294967296]})", "/$dims"}, {R"({"$class": "nope"})", "/$class"},
      {R"({"$class": "logical", "$data": [1]})", "/$data/0"}, {R"({"$class": "char", "$data": [70000]})", "/$data/0"},
      {R"({"$class": "struct", "$fields": ["a"], "$data": [{"b": 1}]})", "/$data/0"},
      {R"({"$class": "struct", "$data": [{"a": {"$class": "uint8", "$data": [256]}}]})", "/$data/0/a/$data/0"},
      {R"({"$class": "object", "$data": []})", "the top level"}, {deep, "/a/a/a"},
  };
  for (const auto& [text, where] : refused) {
    SCOPED_TRACE(text.substr(0, 80));
    try {
      ADD_FAILURE() << "accepted: " << json::fromArray(json::toOwnedArray(Json::parse(text)).get());
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find("at " + where), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW((void)json::toOwnedArray(Json(std::string("ok\xC3"))), std::invalid_argument);
  // Pairs that differ in one respect only: each way round, arraysEqual must see it.
  const std::pair<const char*, const char*> unequal[] = {
      {"null", R"({"$class":"cell","$dims":[1,1],"$data":[null]})"}, {"null", R"({"$class":"double","$dims":[1,0],"$data":[]})"},
      {R"({"$class":"double","$dims":[1,2],"$data":[1,2]})", R"({"$class":"double","$dims":[2,1],"$data":[1,2]})"},
      {R"({"$class":"int64","$dims":[1,2],"$data":[1,2]})", R"({"$class":"int64","$dims":[1,2],"$data":[1,3]})"},
      {R"({"$class":"double","$dims":[1,1],"$data":[1],"$imag":[0]})", "1"}, {R"({"a":1,"b":1})", R"({"b":1,"a":1})"},
      {R"({"$class":"object","$className":"A","$fields":["a"],"$data":[{"a":1}]})",
       R"({"$class":"object","$className":"B","$fields":["a"],"$data":[{"a":1}]})"},
  };
  for (const auto& [a, b] : unequal) {
    SCOPED_TRACE(std::string(a) + " ~ " + b);
    EXPECT_FALSE(json::arraysEqual(fromJson(a).get(), fromJson(b).get()));
    EXPECT_FALSE(json::arraysEqual(fromJson(b).get(), fromJson(a).get()));
  }
  EXPECT_TRUE(json::arraysEqual(nullptr, fromJson("null").get())) << "an unset value is the 0x0 double";
}

}  // namespace
}  // namespace zvhost
