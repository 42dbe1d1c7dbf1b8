#pragma once

#include <exception>
#include <optional>
#include <string>

namespace roster {

/// Runs code that somebody else wrote, such as a plug-in's. What it throws is its own fault and must not end
/// what we are in the middle of: returns the exception's text, nothing when there was none.
template <class Call>
std::optional<std::string> failureOf(const Call& call) {
  try {
    call();
    return std::nullopt;
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "it threw something that is no exception";
  }
}

}  // namespace roster
