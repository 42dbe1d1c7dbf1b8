#include "roster/base/text_table.h"

#include <chrono>
#include <exception>
#include <optional>
#include <random>

namespace roster {

namespace {

/// Random numbers from a named source; nothing when there are none.
std::optional<std::uint64_t> randomNumber(const char* source) {
  try {
    std::random_device device(source);
    return (static_cast<std::uint64_t>(device()) << 32U) | device();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

std::uint64_t drawSeed() {
  // Not the default source: it may be one that ends the process where the system refuses random numbers.
  for (const char* source : {"getentropy", "/dev/urandom"}) {
    if (const std::optional<std::uint64_t> number = randomNumber(source)) return *number;
  }
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

std::uint64_t textHashSeed() {
  static const std::uint64_t seed = drawSeed();
  return seed;
}

}  // namespace roster
