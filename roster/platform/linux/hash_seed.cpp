#include <array>
#include <bit>
#include <chrono>
#include <span>

#include "roster/base/text_table.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

// Not std::random_device, whose default source may end the process where the system refuses random numbers,
// and which costs a process's first load more than all else that is done with the seed.
std::uint64_t drawSeed() {
  std::array<std::byte, sizeof(std::uint64_t)> bytes{};
  if (drawRandomBytes(bytes)) return std::bit_cast<std::uint64_t>(bytes);
  // Addresses differ from process to process, the clocks from call to call.
  std::uint64_t seed = 0;
  const auto mixIn = [&seed](std::uint64_t number) {
    constexpr std::uint64_t factor = 0xD1B54A32D192ED03U;
    seed = detail::multiplyAndFold(seed ^ number ^ factor, factor);
  };
  mixIn(reinterpret_cast<std::uintptr_t>(&seed));
  mixIn(reinterpret_cast<std::uintptr_t>(&drawSeed));
  mixIn(static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
  mixIn(static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()));
  return seed;
}

}  // namespace roster
