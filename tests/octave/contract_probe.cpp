// zvhost_probe.mex: the host contract as the add-on library sees it, callable from Octave so that the
// Octave suite can check the binding's qx* functions with real Octave values.
//   zvhost_probe(OP, ARGS...)
// Every result is a new Octave value.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/matrix.h"
#include "host/octave/call.h"
#include "host/octave/octave_api.h"

namespace {

using Args = std::vector<const qxArray*>;
using Op = std::function<void(int nargout, qxArray** out, const Args& in)>;

const qxArray* arg(const Args& in, std::size_t k) {
  if (k >= in.size()) throw std::invalid_argument("probe: missing argument " + std::to_string(k + 1));
  return in[k];
}

std::string text(const Args& in, std::size_t k) {
  const qxArray* a = arg(in, k);
  return std::string(static_cast<const char*>(qxGetData(a)), qxGetNumberOfElements(a));
}

const std::map<std::string, Op>& operations() {
  static const std::map<std::string, Op> ops = {
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
      {"createString", [](int, qxArray** out, const Args& in) { out[0] = qxCreateString(text(in, 0).c_str()); }},
      {"throw",
       [](int, qxArray**, const Args& in) {
         const std::string kind = text(in, 0);
         if (kind == "std") throw std::runtime_error("probe failure");
         if (kind == "bad_alloc") throw std::bad_alloc();
         if (kind == "octave") error_with_id("probe:octave", "an error of %s own", "Octave's");
         throw 42;
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
