// The reference host's arrays: shapes, classes, structures, ownership.
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

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
      {{2, 3}, {2, 3}, 6, 2, 3},       {{2, 3, 1}, {2, 3}, 6, 2, 3},
      {{2, 1, 4}, {2, 1, 4}, 8, 2, 4}, {{2, 3, 4, 1, 1}, {2, 3, 4}, 24, 2, 12},
      {{0, 3}, {0, 3}, 0, 0, 3},       {{3, 0, 2}, {3, 0, 2}, 0, 3, 0},
      {{1, 1, 1}, {1, 1}, 1, 1, 1},
  };
  const std::vector<std::pair<const char*, std::function<qxArray*(qxSize, const qxSize*)>>> creators = {
      {"double", [](qxSize k, const qxSize* d) { return qxCreateNumericArray(k, d, qxDOUBLE_CLASS, qxREAL); }},
      {"int16", [](qxSize k, const qxSize* d) { return qxCreateNumericArray(k, d, qxINT16_CLASS, qxCOMPLEX); }},
      {"logical", qxCreateLogicalArray},
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
}

TEST(ArrayShape, ImpossibleRequestsRaiseHostErrors) {
  const qxSize huge[] = {qxSize{1} << 62, 8};
  const qxSize small[] = {2, 2};
  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {err::outOfMemory, [&] { Owned(qxCreateNumericArray(2, huge, qxDOUBLE_CLASS, qxREAL)); }},
      {err::outOfMemory, [&] { Owned(qxCreateCellArray(2, huge)); }},
      {err::invalidClass, [&] { Owned(qxCreateNumericArray(2, small, qxCELL_CLASS, qxREAL)); }},
      {err::invalidClass, [&] { Owned(qxCreateNumericArray(2, small, qxLOGICAL_CLASS, qxREAL)); }},
      {err::invalidClass, [&] { Owned(qxCreateNumericMatrix(1, 1, qxCHAR_CLASS, qxREAL)); }},
      {err::invalidClass, [&] { Owned(qxCreateObjectArray("not a name", 2, small, 0, nullptr)); }},
      {err::invalidClass, [&] { Owned(qxCreateObjectArray(nullptr, 2, small, 0, nullptr)); }},
      {err::invalidClass, [&] { Owned(qxCreateCellArray(2, nullptr)); }},
  };
  for (const auto& [expected, body] : cases) {
    SCOPED_TRACE(expected);
    EXPECT_EQ(hostErrorOf(body), expected);
  }
}

