#include "opc/file_system_ops.h"
#include "package/addon_package.h"

namespace addon::packaging {
namespace {

constexpr char16_t kPartPrefix[] = u"/metadata/InstructionSets/";
constexpr char16_t kIdPrefix[] = u"rId_IS_";
constexpr char16_t kContentType[] = u"application/vnd.kestrelon.zorvan.addon.instructionSet+xml";
constexpr char16_t kRelationship[] = u"relationships/instructionSets";

}  // namespace

// A second file of the same name fails in createPart; the caller's revert discards the first.
void AddonPackage::addInstructionSets(const std::vector<ustring>& files) {
  if (files.empty()) return;
  const opc::FileSystemOps fileSystem;
  for (const ustring& path : files) {
    const ustring fileName = fileSystem.getFilename(path);
    const opc::model::PartName name(kPartPrefix + fileName);
    const opc::model::PartPtr part = package_.createPart(name, opc::model::ContentType(kContentType));
    package_.getRelationships().createRelationship(name.getURI(), schemaURI(kRelationship), kIdPrefix + fileName);
    copyFileIntoPart(*part, path);
  }
}

bool AddonPackage::hasInstructionSets() {
  return !package_.getRelationships().getRelationshipsByType(schemaURI(kRelationship)).empty();
}

}  // namespace addon::packaging
