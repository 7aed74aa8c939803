// JSON <-> host arrays: round trips of every class and shape, the plain forms, refused input, equality.
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/json/json.h"
#include "host_test_util.h"

namespace zvhost::testing {
namespace {

using zvhost::json::arraysEqual;
using zvhost::json::fromArray;
using zvhost::json::Json;
using zvhost::json::toOwnedArray;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr float nanf = std::numeric_limits<float>::quiet_NaN();

template <class T>
Owned extremes(qxClassID id) {
  return numeric<T>(id, {1, 3}, {std::numeric_limits<T>::min(), T{0}, std::numeric_limits<T>::max()});
}

Owned charArray(std::vector<qxSize> dims, std::u16string units) {
  Owned a(qxCreateCharArray(dims.size(), dims.data()));
  if (!units.empty()) std::memcpy(qxGetData(a.get()), units.data(), units.size() * sizeof(char16_t));
  return a;
}

Owned logicals(std::vector<qxSize> dims, std::vector<bool> values) {
  Owned a(qxCreateLogicalArray(dims.size(), dims.data()));
  for (std::size_t k = 0; k < values.size(); ++k) static_cast<qxLogical*>(qxGetData(a.get()))[k] = values[k];
  return a;
}

Owned cellOf(std::vector<qxSize> dims, std::vector<Owned> values) {
  Owned c = cells(dims);
  for (std::size_t k = 0; k < values.size(); ++k) qxSetCell(c.get(), k, values[k].release());
  return c;
}

template <class... V>
std::vector<Owned> list(V&&... v) {
  std::vector<Owned> out;
  (out.push_back(std::forward<V>(v)), ...);
  return out;
}

// A structure (or, with a class name, an object) whose element i takes values[i][f] for field f.
Owned structOf(std::vector<qxSize> dims, std::vector<const char*> names, std::vector<std::vector<Owned>> values,
               const char* className = nullptr) {
  Owned s(className ? qxCreateObjectArray(className, dims.size(), dims.data(), static_cast<int>(names.size()),
                                          names.data())
                    : qxCreateStructArray(dims.size(), dims.data(), static_cast<int>(names.size()), names.data()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t f = 0; f < values[i].size(); ++f) {
      qxSetFieldByNumber(s.get(), i, static_cast<int>(f), values[i][f].release());
    }
  }
  return s;
}

std::vector<std::vector<Owned>> rows(std::vector<Owned> a) {
  std::vector<std::vector<Owned>> out;
  out.push_back(std::move(a));
  return out;
}

Owned d(double v) { return Owned(qxCreateDoubleScalar(v)); }
Owned s(const char16_t* t) { return text(t); }

enum class Form { Plain, Typed };

struct RoundTrip {
  const char* name;
  std::function<Owned()> make;
  Form form;
};

std::vector<RoundTrip> roundTrips() {
  return {
      // text
      {"1xN char", [] { return s(u"abc"); }, Form::Plain},
      {"non-ASCII and astral text", [] { return s(u"gr\u00fc\u00dfe \u65e5\u672c \U0001D11E\U0001F600"); }, Form::Plain},
      {"0x0 char", [] { return charArray({0, 0}, u""); }, Form::Typed},
      {"2x3 char", [] { return charArray({2, 3}, u"adbecf"); }, Form::Typed},
      {"lone surrogate", [] { return charArray({1, 2}, u"a\xD800"); }, Form::Typed},
      // double
      {"double scalar", [] { return d(2.5); }, Form::Plain},
      {"needs 17 significant digits", [] { return d(0.1 + 0.2); }, Form::Plain},
      {"integer beyond 2^53", [] { return d(9007199254740993.0 * 2); }, Form::Plain},
      {"NaN scalar", [] { return d(nan); }, Form::Typed},
      {"0x0 double", [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }, Form::Plain},
      {"0x0 complex", [] { return Owned(qxCreateNumericMatrix(0, 0, qxDOUBLE_CLASS, qxCOMPLEX)); }, Form::Typed},
      {"row with specials", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 4}, {1, -inf, inf, nan}); }, Form::Typed},
      {"complex column", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, -2}, {nan, 4}); }, Form::Typed},
      {"2x3x4 double", [] {
         Owned a(qxCreateNumericArray(3, std::vector<qxSize>{2, 3, 4}.data(), qxDOUBLE_CLASS, qxREAL));
         for (int k = 0; k < 24; ++k) static_cast<double*>(qxGetData(a.get()))[k] = k * 1.5 - 7;
         return a;
       }, Form::Typed},
      // other numeric classes
      {"single", [] { return numeric<float>(qxSINGLE_CLASS, {1, 5}, {0.1f, -3.4e38f, nanf, -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::denorm_min()}); }, Form::Typed},
      {"uint8 extremes", [] { return extremes<std::uint8_t>(qxUINT8_CLASS); }, Form::Typed},
      {"int64 extremes", [] { return extremes<std::int64_t>(qxINT64_CLASS); }, Form::Typed},
      {"uint64 extremes", [] { return extremes<std::uint64_t>(qxUINT64_CLASS); }, Form::Typed},
      {"int64 complex", [] { return numeric<std::int64_t>(qxINT64_CLASS, {1, 1}, {INT64_MIN}, {INT64_MAX}); }, Form::Typed},
      {"empty int32", [] { return numeric<std::int32_t>(qxINT32_CLASS, {0, 5}, {}); }, Form::Typed},
      // logical
      {"true", [] { return Owned(qxCreateLogicalScalar(true)); }, Form::Plain},
      {"2x2 logical", [] { return logicals({2, 2}, {true, false, false, true}); }, Form::Typed},
      {"0x0 logical", [] { return logicals({0, 0}, {}); }, Form::Typed},
      // cells
      {"0x0 cell", [] { return cells({0, 0}); }, Form::Typed},
      {"row of strings", [] { return cellOf({1, 3}, list(s(u"a"), s(u""), s(u"\u00e9\U0001D11E"))); }, Form::Plain},
      {"column of strings", [] { return cellOf({2, 1}, list(s(u"a"), s(u"b"))); }, Form::Typed},
      {"strings and a char matrix", [] { return cellOf({1, 2}, list(s(u"a"), charArray({2, 1}, u"bc"))); }, Form::Typed},
      {"mixed cell with unset slot", [] {
         return cellOf({2, 2}, list(d(1), structOf({1, 1}, {"k"}, rows(list(s(u"v")))), cellOf({1, 1}, list(cells({0, 0}))), Owned()));
       }, Form::Typed},
      // structures
      {"1x1 structure", [] {
         return structOf({1, 1}, {"name", "count", "tags", "nested", "unset"},
                         rows(list(s(u"n\u00e4me"), d(3), cellOf({1, 2}, list(s(u"t1"), s(u"t2"))),
                                   structOf({1, 1}, {"deep"}, rows(list(numeric<std::uint64_t>(qxUINT64_CLASS, {1, 1}, {UINT64_MAX})))),
                                   Owned())));
       }, Form::Plain},
      {"1x3 structure array", [] {
         std::vector<std::vector<Owned>> v;
         v.push_back(list(s(u"a"), d(1)));
         v.push_back(list(s(u"b"), Owned()));
         v.push_back(list(s(u"c"), cells({0, 0})));
         return structOf({1, 3}, {"name", "value"}, std::move(v));
       }, Form::Plain},
      {"1x2 structure without fields", [] { return structOf({1, 2}, {}, {}); }, Form::Plain},
      {"0x1 structure with fields", [] { return structOf({0, 1}, {"name", "examples"}, {}); }, Form::Typed},
      {"0x0 structure without fields", [] { return structOf({0, 0}, {}, {}); }, Form::Typed},
      {"structure in cell in structure", [] {
         return structOf({1, 1}, {"outer"}, rows(list(cellOf({1, 2}, list(
             structOf({1, 1}, {"inner"}, rows(list(numeric<std::int8_t>(qxINT8_CLASS, {1, 2}, {-1, 1})))),
             structOf({0, 1}, {"e"}, {}))))));
       }, Form::Plain},
      // objects
      {"1x1 object", [] { return structOf({1, 1}, {"p", "q"}, rows(list(s(u"v"), d(2))), "Widget"); }, Form::Typed},
      {"object array in a structure", [] {
         std::vector<std::vector<Owned>> v;
         v.push_back(list(d(1)));
         v.push_back(list(Owned()));
         return structOf({1, 1}, {"o"}, rows(list(structOf({1, 2}, {"p"}, std::move(v), "Gadget"))));
       }, Form::Plain},
  };
}

