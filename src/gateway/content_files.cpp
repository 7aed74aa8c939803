// zvAddonAddFiles, zvAddonAddFolders, zvAddonExtractAllFiles, zvAddonGetFileList: the add-on's content.
#include <functional>
#include <utility>
#include <vector>

#include "gateway/frame.h"
#include "metadata/host_fields.h"

using namespace zvaddon::gateway;

namespace {

// Texts of the cell's elements in element order (the count is the product of its dimensions).
std::vector<ustring> cellTexts(const qxArray* cell) {
  std::vector<ustring> texts;
  const qxSize count = qxGetNumberOfElements(cell);
  texts.reserve(count);
  for (qxSize i = 0; i < count; ++i) texts.push_back(matrix::get_ustring(qxGetCell(cell, i)));
  return texts;
}

}  // namespace

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
    withPackage(path, kModify, [&](AddonPackage& package) { package.addFiles(count, file); });
  });
}

ZV_GATEWAY void zvAddonAddFolders(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  std::vector<ustring> folders;
  if (qxIsCell(inputs[1])) {
    folders = cellTexts(inputs[1]);
  } else if (qxIsChar(inputs[1])) {
    folders.push_back(matrix::get_ustring(inputs[1]));
  } else {
    return;
  }
  if (folders.empty()) return;
  guarded<keys::ZVADDON_BUILTINS_ERROR_ADD_FOLDERS>(path, [&] {
    withPackage(path, kModify, [&](AddonPackage& package) { package.addFolders(folders); });
  });
}

ZV_GATEWAY void zvAddonExtractAllFiles(int outputCount, qxArray** /*outputs*/, int inputCount,
                                       const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  const ustring destination = matrix::get_ustring(inputs[1]);
  guarded(
      path,
      [&] { withPackage(path, kRead, [&](AddonPackage& package) { package.extractAllFiles(destination); }); },
      [&](const char* what) { return keys::ZVADDON_BUILTINS_ERROR_EXTRACT_ALL_FILES(path, destination, what); });
}

ZV_GATEWAY void zvAddonGetFileList(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_GET_FILE_LIST>(path, [&] {
    std::vector<ustring> files;
    withPackage(path, kRead, [&](AddonPackage& package) { files = package.getFileList(); });
    outputs[0] = addon::packaging::hostio::makeStringList(files).release();
  });
}
