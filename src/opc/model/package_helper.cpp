#include "opc/model/package_helper.h"

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::model {

const URI& PackageHelper::getPackageRootURI() {
  static const URI root(u"/");
  return root;
}

PartName PackageHelper::getRelationshipsPartName(const URI& source) {
  const ustring& text = source.toString();
  if (text == u"/") return PartName(u"/_rels/.rels");
  const PartName part(text);  // validates
  const ustring name = part.getName();
  const std::size_t slash = name.rfind(u'/');
  return PartName(name.substr(0, slash + 1) + u"_rels/" + name.substr(slash + 1) + u".rels");
}

URI PackageHelper::getSourceURI(const PartName& relationshipsPart) {
  if (!relationshipsPart.isRelationshipsPartName()) {
    throw Exception("'" + detail::narrow(relationshipsPart.getName()) + "' is no relationships part name");
  }
  const ustring name = relationshipsPart.getName();
  const std::size_t last = name.rfind(u'/');
  const std::size_t relsFolder = name.rfind(u'/', last - 1);
  const ustring folder = name.substr(0, relsFolder + 1);          // "/a/"
  const ustring file = name.substr(last + 1, name.size() - last - 1 - 5);  // "b.xml"
  if (file.empty()) {
    if (folder == u"/") return getPackageRootURI();
    throw Exception("relationships part '" + detail::narrow(name) + "' names no source part");
  }
  const PartName source(folder + file);
  if (source.isRelationshipsPartName()) {
    throw Exception("relationships part '" + detail::narrow(name) +
                    "' holds the relationships of a relationships part");
  }
  return source.getURI();
}

}  // namespace opc::model
