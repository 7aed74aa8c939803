#pragma once
// The message-key exception family: how an error with a catalogue key travels to the host.
#include <exception>
#include <string>

#include <boost/exception/exception.hpp>

#include "foundation/message.h"

namespace foundation::core::except {

class IException {
 public:
  virtual ~IException();
  [[nodiscard]] virtual const char* what() const noexcept = 0;
  // A heap copy; the caller owns it.
  [[nodiscard]] virtual IException* clone() const = 0;
  [[noreturn]] virtual void rethrow() const = 0;
};

class IMsgIDException : public virtual IException {
 public:
  [[nodiscard]] virtual std::string GetID() const = 0;
  [[nodiscard]] virtual const msg::BuiltinMessage& GetBaseMsgIDObj() const = 0;
  // "catalogue:key", e.g. "zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_CREATE".
  [[nodiscard]] static std::string get_error_id(const msg::BuiltinMessage& message);
};

// What the host raises: identifier plus message object.
class IUserException : public virtual IMsgIDException {};

// One instantiation per message key. Holds a copy of the message and its identifier.
template <class Key, class Base = std::exception>
class Exception : public IUserException, public Base, public virtual boost::exception {
 public:
  explicit Exception(const Key& message) : message_(message) {}

  void setID(std::string id) { id_ = std::move(id); }

  [[nodiscard]] Exception* clone() const override { return new Exception(*this); }
  [[noreturn]] void rethrow() const override { throw *this; }
  [[nodiscard]] const char* what() const noexcept override { return id_.c_str(); }
  [[nodiscard]] std::string GetID() const override { return id_; }
  [[nodiscard]] const Key& GetBaseMsgIDObj() const override { return message_; }

 private:
  Key message_;
  std::string id_;
};

}  // namespace foundation::core::except