TEST(ArrayClass, QueriesAgreeWithTheClassCreated) {
  struct Case {
    std::function<qxArray*()> create;
    qxClassID id;
    std::string name;
    bool numeric, isChar, logical, cell, isStruct, object;
    qxSize elementSize;
  };
  const char* names[] = {"x"};
  const qxSize one[] = {1, 1};
  const Case cases[] = {
      {[] { return qxCreateDoubleScalar(1); }, qxDOUBLE_CLASS, "double", true, false, false, false, false, false, 8},
      {[] { return qxCreateNumericMatrix(1, 1, qxSINGLE_CLASS, qxREAL); }, qxSINGLE_CLASS, "single", true, false, false, false, false, false, 4},
      {[] { return qxCreateNumericMatrix(1, 1, qxINT8_CLASS, qxREAL); }, qxINT8_CLASS, "int8", true, false, false, false, false, false, 1},
      {[] { return qxCreateNumericMatrix(1, 1, qxUINT8_CLASS, qxREAL); }, qxUINT8_CLASS, "uint8", true, false, false, false, false, false, 1},
      {[] { return qxCreateNumericMatrix(1, 1, qxINT16_CLASS, qxREAL); }, qxINT16_CLASS, "int16", true, false, false, false, false, false, 2},
      {[] { return qxCreateNumericMatrix(1, 1, qxUINT16_CLASS, qxREAL); }, qxUINT16_CLASS, "uint16", true, false, false, false, false, false, 2},
      {[] { return qxCreateNumericMatrix(1, 1, qxINT32_CLASS, qxREAL); }, qxINT32_CLASS, "int32", true, false, false, false, false, false, 4},
      {[] { return qxCreateNumericMatrix(1, 1, qxUINT32_CLASS, qxREAL); }, qxUINT32_CLASS, "uint32", true, false, false, false, false, false, 4},
      {[] { return qxCreateNumericMatrix(1, 1, qxINT64_CLASS, qxREAL); }, qxINT64_CLASS, "int64", true, false, false, false, false, false, 8},
      {[] { return qxCreateNumericMatrix(1, 1, qxUINT64_CLASS, qxREAL); }, qxUINT64_CLASS, "uint64", true, false, false, false, false, false, 8},
      {[] { return qxCreateLogicalScalar(true); }, qxLOGICAL_CLASS, "logical", false, false, true, false, false, false, 1},
      {[] { return qxCreateString("a"); }, qxCHAR_CLASS, "char", false, true, false, false, false, false, 2},
      {[&] { return qxCreateCellArray(2, one); }, qxCELL_CLASS, "cell", false, false, false, true, false, false, 0},
      {[&] { return qxCreateStructArray(2, one, 1, names); }, qxSTRUCT_CLASS, "struct", false, false, false, false, true, false, 0},
      {[&] { return qxCreateObjectArray("Widget", 2, one, 1, names); }, qxOBJECT_CLASS, "Widget", false, false, false, false, false, true, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Owned a(c.create());
    EXPECT_EQ(qxGetClassID(a.get()), c.id);
    EXPECT_EQ(qxGetClassName(a.get()), c.name);
    EXPECT_EQ(qxIsNumeric(a.get()), c.numeric);
    EXPECT_EQ(qxIsChar(a.get()), c.isChar);
    EXPECT_EQ(qxIsLogical(a.get()), c.logical);
    EXPECT_EQ(qxIsCell(a.get()), c.cell);
    EXPECT_EQ(qxIsStruct(a.get()), c.isStruct);
    EXPECT_EQ(qxIsObject(a.get()), c.object);
    EXPECT_EQ(qxGetElementSize(a.get()), c.elementSize);
    EXPECT_EQ(qxGetData(a.get()) != nullptr, c.elementSize != 0);
  }
}

TEST(ArrayClass, NullReadsAsNothing) {
  EXPECT_EQ(qxGetClassID(nullptr), qxUNKNOWN_CLASS);
  EXPECT_STREQ(qxGetClassName(nullptr), "unknown");
  EXPECT_TRUE(qxIsEmpty(nullptr));
  EXPECT_EQ(qxGetNumberOfElements(nullptr), 0u);
  EXPECT_EQ(qxGetDimensions(nullptr), nullptr);
  EXPECT_EQ(qxGetData(nullptr), nullptr);
  EXPECT_EQ(qxGetField(nullptr, 0, "a"), nullptr);
  EXPECT_EQ(qxGetCell(nullptr, 0), nullptr);
  EXPECT_EQ(qxDuplicateArray(nullptr), nullptr);
  qxDestroyArray(nullptr);
}

TEST(ArrayData, ScalarReadsElementZeroOfEveryClass) {
  struct Case {
    const char* name;
    Owned a;
    double expected;
  };
  Case cases[] = {
      {"double", numeric<double>(qxDOUBLE_CLASS, {1, 2}, {-2.5, 7}), -2.5},
      {"single", numeric<float>(qxSINGLE_CLASS, {1, 1}, {0.25f}), 0.25},
      {"int8", numeric<std::int8_t>(qxINT8_CLASS, {1, 1}, {-128}), -128},
      {"uint16", numeric<std::uint16_t>(qxUINT16_CLASS, {1, 1}, {65535}), 65535},
      {"int64", numeric<std::int64_t>(qxINT64_CLASS, {1, 1}, {-(std::int64_t{1} << 40)}), -1099511627776.0},
      {"uint64", numeric<std::uint64_t>(qxUINT64_CLASS, {1, 1}, {std::uint64_t{1} << 63}), 9223372036854775808.0},
      {"complex keeps the real part", numeric<double>(qxDOUBLE_CLASS, {1, 1}, {3}, {4}), 3},
      {"logical", Owned(qxCreateLogicalScalar(true)), 1},
      {"char", text(u"A"), 65},
      {"empty", numeric<double>(qxDOUBLE_CLASS, {0, 0}, {}), 0},
      {"cell", cells({1, 1}), 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(qxGetScalar(c.a.get()), c.expected);
  }
}

TEST(ArrayData, StringsFromUtf8AndUtf16) {
  struct Case {
    const char* name;
    std::function<qxArray*()> create;
    std::u16string expected;
  };
  const Case cases[] = {
      {"ascii", [] { return qxCreateString("abc"); }, u"abc"},
      {"non-ASCII and astral", [] { return qxCreateString("h\xC3\xA9 \xF0\x9D\x84\x9E"); }, u"h\u00e9 \U0001D11E"},
      {"empty", [] { return qxCreateString(""); }, u""},
      {"null is empty", [] { return qxCreateString(nullptr); }, u""},
      {"utf16 astral", [] { return qxCreateString_UTF16(u"\U0001F600!"); }, u"\U0001F600!"},
      {"utf16 lone surrogate kept", [] { return qxCreateString_UTF16(u"a\xD800z"); }, u"a\xD800z"},
      {"utf16 null is empty", [] { return qxCreateString_UTF16(nullptr); }, u""},
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

TEST(StructFields, NamesKeepTheirOrderAndMissingFieldsReadAsNull) {
  Owned s = structure({1, 2}, {"zeta", "alpha", "mid"});
  ASSERT_EQ(qxGetNumberOfFields(s.get()), 3);
  EXPECT_STREQ(qxGetFieldNameByNumber(s.get(), 0), "zeta");
  EXPECT_STREQ(qxGetFieldNameByNumber(s.get(), 1), "alpha");
  EXPECT_STREQ(qxGetFieldNameByNumber(s.get(), 2), "mid");
  EXPECT_EQ(qxGetFieldNameByNumber(s.get(), 3), nullptr);
  EXPECT_EQ(qxGetFieldNameByNumber(s.get(), -1), nullptr);
  EXPECT_EQ(qxGetFieldNumber(s.get(), "mid"), 2);

  qxSetField(s.get(), 1, "alpha", qxCreateDoubleScalar(5));
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 1, "alpha")), 5);
  EXPECT_EQ(qxGetFieldByNumber(s.get(), 1, 1), qxGetField(s.get(), 1, "alpha"));
  EXPECT_EQ(qxGetField(s.get(), 0, "alpha"), nullptr) << "another element's value";
  EXPECT_EQ(qxGetField(s.get(), 0, "zeta"), nullptr) << "unset";
  EXPECT_EQ(qxGetField(s.get(), 0, "nope"), nullptr) << "missing";
  EXPECT_EQ(qxGetField(s.get(), 2, "alpha"), nullptr) << "index out of range";
  EXPECT_EQ(qxGetField(s.get(), 0, nullptr), nullptr);
  Owned d(qxCreateDoubleScalar(1));
  EXPECT_EQ(qxGetField(d.get(), 0, "alpha"), nullptr) << "not a structure";
}

TEST(StructFields, AddFieldAppendsUnsetOrReturnsTheExistingNumber) {
  Owned s = structure({2, 1}, {"a"});
  qxSetField(s.get(), 1, "a", qxCreateDoubleScalar(9));
  EXPECT_EQ(qxAddField(s.get(), "b"), 1);
  EXPECT_EQ(qxAddField(s.get(), "a"), 0);
  EXPECT_EQ(qxGetNumberOfFields(s.get()), 2);
  EXPECT_EQ(qxGetField(s.get(), 1, "b"), nullptr);
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 1, "a")), 9);
  qxSetField(s.get(), 1, "b", qxCreateDoubleScalar(3));
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 1, "b")), 3);

  Owned o(qxCreateObjectArray("Gadget", 0, nullptr, 0, nullptr));
  EXPECT_EQ(qxAddField(o.get(), "p"), 0);
  const struct {
    const char* name;
  } refused[] = {{""}, {"9lives"}, {"_x"}, {"has space"}, {"dash-ed"}, {"$class"}, {nullptr}};
  for (const auto& r : refused) {
    SCOPED_TRACE(r.name ? r.name : "(null)");
    EXPECT_EQ(qxAddField(s.get(), r.name), -1);
  }
  Owned c = cells({1, 1});
  EXPECT_EQ(qxAddField(c.get(), "a"), -1);
}

