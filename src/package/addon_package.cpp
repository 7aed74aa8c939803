#include "package/addon_package.h"

#include <boost/date_time/posix_time/conversion.hpp>

#include "foundation/clock.h"
#include "metadata/addon_properties.h"

namespace addon::packaging {
namespace {

constexpr int kToolboxType = 0;
constexpr int kUnknownType = 1;
constexpr char16_t kToolboxName[] = u"ZORVAN Toolbox";
constexpr char16_t kToolboxContentType[] = u"application/vnd.kestrelon.zorvan.toolbox";

}  // namespace

AddonPackage::AddonPackage(const ustring& path)
    : physical_(path, true),
      package_(physical_),
      coreProperties_(package_, opc::kqservices::DeterministicMode::Off),
      fileSystem_(package_),
      signatures_(package_) {}

AddonPackage::AddonPackage(ustring& path, AddonProperties& properties) : AddonPackage(path) {
  if (getAddonTypeFromString(properties.type) != kToolboxType) return;
  package_.open(opc::interfaces::OpenMode::Create);
  opc::kqservices::CoreProperties core(kToolboxContentType, kToolboxName,
                                       foundation::release_info::getCurrentReleaseInfo());
  const boost::posix_time::ptime now = boost::posix_time::from_time_t(foundation::clock::now<opc::Exception>());
  core.setLastModified(now);
  core.setCreated(now);
  storeProperties(core, properties);
}

// Like every part written, the core properties must read back under the read limits.
void AddonPackage::storeProperties(opc::kqservices::CoreProperties core, AddonProperties& properties) {
  core.setTitle(properties.name);
  core.setDescription(properties.summary);
  core.setVersion(properties.version);
  core.setCreator(properties.authorName);
  coreProperties_.setCoreProperties(core);
  try {
    (void)coreProperties_.getCoreProperties();
  } catch (const opc::Exception& e) {
    throw opc::Exception(std::string("the core properties would not read back: ") + e.what());
  }
  addXMLPart(properties);
}

AddonPackage::~AddonPackage() { package_.revert(); }

int AddonPackage::getAddonTypeFromString(const ustring& type) {
  return type == kToolboxName ? kToolboxType : kUnknownType;
}

void AddonPackage::setAddonProperties(AddonProperties& properties) {
  storeProperties(coreProperties_.getCoreProperties(), properties);
}

void AddonPackage::getAddonProperties(AddonProperties& properties) {
  const opc::kqservices::CoreProperties core = coreProperties_.getCoreProperties();
  properties.type = core.getContentTypeFriendlyName().value_or(ustring());
  properties.release = core.getZORVANRelease();
  if (core.getCreator()) properties.authorName = *core.getCreator();
  if (core.getVersion()) properties.version = *core.getVersion();
  if (core.getTitle()) properties.name = *core.getTitle();
  if (core.getDescription()) properties.summary = *core.getDescription();
  properties.lastModified = core.getLastModified();
  getXMLPart(properties);
}

}  // namespace addon::packaging
