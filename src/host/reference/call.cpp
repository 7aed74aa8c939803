#include "host/reference/call.h"

#include <stdexcept>
#include <string>

#include "host/reference/host_error.h"

namespace zvhost::reference {

OwnedArrays call(qxFunction f, int nargout, const std::vector<const qxArray*>& inputs) {
  if (nargout < 0) throw std::invalid_argument("call: negative output count");
  // Slots own whatever f stores, from the moment the call ends, on every path.
  OwnedArrays slots(static_cast<std::size_t>(nargout > 0 ? nargout : 1));
  std::vector<qxArray*> raw(slots.size(), nullptr);
  std::vector<const qxArray*> in(inputs);
  auto adopt = [&] {
    for (std::size_t k = 0; k < raw.size(); ++k) slots[k].reset(raw[k]);
  };
  try {
    f(nargout, raw.data(), static_cast<int>(in.size()), in.data());
  } catch (const HostError&) {
    adopt();
    throw;
  } catch (const std::exception& e) {
    adopt();
    raise(errors::unexpectedException, std::string("Unexpected exception: ") + e.what(), {std::string(e.what())});
  } catch (...) {
    adopt();
    raise(errors::unexpectedException, "Unexpected exception of unknown type.");
  }
  adopt();
  for (int k = 0; k < nargout; ++k) {
    if (!slots[k]) {
      raise(errors::outputNotAssigned, "Output argument " + std::to_string(k + 1) + " was not assigned.",
            {static_cast<std::int64_t>(k + 1)});
    }
  }
  slots.resize(static_cast<std::size_t>(nargout));
  return slots;
}

}  // namespace zvhost::reference
