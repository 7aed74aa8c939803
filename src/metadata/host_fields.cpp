#include "metadata/host_fields.h"

namespace addon::packaging::hostio {

const qxArray* field(const qxArray* structure, const char* name, qxIndex index) {
  if (structure == nullptr) return nullptr;
  return qxGetField(structure, index, name);
}

ustring readString(const qxArray* structure, const char* name, qxIndex index) {
  return matrix::get_ustring(field(structure, name, index));
}

std::vector<ustring> readStringList(const qxArray* value) {
  std::vector<ustring> texts;
  if (value == nullptr || qxIsEmpty(value)) return texts;
  if (!qxIsCell(value)) {
    texts.push_back(matrix::get_ustring(value));
    return texts;
  }
  const qxSize count = qxGetNumberOfElements(value);
  texts.reserve(count);
  for (qxSize i = 0; i < count; ++i) texts.push_back(matrix::get_ustring(qxGetCell(value, i)));
  return texts;
}

ArrayPtr createStruct(const std::vector<const char*>& names, qxSize count) {
  const qxSize dims[2] = {1, count};
  std::vector<const char*> fields(names.begin(), names.end());
  ArrayPtr result(qxCreateStructArray(2, dims, static_cast<int>(fields.size()), fields.data()));
  return result;
}

ArrayPtr createStruct(std::initializer_list<const char*> names, qxSize count) {
  return createStruct(std::vector<const char*>(names), count);
}

ArrayPtr createStructList(const std::vector<const char*>& names, qxSize count) {
  const qxSize dims[1] = {count};
  std::vector<const char*> fields(names);
  return ArrayPtr(qxCreateStructArray(1, dims, static_cast<int>(fields.size()), fields.data()));
}

ArrayPtr makeString(const ustring& text) { return ArrayPtr(qxCreateString_UTF16(text.c_str())); }

ArrayPtr makeStringList(const std::vector<ustring>& texts) {
  const qxSize dims[2] = {1, texts.size()};
  ArrayPtr cell(qxCreateCellArray(2, dims));
  for (qxSize i = 0; i < texts.size(); ++i) qxSetCell(cell.get(), i, makeString(texts[i]).release());
  return cell;
}

void setField(qxArray* structure, const char* name, ArrayPtr value, qxIndex index) {
  qxSetField(structure, index, name, value.release());
}

ArrayPtr elementAt(const qxArray* value, std::uint64_t index1) {
  ArrayPtr subscript(qxCreateNumericMatrix(1, 1, qxUINT64_CLASS, qxREAL));
  *static_cast<std::uint64_t*>(qxGetData(subscript.get())) = index1;
  const qxArray* subscripts[1] = {subscript.get()};
  return ArrayPtr(qxSubscriptedReference(value, 1, subscripts));
}

}  // namespace addon::packaging::hostio