TEST(JsonRoundTrip, EveryClassAndShapeComesBackEqual) {
  for (const RoundTrip& c : roundTrips()) {
    SCOPED_TRACE(c.name);
    Owned original = c.make();
    const Json first = fromArray(original.get());
    const bool typed = first.is_object() && first.contains("$class");
    EXPECT_EQ(typed, c.form == Form::Typed) << first.dump();
    // Through text, as the command-line tool passes it.
    Owned back = toOwnedArray(Json::parse(first.dump()));
    EXPECT_TRUE(arraysEqual(back.get(), original.get())) << first.dump();
    EXPECT_EQ(fromArray(back.get()), first);
  }
}

// The direct writer must give the document's text byte for byte: the tool's output and its golden
// transcripts depend on it. Besides every round-trip value, the cases where writing by hand can slip:
// escapes, UTF-8 at the edge of the writer's buffer, a value in a plain container with no plain form.
TEST(JsonText, SameBytesAsTheDocument) {
  std::vector<RoundTrip> cases = roundTrips();
  std::u16string longText;
  for (int k = 0; k < 1500; ++k) longText += k % 3 ? u"\u00e9" : u"\U0001D11E";
  std::u16string controls;
  for (char16_t c = 0; c < 0x20; ++c) controls += c;
  controls += u"\x7f\"\\/";
  cases.push_back({"escapes", [=] { return charArray({1, controls.size()}, controls); }, Form::Plain});
  cases.push_back({"long multi-byte text", [=] { return charArray({1, longText.size()}, longText); }, Form::Plain});
  cases.push_back({"many strings", [] {
                     Owned c = cells({1, 3000});
                     for (qxSize k = 0; k < 3000; ++k) {
                       qxSetCell(c.get(), k, qxCreateString(("folder/\xC3\xA9l\xC3\xA9ment_" + std::to_string(k)).c_str()));
                     }
                     return c;
                   }, Form::Plain});
  cases.push_back({"row of strings ending in a lone surrogate",
                   [] { return cellOf({1, 2}, list(s(u"ok"), charArray({1, 1}, u"\xDBFF"))); }, Form::Typed});
  cases.push_back({"row of strings with an unset slot", [] { return cellOf({1, 2}, list(s(u"ok"), Owned())); }, Form::Typed});
  cases.push_back({"surrogates reversed", [] { return charArray({1, 2}, u"\xDC00\xD800"); }, Form::Typed});
  cases.push_back({"structure with a typed field", [] {
                     return structOf({1, 1}, {"t", "n", "c"},
                                     rows(list(charArray({1, 2}, u"a\xD800"), d(nan), cellOf({2, 1}, list(s(u"x"), s(u"y"))))));
                   }, Form::Plain});
  for (const RoundTrip& c : cases) {
    SCOPED_TRACE(c.name);
    Owned a = c.make();
    const std::string expected = fromArray(a.get()).dump();
    EXPECT_EQ(zvhost::json::toText(a.get()), expected);
    std::string appended = "[1,";
    zvhost::json::appendText(appended, a.get());
    EXPECT_EQ(appended, "[1," + expected);
  }
  EXPECT_EQ(zvhost::json::toText(nullptr), "null");
}

