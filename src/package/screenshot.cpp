#include <locale>

#include "opc/file_system_ops.h"
#include "opc/model/package_helper.h"
#include "package/addon_package.h"

namespace addon::packaging {
namespace {

constexpr char16_t kScreenshotPrefix[] = u"/metadata/primaryScreenShot.";
constexpr char16_t kScreenshotId[] = u"rId100";
constexpr char16_t kThumbnailId[] = u"rId101";
constexpr char16_t kJpeg[] = u"image/jpeg";
constexpr char16_t kScreenshotRelationship[] = u"relationships/primaryScreenShot";

}  // namespace

ustring AddonPackage::getContentTypeFromImageExtension(const ustring& extension) {
  // Non-ASCII characters cannot match any known extension; they stay as they are.
  std::string lowered;
  const auto& facet = std::use_facet<std::ctype<char>>(std::locale());
  for (char16_t c : extension) lowered.push_back(c < 0x80 ? facet.tolower(static_cast<char>(c)) : '\x80');
  if (lowered == "png") return u"image/png";
  if (lowered == "tiff") return u"image/tiff";
  if (lowered == "gif") return u"image/gif";
  if (lowered == "bmp") return u"image/bmp";
  return kJpeg;
}

void AddonPackage::setScreenshot(const ustring& imagePath) {
  opc::model::Relationships& relationships = package_.getRelationships();
  if (relationships.hasRelationship(kScreenshotId)) {
    const opc::model::PartName old = relationships.getRelationship(kScreenshotId).getTargetPartName();
    package_.deletePart(old);
    relationships.deleteRelationship(kScreenshotId);
    relationships.deleteRelationship(kThumbnailId);
  }
  const ustring extension = opc::FileSystemOps().getExtension(imagePath);
  const ustring contentType = getContentTypeFromImageExtension(extension);
  const opc::model::PartName name(kScreenshotPrefix + (contentType == kJpeg ? ustring(u"jpg") : extension));
  const opc::model::PartPtr part = package_.createPart(name, opc::model::ContentType(contentType));
  relationships.createRelationship(name.getURI(), schemaURI(kScreenshotRelationship), kScreenshotId, opc::model::TargetMode::Internal);
  relationships.createRelationship(name.getURI(), opc::model::PackageHelper::kThumbnailRelationshipType, kThumbnailId,
                                   opc::model::TargetMode::Internal);
  copyFileIntoPart(*part, imagePath);
}

std::vector<std::uint8_t> AddonPackage::getScreenshot() { return getBinaryPart(schemaURI(kScreenshotRelationship)); }

}  // namespace addon::packaging
