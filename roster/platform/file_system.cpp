#include "roster/platform/file_system.h"

namespace roster {

std::string joinPath(std::string_view folder, std::string_view component) {
  while (folder.ends_with('/')) folder.remove_suffix(1);
  while (component.starts_with('/')) component.remove_prefix(1);
  std::string path;
  path.reserve(folder.size() + 1 + component.size());
  return path.append(folder).append("/").append(component);
}

}  // namespace roster
