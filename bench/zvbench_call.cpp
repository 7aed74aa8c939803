// Calls one gateway function the way `zvaddon call` does, but reads each argument from a file when
// it is written "@path": a list of 20,000 files does not fit on a command line (one argument may
// hold 128 KiB at most). Prints nothing on success; a host error goes to stderr with exit status 1.
// Each argument becomes a host array as soon as it is read and its JSON is dropped, so that the
// process holds what a host would hold during the call, not a second copy of every list.
//
// Usage: zvbench_call FUNCTION ARG...     (ARG: JSON text, or @file holding JSON)
#include <fstream>
#include <iostream>
#include <sstream>

#include "gateway.h"
#include "host/json/json.h"
#include "host/reference/call.h"
#include "host/reference/host_error.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: zvbench_call FUNCTION ARG...  (ARG: JSON, or @file holding JSON)\n";
    return 2;
  }
  const auto function = zvaddon::tool::findGatewayFunction(argv[1]);
  if (!function) {
    std::cerr << "zvbench_call: no gateway function named " << argv[1] << "\n";
    return 2;
  }
  std::vector<matrix::unique_qxarray_ptr> owned;
  std::vector<const qxArray*> inputs;
  for (int i = 2; i < argc; ++i) {
    std::string text = argv[i];
    if (text.starts_with("@")) {
      std::ifstream in(text.substr(1), std::ios::binary);
      if (!in) {
        std::cerr << "zvbench_call: cannot read " << text.substr(1) << "\n";
        return 2;
      }
      std::ostringstream all;
      all << in.rdbuf();
      text = all.str();
    }
    owned.push_back(zvhost::json::toOwnedArray(zvhost::json::Json::parse(text)));
    inputs.push_back(owned.back().get());
  }
  try {
    (void)zvhost::reference::call(function->entry, function->maxOutputs, inputs);
  } catch (const zvhost::reference::HostError& e) {
    std::cerr << e.identifier() << ": " << e.message() << "\n";
    return 1;
  }
  return 0;
}
