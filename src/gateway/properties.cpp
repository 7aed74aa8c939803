// zvAddonCreate, zvAddonSetProperties, zvAddonGetProperties: the properties record across the host.
#include "gateway/frame.h"
#include "metadata/addon_properties.h"

using addon::packaging::AddonProperties;
using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonCreate(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  ustring path = matrix::get_ustring(inputs[0]);
  requireStructOrEmpty(inputs[1]);
  // Creating cannot miss a package: every OPC failure is a creation failure.
  try {
    AddonProperties properties(inputs[1]);
    AddonPackage package(path, properties);
    package.getPackage().close();
  } catch (const opc::Exception& e) {
    qxErrMsgId(keys::ZVADDON_BUILTINS_ERROR_CREATE(path, e.what()));
  }
}

ZV_GATEWAY void zvAddonSetProperties(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  setRecord<AddonProperties, keys::ZVADDON_BUILTINS_ERROR_SET_PROPERTIES>(outputCount, inputCount, inputs,
                                                                          &AddonPackage::setAddonProperties);
}

ZV_GATEWAY void zvAddonGetProperties(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  getRecord<AddonProperties, keys::ZVADDON_BUILTINS_ERROR_GET_PROPERTIES, Order::PackageFirst, Store::BeforeClose>(
      outputCount, outputs, inputCount, inputs, &AddonPackage::getAddonProperties);
}
