// Host arrays to JSON: the plain form whenever one exists, the typed form otherwise.
#include <cmath>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "foundation/i18n.h"
#include "host/common/host_common.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

std::size_t count(const qxArray* a) { return qxGetNumberOfElements(a); }

ustring_view units(const qxArray* a) {
  const auto* p = static_cast<const qxChar*>(qxGetData(a));
  return p ? ustring_view(p, count(a)) : ustring_view();
}

// Text that is valid UTF-16; nothing when it holds a lone surrogate.
std::optional<std::string> utf8(const qxArray* a) {
  try {
    return fl::i18n::to_utf8(units(a));
  } catch (const fl::i18n::conversion_error&) {
    return std::nullopt;
  }
}

Json floating(double v) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
  return v;
}

Json dataElements(qxClassID id, const void* data, std::size_t n) {
  Json out = Json::array();
  withElementType(id, [&]<class T>(T) {
    for (std::size_t k = 0; k < n; ++k) {
      const T v = elementAt<T>(data, k);
      if constexpr (std::is_floating_point_v<T>) {
        out.push_back(floating(v));
      } else if constexpr (std::is_same_v<T, qxLogical>) {
        out.push_back(v);
      } else if constexpr (std::is_signed_v<T>) {
        out.push_back(static_cast<std::int64_t>(v));
      } else {
        out.push_back(static_cast<std::uint64_t>(v));  // char code units among them
      }
    }
  });
  return out;
}

Json typedHead(const qxArray* a, const char* cls) {
  Json out = Json::object();
  out["$class"] = cls;
  if (qxIsObject(a)) out["$className"] = qxGetClassName(a);
  Json dims = Json::array();
  const qxSize* d = qxGetDimensions(a);
  for (qxSize k = 0; k < qxGetNumberOfDimensions(a); ++k) dims.push_back(static_cast<std::uint64_t>(d[k]));
  out["$dims"] = std::move(dims);
  return out;
}

Json structElement(const qxArray* a, qxIndex i) {
  Json out = Json::object();
  for (int n = 0; n < qxGetNumberOfFields(a); ++n) {
    out[qxGetFieldNameByNumber(a, n)] = fromArray(qxGetFieldByNumber(a, i, n));
  }
  return out;
}

Json structure(const qxArray* a) {
  Json data = Json::array();
  for (std::size_t i = 0; i < count(a); ++i) data.push_back(structElement(a, i));
  if (qxIsStruct(a) && isRow(a) && count(a) >= 1) return count(a) == 1 ? data[0] : data;
  Json out = typedHead(a, qxIsObject(a) ? "object" : "struct");
  Json names = Json::array();
  for (int k = 0; k < qxGetNumberOfFields(a); ++k) names.push_back(qxGetFieldNameByNumber(a, k));
  out["$fields"] = std::move(names);
  out["$data"] = std::move(data);
  return out;
}

Json cell(const qxArray* a) {
  const std::size_t n = count(a);
  if (isRow(a) && n >= 1) {
    // A row of plain strings is a JSON array of strings; each is converted once.
    Json out = Json::array();
    for (std::size_t k = 0; k < n; ++k) {
      const qxArray* element = qxGetCell(a, k);
      std::optional<std::string> narrow = qxIsChar(element) && isRow(element) ? utf8(element) : std::nullopt;
      if (!narrow) break;
      out.push_back(*std::move(narrow));
    }
    if (out.size() == n) return out;
  }
  Json out = typedHead(a, "cell");
  Json data = Json::array();
  for (std::size_t k = 0; k < n; ++k) data.push_back(fromArray(qxGetCell(a, k)));
  out["$data"] = std::move(data);
  return out;
}

Json text(const qxArray* a) {
  auto narrow = utf8(a);
  if (narrow && isRow(a)) return *std::move(narrow);
  Json out = typedHead(a, "char");
  if (narrow) {
    out["$data"] = *std::move(narrow);
  } else {
    out["$data"] = dataElements(qxCHAR_CLASS, qxGetData(a), count(a));
  }
  return out;
}

Json dataArray(const qxArray* a) {
  const qxClassID id = qxGetClassID(a);
  const std::size_t n = count(a);
  const bool real = !qxIsComplex(a);
  if (isUnsetLike(a)) return nullptr;
  if (id == qxDOUBLE_CLASS && real && n == 1) {
    const double v = qxGetScalar(a);
    if (std::isfinite(v)) return v;
  }
  if (id == qxLOGICAL_CLASS && n == 1) return qxGetScalar(a) != 0.0;
  Json out = typedHead(a, qxGetClassName(a));
  out["$data"] = dataElements(id, qxGetData(a), n);
  if (!real) out["$imag"] = dataElements(id, qxGetImagData(a), n);
  return out;
}

}  // namespace

Json fromArray(const qxArray* a) {
  if (a == nullptr) return nullptr;
  switch (qxGetClassID(a)) {
    case qxSTRUCT_CLASS:
    case qxOBJECT_CLASS:
      return structure(a);
    case qxCELL_CLASS:
      return cell(a);
    case qxCHAR_CLASS:
      return text(a);
    default:
      if (qxIsLogical(a) || qxIsNumeric(a)) return dataArray(a);
      throw std::invalid_argument(std::string("no JSON form for a value of class ") + qxGetClassName(a));
  }
}

}  // namespace zvhost::json
