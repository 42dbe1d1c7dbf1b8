#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/export.h"

namespace roster {

class BasicAccount;

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
  /// Learns, once it has been made, the record of the parent account; nil for a top-level account. A full
  /// account that has no use for it need not answer.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): those who answer keep it
  virtual void setParentAccount(std::shared_ptr<BasicAccount> /*parent*/) {}
};

}  // namespace roster
