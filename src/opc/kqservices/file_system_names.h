#pragma once
// Paths inside an add-on: splitting, the components a file system can hold, and the encoding of a
// component into a part-name segment. Internal to the file-system manager.
#include <string>
#include <vector>

#include "foundation/ustring.h"

namespace opc::kqservices::detail {

// Splits a '/'-separated path (a leading '/' is optional) into its components, or throws
// opc::Exception naming `path` when a component could not be written back below a folder: empty,
// "." or "..", holding '\' or NUL, starting with a drive prefix (ASCII letter and ':'), or longer
// than a file name may be (255 bytes of UTF-8).
[[nodiscard]] std::vector<ustring> splitPath(const ustring& path);

// The reason `component` is refused, or nullptr when it is acceptable (same rules as splitPath).
[[nodiscard]] const char* componentDefect(const ustring& component);

// The segment of a part name for a file name: unreserved characters, sub-delimiters and '@' as they
// are; ASCII characters a URI cannot hold, and control and space characters beyond ASCII, as ":XX"
// per UTF-8 byte; ':' and every other character beyond ASCII percent-encoded as UTF-8; then a bare
// ':' appended to a segment that a part name could not hold or would misread (one ending in '.', and
// "_rels", which would make a relationships part name). Throws opc::Exception for an unpaired
// surrogate.
[[nodiscard]] ustring encodeComponent(const ustring& name);
// The inverse: "%XX" and ":XX" are bytes, a bare ':' at the end is dropped. Lenient with forms the
// encoding does not produce; throws opc::Exception when the bytes are not UTF-8 or a '%' is not
// followed by two hex digits.
[[nodiscard]] ustring decodeComponent(ustring_view segment);
// decodeComponent appended to `out`; `bytes` is scratch room, reused across calls to spare allocations.
void appendDecoded(ustring& out, ustring_view segment, std::string& bytes);

}  // namespace opc::kqservices::detail
