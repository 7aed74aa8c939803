// The reference host's arrays: shapes, classes, structures, ownership, subscripts.
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/i18n.h"
#include "host/json/json.h"
#include "host_test_util.h"

namespace zvhost::testing {
namespace {

namespace err = zvhost::reference::errors;

std::vector<qxSize> dimsOf(const qxArray* a) {
  return {qxGetDimensions(a), qxGetDimensions(a) + qxGetNumberOfDimensions(a)};
}

TEST(ArrayShape, EveryCreatorNormalisesDimensions) {
  struct Case {
    std::vector<qxSize> given, expected;
    qxSize count, m, n;
  };
  const Case cases[] = {
      {{}, {1, 1}, 1, 1, 1},           {{5}, {5, 1}, 5, 5, 1},
      {{2, 3, 1}, {2, 3}, 6, 2, 3},    {{2, 3, 4, 1, 1}, {2, 3, 4}, 24, 2, 12},
      {{3, 0, 2}, {3, 0, 2}, 0, 3, 0}, {{1, 1, 1}, {1, 1}, 1, 1, 1},
  };
  const std::vector<std::pair<const char*, std::function<qxArray*(qxSize, const qxSize*)>>> creators = {
      {"int16", [](qxSize k, const qxSize* d) { return qxCreateNumericArray(k, d, qxINT16_CLASS, qxCOMPLEX); }},
      {"char", qxCreateCharArray},
      {"cell", qxCreateCellArray},
      {"struct", [](qxSize k, const qxSize* d) {
         const char* names[] = {"a"};
         return qxCreateStructArray(k, d, 1, names);
       }},
  };
  for (const auto& [name, create] : creators) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(name) + " with " + std::to_string(c.given.size()) + " dims");
      Owned a(create(c.given.size(), c.given.data()));
      EXPECT_EQ(dimsOf(a.get()), c.expected);
      EXPECT_EQ(qxGetNumberOfElements(a.get()), c.count);
      EXPECT_EQ(qxIsEmpty(a.get()), c.count == 0);
      EXPECT_EQ(qxGetM(a.get()), c.m);
      EXPECT_EQ(qxGetN(a.get()), c.n);
    }
  }
  const qxSize huge[] = {qxSize{1} << 62, 8};
  const qxSize small[] = {2, 2};
  EXPECT_EQ(hostErrorOf([&] { Owned(qxCreateNumericArray(2, huge, qxDOUBLE_CLASS, qxREAL)); }), err::outOfMemory);
  EXPECT_EQ(hostErrorOf([&] { Owned(qxCreateCellArray(2, huge)); }), err::outOfMemory);
  EXPECT_EQ(hostErrorOf([&] { Owned(qxCreateNumericArray(2, small, qxLOGICAL_CLASS, qxREAL)); }), err::invalidClass);
  EXPECT_EQ(hostErrorOf([&] { Owned(qxCreateObjectArray("not a name", 2, small, 0, nullptr)); }), err::invalidClass);
}

// Each step from element count to allocation size can overflow on its own; every one must end in the
// host's out-of-memory error, never in a short allocation.
TEST(ArrayShape, SizesThatCannotBeAllocatedRaiseOutOfMemory) {
  constexpr qxSize big = qxSize{1} << 60;
  const char* field[] = {"a"};
  const std::vector<std::pair<const char*, std::function<qxArray*()>>> cases = {
      {"cell slots overflow", [] { return qxCreateCellArray(2, std::vector<qxSize>{2 * big, 1}.data()); }},
      {"complex doubles the bytes", [] { return qxCreateNumericMatrix(big, 1, qxDOUBLE_CLASS, qxCOMPLEX); }},
      {"header on top of the bytes", [] { return qxCreateNumericMatrix(~qxSize{0}, 1, qxUINT8_CLASS, qxREAL); }},
      {"more dimensions overflow the count", [] {
         return qxCreateCharArray(3, std::vector<qxSize>{big, 4, 4}.data());
       }},
      {"structure field values", [&] { return qxCreateStructArray(2, std::vector<qxSize>{4 * big, 1}.data(), 1, field); }},
  };
  for (const auto& [name, create] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(hostErrorOf([&] { Owned a(create()); }), err::outOfMemory);
  }
}

