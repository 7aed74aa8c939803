// AddonPackage: the add-on's content files and folders, through the file-system manager.
#include "package/addon_package.h"


namespace addon::packaging {

namespace fs = opc::kqservices;

void AddonPackage::addFiles(std::size_t count, const std::function<std::pair<ustring, ustring>(std::size_t)>& file) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto [source, target] = file(i);
    (void)fileSystem_.addFile(source, target, fs::TransformMode::Encode);
  }
  // Closing writes the package next, which needs the parts but not the tree (megabytes for a large add-on).
  fileSystem_.releaseTree();
}

// A folder already present is no error, so adding folders twice is harmless.
void AddonPackage::addFolders(const std::vector<ustring>& folders) {
  for (const ustring& folder : folders) {
    try {
      (void)fileSystem_.createFolder(folder);
    } catch (const fs::FileSystemEntryAlreadyExists&) {
    }
  }
  fileSystem_.releaseTree();
}

std::vector<ustring> AddonPackage::getFileList() {
  std::vector<ustring> files;
  files.reserve(package_.getPartCount());  // every file and every empty folder is a part
  for (fs::FileSystemEntry& child : fileSystem_.getChildren(fileSystem_.getRoot())) {
    if (child.isFile()) {
      files.push_back(std::move(child).getPathName());
    } else {
      addFilesFromFolder(child, files);
    }
  }
  return files;
}

// An empty folder is listed under its own path, so that it survives a list-and-rebuild.
void AddonPackage::addFilesFromFolder(const fs::FileSystemEntry& folder, std::vector<ustring>& files) {
  std::vector<fs::FileSystemEntry> children = fileSystem_.getChildren(folder);
  if (children.empty()) files.push_back(folder.getPathName());
  for (fs::FileSystemEntry& child : children) {
    if (child.isFile()) {
      files.push_back(std::move(child).getPathName());
    } else {
      addFilesFromFolder(child, files);
    }
  }
}

void AddonPackage::extractAllFiles(const ustring& destination) {
  fileSystem_.extractAll(destination, fs::RestoreMode::Attributes, fs::TransformMode::Encode, fs::ReplaceMode::Never);
}

}  // namespace addon::packaging
