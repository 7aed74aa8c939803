// zvAddonSign: signs the system-requirements part and its root relationship.
#include "gateway/frame.h"

using namespace zvaddon::gateway;

// No open or close here: signAddonRequirements opens for updating and closes itself.
ZV_GATEWAY void zvAddonSign(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SIGN>(path, [&] {
    AddonPackage package(path);
    package.signAddonRequirements();
  });
}
