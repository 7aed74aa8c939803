// AddonPackage::readContents: the read-only view of a package that reports (the zvaddon tool) show.
#include <string_view>

#include "opc/model/package_helper.h"
#include "package/addon_package.h"

namespace addon::packaging {
namespace {

constexpr std::u16string_view kInstructionSetPrefix = u"/metadata/InstructionSets/";

// A content part's name (below the file system's prefix) back to the path of its file in the add-on.
ustring contentPath(std::u16string_view below) {
  ustring path;
  for (std::size_t start = 0;;) {
    const std::size_t slash = below.find(u'/', start);
    path += u'/';
    path += opc::kqservices::FileSystemManager::decodeName(ustring(below.substr(start, slash - start)));
    if (slash == std::u16string_view::npos) return path;
    start = slash + 1;
  }
}

}  // namespace

AddonPackage::Contents AddonPackage::readContents() {
  package_.open(opc::interfaces::OpenMode::Read);
  Contents contents;
  const ustring& prefix = opc::kqservices::FileSystemManager::getPrefix();
  const std::optional<opc::model::PartName> thumbnail =
      uniqueTarget(opc::model::PackageHelper::kThumbnailRelationshipType);
  for (const opc::zippackage::ZipEntry& entry : physical_.getEntries()) {
    std::optional<opc::model::PartName> name;
    try {
      name.emplace(opc::model::PartName::fromZipItemName(entry.name));
    } catch (const opc::Exception&) {
      continue;  // no part: the content types, a folder item
    }
    if (!package_.partExists(*name)) continue;  // relationships
    const PartSummary summary{name->getName(), package_.getPart(*name)->getSize()};
    const ustring& text = summary.name;
    if (text.starts_with(prefix)) contents.files.emplace_back(contentPath(std::u16string_view(text).substr(prefix.size())), summary.size);
    if (text.starts_with(kInstructionSetPrefix)) contents.instructionSets.push_back(text.substr(kInstructionSetPrefix.size()));
    if (thumbnail && *thumbnail == *name) contents.screenshot = summary;
  }
  package_.close();
  return contents;
}

}  // namespace addon::packaging
