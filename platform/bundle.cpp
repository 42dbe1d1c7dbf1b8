#include "platform/bundle.h"

#include <filesystem>

#include "platform/plugin.h"

namespace roster {

bool bundleExists(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_directory(path, error);
}

std::optional<Error> loadBundle(const std::string& path) {
  const std::filesystem::path folder(path);
  return loadPlugin(folder / folder.filename().replace_extension(".so"));
}

}  // namespace roster
