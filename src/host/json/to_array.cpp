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
#include <vector>

#include "foundation/i18n.h"
#include "host/common/utf8.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

using matrix::unique_qxarray_ptr;

// Deeper documents are refused rather than risking the stack.
constexpr int maxDepth = 200;

// Where a value sits in the document; materialised as a JSON pointer only when reporting an error.
struct Path {
  const Path* parent = nullptr;
  std::string_view key;
  std::size_t index = 0;
  bool isIndex = false;

  [[nodiscard]] Path operator/(std::string_view k) const { return Path{this, k, 0, false}; }
  [[nodiscard]] Path operator/(std::size_t i) const { return Path{this, {}, i, true}; }

  [[nodiscard]] std::string pointer() const {
    if (parent == nullptr) return "";
    std::string token;
    if (isIndex) {
      token = std::to_string(index);
    } else {
      for (char c : key) {
        if (c == '~') token += "~0";
        else if (c == '/') token += "~1";
        else token += c;
      }
    }
    return parent->pointer() + "/" + token;
  }
};

[[noreturn]] void fail(const Path& at, const std::string& what) {
  const std::string where = at.parent == nullptr ? "the top level" : at.pointer();
  throw std::invalid_argument("JSON value at " + where + ": " + what);
}

bool isIdentifier(std::string_view name) {
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (name.empty() || !letter(name.front())) return false;
  for (char c : name) {
    if (!letter(c) && !(c >= '0' && c <= '9') && c != '_') return false;
  }
  return true;
}

bool isTyped(const Json& j) {
  if (!j.is_object()) return false;
  for (const auto& [key, value] : j.items()) {
    if (!key.empty() && key.front() == '$') return true;
  }
  return false;
}

ustring utf16(const std::string& text, const Path& at) {
  try {
    return fl::i18n::from_utf8(text);
  } catch (const fl::i18n::conversion_error& e) {
    fail(at, std::string("text is not valid UTF-8 (") + e.what() + ")");
  }
}

unique_qxarray_ptr charRow(const ustring& text) {
  const qxSize dims[] = {1, text.size()};
  unique_qxarray_ptr a(qxCreateCharArray(2, dims));
  if (!text.empty()) std::memcpy(qxGetData(a.get()), text.data(), text.size() * sizeof(char16_t));
  return a;
}

// A JSON string as a char row, decoded straight into the array. Text that is not well-formed goes to
// the checked converter, whose error names it.
unique_qxarray_ptr charRow(const std::string& text, const Path& at) {
  const std::optional<std::size_t> length = utf8::utf16Length(text);
  if (!length) return charRow(utf16(text, at));
  const qxSize dims[] = {1, *length};
  unique_qxarray_ptr a(qxCreateCharArray(2, dims));
  if (*length != 0) utf8::decode(text, static_cast<qxChar*>(qxGetData(a.get())));
  return a;
}

std::optional<double> special(const Json& j) {
  if (!j.is_string()) return std::nullopt;
  const auto& s = j.get_ref<const std::string&>();
  if (s == "NaN") return std::numeric_limits<double>::quiet_NaN();
  if (s == "Inf") return std::numeric_limits<double>::infinity();
  if (s == "-Inf") return -std::numeric_limits<double>::infinity();
  return std::nullopt;
}

double toDouble(const Json& j, const Path& at) {
  if (j.is_number()) return j.get<double>();
  if (auto v = special(j)) return *v;
  fail(at, "expected a number or \"NaN\", \"Inf\", \"-Inf\"");
}

float toSingle(const Json& j, const Path& at) {
  const double v = toDouble(j, at);
  if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max()) fail(at, "out of range for single");
  return static_cast<float>(v);
}

template <class T>
T toInteger(const Json& j, const Path& at) {
  if (j.is_number_unsigned()) {
    const auto v = j.get<std::uint64_t>();
    if (v > static_cast<std::uint64_t>(std::numeric_limits<T>::max())) fail(at, "integer out of range for its class");
    return static_cast<T>(v);
  }
  std::int64_t v = 0;
  if (j.is_number_integer()) {
    v = j.get<std::int64_t>();
  } else if (j.is_number_float()) {
    // Whole numbers written with a fraction or exponent are accepted while a double holds them exactly.
    const double d = j.get<double>();
    if (std::trunc(d) != d || std::fabs(d) > 9007199254740992.0) fail(at, "expected an integer");
    v = static_cast<std::int64_t>(d);
  } else {
    fail(at, "expected an integer");
  }
  if constexpr (std::is_unsigned_v<T>) {
    if (v < 0) fail(at, "integer out of range for its class");
    if (static_cast<std::uint64_t>(v) > std::numeric_limits<T>::max()) fail(at, "integer out of range for its class");
  } else {
    if (v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max()) fail(at, "integer out of range for its class");
  }
  return static_cast<T>(v);
}

template <class T, class Read>
void fillData(void* data, const Json& values, const Path& at, Read read) {
  auto* out = static_cast<T*>(data);
  for (std::size_t k = 0; k < values.size(); ++k) out[k] = read(values[k], at / k);
}