// Class queries are met by every JSON round trip (json_test.cpp); what is left is null.
TEST(ArrayClass, NullReadsAsNothing) {
  EXPECT_EQ(qxGetClassID(nullptr), qxUNKNOWN_CLASS);
  EXPECT_TRUE(qxIsEmpty(nullptr));
  EXPECT_EQ(qxGetField(nullptr, 0, "a"), nullptr);
  EXPECT_EQ(qxDuplicateArray(nullptr), nullptr);
}

TEST(ArrayData, StringsFromUtf8AndUtf16) {
  struct Case {
    const char* name;
    std::function<qxArray*()> create;
    std::u16string expected;
  };
  const Case cases[] = {
      {"non-ASCII and astral", [] { return qxCreateString("h\xC3\xA9 \xF0\x9D\x84\x9E"); }, u"h\u00e9 \U0001D11E"},
      {"null is empty", [] { return qxCreateString(nullptr); }, u""},
      {"utf16 astral", [] { return qxCreateString_UTF16(u"\U0001F600!"); }, u"\U0001F600!"},
      {"utf16 lone surrogate kept", [] { return qxCreateString_UTF16(u"a\xD800z"); }, u"a\xD800z"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Owned a(c.create());
    EXPECT_EQ(dimsOf(a.get()), (std::vector<qxSize>{1, c.expected.size()}));
    EXPECT_EQ(matrix::get_ustring(a.get()), c.expected);
  }
  EXPECT_EQ(hostErrorOf([] { Owned(qxCreateString("bad \xC3(")); }), err::invalidText);
  EXPECT_EQ(hostErrorOf([] { Owned(qxCreateString("\xED\xA0\x80")); }), err::invalidText);
}

TEST(StructFields, OrderLookupAddingAndRefusedNames) {
  Owned s = structure({1, 2}, {"zeta", "alpha"});
  EXPECT_STREQ(qxGetFieldNameByNumber(s.get(), 0), "zeta");
  EXPECT_STREQ(qxGetFieldNameByNumber(s.get(), 1), "alpha");
  EXPECT_EQ(qxGetFieldNameByNumber(s.get(), 2), nullptr);
  qxSetField(s.get(), 1, "alpha", qxCreateDoubleScalar(5));
  EXPECT_EQ(qxGetFieldByNumber(s.get(), 1, 1), qxGetField(s.get(), 1, "alpha"));
  EXPECT_EQ(qxGetField(s.get(), 0, "alpha"), nullptr) << "another element's value";
  EXPECT_EQ(qxGetField(s.get(), 0, "nope"), nullptr);
  EXPECT_EQ(qxGetField(s.get(), 2, "alpha"), nullptr) << "index out of range";

  EXPECT_EQ(qxAddField(s.get(), "mid"), 2);
  EXPECT_EQ(qxAddField(s.get(), "alpha"), 1);
  EXPECT_EQ(qxGetField(s.get(), 1, "mid"), nullptr);
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 1, "alpha")), 5);
  for (const char* name : {"", "9lives", "_x", "dash-ed", "$class"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(qxAddField(s.get(), name), -1);
  }
  EXPECT_EQ(qxAddField(s.get(), nullptr), -1);
  const std::vector<std::vector<const char*>> refused = {{"1a"}, {"ok", "ok"}, {"ok", nullptr}, {"\xC3\xA9"}};
  for (const auto& names : refused) {
    EXPECT_EQ(hostErrorOf([&] { structure({1, 1}, names); }), err::invalidFieldName);
  }
}

