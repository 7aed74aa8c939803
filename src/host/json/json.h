#pragma once
// Lossless conversion between host arrays and JSON, for any host that implements qx.h.
//
// Plain forms: a string is a 1xN char array; an object a 1x1 structure (fields in key order); an array
// of strings a 1xN cell array; an array of objects with the same keys a 1xN structure array (fields in
// the first object's order); a number a double scalar; true/false a logical scalar; null and [] the
// 0x0 double. Everything else has a typed form, an object whose keys begin with "$":
//   {"$class": "int64", "$dims": [2, 3], "$data": [...], "$imag": [...]}   numeric; "$imag" = complex
//   {"$class": "logical", "$dims": [...], "$data": [true, ...]}
//   {"$class": "char", "$dims": [...], "$data": "text"}       or "$data": [code units] (lone surrogates)
//   {"$class": "cell", "$dims": [...], "$data": [values]}
//   {"$class": "struct", "$dims": [...], "$fields": [names], "$data": [{field: value}, ...]}
//   {"$class": "object", "$className": "Name", "$dims": [...], "$fields": [...], "$data": [...]}
// "$data" runs in column-major order; floating-point elements are numbers or "NaN", "Inf", "-Inf".
// "$dims" defaults to [1, number of "$data" elements]. fromArray writes the plain form whenever one
// exists, so its output fed to toOwnedArray gives an equal array (see arraysEqual).
#include <string>

#include <nlohmann/json.hpp>

#include "host/matrix.h"
#include "host/qx.h"

namespace zvhost::json {

using Json = nlohmann::ordered_json;

// A new array, owned by the result. Throws std::invalid_argument naming the JSON pointer of the
// offending value; nothing is leaked. Host errors raised while creating arrays pass through unchanged.
[[nodiscard]] matrix::unique_qxarray_ptr toOwnedArray(const Json& value);

// a is borrowed; null (an unset field or cell) gives null. Throws std::invalid_argument for classes
// without a JSON form (function handles, unknown classes).
[[nodiscard]] Json fromArray(const qxArray* a);

// The JSON text of a, byte for byte fromArray(a).dump(), appended to out without building the document
// for the forms the gateway returns (strings, rows of strings, plain structures). a is borrowed. Throws
// as fromArray does, leaving out as it was.
void appendText(std::string& out, const qxArray* a);
[[nodiscard]] std::string toText(const qxArray* a);

// Deep equality: class, object class name, dimensions, complexity, every element, field names in
// order. Floating-point elements compare by bits, except that any NaN equals any NaN. An unset value
// (null) equals the 0x0 real double, as the host's language cannot tell them apart.
[[nodiscard]] bool arraysEqual(const qxArray* a, const qxArray* b);

}  // namespace zvhost::json
