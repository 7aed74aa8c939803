#pragma once
// The frame every gateway function follows: argument counts, the path, the structure check, one
// protected block in which OPC failures become the function's message key, and raising.
#include <functional>
#include <utility>

#include "foundation/except.h"
#include "gateway/message_keys.h"
#include "host/matrix.h"
#include "host/qx.h"
#include "opc/exception.h"
#include "package/addon_package.h"

#define ZV_GATEWAY extern "C" __attribute__((visibility("default")))

namespace zvaddon::gateway {

namespace keys = zvaddon_builtins::zvaddon_builtins;
using addon::packaging::AddonPackage;

// Raises `key` as a host error. Never returns: should the host return, the wrapper is thrown.
template <class Key>
[[noreturn]] void qxErrMsgId(const Key& key) {
  foundation::core::except::Exception<Key, std::exception> error(key);
  error.setID(foundation::core::except::IMsgIDException::get_error_id(error.GetBaseMsgIDObj()));
  matrix::detail::do_legacy_qx_error(error);
  throw error;
}

// Too many outputs first, then too many inputs, then too few.
void checkArgumentCounts(int outputCount, int inputCount, int maxOutputs, int inputs);

// A structure or object passes; so does any array with no elements. Otherwise NON_STRUCT.
void requireStructOrEmpty(const qxArray* value);

// Runs `body` with the package path; a missing package raises PACKAGE_NOT_FOUND (path), any other
// OPC failure the key that `makeKey(what)` builds. Everything else passes through. Objects built in
// `body` are destroyed before the key is raised.
template <class Body, class MakeKey>
void guarded(const ustring& path, Body&& body, MakeKey&& makeKey) {
  try {
    std::forward<Body>(body)();
  } catch (const opc::model::PackageNotFound&) {
    qxErrMsgId(keys::ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND(path));
  } catch (const opc::Exception& e) {
    qxErrMsgId(makeKey(e.what()));
  }
}

// The usual two-argument key: (path, OPC message).
template <class Key, class Body>
void guarded(const ustring& path, Body&& body) {
  guarded(path, std::forward<Body>(body), [&](const char* what) { return Key(path, what); });
}

using opc::interfaces::OpenMode;

// Open on `path` in `mode`, run `operation(package)`, close. The package's destructor reverts on failure.
template <class Operation>
void withPackage(const ustring& path, OpenMode mode, Operation&& operation) {
  AddonPackage package(path);
  package.getPackage().open(mode);
  std::forward<Operation>(operation)(package);
  package.getPackage().close();
}

// Which of a record function's two objects is built first. Both exist before the package opens, so
// either order satisfies the frame; each function keeps the order it was published with.
enum class Order { RecordFirst, PackageFirst };
// Where a Get function stores its structure: after closing (the rule) or before (properties).
enum class Store { AfterClose, BeforeClose };

// A record function's protected block: `make()` builds the record, both objects in `order`; open in
// `mode`, `operation(package, record)`, then `store(record)` and close in the order `when` says.
template <Order order, Store when, class Make, class Operation, class Finish>
void recordSession(const ustring& path, OpenMode mode, Make make, Operation operation, Finish store) {
  const auto run = [&](AddonPackage& package, auto& record) {
    package.getPackage().open(mode);
    std::invoke(operation, package, record);
    if constexpr (when == Store::BeforeClose) store(record);
    package.getPackage().close();
    if constexpr (when == Store::AfterClose) store(record);
  };
  if constexpr (order == Order::RecordFirst) {
    auto record = make();
    AddonPackage package(path);
    run(package, record);
  } else {
    AddonPackage package(path);
    auto record = make();
    run(package, record);
  }
}

// Set function of a record: no outputs, (path, structure), updating.
template <class Record, class Key, Order order = Order::RecordFirst, class Operation>
void setRecord(int outputCount, int inputCount, const qxArray** inputs, Operation operation) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  requireStructOrEmpty(inputs[1]);
  guarded<Key>(path, [&] {
    recordSession<order, Store::AfterClose>(path, OpenMode::Modify, [&] { return Record(inputs[1]); }, operation,
                                            [](Record&) {});
  });
}

// Get function of a record: one output, (path), reading.
template <class Record, class Key, Order order = Order::PackageFirst, Store when = Store::AfterClose,
          class Operation>
void getRecord(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs, Operation operation) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<Key>(path, [&] {
    recordSession<order, when>(path, OpenMode::Read, [] { return Record(); }, operation,
                               [&](Record& record) { outputs[0] = record.getStructArray(); });
  });
}

}  // namespace zvaddon::gateway
