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

// zvAddonSet<NAME> and zvAddonGet<NAME>: the record class, the ending of the two message keys, the order
// in which each function builds its two objects (as it was published), and the two AddonPackage
// operations.
#define ZV_RECORD_FUNCTIONS(NAME, RECORD, KEY, SET_ORDER, GET_ORDER, SET, GET)                                  \
  ZV_GATEWAY void zvAddonSet##NAME(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {         \
    using Key = keys::ZVADDON_BUILTINS_ERROR_SET_##KEY;                                                          \
    setRecord<RECORD, Key, Order::SET_ORDER>(outputCount, inputCount, inputs, &AddonPackage::SET);               \
  }                                                                                                              \
  ZV_GATEWAY void zvAddonGet##NAME(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) { \
    using Key = keys::ZVADDON_BUILTINS_ERROR_GET_##KEY;                                                          \
    getRecord<RECORD, Key, Order::GET_ORDER>(outputCount, outputs, inputCount, inputs, &AddonPackage::GET);      \
  }

ZV_RECORD_FUNCTIONS(License, AddonLicense, LICENSE, RecordFirst, PackageFirst, setLicense, getLicense)
ZV_RECORD_FUNCTIONS(SystemRequirements, AddonSystemRequirements, SYSTEM_REQS, PackageFirst, RecordFirst,
                    setSystemRequirements, getXMLPart)
ZV_RECORD_FUNCTIONS(Configuration, AddonConfiguration, CONFIGURATION, RecordFirst, PackageFirst, addXMLPart, getXMLPart)
ZV_RECORD_FUNCTIONS(Examples, AddonExamples, EXAMPLES, PackageFirst, RecordFirst, addXMLPart, getXMLPart)
ZV_RECORD_FUNCTIONS(RevisionHistory, AddonRevisionHistory, REVISION_HISTORY, RecordFirst, PackageFirst, addXMLPart,
                    getXMLPart)
ZV_RECORD_FUNCTIONS(AppInstallList, AddonAppInstallList, APP_INSTALL_LIST, PackageFirst, PackageFirst, addXMLPart,
                    getXMLPart)

#undef ZV_RECORD_FUNCTIONS