TEST(StructFields, InvalidNamesAreRefusedAtCreation) {
  const std::vector<std::vector<const char*>> cases = {
      {""}, {"1a"}, {"a b"}, {"ok", "ok"}, {"ok", nullptr}, {"\xC3\xA9"},
  };
  for (const auto& names : cases) {
    EXPECT_EQ(hostErrorOf([&] { structure({1, 1}, names); }), err::invalidFieldName);
  }
  EXPECT_EQ(hostErrorOf([] { Owned(qxCreateStructArray(0, nullptr, 2, nullptr)); }), err::invalidFieldName);
  EXPECT_EQ(hostErrorOf([] { Owned(qxCreateStructArray(0, nullptr, -1, nullptr)); }), err::invalidFieldName);
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
      {"field number out of range", [&] { qxSetFieldByNumber(s.get(), 0, 1, qxCreateDoubleScalar(2)); }, err::noSuchField},
      {"field on a cell", [&] { qxSetField(c.get(), 0, "a", qxCreateDoubleScalar(2)); }, err::notContainer},
      {"field on null", [&] { qxSetField(nullptr, 0, "a", qxCreateDoubleScalar(2)); }, err::notContainer},
      {"cell index out of range", [&] { qxSetCell(c.get(), 2, qxCreateDoubleScalar(2)); }, err::indexOutOfBounds},
      {"cell on a structure", [&] { qxSetCell(s.get(), 0, qxCreateDoubleScalar(2)); }, err::notContainer},
      {"value held elsewhere", [&] { qxSetField(s.get(), 0, "a", held); }, err::alreadyHeld},
      {"container into itself", [&] { qxSetCell(c.get(), 1, c.get()); }, err::alreadyHeld},
      {"ancestor into descendant", [&] { qxSetField(innerRaw, 0, "x", s.get()); }, err::alreadyHeld},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.name);
    EXPECT_EQ(hostErrorOf(k.body), k.expected);
    EXPECT_EQ(qxGetCell(c.get(), 0), held);
    EXPECT_EQ(qxGetScalar(held), 1);
    EXPECT_EQ(qxGetCell(c.get(), 1), nullptr);
    EXPECT_EQ(qxGetField(s.get(), 0, "a"), innerRaw);
  }
}

