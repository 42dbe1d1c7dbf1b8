#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/platform/class_table.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/value.h"

namespace roster {

/// Loads the plug-in at a path, with all its symbols bound at once, and makes its classes known. One that is
/// loaded already, or is this library itself, is a success at once. A plug-in is never unloaded.
///
/// On failure the error says which it was, with the loader's text where there is one: the library cannot be
/// opened or has an unresolved symbol, has no entry, has one of another version, was built with other layouts
/// of the classes that it shares with this library, threw, or is being loaded, which is so when its own entry
/// asks for an account that it is to provide. No class of it is known then, and the next call
/// tries again. May be called from any thread; plug-ins are loaded one at a time.
ROSTER_EXPORT Result<> loadPlugin(const std::string& path);

/// Receives the classes of a plug-in that is being loaded. They become known together once its entry has
/// returned; a plug-in whose entry throws leaves none behind.
class PluginClasses {
 public:
  /// Adds a class. When its name is taken by then, the class that came first stays the one that is found.
  void add(ClassObject object) { classes_.push_back(std::move(object)); }

 private:
  friend Result<> loadPlugin(const std::string& path);

  std::vector<ClassObject> classes_;
};

/// Changes whenever a plug-in that was built before the change could not be called any more: with this entry,
/// with the protocols, or with the members of the classes that plug-ins derive from.
inline constexpr std::uint32_t pluginEntryVersion = 2;

/// @cond INTERNAL
// Computed where it is asked for and without a symbol: a plug-in must not be given the library's own answer.
template <class... Types>
consteval std::uint64_t layoutFingerprint() {
  std::uint64_t fingerprint = 14695981039346656037U;
  for (const std::uint64_t number : {std::uint64_t{sizeof(Types)}..., std::uint64_t{alignof(Types)}...}) {
    fingerprint = (fingerprint ^ number) * 1099511628211U;
  }
  return fingerprint;
}
/// @endcond

/// A fingerprint of the sizes and alignments of the types that a plug-in and the library exchange, as this
/// very code is compiled. A plug-in whose fingerprint is not the library's (built with -D_GLIBCXX_DEBUG, say,
/// or with another standard library) is refused: the two would corrupt each other's memory. Records and
/// stores are built from these types; a change of their own members changes `pluginEntryVersion` instead.
constexpr std::uint64_t pluginLayout =
    layoutFingerprint<std::string, std::vector<std::string>, std::map<std::string, std::string>,
                      std::set<std::string>, std::function<void()>, std::shared_ptr<void>,
                      std::optional<std::string>, Result<>, Result<Value>, Value, String, Array, Dictionary,
                      MutableDictionary, ClassObject, PluginClasses>();

/// What a plug-in tells about itself. Nothing behind the version is looked at before that has been compared,
/// and nothing is called before the layout has been.
struct PluginEntry {
  std::uint32_t version;                            ///< The plug-in's `pluginEntryVersion`.
  std::uint64_t layout;                             ///< The plug-in's `pluginLayout`.
  void (*registerClasses)(PluginClasses& classes);  ///< Adds the plug-in's classes; may throw.
};

/// Defines the one entry of a plug-in, a shared library. `registerClasses` is a function that adds the
/// plug-in's classes:
///
///     void registerClasses(roster::PluginClasses& classes) {
///       classes.add(roster::ClassObject("PhotoCreator").answering(...));
///     }
///     ROSTER_PLUGIN(registerClasses)
#define ROSTER_PLUGIN(registerClasses)                                                           \
  extern "C" ROSTER_EXPORT const roster::PluginEntry* rosterPluginEntry();                       \
  extern "C" ROSTER_EXPORT const roster::PluginEntry* rosterPluginEntry() {                      \
    static constexpr roster::PluginEntry entry{roster::pluginEntryVersion, roster::pluginLayout, \
                                               registerClasses};                                 \
    return &entry;                                                                               \
  }

}  // namespace roster
