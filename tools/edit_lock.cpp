#include "tools/edit_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <filesystem>

#include "roster/store/accounts_manager.h"

namespace roster::tool {

namespace {

int openFolder(EditLock::Folder folder) {
  const std::filesystem::path path =
      std::filesystem::path(AccountsManager::fullPathToRosterPlist()).parent_path();
  std::error_code ignored;
  if (folder == EditLock::Folder::madeIfMissing) std::filesystem::create_directories(path, ignored);
  return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

EditLock::EditLock(Folder folder) : folder_(openFolder(folder)) {
  if (folder_.number() == -1) return;
  while (flock(folder_.number(), LOCK_EX) == -1 && errno == EINTR) {
  }
}

}  // namespace roster::tool
