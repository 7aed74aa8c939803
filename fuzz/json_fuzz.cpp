// Arbitrary JSON converted to a host array: a clear error or an array whose JSON form converts back
// to an equal array.
#include "fuzz_support.h"
#include "host/json/json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using zvhost::json::Json;
  const Json input = Json::parse(data, data + size, nullptr, false);
  if (input.is_discarded()) return 0;
  matrix::unique_qxarray_ptr array;
  try {
    array = zvhost::json::toOwnedArray(input);
  } catch (const std::invalid_argument&) {
    return 0;
  }
  const Json output = zvhost::json::fromArray(array.get());
  const matrix::unique_qxarray_ptr again = zvhost::json::toOwnedArray(output);
  if (!zvhost::json::arraysEqual(array.get(), again.get())) {
    std::fprintf(stderr, "not lossless:\n%s\n%s\n", input.dump().c_str(), output.dump().c_str());
    std::abort();
  }
  return 0;
}
