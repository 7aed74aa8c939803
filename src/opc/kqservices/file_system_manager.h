#pragma once
// An add-on's folder tree kept as parts of an OPC package.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "foundation/ustring.h"
#include "opc/exception.h"
#include "opc/file_system_ops.h"

namespace opc::model {
class Package;
}

namespace opc::kqservices {

class FileContentBatch;
class FileSystemManager;

namespace detail {
class TreeNode;
struct TreeIndex;
}  // namespace detail

// Layout in the package. Every file of the tree is one part named "/fsroot/" followed by its path
// inside the add-on, each component encoded on its own (see TransformMode::Encode). Parts outside
// "/fsroot/" (metadata, relationships, signatures) are not part of the tree. A folder exists while a
// part lies below it; an empty folder is one zero-length part named like the folder with the content
// type "application/x-zvaddon-folder" (a part in its own right, so every OPC reader accepts it), which
// is replaced as soon as something is added inside the folder and never listed as a file.
//
// Names: ASCII letters compare without case in part names, so two names of one folder that differ
// only in ASCII case cannot both be held; adding the second throws opc::Exception naming both.
//
// The tree is read from the package's parts on first use while it is open, then kept in step with
// addFile and createFolder; it is read again when the package's part count differs from the one
// it expects (parts created or deleted by others) or the package was reopened in another mode.

// How names inside the add-on become part-name segments (addFile) and back (extractAll).
enum class TransformMode : int {
  // addFile: every component must be a valid part-name segment as it stands (nothing to encode);
  // otherwise opc::Exception. extractAll: files are written under their part-name segments,
  // percent-encodings and escapes kept.
  None = 0,
  // addFile: each component is encoded reversibly into a valid part-name segment: characters that
  // a URI cannot hold are escaped (":20" for a space, "%C3%A9" for an accented letter; see
  // decodeName), and a name ending in "." or equal to "_rels" gets a ":" appended.
  // extractAll: the inverse, so files get back the names they were added under.
  Encode = 1,
};

// What extractAll restores besides names and bytes.
enum class RestoreMode : int {
  None = 0,        // files get the current time and default permissions (0666 less the umask)
  Attributes = 1,  // the recorded modification time (any year, to the 100 ns the package holds)
                   // and permission bits (0777, less the umask), when recorded
};

// What extractAll does with a file already at a target path.
enum class ReplaceMode : int {
  Never = 0,    // the extraction is refused before anything is written
  Replace = 1,  // the existing regular file is removed first (never followed if it is a link)
};

// A node of the tree, file or folder: a value, valid for the manager that returned it as long as
// the tree is not changed in its place.
class FileSystemEntry {
 public:
  FileSystemEntry() = default;

  [[nodiscard]] bool isFile() const { return file_; }
  [[nodiscard]] bool isFolder() const { return !file_; }
  // The path inside the add-on, decoded, "/" first: "/doc/read me.txt"; the root is "/".
  [[nodiscard]] const ustring& getPathName() const& { return pathName_; }
  [[nodiscard]] ustring getPathName() && { return std::move(pathName_); }
  // The last component of getPathName ("" for the root).
  [[nodiscard]] ustring getName() const;

 private:
  friend class FileSystemManager;
  FileSystemEntry(ustring pathName, ustring encodedPath, bool file)
      : pathName_(std::move(pathName)), encodedPath_(std::move(encodedPath)), file_(file) {}

  ustring pathName_ = u"/";
  ustring encodedPath_;  // a folder's path below the tree prefix ("doc/sub:20folder"); "" for files
  bool file_ = false;
  // A folder's node, trusted while the manager's tree is the one numbered `tree_` (nodes stay put in
  // a tree); otherwise the folder is found by encodedPath_.
  const detail::TreeNode* node_ = nullptr;
  const FileSystemManager* owner_ = nullptr;
  std::uint64_t tree_ = 0;
};

// addFile or createFolder met an entry of that path already (exactly that name; a name differing
// in case is a plain opc::Exception).
class [[gnu::visibility("default")]] FileSystemEntryAlreadyExists : public opc::Exception {
 public:
  explicit FileSystemEntryAlreadyExists(const ustring& pathName);
  [[nodiscard]] const ustring& getPathName() const& { return pathName_; }
  [[nodiscard]] ustring getPathName() && { return std::move(pathName_); }

