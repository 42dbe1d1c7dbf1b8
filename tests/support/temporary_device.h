#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "roster/platform/system_log.h"
#include "roster/value/value.h"

namespace roster::testing {

/// A device of a test's own, below a new folder that goes with the object. Until it goes, the environment
/// leads there: the device's root, the user's home, a system bus that nobody serves, English texts, and the
/// source tree's resources unless the environment names others. It belongs to the whole process: no other
/// thread may run while a device is made, changed or destroyed.
class TemporaryDevice {
 public:
  TemporaryDevice();
  TemporaryDevice(const TemporaryDevice&) = delete;
  TemporaryDevice& operator=(const TemporaryDevice&) = delete;
  ~TemporaryDevice();

  /// The device's root folder, absolute, without a slash at its end.
  const std::string& root() const { return root_; }
  std::string home() const { return path("home/user"); }
  /// Where the accounts registry lies; there is none at first.
  std::string registryPath() const { return path("var/lib/roster/Preferences/com.nimbal.roster.plist"); }
  /// Where the private system bus would listen.
  std::string busSocket() const { return path("run/system_bus_socket"); }

  /// A path given from the device's root, in full; an absolute path stays what it is.
  std::string path(std::string_view below) const;

  // Files. Paths are taken as by `path`; missing folders are made; what fails throws. Writers return the
  // path.
  std::string writeFile(std::string_view path, std::string_view text) const;
  std::string writePropertyList(std::string_view path, const Value& value) const;
  std::string readFile(std::string_view path) const;
  /// The names in a folder, sorted; empty when there is no such folder.
  std::vector<std::string> fileNames(std::string_view folder) const;

  /// Sets a variable, or unsets it when there is no value, until the device goes.
  void setEnvironment(const std::string& name, const std::optional<std::string>& value);

 private:
  std::string root_;
  std::vector<std::pair<std::string, std::optional<std::string>>> oldVariables_;
};

/// Keeps the lines of the system log, which then go nowhere else, as long as it lives. For all threads.
class CapturedLog {
 public:
  CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog();

  /// The lines so far, oldest first.
  std::vector<std::string> lines() const;
  void clear();

 private:
  struct Lines {
    std::mutex lock;
    std::vector<std::string> list;
  };

  // Shared with the receiver, which a thread may still be calling when this object goes.
  std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
  SystemLogSink previous_;
};

}  // namespace roster::testing