TEST(JsonPlainForms, InputMapsAsDocumented) {
  struct Case {
    const char* json;
    std::function<Owned()> expected;
  };
  const Case cases[] = {
      {"null", [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }},
      {"[]", [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }},
      {"-7e-3", [] { return d(-7e-3); }},
      {"18446744073709551615", [] { return d(18446744073709551615.0); }},
      {R"({"b": 1, "a": "x"})", [] { return structOf({1, 1}, {"b", "a"}, rows(list(d(1), s(u"x")))); }},
      {"{}", [] { return structOf({1, 1}, {}, {}); }},
      {R"([{"b": 1, "a": 2}, {"a": 3, "b": 4}])", [] {
         std::vector<std::vector<Owned>> v;
         v.push_back(list(d(1), d(2)));
         v.push_back(list(d(4), d(3)));
         return structOf({1, 2}, {"b", "a"}, std::move(v));
       }},
      {R"({"$class": "uint16", "$data": [1, 2.0, 3e0]})", [] { return numeric<std::uint16_t>(qxUINT16_CLASS, {1, 3}, {1, 2, 3}); }},
      {R"({"$class": "char", "$dims": [1, 2], "$data": [104, 56320]})", [] { return charArray({1, 2}, u"h\xDC00"); }},
      {R"({"$class": "double", "$dims": [2, 1, 1], "$data": [1, "-Inf"]})", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, -inf}); }},
      {R"({"$class": "struct", "$data": [{"a": 1}]})", [] { return structOf({1, 1}, {"a"}, rows(list(d(1)))); }},
      {R"({"$class": "cell", "$data": [null, []]})", [] { return cellOf({1, 2}, list(Owned(), Owned())); }},
      {R"("a\u0000b\u007f")", [] { return charArray({1, 4}, std::u16string(u"a\0b\x7f", 4)); }},
      {R"(["plain", "gr\u00fc\u00df"])", [] { return cellOf({1, 2}, list(s(u"plain"), s(u"gr\u00fc\u00df"))); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    Owned got = toOwnedArray(Json::parse(c.json));
    Owned expected = c.expected();
    EXPECT_TRUE(arraysEqual(got.get(), expected.get())) << fromArray(got.get()).dump();
  }
}

