#pragma once
// Names fixed by the packaging conventions.
#include "foundation/ustring.h"
#include "opc/model/part_name.h"
#include "opc/model/uri.h"

namespace opc::model {

class PackageHelper {
 public:
  // "/": the source URI of package-level relationships.
  [[nodiscard]] static const URI& getPackageRootURI();

  static constexpr char16_t kThumbnailRelationshipType[] =
      u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail";
  static constexpr char16_t kCorePropertiesRelationshipType[] =
      u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
  static constexpr char16_t kCorePropertiesContentType[] =
      u"application/vnd.openxmlformats-package.core-properties+xml";
  static constexpr char16_t kCorePropertiesNamespace[] =
      u"http://schemas.openxmlformats.org/package/2006/metadata/core-properties";
  static constexpr char16_t kDigitalSignatureOriginRelationshipType[] =
      u"http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/origin";
  static constexpr char16_t kDigitalSignatureRelationshipType[] =
      u"http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/signature";
  static constexpr char16_t kDigitalSignatureOriginContentType[] =
      u"application/vnd.openxmlformats-package.digital-signature-origin";
  static constexpr char16_t kDigitalSignatureXMLSignatureContentType[] =
      u"application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml";
  static constexpr char16_t kRelationshipsContentType[] = u"application/vnd.openxmlformats-package.relationships+xml";
  static constexpr char16_t kRelationshipsNamespace[] = u"http://schemas.openxmlformats.org/package/2006/relationships";
  static constexpr char16_t kContentTypesNamespace[] = u"http://schemas.openxmlformats.org/package/2006/content-types";

  // "/_rels/.rels" for the root, "/a/_rels/b.xml.rels" for "/a/b.xml".
  [[nodiscard]] static PartName getRelationshipsPartName(const URI& source);
  // The inverse: the source URI ("/" or a part name's URI) of a relationships part name. Throws
  // opc::Exception when `relationshipsPart` is no relationships part name or names the relationships
  // of a relationships part.
  [[nodiscard]] static URI getSourceURI(const PartName& relationshipsPart);
};

}  // namespace opc::model
