// The extension entry of one gateway function: compiled once per function into NAME.mex, with
// ZV_GATEWAY_NAME set to that function's name. Octave finds the file by name on its path and calls
// mexFunction, which it must see: the symbol is made visible on purpose (the build hides the rest).
#include "gateway/zvaddon.h"
#include "host/octave/call.h"

#ifndef ZV_GATEWAY_NAME
#error "ZV_GATEWAY_NAME must name the gateway function of this entry"
#endif

#define ZV_STRINGIFY2(x) #x
#define ZV_STRINGIFY(x) ZV_STRINGIFY2(x)

// Weak: an add-on library without this function still loads, and calling the entry raises
// "zvhost:notAvailable" instead of Octave refusing the file.
extern "C" [[gnu::weak]] void ZV_GATEWAY_NAME(int, qxArray**, int, const qxArray**);

extern "C" [[gnu::visibility("default")]] void mexFunction(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  zvhost::octave::callGateway(&ZV_GATEWAY_NAME, ZV_STRINGIFY(ZV_GATEWAY_NAME), nlhs, plhs, nrhs, prhs);
}
