#include "opc/model/content_types.h"

#include <algorithm>

#include "opc/detail/text.h"
#include "opc/detail/xml_text.h"
#include "opc/exception.h"
#include "opc/model/package_helper.h"

namespace opc::model::detail {

namespace {

using opc::detail::narrow;

ContentType contentTypeOf(const ustring& text, const std::string& what) {
  try {
    return ContentType(text);
  } catch (const Exception& e) {
    throw Exception(what + ": " + e.what());
  }
}

bool isValidExtension(const ustring& extension) {
  using namespace opc::detail;
  if (extension.empty()) return false;
  for (std::size_t i = 0; i < extension.size(); ++i) {
    const char16_t c = extension[i];
    if (c == u'%') {
      if (i + 2 >= extension.size() || !isHexDigit(extension[i + 1]) || !isHexDigit(extension[i + 2])) return false;
      i += 2;
    } else if (c != u'.' && !isUnreserved(c) && !isSubDelim(c) && c != u':' && c != u'@' && c <= 0x7F) {
      return false;
    } else if (c == u'.') {
      return false;
    }
  }
  return true;
}

}  // namespace

ContentTypeMap ContentTypeMap::read(InputStream& stream, const std::string& what, std::uint64_t maxBytes) {
  ContentTypeMap map;
  opc::detail::readXmlDocument(
      stream, PackageHelper::kContentTypesNamespace, what, std::min(maxBytes, kMaxContentTypesBytes),
      [&](const opc::detail::XmlElement& root) {
        if (root.localName != u"Types") throw Exception(what + ": the document element is not 'Types'");
        root.requireOnly({}, what);
      },
      [&](const opc::detail::XmlElement& child) {
        if (child.ns != PackageHelper::kContentTypesNamespace) {
          throw Exception(what + ": unexpected element '" + narrow(child.localName) + "' in namespace '" +
                          narrow(child.ns) + "'");
        }
        if (!child.children.empty()) {
          throw Exception(what + ": element '" + narrow(child.localName) + "' has unexpected content");
        }
        if (child.localName == u"Default") {
          child.requireOnly({u"Extension", u"ContentType"}, what);
          const ustring& extension = child.required(u"Extension", what);
          if (!isValidExtension(extension)) throw Exception(what + ": invalid extension '" + narrow(extension) + "'");
          const ContentType type = contentTypeOf(child.required(u"ContentType", what), what);
          if (!map.defaults_.emplace(narrow(extension), type).second) {
            throw Exception(what + ": extension '" + narrow(extension) + "' has more than one Default");
          }
        } else if (child.localName == u"Override") {
          child.requireOnly({u"PartName", u"ContentType"}, what);
          const ustring& text = child.required(u"PartName", what);
          std::optional<PartName> name;
          try {
            name.emplace(text);
          } catch (const Exception& e) {
            throw Exception(what + ": Override: " + e.what());
          }
          const ContentType type = contentTypeOf(child.required(u"ContentType", what), what);
          if (!map.overrides_.emplace(name->text(), type).second) {
            throw Exception(what + ": part '" + narrow(text) + "' has more than one Override");
          }
        } else {
          throw Exception(what + ": unexpected element '" + narrow(child.localName) + "'");
        }
      });
  return map;
}

const ContentType* ContentTypeMap::lookup(const PartName& name, std::size_t hash) const {
  if (!overrides_.empty()) {
    if (const auto it = overrides_.find(PartNameKey{name.text(), hash}); it != overrides_.end()) return &it->second;
  }
  const std::string_view extension = name.extensionView();
  if (extension.empty()) return nullptr;
  if (const auto it = defaults_.find(extension); it != defaults_.end()) return &it->second;
  return nullptr;
}

std::string buildContentTypesXml(const std::vector<std::pair<const PartName*, const ContentType*>>& parts) {
  struct Candidate {
    const ContentType* type;
    std::size_t count;
  };
  struct Extension {
    ustring text;  // as the first part spelled it
    std::vector<Candidate> candidates;
    const ContentType* chosen = nullptr;
  };
  std::vector<Extension> extensions;
  // Keyed by views of the parts' names, which outlive this function.
  std::unordered_map<std::string_view, std::size_t, PartNameKeyHash, PartNameKeyEqual> byKey;
  std::vector<std::size_t> extensionOf(parts.size(), SIZE_MAX);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string_view extension = parts[i].first->extensionView();
    if (extension.empty()) continue;
    auto [it, inserted] = byKey.emplace(extension, extensions.size());
    if (inserted) extensions.push_back(Extension{opc::detail::widenAscii(extension), {}, nullptr});
    extensionOf[i] = it->second;
    auto& candidates = extensions[it->second].candidates;
    bool found = false;
    for (auto& c : candidates) {
      if (*c.type == *parts[i].second) {
        ++c.count;
        found = true;
        break;
      }
    }
    if (!found) candidates.push_back(Candidate{parts[i].second, 1});
  }
  for (auto& e : extensions) {
    const Candidate* best = &e.candidates.front();
    for (const auto& c : e.candidates) {
      if (c.count > best->count) best = &c;
    }
    e.chosen = best->type;
  }

  opc::detail::XmlTextWriter writer;
  writer.startElement(u"Types", {{u"xmlns", PackageHelper::kContentTypesNamespace}});
  for (const auto& e : extensions) {
    writer.emptyElement(u"Default", {{u"Extension", e.text}, {u"ContentType", e.chosen->toString()}});
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::size_t ext = extensionOf[i];
    if (ext != SIZE_MAX && *extensions[ext].chosen == *parts[i].second) continue;
    const ustring name = parts[i].first->getName();
    writer.emptyElement(u"Override", {{u"PartName", name}, {u"ContentType", parts[i].second->toString()}});
  }
  writer.endElement(u"Types");
  return writer.take();
}

}  // namespace opc::model::detail
