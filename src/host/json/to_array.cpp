// JSON to host arrays.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "foundation/i18n.h"
#include "host/common/host_common.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

using matrix::unique_qxarray_ptr;
using Names = std::vector<std::string>;

// Deeper documents are refused rather than risking the stack.
constexpr int maxDepth = 200;

// Where a value sits in the document; made a JSON pointer only when reporting an error.
struct Path {
  const Path* parent = nullptr;
  std::string_view key;
  std::size_t index = 0;
  bool isIndex = false;

  [[nodiscard]] Path operator/(std::string_view k) const { return Path{this, k, 0, false}; }
  [[nodiscard]] Path operator/(std::size_t i) const { return Path{this, {}, i, true}; }

  [[nodiscard]] std::string pointer() const {
    if (parent == nullptr) return "";
    // Keys are field names or "$" keys: nothing in them needs escaping.
    return parent->pointer() + "/" + (isIndex ? std::to_string(index) : std::string(key));
  }
};

[[noreturn]] void fail(const Path& at, const std::string& what) {
  const std::string where = at.parent == nullptr ? "the top level" : at.pointer();
  throw std::invalid_argument("JSON value at " + where + ": " + what);
}

bool isTyped(const Json& j) {
  if (!j.is_object()) return false;
  for (const auto& [key, value] : j.items()) {
    if (!key.empty() && key.front() == '$') return true;
  }
  return false;
}

Names keysOf(const Json& object) {
  Names names;
  for (const auto& [key, value] : object.items()) names.push_back(key);
  return names;
}

ustring utf16(const Json& text, const Path& at) {
  try {
    return fl::i18n::from_utf8(text.get_ref<const std::string&>());
  } catch (const fl::i18n::conversion_error&) {
    fail(at, "text is not valid UTF-8");
  }
}

// A JSON string as a char row, decoded straight into the array.
unique_qxarray_ptr charRow(const Json& j, const Path& at) {
  const std::string& text = j.get_ref<const std::string&>();
  const std::optional<std::size_t> length = fl::i18n::utf16_length(text);
  if (!length) fail(at, "text is not valid UTF-8");
  const qxSize dims[] = {1, *length};
  unique_qxarray_ptr a(qxCreateCharArray(2, dims));
  if (*length != 0) fl::i18n::decode_utf8(text, static_cast<qxChar*>(qxGetData(a.get())));
  return a;
}

double toDouble(const Json& j, const Path& at) {
  if (j.is_number()) return j.get<double>();
  const std::string s = j.is_string() ? j.get<std::string>() : "";
  if (s == "NaN") return std::numeric_limits<double>::quiet_NaN();
  if (s == "Inf" || s == "-Inf") return (s == "Inf" ? 1 : -1) * std::numeric_limits<double>::infinity();
  fail(at, "expected a number or \"NaN\", \"Inf\", \"-Inf\"");
}

template <class T>
T toInteger(const Json& j, const Path& at) {
  if (j.is_number_unsigned()) {
    if (!std::in_range<T>(j.get<std::uint64_t>())) fail(at, "integer out of range for its class");
    return static_cast<T>(j.get<std::uint64_t>());
  }
  std::int64_t v = 0;
  const double d = j.is_number_float() ? j.get<double>() : 0.0;
  if (j.is_number_integer()) {
    v = j.get<std::int64_t>();
  } else if (j.is_number_float() && std::trunc(d) == d && std::fabs(d) <= 9007199254740992.0) {
    v = static_cast<std::int64_t>(d);  // a whole number written with a fraction or exponent, held exactly
  } else {
    fail(at, "expected an integer");
  }
  if (!std::in_range<T>(v)) fail(at, "integer out of range for its class");
  return static_cast<T>(v);
}

// One element of a data array of C type T.
template <class T>
T toElement(const Json& j, const Path& at) {
  if constexpr (std::is_same_v<T, qxLogical>) {
    if (!j.is_boolean()) fail(at, "expected true or false");
    return j.get<bool>();
  } else if constexpr (std::is_same_v<T, qxChar>) {
    return toInteger<std::uint16_t>(j, at);
  } else if constexpr (std::is_floating_point_v<T>) {
    const double v = toDouble(j, at);
    if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<T>::max()) fail(at, "out of range for single");
    return static_cast<T>(v);
  } else {
    return toInteger<T>(j, at);
  }
}

void fill(qxClassID id, void* out, const Json& values, const Path& at) {
  withElementType(id, [&]<class T>(T) {
    for (std::size_t k = 0; k < values.size(); ++k) {
      const T v = toElement<T>(values[k], at / k);
      std::memcpy(static_cast<char*>(out) + k * sizeof(T), &v, sizeof v);
    }
  });
}

using Dims = std::pair<qxSize, const qxSize*>;

unique_qxarray_ptr convert(const Json& j, const Path& at, int depth);

std::vector<const Json*> elementsOf(const Json& array) {
  std::vector<const Json*> elements;
  for (const Json& e : array) elements.push_back(&e);
  return elements;
}

