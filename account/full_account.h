#pragma once

#include <cstdint>
#include <functional>

#include "platform/export.h"

namespace roster {

/// Receives the result of a credential renewal; what the numbers mean is between the account's plug-in and
/// its caller.
using CredentialRenewalHandler = std::function<void(std::int32_t result)>;

/// What every full account answers, and every basic record too, so that a record can stand where a full
/// account is expected.
class ROSTER_EXPORT AccountFullAccountProtocol {
 public:
  virtual ~AccountFullAccountProtocol() = default;

  /// Renews the account's credentials and calls the handler, which must not be empty, once with the result.
  virtual void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) = 0;
};

}  // namespace roster
