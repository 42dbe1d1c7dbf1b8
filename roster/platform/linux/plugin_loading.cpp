#include <dlfcn.h>
#include <link.h>

#include <array>
#include <charconv>
#include <memory>
#include <mutex>
#include <set>

#include "roster/base/foreign_code.h"
#include "roster/base/process_wide.h"
#include "roster/platform/linux/system_calls.h"
#include "roster/platform/plugin.h"

namespace roster {

namespace {

constexpr const char* entryName = "rosterPluginEntry";

/// This library's own name, for the classes that it defines itself: it is always loaded.
constexpr std::string_view ownLibrary = ROSTER_LIBRARY_NAME;

struct LoadedPlugins {
  /// Recursive, because the entry of a plug-in may load another one.
  std::recursive_mutex lock;
  std::set<std::string> paths;
  /// One library may be reached by several paths.
  std::set<void*> libraries;
  /// Those whose entries run at this moment.
  std::set<void*> loading;
};

/// Whether the library's entry is running, for as long as this lives.
class RunningEntry {
 public:
  RunningEntry(LoadedPlugins& plugins, void* library)
      : plugins_(plugins), library_(library), isFirst_(plugins.loading.insert(library).second) {}
  RunningEntry(const RunningEntry&) = delete;
  RunningEntry& operator=(const RunningEntry&) = delete;
  ~RunningEntry() {
    if (isFirst_) plugins_.loading.erase(library_);
  }

  /// False when it was running before, in a call further out.
  bool isFirst() const { return isFirst_; }

 private:
  LoadedPlugins& plugins_;
  void* library_;
  bool isFirst_;
};

struct LibraryCloser {
  void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, LibraryCloser>;

/// Whether the address lies in the library itself. Names are also looked up in what a library links to, where
/// another plug-in's entry could be found.
bool isDefinedIn(void* library, const void* address) {
  link_map* own = nullptr;
  Dl_info object{};
  void* owner = nullptr;
  return dlinfo(library, RTLD_DI_LINKMAP, &own) == 0 &&
         dladdr1(address, &object, &owner, RTLD_DL_LINKMAP) != 0 && own == owner;
}

Result<Library> openLibrary(const std::string& path) {
  // An empty path would open the program itself.
  if (path.empty()) return Error(std::errc::executable_format_error, "the path is empty");
  if (path.find('\0') != std::string::npos)
    return Error(std::errc::executable_format_error, "the path holds a zero byte");
  Library library(dlopen(path.c_str(), RTLD_NOW));
  if (!library) return Error(std::errc::executable_format_error, loaderError());
  return library;
}

std::string hexadecimal(std::uint64_t number) {
  std::array<char, 16> digits{};
  return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr};
}

Error refusal(const std::string& path, const std::string& reason) {
  return {std::errc::executable_format_error, path + ": " + reason};
}

Result<const PluginEntry*> entryOf(void* library, const std::string& path) {
  void* symbol = dlsym(library, entryName);
  if (symbol == nullptr || !isDefinedIn(library, symbol))
    return refusal(path, std::string("it has no entry ").append(entryName));
  const PluginEntry* entry = reinterpret_cast<const PluginEntry* (*)()>(symbol)();
  if (entry == nullptr) return refusal(path, "its entry tells nothing");
  if (entry->version != pluginEntryVersion) {
    return refusal(path, "it was built for version " + std::to_string(entry->version) +
                             " of the plug-in entry, not for version " + std::to_string(pluginEntryVersion));
  }
  if (entry->layout != pluginLayout) {
    return refusal(path, "it was built with other layouts of the classes that it shares with this library (" +
                             hexadecimal(entry->layout) + ", not " + hexadecimal(pluginLayout) +
                             "), as with other compiler flags like -D_GLIBCXX_DEBUG");
  }
  if (entry->registerClasses == nullptr) return refusal(path, "its entry registers no classes");
  return entry;
}

Result<PluginClasses> classesOf(void* library, const std::string& path) {
  Result<PluginClasses> classes = PluginClasses();
  const Result<> called = runForeignCode([&] {
    const Result<const PluginEntry*> entry = entryOf(library, path);
    if (!entry) {
      classes = entry.error();
    } else {
      (*entry)->registerClasses(*classes);
    }
  });
  if (!called) return refusal(path, "its entry failed: " + called.error().message);
  return classes;
}

}  // namespace

Result<> loadPlugin(const std::string& path) {
  if (path == ownLibrary) return {};
  auto& loaded = immortalInstance<LoadedPlugins>();
  const std::lock_guard guard(loaded.lock);
  if (loaded.paths.contains(path)) return {};
  Result<Library> library = openLibrary(path);
  if (!library) return library.error();
  if (!loaded.libraries.contains(library->get()) && !isDefinedIn(library->get(), &ownLibrary)) {
    const RunningEntry running(loaded, library->get());
    if (!running.isFirst()) return refusal(path, "it is being loaded: its entry asks for what it provides");
    Result<PluginClasses> classes = classesOf(library->get(), path);
    if (!classes) return classes.error();
    loaded.libraries.insert(library->release());  // its code is in use from now on
    for (ClassObject& object : classes->classes_) registerClass(std::move(object));
  }
  loaded.paths.insert(path);
  return {};
}

}  // namespace roster