std::string deepObject(int depth) {
  std::string out;
  for (int k = 0; k < depth; ++k) out += R"({"a":)";
  out += "1";
  out.append(depth, '}');
  return out;
}

TEST(JsonRefusedInput, ErrorsNameTheOffendingValue) {
  struct Case {
    std::string json;
    std::string where;
  };
  const Case cases[] = {
      {"[1, 2]", "the top level"},
      {R"({"x": [{"a": 1}, {"b": 1}]})", "/x/1"},
      {R"([{"a": 1}, {"a": 1, "b": 2}])", "/1"},
      {R"({"a": {"$class": "int8", "$data": [128]}})", "/a/$data/0"},
      {R"({"$class": "int64", "$data": [9223372036854775808]})", "/$data/0"},
      {R"({"$class": "double", "$data": [1], "$imag": [1, 2]})", "/$imag"},
      {R"({"$class": "single", "$data": [1e39]})", "/$data/0"},
      {R"({"$class": "double", "$dims": [2, 2], "$data": [1, 2, 3]})", "/$data"},
      {R"({"$class": "cell", "$dims": [4294967296, 4294967296, 4294967296]})", "/$dims"},
      {R"({"$class": "nope"})", "/$class"},
      {R"({"$class": "logical", "$data": [1]})", "/$data/0"},
      {R"({"$class": "char", "$data": [70000]})", "/$data/0"},
      {R"({"$class": "struct", "$fields": ["a"], "$data": [{"b": 1}]})", "/$data/0"},
      {R"({"$class": "struct", "$data": [{"a": {"$class": "uint8", "$data": [256]}}]})", "/$data/0/a/$data/0"},
      {R"({"$class": "object", "$data": []})", "the top level"},
      {deepObject(300), "/a/a/a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json.substr(0, 80));
    try {
      Owned a = toOwnedArray(Json::parse(c.json));
      ADD_FAILURE() << "accepted: " << fromArray(a.get()).dump();
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find("at " + c.where), std::string::npos) << e.what();
    }
  }
  // Built in code: a JSON string that is not UTF-8.
  EXPECT_THROW((void)toOwnedArray(Json(std::string("\xFF"))), std::invalid_argument);
  EXPECT_THROW((void)toOwnedArray(Json::array({Json(std::string("ok")), Json(std::string("\xC3"))})), std::invalid_argument);
}

TEST(ArraysEqual, DetectsEveryKindOfDifference) {
  struct Case {
    const char* name;
    std::function<Owned()> a, b;
    bool equal;
  };
  const Case cases[] = {
      {"NaN equals NaN", [] { return d(nan); }, [] { return d(-nan); }, true},
      {"class", [] { return d(1); }, [] { return numeric<float>(qxSINGLE_CLASS, {1, 1}, {1}); }, false},
      {"dimensions", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 2}, {1, 2}); }, [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, 2}); }, false},
      {"last element", [] { return numeric<std::int64_t>(qxINT64_CLASS, {1, 2}, {1, 2}); }, [] { return numeric<std::int64_t>(qxINT64_CLASS, {1, 2}, {1, 3}); }, false},
      {"complexity", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {1}, {0}); }, [] { return d(1); }, false},
      {"unset equals 0x0 double", [] { return Owned(); }, [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }, true},
      {"unset against 1x0 double", [] { return Owned(); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 0}, {}); }, false},
      {"cell element", [] { return cellOf({1, 2}, list(s(u"a"), s(u"b"))); }, [] { return cellOf({1, 2}, list(s(u"a"), s(u"c"))); }, false},
      {"unset cell slot equals 0x0 double", [] { return cellOf({1, 1}, list(Owned())); }, [] { return cellOf({1, 1}, list(numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}))); }, true},
      {"field order", [] { return structOf({1, 1}, {"a", "b"}, {}); }, [] { return structOf({1, 1}, {"b", "a"}, {}); }, false},
      {"field value", [] { return structOf({1, 1}, {"a"}, rows(list(d(1)))); }, [] { return structOf({1, 1}, {"a"}, rows(list(d(2)))); }, false},
      {"object class name", [] { return structOf({1, 1}, {"a"}, {}, "A"); }, [] { return structOf({1, 1}, {"a"}, {}, "B"); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Owned a = c.a();
    Owned b = c.b();
    EXPECT_EQ(arraysEqual(a.get(), b.get()), c.equal);
    EXPECT_EQ(arraysEqual(b.get(), a.get()), c.equal);
  }
}

}  // namespace
}  // namespace zvhost::testing

