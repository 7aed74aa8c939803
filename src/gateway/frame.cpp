#include "gateway/frame.h"

namespace zvaddon::gateway {

void checkArgumentCounts(int outputCount, int inputCount, int maxOutputs, int inputs) {
  if (outputCount > maxOutputs) matrix::detail::error_maxlhs();
  if (inputCount > inputs) matrix::detail::error_maxrhs();
  if (inputCount != inputs) matrix::detail::error_minrhs();
}

void requireStructOrEmpty(const qxArray* value) {
  if (qxIsStruct(value) || qxIsObject(value)) return;
  if (qxGetNumberOfElements(value) == 0) return;
  qxErrMsgId(keys::ZVADDON_BUILTINS_ERROR_NON_STRUCT());
}

}  // namespace zvaddon::gateway
