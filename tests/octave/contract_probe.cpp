// zvhost_probe.mex: the host contract as the add-on library sees it, callable from Octave so that the
// Octave suite checks the binding's qx* functions with real Octave values. Every result is new.
//   [S2, UNITS, S3] = zvhost_probe('text', S)   get_ustring(S); back through matrix::create, its UTF-16
//                                               code units as uint16, back through qxCreateString_UTF16
//   S2 = zvhost_probe('createString', S)        qxCreateString of S's bytes
//   zvhost_probe('throw', KIND)                 "std", "bad_alloc", "octave" (an Octave error), else an int
#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>

#include "host/matrix.h"
#include "host/octave/call.h"
#include "host/octave/octave_api.h"

namespace {

std::string bytes(const qxArray* a) {
  return std::string(static_cast<const char*>(qxGetData(a)), qxGetNumberOfElements(a));
}

void probe(int nargout, qxArray** out, int nargin, const qxArray** in) {
  if (nargin != 2) throw std::invalid_argument("probe: an operation and one argument");
  const std::string op = bytes(in[0]);
  if (op == "text") {
    const ustring u = matrix::get_ustring(in[1]);
    out[0] = matrix::to_zorvan(matrix::create(u.data(), u.size()));
    if (nargout > 1) {
      out[1] = qxCreateNumericMatrix(1, u.size(), qxUINT16_CLASS, qxREAL);
      if (!u.empty()) std::copy(u.begin(), u.end(), static_cast<std::uint16_t*>(qxGetData(out[1])));
    }
    if (nargout > 2) out[2] = qxCreateString_UTF16(u.c_str());
  } else if (op == "createString") {
    out[0] = qxCreateString(bytes(in[1]).c_str());
  } else if (op == "throw") {
    const std::string kind = bytes(in[1]);
    if (kind == "std") throw std::runtime_error("probe failure");
    if (kind == "bad_alloc") throw std::bad_alloc();
    if (kind == "octave") error_with_id("probe:octave", "an error of %s own", "Octave's");
    throw 42;
  } else {
    throw std::invalid_argument("probe: unknown operation");
  }
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void mexFunction(int nlhs, mxArray* plhs[], int nrhs,
                                                           const mxArray* prhs[]) {
  zvhost::octave::callGateway(&probe, "zvhost_probe", nlhs, plhs, nrhs, prhs);
}
