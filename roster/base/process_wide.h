#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace roster {

/// Moves a table to where it stays for the life of the process. A table with a destructor would be gone while
/// a program's own static objects, or threads that still run at its exit, ask the library for something.
template <class Table>
const Table& immortal(Table table) {
  return *std::make_unique<const Table>(std::move(table)).release();
}

/// The one object of a type that stays for the life of the process, for tables that are filled as they are
/// used.
template <class Object>
Object& immortalInstance() {
  // One object of the whole process is what this is for; it guards itself.
  // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
  static Object& instance = *std::make_unique<Object>().release();
  return instance;
}

/// A function of the process that may be replaced while other threads call it. A caller takes a copy and
/// calls that one, so that no lock is held while it runs: the function may itself log, assert, or replace
/// itself.
template <class Function>
class Replaceable {
 public:
  /// Returns the function that was in place.
  Function replace(Function function) {
    auto fresh = std::make_shared<const Function>(std::move(function));
    {
      const std::lock_guard lock(mutex_);
      current_.swap(fresh);
    }
    return fresh ? *fresh : Function();
  }

  /// The function in place, empty when there is none.
  Function current() const {
    std::shared_ptr<const Function> function;
    {
      const std::lock_guard lock(mutex_);
      function = current_;
    }
    return function ? *function : Function();
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const Function> current_;
};

/// A replaceable function that is never destroyed: threads may still log while the process exits.
template <class Function>
Replaceable<Function>& immortalReplaceable() {
  return immortalInstance<Replaceable<Function>>();
}

}  // namespace roster