TEST(Ownership, StoringReplacesAndNullEmptiesTheSlot) {
  Owned c = cells({1, 1});
  qxSetCell(c.get(), 0, qxCreateString("first"));
  qxSetCell(c.get(), 0, qxCreateString("second"));
  EXPECT_EQ(matrix::get_ustring(qxGetCell(c.get(), 0)), u"second");
  qxSetCell(c.get(), 0, nullptr);
  EXPECT_EQ(qxGetCell(c.get(), 0), nullptr);

  Owned s = structure({1, 1}, {"f"});
  qxSetField(s.get(), 0, "f", qxCreateString("one"));
  qxSetField(s.get(), 0, "f", qxCreateString("two"));
  EXPECT_EQ(matrix::get_ustring(qxGetField(s.get(), 0, "f")), u"two");
  qxSetField(s.get(), 0, "f", nullptr);
  EXPECT_EQ(qxGetField(s.get(), 0, "f"), nullptr);
}

TEST(Ownership, DuplicateIsDeepAndIndependent) {
  Owned s = structure({1, 2}, {"list", "n"});
  Owned list = cells({1, 1});
  qxSetCell(list.get(), 0, qxCreateString("kept"));
  qxSetField(s.get(), 1, "list", list.release());
  qxSetField(s.get(), 0, "n", qxCreateDoubleScalar(4));

  Owned copy(qxDuplicateArray(s.get()));
  ASSERT_TRUE(json::arraysEqual(copy.get(), s.get()));
  EXPECT_NE(qxGetField(copy.get(), 1, "list"), qxGetField(s.get(), 1, "list"));
  qxSetCell(qxGetField(copy.get(), 1, "list"), 0, qxCreateString("changed"));
  *static_cast<double*>(qxGetData(qxGetField(copy.get(), 0, "n"))) = 5;
  EXPECT_EQ(matrix::get_ustring(qxGetCell(qxGetField(s.get(), 1, "list"), 0)), u"kept");
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 0, "n")), 4);

  // A copy of a held value belongs to nobody: it can be stored elsewhere.
  Owned other = cells({1, 1});
  qxSetCell(other.get(), 0, qxDuplicateArray(qxGetField(s.get(), 1, "list")));
  EXPECT_TRUE(qxIsCell(qxGetCell(other.get(), 0)));
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

