// zvAddonAddInstructionSet: one file per call, raised under the instruction-sets key.
#include "gateway/frame.h"

using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonAddInstructionSet(int outputCount, qxArray** /*outputs*/, int inputCount,
                                         const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS>(path, [&] {
    const std::vector<ustring> files{matrix::get_ustring(inputs[1])};
    withPackage(path, kModify, [&](AddonPackage& package) { package.addInstructionSets(files); });
  });
}
