#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/temporary_device.h"

struct sd_bus;

namespace roster::testing {

/// A real message bus: the device's system bus as long as it lives. Throws when it cannot be started.
class PrivateBus {
 public:
  explicit PrivateBus(const TemporaryDevice& device);
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

 private:
  std::FILE* output_ = nullptr;
  pid_t daemon_ = -1;
};

/// A client of the device's system bus that hears the signals of one interface.
class SignalListener {
 public:
  /// Hears every signal sent from now on.
  explicit SignalListener(const std::string& interface);

  /// The next signal, waited for as long as a slow machine may take: its path and member, then its text
  /// arguments. Throws when none comes.
  std::vector<std::string> next();

 private:
  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus_{nullptr, nullptr};
  std::vector<std::vector<std::string>> heard_;
};

}  // namespace roster::testing
