#include "roster/platform/plugin.h"

extern "C" void rosterTestNobodyDefinesThis();
static void registerClasses(roster::PluginClasses&) { rosterTestNobodyDefinesThis(); }
ROSTER_PLUGIN(registerClasses)
