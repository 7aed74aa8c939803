// The JSON mapping: every class and shape round-trips losslessly, the direct text writer gives the
// document's bytes, refused input names where it is, equality sees every difference.
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "host/json/json.h"

namespace zvhost::json {
namespace {

using Owned = matrix::unique_qxarray_ptr;

struct Trip {
  std::string in;
  std::string out = "";  // the mapping's own form of `in` ("" = `in` itself)
};

const Trip trips[] = {
    // text: plain for a row of valid UTF-16, typed otherwise
    {R"("abc")"}, {"\"gr\u00fc\u00dfe \U0001D11E\""}, {R"("\u0000\b\t\n\f\r\u001f\u007f\"\\/")"}, {R"("abcd\"efgh\\ijkl\u0001mnop")"},
    {R"({"$class":"char","$dims":[0,0],"$data":""})"}, {R"({"$class":"char","$dims":[2,3],"$data":"adbecf"})"},
    {R"({"$class":"char","$dims":[1,2],"$data":[97,55296]})"}, {R"({"$class":"char","$data":[104,56320]})", R"({"$class":"char","$dims":[1,2],"$data":[104,56320]})"},
    {R"({"$class":"char","$data":"ab"})", R"("ab")"},
    // numbers: a finite real double scalar is plain; NaN, Inf, complex, shapes and other classes typed
    {"2.5"}, {"0.30000000000000004"}, {"1.8014398509481986e16"}, {"-7e-3", "-0.007"}, {"null"}, {"[]", "null"},
    {R"({"$class":"double","$dims":[1,1],"$data":["NaN"]})"}, {R"({"$class":"double","$dims":[0,0],"$data":[],"$imag":[]})"},
    {R"({"$class":"double","$dims":[1,4],"$data":[1,"-Inf","Inf","NaN"]})"},
    {R"({"$class":"double","$dims":[2,1],"$data":[1,-2],"$imag":["NaN",4]})"},
    {R"({"$class":"double","$dims":[2,1,2],"$data":[1,2,3,4.5]})"}, {R"({"$class":"double","$dims":[2,1,1],"$data":[1,2]})", R"({"$class":"double","$dims":[2,1],"$data":[1,2]})"},
    {R"({"$class":"single","$dims":[1,3],"$data":[0.10000000149011612,"-Inf",1.401298464324817e-45]})"},
    {R"({"$class":"uint8","$dims":[1,3],"$data":[0,128,255]})"}, {R"({"$class":"uint16","$data":[1,2.0,3e0]})", R"({"$class":"uint16","$dims":[1,3],"$data":[1,2,3]})"},
    {R"({"$class":"int64","$dims":[1,3],"$data":[-9223372036854775808,0,9223372036854775807]})"},
    {R"({"$class":"uint64","$dims":[1,2],"$data":[0,18446744073709551615]})"},
    {R"({"$class":"int64","$dims":[1,1],"$data":[-9223372036854775808],"$imag":[9223372036854775807]})"},
    {R"({"$class":"int32","$dims":[0,5],"$data":[]})"},
    {"true"}, {R"({"$class":"logical","$dims":[2,2],"$data":[true,false,false,true]})"},
    // cells: a row of strings is plain
    {R"(["a","","\u00e9\ud834\udd1e"])"}, {R"({"$class":"cell","$dims":[0,0],"$data":[]})"},
    {R"({"$class":"cell","$dims":[2,1],"$data":["a","b"]})"}, {R"({"$class":"cell","$data":[null,[]]})", R"({"$class":"cell","$dims":[1,2],"$data":[null,null]})"},
    {R"({"$class":"cell","$dims":[1,2],"$data":["a",{"$class":"char","$dims":[2,1],"$data":"bc"}]})"},
    {R"({"$class":"cell","$dims":[1,2],"$data":["ok",{"$class":"char","$dims":[1,1],"$data":[56319]}]})"},
    // structures: 1x1 and 1xN plain, in field order; everything else typed
    {R"({"name":"x","count":3,"tags":["t1","t2"],"nested":{"deep":{"$class":"uint64","$dims":[1,1],"$data":[18446744073709551615]}},"unset":null})"},
    {R"([{"b":1,"a":2},{"a":3,"b":4}])", R"([{"b":1,"a":2},{"b":4,"a":3}])"}, {R"([{},{}])"}, {"{}"},
    {R"({"t":{"$class":"char","$dims":[1,2],"$data":[97,55296]},"n":{"$class":"double","$dims":[1,1],"$data":["NaN"]}})"},
    {R"({"$class":"struct","$dims":[0,1],"$fields":["name","examples"],"$data":[]})"},
    {R"({"$class":"struct","$dims":[0,0],"$fields":[],"$data":[]})"}, {R"({"$class":"struct","$data":[{"a":1}]})", R"({"a":1})"},
    {R"({"$class":"object","$className":"Widget","$dims":[1,1],"$fields":["p","q"],"$data":[{"p":"v","q":2}]})"},
    {R"({"o":{"$class":"object","$className":"Gadget","$dims":[1,2],"$fields":["p"],"$data":[{"p":1},{"p":null}]}})"},
};

TEST(JsonMapping, EveryClassAndShapeRoundTrips) {
  for (const Trip& row : trips) {
    SCOPED_TRACE(row.in.substr(0, 100));
    const Owned a = toOwnedArray(Json::parse(row.in));
    const Json out = fromArray(a.get());
    EXPECT_EQ(out, Json::parse(row.out.empty() ? row.in : row.out)) << out.dump();
    const std::string text = toText(a.get());
    EXPECT_EQ(text, out.dump()) << "the direct writer must give the document's bytes";
    std::string appended = "[1,";  // appended to what is there
    appendText(appended, a.get());
    EXPECT_EQ(appended, "[1," + text);
    EXPECT_TRUE(arraysEqual(toOwnedArray(Json::parse(text)).get(), a.get()));
  }
}

TEST(JsonMapping, RefusedInputNamesWhereItIs) {
  std::string deep = "1";
  for (int k = 0; k < 300; ++k) deep = R"({"a":)" + deep + "}";
  const std::pair<std::string, std::string> rows[] = {
      {"[1, 2]", "the top level"},
      {R"({"x": [{"a": 1}, {"b": 1}]})", "/x/1"},
      {R"({"a": {"$class": "int8", "$data": [128]}})", "/a/$data/0"},
      {R"({"$class": "uint8", "$data": [-1]})", "/$data/0"}, {R"({"$class": "single", "$data": [1e39]})", "/$data/0"},
      {R"({"$class": "double", "$data": [1], "$imag": [1, 2]})", "/$imag"},
      {R"({"$class": "double", "$dims": [2, 2], "$data": [1, 2, 3]})", "/$data"},
      {R"({"$class": "cell", "$dims": [4294967296, 4294967296, 4294967296]})", "/$dims"},
      {R"({"$class": "nope"})", "/$class"},
      {R"({"$class": "logical", "$data": [1]})", "/$data/0"},
      {R"({"$class": "char", "$data": [70000]})", "/$data/0"},
      {R"({"$class": "struct", "$fields": ["a"], "$data": [{"b": 1}]})", "/$data/0"},
      {R"({"$class": "struct", "$data": [{"a": {"$class": "uint8", "$data": [256]}}]})", "/$data/0/a/$data/0"},
      {R"({"$class": "object", "$data": []})", "the top level"},
      {deep, "/a/a/a"},
  };
  for (const auto& [text, where] : rows) {
    SCOPED_TRACE(text.substr(0, 80));
    try {
      const Owned a = toOwnedArray(Json::parse(text));
      ADD_FAILURE() << "accepted: " << fromArray(a.get()).dump();
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find("at " + where), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW((void)toOwnedArray(Json(std::string("ok\xC3"))), std::invalid_argument);
}

TEST(JsonMapping, EqualityIsDeepAndExact) {
  const std::tuple<const char*, const char*, bool> rows[] = {
      {R"({"$class":"double","$dims":[1,1],"$data":["NaN"]})", R"({"$class":"double","$dims":[1,1],"$data":["NaN"]})", true},
      {"null", R"({"$class":"cell","$dims":[1,1],"$data":[null]})", false},
      {R"({"$class":"double","$dims":[1,2],"$data":[1,2]})", R"({"$class":"double","$dims":[2,1],"$data":[1,2]})", false},
      {R"({"$class":"int64","$dims":[1,2],"$data":[1,2]})", R"({"$class":"int64","$dims":[1,2],"$data":[1,3]})", false},
      {R"({"$class":"double","$dims":[1,1],"$data":[1],"$imag":[0]})", "1", false},
      {R"({"a":1,"b":2})", R"({"b":2,"a":1})", false},
      {R"({"$class":"object","$className":"A","$fields":["a"],"$data":[{"a":1}]})",
       R"({"$class":"object","$className":"B","$fields":["a"],"$data":[{"a":1}]})", false},
  };
  for (const auto& [a, b, equal] : rows) {
    SCOPED_TRACE(std::string(a) + " ~ " + b);
    const Owned x = toOwnedArray(Json::parse(a));
    const Owned y = toOwnedArray(Json::parse(b));
    EXPECT_EQ(arraysEqual(x.get(), y.get()), equal);
    EXPECT_EQ(arraysEqual(y.get(), x.get()), equal);
  }
  const Owned empty = toOwnedArray(nullptr);
  EXPECT_TRUE(arraysEqual(nullptr, empty.get())) << "an unset value is the 0x0 double";
  EXPECT_FALSE(arraysEqual(nullptr, toOwnedArray(Json::parse(R"({"$class":"double","$dims":[1,0],"$data":[]})")).get()));
}

}  // namespace
}  // namespace zvhost::json
