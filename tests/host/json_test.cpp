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
      {"1x0 char", [] { return s(u""); }, Form::Plain},
      {"non-ASCII and astral text", [] { return s(u"gr\u00fc\u00dfe \u65e5\u672c \U0001D11E\U0001F600"); }, Form::Plain},
      {"embedded nul", [] { return charArray({1, 3}, std::u16string(u"a\0b", 3)); }, Form::Plain},
      {"0x0 char", [] { return charArray({0, 0}, u""); }, Form::Typed},
      {"2x3 char", [] { return charArray({2, 3}, u"adbecf"); }, Form::Typed},
      {"Nx1 char", [] { return charArray({2, 1}, u"\U0001F600"); }, Form::Typed},
      {"lone surrogate", [] { return charArray({1, 2}, u"a\xD800"); }, Form::Typed},
      {"reversed surrogates in a matrix", [] { return charArray({2, 1}, u"\xDE00\xD83D"); }, Form::Typed},
      // double
      {"double scalar", [] { return d(2.5); }, Form::Plain},
      {"negative zero", [] { return d(-0.0); }, Form::Plain},
      {"largest double", [] { return d(std::numeric_limits<double>::max()); }, Form::Plain},
      {"smallest subnormal", [] { return d(std::numeric_limits<double>::denorm_min()); }, Form::Plain},
      {"needs 17 significant digits", [] { return d(0.1 + 0.2); }, Form::Plain},
      {"integer beyond 2^53", [] { return d(9007199254740993.0 * 2); }, Form::Plain},
      {"NaN scalar", [] { return d(nan); }, Form::Typed},
      {"Inf scalar", [] { return d(inf); }, Form::Typed},
      {"0x0 double", [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }, Form::Plain},
      {"1x0 double", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 0}, {}); }, Form::Typed},
      {"0x0 complex", [] { return Owned(qxCreateNumericMatrix(0, 0, qxDOUBLE_CLASS, qxCOMPLEX)); }, Form::Typed},
      {"row with specials", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 4}, {1, -inf, inf, nan}); }, Form::Typed},
      {"complex with zero imaginary part", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {1}, {0}); }, Form::Typed},
      {"complex column", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, -2}, {nan, 4}); }, Form::Typed},
      {"2x3x4 double", [] {
         Owned a(qxCreateNumericArray(3, std::vector<qxSize>{2, 3, 4}.data(), qxDOUBLE_CLASS, qxREAL));
         for (int k = 0; k < 24; ++k) static_cast<double*>(qxGetData(a.get()))[k] = k * 1.5 - 7;
         return a;
       }, Form::Typed},
      {"3x0x2 double", [] { return Owned(qxCreateNumericArray(3, std::vector<qxSize>{3, 0, 2}.data(), qxDOUBLE_CLASS, qxREAL)); }, Form::Typed},
      // other numeric classes
      {"single", [] { return numeric<float>(qxSINGLE_CLASS, {1, 5}, {0.1f, -3.4e38f, nanf, -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::denorm_min()}); }, Form::Typed},
      {"single complex", [] { return numeric<float>(qxSINGLE_CLASS, {1, 1}, {1.5f}, {-2.25f}); }, Form::Typed},
      {"int8 extremes", [] { return extremes<std::int8_t>(qxINT8_CLASS); }, Form::Typed},
      {"uint8 extremes", [] { return extremes<std::uint8_t>(qxUINT8_CLASS); }, Form::Typed},
      {"int16 extremes", [] { return extremes<std::int16_t>(qxINT16_CLASS); }, Form::Typed},
      {"uint16 extremes", [] { return extremes<std::uint16_t>(qxUINT16_CLASS); }, Form::Typed},
      {"int32 extremes", [] { return extremes<std::int32_t>(qxINT32_CLASS); }, Form::Typed},
      {"uint32 extremes", [] { return extremes<std::uint32_t>(qxUINT32_CLASS); }, Form::Typed},
      {"int64 extremes", [] { return extremes<std::int64_t>(qxINT64_CLASS); }, Form::Typed},
      {"uint64 extremes", [] { return extremes<std::uint64_t>(qxUINT64_CLASS); }, Form::Typed},
      {"int64 complex", [] { return numeric<std::int64_t>(qxINT64_CLASS, {1, 1}, {INT64_MIN}, {INT64_MAX}); }, Form::Typed},
      {"uint8 N-d", [] { return numeric<std::uint8_t>(qxUINT8_CLASS, {1, 1, 2}, {7, 9}); }, Form::Typed},
      {"empty int32", [] { return numeric<std::int32_t>(qxINT32_CLASS, {0, 5}, {}); }, Form::Typed},
      // logical
      {"true", [] { return Owned(qxCreateLogicalScalar(true)); }, Form::Plain},
      {"false", [] { return Owned(qxCreateLogicalScalar(false)); }, Form::Plain},
      {"2x2 logical", [] { return logicals({2, 2}, {true, false, false, true}); }, Form::Typed},
      {"0x0 logical", [] { return logicals({0, 0}, {}); }, Form::Typed},
      // cells
      {"0x0 cell", [] { return cells({0, 0}); }, Form::Typed},
      {"1x0 cell", [] { return cells({1, 0}); }, Form::Typed},
      {"row of strings", [] { return cellOf({1, 3}, list(s(u"a"), s(u""), s(u"\u00e9\U0001D11E"))); }, Form::Plain},
      {"one string", [] { return cellOf({1, 1}, list(s(u"only"))); }, Form::Plain},
      {"column of strings", [] { return cellOf({2, 1}, list(s(u"a"), s(u"b"))); }, Form::Typed},
      {"strings and a lone surrogate", [] { return cellOf({1, 2}, list(s(u"a"), charArray({1, 1}, u"\xDC00"))); }, Form::Typed},
      {"strings and a char matrix", [] { return cellOf({1, 2}, list(s(u"a"), charArray({2, 1}, u"bc"))); }, Form::Typed},
      {"mixed cell with unset slot", [] {
         return cellOf({2, 2}, list(d(1), structOf({1, 1}, {"k"}, rows(list(s(u"v")))), cellOf({1, 1}, list(cells({0, 0}))), Owned()));
       }, Form::Typed},
      {"2x1x2 cell", [] { return cellOf({2, 1, 2}, list(d(1), s(u"x"), Owned(qxCreateLogicalScalar(true)), d(nan))); }, Form::Typed},
      // structures
      {"1x1 structure", [] {
         return structOf({1, 1}, {"name", "count", "tags", "nested", "unset"},
                         rows(list(s(u"n\u00e4me"), d(3), cellOf({1, 2}, list(s(u"t1"), s(u"t2"))),
                                   structOf({1, 1}, {"deep"}, rows(list(numeric<std::uint64_t>(qxUINT64_CLASS, {1, 1}, {UINT64_MAX})))),
                                   Owned())));
       }, Form::Plain},
      {"1x1 structure without fields", [] { return structOf({1, 1}, {}, {}); }, Form::Plain},
      {"field order is kept", [] { return structOf({1, 1}, {"z", "a", "m"}, rows(list(d(1), d(2), d(3)))); }, Form::Plain},
      {"1x3 structure array", [] {
         std::vector<std::vector<Owned>> v;
         v.push_back(list(s(u"a"), d(1)));
         v.push_back(list(s(u"b"), Owned()));
         v.push_back(list(s(u"c"), cells({0, 0})));
         return structOf({1, 3}, {"name", "value"}, std::move(v));
       }, Form::Plain},
      {"1x2 structure without fields", [] { return structOf({1, 2}, {}, {}); }, Form::Plain},
      {"0x1 structure with fields", [] { return structOf({0, 1}, {"name", "examples"}, {}); }, Form::Typed},
      {"1x0 structure with fields", [] { return structOf({1, 0}, {"name"}, {}); }, Form::Typed},
      {"0x0 structure without fields", [] { return structOf({0, 0}, {}, {}); }, Form::Typed},
      {"2x1 structure", [] {
         std::vector<std::vector<Owned>> v;
         v.push_back(list(d(1)));
         v.push_back(list(d(2)));
         return structOf({2, 1}, {"x"}, std::move(v));
       }, Form::Typed},
      {"structure in cell in structure", [] {
         return structOf({1, 1}, {"outer"}, rows(list(cellOf({1, 2}, list(
             structOf({1, 1}, {"inner"}, rows(list(numeric<std::int8_t>(qxINT8_CLASS, {1, 2}, {-1, 1})))),
             structOf({0, 1}, {"e"}, {}))))));
       }, Form::Plain},
      // objects
      {"1x1 object", [] { return structOf({1, 1}, {"p", "q"}, rows(list(s(u"v"), d(2))), "Widget"); }, Form::Typed},
      {"0x0 object", [] { return structOf({0, 0}, {"p"}, {}, "Widget"); }, Form::Typed},
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

