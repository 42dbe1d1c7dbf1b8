#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/platform/class_table.h"

namespace roster {

/// Receives the classes of a plug-in that is being loaded. They become known together once its entry has
/// returned; a plug-in whose entry throws leaves none behind.
class PluginClasses {
 public:
  void add(ClassObject object) { classes_.push_back(std::move(object)); }
  std::vector<ClassObject> take() { return std::move(classes_); }

 private:
  std::vector<ClassObject> classes_;
};

/// Changes whenever a plug-in that was built before the change could not be called any more: with this entry,
/// with the protocols, or with the layout of the classes that plug-ins derive from.
inline constexpr std::uint32_t pluginEntryVersion = 1;

/// What a plug-in tells about itself. Nothing behind the version is looked at before that has been compared.
struct PluginEntry {
  std::uint32_t version;
  void (*registerClasses)(PluginClasses& classes);
};

/// Defines the one entry of a plug-in, a shared library. `registerClasses` is a function that adds the
/// plug-in's classes:
///
///     void registerClasses(roster::PluginClasses& classes) {
///       classes.add(roster::ClassObject("PhotoCreator").answering(...));
///     }
///     ROSTER_PLUGIN(registerClasses)
#define ROSTER_PLUGIN(registerClasses)                                                       \
  extern "C" ROSTER_EXPORT const roster::PluginEntry* rosterPluginEntry();                   \
  extern "C" ROSTER_EXPORT const roster::PluginEntry* rosterPluginEntry() {                  \
    static constexpr roster::PluginEntry entry{roster::pluginEntryVersion, registerClasses}; \
    return &entry;                                                                           \
  }

/// Loads the plug-in at a path, with all its symbols bound at once, and makes its classes known. One that is
/// loaded already, or is this library itself, is a success at once. A plug-in is never unloaded.
///
/// On failure the error says which it was, with the loader's text where there is one: the library cannot be
/// opened or has an unresolved symbol, has no entry, has one of another version, or threw. No class of it is
/// known then, and the next call tries again. May be called from any thread; plug-ins are loaded one at a
/// time.
ROSTER_EXPORT Result<> loadPlugin(const std::string& path);

}  // namespace roster
