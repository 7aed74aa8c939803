#include "opc/model/package.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

#include "foundation/clock.h"
#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/content_types.h"
#include "opc/model/package_helper.h"
#include "opc/zippackage/zip_physical_package.h"
#include "opc/detail/xml_text.h"
#include "opc/xml/xerces_helper.h"

namespace opc::model {

namespace {

using opc::detail::narrow;
using zippackage::ZipEntry;

// A hostile relationships part cannot make us parse more than this.
constexpr std::uint64_t kMaxRelationshipsBytes = 64u << 20;
// Nor can all the XML that opening parses ([Content_Types].xml and every relationships part) exceed a
// share per item: the DOM of a deflate bomb would otherwise take gigabytes from a small file.
constexpr std::uint64_t kXmlBaseBytes = 16u << 20;
constexpr std::uint64_t kXmlBytesPerItem = 4u << 10;

std::string describeEntry(const ZipEntry& entry) {
  return "entry " + std::to_string(entry.index) + " '" + std::string(entry.name) + "'";
}

// Calls `visit` with every proper prefix segment of `name` ("/a", "/a/b" for "/a/b/c") and its hash.
template <class Visit>
void forEachPrefix(std::string_view name, Visit visit) {
  for (std::size_t i = name.find('/', 1); i != std::string_view::npos; i = name.find('/', i + 1)) {
    visit(PartNameKey{name.substr(0, i), PartNameKeyHash{}(name.substr(0, i))});
  }
}

void readRelationships(InputStream& stream, Relationships& target, const std::string& what, std::uint64_t maxBytes) {
  opc::detail::readXmlDocument(
      stream, PackageHelper::kRelationshipsNamespace, what, std::min(maxBytes, kMaxRelationshipsBytes),
      [&](const opc::detail::XmlElement& root) {
        if (root.localName != u"Relationships") {
          throw Exception(what + ": the document element is not 'Relationships'");
        }
        root.requireOnly({}, what);
      },
      [&](const opc::detail::XmlElement& child) {
        if (child.ns != PackageHelper::kRelationshipsNamespace || child.localName != u"Relationship") {
          throw Exception(what + ": unexpected element '" + narrow(child.localName) + "'");
        }
        if (!child.children.empty()) throw Exception(what + ": element 'Relationship' has unexpected content");
        child.requireOnly({u"Id", u"Type", u"Target", u"TargetMode"}, what);
        const ustring& id = child.required(u"Id", what);
        const ustring& type = child.required(u"Type", what);
        const ustring& targetText = child.required(u"Target", what);
        const ustring* mode = child.attribute(u"TargetMode");
        if (mode != nullptr && *mode != u"External" && *mode != u"Internal") {
          throw Exception(what + ": invalid TargetMode '" + narrow(*mode) + "'");
        }
        if (id.empty()) throw Exception(what + ": a Relationship has an empty Id");
        try {
          target.createRelationship(URI(targetText), type, id,
                                    mode != nullptr && *mode == u"External" ? TargetMode::External : TargetMode::Internal);
        } catch (const Exception& e) {
          throw Exception(what + ": " + e.what());
        }
      });
  target.markSaved();
}

}  // namespace

Package::Package(zippackage::ZipPhysicalPackage& physical)
    : physical_(physical), relationships_(PackageHelper::getPackageRootURI()) {}

Package::~Package() {
  revert();
}

void Package::requireOpen() const {
  if (!mode_) throw Exception("package '" + physical_.getNarrowPath() + "' is not open");
}

void Package::requireWritable() const {
  requireOpen();
  if (*mode_ == interfaces::OpenMode::Read) {
    throw Exception("package '" + physical_.getNarrowPath() + "' is open for reading only");
  }
}

void Package::open(interfaces::OpenMode mode) {
  if (mode_) throw Exception("package '" + physical_.getNarrowPath() + "' is already open");
  switch (mode) {
    case interfaces::OpenMode::Read:
    case interfaces::OpenMode::Modify:
      physical_.openArchive();
      try {
        load();
      } catch (...) {
        release();
        throw;
      }
      break;
    case interfaces::OpenMode::Create: {
      const std::string folder = opc::detail::folderOf(physical_.getNarrowPath());
      struct stat st {};
      if (::stat(folder.c_str(), &st) != 0) {
        throw Exception(opc::detail::osError("cannot create package '" + physical_.getNarrowPath() + "': folder",
                                             folder, errno));
      }
      if (!S_ISDIR(st.st_mode)) {
        throw Exception("cannot create package '" + physical_.getNarrowPath() + "': '" + folder + "' is no folder");
      }
      structureChanged_ = true;
      break;
    }
    default:
      throw Exception("unknown open mode " + std::to_string(static_cast<int>(mode)));
  }
  mode_ = mode;
  relationships_.readOnly_ = mode == interfaces::OpenMode::Read;
}

void Package::load() {
  const XercesGuard xml;  // one initialisation for all the XML items read below
  const std::string& path = physical_.getNarrowPath();
  const auto& entries = physical_.getEntries();
  const ZipEntry* contentTypesEntry = nullptr;
  for (const auto& entry : entries) {
    if (entry.name == detail::kContentTypesItemName) {
      if (contentTypesEntry != nullptr) throw Exception("package '" + path + "': two [Content_Types].xml items");
      contentTypesEntry = &entry;
    }
  }
  if (contentTypesEntry == nullptr) {
    throw Exception("package '" + path + "' is no OPC package: it has no [Content_Types].xml item");
  }
  if (contentTypesEntry->encrypted) throw Exception("package '" + path + "': [Content_Types].xml is encrypted");
  xmlBudget_ = kXmlBaseBytes + kXmlBytesPerItem * entries.size();
  contentTypesEntry_ = contentTypesEntry->index;
  const auto contentTypes = [&] {
    const std::string where = "package '" + path + "': [Content_Types].xml";
    const std::uint64_t maxBytes = spendXml(*contentTypesEntry, where);
    const auto stream = physical_.openEntry(contentTypesEntry->index);
    return detail::ContentTypeMap::read(*stream, where, maxBytes);
  }();

  parts_.reserve(entries.size());
  byKey_.reserve(entries.size());
  std::vector<std::pair<PartName, const ZipEntry*>> relationshipParts;
  std::unordered_map<std::string, std::size_t, PartNameKeyHash, PartNameKeyEqual> relationshipKeys;
  for (const auto& entry : entries) {
    if (&entry == contentTypesEntry) continue;
    if (!entry.name.empty() && entry.name.back() == '/') {  // a folder item: no part, carried as it is
      carriedItems_.push_back(entry.index);
      continue;
    }
    const auto where = [&] { return "package '" + path + "': " + describeEntry(entry); };  // for errors only
    if (entry.encrypted) throw Exception(where() + " is encrypted");
    if (!entry.compression) {
      throw Exception(where() + " uses compression method " + std::to_string(entry.compressionMethod) +
                      " (stored and deflate are supported)");
    }
    std::optional<PartName> name;
    try {
      name.emplace(PartName::fromZipItemName(entry.name));
    } catch (const Exception& e) {
      throw Exception(where() + ": " + e.what());
    }
    if (name->isRelationshipsPartName()) {
      if (!relationshipKeys.emplace(name->text(), relationshipParts.size()).second) {
        throw Exception(where() + ": its name is equivalent to that of another item");
      }
      relationshipParts.emplace_back(*name, &entry);
      continue;
    }
    const std::size_t hash = PartNameKeyHash{}(name->text());
    const ContentType* type = contentTypes.lookup(*name, hash);
    if (type == nullptr) throw Exception(where() + ": part '" + std::string(name->text()) + "' has no content type");
    PartPtr part = std::make_shared<Part>(Part::Key{}, this, std::move(*name), *type, *entry.compression);
    part->sourceEntry_ = entry.index;
    part->attributes_.setTime(entry.attributes.lastModified);
    part->attributes_.setMode(entry.attributes.unixMode);
    try {
      insertPart(part, hash);
    } catch (const Exception& e) {
      throw Exception(where() + ": " + e.what());
    }
  }

  const ContentType relationshipsType(PackageHelper::kRelationshipsContentType);
  for (const auto& [name, entry] : relationshipParts) {
    const std::string where = "package '" + path + "': relationships part '" + std::string(name.text()) + "' (" +
                              describeEntry(*entry) + ")";
    forEachPrefix(name.text(), [&](const PartNameKey& prefix) {
      if (byKey_.contains(prefix)) throw Exception(where + ": a part is named like one of its folders");
    });
    const ContentType* type = contentTypes.lookup(name);
    if (type == nullptr || !(*type == relationshipsType)) {
      throw Exception(where + ": its content type is not that of relationships");
    }
    URI source;
    try {
      source = PackageHelper::getSourceURI(name);
    } catch (const Exception& e) {
      throw Exception(where + ": " + e.what());
    }
    if (source.toString() == u"/") {
      readRelationships(*physical_.openEntry(entry->index), relationships_, where, spendXml(*entry, where));
      relationshipsEntry_ = entry->index;
      continue;
    }
    // A part's relationships are read when first asked for (Part::relationships).
    const auto found = byKey_.find(PartName(source.toString()).text());
    if (!found) throw Exception(where + ": its source part does not exist");
    parts_[*found]->relationshipsEntry_ = entry->index;
  }
}

std::uint64_t Package::spendXml(const ZipEntry& entry, const std::string& where) {
  if (entry.size > xmlBudget_) {
    const std::size_t items = physical_.getEntries().size();
    throw Exception(where + ": the XML read from the package would exceed " +
                    std::to_string(kXmlBaseBytes + kXmlBytesPerItem * items) + " bytes for " + std::to_string(items) +
                    " items");
  }
  const std::uint64_t allowed = xmlBudget_;
  xmlBudget_ -= entry.size;
  return allowed;
}

void Package::readPartRelationships(std::uint64_t index, Relationships& target) {
  const XercesGuard xml;
  const ZipEntry& entry = physical_.getEntries()[index];
  const std::string where = "package '" + physical_.getNarrowPath() + "': relationships part '" +
                            std::string(PartName::fromZipItemName(entry.name).text()) + "' (" + describeEntry(entry) + ")";
  readRelationships(*physical_.openEntry(index), target, where, spendXml(entry, where));
}

void Package::insertPart(PartPtr part, std::size_t hash) {
  const std::string_view text = part->getPartName().text();
  const PartNameKey key{text, hash};
  const auto name = [&] { return std::string(text); };  // for errors only
  if (byKey_.contains(key)) throw Exception("a part named like '" + name() + "' exists (names differ in case only or not at all)");
  if (folders_.contains(key)) throw Exception("part name '" + name() + "' is a prefix segment of another part's name");
  // Parts come mostly folder by folder: when this part's folder is the last one's, its prefixes are
  // folders already (so none is a part) and their counts are where they were.
  const std::string_view folder = text.substr(0, text.rfind('/'));
  if (!lastFolderValid_ || (folder != lastFolder_ && !opc::detail::equalsIgnoreAsciiCase(folder, lastFolder_))) {
    // A prefix that is a folder already cannot be a part; only new folders need the part check. All
    // checks come before any change, so a refused part leaves the index as it was.
    lastFolderValid_ = false;
    counted_.clear();
    uncounted_.clear();
    forEachPrefix(text, [&](const PartNameKey& prefix) {
      if (const auto it = folders_.find(prefix); it != folders_.end()) {
        counted_.push_back(&it->second);  // values stay put when the map grows
      } else if (byKey_.contains(prefix)) {
        throw Exception("part name '" + name() + "' extends the name of another part by segments");
      } else {
        uncounted_.push_back(prefix.text);
      }
    });
    for (const std::string_view prefix : uncounted_) {
      counted_.push_back(&folders_.emplace(std::string(prefix), 0u).first->second);
    }
  }
  for (std::uint32_t* count : counted_) ++*count;
  parts_.push_back(std::move(part));
  try {
    byKey_.insert(static_cast<std::uint32_t>(parts_.size() - 1), key.hash);
  } catch (...) {
    parts_.pop_back();
    throw;
  }
  ++partCount_;
  lastFolder_ = folder;
  lastFolderValid_ = true;
}

void Package::removeFromIndex(const PartName& name) {
  lastFolderValid_ = false;  // its counts may go, and its text with its part
  const std::uint32_t number = *byKey_.find(name.text());
  byKey_.erase(name.text());  // reads the part's name: it goes after
  const PartPtr part = std::move(parts_[number]);
  forEachPrefix(name.text(), [&](const PartNameKey& prefix) {
    const auto f = folders_.find(prefix);
    if (--f->second == 0) folders_.erase(f);
  });
  --partCount_;
  // Keep deletion O(1) but the vector no larger than twice the live parts.
  if (parts_.size() > 64 && partCount_ < parts_.size() / 2) {
    std::vector<PartPtr> live;
    live.reserve(partCount_);
    for (auto& p : parts_) {
      if (p) live.push_back(std::move(p));
    }
    parts_ = std::move(live);
    byKey_.clear();
    byKey_.reserve(parts_.size());
    for (std::size_t i = 0; i < parts_.size(); ++i) {
      byKey_.insert(static_cast<std::uint32_t>(i), PartNameKeyHash{}(parts_[i]->getPartName().text()));
    }
  }
}

PartPtr Package::createPart(const PartName& name, const ContentType& contentType, Compression compression) {
  requireWritable();
  if (name.isRelationshipsPartName()) {
    throw Exception("cannot create part '" + std::string(name.text()) +
                    "': relationships parts are made through relationships");
  }
  // A part named like the folder of relationships parts would clash with them when written.
  const std::string_view key = name.text();
  if (key.size() >= 6 && opc::detail::equalsIgnoreAsciiCase(key.substr(key.size() - 6), std::string_view("/_rels"))) {
    throw Exception("cannot create part '" + std::string(name.text()) + "': the segment '_rels' is reserved");
  }
  PartPtr part = std::make_shared<Part>(Part::Key{}, this, name, contentType, compression);
  part->contentChanged_ = true;
  insertPart(part, PartNameKeyHash{}(name));
  structureChanged_ = true;
  return part;
}

PartPtr Package::getPart(const PartName& name) const {
  requireOpen();
  const auto found = byKey_.find(name.text());
  if (!found) {
    throw Exception("package '" + physical_.getNarrowPath() + "' has no part '" + std::string(name.text()) + "'");
  }
  return parts_[*found];
}

bool Package::partExists(const PartName& name) const {
  requireOpen();
  return byKey_.contains(name.text());
}

void Package::deletePart(const PartName& name) {
  requireWritable();
  const auto found = byKey_.find(name.text());
  if (!found) {
    throw Exception("cannot delete part '" + std::string(name.text()) + "' of package '" + physical_.getNarrowPath() +
                    "': no such part");
  }
  parts_[*found]->owner_ = nullptr;
  removeFromIndex(name);
  structureChanged_ = true;
}

std::vector<PartPtr> Package::getParts() const {
  requireOpen();
  std::vector<PartPtr> out;
  out.reserve(partCount_);
  for (const auto& p : parts_) {
    if (p) out.push_back(p);
  }
  return out;
}

Relationships& Package::getRelationships() {
  requireOpen();
  return relationships_;
}

const Relationships& Package::getRelationships() const {
  requireOpen();
  return relationships_;
}

bool Package::isModified() const {
  if (structureChanged_ || relationships_.isModified()) return true;
  for (const auto& p : parts_) {
    if (p && (p->contentChanged_ || p->attributesChanged_ || (p->relationships_ && p->relationships_->isModified()))) return true;
  }
  return false;
}

void Package::close() {
  requireOpen();
  if (*mode_ == interfaces::OpenMode::Create || (*mode_ == interfaces::OpenMode::Modify && isModified())) write();
  release();
}

void Package::revert() noexcept {
  release();
}

void Package::release() noexcept {
  for (auto& p : parts_) {
    if (p) p->owner_ = nullptr;
  }
  lastFolderValid_ = false;
  byKey_.clear();
  parts_.clear();
  folders_.clear();
  partCount_ = 0;
  relationships_ = Relationships(PackageHelper::getPackageRootURI());
  relationshipsEntry_.reset();
  contentTypesEntry_.reset();
  carriedItems_.clear();
  structureChanged_ = false;
  physical_.closeArchive();
  mode_.reset();
}

void Package::write() {
  (void)foundation::clock::sourceDateEpoch<Exception>();  // entries made now carry the clock's time
  const XercesGuard xml;
  using zippackage::EntryAttributes;
  auto writer = physical_.createWriter();
  const auto& entries = physical_.getEntries();
  const ContentType relationshipsType(PackageHelper::kRelationshipsContentType);
  const PartName rootRelationshipsName(u"/_rels/.rels");
  std::vector<PartName> relationshipNames;  // one a part that has relationships, in part order
  for (const auto& p : parts_) {
    if (p && p->hasRelationships()) relationshipNames.push_back(PackageHelper::getRelationshipsPartName(p->getURI()));
  }
  // The file's content types still hold when no part came or went and every relationships part that
  // is there now was there before: then the item is copied like any unchanged part.
  bool sameTypes = contentTypesEntry_.has_value() && !structureChanged_ &&
                   relationships_.empty() != relationshipsEntry_.has_value();
  for (const auto& p : parts_) {
    if (!sameTypes) break;
    if (p && p->hasRelationships() != static_cast<bool>(p->relationshipsEntry_)) sameTypes = false;
  }
  if (sameTypes) {
    writer->copyEntry(detail::kContentTypesItemName, *contentTypesEntry_, entries[*contentTypesEntry_].attributes);
  } else {
    std::vector<std::pair<const PartName*, const ContentType*>> types;
    types.reserve(partCount_ + relationshipNames.size() + 1);
    if (!relationships_.empty()) types.emplace_back(&rootRelationshipsName, &relationshipsType);
    std::size_t next = 0;
    for (const auto& p : parts_) {
      if (!p) continue;
      types.emplace_back(&p->getPartName(), &p->getContentType());
      if (p->hasRelationships()) types.emplace_back(&relationshipNames[next++], &relationshipsType);
    }
    writer->addEntry(detail::kContentTypesItemName,
                     std::make_shared<opc::detail::MemoryContentSource>(detail::buildContentTypesXml(types)),
                     Compression::Deflated, {});
  }

  // Unchanged items, relationships never read among them, keep the names they have in the file.
  const auto copy = [&](std::uint64_t entry, const EntryAttributes& attributes) {
    writer->copyEntry(entries[entry].name, entry, attributes);
  };
  const auto writeRelationships = [&](const Relationships* relationships, const std::optional<std::uint64_t>& entry,
                                      const PartName& name) {
    if (entry && (relationships == nullptr || !relationships->isModified())) return copy(*entry, entries[*entry].attributes);
    writer->addEntry(name.getZipItemName(), std::make_shared<opc::detail::MemoryContentSource>(relationships->toXml()),
                     Compression::Deflated, {});
  };

  if (!relationships_.empty()) writeRelationships(&relationships_, relationshipsEntry_, rootRelationshipsName);
  for (const std::uint64_t item : carriedItems_) copy(item, entries[item].attributes);
  std::size_t relationshipIndex = 0;
  for (const auto& p : parts_) {
    if (!p) continue;
    const EntryAttributes attributes{p->attributes_.time(), p->attributes_.mode()};
    if (!p->contentChanged_ && p->sourceEntry_) {
      copy(*p->sourceEntry_, attributes);
    } else {
      std::shared_ptr<const ContentSource> content = p->content_;
      if (!content) content = std::make_shared<opc::detail::MemoryContentSource>(std::string());
      writer->addEntry(p->getPartName().getZipItemName(), std::move(content), p->compression_, attributes);
    }
    if (p->hasRelationships()) {
      writeRelationships(p->relationships_.get(), p->relationshipsEntry_, relationshipNames[relationshipIndex++]);
    }
  }
  writer->commit();
}

}  // namespace opc::model
