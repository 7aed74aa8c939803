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

// zvAddonSet<NAME> and zvAddonGet<NAME>: the record class, the two message keys, the order in which
// each function builds its two objects (as it was published), and the two AddonPackage operations.
#define ZV_RECORD_FUNCTIONS(NAME, RECORD, SET_KEY, GET_KEY, SET_ORDER, GET_ORDER, SET, GET)                  \
  ZV_GATEWAY void zvAddonSet##NAME(int outputCount, qxArray**, int inputCount, const qxArray** inputs) {     \
    setRecord<RECORD, keys::SET_KEY, Order::SET_ORDER>(outputCount, inputCount, inputs, &AddonPackage::SET); \
  }                                                                                                          \
  ZV_GATEWAY void zvAddonGet##NAME(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) { \
    getRecord<RECORD, keys::GET_KEY, Order::GET_ORDER>(outputCount, outputs, inputCount, inputs, &AddonPackage::GET); \
  }

ZV_RECORD_FUNCTIONS(License, AddonLicense, ZVADDON_BUILTINS_ERROR_SET_LICENSE, ZVADDON_BUILTINS_ERROR_GET_LICENSE,
                    RecordFirst, PackageFirst, setLicense, getLicense)
ZV_RECORD_FUNCTIONS(SystemRequirements, AddonSystemRequirements, ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS,
                    ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS, PackageFirst, RecordFirst, setSystemRequirements,
                    getXMLPart)
ZV_RECORD_FUNCTIONS(Configuration, AddonConfiguration, ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION,
                    ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION, RecordFirst, PackageFirst, addXMLPart, getXMLPart)
ZV_RECORD_FUNCTIONS(Examples, AddonExamples, ZVADDON_BUILTINS_ERROR_SET_EXAMPLES, ZVADDON_BUILTINS_ERROR_GET_EXAMPLES,
                    PackageFirst, RecordFirst, addXMLPart, getXMLPart)
ZV_RECORD_FUNCTIONS(RevisionHistory, AddonRevisionHistory, ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY,
                    ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY, RecordFirst, PackageFirst, addXMLPart, getXMLPart)
ZV_RECORD_FUNCTIONS(AppInstallList, AddonAppInstallList, ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST,
                    ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST, PackageFirst, PackageFirst, addXMLPart, getXMLPart)

#undef ZV_RECORD_FUNCTIONS
