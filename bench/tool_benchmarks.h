#pragma once

namespace roster::bench {

/// Registers what is measured of rosterctl, as whole processes; nothing where it is not built. Everything
/// runs in turns, so that starts, floors and commands are compared as of one moment.
void registerToolBenchmarks();

}  // namespace roster::bench