// Storing refused: the error names the fault, and the container is left as it was.
TEST(Ownership, RefusedStoresRaiseAndLeaveTheContainerIntact) {
  Owned s = structure({1, 1}, {"a"});
  Owned c = cells({1, 2});
  qxSetCell(c.get(), 0, qxCreateDoubleScalar(1));
  qxArray* held = qxGetCell(c.get(), 0);
  Owned inner = structure({1, 1}, {"x"});
  qxArray* innerRaw = inner.get();
  qxSetField(s.get(), 0, "a", inner.release());

  struct Case {
    const char* name;
    std::function<void()> body;
    const char* expected;
  };
  const Case cases[] = {
      {"missing field", [&] { qxSetField(s.get(), 0, "b", qxCreateDoubleScalar(2)); }, err::noSuchField},
      {"field index out of range", [&] { qxSetField(s.get(), 1, "a", qxCreateDoubleScalar(2)); }, err::indexOutOfBounds},
      {"field on a cell", [&] { qxSetField(c.get(), 0, "a", qxCreateDoubleScalar(2)); }, err::notContainer},
      {"cell index out of range", [&] { qxSetCell(c.get(), 2, qxCreateDoubleScalar(2)); }, err::indexOutOfBounds},
      {"value held elsewhere", [&] { qxSetField(s.get(), 0, "a", held); }, err::alreadyHeld},
      {"container into itself", [&] { qxSetCell(c.get(), 1, c.get()); }, err::alreadyHeld},
      {"ancestor into descendant", [&] { qxSetField(innerRaw, 0, "x", s.get()); }, err::alreadyHeld},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.name);
    EXPECT_EQ(hostErrorOf(k.body), k.expected);
    EXPECT_EQ(qxGetCell(c.get(), 0), held);
    EXPECT_EQ(qxGetCell(c.get(), 1), nullptr);
    EXPECT_EQ(qxGetField(s.get(), 0, "a"), innerRaw);
  }
  qxSetCell(c.get(), 0, nullptr);
  EXPECT_EQ(qxGetCell(c.get(), 0), nullptr);
}

TEST(Ownership, DuplicateIsDeepAndIndependent) {
  Owned s = structure({1, 2}, {"list", "n"});
  Owned list = cells({1, 1});
  qxSetCell(list.get(), 0, qxCreateString("kept"));
  qxSetField(s.get(), 1, "list", list.release());
  qxSetField(s.get(), 0, "n", qxCreateDoubleScalar(4));

  Owned copy(qxDuplicateArray(s.get()));
  ASSERT_TRUE(json::arraysEqual(copy.get(), s.get()));
  qxSetCell(qxGetField(copy.get(), 1, "list"), 0, qxCreateString("changed"));
  *static_cast<double*>(qxGetData(qxGetField(copy.get(), 0, "n"))) = 5;
  EXPECT_EQ(matrix::get_ustring(qxGetCell(qxGetField(s.get(), 1, "list"), 0)), u"kept");
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 0, "n")), 4);

  // A copy of a held value belongs to nobody: it can be stored elsewhere.
  Owned other = cells({1, 1});
  qxSetCell(other.get(), 0, qxDuplicateArray(qxGetField(s.get(), 1, "list")));
  EXPECT_TRUE(qxIsCell(qxGetCell(other.get(), 0)));
}

// UTF-8 is decoded straight into the array; the checked converter is the reference for what is
// well-formed and what each sequence means. Both ways in (a C string, a JSON string) must agree with it.
TEST(ArrayData, Utf8DecodesExactlyAsTheCheckedConverter) {
  const std::string cases[] = {
      "", "plain ascii", std::string("nul\0inside", 10), "\xC2\x80\xDF\xBF", "\xE0\xA0\x80\xEF\xBF\xBF\xEE\x80\x80",
      "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "mixed \xC3\xA9 \xE6\x97\xA5 \xF0\x9D\x84\x9E end",
      // refused: overlong forms, surrogates, beyond U+10FFFF, truncated, stray bytes
      "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80",
      "\xF5\x80\x80\x80", "\xE2\x82", "ok\xF0\x9F\x98", "\x80", "a\xBFz", "\xFE", "\xFF", "\xC3\x28", "\xE2\x28\xA1",
  };
  for (const std::string& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c));
    std::optional<std::u16string> expected;
    try {
      expected = fl::i18n::from_utf8(c);
    } catch (const fl::i18n::conversion_error&) {
    }
    if (c.find('\0') == std::string::npos) {
      Owned a;
      const std::string error = hostErrorOf([&] { a.reset(qxCreateString(c.c_str())); });
      EXPECT_EQ(error, expected ? "" : err::invalidText);
      if (expected) {
        EXPECT_EQ(matrix::get_ustring(a.get()), *expected);
      }
    }
    Owned j;
    bool refused = false;
    try {
      j = json::toOwnedArray(json::Json(c));
    } catch (const std::invalid_argument&) {
      refused = true;
    }
    EXPECT_EQ(refused, !expected);
    if (expected) {
      EXPECT_EQ(matrix::get_ustring(j.get()), *expected);
      EXPECT_EQ(qxGetN(j.get()), expected->size());
    }
  }
}

