#include "roster/account/property_types.h"

#include <algorithm>
#include <array>

#include "roster/account/vocabulary.h"
#include "roster/value/kind_name.h"

namespace roster {

namespace {

using Kind = Value::Kind;

/// What stands under a key of the vocabulary.
struct PropertyType {
  std::string_view key;
  Kind kind;
  /// Of an array's elements; nil for everything else.
  Kind elements = Kind::nil;
};

const PropertyType* typeOf(std::string_view key) {
  static const std::array<PropertyType, 12> types{{
      {kAccountIdentifier, Kind::string},
      {kAccountSyncIdentifier, Kind::string},
      {kAccountType, Kind::string},
      {kAccountClass, Kind::string},
      {kAccountDisplayName, Kind::string},
      {kAccountUsername, Kind::string},
      {kAccountTypeString, Kind::string},
      {kAccountShortTypeString, Kind::string},
      {kAccountSupportedDataclasses, Kind::array, Kind::string},
      {kAccountProvisionedDataclasses, Kind::array, Kind::string},
      {kAccountEnabledDataclasses, Kind::array, Kind::string},
      {kAccountChildAccounts, Kind::array, Kind::dictionary},
  }};
  const auto* found =
      std::find_if(types.begin(), types.end(), [key](const PropertyType& type) { return type.key == key; });
  return found == types.end() ? nullptr : found;
}

std::string mismatch(std::string_view what, Kind kind, Kind expected) {
  return std::string(what) + " is " + std::string(kindName(kind)) + ", not " +
         std::string(kindName(expected));
}

}  // namespace

std::optional<std::string> mismatchWithKey(const Value& value, std::string_view key) {
  const PropertyType* type = typeOf(key);
  if (type == nullptr) return std::nullopt;
  if (value.kind() != type->kind) return mismatch("it", value.kind(), type->kind);
  std::size_t index = 0;
  for (const Value& element : value.array().value_or(Array())) {
    if (element.kind() != type->elements) {
      return mismatch("its element " + std::to_string(index), element.kind(), type->elements);
    }
    ++index;
  }
  return std::nullopt;
}

}  // namespace roster