TEST(JsonPlainForms, InputMapsAsDocumented) {
  struct Case {
    const char* json;
    std::function<Owned()> expected;
  };
  const Case cases[] = {
      {R"("caf\u00e9 \ud834\udd1e")", [] { return s(u"caf\u00e9 \U0001D11E"); }},
      {"null", [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }},
      {"[]", [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }},
      {"7", [] { return d(7); }},
      {"-7e-3", [] { return d(-7e-3); }},
      {"18446744073709551615", [] { return d(18446744073709551615.0); }},
      {"true", [] { return Owned(qxCreateLogicalScalar(true)); }},
      {R"(["a", "b"])", [] { return cellOf({1, 2}, list(s(u"a"), s(u"b"))); }},
      {R"({"b": 1, "a": "x"})", [] { return structOf({1, 1}, {"b", "a"}, rows(list(d(1), s(u"x")))); }},
      {"{}", [] { return structOf({1, 1}, {}, {}); }},
      {R"([{"b": 1, "a": 2}, {"a": 3, "b": 4}])", [] {
         std::vector<std::vector<Owned>> v;
         v.push_back(list(d(1), d(2)));
         v.push_back(list(d(4), d(3)));
         return structOf({1, 2}, {"b", "a"}, std::move(v));
       }},
      {R"({"$class": "uint16", "$data": [1, 2.0, 3e0]})", [] { return numeric<std::uint16_t>(qxUINT16_CLASS, {1, 3}, {1, 2, 3}); }},
      {R"({"$class": "char", "$data": "h\u00e9"})", [] { return s(u"h\u00e9"); }},
      {R"({"$class": "char", "$dims": [1, 2], "$data": [104, 56320]})", [] { return charArray({1, 2}, u"h\xDC00"); }},
      {R"({"$class": "double", "$dims": [2, 1, 1], "$data": [1, "-Inf"]})", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, -inf}); }},
      {R"({"$class": "double", "$dims": [3, 0]})", [] { return numeric<double>(qxDOUBLE_CLASS, {3, 0}, {}); }},
      {R"({"$class": "struct", "$data": [{"a": 1}]})", [] { return structOf({1, 1}, {"a"}, rows(list(d(1)))); }},
      {R"({"$class": "cell", "$data": [null, []]})", [] { return cellOf({1, 2}, list(Owned(), Owned())); }},
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
      {R"(["a", 1])", "the top level"},
      {R"({"x": [{"a": 1}, {"b": 1}]})", "/x/1"},
      {R"([{"a": 1}, {"a": 1, "b": 2}])", "/1"},
      {R"([{"a": 1}, {"$class": "double"}])", "the top level"},
      {R"({"bad name": 1})", "the top level"},
      {R"({"ok": {"_x": 1}})", "/ok"},
      {R"({"a": {"$class": "int8", "$data": [128]}})", "/a/$data/0"},
      {R"({"$class": "int8", "$data": [-129]})", "/$data/0"},
      {R"({"$class": "uint8", "$data": [0, -1]})", "/$data/1"},
      {R"({"$class": "uint64", "$data": [-1]})", "/$data/0"},
      {R"({"$class": "int64", "$data": [9223372036854775808]})", "/$data/0"},
      {R"({"$class": "int32", "$data": [1.5]})", "/$data/0"},
      {R"({"$class": "int32", "$data": ["1"]})", "/$data/0"},
      {R"({"$class": "double", "$data": ["nan"]})", "/$data/0"},
      {R"({"$class": "double", "$data": [1], "$imag": [1, 2]})", "/$imag"},
      {R"({"$class": "double", "$data": [1], "$imag": [true]})", "/$imag/0"},
      {R"({"$class": "single", "$data": [1e39]})", "/$data/0"},
      {R"({"$class": "double", "$dims": [2, 2], "$data": [1, 2, 3]})", "/$data"},
      {R"({"$class": "double", "$dims": [2, 2]})", "/$data"},
      {R"({"$class": "double", "$dims": [-1]})", "/$dims/0"},
      {R"({"$class": "double", "$dims": [1.5]})", "/$dims/0"},
      {R"({"$class": "double", "$dims": []})", "/$dims"},
      {R"({"$class": "double", "$dims": 3})", "/$dims"},
      {R"({"$class": "cell", "$dims": [4294967296, 4294967296, 4294967296]})", "/$dims"},
      {R"({"$class": "nope"})", "/$class"},
      {R"({"$class": 3})", "the top level"},
      {R"({"$dims": [1, 1]})", "the top level"},
      {R"({"$clas": "double"})", "the top level"},
      {R"({"$class": "logical", "$data": [1]})", "/$data/0"},
      {R"({"$class": "char", "$dims": [1, 3], "$data": "ab"})", "/$data"},
      {R"({"$class": "char", "$data": [70000]})", "/$data/0"},
      {R"({"$class": "char", "$data": 5})", "/$data"},
      {R"({"$class": "cell", "$data": [[1]]})", "/$data/0"},
      {R"({"$class": "cell", "$data": {"a": 1}})", "/$data"},
      {R"({"$class": "struct", "$fields": ["a"], "$data": [{"b": 1}]})", "/$data/0"},
      {R"({"$class": "struct", "$fields": ["a"], "$data": [5]})", "/$data/0"},
      {R"({"$class": "struct", "$fields": ["a", "a"], "$data": []})", "/$fields"},
      {R"({"$class": "struct", "$fields": [1], "$data": []})", "/$fields/0"},
      {R"({"$class": "struct", "$data": [{"a": {"$class": "uint8", "$data": [256]}}]})", "/$data/0/a/$data/0"},
      {R"({"$class": "object", "$data": []})", "the top level"},
      {R"({"$class": "object", "$className": "no way", "$data": []})", "the top level"},
      {R"({"$class": "double", "$fields": []})", "the top level"},
      {R"({"$class": "cell", "$imag": []})", "the top level"},
      {R"({"$class": "struct", "$className": "X"})", "the top level"},
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
      {"same value", [] { return d(1); }, [] { return d(1); }, true},
      {"NaN equals NaN", [] { return d(nan); }, [] { return d(-nan); }, true},
      {"negative zero", [] { return d(0.0); }, [] { return d(-0.0); }, false},
      {"single NaN", [] { return numeric<float>(qxSINGLE_CLASS, {1, 1}, {nanf}); }, [] { return numeric<float>(qxSINGLE_CLASS, {1, 1}, {nanf}); }, true},
      {"class", [] { return d(1); }, [] { return numeric<float>(qxSINGLE_CLASS, {1, 1}, {1}); }, false},
      {"char against uint16", [] { return s(u"A"); }, [] { return numeric<std::uint16_t>(qxUINT16_CLASS, {1, 1}, {65}); }, false},
      {"dimensions", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 2}, {1, 2}); }, [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, 2}); }, false},
      {"N-d dimensions", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1, 2}, {1, 2}); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 2}, {1, 2}); }, false},
      {"last element", [] { return numeric<std::int64_t>(qxINT64_CLASS, {1, 2}, {1, 2}); }, [] { return numeric<std::int64_t>(qxINT64_CLASS, {1, 2}, {1, 3}); }, false},
      {"complexity", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {1}, {0}); }, [] { return d(1); }, false},
      {"complexity of an empty array", [] { return Owned(qxCreateNumericMatrix(1, 0, qxDOUBLE_CLASS, qxCOMPLEX)); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 0}, {}); }, false},
      {"imaginary part", [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {1}, {2}); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {1}, {3}); }, false},
      {"unset equals 0x0 double", [] { return Owned(); }, [] { return numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}); }, true},
      {"unset against 1x0 double", [] { return Owned(); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 0}, {}); }, false},
      {"unset against 0x0 cell", [] { return Owned(); }, [] { return cells({0, 0}); }, false},
      {"cell element", [] { return cellOf({1, 2}, list(s(u"a"), s(u"b"))); }, [] { return cellOf({1, 2}, list(s(u"a"), s(u"c"))); }, false},
      {"unset cell slot equals 0x0 double", [] { return cellOf({1, 1}, list(Owned())); }, [] { return cellOf({1, 1}, list(numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}))); }, true},
      {"field order", [] { return structOf({1, 1}, {"a", "b"}, {}); }, [] { return structOf({1, 1}, {"b", "a"}, {}); }, false},
      {"field name", [] { return structOf({1, 1}, {"a"}, {}); }, [] { return structOf({1, 1}, {"c"}, {}); }, false},
      {"field count", [] { return structOf({1, 1}, {"a"}, {}); }, [] { return structOf({1, 1}, {"a", "b"}, {}); }, false},
      {"field value", [] { return structOf({1, 1}, {"a"}, rows(list(d(1)))); }, [] { return structOf({1, 1}, {"a"}, rows(list(d(2)))); }, false},
      {"structure against object", [] { return structOf({1, 1}, {"a"}, {}); }, [] { return structOf({1, 1}, {"a"}, {}, "A"); }, false},
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