struct ClassEntry {
  std::string_view name;
  qxClassID id;
};

constexpr ClassEntry numericClasses[] = {
    {"double", qxDOUBLE_CLASS}, {"single", qxSINGLE_CLASS}, {"int8", qxINT8_CLASS},
    {"uint8", qxUINT8_CLASS},   {"int16", qxINT16_CLASS},   {"uint16", qxUINT16_CLASS},
    {"int32", qxINT32_CLASS},   {"uint32", qxUINT32_CLASS}, {"int64", qxINT64_CLASS},
    {"uint64", qxUINT64_CLASS},
};

class Converter {
 public:
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
        return charRow(j.get_ref<const std::string&>(), at);
      case Json::value_t::array:
        return plainArray(j, at, depth);
      case Json::value_t::object:
        return isTyped(j) ? typed(j, at, depth) : plainStruct(j, at, depth);
      default:
        fail(at, "unsupported JSON value");
    }
  }

 private:
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
      for (std::size_t k = 0; k < j.size(); ++k) {
        qxSetCell(cell.get(), k, charRow(j[k].get_ref<const std::string&>(), at / k).release());
      }
      return cell;
    }
    if (!objects) {
      fail(at, "an array must hold only strings or only objects with the same keys; use the typed form "
               "(\"$class\") for anything else");
    }
    std::vector<std::string> names;
    for (const auto& [key, value] : j.front().items()) names.push_back(key);
    std::vector<const Json*> elements;
    for (const Json& e : j) elements.push_back(&e);
    return structElements(qxSTRUCT_CLASS, "", 2, dims, names, at / std::size_t{0}, elements, at, depth);
  }

  unique_qxarray_ptr plainStruct(const Json& j, const Path& at, int depth) {
    std::vector<std::string> names;
    for (const auto& [key, value] : j.items()) names.push_back(key);
    const qxSize dims[] = {1, 1};
    return structElements(qxSTRUCT_CLASS, "", 2, dims, names, at, {&j}, at, depth, /*single=*/true);
  }

  // Builds a structure or object from one JSON object per element, each holding exactly the fields in
  // names (which come from namesAt). The elements stand at at/0, at/1, ...; single: the one element
  // stands at `at` itself.
  unique_qxarray_ptr structElements(qxClassID classID, const std::string& className, qxSize ndim,
                                    const qxSize* dims, const std::vector<std::string>& names,
                                    const Path& namesAt, const std::vector<const Json*>& elements,
                                    const Path& at, int depth, bool single = false) {
    std::unordered_set<std::string_view> seen;
    for (const std::string& name : names) {
      if (!isIdentifier(name)) fail(namesAt, "\"" + name + "\" is not a valid field name");
      if (!seen.insert(name).second) fail(namesAt, "duplicate field name \"" + name + "\"");
    }
    std::vector<const char*> cnames;
    for (const std::string& name : names) cnames.push_back(name.c_str());
    const int nfields = static_cast<int>(names.size());
    unique_qxarray_ptr s(classID == qxOBJECT_CLASS
                             ? qxCreateObjectArray(className.c_str(), ndim, dims, nfields, cnames.data())
                             : qxCreateStructArray(ndim, dims, nfields, cnames.data()));
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
    const std::vector<qxSize> dims = readDims(j, data, at);
    qxSize count = 1;
    for (qxSize d : dims) {
      if (__builtin_mul_overflow(count, d, &count)) fail(at / "$dims", "too many elements");
    }
    auto allow = [&](std::string_view key, bool allowed) {
      if (allowed || !j.contains(key)) return;
      std::string message(1, '"');
      message.append(key).append("\" does not apply to class ").append(className);
      fail(at, message);
    };
    const bool structLike = className == "struct" || className == "object";
    bool numeric = false;
    for (const ClassEntry& c : numericClasses) numeric = numeric || c.name == className;
    allow("$imag", numeric);
    allow("$fields", structLike);
    allow("$className", className == "object");

    if (className == "char") {
      return charArray(data, dims, count, at / "$data");
    }
    // Every other class takes "$data" as an array with one entry per element.
    if (data == nullptr ? count != 0 : (!data->is_array() || data->size() != count)) {
      fail(at / "$data", "expected an array of " + std::to_string(count) + " elements");
    }
    static const Json none = Json::array();
    const Json& values = data ? *data : none;
    const Path dataAt = at / "$data";
    for (const ClassEntry& c : numericClasses) {
      if (c.name == className) return numericArray(c.id, dims, values, j, at);
    }
    if (className == "logical") {
      unique_qxarray_ptr a(qxCreateLogicalArray(dims.size(), dims.data()));
      fillData<qxLogical>(qxGetData(a.get()), values, dataAt, [](const Json& v, const Path& p) {
        if (!v.is_boolean()) fail(p, "expected true or false");
        return v.get<bool>();
      });
      return a;
    }
    if (className == "cell") {
      unique_qxarray_ptr a(qxCreateCellArray(dims.size(), dims.data()));
      for (std::size_t k = 0; k < count; ++k) {
        qxSetCell(a.get(), k, convert(values[k], dataAt / k, depth + 1).release());
      }
      return a;
    }
    if (structLike) {
      std::string objectClass;
      if (className == "object") {
        const auto name = j.find("$className");
        if (name == j.end() || !name->is_string() || !isIdentifier(name->get_ref<const std::string&>())) {
          fail(at, "an object needs \"$className\", a class name");
        }
        objectClass = name->get<std::string>();
      }
      std::vector<std::string> names;
      const bool explicitFields = j.contains("$fields");
      if (const auto fields = j.find("$fields"); fields != j.end()) {
        if (!fields->is_array()) fail(at / "$fields", "expected an array of field names");
        for (std::size_t k = 0; k < fields->size(); ++k) {
          if (!(*fields)[k].is_string()) fail(at / "$fields" / k, "expected a field name");
          names.push_back((*fields)[k].get<std::string>());
        }
      } else if (!values.empty() && values.front().is_object()) {
        for (const auto& [key, value] : values.front().items()) names.push_back(key);
      }
      std::vector<const Json*> elements;
      for (const Json& e : values) elements.push_back(&e);
      return structElements(className == "object" ? qxOBJECT_CLASS : qxSTRUCT_CLASS, objectClass, dims.size(),
                            dims.data(), names, explicitFields ? at / "$fields" : dataAt / std::size_t{0}, elements,
                            dataAt, depth);
    }
    fail(at / "$class", "unknown class \"" + className + "\"");
  }

  static std::vector<qxSize> readDims(const Json& j, const Json* data, const Path& at) {
    const auto dims = j.find("$dims");
    if (dims == j.end()) {
      const std::size_t n = data == nullptr ? 0 : data->is_string() ? utf16Length(*data, at / "$data") : data->size();
      return {1, n};
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

  static std::size_t utf16Length(const Json& text, const Path& at) {
    return utf16(text.get_ref<const std::string&>(), at).size();
  }

  static unique_qxarray_ptr charArray(const Json* data, const std::vector<qxSize>& dims, qxSize count,
                                      const Path& at) {
    ustring units;
    if (data == nullptr) {
      // no elements given
    } else if (data->is_string()) {
      units = utf16(data->get_ref<const std::string&>(), at);
    } else if (data->is_array()) {
      for (std::size_t k = 0; k < data->size(); ++k) units.push_back(toInteger<char16_t>((*data)[k], at / k));
    } else {
      fail(at, "expected text or an array of UTF-16 code units");
    }
    if (units.size() != count) {
      fail(at, "expected " + std::to_string(count) + " UTF-16 code units, got " + std::to_string(units.size()));
    }
    unique_qxarray_ptr a(qxCreateCharArray(dims.size(), dims.data()));
    if (count != 0) std::memcpy(qxGetData(a.get()), units.data(), count * sizeof(char16_t));
    return a;
  }

  static unique_qxarray_ptr numericArray(qxClassID id, const std::vector<qxSize>& dims, const Json& values,
                                         const Json& j, const Path& at) {
    const auto imag = j.find("$imag");
    if (imag != j.end() && (!imag->is_array() || imag->size() != values.size())) {
      fail(at / "$imag", "expected an array as long as \"$data\"");
    }
    unique_qxarray_ptr a(
        qxCreateNumericArray(dims.size(), dims.data(), id, imag != j.end() ? qxCOMPLEX : qxREAL));
    auto fill = [&](void* out, const Json& in, const Path& p) {
      switch (id) {
        case qxDOUBLE_CLASS: return fillData<double>(out, in, p, toDouble);
        case qxSINGLE_CLASS: return fillData<float>(out, in, p, toSingle);
        case qxINT8_CLASS: return fillData<std::int8_t>(out, in, p, toInteger<std::int8_t>);
        case qxUINT8_CLASS: return fillData<std::uint8_t>(out, in, p, toInteger<std::uint8_t>);
        case qxINT16_CLASS: return fillData<std::int16_t>(out, in, p, toInteger<std::int16_t>);
        case qxUINT16_CLASS: return fillData<std::uint16_t>(out, in, p, toInteger<std::uint16_t>);
        case qxINT32_CLASS: return fillData<std::int32_t>(out, in, p, toInteger<std::int32_t>);
        case qxUINT32_CLASS: return fillData<std::uint32_t>(out, in, p, toInteger<std::uint32_t>);
        case qxINT64_CLASS: return fillData<std::int64_t>(out, in, p, toInteger<std::int64_t>);
        default: return fillData<std::uint64_t>(out, in, p, toInteger<std::uint64_t>);
      }
    };
    fill(qxGetData(a.get()), values, at / "$data");
    if (imag != j.end()) fill(qxGetImagData(a.get()), *imag, at / "$imag");
    return a;
  }
};

}  // namespace

qxArray* toArray(const Json& value) { return toOwnedArray(value).release(); }

matrix::unique_qxarray_ptr toOwnedArray(const Json& value) {
  Converter converter;
  return converter.convert(value, Path{}, 0);
}

}  // namespace zvhost::json