// Element storage sits behind each array's header: the data pointers must land on it exactly and be
// null wherever there is nothing to point at.
TEST(ArrayData, PointersOnlyWhereThereAreElements) {
  struct Case {
    const char* name;
    std::function<Owned()> make;
    bool data, imag;
    qxSize elementSize;
  };
  const Case cases[] = {
      {"real double", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 2}, {1, 2, 3, 4}); }, true, false, 8},
      {"complex int16", [] { return numeric<std::int16_t>(qxINT16_CLASS, {1, 3}, {1, 2, 3}, {4, 5, 6}); }, true, true, 2},
      {"empty complex", [] { return Owned(qxCreateNumericMatrix(0, 3, qxSINGLE_CLASS, qxCOMPLEX)); }, false, false, 4},
      {"empty char", [] { return text(u""); }, false, false, 2},
      {"logical", [] { return Owned(qxCreateLogicalScalar(true)); }, true, false, sizeof(qxLogical)},
      {"cell", [] { return cells({2, 2}); }, false, false, 0},
      {"structure", [] { return structure({1, 2}, {"a"}); }, false, false, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Owned a = c.make();
    EXPECT_EQ(qxGetData(a.get()) != nullptr, c.data);
    EXPECT_EQ(qxGetImagData(a.get()) != nullptr, c.imag);
    EXPECT_EQ(qxGetElementSize(a.get()), c.elementSize);
    if (c.imag) {
      const auto* re = static_cast<const char*>(qxGetData(a.get()));
      const auto* im = static_cast<const char*>(qxGetImagData(a.get()));
      EXPECT_GE(static_cast<qxSize>(im - re), qxGetNumberOfElements(a.get()) * c.elementSize) << "parts overlap";
    }
  }
  Owned z = numeric<std::int16_t>(qxINT16_CLASS, {1, 3}, {1, 2, 3}, {4, 5, 6});
  const auto* re = static_cast<const std::int16_t*>(qxGetData(z.get()));
  const auto* im = static_cast<const std::int16_t*>(qxGetImagData(z.get()));
  EXPECT_EQ(std::vector<std::int16_t>(re, re + 3), (std::vector<std::int16_t>{1, 2, 3}));
  EXPECT_EQ(std::vector<std::int16_t>(im, im + 3), (std::vector<std::int16_t>{4, 5, 6}));
}

// Arrays of more than two dimensions and objects keep storage of their own: a copy must not share it.
TEST(Ownership, CopiesOfEveryStorageKindAreIndependent) {
  const std::vector<std::pair<const char*, std::function<Owned()>>> makers = {
      {"3-D complex", [] { return numeric<std::int16_t>(qxINT16_CLASS, {1, 2, 2}, {1, 2, 3, 4}, {5, 6, 7, 8}); }},
      {"3-D cell", [] {
         Owned c = cells({1, 1, 2});
         qxSetCell(c.get(), 1, qxCreateString("x"));
         return c;
       }},
      {"object", [] {
         const char* names[] = {"p"};
         Owned o(qxCreateObjectArray("Widget", 2, std::vector<qxSize>{1, 1}.data(), 1, names));
         qxSetField(o.get(), 0, "p", qxCreateString("v"));
         return o;
       }},
  };
  for (const auto& [name, make] : makers) {
    SCOPED_TRACE(name);
    Owned a = make();
    Owned copy(qxDuplicateArray(a.get()));
    ASSERT_TRUE(json::arraysEqual(copy.get(), a.get()));
    EXPECT_NE(qxGetDimensions(copy.get()), qxGetDimensions(a.get()));
    EXPECT_STREQ(qxGetClassName(copy.get()), qxGetClassName(a.get()));
    if (qxIsObject(a.get())) {
      EXPECT_NE(qxGetClassName(copy.get()), qxGetClassName(a.get()));
    }
    const json::Json before = json::fromArray(copy.get());
    a.reset();  // the copy must survive its original
    EXPECT_EQ(json::fromArray(copy.get()), before);
  }
}

TEST(OwnershipDeathTest, DestroyingABorrowedValueStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        Owned c = cells({1, 1});
        qxSetCell(c.get(), 0, qxCreateDoubleScalar(1));
        qxDestroyArray(qxGetCell(c.get(), 0));
      },
      "still held by a container");
}

