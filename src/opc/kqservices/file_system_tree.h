#pragma once
// The in-memory picture of the add-on's folder tree, shared by the manager and its extraction.
#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include "foundation/ustring.h"
#include "opc/interfaces/open_mode.h"
#include "opc/kqservices/file_system_manager.h"

namespace opc::kqservices::detail {

// A file or folder. Children are keyed by the ASCII-lower-cased segment, which is how the package
// tells part names apart, so a name equal but for case finds its rival.
struct TreeNode {
  ustring name;     // decoded
  ustring segment;  // encoded, as in the part name
  bool file = false;
  bool placeholder = false;  // an empty folder held by a part of its own
  TreeNode* parent = nullptr;
  std::map<ustring, std::unique_ptr<TreeNode>> children;

  [[nodiscard]] TreeNode* child(const ustring& segmentText) const;
  // Path below the tree prefix ("a/b%20c"), and the decoded path name ("/a/b c").
  [[nodiscard]] ustring encodedPath() const;
  [[nodiscard]] ustring pathName() const;
  [[nodiscard]] std::vector<const TreeNode*> sortedChildren() const;
};

struct TreeIndex {
  TreeNode root;
  std::size_t partCount = 0;  // the package's part count the tree was last in step with
  interfaces::OpenMode mode{};
};

}  // namespace opc::kqservices::detail
