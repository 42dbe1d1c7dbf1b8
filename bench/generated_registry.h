#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace roster::bench {

/// A registry as devices have it, with as many top-level accounts: fourteen properties each, every tenth with
/// two children. The same count always gives the same registry, and is generated once.
struct GeneratedRegistry {
  std::string bytes;
  std::vector<std::string> identifiers;
};
const GeneratedRegistry& registryOf(std::size_t accounts);

/// A device of its own below a temporary folder, which ROSTER_ROOT names as long as this lives.
class BenchDevice {
 public:
  explicit BenchDevice(const std::string& registry);
  BenchDevice(const BenchDevice&) = delete;
  BenchDevice& operator=(const BenchDevice&) = delete;
  ~BenchDevice();

  const std::string& registryPath() const { return registryPath_; }

 private:
  std::string root_;
  std::string registryPath_;
};

}  // namespace roster::bench
