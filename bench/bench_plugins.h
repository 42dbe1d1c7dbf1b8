#pragma once

#include <cstddef>
#include <string>

namespace roster::bench {

/// Plug-in classes of this program: one that makes full accounts, and three notifiers for a dataclass each,
/// for every account type of the generated registries. They are known as long as this lives, through a copy
/// of the resources with another table of plug-ins. Made once, before anything asks for a plug-in.
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

/// Registers what is measured of notifications and full accounts. BenchPlugins must live when they run.
void registerPluginBenchmarks();

}  // namespace roster::bench
