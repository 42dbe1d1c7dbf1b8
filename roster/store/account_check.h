#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/fixers/runtime_fix.h"
#include "roster/store/registry_check.h"
#include "roster/value/ordered_map.h"

namespace roster {

/// Collects the findings about a registry, account by account. Each goes through the very
/// operations that load it, so that the findings cannot differ from what a store does.
class AccountCheck {
 public:
  using Kind = RegistryFinding::Kind;
  explicit AccountCheck(std::vector<std::shared_ptr<RSRuntimeFixProtocol>> fixers)
      : fixers_(std::move(fixers)) {}

  /// Looks at the elements of "Accounts".
  void checkAccounts(const Array& accounts);
  void add(Kind kind, std::string where, std::string what, std::string why);
  /// Whether there is room for findings and for the work of looking for them.
  bool mayGoOn() const;
  std::vector<RegistryFinding> takeFindings() && { return std::move(findings_); }

 private:
  /// An account of the file that stands under an identifier.
  struct Position {
    std::string where;
    Dictionary properties;
  };

  void checkTopLevel(const Value& element, const std::optional<Dictionary>& usable, const std::string& where);
  void checkLostParts(const Value& element, const Dictionary& usable, const std::string& where);
  bool checkFixers(const AccountPtr& account, const std::string& where);
  void checkChildren(const AccountPtr& parent, const std::string& where);
  void checkChild(const Value& element, const AccountPtr& parent, const std::string& where);
  void checkIdentifier(const Dictionary& stored, const std::string& where, bool isChild);
  void checkSharedIdentifiers();
  void checkReplaced(const Position& earlier, const Position& later);
  void checkTexts(const Dictionary& stored, const std::string& where);
  void checkList(const AccountPtr& account, const Dictionary& stored, std::string_view key,
                 const std::string& where);
  void checkRecord(const AccountPtr& account, const Dictionary& stored, const std::string& where);

  std::vector<std::shared_ptr<RSRuntimeFixProtocol>> fixers_;
  std::vector<RegistryFinding> findings_;
  OrderedMap<std::vector<Position>> topLevelAccounts_;
  OrderedMap<std::vector<Position>> children_;
  std::uint64_t work_ = 0;
};

}  // namespace roster
