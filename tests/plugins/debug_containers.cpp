// Sound, but for the compiler flags it is built with.

#include "roster/platform/plugin.h"

namespace {

void registerClasses(roster::PluginClasses& classes) { classes.add(roster::ClassObject("Corrupting")); }

}  // namespace

ROSTER_PLUGIN(registerClasses)
