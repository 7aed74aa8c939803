#include "opc/kqservices/file_system_manager.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <string>

#include "foundation/clock.h"
#include "opc/detail/text.h"
#include "opc/kqservices/file_content_source.h"
#include "opc/kqservices/file_system_names.h"
#include "opc/kqservices/file_system_tree.h"
#include "opc/model/package.h"

namespace opc::kqservices {

using detail::TreeIndex;
using detail::TreeFolder;
using detail::TreeNode;

namespace {

using opc::detail::asciiLower;
using opc::detail::narrow;

// Reproducible builds: with SOURCE_DATE_EPOCH set, no file time written is later than that instant.
FileTime clampedToSourceDateEpoch(FileTime time) {
  if (const auto epoch = foundation::clock::sourceDateEpoch<Exception>()) {
    const FileTime limit{static_cast<std::int64_t>(*epoch), 0};
    if (limit < time) return limit;
  }
  return time;
}

const ustring kPrefix = u"/fsroot/";
constexpr std::string_view kPrefixText = "/fsroot/";  // the same, as part names hold it
const ustring kFolderContentType = u"application/x-zvaddon-folder";

// Content types of files by extension (lower case); anything else is an octet stream. Only what
// an independent reader may want to recognise; the tree does not depend on it.
// Parsed once: every part made from a file shares its type's text.
const model::ContentType& contentTypeFor(const ustring& name) {
  static const std::map<ustring, model::ContentType, std::less<>> known = [] {
    const std::pair<const char16_t*, const char16_t*> table[] = {
        {u"xml", u"application/xml"},  {u"txt", u"text/plain"},  {u"htm", u"text/html"},
        {u"html", u"text/html"},       {u"css", u"text/css"},    {u"json", u"application/json"},
        {u"pdf", u"application/pdf"},  {u"png", u"image/png"},   {u"jpg", u"image/jpeg"},
        {u"jpeg", u"image/jpeg"},      {u"gif", u"image/gif"},   {u"svg", u"image/svg+xml"},
        {u"zip", u"application/zip"},
    };
    std::map<ustring, model::ContentType, std::less<>> map;
    for (const auto& [extension, type] : table) map.emplace(extension, model::ContentType(type));
    return map;
  }();
  static const model::ContentType octets(u"application/octet-stream");
  const std::size_t dot = name.rfind(u'.');
  if (dot == ustring::npos || dot == 0 || name.size() - dot - 1 > 4) return octets;  // none known is longer
  const auto it = known.find(asciiLower(ustring_view(name).substr(dot + 1)));
  return it == known.end() ? octets : it->second;
}

const model::ContentType& folderContentType() {
  static const model::ContentType type(kFolderContentType);
  return type;
}

[[noreturn]] void caseConflict(const ustring& wanted, const TreeNode& existing) {
  throw Exception("cannot add '" + narrow(wanted) + "': '" + narrow(existing.pathName()) +
                  "' differs from it only in case, and a package cannot hold both");
}

// Where a new path meets the tree: the deepest existing folder and the first component below it.
struct Placement {
  TreeNode* folder;
  std::size_t firstMissing;
};

}  // namespace

// ---- TreeNode ----------------------------------------------------------------------------------

bool detail::AsciiCaseLess::operator()(ustring_view a, ustring_view b) const noexcept {
  const std::size_t n = std::min(a.size(), b.size());
  std::size_t i = 0;
  while (i < n && a[i] == b[i]) ++i;  // siblings often share a long prefix spelled alike
  for (; i < n; ++i) {
    const char16_t x = opc::detail::asciiLower(a[i]);
    const char16_t y = opc::detail::asciiLower(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

TreeNode* TreeNode::make(std::pmr::memory_resource& arena, ustring_view segment, const ustring* name, bool file) {
  if (segment.size() > UINT16_MAX) throw Exception("a name in the add-on is too long");
  const bool nameStored = name != nullptr && *name != segment;
  const std::size_t units = segment.size() + (nameStored ? name->size() : 0);
  const std::size_t head = file ? sizeof(TreeNode) : sizeof(TreeFolder);
  void* memory = arena.allocate(head + units * sizeof(char16_t), alignof(TreeFolder));
  TreeNode* node = file ? ::new (memory) TreeNode(true) : ::new (memory) TreeFolder();
  node->length_ = static_cast<std::uint16_t>(segment.size());
  node->nameForm_ = name == nullptr ? NameForm::Decoded : nameStored ? NameForm::Stored : NameForm::Segment;
  auto* text = static_cast<char16_t*>(static_cast<void*>(static_cast<unsigned char*>(memory) + head));
  std::memcpy(text, segment.data(), segment.size() * sizeof(char16_t));
  if (nameStored) {
    node->nameLength_ = static_cast<std::uint16_t>(name->size());
    std::memcpy(text + segment.size(), name->data(), name->size() * sizeof(char16_t));
  }
  return node;
}

const char16_t* TreeNode::text() const noexcept {
  const auto* start = file ? reinterpret_cast<const unsigned char*>(this) + sizeof(TreeNode)
                           : reinterpret_cast<const unsigned char*>(static_cast<const TreeFolder*>(this)) + sizeof(TreeFolder);
  return reinterpret_cast<const char16_t*>(start);
}

ustring_view TreeNode::segment() const noexcept { return {text(), length_}; }

void TreeNode::appendName(ustring& out) const {
  if (nameForm_ == NameForm::Decoded) {
    std::string bytes;
    detail::appendDecoded(out, segment(), bytes);
  } else {
    out.append(nameForm_ == NameForm::Stored ? ustring_view(text() + length_, nameLength_) : segment());
  }
}

const TreeNode::Children* TreeNode::children() const noexcept {
  return file ? nullptr : &static_cast<const TreeFolder*>(this)->members;
}

TreeNode* TreeNode::child(ustring_view segmentText) const {
  if (file) return nullptr;
  const Children& members = static_cast<const TreeFolder*>(this)->members;
  const auto it = members.find(segmentText);
  return it == members.end() ? nullptr : const_cast<TreeNode*>(&*it);
}

TreeFolder& TreeNode::asParentOf(ustring_view childSegment) {
  if (file) throw Exception("internal: a file of the add-on's tree cannot hold '" + narrow(childSegment) + "'");
  return *static_cast<TreeFolder*>(this);
}

TreeNode* TreeNode::adopt(TreeNode* node) {
  asParentOf(node->segment()).members.insert_unique(*node);
  node->parent = this;
  return node;
}

ustring TreeNode::encodedPath() const {
  if (parent == nullptr) return {};
  ustring above = parent->encodedPath();
  if (!above.empty()) above += u'/';
  return above += segment();
}

ustring TreeNode::pathName() const {
  if (parent == nullptr) return u"/";
  ustring above = parent->pathName();
  if (above != u"/") above += u'/';
  appendName(above);
  return above;
}

std::vector<TreeNode::Named> TreeNode::sortedChildren(ustring_view folderPath) const {
  std::vector<Named> out;
  if (file) return out;
  ustring prefix(folderPath);
  if (!prefix.empty() && prefix.back() != u'/') prefix += u'/';
  out.reserve(static_cast<std::size_t>(std::distance(children()->begin(), children()->end())));
  for (const TreeNode& node : *children()) {
    ustring& name = out.emplace_back(Named{&node, {}}).name;
    name.reserve(prefix.size() + (node.nameForm_ == NameForm::Stored ? node.nameLength_ : node.length_));  // at most
    node.appendName(name.append(prefix));
  }
  std::sort(out.begin(), out.end(), [skip = prefix.size()](const Named& a, const Named& b) {
    const int order = ustring_view(a.name).substr(skip).compare(ustring_view(b.name).substr(skip));
    return order != 0 ? order < 0 : a.node->segment() < b.node->segment();
  });
  return out;
}

namespace {

const TreeNode& firstLeaf(const TreeNode& folder) {
  const TreeNode* node = &folder;
  while (node->hasChildren()) node = &*node->children()->begin();
  return *node;
}

}  // namespace

void detail::TreeBuilder::add(std::string_view encodedPath, bool placeholder) {
  // The folders shared with the last path, segment for segment and byte for byte, are known: those
  // whose '/' lies inside the common prefix.
  const std::size_t common = std::min(encodedPath.size(), last_.size());
  std::size_t same = 0;
  while (same + 8 <= common && std::memcmp(encodedPath.data() + same, last_.data() + same, 8) == 0) same += 8;
  while (same < common && encodedPath[same] == last_[same]) ++same;
  const auto firstUnshared = std::lower_bound(folders_.begin(), folders_.end(), same,
                                              [](const Folder& f, std::size_t at) { return f.slash < at; });
  folders_.erase(firstUnshared, folders_.end());
  std::size_t start = folders_.empty() ? 0 : folders_.back().slash + 1;
  last_ = {};  // until the path is in, nothing is known
  TreeNode* folder = folders_.empty() ? &root_ : folders_.back().node;
  for (;;) {
    const std::size_t slash = encodedPath.find('/', start);
    const bool last = slash == std::string_view::npos;
    const std::string_view text = encodedPath.substr(start, last ? std::string_view::npos : slash - start);
    segment_.resize(text.size());  // assign(begin, end) would widen through a temporary string
    std::copy(text.begin(), text.end(), segment_.begin());  // ASCII
    const auto [next, made] = folder->childOrAdopt(segment_, [&] {
      decoded_.clear();
      detail::appendDecoded(decoded_, segment_, bytes_);  // refuses what does not decode
      return TreeNode::make(arena_, segment_, &decoded_, last && !placeholder);
    });
    if (!made) {
      if (next->file || next->placeholder) {
        throw Exception(last ? "its name is equivalent to that of part '" + narrow(next->partName()) + "'"
                             : "part '" + narrow(next->partName()) + "' is named like one of its folders");
      }
      if (last) {
        throw Exception("it is named like a folder of part '" + narrow(firstLeaf(*next).partName()) + "'");
      }
    }
    if (last) {
      next->placeholder = placeholder;
      last_ = encodedPath;
      return;
    }
    folders_.push_back({slash, next});
    folder = next;
    start = slash + 1;
  }
}

// ---- Entries and errors ----------------------------------------------------------------------

ustring FileSystemEntry::getName() const {
  const std::size_t slash = pathName_.rfind(u'/');
  return pathName_.substr(slash + 1);
}

FileSystemEntryAlreadyExists::FileSystemEntryAlreadyExists(const ustring& pathName)
    : Exception(narrow(pathName).insert(0, 1, '\'') + "' is already in the add-on"), pathName_(pathName) {}

// ---- Manager ---------------------------------------------------------------------------------

FileSystemManager::FileSystemManager(model::Package& package) : package_(package) {}

FileSystemManager::~FileSystemManager() = default;

const ustring& FileSystemManager::getPrefix() { return kPrefix; }
const ustring& FileSystemManager::getFolderContentType() { return kFolderContentType; }
ustring FileSystemManager::decodeName(const ustring& segment) { return detail::decodeComponent(segment); }

// The tree is read from the part list once per open package and then kept in step by addFile and
// createFolder; a part count that differs from the one we expect means parts were created or deleted
// behind our back, and the tree is read again.
TreeIndex& FileSystemManager::index() const {
  if (!package_.isOpen()) throw Exception("the package is not open");
  const interfaces::OpenMode mode = *package_.getOpenMode();
  if (index_ && index_->partCount == package_.getPartCount() && index_->mode == mode) return *index_;

  auto fresh = std::make_unique<TreeIndex>();
  const model::ContentType& folderType = folderContentType();
  detail::TreeBuilder builder(fresh->root, fresh->arena);
  for (const model::PartPtr& part : package_.getParts()) {
    const std::string_view name = part->getPartName().text();
    if (name.size() < kPrefixText.size() ||
        !opc::detail::equalsIgnoreAsciiCase(name.substr(0, kPrefixText.size()), kPrefixText)) {
      continue;
    }
    try {
      builder.add(name.substr(kPrefixText.size()), part->getContentType() == folderType);
    } catch (const Exception& e) {
      throw Exception("part '" + std::string(name) + "': " + e.what());
    }
  }
  fresh->partCount = package_.getPartCount();
  fresh->mode = mode;
  fresh->number = ++trees_;
  index_ = std::move(fresh);
  return *index_;
}

namespace {

// Encodes each component, or checks that it needs no encoding (TransformMode::None).
std::vector<ustring> encodePath(const ustring& path, const std::vector<ustring>& components, TransformMode mode) {
  std::vector<ustring> segments;
  segments.reserve(components.size());
  for (const ustring& c : components) {
    segments.push_back(detail::encodeComponent(c));
    if (mode == TransformMode::None && segments.back() != c) {
      throw Exception("invalid path in the add-on '" + narrow(path) + "': '" + narrow(c) +
                      "' cannot stand in a part name unencoded");
    }
  }
  return segments;
}

ustring joinSegments(const std::vector<ustring>& segments) {
  ustring out;
  for (const ustring& segment : segments) {
    if (!out.empty()) out += u'/';
    out += segment;
  }
  return out;
}

// Walks the existing part of the path. Throws for a name equal but for case, for a file in the way,
// and (when the whole path exists) FileSystemEntryAlreadyExists, except that a folder wanted where a
// file is stays a plain error: adding folders ignores the first, and must not ignore the second.
Placement place(TreeNode& root, const ustring& path, const std::vector<ustring>& segments, bool folderWanted) {
  TreeNode* folder = &root;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    TreeNode* next = folder->child(segments[i]);
    if (next == nullptr) return {folder, i};
    if (next->segment() != segments[i]) caseConflict(path, *next);
    if (i + 1 == segments.size() && !(folderWanted && next->file)) {
      throw FileSystemEntryAlreadyExists(next->pathName());
    }
    if (next->file) {
      throw Exception("cannot add '" + narrow(path) + "': '" + narrow(next->pathName()) + "' is a file");
    }
    folder = next;
  }
  return {folder, segments.size()};
}

// Records a successful add in the tree: the folder that held the empty-folder part no longer does,
// and the missing nodes of the path hang below it, the last one a file or an empty folder.
TreeNode* attachMissing(std::pmr::memory_resource& arena, const Placement& at, const std::vector<ustring>& segments,
                        bool file) {
  at.folder->placeholder = false;
  TreeNode* folder = at.folder;
  for (std::size_t i = at.firstMissing; i < segments.size(); ++i) {
    const bool last = i + 1 == segments.size();
    TreeNode* node = TreeNode::make(arena, segments[i], nullptr, last && file);
    node->placeholder = last && !file;
    folder = folder->adopt(node);
  }
  return folder;
}

}  // namespace

// Undoes the removal of an empty folder's part after a failed add. Never throws, so the add's own
// error is the one reported; the tree is read again on next use.
void FileSystemManager::restorePlaceholder(const TreeNode* emptied) noexcept {
  try {
    if (emptied != nullptr) {
      (void)package_.createPart(model::PartName(emptied->partName()), folderContentType());
    }
  } catch (...) {
  }
  index_.reset();
}

void FileSystemManager::releaseTree() noexcept { index_.reset(); }

FileSystemEntry FileSystemManager::addFile(const ustring& sourcePath, const ustring& pathInAddon, TransformMode mode) {
  return add(pathInAddon, mode, &sourcePath);
}

FileSystemEntry FileSystemManager::createFolder(const ustring& pathInAddon) {
  return add(pathInAddon, TransformMode::Encode, nullptr);
}

FileSystemEntry FileSystemManager::add(const ustring& pathInAddon, TransformMode mode, const ustring* sourcePath) {
  const bool file = sourcePath != nullptr;
  TreeIndex& tree = index();
  if (tree.mode == interfaces::OpenMode::Read) {
    throw Exception(std::string("cannot add ") + (file ? "files" : "folders") + ": the package is open for reading");
  }
  const std::vector<ustring> components = detail::splitPath(pathInAddon);
  const std::vector<ustring> segments = encodePath(pathInAddon, components, mode);
  const Placement at = place(tree.root, pathInAddon, segments, !file);
  const model::PartName name(kPrefix + joinSegments(segments));
  FileContentBatch::Added added;
  if (file) {
    if (!sources_) sources_ = std::make_shared<FileContentBatch>();
    added = sources_->add(*sourcePath);
  }

  // An empty folder's part is in the way of anything below it; it comes back if the add fails.
  TreeNode* const emptied = at.folder->placeholder ? at.folder : nullptr;
  if (emptied != nullptr) package_.deletePart(model::PartName(emptied->partName()));
  try {
    const model::PartPtr part = package_.createPart(name, file ? contentTypeFor(components.back()) : folderContentType());
    if (file) {
      part->setContentSource(std::move(added.source));
      part->setLastModifiedTime(clampedToSourceDateEpoch(added.status.lastWriteTime));
      part->setUnixMode(added.status.mode & 0777);
    }
  } catch (...) {
    try {
      if (file && package_.partExists(name)) package_.deletePart(name);
    } catch (...) {
    }
    restorePlaceholder(emptied);
    throw;
  }

  const TreeNode* const node = attachMissing(tree.arena, at, segments, file);
  tree.partCount = package_.getPartCount();
  return FileSystemEntry(node->pathName(), file ? ustring() : node->encodedPath(), file);
}

FileSystemEntry FileSystemManager::getRoot() const {
  (void)index();
  return FileSystemEntry();
}

const TreeNode& FileSystemManager::findFolder(const FileSystemEntry& folder) const {
  TreeIndex& tree = index();
  if (folder.node_ != nullptr && folder.owner_ == this && folder.tree_ == tree.number) return *folder.node_;
  const TreeNode* node = &tree.root;
  const ustring& path = folder.encodedPath_;
  std::size_t start = 0;
  while (start < path.size()) {
    const std::size_t slash = path.find(u'/', start);
    node = node->child(ustring_view(path).substr(start, slash == ustring::npos ? ustring::npos : slash - start));
    if (node == nullptr) throw Exception("'" + narrow(folder.getPathName()) + "' is no longer in the add-on");
    if (slash == ustring::npos) break;
    start = slash + 1;
  }
  return *node;
}

std::vector<FileSystemEntry> FileSystemManager::getChildren(const FileSystemEntry& folder) const {
  std::vector<FileSystemEntry> out;
  if (folder.isFile()) return out;
  // The entry's paths are its node's: only the tree makes entries.
  std::vector<TreeNode::Named> children = findFolder(folder).sortedChildren(folder.pathName_);
  out.reserve(children.size());
  const ustring& base = folder.encodedPath_;
  for (auto& [child, path] : children) {
    ustring encoded;
    if (!child->file) ((encoded = base) += base.empty() ? u"" : u"/") += child->segment();
    FileSystemEntry& entry = out.emplace_back(FileSystemEntry(std::move(path), std::move(encoded), child->file));
    if (!child->file) {
      entry.node_ = child;
      entry.owner_ = this;
      entry.tree_ = index_->number;
    }
  }
  return out;
}

bool FileSystemManager::exists(const ustring& pathInAddon) const {
  const TreeNode* node = &index().root;
  for (const ustring& component : detail::splitPath(pathInAddon)) {
    node = node->child(detail::encodeComponent(component));
    if (node == nullptr) return false;
    ustring name;
    node->appendName(name);
    if (name != component) return false;
  }
  return true;
}

}  // namespace opc::kqservices