std::vector<Owned> indices(std::initializer_list<double> ks) {
  std::vector<Owned> out;
  for (double k : ks) out.emplace_back(qxCreateDoubleScalar(k));
  return out;
}

template <class T>
std::vector<Owned> typedIndex(qxClassID id, T k) {
  std::vector<Owned> out;
  out.push_back(numeric<T>(id, {1, 1}, {k}));
  return out;
}

Owned structOf(std::initializer_list<double> values) {
  Owned s = structure({1, values.size()}, {"v", "w"});
  qxSize i = 0;
  for (double v : values) {
    qxSetField(s.get(), i, "v", qxCreateDoubleScalar(v));
    qxSetField(s.get(), i++, "w", qxCreateString("w"));
  }
  return s;
}

TEST(SubscriptedReference, ScalarSubscriptsYieldOneElementTheCallerOwns) {
  struct Case {
    const char* name;
    std::function<Owned()> array;
    std::function<std::vector<Owned>()> subscripts;
    std::function<Owned()> expected;  // null when an error is expected
    const char* error = "";
  };
  auto row = [] { return numeric<double>(qxDOUBLE_CLASS, {1, 4}, {10, 20, 30, 40}); };
  auto grid = [] { return numeric<std::int32_t>(qxINT32_CLASS, {2, 3}, {1, 2, 3, 4, 5, 6}); };
  auto cube = [] { return numeric<std::uint8_t>(qxUINT8_CLASS, {2, 2, 2}, {1, 2, 3, 4, 5, 6, 7, 8}); };
  auto scalar = [](double v) { return [v] { return Owned(qxCreateDoubleScalar(v)); }; };
  const Case cases[] = {
      {"uint64 index", row, [] { return typedIndex<std::uint64_t>(qxUINT64_CLASS, 4); }, scalar(40)},
      {"linear index runs column-major", grid, [] { return indices({4}); },
       [] { return numeric<std::int32_t>(qxINT32_CLASS, {1, 1}, {4}); }},
      {"last subscript folds trailing dimensions", cube, [] { return indices({1, 4}); },
       [] { return numeric<std::uint8_t>(qxUINT8_CLASS, {1, 1}, {7}); }},
      {"complex keeps both parts", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, 2}, {3, 4}); },
       [] { return indices({2}); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {2}, {4}); }},
      {"structure element keeps its fields", [] { return structOf({1, 2, 3}); }, [] { return indices({2}); },
       [] { return structOf({2}); }},
      {"cell gives a 1x1 cell", [] {
         Owned c = cells({1, 2});
         qxSetCell(c.get(), 1, qxCreateString("b"));
         return c;
       }, [] { return indices({2}); }, [] {
         Owned c = cells({1, 1});
         qxSetCell(c.get(), 0, qxCreateString("b"));
         return c;
       }},
      {"past the end", row, [] { return indices({5}); }, nullptr, err::indexOutOfBounds},
      {"uint64 beyond any size", row, [] { return typedIndex<std::uint64_t>(qxUINT64_CLASS, ~std::uint64_t{0}); },
       nullptr, err::indexOutOfBounds},
      {"no subscripts", row, [] { return std::vector<Owned>{}; }, nullptr, err::badSubscript},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Owned a = c.array();
    std::vector<Owned> subs = c.subscripts();
    std::vector<const qxArray*> raw;
    for (const Owned& s : subs) raw.push_back(s.get());
    Owned result;
    const std::string error = hostErrorOf([&] {
      result.reset(qxSubscriptedReference(a.get(), static_cast<int>(raw.size()), raw.data()));
    });
    EXPECT_EQ(error, c.error);
    if (c.expected) {
      Owned expected = c.expected();
      EXPECT_TRUE(json::arraysEqual(result.get(), expected.get())) << json::fromArray(result.get()).dump();
    }
  }
  Owned s = structOf({1, 2});
  Owned k(qxCreateDoubleScalar(2));
  const qxArray* subs[] = {k.get()};
  Owned element(qxSubscriptedReference(s.get(), 1, subs));
  qxSetField(element.get(), 0, "v", qxCreateDoubleScalar(99));
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 1, "v")), 2);
}

}  // namespace
}  // namespace zvhost::testing