 private:
  ustring pathName_;
};

// Maps the add-on's files and folders onto parts of one package. Holds a reference to the package,
// which must outlive it. The package need not be open on construction; every operation needs it
// open (and writable for addFile and createFolder).
//
// Paths inside the add-on are '/'-separated in the host's text; a leading '/' is optional. A path
// is refused (opc::Exception naming it) when a component is empty, "." or "..", holds '\' or NUL,
// or starts with a drive prefix (an ASCII letter and ':'), since extraction could not write it back.
//
// Errors are opc::Exception (FileSystemEntryAlreadyExists where stated). A failed addFile or
// createFolder leaves the package and the tree as they were.
class FileSystemManager {
 public:
  explicit FileSystemManager(opc::model::Package& package);
  ~FileSystemManager();
  FileSystemManager(const FileSystemManager&) = delete;
  FileSystemManager& operator=(const FileSystemManager&) = delete;

  // Adds the file at `sourcePath` on disk as `pathInAddon`, creating missing folders. The content
  // is streamed from the file when the package is written (it must stay readable until then); its
  // modification time and permission bits are recorded as they are now. Symbolic links are followed.
  // Throws opc::Exception for a source that is missing or no regular file, and
  // FileSystemEntryAlreadyExists when the path is taken.
  FileSystemEntry addFile(const ustring& sourcePath, const ustring& pathInAddon, TransformMode mode);
  // Creates the folder and its missing parents. Throws FileSystemEntryAlreadyExists when the folder
  // exists (also when made implicitly by a file inside it), opc::Exception when a file is in the way.
  FileSystemEntry createFolder(const ustring& pathInAddon);

  [[nodiscard]] FileSystemEntry getRoot() const;
  // The entries directly in a folder, sorted by name (UTF-16 code units); empty for a file. Throws
  // opc::Exception when the folder is no longer in the tree.
  [[nodiscard]] std::vector<FileSystemEntry> getChildren(const FileSystemEntry& folder) const;
  // The entry at a path inside the add-on, if there is one.
  [[nodiscard]] bool exists(const ustring& pathInAddon) const;
  // Lets go of the in-memory tree (read again on next use), e.g. once a batch of additions is done
  // and the package is about to be written, which needs the parts but not the tree.
  void releaseTree() noexcept;

  // Writes the whole tree below `destination` (created when missing; it may itself be a link).
  // Before anything is written, every target is checked and the extraction is refused with an
  // opc::Exception naming the part when a name decodes to a path that would leave the destination
  // ("..", absolute, '\', a drive prefix, NUL), when two parts map to one path, when a part declares
  // more bytes than its compressed data can hold, when an existing component of a target is a
  // symbolic link or not a folder, when a target exists and `replace` is Never, or when the declared
  // sizes exceed the destination's free space. While writing, nothing is followed through a symbolic
  // link (descriptors relative to the destination, O_NOFOLLOW), and an entry whose bytes differ in
  // length from its declared size is an error. On any failure the files and folders this call
  // created are removed again; replaced files are lost.
  void extractAll(const ustring& destination, RestoreMode restore, TransformMode transform,
                  ReplaceMode replace);

  // The inverse of the encoding of one component (TransformMode::Encode). ASCII characters outside
  // a URI's path characters (space, '#', '%', '[', ...) and Unicode control and space characters
  // are written ":XX" per UTF-8 byte rather than "%XX": readers that decode a part name before
  // parsing it as a URI would otherwise meet a space and refuse the whole package. Other non-ASCII
  // characters and ':' are percent-encoded. Throws opc::Exception for bytes that are not UTF-8.
  [[nodiscard]] static ustring decodeName(const ustring& segment);

  // "/fsroot/".
  [[nodiscard]] static const ustring& getPrefix();
  // "application/x-zvaddon-folder".
  [[nodiscard]] static const ustring& getFolderContentType();

 private:
  // The frame of addFile (a source path given) and createFolder (none).
  FileSystemEntry add(const ustring& pathInAddon, TransformMode mode, const ustring* sourcePath);
  detail::TreeIndex& index() const;
  const detail::TreeNode& findFolder(const FileSystemEntry& folder) const;
  void restorePlaceholder(const detail::TreeNode* emptied) noexcept;

  opc::model::Package& package_;
  std::shared_ptr<FileContentBatch> sources_;  // of the files added, made with the first
  mutable std::unique_ptr<detail::TreeIndex> index_;
  mutable std::uint64_t trees_ = 0;  // trees read so far: each one's number
};

}  // namespace opc::kqservices
