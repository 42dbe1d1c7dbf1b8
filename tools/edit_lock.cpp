#include "tools/edit_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "store/accounts_manager.h"

namespace roster::tool {

EditLock::EditLock(Folder folder) {
  const std::filesystem::path path =
      std::filesystem::path(AccountsManager::fullPathToRosterPlist()).parent_path();
  std::error_code ignored;
  if (folder == Folder::madeIfMissing) std::filesystem::create_directories(path, ignored);
  folder_ = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder_ == -1) return;
  while (flock(folder_, LOCK_EX) == -1 && errno == EINTR) {
  }
}

EditLock::~EditLock() {
  if (folder_ != -1) close(folder_);
}

}  // namespace roster::tool