// "$dims", by default [1, number of "$data" elements].
std::vector<qxSize> readDims(const Json& j, const Json* data, const Path& at) {
  const auto dims = j.find("$dims");
  if (dims == j.end()) {
    return {1, data == nullptr ? 0 : data->is_string() ? utf16(*data, at / "$data").size() : data->size()};
  }
  if (!dims->is_array() || dims->empty()) fail(at / "$dims", "expected an array of dimensions");
  std::vector<qxSize> out;
  for (std::size_t k = 0; k < dims->size(); ++k) {
    const Json& d = (*dims)[k];
    if (!d.is_number_unsigned() && !(d.is_number_integer() && d.get<std::int64_t>() >= 0)) {
      fail(at / "$dims" / k, "expected a non-negative integer");
    }
    out.push_back(d.get<std::uint64_t>());
  }
  return out;
}

// "$data" as text, or as an array of UTF-16 code units (text with lone surrogates).
unique_qxarray_ptr charArray(const Json* data, Dims dims, qxSize count, const Path& at) {
  ustring units;
  if (data != nullptr && data->is_string()) {
    units = utf16(*data, at);
  } else if (data != nullptr && data->is_array()) {
    for (std::size_t k = 0; k < data->size(); ++k) units.push_back(toElement<qxChar>((*data)[k], at / k));
  } else if (data != nullptr) {
    fail(at, "expected text or an array of UTF-16 code units");
  }
  if (units.size() != count) {
    fail(at, "expected " + std::to_string(count) + " UTF-16 code units, got " + std::to_string(units.size()));
  }
  unique_qxarray_ptr a(qxCreateCharArray(dims.first, dims.second));
  if (count != 0) std::memcpy(qxGetData(a.get()), units.data(), count * sizeof(char16_t));
  return a;
}

// A structure or object from one JSON object per element, each holding exactly the fields in names
// (which come from namesAt). The elements stand at at/0, at/1, ...; single: the one element stands
// at `at` itself.
unique_qxarray_ptr structure(qxClassID classID, const std::string& className, Dims dims, const Names& names,
                             const Path& namesAt, const std::vector<const Json*>& elements, const Path& at,
                             int depth, bool single = false) {
  std::unordered_set<std::string_view> seen;
  std::vector<const char*> cnames;
  for (const std::string& name : names) {
    if (!isIdentifier(name)) fail(namesAt, "\"" + name + "\" is not a valid field name");
    if (!seen.insert(name).second) fail(namesAt, "duplicate field name \"" + name + "\"");
    cnames.push_back(name.c_str());
  }
  const int nfields = static_cast<int>(names.size());
  unique_qxarray_ptr s(classID == qxOBJECT_CLASS
                           ? qxCreateObjectArray(className.c_str(), dims.first, dims.second, nfields, cnames.data())
                           : qxCreateStructArray(dims.first, dims.second, nfields, cnames.data()));
  if (!s) fail(at, "this host cannot make objects");
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const Path element = single ? at : at / i;
    const Json& e = *elements[i];
    if (!e.is_object() || e.size() != names.size()) {
      fail(element, "expected an object with exactly the fields of the structure");
    }
    for (int n = 0; n < nfields; ++n) {
      const auto found = e.find(names[n]);
      if (found == e.end()) fail(element, "missing field \"" + names[n] + "\"");
      qxSetFieldByNumber(s.get(), i, n, convert(*found, element / names[n], depth + 1).release());
    }
  }
  return s;
}

unique_qxarray_ptr plainArray(const Json& j, const Path& at, int depth) {
  if (j.empty()) return unique_qxarray_ptr(qxCreateNumericMatrix(0, 0, qxDOUBLE_CLASS, qxREAL));
  bool strings = true;
  bool objects = true;
  for (const Json& e : j) {
    strings = strings && e.is_string();
    objects = objects && e.is_object() && !isTyped(e);
  }
  const qxSize dims[] = {1, j.size()};
  if (strings) {
    unique_qxarray_ptr cell(qxCreateCellArray(2, dims));
    for (std::size_t k = 0; k < j.size(); ++k) qxSetCell(cell.get(), k, charRow(j[k], at / k).release());
    return cell;
  }
  if (!objects) {
    fail(at, "an array must hold only strings or only objects with the same keys; use the typed form "
             "(\"$class\") for anything else");
  }
  return structure(qxSTRUCT_CLASS, "", {2, dims}, keysOf(j.front()), at / std::size_t{0}, elementsOf(j), at, depth);
}

