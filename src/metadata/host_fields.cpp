#include "metadata/host_fields.h"

namespace addon::packaging {

RecordEntry::~RecordEntry() = default;

namespace hostio {

const qxArray* field(const qxArray* structure, const char* name, qxIndex index) {
  return structure == nullptr ? nullptr : qxGetField(structure, index, name);
}

ustring readString(const qxArray* structure, const char* name, qxIndex index) {
  return matrix::get_ustring(field(structure, name, index));
}

std::vector<ustring> readStringList(const qxArray* value) {
  std::vector<ustring> texts;
  if (qxIsEmpty(value)) return texts;
  if (!qxIsCell(value)) return {matrix::get_ustring(value)};
  for (qxSize i = 0; i < qxGetNumberOfElements(value); ++i) texts.push_back(matrix::get_ustring(qxGetCell(value, i)));
  return texts;
}

void forEachElement(const qxArray* structArray, const std::function<void(const qxArray*)>& visit) {
  for (qxSize i = 0; i < qxGetNumberOfElements(structArray); ++i) {
    ArrayPtr subscript(qxCreateNumericMatrix(1, 1, qxUINT64_CLASS, qxREAL));
    *static_cast<std::uint64_t*>(qxGetData(subscript.get())) = i + 1;
    const qxArray* subscripts[1] = {subscript.get()};
    const ArrayPtr element(qxSubscriptedReference(structArray, 1, subscripts));
    visit(element.get());
  }
}

ArrayPtr createStruct(const std::vector<const char*>& names) {
  const qxSize dims[2] = {1, 1};
  return ArrayPtr(qxCreateStructArray(2, dims, static_cast<int>(names.size()), const_cast<const char**>(names.data())));
}

ArrayPtr createList(const std::vector<const char*>& names, qxSize count) {
  const qxSize dims[1] = {count};
  return ArrayPtr(qxCreateStructArray(1, dims, static_cast<int>(names.size()), const_cast<const char**>(names.data())));
}

void setField(qxArray* structure, const char* name, ArrayPtr value, qxIndex index) {
  qxSetField(structure, index, name, value.release());
}

void setString(qxArray* structure, const char* name, const ustring& text, qxIndex index) {
  setField(structure, name, ArrayPtr(qxCreateString_UTF16(text.c_str())), index);
}

ArrayPtr makeStringList(const std::vector<ustring>& texts) {
  const qxSize dims[2] = {1, texts.size()};
  ArrayPtr cell(qxCreateCellArray(2, dims));
  for (qxSize i = 0; i < texts.size(); ++i) qxSetCell(cell.get(), i, qxCreateString_UTF16(texts[i].c_str()));
  return cell;
}

XercesString xmlName(const char* name) { return ustring(name, name + std::char_traits<char>::length(name)); }

const DOMElement* rootOf(xercesc::DOMDocument* document) {
  return document == nullptr ? nullptr : document->getDocumentElement();
}

}  // namespace hostio
}  // namespace addon::packaging
