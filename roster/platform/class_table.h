#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "roster/base/export.h"

namespace roster {

/// A class that is known by its name: the name, and the protocols that the class answers.
///
/// A protocol is a struct of functions, one for each class operation. An operation that a class does not
/// answer is an empty function, so whoever calls an optional one looks at it first.
///
///     ClassObject("PhotoCreator").answering(AccountCreationProtocol{.accountWithBasicAccount =
///     &makeAccount})
///
/// Its members are part of the interface between the library and its plug-ins, so they are few and plain.
class ClassObject {
 public:
  /// A class that answers no protocol yet.
  explicit ClassObject(std::string name) : name_(std::move(name)) {}

  /// The class's name, as type tables and registries know it.
  const std::string& name() const { return name_; }

  /// Adds a protocol and returns the object itself, for the next one. When one of the same type is there
  /// already, that stays the one that is found.
  template <class Protocol>
  ClassObject&& answering(Protocol protocol) && {
    protocols_.emplace_back(typeid(Protocol), std::make_shared<const Protocol>(std::move(protocol)));
    return std::move(*this);
  }

  /// The class's answers to a protocol; nil when it answers none of it. Valid as long as the object, or a
  /// copy of it.
  template <class Protocol>
  const Protocol* as() const {
    for (const auto& [type, protocol] : protocols_) {
      if (type == typeid(Protocol)) return static_cast<const Protocol*>(protocol.get());
    }
    return nullptr;
  }

 private:
  std::string name_;
  std::vector<std::pair<std::type_index, std::shared_ptr<const void>>> protocols_;
};

/// A class was asked for an operation that it does not answer.
class ROSTER_EXPORT MissingOperation : public std::logic_error {
 public:
  /// An exception whose text names the class and the operation.
  MissingOperation(const ClassObject& receiver, std::string_view operation);
};

/// A required operation of a class, for a call without asking first; throws MissingOperation when the class
/// does not answer it. `operation` is a member of the protocol, `name` what it is called.
template <class Protocol, class Operation>
const Operation& requiredOperation(const ClassObject& receiver, Operation Protocol::*operation,
                                   std::string_view name) {
  const auto* protocol = receiver.template as<Protocol>();
  if (protocol == nullptr || !(protocol->*operation)) throw MissingOperation(receiver, name);
  return protocol->*operation;
}

/// Makes a class known to the process, for the rest of its life. Plug-ins do so through their entry; an
/// application or a loader may do it directly. A name belongs to whoever took it first: false, with one line
/// in the system log, when there is such a class already, which a caller may well ignore. May be called from
/// any thread.
ROSTER_EXPORT bool registerClass(ClassObject object);

/// The class with the name; nil when nobody has registered it. The result is valid for the life of the
/// process. May be called from any thread.
ROSTER_EXPORT const ClassObject* findClass(std::string_view name);

}  // namespace roster
