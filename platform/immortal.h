#pragma once

#include <memory>
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

}  // namespace roster
