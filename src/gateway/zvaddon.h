#pragma once
// The exported gateway functions, each with the host's extension-call signature: outputCount output
// slots, inputCount inputs; input 0 is the package path (for zvAddonComputeHash, any file). A failure
// is raised as a host error carrying a "zvaddon_builtins:zvaddon_builtins" message key.
#include "host/qx.h"

#define ZV_GATEWAY_FUNCTION(NAME) void NAME(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs)

extern "C" {
ZV_GATEWAY_FUNCTION(zvAddonCreate);
ZV_GATEWAY_FUNCTION(zvAddonSetProperties);
ZV_GATEWAY_FUNCTION(zvAddonGetProperties);
ZV_GATEWAY_FUNCTION(zvAddonAddFiles);
ZV_GATEWAY_FUNCTION(zvAddonAddFolders);
ZV_GATEWAY_FUNCTION(zvAddonExtractAllFiles);
ZV_GATEWAY_FUNCTION(zvAddonGetFileList);
ZV_GATEWAY_FUNCTION(zvAddonSetRevisionHistory);
ZV_GATEWAY_FUNCTION(zvAddonGetRevisionHistory);
ZV_GATEWAY_FUNCTION(zvAddonSetScreenshot);
ZV_GATEWAY_FUNCTION(zvAddonGetScreenshot);
ZV_GATEWAY_FUNCTION(zvAddonSetAppInstallList);
ZV_GATEWAY_FUNCTION(zvAddonGetAppInstallList);
ZV_GATEWAY_FUNCTION(zvAddonSetExamples);
ZV_GATEWAY_FUNCTION(zvAddonGetExamples);
ZV_GATEWAY_FUNCTION(zvAddonSetSystemRequirements);
ZV_GATEWAY_FUNCTION(zvAddonGetSystemRequirements);
ZV_GATEWAY_FUNCTION(zvAddonAddInstructionSet);
ZV_GATEWAY_FUNCTION(zvAddonSign);
ZV_GATEWAY_FUNCTION(zvAddonSetLicense);
ZV_GATEWAY_FUNCTION(zvAddonGetLicense);
ZV_GATEWAY_FUNCTION(zvAddonSetConfiguration);
ZV_GATEWAY_FUNCTION(zvAddonGetConfiguration);
ZV_GATEWAY_FUNCTION(zvAddonComputeHash);
}

#undef ZV_GATEWAY_FUNCTION
