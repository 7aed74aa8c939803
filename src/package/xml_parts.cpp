#include <array>

#include "metadata/license.h"
#include "metadata/system_requirements.h"
#include "opc/kqservices/file_content_source.h"
#include "package/addon_package.h"

namespace addon::packaging {
namespace {

// The record's document as getXMLPart parses it: in the record's namespace, under the read limits.
opc::model::DocumentPtr readRecordDocument(const opc::model::Part& part, const XMLPartType& record) {
  const std::unique_ptr<opc::InputStream> stream = part.getInputStream();
  return opc::model::XercesHelper::readDocumentFromStream(*stream, record.getNamespace());
}

}  // namespace

std::optional<opc::model::PartName> AddonPackage::uniqueTarget(const ustring& type) const {
  const std::vector<opc::model::Relationship> found = package_.getRelationships().getRelationshipsByType(type);
  if (found.size() != 1) return std::nullopt;
  return found.front().getTargetPartName();
}

void AddonPackage::copyFileIntoPart(opc::model::Part& part, const ustring& path) {
  const std::unique_ptr<opc::InputStream> input = opc::kqservices::fileContent(path)->openStream();
  const std::unique_ptr<opc::OutputStream> output = part.getOutputStream();
  opc::copyStream(*input, *output);
  output->flush();
}

void AddonPackage::addXMLPart(XMLPartType& record) {
  const opc::model::PartName name(record.getPartName());
  const bool existed = package_.partExists(name);
  if (existed) package_.deletePart(name);
  opc::model::PartPtr part = package_.createPart(name, opc::model::ContentType(record.getContentType()));
  if (!existed) {
    package_.getRelationships().createRelationship(name.getURI(), record.getRelationshipType());
  }
  opc::model::DocumentPtr document = createRecordDocument();
  record.buildDOM(document);
  const std::unique_ptr<opc::OutputStream> stream = part->getOutputStream();
  opc::model::XercesHelper::writeDocumentToStream(*document, *stream);
  stream->flush();
  try {
    (void)readRecordDocument(*part, record);
  } catch (const opc::Exception& e) {
    throw opc::Exception("'" + std::string(name.text()) + "' would not read back: " + e.what());
  }
}

void AddonPackage::getXMLPart(XMLPartType& record) {
  const std::optional<opc::model::PartName> name = uniqueTarget(record.getRelationshipType());
  if (!name) return;
  record.populateFromDOM(readRecordDocument(*package_.getPart(*name), record).get());
}

std::vector<std::uint8_t> AddonPackage::getBinaryPart(const ustring& relationshipType) {
  std::vector<std::uint8_t> bytes;
  const std::optional<opc::model::PartName> name = uniqueTarget(relationshipType);
  if (!name) return bytes;
  const std::unique_ptr<opc::InputStream> stream = package_.getPart(*name)->getInputStream();
  std::array<std::uint8_t, 8192> buffer;
  for (std::size_t n = 0; (n = stream->read(buffer.data(), buffer.size())) != 0;) {
    bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n));
  }
  return bytes;
}

// The licence and the system requirements have named operations of their own; they store and read
// exactly as any record.
void AddonPackage::setLicense(AddonLicense& license) { addXMLPart(license); }
void AddonPackage::getLicense(AddonLicense& license) { getXMLPart(license); }
void AddonPackage::setSystemRequirements(AddonSystemRequirements& requirements) { addXMLPart(requirements); }

}  // namespace addon::packaging
