#pragma once
// Calling gateway functions from tests exactly as the host does: JSON in, JSON out, host errors caught.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "host/json/json.h"
#include "host/reference/call.h"
#include "host/reference/host_error.h"
#include "support/scratch.h"

namespace zvtest {

using Json = zvhost::json::Json;
using zvhost::reference::HostError;

// The outputs as JSON; a host error is returned instead when the call raises one.
struct CallResult {
  std::vector<Json> outputs;
  std::optional<HostError> error;

  [[nodiscard]] bool ok() const { return !error.has_value(); }
  [[nodiscard]] std::string key() const { return error ? error->key() : std::string(); }
};

inline CallResult call(qxFunction f, const std::vector<Json>& inputs, std::optional<int> nargout = std::nullopt) {
  std::vector<matrix::unique_qxarray_ptr> owned;
  std::vector<const qxArray*> args;
  for (const Json& input : inputs) {
    owned.push_back(zvhost::json::toOwnedArray(input));
    args.push_back(owned.back().get());
  }
  CallResult result;
  try {
    const auto outputs = zvhost::reference::call(f, nargout.value_or(0), args);
    for (const auto& output : outputs) result.outputs.push_back(zvhost::json::fromArray(output.get()));
  } catch (const HostError& e) {
    result.error = e;
  }
  return result;
}

// Calls f, expecting success; returns output 0 when one was requested.
inline Json callOk(qxFunction f, const std::vector<Json>& inputs, int nargout = 0) {
  const CallResult r = call(f, inputs, nargout);
  EXPECT_TRUE(r.ok()) << (r.error ? r.error->identifier() + ": " + r.error->message() : std::string());
  return r.outputs.empty() ? Json() : r.outputs.front();
}

// The ten host fields of the properties record.
inline Json properties(const std::string& name = "Signal Tools", const std::string& type = "ZORVAN Toolbox") {
  return Json{{"type", type},
              {"name", name},
              {"version", "1.2.0"},
              {"ZORVANRelease", "R1999a"},
              {"summary", "Filters and transforms"},
              {"authorName", "Ada Lovelace"},
              {"authorContact", "ada@example.org"},
              {"authorOrganization", "Analytical Engines"},
              {"GUID", "1b2c3d4e-0000-4000-8000-123456789abc"},
              {"description", "Long description\nover two lines"}};
}

}  // namespace zvtest
