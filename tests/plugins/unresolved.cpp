#include "roster/platform/plugin.h"

extern "C" void rosterTestNobodyDefinesThis();

namespace {

void registerClasses(roster::PluginClasses&) { rosterTestNobodyDefinesThis(); }

}  // namespace

ROSTER_PLUGIN(registerClasses)
