#include <cstdlib>
#include <stdexcept>

#include "roster/platform/plugin.h"

/// What is wrong with the plug-in this time; empty when nothing is.
static std::string_view fault() {
  const char* name = std::getenv("ROSTER_TEST_FAULT");  // NOLINT(concurrency-mt-unsafe)
  return name == nullptr ? "" : name;
}

static void registerClasses(roster::PluginClasses& classes) {
  classes.add(roster::ClassObject("Repaired"));
  if (fault() == "class") throw std::runtime_error("no wire");
}

extern "C" ROSTER_EXPORT const roster::PluginEntry* rosterPluginEntry();
extern "C" const roster::PluginEntry* rosterPluginEntry() {
  if (fault() == "entry") throw std::runtime_error("out of order");
  static roster::PluginEntry entry{};
  const std::uint32_t later = fault() == "version" ? 1 : 0;
  entry = {roster::pluginEntryVersion + later, roster::pluginLayout, &registerClasses};
  return &entry;
}
