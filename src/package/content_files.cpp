// AddonPackage: the add-on's content files and folders, through the file-system manager.
#include "package/addon_package.h"

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/zippackage/central_directory.h"

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

// An empty folder is listed under its own path, so that it survives a list-and-rebuild.
std::vector<ustring> AddonPackage::getFileList() {
  return fileSystem_.listFiles();
}

std::vector<ustring> AddonPackage::readFileList(const ustring& path) {
  if (path.empty()) throw opc::Exception("empty package path");
  const std::string narrowPath = opc::detail::toUtf8(path, "package path");
  const opc::detail::UniqueFd fd(opc::zippackage::openPackageFile(path, narrowPath));
  const auto directory = opc::zippackage::CentralDirectory::read(fd.get(), narrowPath);
  return fs::FileSystemManager::listFiles(directory, narrowPath);
}

void AddonPackage::extractAllFiles(const ustring& destination) {
  fileSystem_.extractAll(destination, fs::RestoreMode::Attributes, fs::TransformMode::Encode, fs::ReplaceMode::Never);
}

}  // namespace addon::packaging
