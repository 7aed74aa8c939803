// zvAddonSetAppInstallList, zvAddonGetAppInstallList: the applications record across the host.
#include "metadata/app_install_list.h"

#include "gateway/frame.h"

using addon::packaging::AddonAppInstallList;
using addon::packaging::AddonPackage;
using namespace zvaddon::gateway;

// As for examples, the package object is built before the record; the package is opened only once
// the input has been read.
ZV_GATEWAY void zvAddonSetAppInstallList(int outputCount, qxArray** /*outputs*/, int inputCount,
                                         const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  requireStructOrEmpty(inputs[1]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST>(path, [&] {
    AddonPackage package(path);
    AddonAppInstallList record(inputs[1]);
    package.getPackage().open(kModify);
    package.addXMLPart(record);
    package.getPackage().close();
  });
}

ZV_GATEWAY void zvAddonGetAppInstallList(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  getRecord<AddonAppInstallList, keys::ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST>(
      outputCount, outputs, inputCount, inputs,
      [](AddonPackage& package, AddonAppInstallList& record) { package.getXMLPart(record); });
}
