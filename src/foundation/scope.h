#pragma once
// Ownership of C library objects by scope: each library's free function is named once, in its alias.
#include <memory>

template <auto Free>
struct CDeleter {
  void operator()(auto* p) const noexcept { Free(p); }
};
