// The Set and Get functions of the six metadata records held as XML parts.
#include "gateway/frame.h"
#include "metadata/app_install_list.h"
#include "metadata/configuration.h"
#include "metadata/examples.h"
#include "metadata/license.h"
#include "metadata/revision_history.h"
#include "metadata/system_requirements.h"

using namespace zvaddon::gateway;
using namespace addon::packaging;

namespace {

constexpr auto storePart = [](AddonPackage& package, XMLPartType& record) { package.addXMLPart(record); };
constexpr auto readPart = [](AddonPackage& package, XMLPartType& record) { package.getXMLPart(record); };

}  // namespace

ZV_GATEWAY void zvAddonSetLicense(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {
  setRecord<AddonLicense, keys::ZVADDON_BUILTINS_ERROR_SET_LICENSE>(
      outputCount, inputCount, inputs, [](AddonPackage& package, AddonLicense& record) { package.setLicense(record); });
}

ZV_GATEWAY void zvAddonGetLicense(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  getRecord<AddonLicense, keys::ZVADDON_BUILTINS_ERROR_GET_LICENSE>(
      outputCount, outputs, inputCount, inputs,
      [](AddonPackage& package, AddonLicense& record) { package.getLicense(record); });
}

ZV_GATEWAY void zvAddonSetSystemRequirements(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {
  setRecord<AddonSystemRequirements, keys::ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS, Order::PackageFirst>(
      outputCount, inputCount, inputs,
      [](AddonPackage& package, AddonSystemRequirements& record) { package.setSystemRequirements(record); });
}

ZV_GATEWAY void zvAddonGetSystemRequirements(int outputCount, qxArray** outputs, int inputCount,
                                             const qxArray** inputs) {
  getRecord<AddonSystemRequirements, keys::ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS, Order::RecordFirst>(
      outputCount, outputs, inputCount, inputs, readPart);
}

ZV_GATEWAY void zvAddonSetConfiguration(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {
  setRecord<AddonConfiguration, keys::ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION>(outputCount, inputCount, inputs,
                                                                                  storePart);
}

ZV_GATEWAY void zvAddonGetConfiguration(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  getRecord<AddonConfiguration, keys::ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION>(outputCount, outputs, inputCount,
                                                                                  inputs, readPart);
}

ZV_GATEWAY void zvAddonSetExamples(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {
  setRecord<AddonExamples, keys::ZVADDON_BUILTINS_ERROR_SET_EXAMPLES, Order::PackageFirst>(outputCount, inputCount,
                                                                                           inputs, storePart);
}

ZV_GATEWAY void zvAddonGetExamples(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  getRecord<AddonExamples, keys::ZVADDON_BUILTINS_ERROR_GET_EXAMPLES, Order::RecordFirst>(outputCount, outputs,
                                                                                          inputCount, inputs, readPart);
}

ZV_GATEWAY void zvAddonSetRevisionHistory(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {
  setRecord<AddonRevisionHistory, keys::ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY>(outputCount, inputCount,
                                                                                       inputs, storePart);
}

ZV_GATEWAY void zvAddonGetRevisionHistory(int outputCount, qxArray** outputs, int inputCount,
                                          const qxArray** inputs) {
  getRecord<AddonRevisionHistory, keys::ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY>(outputCount, outputs,
                                                                                       inputCount, inputs, readPart);
}

ZV_GATEWAY void zvAddonSetAppInstallList(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {
  setRecord<AddonAppInstallList, keys::ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST, Order::PackageFirst>(
      outputCount, inputCount, inputs, storePart);
}

ZV_GATEWAY void zvAddonGetAppInstallList(int outputCount, qxArray** outputs, int inputCount,
                                         const qxArray** inputs) {
  getRecord<AddonAppInstallList, keys::ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST>(outputCount, outputs,
                                                                                      inputCount, inputs, readPart);
}