unique_qxarray_ptr typed(const Json& j, const Path& at, int depth) {
  static const std::unordered_set<std::string_view> known = {"$class", "$className", "$dims",
                                                             "$fields", "$data", "$imag"};
  for (const auto& [key, value] : j.items()) {
    if (!known.contains(key)) fail(at, "unknown key \"" + key + "\" in a typed value");
  }
  const auto cls = j.find("$class");
  if (cls == j.end() || !cls->is_string()) fail(at, "a typed value needs \"$class\" as a string");
  const std::string& className = cls->get_ref<const std::string&>();

  const Json* data = j.contains("$data") ? &j["$data"] : nullptr;
  const Path dataAt = at / "$data";
  const std::vector<qxSize> dims = readDims(j, data, at);
  const Dims shape{dims.size(), dims.data()};
  qxSize count = 1;
  for (qxSize d : dims) {
    if (__builtin_mul_overflow(count, d, &count)) fail(at / "$dims", "too many elements");
  }
  qxClassID numeric = qxUNKNOWN_CLASS;
  for (int id = qxDOUBLE_CLASS; id <= qxUINT64_CLASS; ++id) {
    if (className == kClassNames[id]) numeric = static_cast<qxClassID>(id);
  }
  const bool structLike = className == "struct" || className == "object";
  for (const auto& [key, allowed] : {std::pair{"$imag", numeric != qxUNKNOWN_CLASS}, std::pair{"$fields", structLike},
                                     std::pair{"$className", className == "object"}}) {
    if (!allowed && j.contains(key)) fail(at, "\"" + std::string(key) + "\" does not apply to class " + className);
  }

  if (className == "char") return charArray(data, shape, count, dataAt);
  // Every other class takes "$data" as an array with one entry per element.
  if (data == nullptr ? count != 0 : (!data->is_array() || data->size() != count)) {
    fail(dataAt, "expected an array of " + std::to_string(count) + " elements");
  }
  static const Json none = Json::array();
  const Json& values = data ? *data : none;
  if (numeric != qxUNKNOWN_CLASS || className == "logical") {
    const auto imag = j.find("$imag");
    if (imag != j.end() && (!imag->is_array() || imag->size() != values.size())) {
      fail(at / "$imag", "expected an array as long as \"$data\"");
    }
    unique_qxarray_ptr a(numeric == qxUNKNOWN_CLASS
                             ? qxCreateLogicalArray(shape.first, shape.second)
                             : qxCreateNumericArray(shape.first, shape.second, numeric,
                                                    imag != j.end() ? qxCOMPLEX : qxREAL));
    fill(qxGetClassID(a.get()), qxGetData(a.get()), values, dataAt);
    if (imag != j.end()) fill(numeric, qxGetImagData(a.get()), *imag, at / "$imag");
    return a;
  }
  if (className == "cell") {
    unique_qxarray_ptr a(qxCreateCellArray(shape.first, shape.second));
    for (std::size_t k = 0; k < count; ++k) qxSetCell(a.get(), k, convert(values[k], dataAt / k, depth + 1).release());
    return a;
  }
  if (!structLike) fail(at / "$class", "unknown class \"" + className + "\"");
  std::string objectClass;
  if (className == "object") {
    const auto name = j.find("$className");
    if (name == j.end() || !name->is_string() || !isIdentifier(name->get_ref<const std::string&>())) {
      fail(at, "an object needs \"$className\", a class name");
    }
    objectClass = name->get<std::string>();
  }
  Names names;
  const auto fields = j.find("$fields");
  if (fields != j.end()) {
    if (!fields->is_array()) fail(at / "$fields", "expected an array of field names");
    for (std::size_t k = 0; k < fields->size(); ++k) {
      if (!(*fields)[k].is_string()) fail(at / "$fields" / k, "expected a field name");
      names.push_back((*fields)[k].get<std::string>());
    }
  } else if (!values.empty() && values.front().is_object()) {
    names = keysOf(values.front());
  }
  return structure(className == "object" ? qxOBJECT_CLASS : qxSTRUCT_CLASS, objectClass, shape, names,
                   fields != j.end() ? at / "$fields" : dataAt / std::size_t{0}, elementsOf(values), dataAt, depth);
}

unique_qxarray_ptr convert(const Json& j, const Path& at, int depth) {
  if (depth > maxDepth) fail(at, "nested too deeply");
  switch (j.type()) {
    case Json::value_t::null:
      return unique_qxarray_ptr(qxCreateNumericMatrix(0, 0, qxDOUBLE_CLASS, qxREAL));
    case Json::value_t::boolean:
      return unique_qxarray_ptr(qxCreateLogicalScalar(j.get<bool>()));
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
      return unique_qxarray_ptr(qxCreateDoubleScalar(j.get<double>()));
    case Json::value_t::string:
      return charRow(j, at);
    case Json::value_t::array:
      return plainArray(j, at, depth);
    case Json::value_t::object: {
      if (isTyped(j)) return typed(j, at, depth);
      const qxSize one[] = {1, 1};
      return structure(qxSTRUCT_CLASS, "", {2, one}, keysOf(j), at, {&j}, at, depth, /*single=*/true);
    }
    default:
      fail(at, "unsupported JSON value");
  }
}

}  // namespace

matrix::unique_qxarray_ptr toOwnedArray(const Json& value) {
  return convert(value, Path{}, 0);
}

}  // namespace zvhost::json
