// zvAddonSetSystemRequirements, zvAddonGetSystemRequirements: the system-requirements record across
// the host. Set builds the package object before the record, Get the record before the package.
#include "metadata/system_requirements.h"

#include "gateway/frame.h"

using addon::packaging::AddonPackage;
using addon::packaging::AddonSystemRequirements;
using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonSetSystemRequirements(int outputCount, qxArray** /*outputs*/, int inputCount,
                                             const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  requireStructOrEmpty(inputs[1]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS>(path, [&] {
    AddonPackage package(path);
    AddonSystemRequirements record(inputs[1]);
    package.getPackage().open(kModify);
    package.setSystemRequirements(record);
    package.getPackage().close();
  });
}

ZV_GATEWAY void zvAddonGetSystemRequirements(int outputCount, qxArray** outputs, int inputCount,
                                             const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS>(path, [&] {
    AddonSystemRequirements record;
    AddonPackage package(path);
    package.getPackage().open(kRead);
    package.getXMLPart(record);
    package.getPackage().close();
    outputs[0] = record.getStructArray();
  });
}
