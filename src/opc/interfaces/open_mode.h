#pragma once

namespace opc::interfaces {

// How Package::open treats the file. The numeric values are part of the contract.
enum class OpenMode : int {
  Read = 0,    // an existing package, read only: close() writes nothing
  Create = 1,  // a new, empty package; an existing file at the path is replaced on close()
  Modify = 2,  // an existing package, read and changed: close() replaces the file atomically
};

}  // namespace opc::interfaces
