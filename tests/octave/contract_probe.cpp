// zvhost_probe.mex: the host contract as the add-on library sees it, callable from Octave so that the
// Octave suite can check the binding's qx* functions with real Octave values.
//   zvhost_probe(OP, ARGS...)
// Indices given to the probe count from 0, as the contract's do. Every result is a new Octave value.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/release_info.h"
#include "host/matrix.h"
#include "host/octave/call.h"
#include "host/octave/octave_api.h"

namespace {

using Args = std::vector<const qxArray*>;
using Op = std::function<void(int nargout, qxArray** out, const Args& in)>;

const std::vector<std::string> classNames = {
    "qxUNKNOWN_CLASS", "qxCELL_CLASS",  "qxSTRUCT_CLASS", "qxLOGICAL_CLASS", "qxCHAR_CLASS",   "qxVOID_CLASS",
    "qxDOUBLE_CLASS",  "qxSINGLE_CLASS", "qxINT8_CLASS",   "qxUINT8_CLASS",   "qxINT16_CLASS",  "qxUINT16_CLASS",
    "qxINT32_CLASS",   "qxUINT32_CLASS", "qxINT64_CLASS",  "qxUINT64_CLASS",  "qxFUNCTION_CLASS", "qxOBJECT_CLASS"};

const qxArray* arg(const Args& in, std::size_t k) {
  if (k >= in.size()) throw std::invalid_argument("probe: missing argument " + std::to_string(k + 1));
  return in[k];
}

std::string text(const Args& in, std::size_t k) {
  const qxArray* a = arg(in, k);
  return std::string(static_cast<const char*>(qxGetData(a)), qxGetNumberOfElements(a));
}

qxSize index(const Args& in, std::size_t k) { return static_cast<qxSize>(qxGetScalar(arg(in, k))); }

qxArray* number(double v) { return qxCreateDoubleScalar(v); }
qxArray* flag(bool v) { return qxCreateLogicalScalar(v); }
// A borrowed value handed back as a copy; a null one as the logical false, so that absence shows.
qxArray* copyOrFalse(const qxArray* a) { return a ? qxDuplicateArray(a) : flag(false); }

qxArray* row(const std::vector<double>& values) {
  qxArray* r = qxCreateNumericMatrix(1, values.size(), qxDOUBLE_CLASS, qxREAL);
  if (!values.empty()) std::copy(values.begin(), values.end(), static_cast<double*>(qxGetData(r)));
  return r;
}

qxArray* record(const std::vector<std::pair<const char*, qxArray*>>& fields) {
  std::vector<const char*> names;
  for (const auto& f : fields) names.push_back(f.first);
  const qxSize one[] = {1, 1};
  qxArray* s = qxCreateStructArray(2, one, static_cast<int>(names.size()), names.data());
  for (const auto& [name, value] : fields) qxSetField(s, 0, name, value);
  return s;
}

std::vector<const char*> namesOf(const qxArray* cell, std::vector<std::string>& storage) {
  for (qxSize k = 0; k < qxGetNumberOfElements(cell); ++k) storage.push_back(text({qxGetCell(cell, k)}, 0));
  std::vector<const char*> names;
  for (const auto& s : storage) names.push_back(s.c_str());
  return names;
}

std::vector<qxSize> sizeOf(const qxArray* dims) {
  std::vector<qxSize> d;
  for (qxSize k = 0; k < qxGetNumberOfElements(dims); ++k) d.push_back(static_cast<qxSize>(static_cast<const double*>(qxGetData(dims))[k]));
  return d;
}

const std::map<std::string, Op>& operations() {
  static const std::map<std::string, Op> ops = {
      {"classify",
       [](int, qxArray** out, const Args& in) {
         const qxArray* a = arg(in, 0);
         const qxSize* dims = qxGetDimensions(a);
         out[0] = record({{"classID", qxCreateString(classNames.at(qxGetClassID(a)).c_str())},
                          {"className", qxCreateString(qxGetClassName(a))},
                          {"isStruct", flag(qxIsStruct(a))},
                          {"isObject", flag(qxIsObject(a))},
                          {"isCell", flag(qxIsCell(a))},
                          {"isChar", flag(qxIsChar(a))},
                          {"isLogical", flag(qxIsLogical(a))},
                          {"isNumeric", flag(qxIsNumeric(a))},
                          {"isComplex", flag(qxIsComplex(a))},
                          {"isEmpty", flag(qxIsEmpty(a))},
                          {"numel", number(static_cast<double>(qxGetNumberOfElements(a)))},
                          {"dims", row(std::vector<double>(dims, dims + qxGetNumberOfDimensions(a)))},
                          {"m", number(static_cast<double>(qxGetM(a)))},
                          {"n", number(static_cast<double>(qxGetN(a)))},
                          {"elementSize", number(static_cast<double>(qxGetElementSize(a)))},
                          {"scalar", number(qxGetScalar(a))},
                          {"hasData", flag(qxGetData(a) != nullptr)},
                          {"fieldCount", number(qxGetNumberOfFields(a))}});
       }},
      {"field",
       [](int, qxArray** out, const Args& in) {
         out[0] = copyOrFalse(qxGetField(arg(in, 0), index(in, 1), text(in, 2).c_str()));
       }},
      {"fieldByNumber",
       [](int, qxArray** out, const Args& in) {
         out[0] = copyOrFalse(qxGetFieldByNumber(arg(in, 0), index(in, 1), static_cast<int>(qxGetScalar(arg(in, 2)))));
       }},
      {"fieldNames",
       [](int nargout, qxArray** out, const Args& in) {
         const qxArray* a = arg(in, 0);
         const int count = qxGetNumberOfFields(a);
         const qxSize dims[] = {1, static_cast<qxSize>(count)};
         out[0] = qxCreateCellArray(2, dims);
         for (int k = 0; k < count; ++k) {
           qxSetCell(out[0], k, qxCreateString(qxGetFieldNameByNumber(a, k)));
           if (qxGetFieldNumber(a, qxGetFieldNameByNumber(a, k)) != k) throw std::logic_error("field number mismatch");
         }
         // Names past either end must be absent.
         if (nargout > 1) out[1] = flag(qxGetFieldNameByNumber(a, count) == nullptr && qxGetFieldNameByNumber(a, -1) == nullptr);
       }},
      {"cell",
       [](int, qxArray** out, const Args& in) { out[0] = copyOrFalse(qxGetCell(arg(in, 0), index(in, 1))); }},
      {"text",  // get_ustring, then back through both UTF-16 creators; the code units as uint16
       [](int nargout, qxArray** out, const Args& in) {
         const ustring u = matrix::get_ustring(arg(in, 0));
         out[0] = matrix::to_zorvan(matrix::create(u.data(), u.size()));
         if (nargout > 1) {
           out[1] = qxCreateNumericMatrix(1, u.size(), qxUINT16_CLASS, qxREAL);
           if (!u.empty()) std::copy(u.begin(), u.end(), static_cast<std::uint16_t*>(qxGetData(out[1])));
         }
         if (nargout > 2) out[2] = qxCreateString_UTF16(u.c_str());
       }},
      {"fromUnits",
       [](int, qxArray** out, const Args& in) {
         const qxArray* units = arg(in, 0);
         const auto* data = static_cast<const char16_t*>(qxGetData(units));
         out[0] = matrix::to_zorvan(matrix::create(data, qxGetNumberOfElements(units)));
       }},
      {"createString", [](int, qxArray** out, const Args& in) { out[0] = qxCreateString(text(in, 0).c_str()); }},
      {"subsref",
       [](int, qxArray** out, const Args& in) {
         const Args subs(in.begin() + 1, in.end());
         out[0] = qxSubscriptedReference(arg(in, 0), static_cast<int>(subs.size()),
                                         const_cast<const qxArray**>(subs.data()));
       }},
      {"setCell",  // setCell(count, i): a 1 x count cell with "first" then "second" stored at i
       [](int, qxArray** out, const Args& in) {
         const qxSize dims[] = {1, index(in, 0)};
         matrix::unique_qxarray_ptr c(qxCreateCellArray(2, dims));
         qxSetCell(c.get(), index(in, 1), qxCreateString("first"));
         qxSetCell(c.get(), index(in, 1), qxCreateString("second"));
         out[0] = c.release();
       }},
      {"setField",  // setField(names, count, i, name): a 1 x count structure with "value" stored
       [](int, qxArray** out, const Args& in) {
         std::vector<std::string> storage;
         auto names = namesOf(arg(in, 0), storage);
         const qxSize dims[] = {1, index(in, 1)};
         matrix::unique_qxarray_ptr s(qxCreateStructArray(2, dims, static_cast<int>(names.size()), names.data()));
         qxSetField(s.get(), index(in, 2), text(in, 3).c_str(), qxCreateString("first"));
         qxSetField(s.get(), index(in, 2), text(in, 3).c_str(), qxCreateString("value"));
         out[0] = s.release();
       }},
      {"setFieldOn",  // setFieldOn(x, name): stores into an Octave value that is no structure
       [](int, qxArray** out, const Args& in) {
         matrix::unique_qxarray_ptr copy(qxDuplicateArray(arg(in, 0)));
         qxSetField(copy.get(), 0, text(in, 1).c_str(), qxCreateString("value"));
         out[0] = copy.release();
       }},
      {"addField",
       [](int nargout, qxArray** out, const Args& in) {
         matrix::unique_qxarray_ptr copy(qxDuplicateArray(arg(in, 0)));
         const int n = qxAddField(copy.get(), text(in, 1).c_str());
         out[0] = number(n);
         if (nargout > 1) out[1] = copy.release();
       }},
      {"structArray",
       [](int, qxArray** out, const Args& in) {
         std::vector<std::string> storage;
         auto names = namesOf(arg(in, 0), storage);
         const auto dims = sizeOf(arg(in, 1));
         out[0] = qxCreateStructArray(dims.size(), dims.data(), static_cast<int>(names.size()), names.data());
       }},
      {"numeric",  // numeric(classID name, dims, complex)
       [](int, qxArray** out, const Args& in) {
         const auto id = static_cast<qxClassID>(std::find(classNames.begin(), classNames.end(), text(in, 0)) - classNames.begin());
         const auto dims = sizeOf(arg(in, 1));
         out[0] = qxCreateNumericArray(dims.size(), dims.data(), id, qxGetScalar(arg(in, 2)) != 0 ? qxCOMPLEX : qxREAL);
       }},
      {"containers",  // the other creators, by name, with dims
       [](int, qxArray** out, const Args& in) {
         const auto dims = sizeOf(arg(in, 1));
         const std::string kind = text(in, 0);
         if (kind == "logical") out[0] = qxCreateLogicalArray(dims.size(), dims.data());
         else if (kind == "char") out[0] = qxCreateCharArray(dims.size(), dims.data());
         else out[0] = qxCreateCellArray(dims.size(), dims.data());
       }},
      {"object",
       [](int, qxArray** out, const Args&) {
         const char* names[] = {"a"};
         const qxSize one[] = {1, 1};
         out[0] = flag(qxCreateObjectArray("probeClass", 2, one, 1, names) == nullptr);
       }},
      {"throw",
       [](int, qxArray**, const Args& in) {
         const std::string kind = text(in, 0);
         if (kind == "std") throw std::runtime_error("probe failure");
         if (kind == "bad_alloc") throw std::bad_alloc();
         if (kind == "octave") error_with_id("probe:octave", "an error of %s own", "Octave's");
         throw 42;
       }},
      {"counts",
       [](int, qxArray**, const Args& in) {
         const std::string which = text(in, 0);
         if (which == "maxlhs") matrix::detail::error_maxlhs();
         if (which == "maxrhs") matrix::detail::error_maxrhs();
         matrix::detail::error_minrhs();
       }},
      {"release",
       [](int nargout, qxArray** out, const Args&) {
         const auto info = foundation::release_info::getCurrentReleaseInfo();
         out[0] = qxCreateString(info.release.c_str());
         if (nargout > 1) out[1] = qxCreateString(info.version.c_str());
       }},
  };
  return ops;
}

void probe(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  if (inputCount < 1) throw std::invalid_argument("probe: no operation");
  const auto op = operations().find(text({inputs[0]}, 0));
  if (op == operations().end()) throw std::invalid_argument("probe: unknown operation");
  op->second(outputCount, outputs, Args(inputs + 1, inputs + inputCount));
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void mexFunction(int nlhs, mxArray* plhs[], int nrhs,
                                                           const mxArray* prhs[]) {
  zvhost::octave::callGateway(&probe, "zvhost_probe", nlhs, plhs, nrhs, prhs);
}
