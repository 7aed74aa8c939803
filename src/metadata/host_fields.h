#pragma once
// What the records share: the base of their entry classes, and the moves of text between host
// structures, entries and XML, driven by one table of names per entry class. A name is the same on
// both sides: a host field and an XML attribute (or element). Host errors raised by the conversions
// (a field that is not text, say) propagate as the host raises them; every array made here is owned
// by a handle until it is stored in its container.
//
// Errors of every record class: host conversion errors from its structure constructor, host errors
// from getStructArray, opc::Exception from the XML operations; a failed constructor or
// getStructArray leaks nothing.
#include <cstdint>
#include <functional>
#include <iterator>
#include <span>
#include <type_traits>
#include <vector>

#include <xercesc/dom/DOMElement.hpp>

#include "foundation/ustring.h"
#include "host/matrix.h"
#include "host/qx.h"
#include "package/xml_part_type.h"

namespace addon::packaging {

// Base of the records' entry classes: destroyed through the base, copied and moved as values.
class ZV_API RecordEntry {
 public:
  RecordEntry() = default;
  RecordEntry(const RecordEntry&) = default;
  RecordEntry(RecordEntry&&) = default;
  RecordEntry& operator=(const RecordEntry&) = default;
  RecordEntry& operator=(RecordEntry&&) = default;
  virtual ~RecordEntry();
};

namespace hostio {

using ArrayPtr = matrix::unique_qxarray_ptr;
using opc::model::XercesHelper;
using opc::model::XercesString;
using xercesc::DOMElement;

// One text member of T and its name. Tables of them are arrays, or spans of a part of one.
template <class T>
struct Text {
  using Entry = T;
  const char* name;
  ustring T::*member;
};
template <class Table>
using EntryOf = typename std::remove_cvref_t<decltype(*std::begin(std::declval<Table&>()))>::Entry;

// The field's value in element `index`, or null when the structure, the field or the value is missing.
[[nodiscard]] const qxArray* field(const qxArray* structure, const char* name, qxIndex index = 0);
// Text of a field through the host's string conversion: a missing field or a non-text value is the
// host's error, as for any string input.
[[nodiscard]] ustring readString(const qxArray* structure, const char* name, qxIndex index = 0);
// Texts of a cell array in element order; a value that is not a cell gives its one text, an empty
// value none. Each element goes through the host's string conversion.
[[nodiscard]] std::vector<ustring> readStringList(const qxArray* value);
// Calls visit(element) for each element of a structure array in order, each taken as a one-element
// structure through the host's subscripted reference with a 1-based uint64 index.
void forEachElement(const qxArray* structArray, const std::function<void(const qxArray*)>& visit);

// A new 1-by-1 structure with `names` as its fields, in that order.
[[nodiscard]] ArrayPtr createStruct(const std::vector<const char*>& names);
// A new structure array of `count` elements, created with that one dimension as records make their
// entry lists (what shape the host gives it is the host's business).
[[nodiscard]] ArrayPtr createList(const std::vector<const char*>& names, qxSize count);
// Stores value in field `name` of element `index`; the structure takes ownership.
void setField(qxArray* structure, const char* name, ArrayPtr value, qxIndex index = 0);
void setString(qxArray* structure, const char* name, const ustring& text, qxIndex index = 0);
// A new 1-by-n cell array of strings.
[[nodiscard]] ArrayPtr makeStringList(const std::vector<ustring>& texts);

// A name as XML takes it.
[[nodiscard]] XercesString xmlName(const char* name);

inline std::vector<const char*> namesOf(const auto& texts, std::vector<const char*> more = {}) {
  std::vector<const char*> names;
  for (const auto& t : texts) names.push_back(t.name);
  names.insert(names.end(), more.begin(), more.end());
  return names;
}

template <class T>
void readTexts(const qxArray* structure, qxIndex index, const auto& texts, T& out) {
  for (const auto& t : texts) out.*t.member = readString(structure, t.name, index);
}

template <class T>
void writeTexts(qxArray* structure, qxIndex index, const auto& texts, const T& in) {
  for (const auto& t : texts) setString(structure, t.name, in.*t.member, index);
}

// Every attribute is written, empty ones included; an absent attribute reads as empty.
template <class T>
void setAttributes(DOMElement* element, const auto& texts, const T& in) {
  for (const auto& t : texts) XercesHelper::setElementAttribute(element, xmlName(t.name), in.*t.member);
}

template <class T>
void getAttributes(const DOMElement* element, const auto& texts, T& out) {
  for (const auto& t : texts) (void)XercesHelper::getElementAttribute(element, xmlName(t.name), out.*t.member);
}

// One entry per element i of a structure array, read field by field in table order, then by
// more(entry, i); an array without elements gives none.
template <class Table, class More>
std::vector<EntryOf<Table>> readList(const qxArray* input, const Table& texts, More&& more) {
  std::vector<EntryOf<Table>> entries;
  for (qxSize i = 0; i < qxGetNumberOfElements(input); ++i) {
    readTexts(input, i, texts, entries.emplace_back());
    more(entries.back(), i);
  }
  return entries;
}

// A structure array of one element per entry with the table's fields and then `more`, each element
// written in table order and then by write(array, i, entry).
template <class T, class Write>
ArrayPtr writeList(const std::vector<T>& entries, const auto& texts, std::vector<const char*> more, Write&& write) {
  ArrayPtr list = createList(namesOf(texts, std::move(more)), entries.size());
  for (qxSize i = 0; i < entries.size(); ++i) {
    writeTexts(list.get(), i, texts, entries[i]);
    write(list.get(), i, entries[i]);
  }
  return list;
}

// The document's root element, or null.
[[nodiscard]] const DOMElement* rootOf(xercesc::DOMDocument* document);

}  // namespace hostio
}  // namespace addon::packaging