struct SubscriptCase {
  const char* name;
  std::function<Owned()> array;
  std::function<std::vector<Owned>()> subscripts;
  std::function<Owned()> expected;  // null when an error is expected
  const char* error = "";
};

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

TEST(SubscriptedReference, ScalarSubscriptsYieldOneElement) {
  auto row = [] { return numeric<double>(qxDOUBLE_CLASS, {1, 4}, {10, 20, 30, 40}); };
  auto grid = [] { return numeric<std::int32_t>(qxINT32_CLASS, {2, 3}, {1, 2, 3, 4, 5, 6}); };
  auto cube = [] { return numeric<std::uint8_t>(qxUINT8_CLASS, {2, 2, 2}, {1, 2, 3, 4, 5, 6, 7, 8}); };
  auto scalar = [](double v) { return [v] { return Owned(qxCreateDoubleScalar(v)); }; };
  const SubscriptCase cases[] = {
      {"double index", row, [] { return indices({2}); }, scalar(20)},
      {"uint64 index", row, [] { return typedIndex<std::uint64_t>(qxUINT64_CLASS, 4); }, scalar(40)},
      {"int8 index", row, [] { return typedIndex<std::int8_t>(qxINT8_CLASS, 1); }, scalar(10)},
      {"single index", row, [] { return typedIndex<float>(qxSINGLE_CLASS, 3.0f); }, scalar(30)},
      {"linear index runs column-major", grid, [] { return indices({4}); },
       [] { return numeric<std::int32_t>(qxINT32_CLASS, {1, 1}, {4}); }},
      {"row and column", grid, [] { return indices({2, 3}); },
       [] { return numeric<std::int32_t>(qxINT32_CLASS, {1, 1}, {6}); }},
      {"last subscript folds trailing dimensions", cube, [] { return indices({1, 4}); },
       [] { return numeric<std::uint8_t>(qxUINT8_CLASS, {1, 1}, {7}); }},
      {"three subscripts", cube, [] { return indices({2, 1, 2}); },
       [] { return numeric<std::uint8_t>(qxUINT8_CLASS, {1, 1}, {6}); }},
      {"extra trailing 1", row, [] { return indices({1, 3, 1}); }, scalar(30)},
      {"complex keeps both parts", [] { return numeric<double>(qxDOUBLE_CLASS, {2, 1}, {1, 2}, {3, 4}); },
       [] { return indices({2}); }, [] { return numeric<double>(qxDOUBLE_CLASS, {1, 1}, {2}, {4}); }},
      {"char", [] { return text(u"a\U0001F600"); }, [] { return indices({3}); },
       [] { return text(u"\xDE00"); }},
      {"logical", [] {
         Owned a(qxCreateLogicalArray(2, std::vector<qxSize>{1, 2}.data()));
         static_cast<qxLogical*>(qxGetData(a.get()))[1] = true;
         return a;
       }, [] { return indices({2}); }, [] { return Owned(qxCreateLogicalScalar(true)); }},
      {"structure element keeps its fields", [] { return structOf({1, 2, 3}); },
       [] { return typedIndex<std::uint64_t>(qxUINT64_CLASS, 2); }, [] { return structOf({2}); }},
      {"object element keeps its class", [] {
         const char* names[] = {"p"};
         Owned o(qxCreateObjectArray("Thing", 2, std::vector<qxSize>{1, 2}.data(), 1, names));
         qxSetField(o.get(), 1, "p", qxCreateString("second"));
         return o;
       }, [] { return indices({2}); }, [] {
         const char* names[] = {"p"};
         Owned o(qxCreateObjectArray("Thing", 0, nullptr, 1, names));
         qxSetField(o.get(), 0, "p", qxCreateString("second"));
         return o;
       }},
      {"cell gives a 1x1 cell", [] {
         Owned c = cells({1, 2});
         qxSetCell(c.get(), 1, qxCreateString("b"));
         return c;
       }, [] { return indices({2}); }, [] {
         Owned c = cells({1, 1});
         qxSetCell(c.get(), 0, qxCreateString("b"));
         return c;
       }},
      {"zero", row, [] { return indices({0}); }, nullptr, err::badSubscript},
      {"past the end", row, [] { return indices({5}); }, nullptr, err::indexOutOfBounds},
      {"row past the end", grid, [] { return indices({3, 1}); }, nullptr, err::indexOutOfBounds},
      {"fraction", row, [] { return indices({1.5}); }, nullptr, err::badSubscript},
      {"NaN", row, [] { return indices({std::numeric_limits<double>::quiet_NaN()}); }, nullptr, err::badSubscript},
      {"negative integer", row, [] { return typedIndex<std::int64_t>(qxINT64_CLASS, -1); }, nullptr, err::badSubscript},
      {"uint64 beyond any size", row, [] { return typedIndex<std::uint64_t>(qxUINT64_CLASS, ~std::uint64_t{0}); },
       nullptr, err::indexOutOfBounds},
      {"vector subscript", row, [] {
         std::vector<Owned> v;
         v.push_back(numeric<double>(qxDOUBLE_CLASS, {1, 2}, {1, 2}));
         return v;
       }, nullptr, err::badSubscript},
      {"complex subscript", row, [] {
         std::vector<Owned> v;
         v.push_back(numeric<double>(qxDOUBLE_CLASS, {1, 1}, {1}, {1}));
         return v;
       }, nullptr, err::badSubscript},
      {"char subscript", row, [] {
         std::vector<Owned> v;
         v.push_back(text(u"1"));
         return v;
       }, nullptr, err::badSubscript},
      {"null subscript", row, [] {
         std::vector<Owned> v;
         v.emplace_back(nullptr);
         return v;
       }, nullptr, err::badSubscript},
      {"no subscripts", row, [] { return std::vector<Owned>{}; }, nullptr, err::badSubscript},
  };
  for (const SubscriptCase& c : cases) {
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
  EXPECT_EQ(hostErrorOf([] {
              Owned k(qxCreateDoubleScalar(1));
              const qxArray* s[] = {k.get()};
              Owned(qxSubscriptedReference(nullptr, 1, s));
            }),
            err::badSubscript);
}

TEST(SubscriptedReference, ResultIsACopyTheCallerOwns) {
  Owned s = structOf({1, 2});
  Owned k(qxCreateDoubleScalar(2));
  const qxArray* subs[] = {k.get()};
  Owned element(qxSubscriptedReference(s.get(), 1, subs));
  qxSetField(element.get(), 0, "v", qxCreateDoubleScalar(99));
  EXPECT_EQ(qxGetScalar(qxGetField(s.get(), 1, "v")), 2);
  EXPECT_NE(qxGetField(element.get(), 0, "w"), qxGetField(s.get(), 1, "w"));
}

}  // namespace
}  // namespace zvhost::testing
