#include "roster/platform/resources.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

#include "roster/base/process_wide.h"
#include "roster/platform/file_system.h"
#include "roster/platform/linux/system_calls.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

/// The running program's file. The loader only knows how the program was called.
std::string ownProgram() {
  std::array<char, PATH_MAX> path{};
  const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
  return {path.data(), static_cast<std::size_t>(std::max(size, ssize_t{0}))};
}

/// The file that this code was loaded from; empty when the loader does not know.
std::string ownFile() {
  static int anchor = 0;
  // dladdr would go through all of the library's symbols.
  dl_find_object object{};
  if (_dl_find_object(&anchor, &object) != 0) return {};
  std::string file = object.dlfo_link_map->l_name;
  if (file.starts_with('/')) return file;
  if (file.empty()) return ownProgram();
  std::error_code error;
  const std::filesystem::path found = std::filesystem::absolute(file, error);
  return error ? std::string() : found.string();
}

/// The folder beside the library; empty when it is not known where that is.
std::string folderBesideLibrary() {
  const std::string file = ownFile();
  return file.empty() ? std::string() : joinPath(folderOf(file), "roster");
}

/// The folders that may hold the library's resources, first choice first.
std::vector<std::string> resourceFolders() {
  // Settled at the first call: a library loaded by a relative path is relative to the working folder of that
  // time.
  static const std::string& besideLibrary = immortal(folderBesideLibrary());
  std::vector<std::string> folders{trustedEnvironment("ROSTER_RESOURCES"), besideLibrary};
#ifdef ROSTER_INSTALL_RESOURCES
  folders.emplace_back(ROSTER_INSTALL_RESOURCES);
#endif
  std::erase(folders, "");
  return folders;
}

/// Whether a text is a name that cannot lead out of the folder it is looked up in.
bool isPlainName(std::string_view text) {
  constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

/// The languages to look for a text in, best first: the user's with its country, without it, and English.
std::vector<std::string> preferredLanguages() {
  std::string locale;
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    locale = environment(variable);
    if (!locale.empty()) break;
  }
  std::vector<std::string> languages;
  const std::string language = locale.substr(0, locale.find_first_of(".@"));
  if (isPlainName(language) && language != "C" && language != "POSIX") {
    languages.push_back(language);
    const std::size_t country = language.find('_');
    if (country != std::string::npos) languages.push_back(language.substr(0, country));
  }
  if (languages.empty() || languages.back() != "en") languages.emplace_back("en");
  return languages;
}

/// Tables by folder and name; a missing or damaged one is empty.
struct StringTables {
  std::mutex lock;
  std::map<std::string, Dictionary> tables;
};

Dictionary stringTable(const std::string& language, const std::string& table) {
  auto& known = immortalInstance<StringTables>();
  const std::string name = "strings/" + language + "/" + table;
  // A program that names another folder of resources gets the tables from there.
  const std::string key = trustedEnvironment("ROSTER_RESOURCES") + '\n' + name;
  Result<Dictionary> file = Dictionary();
  {
    const std::lock_guard guard(known.lock);
    const auto found = known.tables.find(key);
    if (found != known.tables.end()) return found->second;
    const std::string path = resourcePath(name, "plist");
    if (!path.empty()) file = readDictionaryFile(path);
    known.tables.emplace(key, file ? *file : Dictionary());
  }
  if (file) return *file;
  if (!isMissingFile(file.error())) systemLog("%@", file.error().message);
  return {};
}

}  // namespace

std::string resourcePath(std::string_view name, std::string_view type) {
  const std::string fileName = type.empty() ? std::string(name) : std::string(name) + "." + std::string(type);
  for (const std::string& folder : resourceFolders()) {
    std::string path = joinPath(folder, fileName);
    if (fileType(path) == FileType::regular) return path;
  }
  return {};
}

std::string localizedString(std::string_view key, std::string_view table, std::string_view missing) {
  if (!isPlainName(table)) return std::string(missing);
  for (const std::string& language : preferredLanguages()) {
    const String text = stringTable(language, std::string(table)).find(key).string();
    if (text) return text.str();
  }
  return std::string(missing);
}

}  // namespace roster
