#include "opc/model/relationship.h"

#include "opc/detail/text.h"
#include "opc/detail/xml_text.h"
#include "opc/exception.h"
#include "opc/model/package_helper.h"

namespace opc::model {

namespace {

using namespace opc::detail;

// xsd:ID is an NCName. Letters and digits outside ASCII are accepted as the XML name classes do in
// practice; ':' and ASCII punctuation other than '.', '-', '_' are not.
bool isNCName(const ustring& id) {
  if (id.empty()) return false;
  const char16_t first = id[0];
  if (!(isAlpha(first) || first == u'_' || first > 0x7F)) return false;
  for (const char16_t c : id) {
    if (!(isAlpha(c) || isDigit(c) || c == u'_' || c == u'-' || c == u'.' || c > 0x7F)) return false;
    if (c == 0xD7 || c == 0xF7 || (c >= 0xFFFE)) return false;
  }
  return true;
}

std::string describe(const URI& source) {
  return "'" + narrow(source.toString()) + "'";
}

}  // namespace

Relationship::Relationship(ustring id, ustring type, URI target, TargetMode mode, URI source)
    : id_(std::move(id)), type_(std::move(type)), target_(std::move(target)), mode_(mode), source_(std::move(source)) {}

PartName Relationship::getTargetPartName() const {
  if (mode_ == TargetMode::External) {
    throw Exception("relationship '" + narrow(id_) + "' of " + describe(source_) + " has an external target");
  }
  const URI resolved = source_.resolve(target_);
  if (resolved.isAbsolute() || resolved.hasQueryOrFragment()) {
    throw Exception("relationship '" + narrow(id_) + "' of " + describe(source_) + ": target '" +
                    narrow(target_.toString()) + "' names no part");
  }
  try {
    return PartName(resolved.getPath());
  } catch (const Exception& e) {
    throw Exception("relationship '" + narrow(id_) + "' of " + describe(source_) + ": target '" +
                    narrow(target_.toString()) + "' names no valid part: " + e.what());
  }
}

Relationships::Relationships(URI source) : source_(std::move(source)) {}

Relationship Relationships::createRelationship(const URI& target, const ustring& type, const ustring& id,
                                               TargetMode mode) {
  requireWritable();
  ustring actualId = id;
  if (actualId.empty()) {
    for (;;) {
      actualId = u"rId" + widenAscii(std::to_string(nextId_++));
      if (!byId_.contains(actualId)) break;
    }
  } else {
    if (!isNCName(actualId)) {
      throw Exception("relationship id '" + narrow(actualId) + "' of " + describe(source_) + " is no valid XML id");
    }
    if (byId_.contains(actualId)) {
      throw Exception("relationship id '" + narrow(actualId) + "' is already used by " + describe(source_));
    }
  }
  if (type.empty()) throw Exception("relationship '" + narrow(actualId) + "' of " + describe(source_) + " has no type");
  const URI typeUri(type);  // validates
  if (target.empty()) {
    throw Exception("relationship '" + narrow(actualId) + "' of " + describe(source_) + " has no target");
  }
  Relationship relationship(actualId, type, target, mode, source_);
  if (mode == TargetMode::Internal) {
    if (target.isAbsolute()) {
      throw Exception("relationship '" + narrow(actualId) + "' of " + describe(source_) +
                      ": an internal target must be a relative reference, not '" + narrow(target.toString()) + "'");
    }
    (void)relationship.getTargetPartName();  // throws when it names no valid part
  }
  byId_.emplace(actualId, items_.size());
  items_.push_back(relationship);
  modified_ = true;
  return relationship;
}

bool Relationships::hasRelationship(const ustring& id) const {
  return byId_.contains(id);
}

const Relationship& Relationships::getRelationship(const ustring& id) const {
  const auto it = byId_.find(id);
  if (it == byId_.end()) {
    throw Exception("no relationship with id '" + narrow(id) + "' from " + describe(source_));
  }
  return items_[it->second];
}

std::vector<Relationship> Relationships::getRelationshipsByType(const ustring& type) const {
  std::vector<Relationship> out;
  for (const auto& r : items_) {
    if (r.getType() == type) out.push_back(r);
  }
  return out;
}

void Relationships::requireWritable() const {
  if (readOnly_) throw Exception("cannot change the relationships of " + describe(source_) + ": the package is open for reading");
}

bool Relationships::deleteRelationship(const ustring& id) {
  requireWritable();
  const auto it = byId_.find(id);
  if (it == byId_.end()) return false;
  const std::size_t position = it->second;
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(position));
  byId_.erase(it);
  for (auto& [key, index] : byId_) {
    if (index > position) --index;
  }
  modified_ = true;
  return true;
}

std::string Relationships::toXml() const {
  XmlTextWriter writer;
  writer.startElement(u"Relationships", {{u"xmlns", PackageHelper::kRelationshipsNamespace}});
  for (const auto& r : items_) {
    XmlTextWriter::Attributes attributes{
        {u"Id", r.getId()}, {u"Type", r.getType()}, {u"Target", r.getTargetURI().toString()}};
    if (r.getTargetMode() == TargetMode::External) attributes.emplace_back(u"TargetMode", u"External");
    writer.emptyElement(u"Relationship", attributes);
  }
  writer.endElement(u"Relationships");
  return writer.take();
}

}  // namespace opc::model
