#include "opc/exception.h"

#include "opc/detail/text.h"

namespace opc {

Exception::Exception(std::string message) : message_(std::move(message)) {}

}  // namespace opc

namespace opc::model {

PackageNotFound::PackageNotFound(const ustring& path)
    : opc::Exception("package not found: '" + opc::detail::narrow(path) + "'"), path_(path) {}

}  // namespace opc::model
