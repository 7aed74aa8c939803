// Arbitrary bytes as "[Content_Types].xml" (parsed on its own) and as the package's root
// relationships part (inside a package that is otherwise valid): an opc::Exception or a result.
#include <zip.h>

#include <sstream>

#include "foundation/i18n.h"
#include "fuzz_support.h"
#include "opc/exception.h"
#include "opc/model/content_types.h"
#include "opc/model/package.h"
#include "opc/streams.h"
#include "opc/xml/xerces_helper.h"
#include "opc/zippackage/zip_physical_package.h"

namespace {

constexpr std::string_view kContentTypes =
    R"(<?xml version="1.0" encoding="UTF-8"?><Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
    R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
    R"(<Default Extension="xml" ContentType="application/xml"/></Types>)";

// A stored ZIP of [Content_Types].xml, _rels/.rels (the input) and one part to point at.
std::string writePackage(std::string_view rels) {
  const std::string path = (zvfuzz::scratch() / "rels.zip").string();
  int code = 0;
  zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code);
  if (zip == nullptr) std::abort();
  const auto add = [&](const char* name, std::string_view bytes) {
    zip_source_t* source = zip_source_buffer(zip, bytes.data(), bytes.size(), 0);
    const zip_int64_t index = zip_file_add(zip, name, source, ZIP_FL_OVERWRITE);
    if (index < 0) std::abort();
    zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
  };
  add("[Content_Types].xml", kContentTypes);
  add("_rels/.rels", rels);
  add("a/b.xml", "<b/>");
  if (zip_close(zip) != 0) std::abort();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const opc::model::XercesGuard xml;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  try {
    std::istringstream in(bytes);
    opc::StdIStreamAdaptor stream(in);
    const auto map = opc::model::detail::ContentTypeMap::read(stream, "fuzz input");
    (void)map.lookup(opc::model::PartName(u"/a/b.xml"));
  } catch (const opc::Exception&) {
  }

  const std::string path = writePackage(bytes);
  try {
    opc::zippackage::ZipPhysicalPackage physical(fl::i18n::to_ustring(fl::i18n::codecvt_string_to_ustring("UTF-8"), path),
                                                 false);
    opc::model::Package package(physical);
    package.open(opc::interfaces::OpenMode::Read);
    for (const auto& relationship : package.getRelationships().getRelationships()) {
      if (relationship.getTargetMode() == opc::model::TargetMode::Internal) {
        (void)relationship.getTargetPartName();
      }
    }
    (void)package.getRelationships().toXml();
    package.close();
  } catch (const opc::Exception&) {
  }
  return 0;
}
