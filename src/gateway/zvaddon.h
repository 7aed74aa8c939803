#pragma once
// The exported gateway functions, each with the host's extension-call signature: outputCount output
// slots, inputCount inputs; input 0 is the package path (for zvAddonComputeHash, any file). A failure
// is raised as a host error carrying a "zvaddon_builtins:zvaddon_builtins" message key.
#include "host/qx.h"

// X(NAME, OUTPUTS) for each function: its name and how many outputs it gives at most.
#define ZV_GATEWAY_FUNCTIONS(X)      \
  X(zvAddonCreate, 0)                \
  X(zvAddonSetProperties, 0)         \
  X(zvAddonGetProperties, 1)         \
  X(zvAddonAddFiles, 0)              \
  X(zvAddonAddFolders, 0)            \
  X(zvAddonExtractAllFiles, 0)       \
  X(zvAddonGetFileList, 1)           \
  X(zvAddonSetRevisionHistory, 0)    \
  X(zvAddonGetRevisionHistory, 1)    \
  X(zvAddonSetScreenshot, 0)         \
  X(zvAddonGetScreenshot, 1)         \
  X(zvAddonSetAppInstallList, 0)     \
  X(zvAddonGetAppInstallList, 1)     \
  X(zvAddonSetExamples, 0)           \
  X(zvAddonGetExamples, 1)           \
  X(zvAddonSetSystemRequirements, 0) \
  X(zvAddonGetSystemRequirements, 1) \
  X(zvAddonAddInstructionSet, 0)     \
  X(zvAddonSign, 0)                  \
  X(zvAddonSetLicense, 0)            \
  X(zvAddonGetLicense, 1)            \
  X(zvAddonSetConfiguration, 0)      \
  X(zvAddonGetConfiguration, 1)      \
  X(zvAddonComputeHash, 1)

#define ZV_GATEWAY_FUNCTION(NAME, OUTPUTS) \
  void NAME(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs);

extern "C" {
ZV_GATEWAY_FUNCTIONS(ZV_GATEWAY_FUNCTION)
}

#undef ZV_GATEWAY_FUNCTION
