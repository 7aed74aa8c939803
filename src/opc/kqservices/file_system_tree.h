#pragma once
// The in-memory picture of the add-on's folder tree, shared by the manager and its extraction.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include <boost/intrusive/set.hpp>

#include "foundation/ustring.h"
#include "opc/interfaces/open_mode.h"
#include "opc/kqservices/file_system_manager.h"

namespace opc::kqservices::detail {

// Orders segments as the package tells part names apart: ASCII letters without case.
struct AsciiCaseLess {
  using is_transparent = void;
  [[nodiscard]] bool operator()(ustring_view a, ustring_view b) const noexcept;
};

// A file or folder, one block a node with its encoded segment and, when it differs, its decoded name
// stored after it, taken from the tree's arena: the budget of building, listing and extracting
// 70,000 entries below 100 MB of peak memory holds a tree of every file, and letting go of the tree
// hands back a few large blocks rather than a heap riddled with small holes. Only folders
// (TreeFolder) carry children, which hang in an intrusive set keyed by their segment without case,
// so a name equal but for case finds its rival. A tree read from a package keeps each name decoded
// when it differs from its segment, as a listing reads every name; nodes added one by one decode
// theirs when asked. Segments are at most 65,535 units (a ZIP item name's bytes), and a decoded name
// is never longer than its segment. Nodes are never destroyed one by one: they hold
// nothing but arena memory, and their links are normal ones, which leave nothing to undo, so a tree
// goes with its arena in one step.
class TreeNode;
class TreeFolder;
using TreeHook = boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>,
                                                 boost::intrusive::link_mode<boost::intrusive::normal_link>>;
struct SegmentOf {
  using type = ustring_view;
  [[nodiscard]] ustring_view operator()(const TreeNode& node) const noexcept;
};

class TreeNode : public TreeHook {
 public:
  using Children = boost::intrusive::set<TreeNode, boost::intrusive::base_hook<TreeHook>,
                                         boost::intrusive::key_of_value<SegmentOf>,
                                         boost::intrusive::compare<AsciiCaseLess>,
                                         boost::intrusive::constant_time_size<false>>;

  TreeNode(const TreeNode&) = delete;
  TreeNode& operator=(const TreeNode&) = delete;
  // A file, or a folder with no children yet; not hung anywhere; `name`, when given, is `segment`
  // decoded, kept for listings. `arena` must outlive the node. Throws opc::Exception for a segment
  // longer than 65,535 units.
  [[nodiscard]] static TreeNode* make(std::pmr::memory_resource& arena, ustring_view segment, const ustring* name,
                                      bool file);

  [[nodiscard]] ustring_view segment() const noexcept;
  // Appends the decoded name ("" for a root).
  void appendName(ustring& out) const;
  // A folder's children; nullptr for a file.
  [[nodiscard]] const Children* children() const noexcept;
  [[nodiscard]] bool hasChildren() const noexcept { return children() != nullptr && !children()->empty(); }
  // The child of that segment (without case), if this is a folder and has one.
  [[nodiscard]] TreeNode* child(ustring_view segmentText) const;
  // Hangs `node` below this folder, keyed by its segment; returns it.
  TreeNode* adopt(TreeNode* node);
  // The child of that segment (without case), or one made by `make` (called with no argument, once)
  // and hung below this folder: one search either way. Returns the node and whether it was made.
  template <class Make>
  std::pair<TreeNode*, bool> childOrAdopt(ustring_view segmentText, Make make);
  // Path below the tree prefix ("a/b%20c"), its part name ("/fsroot/a/b%20c"), and the decoded path
  // name ("/a/b c").
  [[nodiscard]] ustring encodedPath() const;
  [[nodiscard]] ustring partName() const { return FileSystemManager::getPrefix() + encodedPath(); }
  [[nodiscard]] ustring pathName() const;

  struct Named {
    const TreeNode* node;
    ustring name;
  };
  // Ordered by name, then segment (UTF-16 code units); empty for a file. With `folderPath`
  // ("/" or "/a/b"), each name is that path followed by "/" and the name.
  [[nodiscard]] std::vector<Named> sortedChildren(ustring_view folderPath = {}) const;

  TreeNode* parent = nullptr;
  const bool file;
  bool placeholder = false;  // an empty folder held by a part of its own

 protected:
  explicit TreeNode(bool isFile) : file(isFile) {}
  ~TreeNode() = default;

 private:
  [[nodiscard]] const char16_t* text() const noexcept;
  // This node as a folder that is to hold a child of that segment; throws for a file.
  [[nodiscard]] TreeFolder& asParentOf(ustring_view childSegment);
  // The decoded name: the segment (a root's is empty), stored after the segment, or decoded when asked.
  enum class NameForm : std::uint8_t { Segment, Stored, Decoded };
  NameForm nameForm_ = NameForm::Segment;
  std::uint16_t length_ = 0;
  std::uint16_t nameLength_ = 0;
};

class TreeFolder : public TreeNode {
 public:
  TreeFolder() : TreeNode(false) {}  // a root: no segment
  Children members;
};

static_assert(sizeof(TreeNode) <= 40 && sizeof(TreeFolder) <= 64, "a tree node grew: see the budget above");

inline ustring_view SegmentOf::operator()(const TreeNode& node) const noexcept { return node.segment(); }

template <class Make>
std::pair<TreeNode*, bool> TreeNode::childOrAdopt(ustring_view segmentText, Make make) {
  Children& members = asParentOf(segmentText).members;
  Children::insert_commit_data position;
  const auto [it, absent] = members.insert_unique_check(segmentText, position);
  if (!absent) return {&*it, false};
  TreeNode* raw = make();
  raw->parent = this;
  members.insert_unique_commit(*raw, position);
  return {raw, true};
}

// Builds a tree from part names one by one. Keeps the folders of the last path added, so a path in
// the same folder as the one before (the usual order of a package's items) is not walked from the
// root again. Holds a reference to the root, which must outlive it, and the path added last, which
// must outlive the next add; nodes are only ever added.
class TreeBuilder {
 public:
  TreeBuilder(TreeFolder& root, std::pmr::memory_resource& arena) : root_(root), arena_(arena) {}

  // Adds the leaf at `encodedPath` (the part name below the tree prefix, segments encoded) and the
  // folders above it; a folder whose segment is equal but for ASCII case is reused, so the order of
  // the parts decides which spelling the folder shows. Throws opc::Exception when a segment does not
  // decode, when the leaf is there already (an equivalent name), or when the path runs through a
  // leaf or ends on a folder (a name that is a prefix folder of another). A package refuses the last
  // two, so only a tree read from bare item names meets them. On failure the nodes made so far stay.
  void add(std::string_view encodedPath, bool placeholder);

 private:
  struct Folder {
    std::size_t slash;  // where the folder's segment ends in last_
    TreeNode* node;
  };
  TreeFolder& root_;
  std::pmr::memory_resource& arena_;
  std::string_view last_;         // the path added last
  std::vector<Folder> folders_;   // the folders of its segments but the last, root first
  ustring segment_;               // scratch: the segment at hand, widened, and its decoded form
  ustring decoded_;
  std::string bytes_;
};

// A tree with the arena of its nodes (declared first: it goes last).
struct Tree {
  std::pmr::monotonic_buffer_resource arena{64u << 10};
  TreeFolder root;
};

struct TreeIndex : Tree {
  std::size_t partCount = 0;  // the package's part count the tree was last in step with
  std::uint64_t number = 0;   // of the manager's trees
  interfaces::OpenMode mode{};
};

}  // namespace opc::kqservices::detail
