// zvAddonSetLicense, zvAddonGetLicense: the licence agreement record across the host.
#include "metadata/license.h"

#include "gateway/frame.h"

using addon::packaging::AddonLicense;
using addon::packaging::AddonPackage;
using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonSetLicense(int outputCount, qxArray** /*outputs*/, int inputCount,
                                  const qxArray** inputs) {
  setRecord<AddonLicense, keys::ZVADDON_BUILTINS_ERROR_SET_LICENSE>(
      outputCount, inputCount, inputs,
      [](AddonPackage& package, AddonLicense& record) { package.setLicense(record); });
}

ZV_GATEWAY void zvAddonGetLicense(int outputCount, qxArray** outputs, int inputCount,
                                  const qxArray** inputs) {
  getRecord<AddonLicense, keys::ZVADDON_BUILTINS_ERROR_GET_LICENSE>(
      outputCount, outputs, inputCount, inputs,
      [](AddonPackage& package, AddonLicense& record) { package.getLicense(record); });
}
