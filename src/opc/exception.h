#pragma once
// Errors of the OPC package library.
#include <exception>
#include <string>

#include "foundation/ustring.h"

namespace opc {

// Every failure of the OPC library: a broken or missing container, an invalid part name, a malformed
// XML part, an I/O error. what() says what failed and where (package path, ZIP entry, part name) and
// carries the text of the underlying library (libzip, Xerces, the OS) when there is one.
// All errors are permanent: retrying the same call on the same state fails the same way.
class [[gnu::visibility("default")]] Exception : public std::exception {
 public:
  explicit Exception(std::string message);
  [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

}  // namespace opc

namespace opc::model {

// The package file does not exist (open in modes read and modify).
class [[gnu::visibility("default")]] PackageNotFound : public opc::Exception {
 public:
  explicit PackageNotFound(const ustring& path);
  [[nodiscard]] const ustring& getPath() const { return path_; }

 private:
  ustring path_;
};

}  // namespace opc::model
