#pragma once
// Reading and writing record fields in host structures: the few moves every metadata record makes.
// Host errors raised by the conversions (a field that is not text, say) propagate as the host raises
// them; every array made here is owned by a handle until it is stored in its container.
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "foundation/ustring.h"
#include "host/matrix.h"
#include "host/qx.h"

namespace addon::packaging::hostio {

using ArrayPtr = matrix::unique_qxarray_ptr;

// The field's value in element `index`, or null when the field or the value is missing.
[[nodiscard]] const qxArray* field(const qxArray* structure, const char* name, qxIndex index = 0);

// Text of a field through the host's string conversion: a missing field or a non-text value is the
// host's error, as for any string input.
[[nodiscard]] ustring readString(const qxArray* structure, const char* name, qxIndex index = 0);

// Texts of a cell array in element order; a value that is not a cell gives its one text, an empty
// value none. Each element goes through the host's string conversion.
[[nodiscard]] std::vector<ustring> readStringList(const qxArray* value);

// Calls `visit(element)` for each element of a structure array in order, each element taken as a
// one-element structure through the host's subscripted reference with a 1-based uint64 index.
template <class Visit>
void forEachElement(const qxArray* structArray, Visit&& visit);

// A new 1-by-n structure array with `names` as its fields, in that order.
[[nodiscard]] ArrayPtr createStruct(std::initializer_list<const char*> names, qxSize count = 1);
[[nodiscard]] ArrayPtr createStruct(const std::vector<const char*>& names, qxSize count = 1);
// A new structure array of `count` elements created with that one dimension, as records make their
// entry lists; what shape the host gives it is the host's business.
[[nodiscard]] ArrayPtr createStructList(const std::vector<const char*>& names, qxSize count);

// A new host string of the text.
[[nodiscard]] ArrayPtr makeString(const ustring& text);

// A new 1-by-n cell array of strings.
[[nodiscard]] ArrayPtr makeStringList(const std::vector<ustring>& texts);

// Stores `value` in field `name` of element `index`; the structure takes ownership.
void setField(qxArray* structure, const char* name, ArrayPtr value, qxIndex index = 0);
inline void setString(qxArray* structure, const char* name, const ustring& text, qxIndex index = 0) {
  setField(structure, name, makeString(text), index);
}

// Element `index1` (1-based) of `value` as a new one-element array.
[[nodiscard]] ArrayPtr elementAt(const qxArray* value, std::uint64_t index1);

template <class Visit>
void forEachElement(const qxArray* structArray, Visit&& visit) {
  if (structArray == nullptr) return;
  const qxSize count = qxGetNumberOfElements(structArray);
  for (qxSize i = 0; i < count; ++i) {
    ArrayPtr element = elementAt(structArray, i + 1);
    visit(static_cast<const qxArray*>(element.get()));
  }
}

}  // namespace addon::packaging::hostio
