#pragma once

#include <exception>
#include <memory>
#include <string>
#include <type_traits>

#include "roster/base/result.h"

namespace roster {

/// One more handle of an object on which code is called that somebody else wrote: that code may drop all
/// others.
template <class T>
std::shared_ptr<T> held(const std::shared_ptr<T>& object) {
  return object;
}

/// Runs code that somebody else wrote, such as a plug-in's, and returns what it returns. An exception from it
/// must not end the operation that called it: it becomes an error with the exception's text.
template <class Call>
auto runForeignCode(const Call& call) -> Result<std::invoke_result_t<const Call&>> {
  const auto failed = [](std::string why) { return Error(std::errc::operation_canceled, std::move(why)); };
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<const Call&>>) {
      call();
      return {};
    } else {
      return call();
    }
  } catch (const std::exception& exception) {
    return failed(exception.what());
  } catch (...) {
    return failed("it threw something that is no exception");
  }
}

}  // namespace roster
