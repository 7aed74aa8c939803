// zvAddonSetConfiguration, zvAddonGetConfiguration: the configuration record across the host.
#include "metadata/configuration.h"

#include "gateway/frame.h"

using addon::packaging::AddonConfiguration;
using addon::packaging::AddonPackage;
using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonSetConfiguration(int outputCount, qxArray** /*outputs*/, int inputCount,
                                        const qxArray** inputs) {
  setRecord<AddonConfiguration, keys::ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION>(
      outputCount, inputCount, inputs,
      [](AddonPackage& package, AddonConfiguration& record) { package.addXMLPart(record); });
}

ZV_GATEWAY void zvAddonGetConfiguration(int outputCount, qxArray** outputs, int inputCount,
                                        const qxArray** inputs) {
  getRecord<AddonConfiguration, keys::ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION>(
      outputCount, outputs, inputCount, inputs,
      [](AddonPackage& package, AddonConfiguration& record) { package.getXMLPart(record); });
}
