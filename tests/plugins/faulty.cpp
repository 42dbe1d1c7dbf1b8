#include <cstdlib>
#include <stdexcept>

#include "roster/platform/plugin.h"

namespace {

/// What is wrong with the plug-in this time; empty when nothing is.
std::string_view fault() {
  const char* name = std::getenv("ROSTER_TEST_FAULT");  // NOLINT(concurrency-mt-unsafe)
  return name == nullptr ? "" : name;
}

void registerClasses(roster::PluginClasses& classes) {
  classes.add(roster::ClassObject("Repaired"));
  if (fault() == "class") throw std::runtime_error("no wire");
}

using roster::pluginEntryVersion;
using roster::pluginLayout;
constexpr roster::PluginEntry sound{pluginEntryVersion, pluginLayout, &registerClasses};
constexpr roster::PluginEntry later{pluginEntryVersion + 1, pluginLayout, &registerClasses};

}  // namespace

extern "C" ROSTER_EXPORT const roster::PluginEntry* rosterPluginEntry();
extern "C" const roster::PluginEntry* rosterPluginEntry() {
  if (fault() == "entry") throw std::runtime_error("out of order");
  return fault() == "version" ? &later : &sound;
}
