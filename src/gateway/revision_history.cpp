// zvAddonSetRevisionHistory, zvAddonGetRevisionHistory: the revision-history record across the host.
#include "metadata/revision_history.h"

#include "gateway/frame.h"

using addon::packaging::AddonPackage;
using addon::packaging::AddonRevisionHistory;
using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonSetRevisionHistory(int outputCount, qxArray** /*outputs*/, int inputCount,
                                          const qxArray** inputs) {
  setRecord<AddonRevisionHistory, keys::ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY>(
      outputCount, inputCount, inputs,
      [](AddonPackage& package, AddonRevisionHistory& record) { package.addXMLPart(record); });
}

ZV_GATEWAY void zvAddonGetRevisionHistory(int outputCount, qxArray** outputs, int inputCount,
                                          const qxArray** inputs) {
  getRecord<AddonRevisionHistory, keys::ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY>(
      outputCount, outputs, inputCount, inputs,
      [](AddonPackage& package, AddonRevisionHistory& record) { package.getXMLPart(record); });
}
