#include "roster/store/registry_copy.h"

#include "roster/store/settings_file.h"

namespace roster {

Result<std::string> keepRegistryCopy(const std::string& path) { return SettingsFile(path).keepCopy(); }

}  // namespace roster
