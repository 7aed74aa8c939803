// The add-on's content (zvAddonAddFiles, zvAddonAddFolders, zvAddonExtractAllFiles, zvAddonGetFileList)
// and the package's other parts that are not records: screenshot, instruction sets, signature.
#include <functional>
#include <utility>
#include <vector>

#include "foundation/crypto.h"
#include "gateway/frame.h"
#include "metadata/host_fields.h"

using namespace zvaddon::gateway;

// Inputs of other classes, or a cell paired with a non-cell, are ignored without an error, and an
// empty list does not even open the package: both silences are part of the contract.
ZV_GATEWAY void zvAddonAddFiles(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 3);
  const ustring path = matrix::get_ustring(inputs[0]);
  // Element i of input 2 goes with element i of input 1; a shorter input 2 yields an empty slot,
  // which the host's string conversion refuses. Every element is converted once here, before the
  // package is touched, and again as its file is added: tens of thousands of paths are not held
  // twice while the package grows.
  std::size_t count = 0;
  std::function<std::pair<ustring, ustring>(std::size_t)> file;
  if (qxIsCell(inputs[1])) {
    if (!qxIsCell(inputs[2])) return;
    count = qxGetNumberOfElements(inputs[1]);
    file = [&](std::size_t i) {
      return std::pair(matrix::get_ustring(qxGetCell(inputs[1], i)), matrix::get_ustring(qxGetCell(inputs[2], i)));
    };
  } else if (qxIsChar(inputs[1]) && qxIsChar(inputs[2])) {
    count = 1;
    file = [&](std::size_t) { return std::pair(matrix::get_ustring(inputs[1]), matrix::get_ustring(inputs[2])); };
  } else {
    return;
  }
  if (count == 0) return;
  for (std::size_t i = 0; i < count; ++i) (void)file(i);
  guarded<keys::ZVADDON_BUILTINS_ERROR_ADD_FILES>(path, [&] {
    withPackage(path, OpenMode::Modify, [&](AddonPackage& package) { package.addFiles(count, file); });
  });
}

ZV_GATEWAY void zvAddonAddFolders(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  std::vector<ustring> folders;
  if (qxIsCell(inputs[1])) {
    folders = addon::packaging::hostio::readStringList(inputs[1]);
  } else if (qxIsChar(inputs[1])) {
    folders.push_back(matrix::get_ustring(inputs[1]));
  } else {
    return;
  }
  if (folders.empty()) return;
  guarded<keys::ZVADDON_BUILTINS_ERROR_ADD_FOLDERS>(path, [&] {
    withPackage(path, OpenMode::Modify, [&](AddonPackage& package) { package.addFolders(folders); });
  });
}

ZV_GATEWAY void zvAddonExtractAllFiles(int outputCount, qxArray** /*outputs*/, int inputCount,
                                       const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  const ustring destination = matrix::get_ustring(inputs[1]);
  guarded(
      path,
      [&] { withPackage(path, OpenMode::Read, [&](AddonPackage& package) { package.extractAllFiles(destination); }); },
      [&](const char* what) { return keys::ZVADDON_BUILTINS_ERROR_EXTRACT_ALL_FILES(path, destination, what); });
}

ZV_GATEWAY void zvAddonGetFileList(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_GET_FILE_LIST>(path, [&] {
    std::vector<ustring> files;
    withPackage(path, OpenMode::Read, [&](AddonPackage& package) { files = package.getFileList(); });
    outputs[0] = addon::packaging::hostio::makeStringList(files).release();
  });
}

ZV_GATEWAY void zvAddonSetScreenshot(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  const ustring imagePath = matrix::get_ustring(inputs[1]);
  guarded(
      path,
      [&] { withPackage(path, OpenMode::Modify, [&](AddonPackage& package) { package.setScreenshot(imagePath); }); },
      [&](const char* what) { return keys::ZVADDON_BUILTINS_ERROR_SET_SCREENSHOT(imagePath, path, what); });
}

// The image comes back as standard padded base64 text.
ZV_GATEWAY void zvAddonGetScreenshot(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_GET_SCREENSHOT>(path, [&] {
    std::vector<std::uint8_t> bytes;
    withPackage(path, OpenMode::Read, [&](AddonPackage& package) { bytes = package.getScreenshot(); });
    outputs[0] = qxCreateString(foundation::crypto::utils::base64EncodeNarrow(bytes).c_str());
  });
}

// One file per call, raised under the instruction-sets key.
ZV_GATEWAY void zvAddonAddInstructionSet(int outputCount, qxArray** /*outputs*/, int inputCount,
                                         const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS>(path, [&] {
    const std::vector<ustring> files{matrix::get_ustring(inputs[1])};
    withPackage(path, OpenMode::Modify, [&](AddonPackage& package) { package.addInstructionSets(files); });
  });
}

// No open or close here: signAddonRequirements opens for updating and closes itself.
ZV_GATEWAY void zvAddonSign(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SIGN>(path, [&] {
    AddonPackage package(path);
    package.signAddonRequirements();
  });
}
