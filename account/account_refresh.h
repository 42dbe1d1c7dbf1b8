#pragma once

#include <string_view>

#include "platform/export.h"

namespace roster {

/// A sync account: refreshes what an account's server holds. Each operation answers whether a refresh was
/// begun.
class ROSTER_EXPORT AccountRefreshProtocol {
 public:
  virtual ~AccountRefreshProtocol() = default;

  /// Refreshes the contents of one container (a mailbox, a calendar).
  virtual bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view identifier,
                                                                         std::string_view dataclass,
                                                                         bool isUserRequested) = 0;
  /// Refreshes which containers there are.
  virtual bool refreshContainerListForDataclassIsUserRequested(std::string_view dataclass,
                                                               bool isUserRequested) = 0;
  /// Refreshes the contents of all containers.
  virtual bool refreshContainersForDataclassIsUserRequested(std::string_view dataclass,
                                                            bool isUserRequested) = 0;
};

}  // namespace roster
