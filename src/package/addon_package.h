#pragma once
// One add-on package file held open in the OPC model for a single gateway call.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/ustring.h"
#include "opc/kqservices/core_properties.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/model/package.h"
#include "opc/signature/digital_signature_manager.h"
#include "opc/xml/xerces_helper.h"
#include "opc/zippackage/zip_physical_package.h"
#include "package/xml_part_type.h"

namespace addon::packaging {

class AddonProperties;
class AddonLicense;
class AddonSystemRequirements;

// Owns the physical package and every manager built on it, constructed in declaration order and
// destroyed in reverse; not copyable. The caller opens the package (or the creating constructor does)
// and calls getPackage().close() after the one operation that succeeded.
// Errors: OPC failures propagate as opc::Exception (a missing file as opc::model::PackageNotFound).
// Destruction reverts whatever was not closed, so a failed call leaves the file byte for byte as it was.
class ZV_API AddonPackage {
 public:
  // Creates a new package at `path` and leaves it open: core properties (content type, friendly
  // name, this host's release, creation and modification time) and the properties part. For a type
  // other than "ZORVAN Toolbox" nothing is opened or made; closing it then fails.
  AddonPackage(ustring& path, AddonProperties& properties);
  // Builds the members on `path`; opens nothing.
  explicit AddonPackage(const ustring& path);
  ~AddonPackage();
  AddonPackage(const AddonPackage&) = delete;
  AddonPackage& operator=(const AddonPackage&) = delete;

  // 0 for exactly "ZORVAN Toolbox", otherwise 1 (unknown).
  [[nodiscard]] static int getAddonTypeFromString(const ustring& type);

  // Core properties (title, description, version, creator) and the properties part; the
  // modification time is left as it was.
  void setAddonProperties(AddonProperties& properties);
  void getAddonProperties(AddonProperties& properties);
  void setLicense(AddonLicense& license);
  void getLicense(AddonLicense& license);
  void setSystemRequirements(AddonSystemRequirements& requirements);

  // Stores the record as its part, replacing an earlier one; the root relationship is made only when
  // the part is new. A record that getXMLPart could not read back (beyond the read limits of
  // XercesHelper) is refused with opc::Exception.
  void addXMLPart(XMLPartType& record);
  // Fills the record from the one part the root relates to by the record's type; with none, or more
  // than one, the record is left untouched.
  void getXMLPart(XMLPartType& record);
  // The bytes of the one part the root relates to by `relationshipType`, or nothing.
  [[nodiscard]] std::vector<std::uint8_t> getBinaryPart(const ustring& relationshipType);

  // Content files: file(i) gives the i-th file on disk and its path inside the add-on, asked for in
  // order and once each, so that the caller's lists are never copied whole.
  void addFiles(std::size_t count, const std::function<std::pair<ustring, ustring>(std::size_t)>& file);
  void addFolders(const std::vector<ustring>& folders);
  // Every file and every empty folder, depth first in getChildren's order, each folder's content where
  // the folder stands among its siblings.
  [[nodiscard]] std::vector<ustring> getFileList();
  // getFileList's step: appends what `folder` holds, or the folder itself when it holds nothing.
  void addFilesFromFolder(const opc::kqservices::FileSystemEntry& folder, std::vector<ustring>& files);
  void extractAllFiles(const ustring& destination);

  // Signs the system-requirements part and its root relationship; opens and closes the package.
  void signAddonRequirements();
  // True when unsigned or when every signature whose first signed part is the requirements part
  // verifies; opens the package for reading itself. A signature part that is not well-formed XML
  // names no part and is skipped, whatever it once covered: dropping a signature passes anyway (an
  // unsigned package passes), so skipping it grants nothing. One that reads but does not verify
  // (changed bytes, a broken structure) over the requirements part gives false.
  [[nodiscard]] bool verifyAddonRequirements();
  // The author signature: the signer's certificate over every part but the signature parts and the
  // origin, with every relationship of the root (but the origin's) and of the parts signed. Signing
  // replaces an earlier author signature and leaves the requirements signature as it is (and the
  // other way round). Opens and closes the package; opc::Exception for a key or certificate the
  // signature manager refuses, the package then unchanged.
  void signAsAuthor(const opc::model::CertificateKey& key);
  struct AuthorVerification {
    enum class State { unsigned_, valid, invalid };
    State state = State::unsigned_;
    std::string reason;                                              // why invalid, naming the part
    std::optional<opc::model::CertificateInfo> signer;  // when the certificate decodes
  };
  // Checks the author signature against the PEM bundle `trustStore`: every digest, the value, the
  // chain at the signing time, and that no part or relationship was added since. Opens the package
  // for reading; opc::Exception when it cannot be read or `trustStore` holds no certificate.
  [[nodiscard]] AuthorVerification verifyAuthor(std::string_view trustStore);
  // Which signatures the package holds, read without checking any: whether there is a signature part
  // besides the author's (the requirements signature, readable or not), and the author's signer.
  struct Signatures {
    bool requirements = false;
    std::optional<opc::model::CertificateInfo> author;
  };
  [[nodiscard]] Signatures readSignatures();
  // Masks or unmasks stored key bytes (its own inverse).
  [[nodiscard]] static std::vector<std::uint8_t> customObfuscation(const std::vector<std::uint8_t>& bytes);

  // The primary screenshot, also related as the package thumbnail.
  void setScreenshot(const ustring& imagePath);
  [[nodiscard]] std::vector<std::uint8_t> getScreenshot();
  [[nodiscard]] static ustring getContentTypeFromImageExtension(const ustring& extension);

  void addInstructionSets(const std::vector<ustring>& files);
  [[nodiscard]] bool hasInstructionSets();

  // What the package holds, read from its ZIP directory and relationships through the library's own
  // reader and part-name mapping, never from part content: what a report shows (readSignatures tells
  // what signatures it holds). Lists are in the order of the ZIP directory.
  // Opens the package for reading and closes it; errors are those of opening.
  struct PartSummary {
    ustring name;
    std::uint64_t size = 0;
  };
  struct Contents {
    std::vector<std::pair<ustring, std::uint64_t>> files;  // content files and empty folders: path in the add-on, size
    std::optional<PartSummary> screenshot;                 // the package thumbnail
    std::vector<ustring> instructionSets;                  // their file names
  };
  [[nodiscard]] Contents readContents();

  [[nodiscard]] opc::model::Package& getPackage() { return package_; }
  [[nodiscard]] opc::model::DigitalSignatureManager& getDigitalSignatureManager() { return signatures_; }

 private:
  // Streams the file at `path` into `part`, replacing its content; opc::Exception when the file cannot
  // be read.
  static void copyFileIntoPart(opc::model::Part& part, const ustring& path);
  // The part of the one root relationship of `type`, or nothing when there are none or several.
  [[nodiscard]] std::optional<opc::model::PartName> uniqueTarget(const ustring& type) const;
  // `core` with the record's title, description, version and creator, then the record's part.
  void storeProperties(opc::kqservices::CoreProperties core, AddonProperties& properties);

  opc::zippackage::ZipPhysicalPackage physical_;
  opc::model::Package package_;
  opc::kqservices::CorePropertiesManager coreProperties_;
  opc::kqservices::FileSystemManager fileSystem_;
  opc::model::XercesGuard xerces_;
  opc::model::DigitalSignatureManager signatures_;
};

}  // namespace addon::packaging
