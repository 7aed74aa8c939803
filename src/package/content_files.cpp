// AddonPackage: the add-on's content files and folders, through the file-system manager.
#include "package/addon_package.h"

namespace addon::packaging {

namespace fs = opc::kqservices;

// `second` is indexed, not checked: the gateway always passes two lists of one length, and a
// shorter one is the caller's error (it would be out of range).
void AddonPackage::addFiles(const std::vector<ustring>& first, const std::vector<ustring>& second) {
  for (std::size_t i = 0; i < first.size(); ++i) {
    (void)fileSystem_.addFile(first[i], second[i], fs::TransformMode::Encode);
  }
}

// A folder already present is no error, so adding folders twice is harmless.
void AddonPackage::addFolders(const std::vector<ustring>& folders) {
  for (const ustring& folder : folders) {
    try {
      (void)fileSystem_.createFolder(folder);
    } catch (const fs::FileSystemEntryAlreadyExists&) {
    }
  }
}

// An empty folder is listed under its own path, so that it survives a list-and-rebuild.
std::vector<ustring> AddonPackage::getFileList() {
  return fileSystem_.listFiles();
}

void AddonPackage::extractAllFiles(const ustring& destination) {
  fileSystem_.extractAll(destination, fs::RestoreMode::Attributes, fs::TransformMode::Encode, fs::ReplaceMode::Never);
}

}  // namespace addon::packaging
