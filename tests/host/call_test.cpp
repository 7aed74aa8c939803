// Calling extension functions as the host does.
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/reference/call.h"
#include "host_test_util.h"

namespace zvhost::testing {
namespace {

using zvhost::reference::call;
using zvhost::reference::HostError;
namespace err = zvhost::reference::errors;

// Like a real extension function, fills the second slot only when it exists.
void twoOutputs(int nout, qxArray** out, int, const qxArray**) {
  out[0] = qxCreateDoubleScalar(1);
  if (nout > 1) out[1] = qxCreateDoubleScalar(2);
}

void storesThenRaises(int, qxArray** out, int, const qxArray**) {
  out[0] = qxCreateString("abandoned");
  matrix::detail::error_maxrhs();
}

void storesThenThrows(int, qxArray** out, int, const qxArray**) {
  out[0] = qxCreateString("abandoned");
  throw std::runtime_error("disk on fire");
}

void storesNothing(int, qxArray**, int, const qxArray**) {}

void storesAnswer(int, qxArray** out, int, const qxArray**) { out[0] = qxCreateDoubleScalar(42); }

TEST(Call, ReturnsExactlyTheRequestedOutputsOwned) {
  EXPECT_EQ(call(twoOutputs, 2, {}).size(), 2u);
  const auto one = call(twoOutputs, 1, {});
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(qxGetScalar(one[0].get()), 1);
  EXPECT_TRUE(call(storesAnswer, 0, {}).empty()) << "an unrequested answer is freed, not returned";
  EXPECT_TRUE(call(storesNothing, 0, {}).empty());
}

TEST(Call, EveryFailureArrivesAsAHostError) {
  struct Case {
    const char* name;
    qxFunction f;
    int nargout;
    std::string error;
    std::string messagePart;
  };
  const Case cases[] = {
      {"host error after storing an output", storesThenRaises, 1, err::tooManyInputs, ""},
      {"standard exception", storesThenThrows, 1, err::unexpectedException, "disk on fire"},
      {"requested output left unset", storesNothing, 1, err::outputNotAssigned, "1"},
      {"second output left unset", storesAnswer, 2, err::outputNotAssigned, "2"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      (void)call(c.f, c.nargout, {});
      ADD_FAILURE() << "no error";
    } catch (const HostError& e) {
      EXPECT_EQ(e.identifier(), c.error);
      EXPECT_NE(e.message().find(c.messagePart), std::string::npos) << e.message();
    }
  }
  EXPECT_THROW((void)call(storesNothing, -1, {}), std::invalid_argument);
}

}  // namespace
}  // namespace zvhost::testing
