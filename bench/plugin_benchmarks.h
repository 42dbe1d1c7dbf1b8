#pragma once

namespace roster::bench {

/// Registers what is measured of notifications and full accounts. BenchPlugins must live when they run.
void registerPluginBenchmarks();

}  // namespace roster::bench
