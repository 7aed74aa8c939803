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

// The gateway frame in miniature: at most one output, exactly one text input, echoed back.
void echoText(int nout, qxArray** out, int nin, const qxArray** in) {
  if (nout > 1) matrix::detail::error_maxlhs();
  if (nin > 1) matrix::detail::error_maxrhs();
  if (nin < 1) matrix::detail::error_minrhs();
  const ustring text = matrix::get_ustring(in[0]);
  out[0] = matrix::to_zorvan(matrix::create(text.data(), text.size()));
}

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

TEST(Call, CountChecksRaiseInTheGatewayOrder) {
  Owned a = text(u"a");
  Owned b = text(u"b");
  Owned number(qxCreateDoubleScalar(3));
  struct Case {
    const char* name;
    int nargout;
    std::vector<const qxArray*> inputs;
    std::string error;
  };
  const Case cases[] = {
      {"accepted", 1, {a.get()}, ""},
      {"no output requested", 0, {a.get()}, ""},
      {"too many outputs before too few inputs", 2, {}, err::tooManyOutputs},
      {"too many inputs", 1, {a.get(), b.get()}, err::tooManyInputs},
      {"too few inputs", 1, {}, err::notEnoughInputs},
      {"input not text", 1, {number.get()}, err::notString},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(hostErrorOf([&] { (void)call(echoText, c.nargout, c.inputs); }), c.error);
  }
  const auto outputs = call(echoText, 1, {a.get()});
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(matrix::get_ustring(outputs[0].get()), u"a");
}

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
