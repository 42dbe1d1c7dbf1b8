#pragma once

#include <cstddef>
#include <string>

namespace roster::bench {

/// Plug-in classes of this program: for every account type of the generated registries one that makes full
/// accounts, and three notifiers, each for another dataclass. They are known as long as this lives, through a
/// copy of the resources with a table of its own. Made once, before anything asks for a plug-in.
class BenchPlugins {
 public:
  /// Throws when ROSTER_RESOURCES does not name the resources to copy.
  BenchPlugins();
  BenchPlugins(const BenchPlugins&) = delete;
  BenchPlugins& operator=(const BenchPlugins&) = delete;
  ~BenchPlugins();

  static constexpr std::size_t notifiers = 3;
  /// How many change records all notifiers together have been told of.
  static std::size_t toldChanges();

 private:
  std::string folder_;
};

}  // namespace roster::bench
